// FTP through an HTTP proxy: what it is asked, what its answers mean, and the alternate one.

#include "support/ftp.h"

#include <string>
#include <utility>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr const char* kChallenge = "Proxy-Authenticate: Basic realm=\"p\"";

/// An HTTP proxy between the client and an FTP server.
class FtpProxy : public FtpTest {
  protected:
    void SetUp() override {
        m_proxy.emplace();
        makeLocalFile("old");
    }

    void TearDown() override {
        m_proxy.reset();
        FtpTest::TearDown();
    }

    ScriptedServer& proxy() { return *m_proxy; }
    CProxyParams record() { return proxyAt(m_proxy->port()); }

    CProxyParams withCredentials() {
        CProxyParams params = record();
        params.m_bFtpProxyAuthentication = true;
        params.m_strFtpProxyUser = L"proxy user";
        params.m_strFtpProxyPassword = L"secret";
        return params;
    }

    static CProxyParams withAlternate(CProxyParams params) {
        params.m_bAllowUserToConfigureProxy = true;
        params.m_bFtpAltCredentials = true;
        params.m_strFtpAltUser = L"alternate";
        params.m_strFtpAltPassword = L"other";
        return params;
    }

    void apply(const CProxyParams& params, const TransferSettings& settings) {
        EXPECT_EQ(transfer().SetOption(voInetOptionSite, &params), voInetErrorSuccess);
        applySettings(transfer(), settings);
    }

    /// Logs on through the proxy and forgets that.
    void logOnThrough(const CProxyParams& params, const TransferSettings& settings) {
        apply(params, settings);
        proxy().connection(answer(reply(200)));
        ASSERT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
        ASSERT_TRUE(proxy().awaitPlayed());
        proxy().forgetRecords();
    }
    void logOnThrough(const CProxyParams& params) { logOnThrough(params, settings()); }

    /// Logs on directly with a record that comes into play with the alternate proxy only.
    void logOnDirectly(CProxyParams params) {
        params.m_bUseIEConfig = true;
        EXPECT_EQ(transfer().SetOption(voInetOptionSite, &params), voInetErrorSuccess);
        logOn();
    }

    /// What the proxy was asked for, in order.
    std::vector<std::string> asked() const {
        std::vector<std::string> lines;
        for (const auto& request : m_proxy->requests()) {
            lines.push_back(request.method + " " + request.target);
        }
        return lines;
    }

    std::string url(const std::string& credentials, const std::string& path) {
        return "ftp://" + credentials + "@127.0.0.1:" + std::to_string(server().port()) + path;
    }

    TransferSettings withUser(const std::wstring& user, const std::wstring& password) const {
        TransferSettings settings = FtpTest::settings();
        settings.user = user;
        settings.password = password;
        return settings;
    }

  private:
    std::optional<ScriptedServer> m_proxy;
};

TEST_F(FtpProxy, Download_IsAskedForByItsFtpUrl) {
    logOnThrough(record());
    proxy().connection(answer(reply(200, "new")));

    EXPECT_EQ(download(L"dir\\file.zip").result, voInetErrorSuccess);

    expectLocalFile("new");
    EXPECT_THAT(asked(),
                ElementsAre("GET " + url("anonymous:anonymous%2540example.com", "/dir/file.zip")));
    EXPECT_EQ(server().sessionCount(), 0U);
}

TEST_F(FtpProxy, Logon_AsksForTheRootWithoutABody) {
    apply(record(), settings());
    proxy().connection(answer(reply(200)));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_THAT(asked(), ElementsAre("HEAD " + url("anonymous:anonymous%2540example.com", "/")));
}

TEST_F(FtpProxy, Credentials_ArriveEncodedTwice) {
    // The settings' own encoding, and curl's for the URL.
    logOnThrough(record(), withUser(L"us@er%", L"pa:ss"));
    proxy().connection(answer(reply(200, "new")));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(asked(), ElementsAre("GET " + url("us%2540er%2525:pa%253ass", "/file.zip")));
}

TEST_F(FtpProxy, Credentials_EndAtTheFirstBlank) {
    logOnThrough(record(), withUser(L"user", L"first second"));
    proxy().connection(answer(reply(200, "new")));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(asked(), ElementsAre("GET " + url("user:first", "/file.zip")));
}

TEST_F(FtpProxy, AnswersUpTo400_CountAsADownload) {
    logOnThrough(record());
    // Exactly 400 too; intended. Who downloads through a proxy looks at what has come.
    for (const int status : {200, 206, 302, 400}) {
        const std::string body = "page of " + std::to_string(status);
        proxy().connection(answer(reply(status, body)));
        EXPECT_EQ(download().result, voInetErrorSuccess) << status;
        expectLocalFile(body);
    }
}

TEST_F(FtpProxy, AnswersAbove400_AreFailuresAndLeaveTheOldFile) {
    logOnThrough(record());
    for (const int status : {401, 403, 404, 407, 416, 500, 502, 503, 504}) {
        proxy().connection(answer(reply(status, "page")));
        EXPECT_EQ(download().result, voInetErrorFailed) << status;
    }
    proxy().connection(answer(reply(550, "page")));
    EXPECT_EQ(download().result, voInetErrorFileNotFound);
    expectLocalFile("old");
    EXPECT_THAT(proxy().requests(), SizeIs(10));
}

TEST_F(FtpProxy, Redirect_IsNotFollowed) {
    logOnThrough(record());
    proxy().connection(answer(reply(302, "moved", {"Location: http://127.0.0.1:1/x"})));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("moved");
}

TEST_F(FtpProxy, BodyThatIsCut_IsATransferFailure) {
    logOnThrough(record());
    const std::string whole = reply(200, "new content");
    proxy().connection(answer(whole.substr(0, whole.size() - 1)));

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    expectLocalFile("old");
}

TEST_F(FtpProxy, ProxyThatIsNotThere_IsATransferFailure) {
    const RefusingPort dead;
    apply(proxyAt(dead.port()), settings());

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorTransferFailed);
}

TEST_F(FtpProxy, ProxyThatDoesNotResolve_IsAProxyFailure) {
    CProxyParams unknown = record();
    unknown.m_strProxyHost = std::wstring(64, L'x');
    apply(unknown, settings());

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorProxyNotResolved);
}

TEST_F(FtpProxy, PortOfTheHttpProxy_IsNotUsed) {
    CProxyParams params = record();
    params.m_nHttpProxyPort = 1;
    logOnThrough(params);
    proxy().connection(answer(reply(200, "new")));

    EXPECT_EQ(download().result, voInetErrorSuccess);
}

TEST_F(FtpProxy, AskedForCredentials_GivesThem) {
    logOnThrough(withCredentials());
    proxy().connection(answers({keepAliveReply(407, "page", {kChallenge}), reply(200, "new")}));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
    ASSERT_THAT(proxy().requests(), SizeIs(2));
    EXPECT_EQ(proxy().requests()[0].header("Proxy-Authorization"), std::nullopt);
    EXPECT_EQ(proxy().requests()[1].header("Proxy-Authorization"),
              basicCredentials("proxy user:secret"));
}

TEST_F(FtpProxy, CredentialsOfTheHttpProxy_AreNotUsed) {
    CProxyParams params = record();
    params.m_bHttpProxyAuthentication = true;
    params.m_strHttpProxyUser = L"other";
    params.m_strHttpProxyPassword = L"protocol";
    logOnThrough(params);
    proxy().connection(answer(reply(407, "page", {kChallenge})));

    EXPECT_EQ(download().result, voInetErrorFailed);

    EXPECT_THAT(proxy().requests(), SizeIs(1));
}

// The alternate proxy.

TEST_F(FtpProxy, FirstCredentialsRefused_TriesTheAlternateOnes) {
    logOnThrough(withAlternate(withCredentials()));
    const std::string challenge = keepAliveReply(407, "page", {kChallenge});
    proxy().connection(answers({challenge, challenge}));
    proxy().connection(answer(reply(200, "new")));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
    const auto requests = proxy().requests();
    ASSERT_THAT(requests, SizeIs(3));
    EXPECT_EQ(requests[1].header("Proxy-Authorization"), basicCredentials("proxy user:secret"));
    EXPECT_EQ(requests[2].header("Proxy-Authorization"), basicCredentials("alternate:other"));
    EXPECT_EQ(log().count(HostLogLevel::info, L"Using Alternate proxy server: 127.0.0.1 "), 1U);
}

TEST_F(FtpProxy, FailureWithoutTheAllowance_IsNotTriedAgain) {
    logOnThrough(withCredentials());
    proxy().connection(answer(reply(503, "page")));

    EXPECT_EQ(download().result, voInetErrorFailed);

    EXPECT_THAT(proxy().requests(), SizeIs(1));
}

TEST_F(FtpProxy, DirectDownloadRefused_IsTriedThroughTheAlternateProxy) {
    FtpSession missing;
    missing.replies = {{"RETR", "550 No such file"}};
    logOnDirectly(withAlternate(record()));
    server().session(missing);
    proxy().connection(answer(reply(200, "new")));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
    EXPECT_EQ(log().count(HostLogLevel::info,
                          L"Unable to use IE proxy settings so using the alternate proxy settings"),
              1U);
}

TEST_F(FtpProxy, AlternateProxyAnswersBadly_EndsWithItsResultAndTheOldFile) {
    const std::vector<std::pair<int, voInetError>> answers = {{401, voInetErrorFailed},
                                                              {404, voInetErrorFailed},
                                                              {407, voInetErrorFailed},
                                                              {503, voInetErrorFailed},
                                                              {550, voInetErrorFileNotFound}};
    FtpSession missing;
    missing.replies = {{"RETR", "550 No such file"}};
    logOnDirectly(withAlternate(record()));
    for (const auto& [status, result] : answers) {
        server().session(missing);
        proxy().connection(answer(reply(status, "page")));
        EXPECT_EQ(download().result, result) << status;
    }
    expectLocalFile("old");
}

TEST_F(FtpProxy, AlternateProxyAnswers400_CountsAsADownload) {
    FtpSession missing;
    missing.replies = {{"RETR", "550 No such file"}};
    logOnDirectly(withAlternate(record()));
    server().session(missing);
    proxy().connection(answer(reply(400, "page")));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("page");
}

TEST_F(FtpProxy, BytesOfTheFirstAttempt_AreNotKeptForTheSecond) {
    const std::string body = makeBody(20'000);
    FtpSession cut = sending(body);
    cut.data = {send(makeBody(10'000, 5))};
    logOnDirectly(withAlternate(record()));
    server().session(cut);
    proxy().connection(answer(reply(200, body)));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body);
}

TEST_F(FtpProxy, AlternateProxy_IsTriedOnceForEachDownload) {
    FtpSession missing;
    missing.replies = {{"RETR", "550 No such file"}};
    logOnDirectly(withAlternate(record()));
    for (int i = 0; i < 3; ++i) {
        server().session(missing);
        proxy().connection(answer(reply(503)));
        EXPECT_EQ(download().result, voInetErrorFailed);
    }
    EXPECT_THAT(proxy().requests(), SizeIs(3));
}

TEST_F(FtpProxy, CancelledDownload_IsTriedThroughTheAlternateProxy) {
    // A cancel is a result like any other here, and the sink is asked again; intended.
    FtpSession session = sending(makeBody(1000));
    session.data = {send(makeBody(500)), awaitClose()};
    logOnDirectly(withAlternate(record()));
    server().session(session);
    proxy().connection({receiveRequest(), sendUntilClosed(reply(200, "new"))});
    sink().stopAt(500);

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
}

TEST_F(FtpProxy, DirectLoginWithAProxyRecord_UsesTheEncodedCredentials) {
    CProxyParams params = record();
    params.m_bUseIEConfig = true;
    apply(params, withUser(L"us@er", L"pa:ss word"));
    server().session({});

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_THAT(server().commands(), ElementsAre("USER us%40er", "PASS pa%3ass", "PWD"));
}

TEST_F(FtpProxy, LogonRefused_IsTriedThroughTheAlternateProxyWhoseStatusDoesNotCount) {
    apply(withAlternate(record()), settings());
    proxy().connection(answer(reply(404)));
    proxy().connection(answer(reply(404)));

    // Only a tunnel has a status of its own to look at; intended.
    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_THAT(proxy().requests(), SizeIs(2));
}

TEST_F(FtpProxy, LogonAnswers_DecideAsTheirStatusSays) {
    const std::vector<std::pair<int, voInetError>> answers = {
        {200, voInetErrorSuccess}, {302, voInetErrorSuccess}, {400, voInetErrorSuccess},
        {401, voInetErrorSuccess}, {403, voInetErrorSuccess}, {407, voInetErrorSuccess},
        {402, voInetErrorFailed},  {404, voInetErrorFailed},  {503, voInetErrorFailed}};
    apply(record(), settings());
    for (const auto& [status, result] : answers) {
        proxy().connection(answer(reply(status)));
        EXPECT_EQ(transfer().Logon(false, 0), result) << status;
    }
}

// Resuming through a proxy.

class FtpProxyResume : public FtpProxy {
  protected:
    static constexpr std::size_t kOffset = 4000;

    const std::string& body() const { return m_body; }
    std::string partial() const { return m_body.substr(0, kOffset + 1024); }

    DownloadOutcome resume() {
        makeLocalFile(partial());
        DownloadArguments arguments;
        arguments.offset = static_cast<long>(kOffset);
        return download(L"file.zip", arguments);
    }

  private:
    std::string m_body = makeBody(20'000);
};

TEST_F(FtpProxyResume, ProxyThatKnowsRanges_SendsTheRest) {
    logOnThrough(record());
    proxy().connection(answer(reply(206, body().substr(kOffset, 1024))));
    proxy().connection(answer(reply(206, body().substr(kOffset))));

    EXPECT_EQ(resume().result, voInetErrorSuccess);

    expectLocalFile(body());
    ASSERT_THAT(proxy().requests(), SizeIs(2));
    EXPECT_EQ(proxy().requests()[0].header("Range"), "bytes=4000-5023");
    EXPECT_EQ(proxy().requests()[1].header("Range"), "bytes=4000-");
}

TEST_F(FtpProxyResume, ProxyThatIgnoresRanges_SendsTheWholeFileAgain) {
    logOnThrough(record());
    proxy().connection({receiveRequest(), sendUntilClosed(reply(200, body()))});
    proxy().connection(answer(reply(200, body())));

    const auto outcome = resume();

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile(body());
}

TEST_F(FtpProxyResume, Status416_IsAFailureAndNoRestart) {
    // Results that would restart a download do not come from FTP.
    logOnThrough(record());
    proxy().connection(answer(reply(206, body().substr(kOffset, 1024))));
    proxy().connection(answer(reply(416)));

    EXPECT_EQ(resume().result, voInetErrorFailed);

    EXPECT_THAT(proxy().requests(), SizeIs(2));
    expectLocalFile(partial());
}

TEST_F(FtpProxyResume, CheckThatFailsDirectly_IsMadeThroughTheAlternateProxy) {
    logOnDirectly(withAlternate(record()));
    FtpSession busy;
    busy.replies = {{"RETR", "450 Busy"}};
    server().session(busy);
    server().session(busy);
    proxy().connection(answer(reply(206, body().substr(kOffset, 1024))));
    proxy().connection(answer(reply(206, body().substr(kOffset))));

    const auto outcome = resume();

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, static_cast<long>(kOffset));
    expectLocalFile(body());
}

// Hosts that do not use the proxy.

class FtpProxyBypass : public FtpProxy {
  protected:
    void expectDirect(const CProxyParams& params, const std::wstring& host) {
        logOnTo(params, host);
        EXPECT_FALSE(transfer().m_bUseProxy);
        EXPECT_FALSE(transfer().m_bUseProxyAuthentication);
        EXPECT_FALSE(transfer().m_bUseIEConfig);
        EXPECT_EQ(proxy().connectionCount(), 0U);
        server().session(sending("direct"));
        EXPECT_EQ(download().result, voInetErrorSuccess);
        expectLocalFile("direct");
    }

  private:
    void logOnTo(const CProxyParams& params, const std::wstring& host) {
        TransferSettings settings = withUser(L"us@er", L"pa:ss");
        settings.hostNetBios = host + L":" + std::to_wstring(server().port());
        apply(params, settings);
        server().session({});
        ASSERT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    }
};

TEST_F(FtpProxyBypass, HostInTheList_GoesDirectlyForTheLifeOfTheObject) {
    CProxyParams params = withCredentials();
    params.m_strExclusionList = L"127.0.0.9; 127.0.0.1";

    expectDirect(params, L"127.0.0.1");

    EXPECT_THAT(log().messages(HostLogLevel::info, L"By passed"),
                ElementsAre(L"Proxy Server: 127.0.0.1 is By passed for this Host: 127.0.0.1, "
                            L"ByPassList: 127.0.0.9; 127.0.0.1"));
    // Without a proxy the credentials go out as they are.
    EXPECT_THAT(server().commands(), testing::Contains("USER us@er").Times(2));
}

TEST_F(FtpProxyBypass, SingleLabelWithBypassLocal_GoesDirectly) {
    CProxyParams params = record();
    params.m_bBypassLocal = true;

    expectDirect(params, L"localhost");
}

TEST_F(FtpProxyBypass, HostThatIsNotExempt_UsesTheProxy) {
    CProxyParams params = record();
    params.m_strExclusionList = L"127.0.0.9";
    params.m_bBypassLocal = true;
    logOnThrough(params);
    proxy().connection(answer(reply(200, "by proxy")));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("by proxy");
    EXPECT_TRUE(transfer().m_bUseProxy);
    EXPECT_EQ(server().sessionCount(), 0U);
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
