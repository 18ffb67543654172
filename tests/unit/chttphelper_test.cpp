#include "voinet/chttphelper.h"

#include "kvecomn/hostlog.h"
#include "support/choices.h"
#include "support/curldouble.h"
#include "support/curlsetupmodel.h"
#include "support/logcapture.h"
#include "support/networkdouble.h"
#include "support/scriptedconnection.h"
#include "support/temporaryfiles.h"
#include "voinet/callbacks.h"
#include "voinet/cbmgr.h"

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

/// A connection with a value in every setting that a set-up reads.
class FilledConnection : public ScriptedConnection {
  public:
    FilledConnection() {
        SetActiveHostSettings(connMethodIP, L"server.corp", "server.corp", 80);
        setProxy("proxy.corp");
        m_nProxyPort = 3128;
        m_strProxyUserPwd_utf8_rep = "pu:pp";
        setCredentials("us@er", "pa:ss%");
    }

    void setProxy(const std::string& host) {
        m_strProxy.assign(host.begin(), host.end());
        m_strProxy_utf8_rep = host;
    }

    void setCredentials(const std::string& user, const std::string& password) {
        m_strUser.assign(user.begin(), user.end());
        m_strUser_utf8_rep = user;
        m_strPassword.assign(password.begin(), password.end());
        m_strPassword_utf8_rep = password;
    }
};

/// The curl calls of one set-up.
std::vector<std::string> setUp(CNetConnection& connection, CallbackManager* manager = nullptr) {
    CConnectionHelper helper(&connection);
    curlDouble().clearTrace();
    void* handle = nullptr;
    helper.SetupCurlHandle(&handle, manager);
    EXPECT_NE(handle, nullptr);
    auto trace = curlDouble().trace();
    helper.FreeCurlHandle(handle);
    return trace;
}

enum class Detail { off, everything, curlOnly, otherOnly };

void setDetail(Detail detail) {
    hostLogSetDetailEnabled(detail == Detail::everything);
    hostLogSetDetailList(detail == Detail::curlOnly    ? std::vector<std::string>{"x", "curl"}
                         : detail == Detail::otherOnly ? std::vector<std::string>{"voInet", "CURL"}
                                                       : std::vector<std::string>{});
}

std::string pathOf(const std::string& relative, const std::string& path, int expected = 0) {
    ScriptedConnection connection;
    connection.m_strRelativePath.assign(relative.begin(), relative.end());
    connection.m_strRelativePath_utf8_rep = relative;
    std::string url = "before";
    EXPECT_EQ(CConnectionHelper(&connection).PrependRelativePathIfRequired(url, path), expected);
    return url;
}

/// The options that the scope rule sets for a host.
std::vector<std::string> scopeOptions(const std::string& host) {
    auto* handle = curl_easy_init();
    setAddressScopeIfRequired(handle, host);
    auto options = curlDouble().options();
    curl_easy_cleanup(handle);
    return options;
}

}  // namespace

TEST(SetupCurlHandle, EveryCombinationOfSettings_SetsItsOptionsInOrder) {
    const auto runs = Choices::forAll([](Choices& choices) {
        FilledConnection connection;
        connection.m_bUseProxy = choices.pick(2);
        connection.m_bUseIEConfig = choices.pick(2);
        connection.m_bUseProxyAuthentication = choices.pick(2);
        connection.m_bUseAuthentication = choices.pick(2);
        connection.m_protocol = choices.of(
            std::vector<voInetProtocol>{voInetProtocolHttp, voInetProtocolFtp, voInetProtocolNone});
        connection.Logon(choices.pick(2), 2147483);
        const auto detail = choices.of(std::vector<Detail>{Detail::off, Detail::everything,
                                                           Detail::curlOnly, Detail::otherOnly});
        setDetail(detail);
        const bool traced = detail == Detail::everything || detail == Detail::curlOnly;
        EXPECT_EQ(setUp(connection), expectedSetup(connection, nullptr, traced));
    });
    EXPECT_EQ(runs, 2U * 2 * 2 * 2 * 3 * 2 * 4);
}

TEST(SetupCurlHandle, PlainHttp_SetsExactlyTheseOptions) {
    ScriptedConnection connection;
    connection.m_protocol = voInetProtocolHttp;
    const void* none = nullptr;
    EXPECT_THAT(
        setUp(connection),
        ElementsAre(
            "init", "CURLOPT_PROXY=\"\"", "CURLOPT_NOPROGRESS=0",
            "CURLOPT_USERAGENT=\"Tessaro Agent\"", option(CURLOPT_WRITEFUNCTION, writeCallback),
            option(CURLOPT_WRITEDATA, none), option(CURLOPT_PROGRESSFUNCTION, progressCallback),
            option(CURLOPT_PROGRESSDATA, none), "CURLOPT_HTTPAUTH=-17",
            option(CURLOPT_READFUNCTION, readCallback), option(CURLOPT_READDATA, none),
            "CURLOPT_LOW_SPEED_LIMIT=1", "CURLOPT_LOW_SPEED_TIME=600", "CURLOPT_FOLLOWLOCATION=1",
            "CURLOPT_REDIR_PROTOCOLS=1", "CURLOPT_MAXREDIRS=5"));
}

TEST(SetupCurlHandle, Manager_IsTheUserDataOfAllThreeCallbacks) {
    const ScratchDirectory scratch;
    ScriptedConnection connection;
    CallbackManager manager(CallbackManager::TransferUpload, scratch.wideFile("f"), L"", L"", L"",
                            0, false);
    const auto trace = setUp(connection, &manager);
    EXPECT_EQ(trace, expectedSetup(connection, &manager, false));
    EXPECT_THAT(trace, Contains(option(CURLOPT_WRITEDATA, static_cast<const void*>(&manager))));
}

TEST(SetupCurlHandle, FtpAndOtherProtocols_GetNoRedirectOptions) {
    for (const auto protocol : {voInetProtocolFtp, voInetProtocolUnc, voInetProtocolNone}) {
        ScriptedConnection connection;
        connection.m_protocol = protocol;
        EXPECT_THAT(setUp(connection), Not(Contains(HasSubstr("REDIR"))));
    }
}

TEST(SetupCurlHandle, CurlInTheDetailList_TurnsTheTraceOnWithDetailOff) {
    ScriptedConnection connection;
    setDetail(Detail::curlOnly);
    EXPECT_THAT(setUp(connection), Contains(option(CURLOPT_DEBUGFUNCTION, trace_curl)));
    setDetail(Detail::off);
    EXPECT_THAT(setUp(connection), Not(Contains(HasSubstr("DEBUGFUNCTION"))));
}

TEST(SetupCurlHandle, CredentialsWithAProxy_AreEncodedAndJoined) {
    FilledConnection connection;
    connection.m_bUseAuthentication = true;
    connection.m_bUseProxy = true;
    EXPECT_THAT(setUp(connection), Contains(option(CURLOPT_USERPWD, "us%40er:pa%3ass%25")));
    connection.m_bUseIEConfig = true;
    EXPECT_THAT(setUp(connection), Contains(option(CURLOPT_USERPWD, "us%40er:pa%3ass%25")));
}

TEST(SetupCurlHandle, CredentialsWithoutAProxy_GoUnencoded) {
    FilledConnection connection;
    connection.m_bUseAuthentication = true;
    const auto trace = setUp(connection);
    EXPECT_THAT(trace, Contains(option(CURLOPT_USERNAME, "us@er")));
    EXPECT_THAT(trace, Contains(option(CURLOPT_PASSWORD, "pa:ss%")));
    EXPECT_THAT(trace, Not(Contains(HasSubstr("USERPWD"))));
}

TEST(SetupCurlHandle, CredentialsWithABlankAndAProxy_EndAtTheBlank) {
    FilledConnection connection;
    connection.m_bUseAuthentication = true;
    connection.m_bUseProxy = true;
    for (const auto& [user, password, joined] :
         {std::tuple("us er", "pass", "us"), std::tuple("user", "pa ss", "user:pa"),
          std::tuple("user", "\tpass", "user:"), std::tuple(" user", "pass", "user:pass"),
          std::tuple("", "", ":")}) {
        connection.setCredentials(user, password);
        EXPECT_THAT(setUp(connection), Contains(option(CURLOPT_USERPWD, joined)));
    }
}

TEST(SetupCurlHandle, Ipv6Proxy_IsBracketed) {
    FilledConnection connection;
    connection.m_bUseProxy = true;
    connection.setProxy("2001:db8::1");
    EXPECT_THAT(setUp(connection), Contains(option(CURLOPT_PROXY, "[2001:db8::1]")));
}

TEST(SetupCurlHandle, Scopes_AreSetAfterTheEmptyProxyAndBeforeTheProxy) {
    network().resolve("server.corp", {"fe80::5"});
    network().resolve("proxy.corp", {"fe80::6"});
    network().scope("fe80::5", 5);
    network().scope("fe80::6", 6);
    FilledConnection connection;
    connection.m_bUseProxy = true;
    const auto trace = setUp(connection);
    EXPECT_EQ(trace.at(2), option(CURLOPT_ADDRESS_SCOPE, 5L));
    EXPECT_EQ(trace.at(5), option(CURLOPT_ADDRESS_SCOPE, 6L));
    EXPECT_EQ(trace.at(6), option(CURLOPT_PROXY, "proxy.corp"));
}

TEST(SetupCurlHandle, ScopeOfTheProxy_IsOnlyAskedForWhenTheProxyIsUsed) {
    FilledConnection connection;
    connection.m_bUseIEConfig = true;
    for (const bool useProxy : {true, false}) {
        connection.m_bUseProxy = useProxy;
        network().clearCalls();
        setUp(connection);
        EXPECT_THAT(network().calls("list"), ElementsAre("list of server.corp, service ''"));
    }
}

TEST(SetupCurlHandle, NullHandleOut_DoesNothing) {
    ScriptedConnection connection;
    CConnectionHelper(&connection).SetupCurlHandle(nullptr, nullptr);
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
}

TEST(SetupCurlHandle, CurlWithoutAHandle_StoresNull) {
    FilledConnection connection;
    connection.m_bUseProxy = connection.m_bUseAuthentication = true;
    curlDouble().failInits(1);
    int somewhere = 0;
    void* handle = &somewhere;
    CConnectionHelper(&connection).SetupCurlHandle(&handle, nullptr);
    EXPECT_EQ(handle, nullptr);
}

TEST(SetupCurlHandle, SettingsAtTheTimeOfTheCall_Count) {
    FilledConnection connection;
    CConnectionHelper helper(&connection);
    connection.m_bUseProxy = true;
    void* handle = nullptr;
    helper.SetupCurlHandle(&handle, nullptr);
    EXPECT_THAT(curlDouble().trace(), Contains(option(CURLOPT_PROXY, "proxy.corp")));
    helper.FreeCurlHandle(handle);
}

TEST(FreeCurlHandle, Null_IsIgnoredAndAHandleIsCleanedUp) {
    ScriptedConnection connection;
    CConnectionHelper helper(&connection);
    helper.FreeCurlHandle(nullptr);
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
    helper.FreeCurlHandle(curl_easy_init());
    EXPECT_THAT(curlDouble().trace(), ElementsAre("init", "cleanup"));
}

TEST(PrependRelativePath, RelativePath_StandsBeforeThePath) {
    EXPECT_EQ(pathOf("pkg", "file.zip"), "/pkg/file.zip");
    EXPECT_EQ(pathOf("pkg", "/file.zip"), "/pkg/file.zip");
    EXPECT_EQ(pathOf("a/b", "c/d"), "/a/b/c/d");
    EXPECT_EQ(pathOf("pkg/", "f"), "/pkg//f");
}

TEST(PrependRelativePath, NoRelativePath_GivesThePathWithASlash) {
    EXPECT_EQ(pathOf("", "file.zip"), "/file.zip");
    EXPECT_EQ(pathOf("", "/file.zip"), "/file.zip");
    EXPECT_EQ(pathOf("", "//file.zip"), "//file.zip");
}

TEST(PrependRelativePath, RelativePathWithASlash_GivesADoubledOne) {
    EXPECT_EQ(pathOf("/pkg", "file.zip"), "//pkg/file.zip");
}

TEST(PrependRelativePath, EmptyPath_IsRefused) {
    EXPECT_EQ(pathOf("pkg", "", -1), "before");
    EXPECT_EQ(pathOf("", "", -1), "before");
}

TEST(AddressScope, LinkLocalHost_GetsItsScopeAndALogLine) {
    network().resolve("h", {"fe80::1"});
    network().scope("fe80::1", 7);
    EXPECT_THAT(scopeOptions("h"), ElementsAre(option(CURLOPT_ADDRESS_SCOPE, 7L)));
    EXPECT_THAT(logLines(), ElementsAre(infoLine("Adding scope id 7 ")));
    EXPECT_THAT(network().calls(), ElementsAre("list of h, service ''", "scope of fe80::1 from 0"));
}

TEST(AddressScope, ScopeZero_IsSetToo) {
    network().resolve("h", {"fe80::1"});
    network().scope("fe80::1", 0);
    EXPECT_THAT(scopeOptions("h"), ElementsAre(option(CURLOPT_ADDRESS_SCOPE, 0L)));
    EXPECT_THAT(logLines(), ElementsAre(infoLine("Adding scope id 0 ")));
}

TEST(AddressScope, FirstAddressWithAScope_EndsTheWalk) {
    network().resolve("h", {"10.0.0.1", "2001:db8::1", "fe80::2", "fe80::3"});
    network().scope("fe80::2", 2);
    network().scope("fe80::3", 3);
    EXPECT_THAT(scopeOptions("h"), ElementsAre(option(CURLOPT_ADDRESS_SCOPE, 2L)));
    EXPECT_THAT(network().calls("scope"),
                ElementsAre("scope of 2001:db8::1 from 0", "scope of fe80::2 from 0"));
}

TEST(AddressScope, Ipv4Only_GetsNeitherOptionNorLogLine) {
    network().resolve("h", {"10.0.0.1", "10.0.0.2"});
    EXPECT_THAT(scopeOptions("h"), IsEmpty());
    EXPECT_THAT(logLines(), IsEmpty());
    EXPECT_THAT(network().calls("scope"), IsEmpty());
}

TEST(AddressScope, GlobalIpv6Unresolvable_GetNothing) {
    network().resolve("global", {"2001:db8::1"});
    network().resolve("none", {});
    for (const auto* host : {"global", "none", "unknown", ""}) {
        curlDouble().clearTrace();
        EXPECT_THAT(scopeOptions(host), IsEmpty()) << host;
    }
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST(AddressScope, AddressThatDoesNotFitTheBuffer_IsPassedOver) {
    // 39 characters; the buffer takes 31.
    network().resolve("h", {"fe80:1111:2222:3333:4444:5555:6666:7777", "fe80::9"});
    network().scope("fe80:1111:2222:3333:4444:5555:6666:7777", 1);
    network().scope("fe80::9", 9);
    EXPECT_THAT(scopeOptions("h"), ElementsAre(option(CURLOPT_ADDRESS_SCOPE, 9L)));
}

TEST(AddressScope, NullHandle_AsksNobody) {
    network().resolve("h", {"fe80::1"});
    setAddressScopeIfRequired(nullptr, "h");
    EXPECT_THAT(network().calls(), IsEmpty());
}
