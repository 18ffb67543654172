#include "support/choices.h"
#include "support/curldouble.h"
#include "support/curlsetupmodel.h"
#include "support/logcapture.h"
#include "support/networkdouble.h"
#include "support/oddlocale.h"
#include "voinet/HTTPConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

using Texts = std::vector<std::string>;

/// An HTTP connection that is ready for a logon at http://server.corp:8080.
class HttpLogon : public testing::Test {
  protected:
    HttpLogon() {
        connection.SetOption(voInetOptionSite, std::wstring(L"site"));
        activate("server.corp");
        connection.m_strProxy = L"proxy.corp";
        connection.m_strProxy_utf8_rep = "proxy.corp";
        connection.m_nProxyPort = 3128;
        connection.m_strAltProxyUserPwd_utf8_rep = "alt:sec";
        clearLog();
    }

    void activate(const std::string& host, int port = 8080) {
        connection.SetActiveHostSettings(connMethodIP, std::wstring(host.begin(), host.end()), host,
                                         port);
    }

    voInetError logon(bool useTimeout = false, unsigned seconds = 0) {
        return connection.LogonWithConnSpec(connMethodIP, useTimeout, seconds);
    }

    /// The URL of the one probe of a logon that succeeds.
    std::string probeUrl() {
        curlDouble().clearTrace();
        curlDouble().play(answer(200));
        EXPECT_EQ(logon(), voInetErrorSuccess);
        EXPECT_EQ(curlDouble().requests().size(), 1U);
        return curlDouble().requests().front().text(CURLOPT_URL);
    }

    CHttpConnection connection;
};

struct Probe {
    CURLcode code;
    long status;
};

Reply reply(const Probe& probe) {
    return answer(probe.status).result(probe.code);
}

bool isError(long status) {
    return status > 400 && status != 401 && status != 403 && status != 407;
}

const std::vector<Probe>& probes() {
    static const std::vector<Probe> kAll{{CURLE_OK, 0},
                                         {CURLE_OK, 200},
                                         {CURLE_OK, 302},
                                         {CURLE_OK, 399},
                                         {CURLE_OK, 400},
                                         {CURLE_OK, 401},
                                         {CURLE_OK, 402},
                                         {CURLE_OK, 403},
                                         {CURLE_OK, 404},
                                         {CURLE_OK, 407},
                                         {CURLE_OK, 408},
                                         {CURLE_OK, 500},
                                         {CURLE_COULDNT_CONNECT, 0},
                                         {CURLE_COULDNT_RESOLVE_PROXY, 0},
                                         {CURLE_COULDNT_RESOLVE_HOST, 0},
                                         {CURLE_OPERATION_TIMEDOUT, 0},
                                         {CURLE_ABORTED_BY_CALLBACK, 404},
                                         {static_cast<CURLcode>(10), 200}};
    return kAll;
}

/// The rules of the probe.
class ProbeModel {
  public:
    ProbeModel(const CHttpConnection& connection, Probe first, Probe second)
        : m_connection(connection), m_trace(expectedSetup(connection, nullptr, false)) {
        ask();
        m_last = first;
        if (first.code != CURLE_OK || isError(first.status)) {
            askThroughTheAlternateProxy(second);
        }
        m_trace.emplace_back("cleanup");
    }

    int result() const {
        const int mapped = mapCurlErrorCode(m_last.code);
        return mapped == 0 && isError(m_last.status) ? -1 : mapped;
    }
    const Texts& trace() const { return m_trace; }
    Texts log() const {
        Texts lines{debugLine("Trying to connect.."),
                    debugLine("Proxy setting m_bUseIEConfig = " +
                              std::to_string(m_connection.m_bUseIEConfig))};
        if (m_connection.IsLogonTimeoutUsed()) {
            lines.push_back(debugLine("Connecting with timeout " +
                                      std::to_string(m_connection.GetLogonTimeout()) + "."));
        }
        if (result() != 0) {
            lines.push_back(infoLine("Unable to connect to server.corp on port 8080."));
        }
        return lines;
    }

  private:
    void request() {
        m_trace.push_back(option(CURLOPT_URL, "http://server.corp:8080/SiteStat.xml"));
        m_trace.push_back(option(CURLOPT_NOBODY, 1L));
    }

    void perform() {
        m_trace.emplace_back("perform");
        m_trace.emplace_back("getinfo RESPONSE_CODE");
    }

    void ask() {
        request();
        perform();
    }

    void askThroughTheAlternateProxy(Probe second) {
        if (!m_connection.m_bAllowUserToConfigureProxy) {
            return;
        }
        request();
        m_trace.push_back(option(CURLOPT_PROXY, "proxy.corp"));
        m_trace.push_back(option(CURLOPT_PROXYPORT, 3128L));
        if (m_connection.m_bAltUseProxyAuthentication) {
            m_trace.push_back(option(CURLOPT_PROXYUSERPWD, "alt:sec"));
            m_trace.push_back(option(CURLOPT_PROXYAUTH, -17L));
        }
        perform();
        m_last = second;
    }

    const CHttpConnection& m_connection;
    Texts m_trace;
    Probe m_last{};
};

}  // namespace

TEST(HttpConnection, Construction_SetsProtocolAndPortAndIsLogged) {
    {
        const CHttpConnection connection;
        EXPECT_EQ(connection.GetProtocol(), voInetProtocolHttp);
        EXPECT_EQ(connection.m_nPort, 80);
        EXPECT_THAT(logLines(), ElementsAre(infoLine("HTTP Session initialized")));
    }
    EXPECT_THAT(logLines(),
                ElementsAre(infoLine("HTTP Session initialized"), infoLine("HTTP Session closed")));
    EXPECT_FALSE(CHttpConnection::m_bShutdown);
}

TEST(HttpConnection, CheckOptions_WantsSiteHostAndPort) {
    for (const bool site : {false, true}) {
        for (const bool host : {false, true}) {
            for (const int port : {-1, 0, 1, 80}) {
                CHttpConnection connection;
                connection.m_strSite = site ? L"site" : L"";
                connection.m_strHost = host ? L"host" : L"";
                connection.m_nPort = port;
                EXPECT_EQ(connection.CheckOptions(), site && host && port >= 1)
                    << site << host << port;
            }
        }
    }
}

TEST(HttpConnection, AuthenticationFailureCodes_AreExactly401And403And407) {
    CHttpConnection connection;
    for (int status = -1; status < 1000; ++status) {
        EXPECT_EQ(connection.IsAuthenticationFailureCode(status),
                  status == 401 || status == 403 || status == 407)
            << status;
    }
}

TEST(HttpConnection, LogOut_AlwaysSucceedsAndPlainUploadIsNeverSupported) {
    CHttpConnection connection;
    EXPECT_EQ(connection.LogOut(), voInetErrorSuccess);
    EXPECT_EQ(connection.UploadFileWithConnSpec(connMethodIP, L"a", L"b", nullptr),
              voInetErrorNotSupported);
    EXPECT_EQ(connection.UploadFileWithConnSpec(connMethodNone, L"", L"", nullptr),
              voInetErrorNotSupported);
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
}

TEST_F(HttpLogon, IncompleteOptions_AreRefusedBeforeAnyNetworkActivity) {
    activate("server.corp", 0);
    EXPECT_EQ(logon(true, 5), voInetErrorBadOptions);
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
    EXPECT_THAT(network().calls(), IsEmpty());
    EXPECT_THAT(logLines(), IsEmpty());
    EXPECT_TRUE(connection.IsLogonTimeoutUsed());
    EXPECT_EQ(connection.GetLogonTimeout(), 5U);
}

TEST_F(HttpLogon, EverySequenceOfAnswers_FollowsTheRules) {
    Choices::forAll([this](Choices& choices) {
        connection.m_bAllowUserToConfigureProxy = choices.pick(2);
        connection.m_bAltUseProxyAuthentication = choices.pick(2);
        connection.m_bUseIEConfig = choices.pick(2);
        const bool useTimeout = choices.pick(2);
        const auto first = choices.of(probes());
        const bool again = connection.m_bAllowUserToConfigureProxy &&
                           (first.code != CURLE_OK || isError(first.status));
        const auto second = again ? choices.of(probes()) : Probe{};
        curlDouble().play(reply(first));
        if (again) {
            curlDouble().play(reply(second));
        }
        curlDouble().clearTrace();
        clearLog();
        const auto result = logon(useTimeout, 42);
        const ProbeModel model(connection, first, second);
        ASSERT_EQ(result, model.result()) << first.code << " " << first.status;
        ASSERT_EQ(curlDouble().trace(), model.trace());
        ASSERT_EQ(logLines(), model.log());
        ASSERT_EQ(curlDouble().unplayedReplies(), 0U);
    });
}

TEST_F(HttpLogon, ServerThatRefuses_IsReachableForAuthenticationCodesAlone) {
    for (const auto& [status, expected] :
         {std::pair(404L, -1), std::pair(401L, 0), std::pair(403L, 0), std::pair(407L, 0)}) {
        curlDouble().play(answer(status));
        EXPECT_EQ(logon(), expected) << status;
    }
}

TEST_F(HttpLogon, ProbeUrl_HasTheRelativePathBetweenSlashes) {
    EXPECT_EQ(probeUrl(), "http://server.corp:8080/SiteStat.xml");
    connection.SetOption(voInetOptionRelativePath, std::wstring(L"dir"));
    EXPECT_EQ(probeUrl(), "http://server.corp:8080/dir/SiteStat.xml");
    connection.SetOption(voInetOptionRelativePath, std::wstring(L"a/b/"));
    EXPECT_EQ(probeUrl(), "http://server.corp:8080/a/b//SiteStat.xml");
    connection.SetOption(voInetOptionRelativePath, std::wstring(L"\u00FC"));
    EXPECT_EQ(probeUrl(), "http://server.corp:8080/\xC3\xBC/SiteStat.xml");
}

TEST_F(HttpLogon, ProbeUrl_BracketsIpv6Hosts) {
    activate("fe80::1", 80);
    EXPECT_EQ(probeUrl(), "http://[fe80::1]:80/SiteStat.xml");
}

TEST_F(HttpLogon, ProbeUrl_EndsAtTheFirstBlank) {
    connection.SetOption(voInetOptionRelativePath, std::wstring(L"my dir"));
    EXPECT_EQ(probeUrl(), "http://server.corp:8080/my");
    connection.SetOption(voInetOptionRelativePath, std::wstring(L"my\tdir"));
    EXPECT_EQ(probeUrl(), "http://server.corp:8080/my");
}

TEST_F(HttpLogon, ProbeUrl_IsPlainHttpWithTheActivePortAlsoWithSsl) {
    connection.SetOption(voInetOptionUseSSL, true);
    connection.SetOption(voInetOptionSslPort, 443);
    EXPECT_EQ(probeUrl(), "http://server.corp:8080/SiteStat.xml");
}

TEST_F(HttpLogon, ProbeUrl_IsNotTouchedByTheProgramsLocale) {
    const OddLocale locale;
    EXPECT_EQ(probeUrl(), "http://server.corp:8080/SiteStat.xml");
}

TEST_F(HttpLogon, AbsurdlyLongHostAndPath_AreHandedOnWhole) {
    const std::string host(1 << 20, 'h');
    activate(host);
    EXPECT_EQ(probeUrl(), "http://" + host + ":8080/SiteStat.xml");
    connection.SetOption(voInetOptionRelativePath, std::wstring(1 << 20, L'p'));
    EXPECT_EQ(probeUrl(),
              "http://" + host + ":8080/" + std::string(1 << 20, 'p') + "/SiteStat.xml");
}

TEST_F(HttpLogon, IllFormedSettings_ReachCurlWithReplacementCharacters) {
    connection.SetOption(voInetOptionRelativePath, std::wstring(1, static_cast<wchar_t>(0xD800)));
    EXPECT_EQ(probeUrl(), "http://server.corp:8080/\xEF\xBF\xBD/SiteStat.xml");
}

TEST_F(HttpLogon, ExemptHost_SwitchesTheProxyOffForTheLifeOfTheObject) {
    network().resolve("server.corp", {"10.0.0.1"});
    connection.m_bUseProxy = connection.m_bUseProxyAuthentication = true;
    connection.m_bUseIEConfig = true;
    connection.m_strExclusionList_utf8_rep = "other;server.corp";
    curlDouble().play(answer(200));
    EXPECT_EQ(logon(), voInetErrorSuccess);
    EXPECT_FALSE(connection.m_bUseProxy || connection.m_bUseProxyAuthentication ||
                 connection.m_bUseIEConfig);
    EXPECT_THAT(logLines("info"),
                ElementsAre(infoLine("Proxy Server: proxy.corp is By passed for this Host: "
                                     "server.corp, ByPassList: other;server.corp")));
    EXPECT_THAT(curlDouble().options(), Not(Contains(HasSubstr("proxy.corp"))));
    connection.m_strExclusionList_utf8_rep.clear();
    curlDouble().play(answer(200));
    logon();
    EXPECT_FALSE(connection.m_bUseProxy);
}

TEST_F(HttpLogon, HostThatIsNotExempt_KeepsTheProxy) {
    network().resolve("server.corp", {"10.0.0.1"});
    network().resolve("other", {"10.0.0.2"});
    connection.m_bUseProxy = connection.m_bUseProxyAuthentication = true;
    connection.m_strExclusionList_utf8_rep = "other";
    connection.m_bBypassLocal = true;
    curlDouble().play(answer(200));
    logon();
    EXPECT_TRUE(connection.m_bUseProxy && connection.m_bUseProxyAuthentication);
    EXPECT_THAT(logLines("info"), IsEmpty());
    EXPECT_THAT(curlDouble().options(), Contains(option(CURLOPT_PROXY, "proxy.corp")));
}

TEST_F(HttpLogon, LocalHostWithBypassLocal_SwitchesTheProxyOff) {
    activate("single");
    connection.m_bUseProxy = connection.m_bBypassLocal = true;
    curlDouble().play(answer(200));
    logon();
    EXPECT_FALSE(connection.m_bUseProxy);
    EXPECT_TRUE(connection.m_bBypassLocal);
}

TEST_F(HttpLogon, WithoutAProxy_NobodyAsksForAnExemption) {
    connection.m_strExclusionList_utf8_rep = "server.corp";
    connection.m_bUseProxyAuthentication = true;
    curlDouble().play(answer(200));
    logon();
    EXPECT_TRUE(connection.m_bUseProxyAuthentication);
    EXPECT_THAT(network().calls("addresses"), IsEmpty());
}

TEST_F(HttpLogon, Ipv6AlternateProxy_GetsScopeAndBrackets) {
    network().resolve("fe80::9", {"fe80::9"});
    network().scope("fe80::9", 9);
    connection.m_strProxy = L"fe80::9";
    connection.m_bAllowUserToConfigureProxy = true;
    curlDouble().play(failure(CURLE_COULDNT_CONNECT));
    curlDouble().play(answer(200));
    EXPECT_EQ(logon(), voInetErrorSuccess);
    EXPECT_THAT(curlDouble().options(),
                testing::IsSupersetOf(
                    {option(CURLOPT_ADDRESS_SCOPE, 9L), option(CURLOPT_PROXY, "[fe80::9]")}));
}

TEST_F(HttpLogon, CurlWithoutAHandle_FailsWithoutHarm) {
    for (const bool allow : {false, true}) {
        connection.m_bAllowUserToConfigureProxy = allow;
        curlDouble().failInits(1);
        EXPECT_EQ(logon(), voInetErrorTransferFailed);
        EXPECT_THAT(logLines("info"),
                    Contains(infoLine("Unable to connect to server.corp on port 8080.")));
    }
}

TEST_F(HttpLogon, ThroughThePublicLoop_TriesTheNextHostFormAfterAFailure) {
    connection.SetOption(voInetOptionHostIP, std::wstring(L"10.0.0.1:81"));
    connection.SetOption(voInetOptionHostFqdn, std::wstring(L"server.corp:82"));
    curlDouble().play(answer(500));
    curlDouble().play(answer(200));
    EXPECT_EQ(connection.Logon(false, 0), voInetErrorSuccess);
    EXPECT_EQ(curlDouble().requests().at(0).text(CURLOPT_URL), "http://10.0.0.1:81/SiteStat.xml");
    EXPECT_EQ(curlDouble().requests().at(1).text(CURLOPT_URL),
              "http://server.corp:82/SiteStat.xml");
    EXPECT_THAT(logLines("info"), Contains(infoLine("Unable to connect to 10.0.0.1 on port 81.")));
}
