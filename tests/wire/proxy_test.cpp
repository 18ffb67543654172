// Transfers through a proxy, around it, and with its credentials.

#include "support/restrictions.h"
#include "support/wiretest.h"

#include <string>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr const char* kChallenge = "Proxy-Authenticate: Basic realm=\"proxy\"";

/// The server of the fixture is the proxy.
class Proxy : public HttpTest {
  protected:
    void SetUp() override { makeLocalFile("old"); }

    const std::string& body() const { return m_body; }

    static CProxyParams withCredentials() {
        CProxyParams proxy;
        proxy.m_bHttpProxyAuthentication = true;
        proxy.m_strHttpProxyUser = L"proxy user";
        proxy.m_strHttpProxyPassword = L"secret";
        return proxy;
    }

    static CProxyParams withAlternate(CProxyParams proxy = {}) {
        proxy.m_bAllowUserToConfigureProxy = true;
        proxy.m_bHttpAltCredentials = true;
        proxy.m_strHttpAltUser = L"alternate";
        proxy.m_strHttpAltPassword = L"other";
        return proxy;
    }

    /// The proxy asks for credentials and then hands out the body.
    void challengeOnce() {
        server().connection(
            answers({keepAliveReply(407, "who are you", {kChallenge}), reply(200, body())}));
    }

  private:
    std::string m_body = makeBody(100'000);
};

TEST_F(Proxy, Logon_SendsTheProbeThroughIt) {
    CProxyParams proxy = proxyAt(server().port());
    transfer().SetOption(voInetOptionSite, &proxy);
    TransferSettings settings;
    settings.hostNetBios = L"127.0.0.1:9999";
    applySettings(transfer(), settings);
    server().connection(answer(reply(200)));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    ASSERT_THAT(server().requests(), SizeIs(1));
    const Request probe = server().requests().front();
    EXPECT_EQ(probe.method, "HEAD");
    EXPECT_EQ(probe.target, "http://127.0.0.1:9999/SiteStat.xml");
    EXPECT_EQ(probe.header("Host"), "127.0.0.1:9999");
    EXPECT_EQ(probe.header("Proxy-Authorization"), std::nullopt);
}

TEST_F(Proxy, Download_GoesThroughIt) {
    logOnThroughProxy({});
    server().connection(answer(reply(200, body())));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
    ASSERT_THAT(requests(), SizeIs(1));
    EXPECT_EQ(requests().front().target, originUrl() + "/file.zip");
}

TEST_F(Proxy, Ipv6ProxyAddress_IsReached) {
    ScriptedServer ipv6(AddressFamily::ipv6);
    CProxyParams proxy = proxyAt(ipv6.port());
    proxy.m_strProxyHost = L"::1";
    transfer().SetOption(voInetOptionSite, &proxy);
    TransferSettings settings;
    settings.hostNetBios = L"127.0.0.1:9999";
    applySettings(transfer(), settings);
    ipv6.connection(answer(reply(200)));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
}

TEST_F(Proxy, RefusedConnection_FailsTheLogon) {
    const RefusingPort refusing;
    CProxyParams proxy = proxyAt(refusing.port());
    transfer().SetOption(voInetOptionSite, &proxy);
    applySettings(transfer(), settings());

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorTransferFailed);

    EXPECT_EQ(server().connectionCount(), 0U) << "the server itself is not asked instead";
}

TEST_F(Proxy, NameThatNoResolverTakes_IsNotResolved) {
    CProxyParams proxy = proxyAt(8080);
    proxy.m_strProxyHost = std::wstring(64, L'x');
    transfer().SetOption(voInetOptionSite, &proxy);
    applySettings(transfer(), settings());

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorProxyNotResolved);
}

TEST_F(Proxy, Challenge_IsAnsweredWithTheCredentials) {
    logOnThroughProxy(withCredentials());
    challengeOnce();

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
    ASSERT_THAT(requests(), SizeIs(2));
    EXPECT_EQ(requests()[0].header("Proxy-Authorization"), std::nullopt);
    EXPECT_EQ(requests()[1].header("Proxy-Authorization"), basicCredentials("proxy user:secret"));
}

TEST_F(Proxy, Answered407WithoutCredentials_AsksForThem) {
    logOnThroughProxy({});
    server().connection(answer(reply(407, "who are you", {kChallenge})));

    EXPECT_EQ(download().result, voInetErrorProxyAuthRequired);

    expectLocalFile("old");
    EXPECT_THAT(requests(), SizeIs(1));
}

TEST_F(Proxy, Answered407ByAServerWithoutAProxy_AsksForCredentials) {
    logOn();
    server().connection(answer(reply(407)));

    EXPECT_EQ(download().result, voInetErrorProxyAuthRequired);

    expectLocalFile("old");
}

TEST_F(Proxy, Answered407WithoutAChallengeEachTime_GivesUpAfterFourRequests) {
    logOnThroughProxy(withCredentials());
    for (int request = 0; request < 4; ++request) {
        server().connection(answer(reply(407, "no")));
    }

    EXPECT_EQ(download().result, voInetErrorMaxRetries);

    expectLocalFile("old");
    EXPECT_THAT(requests(), SizeIs(4));
}

TEST_F(Proxy, AlternateCredentials_AnswerTheFirstChallengeAlready) {
    logOnThroughProxy(withAlternate(withCredentials()));
    challengeOnce();

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
    ASSERT_THAT(requests(), SizeIs(2));
    EXPECT_EQ(requests()[1].header("Proxy-Authorization"), basicCredentials("alternate:other"));
    EXPECT_THAT(log().messages(HostLogLevel::info, L"alternate proxy"),
                ElementsAre(L"Using alternate proxy server: 127.0.0.1 "));
}

TEST_F(Proxy, AlternateCredentialsThatAreNotAllowed_AreNotUsed) {
    CProxyParams notAllowed = withAlternate(withCredentials());
    notAllowed.m_bAllowUserToConfigureProxy = false;
    logOnThroughProxy(notAllowed);
    challengeOnce();

    EXPECT_EQ(download().result, voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(2));
    EXPECT_EQ(requests()[1].header("Proxy-Authorization"), basicCredentials("proxy user:secret"));
    EXPECT_EQ(log().count(HostLogLevel::info, L"alternate proxy"), 0U);
}

TEST_F(Proxy, UserProxyAllowedWithoutAlternateCredentials_KeepsTheCredentials) {
    CProxyParams allowed = withCredentials();
    allowed.m_bAllowUserToConfigureProxy = true;
    logOnThroughProxy(allowed);
    challengeOnce();

    EXPECT_EQ(download().result, voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(2));
    EXPECT_EQ(requests()[1].header("Proxy-Authorization"), basicCredentials("proxy user:secret"));
}

TEST_F(Proxy, AlternateCredentialsRefused_AsksForCredentials) {
    logOnThroughProxy(withAlternate());
    server().connection(
        answers({keepAliveReply(407, {}, {kChallenge}), reply(407, {}, {kChallenge})}));

    EXPECT_EQ(download().result, voInetErrorProxyAuthRequired);

    expectLocalFile("old");
}

TEST_F(Proxy, ServerAndProxyCredentials_ReachTheirOwnSide) {
    transfer().SetOption(voInetOptionUser, std::wstring(L"us@er"));
    transfer().SetOption(voInetOptionPassword, std::wstring(L"pa:ss"));
    logOnThroughProxy(withCredentials());
    server().connection(answers({keepAliveReply(407, {}, {kChallenge}),
                                 keepAliveReply(401, {}, {"WWW-Authenticate: Basic realm=\"r\""}),
                                 reply(200, body())}));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(3));
    EXPECT_EQ(requests()[1].header("Authorization"), std::nullopt);
    EXPECT_EQ(requests()[2].header("Proxy-Authorization"), basicCredentials("proxy user:secret"));
    EXPECT_EQ(requests()[2].header("Authorization"), basicCredentials("us@er:pa:ss"));
}

TEST_F(Proxy, LogonAnswered404_IsTriedAgainWithTheAlternateOne) {
    CProxyParams proxy = withAlternate(proxyAt(server().port()));
    transfer().SetOption(voInetOptionSite, &proxy);
    TransferSettings settings;
    settings.hostNetBios = L"127.0.0.1:9999";
    applySettings(transfer(), settings);
    server().connection(answer(reply(404)));
    server().connection(answers({keepAliveReply(407, {}, {kChallenge}), reply(200)}));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    ASSERT_THAT(server().requests(), SizeIs(3));
    EXPECT_EQ(server().requests()[2].method, "HEAD");
    EXPECT_EQ(server().requests()[2].header("Proxy-Authorization"),
              basicCredentials("alternate:other"));
}

TEST_F(Proxy, LogonAnswered404_IsNotTriedAgainWhenThatIsNotAllowed) {
    CProxyParams proxy = proxyAt(server().port());
    transfer().SetOption(voInetOptionSite, &proxy);
    applySettings(transfer(), settings());
    server().connection(answer(reply(404)));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorFailed);

    EXPECT_THAT(server().requests(), SizeIs(1));
}

TEST_F(Proxy, SystemConfigurationAsked_GoesDirectlySinceThereIsNone) {
    const ScriptedServer unused;
    CProxyParams proxy = proxyAt(unused.port());
    proxy.m_bUseIEConfig = true;
    transfer().SetOption(voInetOptionSite, &proxy);
    logOn();
    server().connection(answer(reply(200, body())));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(requests().front().target, "/file.zip");
    EXPECT_EQ(unused.connectionCount(), 0U);
}

TEST_F(Proxy, SystemConfigurationAskedWithUserProxyAllowed_DownloadsThroughTheAlternateProxy) {
    ScriptedServer alternate;
    alternate.connection(answer(reply(200, body())));
    CProxyParams proxy = withAlternate(proxyAt(alternate.port()));
    proxy.m_bUseIEConfig = true;
    transfer().SetOption(voInetOptionSite, &proxy);
    logOn();

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
    ASSERT_THAT(alternate.requests(), SizeIs(1));
    EXPECT_EQ(alternate.requests().front().target,
              "http://127.0.0.1:" + std::to_string(server().port()) + "/file.zip");
}

/// A logon and a download with a proxy record whose proxy must not, or must, be asked.
class ProxyBypass : public HttpTest {
  protected:
    ScriptedServer& proxy() { return m_proxy.value(); }

    void SetUp() override { m_proxy.emplace(); }
    void TearDown() override {
        m_proxy.reset();
        HttpTest::TearDown();
    }

    void expectBypassed(const std::wstring& host, const CProxyParams& record) {
        apply(host, record);
        server().connection(answer(reply(200)));
        server().connection(answer(reply(200, "direct")));
        EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
        EXPECT_EQ(download().result, voInetErrorSuccess);
        expectLocalFile("direct");
        EXPECT_EQ(proxy().connectionCount(), 0U);
        EXPECT_FALSE(transfer().m_bUseProxy);
        EXPECT_FALSE(transfer().m_bUseProxyAuthentication);
        EXPECT_FALSE(transfer().m_bUseIEConfig);
    }

    void expectUsed(const std::wstring& host, const CProxyParams& record) {
        apply(host, record);
        proxy().connection(answer(reply(200)));
        proxy().connection(answer(reply(200, "by proxy")));
        EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
        EXPECT_EQ(download().result, voInetErrorSuccess);
        expectLocalFile("by proxy");
        EXPECT_EQ(server().connectionCount(), 0U);
        EXPECT_TRUE(transfer().m_bUseProxy);
    }

    static CProxyParams withList(const std::wstring& list) {
        CProxyParams record;
        record.m_strExclusionList = list;
        record.m_bHttpProxyAuthentication = true;
        record.m_strHttpProxyUser = L"u";
        record.m_strHttpProxyPassword = L"p";
        return record;
    }

    static CProxyParams withBypassLocal() {
        CProxyParams record;
        record.m_bBypassLocal = true;
        return record;
    }

    void apply(const std::wstring& host, CProxyParams record) {
        record.m_strProxyHost = L"127.0.0.1";
        record.m_nHttpProxyPort = proxy().port();
        EXPECT_EQ(transfer().SetOption(voInetOptionSite, &record), voInetErrorSuccess);
        TransferSettings settings;
        settings.hostNetBios = host + L":" + std::to_wstring(server().port());
        applySettings(transfer(), settings);
    }

  private:
    std::optional<ScriptedServer> m_proxy;
};

TEST_F(ProxyBypass, HostInTheList_GoesDirectlyForTheLifeOfTheObject) {
    expectBypassed(L"127.0.0.1", withList(L"127.0.0.9; 127.0.0.1"));

    EXPECT_THAT(log().messages(HostLogLevel::info, L"By passed"),
                ElementsAre(L"Proxy Server: 127.0.0.1 is By passed for this Host: 127.0.0.1, "
                            L"ByPassList: 127.0.0.9; 127.0.0.1"));
}

TEST_F(ProxyBypass, HostInTheListWithUserProxyAllowed_IsDownloadedFromThroughTheAlternateProxy) {
    CProxyParams record = withList(L"127.0.0.1");
    record.m_bAllowUserToConfigureProxy = true;
    apply(L"127.0.0.1", record);
    server().connection(answer(reply(200)));
    proxy().connection(answer(reply(200, "by proxy")));
    ASSERT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    ASSERT_FALSE(transfer().m_bUseProxy);

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("by proxy");
}

TEST_F(ProxyBypass, ListNamesTheHostsAddressOtherwise_GoesDirectly) {
    expectBypassed(L"127.0.0.1", withList(L"http://localhost:80/path"));
}

TEST_F(ProxyBypass, HostNotInTheList_UsesTheProxy) {
    expectUsed(L"127.0.0.1", withList(L"127.0.0.9,127.0.0.10"));
}

TEST_F(ProxyBypass, NetworksInTheList_MatchNothing) {
    expectUsed(L"127.0.0.1", withList(L"127.0.0.0/8,127.0.0"));
}

TEST_F(ProxyBypass, EmptyList_UsesTheProxy) {
    expectUsed(L"127.0.0.1", withList(L""));
}

TEST_F(ProxyBypass, BypassLocalWithASingleLabel_GoesDirectly) {
    expectBypassed(L"localhost", withBypassLocal());
}

TEST_F(ProxyBypass, BypassLocalWithDots_UsesTheProxy) {
    expectUsed(L"127.0.0.1", withBypassLocal());
}

TEST_F(ProxyBypass, SingleLabelWithoutBypassLocal_UsesTheProxy) {
    expectUsed(L"localhost", {});
}

/// The environment names a proxy; nothing may come to it.
class ProxyEnvironment : public HttpTest {
  protected:
    std::string proxyUrl() const { return "http://127.0.0.1:" + std::to_string(m_unused->port()); }

    void expectDirect() {
        logOn();
        server().connection(answer(reply(200, "direct")));
        EXPECT_EQ(download().result, voInetErrorSuccess);
        expectLocalFile("direct");
        EXPECT_EQ(m_unused->connectionCount(), 0U);
    }

    void SetUp() override { m_unused.emplace(); }
    void TearDown() override {
        m_unused.reset();
        HttpTest::TearDown();
    }

  private:
    std::optional<ScriptedServer> m_unused;
};

TEST_F(ProxyEnvironment, HttpProxyVariable_IsNotUsed) {
    const EnvironmentVariable variable("http_proxy", proxyUrl());

    expectDirect();
}

TEST_F(ProxyEnvironment, AllProxyVariable_IsNotUsed) {
    const EnvironmentVariable variable("ALL_PROXY", proxyUrl());
    const EnvironmentVariable lowerCase("all_proxy", proxyUrl());

    expectDirect();
}

TEST_F(ProxyEnvironment, HttpProxyVariable_DoesNotReplaceTheConfiguredProxy) {
    const EnvironmentVariable variable("http_proxy", proxyUrl());
    logOnThroughProxy({});
    server().connection(answer(reply(200, "by proxy")));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("by proxy");
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
