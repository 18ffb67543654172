#include "voinet/cnetconnection.h"

#include "support/curldouble.h"
#include "support/logcapture.h"
#include "support/networkdouble.h"
#include "support/recordingsink.h"
#include "support/scriptedconnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct Rule {
    const char* name;
    bool (CNetConnection::*ask)(voInetError) const;
    /// The results named by the rule, and whether they are those that move on.
    std::set<int> named;
    bool namedMoveOn;
};

const std::vector<Rule>& rules() {
    static const std::vector<Rule> kAll{
        {"download",
         &CNetConnection::ShouldUseNextConnectionMethod,
         {-88, -60, -26, -22, -8, -7, -1},
         true},
        {"upload",
         &CNetConnection::ShouldUseNextConnectionMethodForUploading,
         {-95, -14, -13, -2, 0, 7, 8, 9, 12, 13, 22},
         false},
        {"logon",
         &CNetConnection::ShouldUseNextConnectionMethodForLogon,
         {-2, 0, 7, 12, 22},
         false},
    };
    return kAll;
}

/// What ApplyHostInformation writes.
std::string active(const CNetConnection& connection) {
    return std::to_string(connection.GetCurrentConnectionMethod()) + " " +
           std::string(connection.m_strHost.begin(), connection.m_strHost.end()) + " " +
           connection.m_strHost_utf8_rep + " " + std::to_string(connection.m_nPort);
}

}  // namespace

TEST(ConnectionMethods, HaveTheirNumbers) {
    EXPECT_EQ(connMethodNone.kind, 0);
    EXPECT_EQ(connMethodIP.kind, 1);
    EXPECT_EQ(connMethodFqdn.kind, 2);
    EXPECT_EQ(connMethodNetBios.kind, 3);
}

TEST(Connection, AfterConstruction_HasNoMethodAndNoProtocol) {
    const ScriptedConnection connection;
    EXPECT_EQ(connection.GetCurrentConnectionMethod().kind, 0);
    EXPECT_EQ(connection.GetProtocol(), voInetProtocolNone);
    EXPECT_FALSE(connection.IsLogonTimeoutUsed());
    EXPECT_EQ(connection.GetLogonTimeout(), 0U);
}

TEST(FallbackRules, EveryResult_MovesOnAsItsRuleSays) {
    const ScriptedConnection connection;
    for (const auto& rule : rules()) {
        for (int result = -200; result <= 200; ++result) {
            const bool named = rule.named.count(result) != 0;
            EXPECT_EQ((connection.*rule.ask)(static_cast<voInetError>(result)),
                      named == rule.namedMoveOn)
                << rule.name << " " << result;
        }
    }
}

TEST(ApplyHostInformation, EachConfiguredKind_BecomesTheActiveHost) {
    ScriptedConnection connection;
    connection.configure(7);
    EXPECT_TRUE(connection.ApplyHostInformation(connMethodIP));
    EXPECT_EQ(active(connection), "1 ip ip 81");
    EXPECT_TRUE(connection.ApplyHostInformation(connMethodFqdn));
    EXPECT_EQ(active(connection), "2 fqdn fqdn 82");
    EXPECT_TRUE(connection.ApplyHostInformation(connMethodNetBios));
    EXPECT_EQ(active(connection), "3 nb nb 83");
}

TEST(ApplyHostInformation, WithSsl_EveryKindUsesTheSslPort) {
    ScriptedConnection connection;
    connection.configure(7);
    connection.m_bUseSSL = true;
    connection.m_nSslPort = 443;
    for (const auto method : {connMethodIP, connMethodFqdn, connMethodNetBios}) {
        EXPECT_TRUE(connection.ApplyHostInformation(method));
        EXPECT_EQ(connection.m_nPort, 443);
    }
}

TEST(ApplyHostInformation, UnconfiguredAndUnknownKinds_ChangeNothing) {
    for (const int kind : {-1, 0, 1, 2, 3, 4, 1000}) {
        ScriptedConnection connection;
        connection.configure(kind >= 1 && kind <= 3 ? 7U & ~(1U << (kind - 1)) : 7U);
        connection.SetActiveHostSettings(connMethodFqdn, L"before", "before", 5);
        EXPECT_FALSE(connection.ApplyHostInformation({kind})) << kind;
        EXPECT_EQ(active(connection), "2 before before 5") << kind;
    }
}

TEST(ApplyHostInformation, WideHostAlone_Decides) {
    ScriptedConnection connection;
    connection.m_strHostIP_utf8_rep = "narrow";
    EXPECT_FALSE(connection.ApplyHostInformation(connMethodIP));
    connection.m_strHostIP = L"wide";
    connection.m_strHostIP_utf8_rep.clear();
    EXPECT_TRUE(connection.ApplyHostInformation(connMethodIP));
    EXPECT_EQ(active(connection), "1 wide  0");
}

TEST(SetActiveHostSettings, EachCall_OverwritesHostTwinAndPort) {
    ScriptedConnection connection;
    EXPECT_TRUE(connection.SetActiveHostSettings(connMethodIP, L"a", "b", 1));
    EXPECT_EQ(active(connection), "1 a b 1");
    EXPECT_TRUE(connection.SetActiveHostSettings(connMethodNone, L"", "", 0));
    EXPECT_EQ(active(connection), "0   0");
    EXPECT_TRUE(connection.SetActiveHostSettings({77}, L"x", "y", -1));
    EXPECT_EQ(active(connection), "77 x y -1");
}

TEST(CheckOptionsWithConnSpec, IsTrueForTheConfiguredCurrentKindOnly) {
    for (int current = -1; current <= 4; ++current) {
        for (int asked = -1; asked <= 4; ++asked) {
            for (unsigned configured = 0; configured < 8; ++configured) {
                ScriptedConnection connection;
                connection.configure(configured);
                connection.SetActiveHostSettings({current}, L"h", "h", 1);
                const bool known = asked >= 1 && asked <= 3;
                const bool expected =
                    known && asked == current && (configured >> (asked - 1) & 1U) != 0;
                EXPECT_EQ(connection.CheckOptionsWithConnSpec({asked}), expected)
                    << current << " " << asked << " " << configured;
            }
        }
    }
}

TEST(Logon, Arguments_AreStoredAndHandedOn) {
    ScriptedConnection connection;
    connection.configure(1);
    EXPECT_EQ(connection.Logon(true, 4000000000U), voInetErrorSuccess);
    EXPECT_TRUE(connection.IsLogonTimeoutUsed());
    EXPECT_EQ(connection.GetLogonTimeout(), 4000000000U);
    EXPECT_TRUE(connection.useTimeout);
    EXPECT_EQ(connection.timeout, 4000000000U);
}

TEST(Logon, OnlyANetBiosHost_IsUsedAtOnce) {
    ScriptedConnection connection;
    connection.configure(4);
    EXPECT_EQ(connection.Logon(false, 0), voInetErrorSuccess);
    EXPECT_THAT(connection.calls, ElementsAre("logon 3 at nb:83"));
}

TEST(Logon, NoHostAtAll_SucceedsWithoutTryingAnything) {
    ScriptedConnection connection;
    EXPECT_EQ(connection.Logon(true, 5), voInetErrorSuccess);
    EXPECT_THAT(connection.calls, IsEmpty());
    EXPECT_TRUE(connection.IsLogonTimeoutUsed());
    EXPECT_EQ(connection.GetCurrentConnectionMethod().kind, 0);
}

TEST(Download, AccessDeniedOnTheIpHost_LogsOutLogsOnWithTheFqdnAndRetries) {
    ScriptedConnection connection;
    connection.configure(7);
    connection.Logon(true, 9);
    connection.calls.clear();
    connection.answer = [&](const std::string& operation) {
        return operation == "download" && connection.GetCurrentConnectionMethod() == connMethodIP
                   ? voInetErrorAccessDenied
                   : voInetErrorSuccess;
    };
    bool resume = false;
    EXPECT_EQ(connection.DownloadFile(L"a", L"b", nullptr, nullptr, resume, true),
              voInetErrorSuccess);
    EXPECT_THAT(connection.calls, ElementsAre("download 1 at ip:81", "log out",
                                              "logon 2 at fqdn:82", "download 2 at fqdn:82"));
    EXPECT_TRUE(connection.useTimeout);
    EXPECT_EQ(connection.timeout, 9U);
}

TEST(Download, FileNotFound_IsReturnedAtOnce) {
    ScriptedConnection connection;
    connection.configure(7);
    connection.ApplyHostInformation(connMethodIP);
    connection.answer = [](const std::string&) { return voInetErrorFileNotFound; };
    bool resume = false;
    EXPECT_EQ(connection.DownloadFile(L"a", L"b", nullptr, nullptr, resume, true),
              voInetErrorFileNotFound);
    EXPECT_THAT(connection.calls, ElementsAre("download 1 at ip:81"));
}

TEST(Download, FailureOnTheLastKind_IsNotRetried) {
    ScriptedConnection connection;
    connection.configure(7);
    connection.ApplyHostInformation(connMethodNetBios);
    connection.answer = [](const std::string&) { return voInetErrorTransferFailed; };
    bool resume = false;
    EXPECT_EQ(connection.DownloadFile(L"a", L"b", nullptr, nullptr, resume, true),
              voInetErrorTransferFailed);
    EXPECT_THAT(connection.calls, ElementsAre("download 3 at nb:83"));
}

TEST(SetNextConnectionMethod, KindOutsideTheTable_StaysAndLogsOnAgain) {
    ScriptedConnection connection;
    connection.configure(7);
    connection.SetActiveHostSettings({77}, L"h", "h", 5);
    EXPECT_TRUE(connection.SetNextConnectionMethod());
    EXPECT_THAT(connection.calls, ElementsAre("log out", "logon 77 at h:5"));
    EXPECT_FALSE(connection.SetNextConnectionMethodForUploading());
    EXPECT_EQ(active(connection), "77 h h 5");
}

TEST(SetNextConnectionMethodForUploading, EachForm_FollowsWithoutLoggingOutOrOn) {
    ScriptedConnection connection;
    connection.configure(5);
    EXPECT_TRUE(connection.SetNextConnectionMethodForUploading());
    EXPECT_EQ(active(connection), "1 ip ip 81");
    EXPECT_FALSE(connection.SetNextConnectionMethodForUploading()) << "it is not configured";
    EXPECT_EQ(active(connection), "2 ip ip 81");
    EXPECT_TRUE(connection.SetNextConnectionMethodForUploading());
    EXPECT_EQ(active(connection), "3 nb nb 83");
    EXPECT_FALSE(connection.SetNextConnectionMethodForUploading()) << "it is the last one";
    EXPECT_THAT(connection.calls, IsEmpty());
}

TEST(Transfers, Arguments_ArePassedThroughUnchanged) {
    ScriptedConnection connection;
    connection.configure(1);
    RecordingSink sink;
    long offset = 5;
    bool resume = true;
    const bool useCache = false;
    connection.DownloadFile(L"local", L"remote", &sink, &offset, resume, useCache);
    EXPECT_THAT(connection.texts, ElementsAre(L"local", L"remote"));
    EXPECT_THAT(connection.pointers, ElementsAre(&sink, &offset, &resume, &useCache));
    connection.UploadFile(L"source", L"destination", &sink);
    EXPECT_THAT(connection.texts, ElementsAre(L"source", L"destination"));
    EXPECT_THAT(connection.pointers, ElementsAre(&sink));
    connection.UploadFileResponse(L"request", L"path", L"response", &sink);
    EXPECT_THAT(connection.texts, ElementsAre(L"request", L"path", L"response"));
    EXPECT_THAT(connection.pointers, ElementsAre(&sink));
}

TEST(UploadResponse, GuidExists_IsReturnedWithoutMovingOn) {
    ScriptedConnection connection;
    connection.configure(7);
    connection.answer = [](const std::string&) { return voInetErrorGuidExists; };
    EXPECT_EQ(connection.UploadFileResponse(L"a", L"b", L"c", nullptr), voInetErrorGuidExists);
    EXPECT_THAT(connection.calls, ElementsAre("response 1 at ip:81"));
}

TEST(UploadResponse, NoIpHost_SucceedsWithoutSending) {
    ScriptedConnection connection;
    connection.configure(6);
    EXPECT_EQ(connection.UploadFileResponse(L"a", L"b", L"c", nullptr), voInetErrorSuccess);
    EXPECT_THAT(connection.calls, IsEmpty());
}

TEST(SetAutoDetectProxy, WithAHandle_LogsTheFlagAndFindsNothing) {
    ScriptedConnection connection;
    auto* handle = curl_easy_init();
    curlDouble().clearTrace();
    std::string proxy = "untouched";
    for (const bool flag : {false, true}) {
        connection.m_bUseIEConfig = flag;
        clearLog();
        EXPECT_FALSE(connection.setAutoDetectProxy(handle, proxy, L"http://h/"));
        EXPECT_THAT(logLines(), ElementsAre(debugLine("Proxy setting m_bUseIEConfig = " +
                                                      std::to_string(flag))));
    }
    EXPECT_EQ(proxy, "untouched");
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
    curl_easy_cleanup(handle);
}

TEST(ProxyChoice, NullHandle_IsFalseWithoutALogLine) {
    ScriptedConnection connection;
    connection.m_strProxy = L"proxy";
    std::string proxy = "untouched";
    EXPECT_FALSE(connection.setAutoDetectProxy(nullptr, proxy, L""));
    EXPECT_FALSE(connection.setAlternateProxy(nullptr, proxy));
    EXPECT_EQ(proxy, "untouched");
    EXPECT_THAT(logLines(), IsEmpty());
}

namespace {

/// The options that setAlternateProxy sets for a proxy, and the proxy that it names.
std::vector<std::string> alternate(const std::string& host, bool credentials) {
    ScriptedConnection connection;
    connection.m_strProxy.assign(host.begin(), host.end());
    connection.m_strProxy_utf8_rep = host;
    connection.m_nProxyPort = 3128;
    connection.m_bAltUseProxyAuthentication = credentials;
    connection.m_strAltProxyUserPwd_utf8_rep = "alt:sec";
    auto* handle = curl_easy_init();
    curlDouble().clearTrace();
    std::string proxy;
    EXPECT_TRUE(connection.setAlternateProxy(handle, proxy));
    auto options = curlDouble().options();
    options.push_back(proxy);
    curl_easy_cleanup(handle);
    return options;
}

}  // namespace

TEST(SetAlternateProxy, WithoutAltCredentials_LeavesTheHandlesOwn) {
    EXPECT_THAT(alternate("proxy.corp", false),
                ElementsAre(option(CURLOPT_PROXY, "proxy.corp"), option(CURLOPT_PROXYPORT, 3128L),
                            "proxy.corp"));
}

TEST(SetAlternateProxy, WithAltCredentials_SetsThem) {
    EXPECT_THAT(alternate("proxy.corp", true),
                ElementsAre(option(CURLOPT_PROXY, "proxy.corp"), option(CURLOPT_PROXYPORT, 3128L),
                            option(CURLOPT_PROXYUSERPWD, "alt:sec"),
                            option(CURLOPT_PROXYAUTH, -17L), "proxy.corp"));
}

TEST(SetAlternateProxy, Ipv6Proxy_GetsBracketsAndItsScopeFirst) {
    network().resolve("fe80::1", {"fe80::1"});
    network().scope("fe80::1", 3);
    EXPECT_THAT(alternate("fe80::1", false),
                ElementsAre(option(CURLOPT_ADDRESS_SCOPE, 3L), option(CURLOPT_PROXY, "[fe80::1]"),
                            option(CURLOPT_PROXYPORT, 3128L), "[fe80::1]"));
    EXPECT_THAT(network().calls("list"), ElementsAre("list of fe80::1, service ''"));
}
