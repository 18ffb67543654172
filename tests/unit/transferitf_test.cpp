#include "voinet/transferitf.h"

#include "support/logcapture.h"
#include "support/oddlocale.h"
#include "voinet/lnxuncconnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <ostream>
#include <string>
#include <vector>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using WideMember = std::wstring TransferItf::*;
using NarrowMember = std::string TransferItf::*;

constexpr int kLowestId = -2;
constexpr int kHighestId = 22;

/// The smallest transfer object: one that adds nothing to the settings.
using Settings = CUncConnection;

voInetOption id(int number) {
    return static_cast<voInetOption>(number);
}

struct TextOption {
    int id;
    WideMember wide;
    NarrowMember narrow;
};

const std::vector<TextOption>& plainTextOptions() {
    static const std::vector<TextOption> kOptions{
        {6, &TransferItf::m_strSite, &TransferItf::m_strSite_utf8_rep},
        {7, &TransferItf::m_strUser, &TransferItf::m_strUser_utf8_rep},
        {8, &TransferItf::m_strPassword, &TransferItf::m_strPassword_utf8_rep},
        {9, &TransferItf::m_strAccount, &TransferItf::m_strAccount_utf8_rep},
        {11, &TransferItf::m_strDomain, &TransferItf::m_strDomain_utf8_rep},
        {12, &TransferItf::m_strServer, &TransferItf::m_strServer_utf8_rep},
        {13, &TransferItf::m_strShare, &TransferItf::m_strShare_utf8_rep},
        {14, &TransferItf::m_strRelativePath, &TransferItf::m_strRelativePath_utf8_rep},
        {16, &TransferItf::m_strUserAgent, &TransferItf::m_strUserAgent_utf8_rep},
        {19, &TransferItf::m_strCARootPath, &TransferItf::m_strCARootPath_utf8_rep},
    };
    return kOptions;
}

struct HostOption {
    int id;
    WideMember wide;
    NarrowMember narrow;
    int TransferItf::*port;
};

const std::vector<HostOption>& hostOptions() {
    static const std::vector<HostOption> kOptions{
        {0, &TransferItf::m_strHostFqdn, &TransferItf::m_strHostFqdn_utf8_rep,
         &TransferItf::m_nPortFqdn},
        {1, &TransferItf::m_strHostNetBios, &TransferItf::m_strHostNetBios_utf8_rep,
         &TransferItf::m_nPortNetbios},
        {2, &TransferItf::m_strHostIP, &TransferItf::m_strHostIP_utf8_rep, &TransferItf::m_nPortIP},
    };
    return kOptions;
}

/// Sets a host over an earlier one and compares host, twin and port.
void expectSplit(const std::wstring& value, const std::wstring& host, const std::string& narrow,
                 int port) {
    for (const auto& option : hostOptions()) {
        Settings settings;
        settings.*option.wide = L"old";
        settings.*option.port = 7;
        EXPECT_EQ(settings.SetOption(id(option.id), value), voInetErrorSuccess);
        EXPECT_EQ(settings.*option.wide, host) << option.id;
        EXPECT_EQ(settings.*option.narrow, narrow) << option.id;
        EXPECT_EQ(settings.*option.port, port) << option.id;
    }
}

/// Everything that the dump shows, and what it does not.
std::vector<std::string> fingerprint(TransferItf& settings) {
    clearLog();
    settings.dumpObject();
    auto lines = logLines();
    lines.push_back(
        "token " + std::string(settings.m_strUpdateToken.begin(), settings.m_strUpdateToken.end()));
    clearLog();
    return lines;
}

}  // namespace

TEST(Settings, AfterConstruction_HaveTheirDefaults) {
    const Settings settings;
    EXPECT_EQ(settings.GetProtocol(), voInetProtocolNone);
    EXPECT_EQ(settings.m_strUserAgent, L"Tessaro AutoUpdate");
    EXPECT_EQ(settings.m_strUserAgent_utf8_rep, "");
    for (const auto port :
         {&TransferItf::m_nPort, &TransferItf::m_nSslPort, &TransferItf::m_nPortIP,
          &TransferItf::m_nPortFqdn, &TransferItf::m_nPortNetbios, &TransferItf::m_nProxyPort,
          &TransferItf::m_nExclusionListSize, &TransferItf::m_nRangeListSize}) {
        EXPECT_EQ(settings.*port, 0);
    }
    for (const auto flag :
         {&TransferItf::m_bUseProxy, &TransferItf::m_bBypassLocal, &TransferItf::m_bUseIEConfig,
          &TransferItf::m_bAllowUserToConfigureProxy, &TransferItf::m_bUseLoggedOnUser,
          &TransferItf::m_bUseAuthentication, &TransferItf::m_bUseProxyAuthentication,
          &TransferItf::m_bAltUseProxyAuthentication, &TransferItf::m_bUseSSL}) {
        EXPECT_FALSE(settings.*flag);
    }
}

TEST(Settings, WideTextsAndTwins_StartEmpty) {
    const Settings settings;
    for (const auto& option : plainTextOptions()) {
        EXPECT_EQ(settings.*option.narrow, "") << option.id;
        if (option.id != 16) {
            EXPECT_EQ(settings.*option.wide, L"") << option.id;
        }
    }
    for (const auto text : {&TransferItf::m_strProxy, &TransferItf::m_strProxyUserName,
                            &TransferItf::m_strProxyPassword, &TransferItf::m_strAltProxyUserName,
                            &TransferItf::m_strAltProxyPassword, &TransferItf::m_strProxyUserPwd,
                            &TransferItf::m_strAltProxyUserPwd, &TransferItf::m_strExclusionList,
                            &TransferItf::m_strRangeList, &TransferItf::m_strHost,
                            &TransferItf::m_strHostIP, &TransferItf::m_strHostFqdn,
                            &TransferItf::m_strHostNetBios, &TransferItf::m_strUpdateToken}) {
        EXPECT_EQ(settings.*text, L"");
    }
}

TEST(OptionNumbers, AreThoseOfTheInterface) {
    EXPECT_THAT((std::vector<int>{voInetOptionHostFqdn, voInetOptionHostNetBios, voInetOptionHostIP,
                                  voInetOptionPortIP, voInetOptionPortFqdn, voInetOptionPortNetbios,
                                  voInetOptionSite, voInetOptionUser, voInetOptionPassword,
                                  voInetOptionAccount}),
                ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_THAT((std::vector<int>{voInetOptionDomain, voInetOptionServer, voInetOptionShare,
                                  voInetOptionRelativePath, voInetOptionUseLoggedOnUser,
                                  voInetOptionUserAgent, voInetOptionSslPort, voInetOptionUseSSL,
                                  voInetOptionCARootPath, voInetOptionUpdateToken}),
                ElementsAre(11, 12, 13, 14, 15, 16, 17, 18, 19, 20));
}

TEST(SetTextOption, EachPlainOption_StoresTheTextAndItsTwin) {
    for (const auto& option : plainTextOptions()) {
        Settings settings;
        EXPECT_EQ(settings.SetOption(id(option.id), std::wstring(L"a\u00E9\u4E2D")),
                  voInetErrorSuccess);
        EXPECT_EQ(settings.*option.wide, L"a\u00E9\u4E2D") << option.id;
        EXPECT_EQ(settings.*option.narrow, "a\xC3\xA9\xE4\xB8\xAD") << option.id;
    }
}

TEST(SetTextOption, EachPlainOption_ChangesNothingElse) {
    for (const auto& option : plainTextOptions()) {
        Settings changed;
        Settings expected;
        changed.SetOption(id(option.id), std::wstring(L"value"));
        expected.*option.wide = L"value";
        expected.*option.narrow = "value";
        expected.m_bUseAuthentication = option.id == 7;
        EXPECT_EQ(fingerprint(changed), fingerprint(expected)) << option.id;
    }
}

TEST(SetTextOption, User_SwitchesAuthenticationOnBeforeAPasswordIsGiven) {
    Settings settings;
    settings.SetOption(voInetOptionPassword, std::wstring(L"secret"));
    EXPECT_FALSE(settings.m_bUseAuthentication);
    settings.SetOption(voInetOptionUser, std::wstring(L"user"));
    EXPECT_TRUE(settings.m_bUseAuthentication);
}

TEST(SetTextOption, UpdateToken_IsStoredWithoutATwin) {
    Settings settings;
    const auto before = fingerprint(settings);
    EXPECT_EQ(settings.SetOption(voInetOptionUpdateToken, std::wstring(L"t0k")),
              voInetErrorSuccess);
    EXPECT_EQ(settings.m_strUpdateToken, L"t0k");
    settings.m_strUpdateToken.clear();
    EXPECT_EQ(fingerprint(settings), before);
}

TEST(SetTextOption, EmptyText_IsAnInvalidArgumentForEveryIdButTheRelativePath) {
    for (int number = kLowestId; number <= kHighestId; ++number) {
        Settings settings;
        const auto before = fingerprint(settings);
        const auto expected = number == 14 ? voInetErrorSuccess : voInetErrorInvalidArgument;
        EXPECT_EQ(settings.SetOption(id(number), std::wstring()), expected) << number;
        EXPECT_THAT(logLines(), IsEmpty());
        EXPECT_EQ(fingerprint(settings), before) << number;
    }
}

TEST(SetTextOption, EmptyRelativePath_KeepsTheOldOne) {
    Settings settings;
    settings.SetOption(voInetOptionRelativePath, std::wstring(L"dir"));
    EXPECT_EQ(settings.SetOption(voInetOptionRelativePath, std::wstring()), voInetErrorSuccess);
    EXPECT_EQ(settings.m_strRelativePath, L"dir");
    EXPECT_EQ(settings.m_strRelativePath_utf8_rep, "dir");
}

TEST(SetTextOption, IdsOfOtherOverloads_AreInvalidAndLogged) {
    for (const int number : {-1, 3, 4, 5, 10, 15, 17, 18, 21, 1000}) {
        Settings settings;
        const auto before = fingerprint(settings);
        EXPECT_EQ(settings.SetOption(id(number), std::wstring(L"v\u00E9")),
                  voInetErrorInvalidOption);
        EXPECT_THAT(logLines(), ElementsAre(debugLine("Invalid string option " +
                                                      std::to_string(number) + " = v\xC3\xA9")));
        EXPECT_EQ(fingerprint(settings), before);
    }
}

TEST(SetTextOption, IllFormedWideText_GetsATwinWithReplacementCharacters) {
    for (const auto& option : plainTextOptions()) {
        Settings settings;
        const std::wstring unpaired{L'a', static_cast<wchar_t>(0xDC00), L'b'};
        EXPECT_EQ(settings.SetOption(id(option.id), unpaired), voInetErrorSuccess);
        EXPECT_EQ(settings.*option.wide, unpaired);
        EXPECT_EQ(settings.*option.narrow,
                  "a\xEF\xBF\xBD"
                  "b")
            << option.id;
    }
}

TEST(SetNumberOption, EachPort_IsStored) {
    const std::vector<std::pair<int, int TransferItf::*>> ports{{3, &TransferItf::m_nPortIP},
                                                                {4, &TransferItf::m_nPortFqdn},
                                                                {5, &TransferItf::m_nPortNetbios},
                                                                {17, &TransferItf::m_nSslPort}};
    for (const auto& [number, member] : ports) {
        Settings changed;
        Settings expected;
        EXPECT_EQ(changed.SetOption(id(number), 8080L), voInetErrorSuccess);
        EXPECT_EQ(changed.*member, 8080);
        EXPECT_EQ(changed.SetOption(id(number), 81), voInetErrorSuccess);
        expected.*member = 81;
        EXPECT_EQ(fingerprint(changed), fingerprint(expected)) << number;
    }
}

TEST(SetNumberOption, IdsOfOtherOverloads_AreInvalidAndLogged) {
    for (const int number : {-1, 0, 1, 2, 6, 7, 10, 14, 15, 16, 18, 19, 20, 21}) {
        Settings settings;
        const auto before = fingerprint(settings);
        EXPECT_EQ(settings.SetOption(id(number), -5L), voInetErrorInvalidOption) << number;
        EXPECT_EQ(settings.SetOption(id(number), -5), voInetErrorInvalidOption) << number;
        const auto line = debugLine("Invalid long option " + std::to_string(number) + " = -5");
        EXPECT_THAT(logLines(), ElementsAre(line, line));
        EXPECT_EQ(fingerprint(settings), before);
    }
}

TEST(SetBoolOption, LoggedOnUserAndSsl_AreStoredBothWays) {
    Settings settings;
    for (const bool value : {true, false}) {
        EXPECT_EQ(settings.SetOption(voInetOptionUseLoggedOnUser, value), voInetErrorSuccess);
        EXPECT_EQ(settings.SetOption(voInetOptionUseSSL, !value), voInetErrorSuccess);
        EXPECT_EQ(settings.m_bUseLoggedOnUser, value);
        EXPECT_EQ(settings.m_bUseSSL, !value);
    }
}

TEST(SetBoolOption, IdsOfOtherOverloads_AreInvalidAndLogged) {
    for (const int number : {-1, 0, 3, 5, 6, 10, 14, 16, 17, 19, 20, 21}) {
        Settings settings;
        const auto before = fingerprint(settings);
        EXPECT_EQ(settings.SetOption(id(number), true), voInetErrorInvalidOption);
        EXPECT_THAT(logLines(), ElementsAre(debugLine("Invalid bool option " +
                                                      std::to_string(number) + " = 1")));
        EXPECT_EQ(fingerprint(settings), before);
    }
}

TEST(HostOption, HostAndPort_AreSplit) {
    expectSplit(L"server1:8080", L"server1", "server1", 8080);
}

TEST(HostOption, SchemeHostAndPort_AreSplitWithoutTheScheme) {
    expectSplit(L"https://server1.corp:443", L"server1.corp", "server1.corp", 443);
}

TEST(HostOption, NoPort_ChangesNeitherHostNorPortAndDerivesTheTwinAnew) {
    expectSplit(L"server1", L"old", "old", 7);
    expectSplit(L"http://server1", L"old", "old", 7);
    expectSplit(L"http://server1/path", L"old", "old", 7);
}

TEST(HostOption, OnlyTheFirstSchemeSeparator_IsStripped) {
    expectSplit(L"a://b://c:5", L"b://c", "b://c", 5);
}

TEST(HostOption, UnbracketedIpv6_LosesItsLastGroupToThePort) {
    expectSplit(L"fe80::1:22", L"fe80::1", "fe80::1", 22);
    expectSplit(L"http://fe80::1", L"fe80:", "fe80:", 1);
}

TEST(HostOption, BracketedIpv6WithPort_IsSplitBehindTheBracket) {
    expectSplit(L"[fe80::1]:443", L"[fe80::1]", "[fe80::1]", 443);
    expectSplit(L"https://[fe80::1]:443", L"[fe80::1]", "[fe80::1]", 443);
}

TEST(HostOption, PortTextThatIsEmptyOrNoNumber_GivesPortZero) {
    expectSplit(L"server:", L"server", "server", 0);
    expectSplit(L"server:http", L"server", "server", 0);
    expectSplit(L":", L"", "", 0);
}

TEST(HostOption, PortText_IsReadAsAStreamReadsNumbers) {
    expectSplit(L"server:80/path", L"server", "server", 80);
    expectSplit(L"server: 80", L"server", "server", 80);
    expectSplit(L"server:-5", L"server", "server", -5);
    expectSplit(L"server:99999999999", L"server", "server", INT_MAX);
}

TEST(HostOption, DigitGroupingOfTheLocale_DoesNotChangeThePort) {
    const OddLocale locale;
    expectSplit(L"server:8080", L"server", "server", 8080);
    expectSplit(L"server:1,234", L"server", "server", 1);
}

TEST(HostOption, NamesOutsideAscii_GetAUtf8Twin) {
    expectSplit(L"b\u00FCro:80", L"b\u00FCro", "b\xC3\xBCro", 80);
}

TEST(HostOption, AbsurdlyLongHost_IsKeptWhole) {
    const std::wstring host(1 << 20, L'h');
    expectSplit(host + L":80", host, std::string(1 << 20, 'h'), 80);
}

TEST(HostOption, ActiveHostAndPort_AreNeverSetByAnOption) {
    Settings settings;
    settings.m_strHost = L"active";
    settings.m_nPort = 5;
    for (const auto& option : hostOptions()) {
        settings.SetOption(id(option.id), std::wstring(L"new:80"));
    }
    EXPECT_EQ(settings.m_strHost, L"active");
    EXPECT_EQ(settings.m_nPort, 5);
}

TEST(DumpObject, AllSettings_AreWrittenInOrderWithTheRelativePathTwice) {
    Settings settings;
    EXPECT_TRUE(settings.dumpObject());
    std::vector<std::string> expected{debugLine("Protocol 4")};
    for (const auto* name :
         {"m_nPort", "m_nSslPort", "m_nPortIP", "m_nPortFqdn", "m_nPortNetbios", "m_nProxyPort",
          "m_bUseProxy", "m_nExclusionListSize", "m_nRangeListSize", "m_bBypassLocal",
          "m_bUseIEConfig", "m_bAllowUserToConfigureProxy", "m_bUseLoggedOnUser",
          "m_bUseAuthentication", "m_bUseProxyAuthentication", "m_bAltUseProxyAuthentication",
          "m_bUseSSL"}) {
        expected.push_back(debugLine(std::string(name) + " 0"));
    }
    for (const auto* name : {"m_strSite",
                             "m_strHost",
                             "m_strHostIP",
                             "m_strHostFqdn",
                             "m_strHostNetBios",
                             "m_strUser",
                             "m_strPassword",
                             "m_strAccount",
                             "m_strProxy",
                             "m_strProxyUserName",
                             "m_strProxyPassword",
                             "m_strAltProxyUserName",
                             "m_strAltProxyPassword",
                             "m_strAltProxyUserPwd",
                             "m_strProxyUserPwd",
                             "m_strExclusionList",
                             "m_strRangeList",
                             "m_strDomain",
                             "m_strServer",
                             "m_strShare",
                             "m_strRelativePath",
                             "m_strRelativePath",
                             "m_strUserAgent",
                             "m_strCARootPath"}) {
        expected.push_back(debugLine(std::string(name) + "_utf8_rep "));
    }
    EXPECT_EQ(logLines(), expected);
}

namespace {

/// Sets one member and compares its line in the dump.
template <class Member, class Value>
void expectDumped(Member member, const Value& value, const std::string& line) {
    Settings settings;
    settings.*member = value;
    clearLog();
    settings.dumpObject();
    EXPECT_THAT(logLines(), testing::Contains(debugLine(line)));
}

}  // namespace

TEST(DumpObject, EveryNumberAndFlag_ShowsItsOwnMember) {
    expectDumped(&TransferItf::m_protocol, voInetProtocolFtp, "Protocol 1");
    expectDumped(&TransferItf::m_nPort, 1, "m_nPort 1");
    expectDumped(&TransferItf::m_nSslPort, 2, "m_nSslPort 2");
    expectDumped(&TransferItf::m_nPortIP, 3, "m_nPortIP 3");
    expectDumped(&TransferItf::m_nPortFqdn, 4, "m_nPortFqdn 4");
    expectDumped(&TransferItf::m_nPortNetbios, 5, "m_nPortNetbios 5");
    expectDumped(&TransferItf::m_nProxyPort, 6, "m_nProxyPort 6");
    expectDumped(&TransferItf::m_bUseProxy, true, "m_bUseProxy 1");
    expectDumped(&TransferItf::m_nExclusionListSize, 7, "m_nExclusionListSize 7");
    expectDumped(&TransferItf::m_nRangeListSize, 8, "m_nRangeListSize 8");
    expectDumped(&TransferItf::m_bBypassLocal, true, "m_bBypassLocal 1");
    expectDumped(&TransferItf::m_bUseIEConfig, true, "m_bUseIEConfig 1");
    expectDumped(&TransferItf::m_bAllowUserToConfigureProxy, true,
                 "m_bAllowUserToConfigureProxy 1");
    expectDumped(&TransferItf::m_bUseLoggedOnUser, true, "m_bUseLoggedOnUser 1");
    expectDumped(&TransferItf::m_bUseAuthentication, true, "m_bUseAuthentication 1");
    expectDumped(&TransferItf::m_bUseProxyAuthentication, true, "m_bUseProxyAuthentication 1");
    expectDumped(&TransferItf::m_bAltUseProxyAuthentication, true,
                 "m_bAltUseProxyAuthentication 1");
    expectDumped(&TransferItf::m_bUseSSL, true, "m_bUseSSL 1");
}

TEST(DumpObject, EveryTwin_ShowsItsOwnMember) {
    using T = TransferItf;
    const std::vector<std::pair<NarrowMember, const char*>> twins{
        {&T::m_strSite_utf8_rep, "m_strSite"},
        {&T::m_strHost_utf8_rep, "m_strHost"},
        {&T::m_strHostIP_utf8_rep, "m_strHostIP"},
        {&T::m_strHostFqdn_utf8_rep, "m_strHostFqdn"},
        {&T::m_strHostNetBios_utf8_rep, "m_strHostNetBios"},
        {&T::m_strUser_utf8_rep, "m_strUser"},
        {&T::m_strPassword_utf8_rep, "m_strPassword"},
        {&T::m_strAccount_utf8_rep, "m_strAccount"},
        {&T::m_strProxy_utf8_rep, "m_strProxy"},
        {&T::m_strProxyUserName_utf8_rep, "m_strProxyUserName"},
        {&T::m_strProxyPassword_utf8_rep, "m_strProxyPassword"},
        {&T::m_strAltProxyUserName_utf8_rep, "m_strAltProxyUserName"},
        {&T::m_strAltProxyPassword_utf8_rep, "m_strAltProxyPassword"},
        {&T::m_strAltProxyUserPwd_utf8_rep, "m_strAltProxyUserPwd"},
        {&T::m_strProxyUserPwd_utf8_rep, "m_strProxyUserPwd"},
        {&T::m_strExclusionList_utf8_rep, "m_strExclusionList"},
        {&T::m_strRangeList_utf8_rep, "m_strRangeList"},
        {&T::m_strDomain_utf8_rep, "m_strDomain"},
        {&T::m_strServer_utf8_rep, "m_strServer"},
        {&T::m_strShare_utf8_rep, "m_strShare"},
        {&T::m_strRelativePath_utf8_rep, "m_strRelativePath"},
        {&T::m_strUserAgent_utf8_rep, "m_strUserAgent"},
        {&T::m_strCARootPath_utf8_rep, "m_strCARootPath"},
    };
    for (const auto& [member, name] : twins) {
        expectDumped(member, "the value", std::string(name) + "_utf8_rep the value");
    }
}

TEST(DumpObject, UpdateToken_IsNotShown) {
    Settings settings;
    settings.SetOption(voInetOptionUpdateToken, std::wstring(L"hidden"));
    settings.dumpObject();
    EXPECT_THAT(logLines(), Each(testing::Not(testing::HasSubstr("hidden"))));
}
