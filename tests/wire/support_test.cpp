// The tools of the wire tests have to see what they are there to see.

#include "kvecomn/log.h"
#include "support/body.h"
#include "support/http.h"
#include "support/leakguard.h"
#include "support/logcapture.h"
#include "support/recordingsink.h"
#include "support/restrictions.h"
#include "support/scriptedserver.h"
#include "support/temporarydirectory.h"
#include "voinet/INetUtils.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest-spi.h>
#include <set>
#include <string>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

/// A blocking client of 127.0.0.1.
class Client {
  public:
    explicit Client(std::uint16_t port)
        : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        m_connected = ::connect(m_socket.get(), reinterpret_cast<const sockaddr*>(&address),
                                sizeof address) == 0;
    }

    bool connected() const { return m_connected; }

    void send(const std::string& text) const {
        ASSERT_EQ(::send(m_socket.get(), text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }

    /// Everything until the server closes, "reset" when it does not do so orderly.
    std::string receiveAll() const {
        std::string all;
        std::array<char, 4096> buffer{};
        for (;;) {
            const auto count = ::recv(m_socket.get(), buffer.data(), buffer.size(), 0);
            if (count < 0) {
                return errno == ECONNRESET ? "reset" : "error";
            }
            if (count == 0) {
                return all;
            }
            all.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }

  private:
    Descriptor m_socket;
    bool m_connected = false;
};

TEST(Body, EveryShiftUpTo10000_DiffersWithinThe64FirstBytes) {
    const std::string body = makeBody(10'064);

    for (std::size_t shift = 1; shift <= 10'000; ++shift) {
        EXPECT_NE(body.substr(0, 64), body.substr(shift, 64)) << shift;
    }
}

TEST(Body, ShiftsByPowersOfTwo_Differ) {
    for (unsigned bit = 0; bit < 48; ++bit) {
        EXPECT_NE(makeBody(64), makeBody(64, std::uint64_t{1} << bit)) << bit;
    }
}

TEST(Body, FromAPosition_ContinuesTheSameText) {
    EXPECT_EQ(makeBody(1000).substr(377), makeBody(623, 377));
}

TEST(Http, BasicCredentials_AreBase64WithPadding) {
    EXPECT_EQ(basicCredentials("Aladdin:open sesame"), "Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ==");
    EXPECT_EQ(basicCredentials("a:bc"), "Basic YTpiYw==");
    EXPECT_EQ(basicCredentials("ab:c12"), "Basic YWI6YzEy");
}

TEST(Http, Chunked_EndsWithTheEmptyChunk) {
    EXPECT_EQ(chunked("abcdefghijklmnopqrs", 16),
              "10\r\nabcdefghijklmnop\r\n3\r\nqrs\r\n0\r\n\r\n");
}

TEST(Http, PercentDecoded_TakesOnlyWhatIsEncoded) {
    EXPECT_EQ(percentDecoded("/a%20b%c3%BC%zz%2"), "/a b\xc3\xbc%zz%2");
    EXPECT_EQ(percentDecoded(""), "");
}

TEST(ScriptedServer, ARequest_IsRecordedVerbatimAndAnswered) {
    ScriptedServer server;
    server.connection(answer("the answer"));
    const Client client(server.port());
    const std::string head = "POST /a%20b HTTP/1.1\r\nHost:  x \r\nContent-length: 4\r\n\r\n";

    client.send(head + "body");

    EXPECT_EQ(client.receiveAll(), "the answer");
    ASSERT_THAT(server.requests(), SizeIs(1));
    const Request request = server.requests().front();
    EXPECT_EQ(request.head, head);
    EXPECT_EQ(request.body, "body");
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, "/a%20b");
    EXPECT_EQ(request.version, "HTTP/1.1");
    EXPECT_EQ(request.header("HOST"), "x");
    EXPECT_EQ(request.header("Absent"), std::nullopt);
    EXPECT_EQ(request.headerCount("host"), 1U);
}

TEST(ScriptedServer, AChunkedRequest_IsRecordedDecoded) {
    ScriptedServer server;
    server.connection(answer("done"));
    const Client client(server.port());

    client.send("POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked("0123456789", 4));

    EXPECT_EQ(client.receiveAll(), "done");
    ASSERT_THAT(server.requests(), SizeIs(1));
    EXPECT_EQ(server.requests().front().body, "0123456789");
}

TEST(ScriptedServer, TwoConnections_GetTheirScriptsInOrder) {
    ScriptedServer server;
    server.connection({send("first")});
    server.connection({sendInPieces("second", 2)});

    EXPECT_EQ(Client(server.port()).receiveAll(), "first");
    EXPECT_EQ(Client(server.port()).receiveAll(), "second");
    EXPECT_TRUE(server.awaitPlayed());
    EXPECT_EQ(server.connectionCount(), 2U);
}

TEST(ScriptedServer, AConversationOfLines_IsRecorded) {
    ScriptedServer server;
    server.connection({send("220 hello\r\n"), receiveLine(), receiveLine(), send("bye")});
    const Client client(server.port());

    client.send("USER a\r\nPASS");
    client.send(" b\r\n");

    EXPECT_EQ(client.receiveAll(), "220 hello\r\nbye");
    EXPECT_THAT(server.lines(), ElementsAre("USER a", "PASS b"));
}

TEST(ScriptedServer, Reset_ReachesTheClientAsAReset) {
    ScriptedServer server;
    server.connection({receiveLine(), reset()});
    const Client client(server.port());

    client.send("x\r\n");

    EXPECT_EQ(client.receiveAll(), "reset");
}

TEST(ScriptedServer, HalfClose_LeavesTheOtherDirectionOpen) {
    ScriptedServer server;
    server.connection({send("all"), halfClose(), receiveLine()});
    const Client client(server.port());

    EXPECT_EQ(client.receiveAll(), "all");
    client.send("still open\r\n");

    EXPECT_TRUE(server.awaitPlayed());
    EXPECT_THAT(server.lines(), ElementsAre("still open"));
}

TEST(ScriptedServer, AwaitedEvent_HoldsTheScriptUntilItHappens) {
    ScriptedServer server;
    Event reached;
    Event permitted;
    server.connection({signal(reached), await(permitted), send("late")});
    const Client client(server.port());

    EXPECT_TRUE(reached.await());
    EXPECT_FALSE(permitted.isSet());
    permitted.set();

    EXPECT_EQ(client.receiveAll(), "late");
}

TEST(ScriptedServer, OverIpv6_ListensAtTheLoopbackAddress) {
    const ScriptedServer server(AddressFamily::ipv6);

    EXPECT_EQ(server.hostAndPort(), L"[::1]:" + std::to_wstring(server.port()));
}

TEST(ScriptedServer, AConnectionWithoutAScript_IsResetAndAFailure) {
    ScriptedServer server;

    EXPECT_EQ(Client(server.port()).receiveAll(), "reset");

    EXPECT_THAT(server.finish(), ElementsAre(HasSubstr("no script")));
}

TEST(ScriptedServer, Otherwise_ServesEveryConnectionWithoutAScript) {
    ScriptedServer server;
    server.otherwise({send("again")});
    server.connection({send("once")});

    EXPECT_EQ(Client(server.port()).receiveAll(), "once");
    EXPECT_EQ(Client(server.port()).receiveAll(), "again");
    EXPECT_EQ(Client(server.port()).receiveAll(), "again");
}

TEST(ScriptedServer, AScriptThatIsNeverPlayed_IsAFailure) {
    ScriptedServer server;
    server.connection({send("unused")});

    EXPECT_THAT(server.finish(), ElementsAre(HasSubstr("1 script(s) without a connection")));
}

TEST(ScriptedServer, AClientThatClosesTooEarly_IsAFailureNamedByConnectionAndStep) {
    ScriptedServer server;
    server.connection({send("hello"), receiveRequest()});
    { const Client client(server.port()); }

    EXPECT_FALSE(server.awaitPlayed());
    EXPECT_THAT(server.finish(), ElementsAre(HasSubstr("connection 0, step 1")));
}

TEST(ScriptedServer, AClientThatSendsInsteadOfClosing_IsAFailure) {
    ScriptedServer server;
    server.connection({awaitClose()});
    const Client client(server.port());

    client.send("more");

    EXPECT_FALSE(server.awaitPlayed());
    EXPECT_THAT(server.finish(), ElementsAre(HasSubstr("instead of closing: more")));
}

TEST(ScriptedServer, Failures_FailTheTestWhenTheServerGoes) {
    const auto leaveScriptUnplayed = [] {
        ScriptedServer server;
        server.connection({send("unused")});
    };
    testing::TestPartResultArray failures;
    {
        const testing::ScopedFakeTestPartResultReporter reporter(
            testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
        leaveScriptUnplayed();
    }

    EXPECT_EQ(failures.size(), 1);
}

TEST(RefusingPort, AConnection_IsRefused) {
    const RefusingPort port;

    EXPECT_FALSE(Client(port.port()).connected());
}

TEST(RecordingSink, StopAtAByteCount_ClearsTheFlagThereAndNotBefore) {
    RecordingSink sink;
    sink.stopAt(100);
    long total = 200;
    int status = 3;
    const auto goesOnAt = [&](unsigned long done) {
        bool goOn = true;
        sink.OnTransferProgress(&done, &total, &status, L"site", L"host", L"url", &goOn);
        return goOn;
    };

    EXPECT_TRUE(goesOnAt(99));
    EXPECT_FALSE(goesOnAt(100));

    ASSERT_THAT(sink.notifications(), SizeIs(2));
    EXPECT_EQ(sink.bytesDone(), 100U);
    EXPECT_EQ(sink.notifications().front().total, 200);
    EXPECT_EQ(sink.notifications().front().siteText2, L"host");
    EXPECT_THAT(sink.statuses(), ElementsAre(3, 3));
}

TEST(LeakGuard, AnOpenDescriptor_IsFoundUntilItIsClosed) {
    const LeakGuard guard;
    Descriptor leak(::open("/dev/null", O_RDONLY | O_CLOEXEC));

    EXPECT_THAT(guard.leftovers(), ElementsAre(HasSubstr("-> /dev/null")));
    leak.close();

    EXPECT_THAT(guard.leftovers(), IsEmpty());
}

TEST(LeakGuard, TemporaryFilesOfTheLibrary_AreFoundUntilTheyAreRemoved) {
    const LeakGuard guard;
    std::string name;
    CreateTempFileName(&name);
    const std::string sibling = name + ".sibling";
    std::ofstream(name) << "x";
    std::ofstream(sibling) << "x";

    EXPECT_THAT(guard.leftovers(), testing::UnorderedElementsAre(name, sibling));
    ::unlink(name.c_str());
    ::unlink(sibling.c_str());

    EXPECT_THAT(guard.leftovers(), IsEmpty());
}

TEST(LeakGuard, TemporaryFilesOfOtherProcesses_AreNotTakenForOwnOnes) {
    const LeakGuard guard;
    // Process number 0 belongs to nobody.
    const std::string foreign = "/tmp/Cbmgr" + std::to_string(::getpid() & 0x1ff);
    std::ofstream(foreign) << "x";

    EXPECT_THAT(guard.leftovers(), IsEmpty());
    ::unlink(foreign.c_str());
}

TEST(LogCapture, Lines_AreRecordedWithTheirLevel) {
    const LogCapture log;

    logInfo(L"m", L"one thing");
    logError(L"m", L"another thing");

    EXPECT_THAT(log.messages(HostLogLevel::info), ElementsAre(L"one thing"));
    EXPECT_THAT(log.messages(HostLogLevel::error, L"another"), ElementsAre(L"another thing"));
    EXPECT_EQ(log.count(HostLogLevel::detail), 0U);
}

TEST(TemporaryDirectory, AtItsEnd_IsGoneWithItsFiles) {
    std::string path;
    {
        const TemporaryDirectory directory;
        path = directory.path();
        directory.makeFile("sub/file", "content");
        EXPECT_EQ(readFile(directory.path("sub/file")), "content");
        EXPECT_THAT(directory.entries(), ElementsAre("sub"));
    }

    EXPECT_NE(::access(path.c_str(), F_OK), 0);
}

TEST(FileSizeLimit, AWriteBeyondIt_FailsWithoutEndingTheProcess) {
    const TemporaryDirectory directory;
    const Descriptor file(::open(directory.makeFile("f", "").c_str(), O_WRONLY | O_CLOEXEC));
    const std::string data(200, 'x');
    {
        const FileSizeLimit limit(100);

        EXPECT_EQ(::write(file.get(), data.data(), data.size()), 100);
        EXPECT_EQ(::write(file.get(), data.data(), 1), -1);
        EXPECT_EQ(errno, EFBIG);
    }

    EXPECT_EQ(::write(file.get(), data.data(), data.size()), 200);
}

TEST(PermissionsCount, AFileWithoutPermissions_CannotBeOpened) {
    const TemporaryDirectory directory;
    const std::string path = directory.makeFile("f", "x");
    ASSERT_EQ(::chmod(path.c_str(), 0), 0);

    const PermissionsCount permissionsCount;

    EXPECT_NE(::access(path.c_str(), F_OK), -1);
    EXPECT_EQ(::open(path.c_str(), O_RDONLY | O_CLOEXEC), -1);
    EXPECT_EQ(errno, EACCES);
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
