#include "support/choices.h"
#include "support/curldouble.h"
#include "support/curlsetupmodel.h"
#include "support/logcapture.h"
#include "support/networkdouble.h"
#include "support/oddlocale.h"
#include "voinet/FTPConnection.h"

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

constexpr auto* kAnonymousPassword = L"anonymous@example.com";
constexpr auto* kRefusal = "info voInet: Unable to connect to server.corp on port 2121.";

/// An FTP connection that is ready for a logon at ftp://server.corp:2121.
class FtpLogon : public testing::Test {
  protected:
    FtpLogon() {
        connection.SetOption(voInetOptionSite, std::wstring(L"site"));
        activate("server.corp");
        connection.SetOption(voInetOptionUser, std::wstring(L"user"));
        connection.SetOption(voInetOptionPassword, std::wstring(L"password"));
        connection.m_strProxy = L"proxy.corp";
        connection.m_strProxy_utf8_rep = "proxy.corp";
        connection.m_nProxyPort = 3128;
        connection.m_strProxyUserPwd_utf8_rep = "proxy:sec";
        connection.m_strAltProxyUserPwd_utf8_rep = "alt:sec";
        clearLog();
    }

    void activate(const std::string& host, int port = 2121) {
        connection.SetActiveHostSettings(connMethodIP, std::wstring(host.begin(), host.end()), host,
                                         port);
    }

    voInetError logon(bool useTimeout = false, unsigned seconds = 0) {
        return connection.LogonWithConnSpec(connMethodIP, useTimeout, seconds);
    }

    voInetError logonAs(const std::wstring& user, const std::wstring& password) {
        connection.m_strUser = user;
        connection.m_strUser_utf8_rep.assign(user.begin(), user.end());
        connection.m_strPassword = password;
        connection.m_strPassword_utf8_rep.assign(password.begin(), password.end());
        connection.m_bUseAuthentication = !user.empty();
        curlDouble().clearTrace();
        curlDouble().play(answer(226));
        return logon();
    }

    /// The URL of the one probe of a logon that succeeds.
    std::string probeUrl() {
        curlDouble().clearTrace();
        curlDouble().play(answer(226));
        EXPECT_EQ(logon(), voInetErrorSuccess);
        EXPECT_EQ(curlDouble().requests().size(), 1U);
        return curlDouble().requests().front().text(CURLOPT_URL);
    }

    CFtpConnection connection;
};

struct Probe {
    CURLcode code;
    long status;
};

/// A first reply tells its status as the server's, a second one as the proxy's. The other place
/// holds a status that would change the result.
Reply firstReply(const Probe& probe) {
    return answer(probe.status).connectCode(probe.status > 400 ? 200 : 599).result(probe.code);
}

Reply secondReply(const Probe& probe) {
    return answer(probe.status > 400 ? 226 : 599).connectCode(probe.status).result(probe.code);
}

bool isRefusal(long status) {
    return status > 400 && status != 401 && status != 403 && status != 407;
}

bool asksForTheAlternate(const Probe& probe) {
    return probe.code != CURLE_OK || isRefusal(probe.status);
}

const std::vector<Probe>& probes() {
    static const std::vector<Probe> kAll{{CURLE_OK, 0},
                                         {CURLE_OK, 226},
                                         {CURLE_OK, 350},
                                         {CURLE_OK, 399},
                                         {CURLE_OK, 400},
                                         {CURLE_OK, 401},
                                         {CURLE_OK, 402},
                                         {CURLE_OK, 403},
                                         {CURLE_OK, 404},
                                         {CURLE_OK, 407},
                                         {CURLE_OK, 421},
                                         {CURLE_OK, 530},
                                         {CURLE_OK, 550},
                                         {CURLE_COULDNT_CONNECT, 0},
                                         {CURLE_LOGIN_DENIED, 0},
                                         {CURLE_LOGIN_DENIED, 530},
                                         {CURLE_LOGIN_DENIED, 401},
                                         {CURLE_COULDNT_RESOLVE_PROXY, 0},
                                         {CURLE_COULDNT_RESOLVE_HOST, 0},
                                         {CURLE_OPERATION_TIMEDOUT, 0},
                                         {CURLE_ABORTED_BY_CALLBACK, 550},
                                         {static_cast<CURLcode>(10), 226}};
    return kAll;
}

/// The rules of the probe.
class ProbeModel {
  public:
    ProbeModel(const CFtpConnection& connection, Probe first, Probe second)
        : m_connection(connection),
          m_trace(expectedSetup(connection, nullptr, false)),
          m_last(first) {
        request();
        perform("getinfo RESPONSE_CODE");
        if (connection.m_bAllowUserToConfigureProxy && asksForTheAlternate(first)) {
            request();
            useAlternate();
            perform("getinfo HTTP_CONNECTCODE");
            m_last = second;
        }
        m_trace.emplace_back("cleanup");
    }

    int result() const {
        const int mapped = mapCurlErrorCode(m_last.code);
        return mapped == 0 && isRefusal(m_last.status) ? -1 : mapped;
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
            lines.emplace_back(kRefusal);
        }
        return lines;
    }

  private:
    void request() {
        m_trace.push_back(option(CURLOPT_URL, "ftp://server.corp:2121"));
        m_trace.push_back(option(CURLOPT_NOBODY, 1L));
    }

    void perform(const std::string& question) {
        m_trace.emplace_back("perform");
        m_trace.push_back(question);
    }

    void useAlternate() {
        m_trace.push_back(option(CURLOPT_PROXY, "proxy.corp"));
        m_trace.push_back(option(CURLOPT_PROXYPORT, 3128L));
        if (m_connection.m_bAltUseProxyAuthentication) {
            m_trace.push_back(option(CURLOPT_PROXYUSERPWD, "alt:sec"));
            m_trace.push_back(option(CURLOPT_PROXYAUTH, -17L));
        }
    }

    const CFtpConnection& m_connection;
    Texts m_trace;
    Probe m_last;
};

}  // namespace

TEST(FtpConnection, Construction_SetsProtocolAndPortAndIsLogged) {
    {
        const CFtpConnection connection;
        EXPECT_EQ(connection.GetProtocol(), voInetProtocolFtp);
        EXPECT_EQ(static_cast<int>(connection.GetProtocol()), 1);
        EXPECT_EQ(connection.m_nPort, 21);
        EXPECT_THAT(logLines(), ElementsAre(infoLine("FTP Session initialized")));
    }
    EXPECT_THAT(logLines(),
                ElementsAre(infoLine("FTP Session initialized"), infoLine("FTP Session closed")));
}

TEST(FtpConnection, CheckOptions_WantsSiteHostPortAndUser) {
    for (const bool site : {false, true}) {
        for (const bool host : {false, true}) {
            for (const bool user : {false, true}) {
                for (const int port : {-1, 0, 1, 21}) {
                    CFtpConnection connection;
                    connection.m_strSite = site ? L"site" : L"";
                    connection.m_strHost = host ? L"host" : L"";
                    connection.m_strUser = user ? L"user" : L"";
                    connection.m_nPort = port;
                    EXPECT_EQ(connection.CheckOptions(), site && host && user && port >= 1)
                        << site << host << user << port;
                }
            }
        }
    }
}

TEST(FtpConnection, AuthenticationFailureCodes_AreExactly401And403And407) {
    CFtpConnection connection;
    for (int status = -1; status < 1000; ++status) {
        EXPECT_EQ(connection.IsAuthenticationFailureCode(status),
                  status == 401 || status == 403 || status == 407)
            << status;
    }
}

TEST(FtpConnection, LogOutAndAbort_AnswerZeroAtAnyTime) {
    CFtpConnection connection;
    EXPECT_EQ(connection.LogOut(), voInetErrorSuccess);
    EXPECT_EQ(connection.Abort(), 0);
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
}

TEST(FtpConnection, Uploads_AreRefusedWithTwoDifferentResults) {
    CFtpConnection connection;
    EXPECT_EQ(connection.UploadFileWithConnSpec(connMethodIP, L"a", L"b", nullptr),
              voInetErrorNotSupported);
    EXPECT_EQ(connection.UploadFileResponseWithConnSpec(connMethodIP, L"a", L"b", L"c", nullptr),
              voInetErrorFailed);
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
}

TEST(FtpConnection, AnonymousUser_IsTheNameInAnyLetterCaseAndNothingElse) {
    CFtpConnection connection;
    for (const auto* user : {L"anonymous", L"Anonymous", L"ANONYMOUS", L"aNoNyMoUs"}) {
        connection.m_strUser = user;
        EXPECT_TRUE(connection.IsAnonymousUser());
        EXPECT_EQ(connection.m_strUser, user);
    }
    for (const auto* user : {L"", L"anonymou", L"anonymouss", L" anonymous", L"user",
                             L"an\u00F6nymous", L"\U0001F600nonymous"}) {
        connection.m_strUser = user;
        EXPECT_FALSE(connection.IsAnonymousUser());
    }
    connection.m_strUser = std::wstring(L"anonymous\0", 10);
    EXPECT_FALSE(connection.IsAnonymousUser());
    connection.m_strUser = std::wstring(1, static_cast<wchar_t>(-7)) + L"nonymous";
    EXPECT_FALSE(connection.IsAnonymousUser());
}

TEST_F(FtpLogon, EmptyUser_BecomesAnonymousForGood) {
    EXPECT_EQ(logonAs(L"", L""), voInetErrorSuccess);
    EXPECT_EQ(connection.m_strUser, L"anonymous");
    EXPECT_EQ(connection.m_strUser_utf8_rep, "anonymous");
    EXPECT_EQ(connection.m_strPassword, kAnonymousPassword);
    EXPECT_EQ(connection.m_strPassword_utf8_rep, "anonymous@example.com");
    EXPECT_TRUE(connection.m_bUseAuthentication);
    EXPECT_THAT(curlDouble().options(),
                testing::IsSupersetOf({option(CURLOPT_USERNAME, "anonymous"),
                                       option(CURLOPT_PASSWORD, "anonymous@example.com")}));
}

TEST_F(FtpLogon, EmptyUserWithAPassword_BecomesAnonymousAndKeepsThePassword) {
    EXPECT_EQ(logonAs(L"", L"own"), voInetErrorSuccess);
    EXPECT_EQ(connection.m_strUser, L"anonymous");
    EXPECT_EQ(connection.m_strPassword, L"own");
}

TEST_F(FtpLogon, AnonymousUserInAnotherLetterCase_GetsThePasswordAndKeepsTheName) {
    EXPECT_EQ(logonAs(L"Anonymous", L""), voInetErrorSuccess);
    EXPECT_EQ(connection.m_strUser, L"Anonymous");
    EXPECT_EQ(connection.m_strPassword, kAnonymousPassword);
}

TEST_F(FtpLogon, AnonymousUserWithAPassword_KeepsIt) {
    for (const auto* user : {L"anonymous", L"Anonymous"}) {
        EXPECT_EQ(logonAs(user, L"own"), voInetErrorSuccess);
        EXPECT_EQ(connection.m_strUser, user);
        EXPECT_EQ(connection.m_strPassword, L"own");
    }
}

TEST_F(FtpLogon, NamedUserWithoutAPassword_GetsNone) {
    EXPECT_EQ(logonAs(L"user", L""), voInetErrorSuccess);
    EXPECT_EQ(connection.m_strUser, L"user");
    EXPECT_EQ(connection.m_strPassword, L"");
}

TEST_F(FtpLogon, IncompleteOptions_AreRefusedBeforeAnyNetworkActivity) {
    activate("server.corp", 0);
    connection.m_strUser.clear();
    connection.m_strPassword.clear();
    EXPECT_EQ(logon(true, 5), voInetErrorBadOptions);
    activate("", 21);
    EXPECT_EQ(logon(true, 5), voInetErrorBadOptions);
    activate("server.corp");
    connection.m_strSite.clear();
    EXPECT_EQ(logon(true, 5), voInetErrorBadOptions);
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
    EXPECT_THAT(network().calls(), IsEmpty());
    EXPECT_THAT(logLines(), IsEmpty());
    EXPECT_TRUE(connection.IsLogonTimeoutUsed());
    EXPECT_EQ(connection.GetLogonTimeout(), 5U);
    // The defaults of an anonymous user come before the check.
    EXPECT_EQ(connection.m_strUser, L"anonymous");
    EXPECT_EQ(connection.m_strPassword, kAnonymousPassword);
}

TEST_F(FtpLogon, EverySequenceOfAnswers_FollowsTheRules) {
    Choices::forAll([this](Choices& choices) {
        connection.m_bAllowUserToConfigureProxy = choices.pick(2);
        connection.m_bAltUseProxyAuthentication = choices.pick(2);
        connection.m_bUseIEConfig = choices.pick(2);
        const bool useTimeout = choices.pick(2);
        const auto first = choices.of(probes());
        const bool again = connection.m_bAllowUserToConfigureProxy && asksForTheAlternate(first);
        const auto second = again ? choices.of(probes()) : Probe{};
        curlDouble().play(firstReply(first));
        if (again) {
            curlDouble().play(secondReply(second));
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

TEST_F(FtpLogon, EveryCombinationOfProxyAndCredentials_SetsUpTheHandleAsForADownload) {
    const auto runs = Choices::forAll([this](Choices& choices) {
        connection.m_bUseProxy = choices.pick(2);
        connection.m_bUseIEConfig = choices.pick(2);
        connection.m_bUseProxyAuthentication = choices.pick(2);
        connection.m_bUseAuthentication = choices.pick(2);
        curlDouble().clearTrace();
        curlDouble().play(answer(226));
        ASSERT_EQ(logon(), voInetErrorSuccess);
        ASSERT_EQ(curlDouble().trace(), ProbeModel(connection, {CURLE_OK, 226}, {}).trace());
    });
    EXPECT_EQ(runs, 16U);
}

TEST_F(FtpLogon, EveryServerReply_AsksForTheAlternateOnlyAbove400) {
    connection.m_bAllowUserToConfigureProxy = true;
    for (long status = 0; status < 600; ++status) {
        curlDouble().clearTrace();
        curlDouble().serve([&](const Request&) { return answer(status).connectCode(200); });
        EXPECT_EQ(logon(), voInetErrorSuccess) << status;
        EXPECT_EQ(curlDouble().requests().size(), isRefusal(status) ? 2U : 1U) << status;
    }
}

TEST_F(FtpLogon, SecondAttempt_CountsTheProxysAnswerAlone) {
    connection.m_bAllowUserToConfigureProxy = true;
    for (const auto& [code, expected] :
         {std::pair(200L, 0), std::pair(0L, 0), std::pair(400L, 0), std::pair(401L, 0),
          std::pair(403L, 0), std::pair(407L, 0), std::pair(404L, -1), std::pair(502L, -1)}) {
        curlDouble().play(answer(530));
        curlDouble().play(answer(530).connectCode(code));
        EXPECT_EQ(logon(), expected) << code;
    }
}

TEST_F(FtpLogon, ProbeUrl_IsHostAndPortAlone) {
    EXPECT_EQ(probeUrl(), "ftp://server.corp:2121");
    connection.SetOption(voInetOptionRelativePath, std::wstring(L"dir"));
    EXPECT_EQ(probeUrl(), "ftp://server.corp:2121");
    activate("fe80::1", 21);
    EXPECT_EQ(probeUrl(), "ftp://[fe80::1]:21");
    activate("server corp", 21);
    EXPECT_EQ(probeUrl(), "ftp://server");
}

TEST_F(FtpLogon, ProbeUrl_IsNotTouchedByTheProgramsLocale) {
    const OddLocale locale;
    EXPECT_EQ(probeUrl(), "ftp://server.corp:2121");
}

TEST_F(FtpLogon, ExemptHost_SwitchesTheProxyOffForTheLifeOfTheObject) {
    network().resolve("server.corp", {"10.0.0.1"});
    connection.m_bUseProxy = connection.m_bUseProxyAuthentication = true;
    connection.m_bUseIEConfig = true;
    connection.m_strExclusionList_utf8_rep = "other;server.corp";
    curlDouble().play(answer(226));
    EXPECT_EQ(logon(), voInetErrorSuccess);
    EXPECT_FALSE(connection.m_bUseProxy || connection.m_bUseProxyAuthentication ||
                 connection.m_bUseIEConfig);
    EXPECT_THAT(logLines("info"),
                ElementsAre(infoLine("Proxy Server: proxy.corp is By passed for this Host: "
                                     "server.corp, ByPassList: other;server.corp")));
    EXPECT_THAT(curlDouble().options(), Not(Contains(HasSubstr("proxy.corp"))));
    connection.m_strExclusionList_utf8_rep.clear();
    curlDouble().play(answer(226));
    EXPECT_EQ(logon(), voInetErrorSuccess);
    EXPECT_FALSE(connection.m_bUseProxy);
}

TEST_F(FtpLogon, HostThatIsNotExempt_KeepsTheProxy) {
    network().resolve("server.corp", {"10.0.0.1"});
    network().resolve("other", {"10.0.0.2"});
    connection.m_bUseProxy = connection.m_bUseProxyAuthentication = true;
    connection.m_strExclusionList_utf8_rep = "other";
    connection.m_bBypassLocal = true;
    curlDouble().play(answer(226));
    EXPECT_EQ(logon(), voInetErrorSuccess);
    EXPECT_TRUE(connection.m_bUseProxy && connection.m_bUseProxyAuthentication);
    EXPECT_THAT(logLines("info"), IsEmpty());
    EXPECT_THAT(curlDouble().options(), Contains(option(CURLOPT_PROXY, "proxy.corp")));
}

TEST_F(FtpLogon, WithoutAProxy_NobodyAsksForAnExemption) {
    connection.m_strExclusionList_utf8_rep = "server.corp";
    connection.m_bUseProxyAuthentication = true;
    curlDouble().play(answer(226));
    EXPECT_EQ(logon(), voInetErrorSuccess);
    EXPECT_TRUE(connection.m_bUseProxyAuthentication);
    EXPECT_THAT(network().calls("addresses"), IsEmpty());
}

TEST_F(FtpLogon, Ipv6AlternateProxy_GetsScopeAndBrackets) {
    network().resolve("fe80::9", {"fe80::9"});
    network().scope("fe80::9", 9);
    connection.m_strProxy = L"fe80::9";
    connection.m_bAllowUserToConfigureProxy = true;
    curlDouble().play(failure(CURLE_COULDNT_CONNECT));
    curlDouble().play(answer(226).connectCode(200));
    EXPECT_EQ(logon(), voInetErrorSuccess);
    EXPECT_THAT(curlDouble().options(),
                testing::IsSupersetOf(
                    {option(CURLOPT_ADDRESS_SCOPE, 9L), option(CURLOPT_PROXY, "[fe80::9]")}));
}

TEST_F(FtpLogon, CurlWithoutAHandle_FailsWithoutHarm) {
    for (const bool allow : {false, true}) {
        connection.m_bAllowUserToConfigureProxy = allow;
        curlDouble().failInits(1);
        EXPECT_EQ(logon(), voInetErrorTransferFailed);
        EXPECT_THAT(logLines("info"), Contains(kRefusal));
        clearLog();
    }
}

TEST_F(FtpLogon, ThroughThePublicLoop_TriesTheNextHostFormAfterAFailure) {
    connection.SetOption(voInetOptionHostIP, std::wstring(L"10.0.0.1:81"));
    connection.SetOption(voInetOptionHostFqdn, std::wstring(L"server.corp:82"));
    curlDouble().play(answer(530));
    curlDouble().play(answer(226));
    EXPECT_EQ(connection.Logon(false, 0), voInetErrorSuccess);
    EXPECT_EQ(curlDouble().requests().at(0).text(CURLOPT_URL), "ftp://10.0.0.1:81");
    EXPECT_EQ(curlDouble().requests().at(1).text(CURLOPT_URL), "ftp://server.corp:82");
    EXPECT_THAT(logLines("info"), Contains(infoLine("Unable to connect to 10.0.0.1 on port 81.")));
}
