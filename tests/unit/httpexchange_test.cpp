#include "kvecomn/hostlog.h"
#include "support/choices.h"
#include "support/curldouble.h"
#include "support/logcapture.h"
#include "support/networkdouble.h"
#include "support/oddlocale.h"
#include "support/temporaryfiles.h"
#include "voinet/HTTPConnection.h"
#include "voinet/callbacks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

// The upload with server response. The listener of the test executable turns every test red that
// leaves a descriptor open, so each early return is held to closing what it opened.

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;

namespace {

using Texts = std::vector<std::string>;

constexpr auto* kMarkedLine = "ORB-WHY-FORBIDDEN: UpgradeKey\r\n";
constexpr auto* kRequest = "the request package";

/// Addresses of callbacks and their data, which a test cannot know, become "*".
Texts withoutAddresses(Texts trace) {
    for (auto& entry : trace) {
        const auto at = entry.find("=@");
        if (at != std::string::npos) {
            entry.replace(at + 1, std::string::npos, "*");
        }
    }
    return trace;
}

/// The one line that an answer is logged with, and the result.
struct Outcome {
    std::string line;
    int result;

    bool operator==(const Outcome& other) const {
        return line == other.line && result == other.result;
    }
    friend std::ostream& operator<<(std::ostream& stream, const Outcome& outcome) {
        return stream << outcome.result << " with " << outcome.line;
    }
};

Outcome expectedOutcome(long status) {
    static const std::map<long, Outcome> kListed{
        {200, {debugLine("Receiving a package from Orb Server"), 8}},
        {201, {infoLine("failed to receive package..server is busy"), 12}},
        {202, {debugLine("client:no package to receive"), 13}},
        {400, {debugLine("Orb server reports invalid request"), -94}},
        {403, {infoLine("Orb server reports access denied"), -22}},
        {404, {debugLine("Orb server reports file not found"), -5}},
        {503, {infoLine("failed to receive package..server is busy"), 12}},
        {506, {infoLine("Agent GUID already existing in Orb. So regenerating"), -95}}};
    const auto found = kListed.find(status);
    return found != kListed.end()
               ? found->second
               : Outcome{debugLine("Received response " + std::to_string(status) + " from server"),
                         0};
}

/// Sets the library-wide flag while it lives.
class Shutdown {
  public:
    Shutdown() { CHttpConnection::m_bShutdown = true; }
    ~Shutdown() { CHttpConnection::m_bShutdown = false; }
    Shutdown(const Shutdown&) = delete;
    Shutdown& operator=(const Shutdown&) = delete;
};

/// An HTTP connection that is ready to post the file "request" to http://10.1.2.3:8443 and to put
/// the answer into the file "response".
class HttpExchange : public testing::Test {
  protected:
    HttpExchange() {
        connection.SetOption(voInetOptionSite, std::wstring(L"site"));
        connection.SetOption(voInetOptionHostIP, std::wstring(L"10.1.2.3:8443"));
        connection.SetOption(voInetOptionCARootPath, std::wstring(L"/etc/ca.pem"));
        connection.ApplyHostInformation(connMethodIP);
        scratch.write("request", kRequest);
        clearLog();
    }

    voInetError exchange(const std::wstring& serverPath = L"/agent") {
        return exchange(scratch.wideFile("request"), serverPath, scratch.wideFile("response"));
    }

    voInetError exchange(const std::wstring& request, const std::wstring& serverPath,
                         const std::wstring& response) {
        return connection.UploadFileResponseWithConnSpec(connMethodIP, request, serverPath,
                                                         response, nullptr);
    }

    voInetError exchangeWith(const Reply& reply) {
        curlDouble().play(reply);
        return exchange();
    }

    /// Everything that the double sees of an exchange that is answered 200 without a body.
    Texts expectedTrace(const std::string& url, const std::string& host, bool traced) const {
        const Texts headers{"Accept: application/octet-stream",
                            "Accept-Language: en-us",
                            "Expect:",
                            "Host: " + host,
                            "Content-Type: application/octet-stream",
                            "Content-Length: 19"};
        Texts trace;
        for (const auto& header : headers) {
            trace.push_back("header " + header);
        }
        trace.emplace_back("init");
        if (traced) {
            trace.insert(trace.end(), {"CURLOPT_VERBOSE=1", "CURLOPT_DEBUGFUNCTION=*"});
        }
        const Texts rest{"CURLOPT_PROXY=\"\"",
                         option(CURLOPT_URL, url),
                         "CURLOPT_WRITEFUNCTION=*",
                         "CURLOPT_WRITEDATA=*",
                         "CURLOPT_HEADERFUNCTION=*",
                         "CURLOPT_WRITEHEADER=*",
                         "CURLOPT_READFUNCTION=*",
                         "CURLOPT_READDATA=*",
                         "CURLOPT_USERAGENT=\"Mozilla/4.0 (compatible; KESTL/3.0; Windows)\"",
                         "CURLOPT_POST=1",
                         "CURLOPT_POSTFIELDSIZE_LARGE=19",
                         option(CURLOPT_HTTPHEADER, headers),
                         "CURLOPT_LOW_SPEED_LIMIT=1",
                         "CURLOPT_LOW_SPEED_TIME=600",
                         "CURLOPT_NOSIGNAL=1",
                         "CURLOPT_CONNECTTIMEOUT=180",
                         "CURLOPT_SSL_VERIFYPEER=1",
                         "CURLOPT_SSL_VERIFYHOST=0",
                         "CURLOPT_CAINFO=\"/etc/ca.pem\"",
                         "CURLOPT_SSLVERSION=1",
                         "perform",
                         "getinfo RESPONSE_CODE",
                         "headers freed",
                         "cleanup"};
        trace.insert(trace.end(), rest.begin(), rest.end());
        return trace;
    }

    std::string urlOf(const std::wstring& serverPath) {
        curlDouble().clearTrace();
        curlDouble().play(answer(200));
        EXPECT_EQ(exchange(serverPath), voInetErrorPackageReceived);
        return curlDouble().requests().at(0).text(CURLOPT_URL);
    }

    /// A 403 with these header lines.
    int forbiddenWith(const Texts& headerLines) {
        auto reply = answer(403);
        for (const auto& line : headerLines) {
            reply.header(line);
        }
        return exchangeWith(reply);
    }

    /// The answer's log line is the one behind "curl returned 0".
    static Outcome outcomeWith(int result) {
        const auto& lines = logLines();
        const auto at = std::find(lines.begin(), lines.end(), debugLine("curl returned 0"));
        const auto behind = lines.end() - at;
        EXPECT_EQ(behind, 2) << "not exactly one line behind curl's result";
        return {behind == 2 ? lines.back() : "", result};
    }

    void expectNothingPerformed() const {
        EXPECT_THAT(curlDouble().trace(), IsEmpty());
        EXPECT_EQ(openDescriptors(), descriptors);
    }

    ScratchDirectory scratch;
    CHttpConnection connection;
    std::size_t descriptors = openDescriptors();
};

}  // namespace

TEST_F(HttpExchange, EveryCombinationOfSslTraceAndHostForm_SetsHeadersAndOptionsInTheirOrder) {
    const auto runs = Choices::forAll([this](Choices& choices) {
        const bool ssl = choices.pick(2);
        const bool ipv6 = choices.pick(2);
        const bool detail = choices.pick(2);
        const bool listed = choices.pick(2);
        // The exchange goes through no proxy and knows no credentials, whatever the settings say.
        connection.m_bUseProxy = connection.m_bUseAuthentication = choices.pick(2);
        connection.m_bUseProxyAuthentication = connection.m_bUseProxy;
        connection.m_bAllowUserToConfigureProxy = connection.m_bUseProxy;
        connection.m_bUseSSL = ssl;
        const std::string bare = ipv6 ? "fe80::1" : "10.1.2.3";
        const std::string host = ipv6 ? "[fe80::1]" : bare;
        connection.SetActiveHostSettings(connMethodIP, std::wstring(bare.begin(), bare.end()), bare,
                                         8443);
        hostLogSetDetailEnabled(detail);
        hostLogSetDetailList(listed ? std::vector<std::string>{"curl"}
                                    : std::vector<std::string>{"other"});
        curlDouble().clearTrace();
        ASSERT_EQ(exchangeWith(answer(200)), voInetErrorPackageReceived);
        const auto url = (ssl ? "https://" : "http://") + host + ":8443/agent";
        ASSERT_EQ(withoutAddresses(curlDouble().trace()),
                  expectedTrace(url, host, detail || listed));
        if (detail || listed) {
            ASSERT_THAT(curlDouble().trace(), Contains(option(CURLOPT_DEBUGFUNCTION, trace_curl)));
        }
    });
    EXPECT_EQ(runs, 32U);
}

TEST_F(HttpExchange, Ipv6HostWithAScope_SetsItBeforeEveryOtherOption) {
    network().resolve("fe80::1", {"fe80::1"});
    network().scope("fe80::1", 3);
    connection.SetActiveHostSettings(connMethodIP, L"fe80::1", "fe80::1", 8443);
    EXPECT_EQ(exchangeWith(answer(200)), voInetErrorPackageReceived);
    EXPECT_EQ(curlDouble().options().front(), "CURLOPT_ADDRESS_SCOPE=3");
    EXPECT_THAT(logLines(), Contains(infoLine("Adding scope id 3 ")));
}

TEST_F(HttpExchange, Url_TakesTheServerPathAsItIs) {
    EXPECT_EQ(urlOf(L"/agent"), "http://10.1.2.3:8443/agent");
    EXPECT_EQ(urlOf(L"agent"), "http://10.1.2.3:8443agent");
    EXPECT_EQ(urlOf(L"/two words\\x"), "http://10.1.2.3:8443/two words\\x");
    EXPECT_EQ(urlOf(L"/\u00FC"), "http://10.1.2.3:8443/\xC3\xBC");
    connection.SetOption(voInetOptionRelativePath, std::wstring(L"pkg"));
    EXPECT_EQ(urlOf(L"/agent"), "http://10.1.2.3:8443/agent");
}

TEST_F(HttpExchange, UrlAndLength_AreNotTouchedByTheProgramsLocale) {
    scratch.write("request", positionDependentBytes(12345));
    const OddLocale locale;
    EXPECT_EQ(urlOf(L"/agent"), "http://10.1.2.3:8443/agent");
    EXPECT_THAT(curlDouble().requests().at(0).headers, Contains("Content-Length: 12345"));
}

TEST_F(HttpExchange, EveryStatus_HasItsLineItsLevelAndItsResult) {
    for (long status = 100; status < 600; ++status) {
        clearLog();
        const int result = exchangeWith(answer(status).body("body"));
        ASSERT_EQ(outcomeWith(result), expectedOutcome(status)) << status;
        ASSERT_EQ(scratch.read("response"), "body") << status;
    }
}

TEST_F(HttpExchange, NoStatus_CountsAsSuccess) {
    EXPECT_EQ(outcomeWith(exchangeWith(answer(0))),
              (Outcome{debugLine("Received response 0 from server"), 0}));
}

TEST_F(HttpExchange, EveryStatusWithTheMarker_DiffersFor403Alone) {
    for (long status = 100; status < 600; ++status) {
        clearLog();
        const int result = exchangeWith(answer(status).header(kMarkedLine));
        const Outcome marked{infoLine("Orb server reports access denied;agent to update keys"),
                             -96};
        ASSERT_EQ(outcomeWith(result), status == 403 ? marked : expectedOutcome(status)) << status;
    }
}

TEST_F(HttpExchange, BothWordsInOneLine_MarkA403InEitherOrder) {
    EXPECT_EQ(forbiddenWith({kMarkedLine}), -96);
    EXPECT_EQ(forbiddenWith({"UpgradeKey: ORB-WHY-FORBIDDEN\r\n"}), -96);
    EXPECT_EQ(forbiddenWith({"X-ORB-WHY-FORBIDDENUpgradeKeys"}), -96);
    EXPECT_EQ(forbiddenWith({"HTTP/1.1 403 ORB-WHY-FORBIDDEN UpgradeKey\r\n"}), -96);
}

TEST_F(HttpExchange, WordsInTwoLinesOrAlone_MarkNothing) {
    EXPECT_EQ(forbiddenWith({"ORB-WHY-FORBIDDEN: \r\n", "UpgradeKey: 1\r\n"}), -22);
    EXPECT_EQ(forbiddenWith({"UpgradeKey: 1\r\n", "ORB-WHY-FORBIDDEN: \r\n"}), -22);
    EXPECT_EQ(forbiddenWith({"ORB-WHY-FORBIDDEN: other\r\n"}), -22);
    EXPECT_EQ(forbiddenWith({"X: UpgradeKey\r\n"}), -22);
    EXPECT_EQ(forbiddenWith({"ORB-WHY-FORBIDDEN: Upgrade", "Key\r\n"}), -22);
    EXPECT_EQ(forbiddenWith({""}), -22);
    EXPECT_EQ(forbiddenWith({}), -22);
}

TEST_F(HttpExchange, WordsInAnotherLetterCase_MarkNothing) {
    EXPECT_EQ(forbiddenWith({"orb-why-forbidden: UpgradeKey\r\n"}), -22);
    EXPECT_EQ(forbiddenWith({"Orb-Why-Forbidden: UpgradeKey\r\n"}), -22);
    EXPECT_EQ(forbiddenWith({"ORB-WHY-FORBIDDEN: upgradekey\r\n"}), -22);
    EXPECT_EQ(forbiddenWith({"ORB-WHY-FORBIDDEN: UPGRADEKEY\r\n"}), -22);
}

TEST_F(HttpExchange, MarkerAmongSeveralHeaders_StaysSet) {
    EXPECT_EQ(forbiddenWith({"HTTP/1.1 403 Forbidden\r\n", "Server: orb\r\n", kMarkedLine,
                             "ORB-WHY-FORBIDDEN: other\r\n", "Content-Length: 0\r\n", "\r\n"}),
              -96);
}

TEST_F(HttpExchange, MarkerThatIsSentTwice_StaysSet) {
    EXPECT_EQ(forbiddenWith({kMarkedLine, kMarkedLine}), -96);
}

TEST_F(HttpExchange, MarkerOfOneExchange_IsGoneInTheNext) {
    EXPECT_EQ(forbiddenWith({kMarkedLine}), -96);
    EXPECT_EQ(forbiddenWith({"Server: orb\r\n"}), -22);
}

TEST_F(HttpExchange, MarkerInTheBody_MarksNothing) {
    EXPECT_EQ(exchangeWith(answer(403).body(kMarkedLine)), voInetErrorAccessDenied);
}

TEST_F(HttpExchange, HeaderLineThatEndsAmidAWord_IsReadNoFurther) {
    const std::string line = kMarkedLine;
    const auto end = line.find("Key");
    for (std::size_t size = 0; size < end + 3; ++size) {
        ASSERT_EQ(forbiddenWith({line.substr(0, size)}), -22) << size;
    }
    EXPECT_EQ(forbiddenWith({line.substr(0, end + 3)}), -96);
}

TEST_F(HttpExchange, HeaderLine_EndsAtAZeroByte) {
    const std::string zero(1, '\0');
    EXPECT_EQ(forbiddenWith({kMarkedLine + zero + "rest"}), -96);
    EXPECT_EQ(forbiddenWith({"ORB-WHY-FORBIDDEN: Upgrade" + zero + "Key\r\n"}), -22);
    EXPECT_EQ(forbiddenWith({"ORB-WHY-FORBIDDEN: " + zero + "UpgradeKey\r\n"}), -22);
    EXPECT_EQ(forbiddenWith({std::string(100, '\0')}), -22);
}

TEST_F(HttpExchange, HugeHeaderLine_IsSearchedToItsEnd) {
    const std::string filler(1 << 20, 'x');
    EXPECT_EQ(forbiddenWith({"ORB-WHY-FORBIDDEN" + filler + "UpgradeKey"}), -96);
    EXPECT_EQ(forbiddenWith({filler}), -22);
}

TEST_F(HttpExchange, EveryCurlFailure_IsMappedWhateverTheStatus) {
    for (int code = 1; code < 100; ++code) {
        clearLog();
        curlDouble().clearTrace();
        const auto reply =
            answer(403).result(static_cast<CURLcode>(code)).header(kMarkedLine).body("part");
        EXPECT_EQ(exchangeWith(reply), mapCurlErrorCode(code)) << code;
        EXPECT_EQ(logLines().back(), debugLine("curl returned " + std::to_string(code)));
        EXPECT_EQ(scratch.read("response"), "part");
        EXPECT_THAT(curlDouble().trace(), Not(Contains("getinfo RESPONSE_CODE")));
    }
}

TEST_F(HttpExchange, CurlWithoutAHandle_FailsWithAnErrorLineAndClosesBothFiles) {
    curlDouble().failInits(1);
    EXPECT_EQ(exchange(), voInetErrorFailed);
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_THAT(logLines("error"), ElementsAre(errorLine("Curl initialization failed")));
    EXPECT_EQ(logLines().back(), errorLine("Curl initialization failed"));
    EXPECT_THAT(curlDouble().requests(), IsEmpty());
    EXPECT_EQ(curlDouble().trace().back(), "headers freed");
    EXPECT_EQ(scratch.read("response"), "");
}

TEST_F(HttpExchange, Exchange_TellsEachStepInItsDebugLines) {
    EXPECT_EQ(exchangeWith(answer(200).upload().body("abc")), voInetErrorPackageReceived);
    const auto url = std::string("http://10.1.2.3:8443/agent");
    EXPECT_THAT(
        logLines(),
        ElementsAre(debugLine("Calling upload file response"),
                    debugLine("Opening file  " + scratch.file("request") + " callback"),
                    debugLine("Opening file  " + scratch.file("response") + " callback"),
                    debugLine("Content length is 19"), debugLine("Set all curl options"),
                    debugLine("url is " + url), debugLine("read 19 in read callback"),
                    debugLine("read 0 in read callback"), debugLine("Writing to write callback"),
                    debugLine("wrote 3 in write callback, 1 3"), debugLine("curl returned 0"),
                    debugLine("Receiving a package from Orb Server")));
}

TEST_F(HttpExchange, RequestOfAnySize_IsSentExactlyAsAnnounced) {
    for (const std::size_t size : {0U, 1U, 19U, 4095U, 4096U, 4097U, 16384U, 16385U, 1000000U}) {
        const auto content = positionDependentBytes(size, size);
        scratch.write("request", content);
        curlDouble().clearTrace();
        EXPECT_EQ(exchangeWith(answer(202).upload(1000)), voInetErrorNoPackage);
        const auto& request = curlDouble().requests().at(0);
        EXPECT_EQ(request.uploaded, content) << size;
        EXPECT_EQ(request.headers.back(), "Content-Length: " + std::to_string(size));
        EXPECT_TRUE(request.has(CURLOPT_POSTFIELDSIZE_LARGE));
        EXPECT_EQ(request.number(CURLOPT_POSTFIELDSIZE_LARGE), static_cast<long>(size));
    }
}

TEST_F(HttpExchange, RequestBeyond4GiB_IsAnnouncedWithItsFullSize) {
    constexpr std::uintmax_t kSize = (std::uintmax_t{1} << 32U) + 5;
    std::filesystem::resize_file(scratch.file("request"), kSize);
    EXPECT_EQ(exchangeWith(answer(202)), voInetErrorNoPackage);
    EXPECT_THAT(curlDouble().requests().at(0).headers, Contains("Content-Length: 4294967301"));
    EXPECT_THAT(logLines(), Contains(debugLine("Content length is 2147483647")));
}

TEST_F(HttpExchange, RequestThatShrinks_IsAFailureAndNoCancellation) {
    for (const std::size_t left : {0U, 1U, 5000U, 19999U}) {
        scratch.write("request", positionDependentBytes(20000));
        clearLog();
        curlDouble().clearTrace();
        const auto shrink = [&] { std::filesystem::resize_file(scratch.file("request"), left); };
        EXPECT_EQ(exchangeWith(answer(200).then(shrink).upload()), voInetErrorTransferFailed)
            << left;
        EXPECT_THAT(logLines(), Contains(debugLine("curl returned 42")));
        EXPECT_LE(curlDouble().requests().at(0).uploaded.size(), left);
    }
}

TEST_F(HttpExchange, RequestThatGrows_IsSentUpToTheAnnouncedSize) {
    for (const std::size_t size : {0U, 19U, 20000U}) {
        const auto content = positionDependentBytes(size);
        scratch.write("request", content);
        curlDouble().clearTrace();
        const auto grow = [&] { scratch.write("request", content + "more of it"); };
        EXPECT_EQ(exchangeWith(answer(200).then(grow).upload()), voInetErrorPackageReceived);
        EXPECT_EQ(curlDouble().requests().at(0).uploaded, content) << size;
    }
}

TEST_F(HttpExchange, ServerThatAnswersWithoutReadingTheRequest_DecidesTheResult) {
    EXPECT_EQ(exchangeWith(answer(503)), voInetErrorServerBusy);
    EXPECT_EQ(curlDouble().requests().at(0).uploaded, "");
}

TEST_F(HttpExchange, Response_IsEmptyBeforeTheRequestAndHoldsTheBodyAfterIt) {
    scratch.write("response", "an older answer");
    const auto body = positionDependentBytes(100000);
    auto reply = answer(200).then([&] { EXPECT_EQ(scratch.read("response"), ""); });
    for (std::size_t sent = 0; sent < body.size(); sent += 9973) {
        reply.body(body.substr(sent, 9973));
    }
    reply.then([&] { EXPECT_EQ(scratch.read("response"), body) << "something is still buffered"; });
    EXPECT_EQ(exchangeWith(reply), voInetErrorPackageReceived);
    EXPECT_EQ(scratch.read("response"), body);
}

TEST_F(HttpExchange, FullDisk_IsAWriteErrorFromTheFirstByteOn) {
    curlDouble().play(answer(200).body("hello"));
    EXPECT_EQ(exchange(scratch.wideFile("request"), L"/agent", L"/dev/full"),
              voInetErrorWriteFailed);
    EXPECT_THAT(logLines(), IsSupersetOf({debugLine("Writing to write callback"),
                                          debugLine("wrote 0 in write callback, 1 5"),
                                          debugLine("curl returned 23")}));
}

TEST_F(HttpExchange, DiskThatFillsUp_TellsTheCountThatIsReallyThere) {
    {
        const FileSizeLimit limit(2000);
        EXPECT_EQ(exchangeWith(answer(200).body(positionDependentBytes(5000))),
                  voInetErrorWriteFailed);
    }
    EXPECT_EQ(scratch.read("response"), positionDependentBytes(2000));
    EXPECT_THAT(logLines(), Contains(debugLine("wrote 2000 in write callback, 1 5000")));
}

TEST_F(HttpExchange, EmptyRequestOrServerPath_IsAnInvalidArgumentAlsoWithIncompleteOptions) {
    for (const auto* site : {L"site", L""}) {
        connection.m_strSite = site;
        EXPECT_EQ(exchange(L"", L"/agent", scratch.wideFile("response")),
                  voInetErrorInvalidArgument);
        EXPECT_EQ(exchange(L""), voInetErrorInvalidArgument);
    }
    expectNothingPerformed();
    EXPECT_THAT(logLines(), IsEmpty());
    EXPECT_EQ(scratch.names(), std::set<std::string>{"request"});
}

TEST_F(HttpExchange, IncompleteOptionsOrAnotherMethod_AreBadOptions) {
    for (const auto method : {connMethodNone, connMethodFqdn, connMethodNetBios}) {
        EXPECT_EQ(connection.UploadFileResponseWithConnSpec(method, scratch.wideFile("request"),
                                                            L"/agent", scratch.wideFile("response"),
                                                            nullptr),
                  voInetErrorBadOptions);
    }
    connection.m_nPort = 0;
    EXPECT_EQ(exchange(), voInetErrorBadOptions);
    connection.m_nPort = 8443;
    connection.m_strSite.clear();
    EXPECT_EQ(exchange(), voInetErrorBadOptions);
    expectNothingPerformed();
    EXPECT_THAT(logLines(), IsEmpty());
    EXPECT_EQ(scratch.names(), std::set<std::string>{"request"});
}

TEST_F(HttpExchange, MissingRequest_IsASetupErrorAndLeavesAnEmptyResponse) {
    scratch.write("response", "an older answer");
    EXPECT_EQ(exchange(scratch.wideFile("missing"), L"/agent", scratch.wideFile("response")),
              voInetErrorUploadSetup);
    expectNothingPerformed();
    EXPECT_EQ(scratch.read("response"), "");
    EXPECT_THAT(logLines(),
                ElementsAre(debugLine("Calling upload file response"),
                            debugLine("Opening file  " + scratch.file("missing") + " callback"),
                            debugLine("Opening file  " + scratch.file("response") + " callback")));
}

TEST_F(HttpExchange, DirectoryOrFifoAsRequest_IsASetupErrorAndNeverWaits) {
    ASSERT_EQ(mkfifo(scratch.file("fifo").c_str(), 0600), 0);
    for (const auto& request : {scratch.wideFile("fifo"), scratch.wideFile("")}) {
        EXPECT_EQ(exchange(request, L"/agent", scratch.wideFile("response")),
                  voInetErrorUploadSetup);
        expectNothingPerformed();
    }
}

TEST_F(HttpExchange, ResponseThatCannotBeMade_IsASetupErrorAndClosesTheRequest) {
    for (const auto& response : {std::wstring(), scratch.wideFile("missing/response"),
                                 scratch.wideFile("request/response"), scratch.wideFile("")}) {
        EXPECT_EQ(exchange(scratch.wideFile("request"), L"/agent", response),
                  voInetErrorUploadSetup);
        expectNothingPerformed();
    }
    EXPECT_EQ(scratch.names(), std::set<std::string>{"request"});
}

TEST_F(HttpExchange, NeitherFile_IsASetupError) {
    EXPECT_EQ(exchange(scratch.wideFile("missing"), L"/agent", L""), voInetErrorUploadSetup);
    expectNothingPerformed();
}

TEST_F(HttpExchange, Shutdown_IsRefusedBeforeAnythingElseIsLookedAt) {
    {
        const Shutdown shutdown;
        EXPECT_EQ(exchange(), voInetErrorShutdown);
        EXPECT_EQ(exchange(L"", L"", L""), voInetErrorShutdown);
        connection.m_strSite.clear();
        EXPECT_EQ(exchange(), voInetErrorShutdown);
    }
    expectNothingPerformed();
    EXPECT_THAT(logLines(), IsEmpty());
    EXPECT_EQ(scratch.names(), std::set<std::string>{"request"});
    connection.m_strSite = L"site";
    EXPECT_EQ(exchangeWith(answer(202)), voInetErrorNoPackage);
}

TEST_F(HttpExchange, ShutdownDuringAnExchange_LetsItEnd) {
    curlDouble().play(
        answer(200).then([] { CHttpConnection::m_bShutdown = true; }).upload().body("answer"));
    const auto result = exchange();
    CHttpConnection::m_bShutdown = false;
    EXPECT_EQ(result, voInetErrorPackageReceived);
    EXPECT_EQ(scratch.read("response"), "answer");
}

TEST_F(HttpExchange, ThroughThePublicLoop_TheNextHostFormIsTriedAfterAFailureAlone) {
    connection.SetOption(voInetOptionHostFqdn, std::wstring(L"server.corp:82"));
    curlDouble().play(failure(CURLE_COULDNT_CONNECT));
    curlDouble().play(answer(200).upload().body("answer"));
    EXPECT_EQ(connection.UploadFileResponse(scratch.wideFile("request"), L"/agent",
                                            scratch.wideFile("response"), nullptr),
              voInetErrorPackageReceived);
    EXPECT_EQ(curlDouble().requests().at(1).text(CURLOPT_URL), "http://server.corp:82/agent");
    EXPECT_EQ(curlDouble().requests().at(1).uploaded, kRequest);
    EXPECT_EQ(scratch.read("response"), "answer");
    curlDouble().clearTrace();
    curlDouble().play(answer(403).header(kMarkedLine));
    EXPECT_EQ(connection.UploadFileResponse(scratch.wideFile("request"), L"/agent",
                                            scratch.wideFile("response"), nullptr),
              voInetErrorKeysOutdated);
    EXPECT_EQ(curlDouble().requests().size(), 1U);
}
