// Exchanges that go wrong: connections that are cut, files that cannot be read or written, servers
// that answer nonsense. Each ends with a failure, in time, and keeps what has arrived.

#include "support/exchange.h"
#include "support/restrictions.h"
#include "voinet/HTTPConnection.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::AnyOf;
using testing::ElementsAre;

static_assert(sizeof(off_t) == 8, "these tests make a file of 4 GiB");

constexpr std::size_t kMiB = std::size_t{1024} * 1024;

/// More than the sockets between client and server hold.
constexpr std::size_t kMoreThanSocketsHold = 24 * kMiB;

/// Sends the same bytes again and again until the client closes; it must do so before the limit.
Step sendUntilRefused(std::string bytes, std::size_t limit) {
    return [bytes = std::move(bytes), limit](Conversation& client) {
        try {
            for (std::size_t sent = 0; sent < limit; sent += bytes.size()) {
                client.send(bytes);
            }
        } catch (const ConnectionLost&) {
            return;
        }
        throw ScriptFailure("the client takes everything");
    };
}

class FailingExchange : public ExchangeTest {
  protected:
    void expectCut(const std::string& answerSoFar) {
        EXPECT_EQ(postAnswered(answerSoFar), voInetErrorTransferFailed) << answerSoFar;
    }

    void truncateRequestFile(std::int64_t size) const {
        ASSERT_EQ(::truncate(requestFile().c_str(), size), 0);
    }

    /// The head of the request, whose body stays in the sockets; then `meanwhile`; then the body up
    /// to the end of the connection, into `received`.
    static Script receiveBodyAfter(Step meanwhile, std::string& received) {
        return {receiveHead(), std::move(meanwhile), receiveRest(received)};
    }

    static Step receiveHead() {
        return [](Conversation& client) {
            while (!client.receiveLine().empty()) {
            }
        };
    }

    static Step receiveRest(std::string& received) {
        return [&received](Conversation& client) { received = client.receiveAll(); };
    }

    voInetError postTo(const std::string& response) {
        return transfer().UploadFileResponse(widened(requestFile()), L"/path", widened(response),
                                             nullptr);
    }
};

TEST_F(FailingExchange, ServerThatRefusesConnections_IsATransferFailure) {
    const RefusingPort dead;
    applySettings(transfer(), addressOnly(dead.hostAndPort()));

    EXPECT_EQ(post(), voInetErrorTransferFailed);

    expectResponse("");
}

TEST_F(FailingExchange, NameThatDoesNotResolve_IsAResolverFailure) {
    // Longer than a label can be, so that no resolver asks the network.
    applySettings(transfer(), addressOnly(std::wstring(64, L'x') + L":80"));

    EXPECT_EQ(post(), voInetErrorHostNotResolved);
}

TEST_F(FailingExchange, ResetBeforeTheRequestIsRead_IsATransferFailure) {
    EXPECT_EQ(postDuring({reset()}), voInetErrorTransferFailed);

    expectResponse("");
}

TEST_F(FailingExchange, ResetInTheMiddleOfALargeRequest_IsATransferFailure) {
    makeRequestFile(makeBody(kMoreThanSocketsHold));

    EXPECT_EQ(postDuring({receiveHead(), reset()}), voInetErrorTransferFailed);
}

TEST_F(FailingExchange, CloseWithoutAnAnswer_IsATransferFailure) {
    EXPECT_EQ(postDuring({receiveRequest()}), voInetErrorTransferFailed);

    expectResponse("");
}

TEST_F(FailingExchange, CutAnywhereInTheStatusLine_IsATransferFailure) {
    const std::string statusLine = "HTTP/1.1 200 Reason\r";
    for (std::size_t size = 0; size <= statusLine.size(); ++size) {
        expectCut(statusLine.substr(0, size));
        expectResponse("");
    }
}

TEST_F(FailingExchange, CutAnywhereInTheHeaders_StoresNothing) {
    // A curl may take the end of the connection for the end of the headers (7.88 does); the status
    // counts then. A host looks at the package and not at the status alone.
    const std::string statusLine = "HTTP/1.1 200 Reason\r\n";
    const std::string headers = "Content-Length: 5\r\nX-Header: 1\r\n\r";
    for (std::size_t size = 0; size <= headers.size(); ++size) {
        EXPECT_THAT(postAnswered(statusLine + headers.substr(0, size)),
                    AnyOf(voInetErrorTransferFailed, voInetErrorPackageReceived))
            << size;
        expectResponse("");
    }
}

TEST_F(FailingExchange, CutBehindTheHeaders_IsATransferFailure) {
    expectCut(replyHead(200, {"Content-Length: 5"}));
    expectResponse("");
}

TEST_F(FailingExchange, CutAnywhereInTheBody_KeepsWhatHasArrived) {
    const std::string whole = reply(200, "package");
    for (std::size_t missing = 1; missing <= 7; ++missing) {
        expectCut(whole.substr(0, whole.size() - missing));
        expectResponse(std::string("package").substr(0, 7 - missing));
    }
}

TEST_F(FailingExchange, ResetInTheBody_IsATransferFailure) {
    const std::string whole = reply(200, makeBody(10'000));

    EXPECT_EQ(postDuring({receiveRequest(), send(whole.substr(0, 5000)), reset()}),
              voInetErrorTransferFailed);
}

TEST_F(FailingExchange, CutAnywhereInAChunkedBody_IsATransferFailure) {
    const std::string head = replyHead(200, {"Transfer-Encoding: chunked"});
    const std::string body = chunked("package", 4);
    for (std::size_t size = 0; size + 2 < body.size(); ++size) {
        expectCut(head + body.substr(0, size));
    }
}

TEST_F(FailingExchange, CutAnswerOfAnyStatus_IsATransferFailure) {
    for (const int status : {201, 202, 400, 403, 404, 500, 503, 506}) {
        const std::string whole = reply(status, "body");
        expectCut(whole.substr(0, whole.size() - 1));
        expectResponse("bod");
    }
}

TEST_F(FailingExchange, OnlyAnInterimAnswer_IsATransferFailure) {
    expectCut(replyHead(100));
}

TEST_F(FailingExchange, Nonsense_IsATransferFailure) {
    for (const std::string& nonsense :
         {std::string("nonsense\r\n\r\n"), std::string("HTTP/9.9 200 OK\r\n\r\nbody"),
          std::string("HTTP/1.1 abc\r\n\r\n"), std::string("HTTP/1.1 20\r\n\r\n"),
          std::string(1000, '\0'), makeBody(100'000)}) {
        EXPECT_LT(postDuring({receiveRequest(), sendUntilClosed(nonsense)}), 0)
            << nonsense.substr(0, 30);
        expectResponse("");
    }
}

TEST_F(FailingExchange, LengthsThatAreNone_AreTransferFailures) {
    for (const char* header :
         {"Content-Length: -5", "Content-Length: x", "Transfer-Encoding: chunked\r\nX-Bad: 1"}) {
        EXPECT_LT(postDuring({receiveRequest(), send(replyHead(200, {header}) + "zz\r\nbody"),
                              halfClose(), awaitClose()}),
                  0)
            << header;
    }
}

TEST_F(FailingExchange, EndlessHeaders_EndAtCurlsLimit) {
    EXPECT_THAT(
        postDuring({receiveRequest(), send("HTTP/1.1 200 OK\r\n"),
                    sendUntilRefused("X-Header: " + std::string(1000, 'x') + "\r\n", 64 * kMiB)}),
        AnyOf(voInetErrorTransferFailed, voInetErrorOutOfMemory));

    expectResponse("");
}

TEST_F(FailingExchange, EndlessHeaderLine_EndsAtCurlsLimit) {
    EXPECT_THAT(postDuring({receiveRequest(), send("HTTP/1.1 200 OK\r\nX-Header: "),
                            sendUntilRefused(std::string(1000, 'x'), 64 * kMiB)}),
                AnyOf(voInetErrorTransferFailed, voInetErrorOutOfMemory));

    expectResponse("");
}

// The request file.

TEST_F(FailingExchange, MissingRequestFile_SendsNothingAndLeavesAnEmptyResponse) {
    ASSERT_EQ(::unlink(requestFile().c_str()), 0);
    directory().makeFile("response", "older");

    EXPECT_EQ(post(), voInetErrorUploadSetup);

    EXPECT_EQ(server().connectionCount(), 0U);
    expectResponse("");
    EXPECT_THAT(directory().entries(), ElementsAre("response"));
}

TEST_F(FailingExchange, RequestFileWithoutReadPermission_SendsNothing) {
    ASSERT_EQ(::chmod(requestFile().c_str(), 0), 0);
    {
        const PermissionsCount permissionsCount;

        EXPECT_EQ(post(), voInetErrorUploadSetup);
    }

    EXPECT_EQ(server().connectionCount(), 0U);
}

TEST_F(FailingExchange, RequestNamesThatNoFileHas_SendNothing) {
    for (const std::string& name :
         {directory().path("missing/request"), requestFile() + "/below",
          directory().path(std::string(300, 'n')), directory().path(std::string(5000, 'n'))}) {
        EXPECT_EQ(transfer().UploadFileResponse(widened(name), L"/path", widened(responseFile()),
                                                nullptr),
                  voInetErrorUploadSetup);
    }
    EXPECT_EQ(server().connectionCount(), 0U);
}

TEST_F(FailingExchange, DirectoryOrFifoAsRequestFile_SendsNothingAndNeverWaits) {
    const std::string fifo = directory().path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);

    for (const std::string& name : {directory().path(), fifo}) {
        EXPECT_EQ(transfer().UploadFileResponse(widened(name), L"/path", widened(responseFile()),
                                                nullptr),
                  voInetErrorUploadSetup);
    }
    EXPECT_EQ(server().connectionCount(), 0U);
}

TEST_F(FailingExchange, RequestFileOf4GiB_IsAnnouncedAndSentUntilTheServerCuts) {
    constexpr std::int64_t kFourGiB = std::int64_t{1} << 32;
    truncateRequestFile(kFourGiB);
    std::string announced;
    const Step receiveSomeMiB = [&announced](Conversation& client) {
        for (auto line = client.receiveLine(); !line.empty(); line = client.receiveLine()) {
            announced += line.rfind("Content-Length", 0) == 0 ? line : "";
        }
        client.receiveBytes(8 * kMiB);
    };

    EXPECT_EQ(postDuring({receiveSomeMiB, reset()}), voInetErrorTransferFailed);

    EXPECT_EQ(announced, "Content-Length: 4294967296");
}

TEST_F(FailingExchange, AnswerBeforeTheWholeRequest_CountsAndEndsTheSending) {
    makeRequestFile(makeBody(kMoreThanSocketsHold));
    std::string received;

    // The answer says that the connection ends with it; the client has to notice by itself. Closing
    // here would reset the connection, and with bad luck take the answer away from the client.
    EXPECT_EQ(postDuring(receiveBodyAfter(send(reply(503, "busy")), received)),
              voInetErrorServerBusy);

    ASSERT_TRUE(server().awaitPlayed());
    EXPECT_LT(received.size(), kMoreThanSocketsHold);
}

TEST_F(FailingExchange, RequestFileThatShrinksWhileItIsSent_IsAFailureWithoutPadding) {
    const std::string content = makeBody(kMoreThanSocketsHold);
    makeRequestFile(content);
    std::string received;

    const voInetError result =
        postDuring(receiveBodyAfter([this](Conversation&) { truncateRequestFile(0); }, received));

    EXPECT_EQ(result, voInetErrorTransferFailed);
    ASSERT_TRUE(server().awaitPlayed());
    EXPECT_LT(received.size(), content.size());
    EXPECT_TRUE(std::equal(received.begin(), received.end(), content.begin()));
}

TEST_F(FailingExchange, RequestFileThatGrowsWhileItIsSent_IsSentAsAnnounced) {
    const std::string content = makeBody(kMoreThanSocketsHold);
    makeRequestFile(content);
    const Step grow = [this](Conversation&) {
        const Descriptor file(::open(requestFile().c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
        ASSERT_EQ(::write(file.get(), "more", 4), 4);
    };
    std::string received;
    const Step receiveBody = [&received, size = content.size()](Conversation& client) {
        received = client.receiveBytes(size);
    };

    EXPECT_EQ(postDuring({receiveHead(), grow, receiveBody, send(reply(202)), awaitClose()}),
              voInetErrorNoPackage);

    EXPECT_TRUE(received == content);
}

TEST_F(FailingExchange, RequestFileUsedForTheResponseToo_IsRefusedAndStays) {
    // Opening the response file would empty it.
    makeRequestFile("request");
    ASSERT_EQ(::symlink(requestFile().c_str(), directory().path("link").c_str()), 0);

    EXPECT_EQ(postTo(requestFile()), voInetErrorInvalidArgument);
    EXPECT_EQ(postTo(directory().path("link")), voInetErrorInvalidArgument);

    EXPECT_EQ(readFile(requestFile()), "request");
    EXPECT_EQ(server().connectionCount(), 0U);
    std::filesystem::remove(directory().path("link"));
}

// The response file.

TEST_F(FailingExchange, ResponseNamesThatNoFileCanHave_SendNothing) {
    for (const std::string& name :
         {std::string(), directory().path("missing/response"), directory().path(),
          requestFile() + "/below", directory().path(std::string(300, 'n'))}) {
        EXPECT_EQ(postTo(name), voInetErrorUploadSetup) << name;
    }
    EXPECT_EQ(server().connectionCount(), 0U);
    EXPECT_THAT(directory().entries(), ElementsAre("request"));
}

TEST_F(FailingExchange, ResponseFileWithoutWritePermission_SendsNothingAndStays) {
    const std::string response = directory().makeFile("response", "older");
    ASSERT_EQ(::chmod(response.c_str(), 0400), 0);
    {
        const PermissionsCount permissionsCount;

        EXPECT_EQ(post(), voInetErrorUploadSetup);
    }

    EXPECT_EQ(server().connectionCount(), 0U);
    expectResponse("older");
}

TEST_F(FailingExchange, FullDevice_IsAWriteErrorForTheSmallestPackage) {
    server().connection(answer(reply(200, "p")));

    EXPECT_EQ(postTo("/dev/full"), voInetErrorWriteFailed);
}

TEST_F(FailingExchange, FullDeviceWithoutABodyToStore_IsNoError) {
    server().connection(answer(reply(202)));

    EXPECT_EQ(postTo("/dev/full"), voInetErrorNoPackage);
}

TEST_F(FailingExchange, FullDisk_IsAWriteErrorAndKeepsWhatHadRoom) {
    const std::string package = makeBody(500'000);
    {
        const FileSizeLimit limit(100'000);

        EXPECT_EQ(postDuring({receiveRequest(), sendUntilClosed(reply(200, package))}),
                  voInetErrorWriteFailed);
    }

    expectResponse(package.substr(0, 100'000));
}

// The shutdown flag of the library.

class ShutDown {
  public:
    ShutDown() { CHttpConnection::m_bShutdown = true; }
    ~ShutDown() { CHttpConnection::m_bShutdown = false; }

    ShutDown(const ShutDown&) = delete;
    ShutDown& operator=(const ShutDown&) = delete;
};

TEST_F(FailingExchange, ShutdownFlag_RefusesBeforeAnythingIsDone) {
    {
        const ShutDown shutDown;

        EXPECT_EQ(post(), voInetErrorShutdown);
        EXPECT_EQ(transfer().UploadFileResponse(L"", L"", L"", nullptr), voInetErrorShutdown);
    }

    EXPECT_EQ(server().connectionCount(), 0U);
    EXPECT_THAT(directory().entries(), ElementsAre("request"));
    EXPECT_EQ(postAnswered(reply(202)), voInetErrorNoPackage);
}

TEST_F(FailingExchange, ShutdownFlagSetDuringAnExchange_LetsItEnd) {
    const Step shutDown = [](Conversation&) { CHttpConnection::m_bShutdown = true; };

    EXPECT_EQ(postDuring({receiveRequest(), shutDown, send(reply(200, "package"))}),
              voInetErrorPackageReceived);

    EXPECT_EQ(post(), voInetErrorShutdown);
    CHttpConnection::m_bShutdown = false;
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
