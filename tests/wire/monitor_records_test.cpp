// What a monitor learns of each request: the facts in its records, and the order of its calls.

#include "support/exchange.h"
#include "support/ftp.h"
#include "support/recordingmonitor.h"
#include "support/wiretest.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr std::size_t kSize = 60'000;
constexpr std::size_t kOffset = 20'000;
constexpr std::size_t kPrefix = 1024;

constexpr auto kStarted = MonitorCall::started;
constexpr auto kHeaders = MonitorCall::headers;
constexpr auto kEnded = MonitorCall::ended;

std::string httpUrl(std::uint16_t port, const std::string& path) {
    return "http://127.0.0.1:" + std::to_string(port) + path;
}

/// Those that happened come one after the other; TLS never happens in these tests.
void expectAscending(const RequestTimes& times) {
    std::int64_t before = 0;
    for (const std::int64_t time :
         {times.nameLookedUp, times.connected, times.requestSent, times.firstByte, times.ended}) {
        if (time != 0) {
            EXPECT_GE(time, before);
            before = time;
        }
    }
    EXPECT_EQ(times.tlsReady, 0);
    EXPECT_GT(times.ended, 0);
}

void expectEveryPlainStage(const RequestTimes& times) {
    expectAscending(times);
    EXPECT_GT(times.connected, 0);
    EXPECT_GT(times.requestSent, 0);
    EXPECT_GT(times.firstByte, 0);
}

/// Nothing is known of an answer yet.
void expectNoAnswerYet(const RequestRecord& record) {
    EXPECT_EQ(record.status, 0);
    EXPECT_EQ(record.proxyStatus, 0);
    EXPECT_EQ(record.curlResult, 0);
    EXPECT_EQ(record.reason, "");
    EXPECT_EQ(record.received, 0);
    EXPECT_EQ(record.sent, 0);
    EXPECT_EQ(record.announced, -1);
    EXPECT_THAT(record.headers, IsEmpty());
}

class MonitoredHttp : public Monitored<HttpTest> {
  protected:
    void SetUp() override { makeLocalFile(m_body.substr(0, kOffset + kPrefix)); }

    const std::string& body() const { return m_body; }
    std::string checked() const { return m_body.substr(kOffset, kPrefix); }
    std::string rest() const { return m_body.substr(kOffset); }
    std::string url(const std::string& path) { return httpUrl(server().port(), path); }

    DownloadOutcome resume() {
        DownloadArguments arguments;
        arguments.offset = static_cast<long>(kOffset);
        return download(L"file.zip", arguments);
    }

    void serve(const std::vector<std::string>& replies) {
        for (const auto& bytes : replies) {
            server().connection(answer(bytes));
        }
    }

    std::vector<RequestPurpose> purposes() {
        std::vector<RequestPurpose> purposes;
        for (const auto& record : monitor().records(kStarted)) {
            purposes.push_back(record.purpose);
        }
        return purposes;
    }

  private:
    std::string m_body = makeBody(kSize);
};

TEST_F(MonitoredHttp, Logon_IsARequestWithItsFacts) {
    applySettings(transfer(), settings());
    watch();
    serve({reply(200, "", {"X-Kind: probe"})});

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_THAT(monitor().calls(), ElementsAre(kStarted, kHeaders, kEnded));
    const RequestRecord record = ended();
    EXPECT_EQ(record.protocol, voInetProtocolHttp);
    EXPECT_EQ(record.purpose, requestLogon);
    EXPECT_EQ(record.hostForm, 3);
    EXPECT_EQ(record.url, url("/SiteStat.xml"));
    EXPECT_EQ(record.effectiveUrl, record.url);
    EXPECT_EQ(record.redirects, 0);
    EXPECT_EQ(record.proxy, "");
    EXPECT_EQ(record.remoteAddress, "127.0.0.1");
    EXPECT_EQ(record.remotePort, server().port());
    EXPECT_EQ(record.status, 200);
    EXPECT_EQ(record.proxyStatus, 0);
    EXPECT_EQ(record.curlResult, 0);
    EXPECT_EQ(record.reason, "");
    EXPECT_EQ(headerOf(record, "X-Kind"), "probe");
    EXPECT_EQ(record.received, 0);
    EXPECT_EQ(record.sent, 0);
    EXPECT_EQ(record.rangeStart, 0);
    expectEveryPlainStage(record.times);
}

TEST_F(MonitoredHttp, StartOfARequest_KnowsWhatIsAskedForOnly) {
    logOn();
    watch();
    serve({reply(206, checked()), reply(206, rest())});

    EXPECT_EQ(resume().result, voInetErrorSuccess);

    for (std::size_t request = 0; request < 2; ++request) {
        const RequestRecord record = started(request);
        EXPECT_EQ(record.protocol, voInetProtocolHttp);
        EXPECT_EQ(record.hostForm, 3);
        EXPECT_EQ(record.url, url("/file.zip"));
        EXPECT_EQ(record.proxy, "");
        EXPECT_EQ(record.rangeStart, static_cast<std::int64_t>(kOffset));
        expectNoAnswerYet(record);
    }
}

TEST_F(MonitoredHttp, Download_IsARequestWithItsFacts) {
    logOn();
    watch();
    serve({reply(200, body(), {"X-Kind: file"})});

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(monitor().calls(), ElementsAre(kStarted, kHeaders, kEnded));
    const RequestRecord record = ended();
    EXPECT_EQ(record.purpose, requestDownload);
    EXPECT_EQ(record.hostForm, 3);
    EXPECT_EQ(record.url, url("/file.zip"));
    EXPECT_EQ(record.effectiveUrl, record.url);
    EXPECT_EQ(record.remoteAddress, "127.0.0.1");
    EXPECT_EQ(record.remotePort, server().port());
    EXPECT_EQ(record.status, 200);
    EXPECT_EQ(record.announced, static_cast<std::int64_t>(kSize));
    EXPECT_EQ(record.received, static_cast<std::int64_t>(kSize));
    EXPECT_EQ(record.sent, 0);
    EXPECT_EQ(record.rangeStart, 0);
    ASSERT_THAT(record.headers, SizeIs(3));
    EXPECT_EQ(record.headers[0].name, "X-Kind");
    EXPECT_EQ(record.headers[0].value, "file");
    EXPECT_EQ(record.headers[1].name, "Content-Length");
    EXPECT_EQ(record.headers[1].value, std::to_string(kSize));
    EXPECT_EQ(record.headers[2].name, "Connection");
    EXPECT_EQ(record.headers[2].value, "close");
    expectEveryPlainStage(record.times);
}

TEST_F(MonitoredHttp, LengthThatIsNotAnnounced_IsUnknown) {
    logOn();
    watch();
    const std::string bytes = body();
    serve(
        {replyHead(200, {"Transfer-Encoding: chunked", "Connection: close"}) + chunked(bytes, 4093),
         replyHead(200, {"Connection: close"}) + bytes});

    EXPECT_EQ(download().result, voInetErrorSuccess);
    EXPECT_EQ(download().result, voInetErrorSuccess);

    for (const auto& record : monitor().records(kEnded)) {
        EXPECT_EQ(record.announced, -1);
        EXPECT_EQ(record.received, static_cast<std::int64_t>(kSize));
    }
}

TEST_F(MonitoredHttp, EmptyFile_IsAnnouncedAsEmpty) {
    logOn();
    watch();
    serve({reply(200)});

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(ended().announced, 0);
    EXPECT_EQ(ended().received, 0);
}

TEST_F(MonitoredHttp, Resume_IsACheckAndTheRest) {
    logOn();
    watch();
    serve({reply(206, checked()), reply(206, rest())});

    EXPECT_EQ(resume().result, voInetErrorSuccess);

    EXPECT_THAT(purposes(), ElementsAre(requestPrefixCheck, requestDownload));
    EXPECT_THAT(monitor().calls(),
                ElementsAre(kStarted, kHeaders, kEnded, kStarted, kHeaders, kEnded));
    EXPECT_EQ(ended(0).purpose, requestPrefixCheck);
    EXPECT_EQ(ended(0).status, 206);
    EXPECT_EQ(ended(0).received, static_cast<std::int64_t>(kPrefix));
    EXPECT_EQ(ended(1).purpose, requestDownload);
    EXPECT_EQ(ended(1).status, 206);
    EXPECT_EQ(ended(1).announced, static_cast<std::int64_t>(rest().size()));
    EXPECT_EQ(ended(1).received, static_cast<std::int64_t>(rest().size()));
    EXPECT_EQ(ended(1).rangeStart, static_cast<std::int64_t>(kOffset));
}

TEST_F(MonitoredHttp, Restart_IsADownloadOfItsOwnFromTheStart) {
    logOn();
    watch();
    serve({reply(206, checked()), reply(416), reply(200, body())});

    EXPECT_EQ(resume().result, voInetErrorSuccess);

    EXPECT_THAT(purposes(), ElementsAre(requestPrefixCheck, requestDownload, requestDownload));
    EXPECT_EQ(ended(1).status, 416);
    EXPECT_EQ(ended(1).rangeStart, static_cast<std::int64_t>(kOffset));
    EXPECT_EQ(ended(2).status, 200);
    EXPECT_EQ(ended(2).rangeStart, 0);
}

TEST_F(MonitoredHttp, RepeatedDownload_IsARequestEachTime) {
    auto withUser = settings();
    withUser.user = L"user";
    withUser.password = L"password";
    logOn(withUser);
    watch();
    serve({reply(401), reply(401), reply(401), reply(401)});

    EXPECT_EQ(download().result, voInetErrorMaxRetries);

    EXPECT_EQ(monitor().count(kStarted), 4U);
    ASSERT_EQ(monitor().count(kEnded), 4U);
    for (const auto& record : monitor().records(kEnded)) {
        EXPECT_EQ(record.status, 401);
        EXPECT_EQ(record.purpose, requestDownload);
    }
}

TEST_F(MonitoredHttp, Status404_IsNoFailureOfCurl) {
    logOn();
    watch();
    serve({reply(404, "page")});

    EXPECT_EQ(download().result, voInetErrorFileNotFound);

    EXPECT_EQ(ended().status, 404);
    EXPECT_EQ(ended().curlResult, 0);
    EXPECT_EQ(ended().reason, "");
    EXPECT_EQ(ended().received, 4);
}

TEST_F(MonitoredHttp, HostForms_AreRequestsOfTheirOwn) {
    const RefusingPort dead;
    TransferSettings settings;
    settings.hostIp = dead.hostAndPort();
    settings.hostFqdn = server().hostAndPort();
    applySettings(transfer(), settings);
    watch();
    serve({reply(200)});

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    ASSERT_EQ(monitor().count(kEnded), 2U);
    EXPECT_EQ(ended(0).hostForm, 1);
    EXPECT_EQ(ended(0).url, httpUrl(dead.port(), "/SiteStat.xml"));
    EXPECT_EQ(ended(1).hostForm, 2);
    EXPECT_EQ(ended(1).url, url("/SiteStat.xml"));
}

TEST_F(MonitoredHttp, RefusedConnection_HasAReasonAndNoPeer) {
    const RefusingPort dead;
    TransferSettings settings;
    settings.hostNetBios = dead.hostAndPort();
    applySettings(transfer(), settings);
    watch();

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorTransferFailed);

    EXPECT_THAT(monitor().calls(), ElementsAre(kStarted, kEnded));
    const RequestRecord record = ended();
    constexpr int kCouldNotConnect = 7;
    EXPECT_EQ(record.curlResult, kCouldNotConnect);
    EXPECT_NE(record.reason, "");
    EXPECT_EQ(record.remoteAddress, "");
    EXPECT_EQ(record.remotePort, 0);
    EXPECT_EQ(record.status, 0);
    EXPECT_EQ(record.times.connected, 0);
    EXPECT_EQ(record.times.requestSent, 0);
    EXPECT_EQ(record.times.firstByte, 0);
    expectAscending(record.times);
}

TEST_F(MonitoredHttp, NameThatDoesNotResolve_HasAReasonAndNoPeer) {
    TransferSettings settings;
    settings.hostNetBios = std::wstring(64, L'x') + L":80";
    applySettings(transfer(), settings);
    watch();

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorHostNotResolved);

    EXPECT_NE(ended().curlResult, 0);
    EXPECT_NE(ended().reason, "");
    EXPECT_EQ(ended().remoteAddress, "");
}

TEST_F(MonitoredHttp, BodyThatIsCut_HasAReasonAndWhatCame) {
    logOn();
    watch();
    const std::string whole = reply(200, body());
    serve({whole.substr(0, whole.size() - 1)});

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    EXPECT_NE(ended().curlResult, 0);
    EXPECT_NE(ended().reason, "");
    EXPECT_EQ(ended().status, 200);
    EXPECT_EQ(ended().announced, static_cast<std::int64_t>(kSize));
    EXPECT_EQ(ended().received, static_cast<std::int64_t>(kSize - 1));
}

TEST_F(MonitoredHttp, SinkThatStops_EndsTheRequestInTheRecordToo) {
    logOn();
    watch();
    sink().stopAt(1000);
    server().connection({receiveRequest(), send(reply(200, body()).substr(0, 2000)), awaitClose()});

    EXPECT_EQ(download().result, voInetErrorCancelled);

    constexpr int kAborted = 42;
    EXPECT_EQ(ended().curlResult, kAborted);
    EXPECT_EQ(ended().status, 200);
}

TEST_F(MonitoredHttp, Redirects_AreOneRequestThatEndsElsewhere) {
    logOn();
    watch();
    serve({reply(302, "", {"Location: /1", "X-Kind: first"}),
           reply(301, "", {"Location: /2", "X-Kind: second"}), reply(200, "new", {"X-Last: 1"})});

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(monitor().calls(), ElementsAre(kStarted, kHeaders, kEnded));
    const RequestRecord record = ended();
    EXPECT_EQ(record.url, url("/file.zip"));
    EXPECT_EQ(record.effectiveUrl, url("/2"));
    EXPECT_EQ(record.redirects, 2);
    EXPECT_EQ(record.status, 200);
    EXPECT_EQ(headerOf(record, "X-Kind"), std::nullopt);
    EXPECT_EQ(headerOf(record, "Location"), std::nullopt);
    EXPECT_EQ(headerOf(record, "X-Last"), "1");
    expectEveryPlainStage(record.times);
}

TEST_F(MonitoredHttp, RedirectToAnotherServer_NamesItsAddress) {
    logOn();
    watch();
    ScriptedServer other;
    other.connection(answer(reply(200, "new")));
    serve({reply(302, "", {"Location: " + httpUrl(other.port(), "/x")})});

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(ended().effectiveUrl, httpUrl(other.port(), "/x"));
    EXPECT_EQ(ended().remotePort, other.port());
}

TEST_F(MonitoredHttp, Ipv6_IsNamedWithAndWithoutBrackets) {
    ScriptedServer ipv6(AddressFamily::ipv6);
    TransferSettings settings;
    settings.hostNetBios = ipv6.hostAndPort();
    applySettings(transfer(), settings);
    watch();
    ipv6.connection(answer(reply(200)));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_EQ(ended().url, "http://[::1]:" + std::to_string(ipv6.port()) + "/SiteStat.xml");
    EXPECT_EQ(ended().remoteAddress, "::1");
    EXPECT_EQ(ended().remotePort, ipv6.port());
}

TEST_F(MonitoredHttp, Calls_ComeOnTheThreadOfTheTransfer) {
    logOn();
    watch();
    serve({reply(200, body())});

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(monitor().threads(), ElementsAre(std::this_thread::get_id()));
}

TEST_F(MonitoredHttp, OperationsThatAreRefused_MakeNoRequest) {
    logOn();
    watch();

    EXPECT_EQ(download(L"").result, voInetErrorInvalidArgument);
    EXPECT_EQ(transfer().UploadFile(L"a", L"b", nullptr), voInetErrorNotSupported);

    EXPECT_THAT(monitor().calls(), IsEmpty());
}

TEST_F(MonitoredHttp, LocalCopy_MakesNoRequest) {
    TransferItf& local = makeTransfer(voInetProtocolLocal);
    directory().makeFile("repository/file.zip", "content");
    local.SetOption(voInetOptionRelativePath, widened(directory().path("repository")));
    watch();

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(monitor().calls(), IsEmpty());
}

// Through a proxy.

TEST_F(MonitoredHttp, ThroughAProxy_ThePeerIsTheProxy) {
    logOnThroughProxy({});
    watch();
    serve({reply(200, body())});

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(started().proxy, "127.0.0.1:" + std::to_string(server().port()));
    EXPECT_EQ(ended().proxy, started().proxy);
    EXPECT_EQ(ended().url, originUrl() + "/file.zip");
    EXPECT_EQ(ended().effectiveUrl, ended().url);
    EXPECT_EQ(ended().remoteAddress, "127.0.0.1");
    EXPECT_EQ(ended().remotePort, server().port());
    EXPECT_EQ(ended().proxyStatus, 0) << "there is no tunnel";
}

TEST_F(MonitoredHttp, Ipv6Proxy_IsNamedInBrackets) {
    ScriptedServer ipv6(AddressFamily::ipv6);
    CProxyParams proxy = proxyAt(ipv6.port());
    proxy.m_strProxyHost = L"::1";
    transfer().SetOption(voInetOptionSite, &proxy);
    applySettings(transfer(), settings());
    watch();
    ipv6.connection(answer(reply(200)));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_EQ(started().proxy, "[::1]:" + std::to_string(ipv6.port()));
    EXPECT_EQ(ended().remoteAddress, "::1");
}

TEST_F(MonitoredHttp, ProxyThatRefuses_HasAReasonAndNoPeer) {
    const RefusingPort dead;
    const CProxyParams proxy = proxyAt(dead.port());
    transfer().SetOption(voInetOptionSite, &proxy);
    applySettings(transfer(), settings());
    watch();

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorTransferFailed);

    EXPECT_EQ(ended().proxy, "127.0.0.1:" + std::to_string(dead.port()));
    EXPECT_NE(ended().reason, "");
    EXPECT_EQ(ended().remoteAddress, "");
}

TEST_F(MonitoredHttp, AlternateProxyAfterADirectAttempt_ShowsInTheSecondRequest) {
    const RefusingPort dead;
    CProxyParams proxy = proxyAt(server().port());
    proxy.m_bUseIEConfig = true;
    proxy.m_bAllowUserToConfigureProxy = true;
    transfer().SetOption(voInetOptionSite, &proxy);
    TransferSettings behindIt;
    behindIt.hostNetBios = dead.hostAndPort();
    applySettings(transfer(), behindIt);
    watch();
    serve({reply(200)});

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    ASSERT_EQ(monitor().count(kEnded), 2U);
    EXPECT_THAT(purposes(), ElementsAre(requestLogon, requestLogon));
    EXPECT_EQ(started(0).proxy, "");
    EXPECT_EQ(started(1).proxy, "127.0.0.1:" + std::to_string(server().port()));
    EXPECT_NE(ended(0).curlResult, 0);
    EXPECT_EQ(ended(1).curlResult, 0);
    EXPECT_EQ(ended(1).reason, "");
}

// Exchanges.

class MonitoredExchange : public Monitored<ExchangeTest> {};

TEST_F(MonitoredExchange, Exchange_IsARequestWithItsFacts) {
    const std::string request = makeBody(300'000);
    const std::string package = makeBody(70'000, 5);
    makeRequestFile(request);
    watch();

    EXPECT_EQ(postAnswered(reply(200, package, {"X-Kind: package"})), voInetErrorPackageReceived);

    EXPECT_THAT(monitor().calls(), ElementsAre(kStarted, kHeaders, kEnded));
    EXPECT_EQ(started().url, httpUrl(server().port(), "/path"));
    EXPECT_EQ(started().hostForm, 1);
    expectNoAnswerYet(started());
    const RequestRecord record = ended();
    EXPECT_EQ(record.protocol, voInetProtocolHttp);
    EXPECT_EQ(record.purpose, requestExchange);
    EXPECT_EQ(record.url, started().url);
    EXPECT_EQ(record.effectiveUrl, record.url);
    EXPECT_EQ(record.proxy, "");
    EXPECT_EQ(record.remoteAddress, "127.0.0.1");
    EXPECT_EQ(record.remotePort, server().port());
    EXPECT_EQ(record.status, 200);
    EXPECT_EQ(record.sent, static_cast<std::int64_t>(request.size()));
    EXPECT_EQ(record.received, static_cast<std::int64_t>(package.size()));
    EXPECT_EQ(record.announced, static_cast<std::int64_t>(package.size()));
    EXPECT_EQ(headerOf(record, "X-Kind"), "package");
    expectEveryPlainStage(record.times);
}

TEST_F(MonitoredExchange, ProxyOfTheSettings_IsNotThatOfTheExchange) {
    const ScriptedServer unused;
    const CProxyParams proxy = proxyAt(unused.port());
    transfer().SetOption(voInetOptionSite, &proxy);
    watch();

    EXPECT_EQ(postAnswered(reply(202)), voInetErrorNoPackage);

    EXPECT_EQ(started().proxy, "");
    EXPECT_EQ(ended().proxy, "");
}

TEST_F(MonitoredExchange, HostForms_AreRequestsOfTheirOwn) {
    const RefusingPort dead;
    TransferSettings settings = addressOnly(dead.hostAndPort());
    settings.hostFqdn = server().hostAndPort();
    applySettings(transfer(), settings);
    watch();

    EXPECT_EQ(postAnswered(reply(202)), voInetErrorNoPackage);

    ASSERT_EQ(monitor().count(kEnded), 2U);
    EXPECT_EQ(ended(0).hostForm, 1);
    EXPECT_NE(ended(0).reason, "");
    EXPECT_EQ(ended(0).remoteAddress, "");
    EXPECT_EQ(ended(1).hostForm, 2);
    EXPECT_EQ(ended(1).status, 202);
}

TEST_F(MonitoredExchange, RefusedExchange_MakesNoRequest) {
    watch();

    EXPECT_EQ(transfer().UploadFileResponse(L"", L"/path", L"", &sink()),
              voInetErrorInvalidArgument);

    EXPECT_THAT(monitor().calls(), IsEmpty());
}

// FTP.

class MonitoredFtp : public Monitored<FtpTest> {
  protected:
    void SetUp() override { makeLocalFile(m_body.substr(0, kOffset + kPrefix)); }

    const std::string& body() const { return m_body; }
    std::string url(const std::string& path) {
        return "ftp://127.0.0.1:" + std::to_string(server().port()) + path;
    }

  private:
    std::string m_body = makeBody(kSize);
};

TEST_F(MonitoredFtp, Logon_IsARequestWithItsFacts) {
    applySettings(transfer(), settings());
    watch();
    server().session({});

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_THAT(monitor().calls(), ElementsAre(kStarted, kEnded));
    const RequestRecord record = ended();
    EXPECT_EQ(record.protocol, voInetProtocolFtp);
    EXPECT_EQ(record.purpose, requestLogon);
    EXPECT_EQ(record.hostForm, 3);
    EXPECT_THAT(record.url, StartsWith(url("")));
    EXPECT_EQ(record.proxy, "");
    EXPECT_EQ(record.remoteAddress, "127.0.0.1");
    EXPECT_EQ(record.remotePort, server().port());
    EXPECT_EQ(record.status, 257) << "the reply to PWD, the last command";
    EXPECT_EQ(record.curlResult, 0);
    EXPECT_EQ(record.reason, "");
    EXPECT_THAT(record.headers, IsEmpty());
    expectAscending(record.times);
    EXPECT_GT(record.times.connected, 0);
}

TEST_F(MonitoredFtp, Download_IsARequestWithItsFacts) {
    logOn();
    watch();

    EXPECT_EQ(downloadIn(sending(body())), voInetErrorSuccess);

    EXPECT_THAT(monitor().calls(), ElementsAre(kStarted, kEnded));
    const RequestRecord record = ended();
    EXPECT_EQ(record.protocol, voInetProtocolFtp);
    EXPECT_EQ(record.purpose, requestDownload);
    EXPECT_EQ(record.url, url("/file.zip"));
    EXPECT_EQ(record.effectiveUrl, record.url);
    EXPECT_EQ(record.remoteAddress, "127.0.0.1");
    EXPECT_EQ(record.remotePort, server().port());
    EXPECT_EQ(record.status, 226);
    EXPECT_EQ(record.announced, static_cast<std::int64_t>(kSize));
    EXPECT_EQ(record.received, static_cast<std::int64_t>(kSize));
    EXPECT_EQ(record.sent, 0);
    EXPECT_EQ(record.rangeStart, 0);
    EXPECT_THAT(record.headers, IsEmpty());
}

TEST_F(MonitoredFtp, TimesOfADownload_AreThoseOfItsStages) {
    logOn();
    watch();

    EXPECT_EQ(downloadIn(sending(body())), voInetErrorSuccess);

    // Not that of the connection for the data, which comes behind the first request.
    EXPECT_GT(ended().times.connected, 0);
    expectAscending(ended().times);
}

TEST_F(MonitoredFtp, Resume_IsACheckAndTheRest) {
    logOn();
    watch();
    server().session(sending(body(), kOffset));
    server().session(sending(body(), kOffset));
    DownloadArguments arguments;
    arguments.offset = static_cast<long>(kOffset);

    EXPECT_EQ(download(L"file.zip", arguments).result, voInetErrorSuccess);

    ASSERT_EQ(monitor().count(kEnded), 2U);
    EXPECT_EQ(ended(0).purpose, requestPrefixCheck);
    EXPECT_EQ(ended(0).rangeStart, static_cast<std::int64_t>(kOffset));
    EXPECT_EQ(ended(1).purpose, requestDownload);
    EXPECT_EQ(ended(1).rangeStart, static_cast<std::int64_t>(kOffset));
    EXPECT_EQ(ended(1).received, static_cast<std::int64_t>(kSize - kOffset));
}

TEST_F(MonitoredFtp, MissingFile_HasItsReplyAndAReason) {
    logOn();
    watch();
    FtpSession missing;
    missing.replies = {{"RETR", "550 No such file"}};

    EXPECT_EQ(downloadIn(missing), voInetErrorFileNotFound);

    EXPECT_EQ(ended().status, 550);
    EXPECT_NE(ended().curlResult, 0);
    EXPECT_NE(ended().reason, "");
}

TEST_F(MonitoredFtp, RefusedConnection_HasAReasonAndNoPeer) {
    const RefusingPort dead;
    TransferSettings settings;
    settings.hostNetBios = dead.hostAndPort();
    applySettings(transfer(), settings);
    watch();

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorTransferFailed);

    EXPECT_THAT(monitor().calls(), ElementsAre(kStarted, kEnded));
    EXPECT_NE(ended().reason, "");
    EXPECT_EQ(ended().remoteAddress, "");
    EXPECT_EQ(ended().remotePort, 0);
    EXPECT_EQ(ended().times.connected, 0);
}

TEST_F(MonitoredFtp, ThroughAnHttpProxy_ThePeerIsTheProxy) {
    ScriptedServer proxy;
    const CProxyParams record = proxyAt(proxy.port());
    transfer().SetOption(voInetOptionSite, &record);
    applySettings(transfer(), settings());
    watch();
    proxy.connection(answer(reply(200)));
    proxy.connection(answer(reply(200, body())));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(ended(0).purpose, requestLogon);
    EXPECT_EQ(ended(1).purpose, requestDownload);
    for (const auto& each : monitor().records(kEnded)) {
        EXPECT_EQ(each.protocol, voInetProtocolFtp);
        EXPECT_EQ(each.proxy, "127.0.0.1:" + std::to_string(proxy.port()));
        EXPECT_EQ(each.remoteAddress, "127.0.0.1");
        EXPECT_EQ(each.remotePort, proxy.port());
        EXPECT_EQ(each.status, 200);
    }
    EXPECT_EQ(ended(1).url, url("/file.zip"));
    EXPECT_EQ(ended(1).received, static_cast<std::int64_t>(kSize));
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
