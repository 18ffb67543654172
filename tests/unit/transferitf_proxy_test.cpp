#include "support/logcapture.h"
#include "voinet/lnxuncconnection.h"
#include "voinet/transferitf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::IsEmpty;

namespace {

/// Settings that report the protocol given.
class Settings : public CUncConnection {
  public:
    explicit Settings(int protocol) { m_protocol = static_cast<voInetProtocol>(protocol); }

    voInetError apply(const CProxyParams& record) {
        return SetOption(static_cast<voInetOption>(77), &record);
    }
};

/// Where a protocol has its fields in the record.
struct Fields {
    int protocol;
    int CProxyParams::*port;
    bool CProxyParams::*authentication;
    std::wstring CProxyParams::*user;
    std::wstring CProxyParams::*password;
    bool CProxyParams::*altCredentials;
    std::wstring CProxyParams::*altUser;
    std::wstring CProxyParams::*altPassword;

    friend std::ostream& operator<<(std::ostream& stream, const Fields& fields) {
        return stream << "protocol " << fields.protocol;
    }
};

constexpr Fields kHttp{0,
                       &CProxyParams::m_nHttpProxyPort,
                       &CProxyParams::m_bHttpProxyAuthentication,
                       &CProxyParams::m_strHttpProxyUser,
                       &CProxyParams::m_strHttpProxyPassword,
                       &CProxyParams::m_bHttpAltCredentials,
                       &CProxyParams::m_strHttpAltUser,
                       &CProxyParams::m_strHttpAltPassword};
constexpr Fields kFtp{1,
                      &CProxyParams::m_nFtpProxyPort,
                      &CProxyParams::m_bFtpProxyAuthentication,
                      &CProxyParams::m_strFtpProxyUser,
                      &CProxyParams::m_strFtpProxyPassword,
                      &CProxyParams::m_bFtpAltCredentials,
                      &CProxyParams::m_strFtpAltUser,
                      &CProxyParams::m_strFtpAltPassword};

class ProxyRecord : public testing::TestWithParam<Fields> {
  protected:
    ProxyRecord() : settings(GetParam().protocol) {
        record.m_strProxyHost = L"pr\u00F6xy";
        record.*GetParam().port = 3128;
    }

    void setCredentials(const std::wstring& user, const std::wstring& password) {
        record.*GetParam().authentication = true;
        record.*GetParam().user = user;
        record.*GetParam().password = password;
    }

    void setAltCredentials(const std::wstring& user, const std::wstring& password) {
        record.m_bAllowUserToConfigureProxy = true;
        record.*GetParam().altCredentials = true;
        record.*GetParam().altUser = user;
        record.*GetParam().altPassword = password;
    }

    Settings settings;
    CProxyParams record;
};

INSTANTIATE_TEST_SUITE_P(Protocols, ProxyRecord, testing::Values(kHttp, kFtp),
                         [](const auto& test) { return test.param.protocol ? "Ftp" : "Http"; });

}  // namespace

TEST(ProxyRecordPointer, Null_IsAnInvalidArgumentAndChangesNothing) {
    Settings settings(0);
    const CProxyParams* none = nullptr;
    EXPECT_EQ(settings.SetOption(voInetOptionSite, none), voInetErrorInvalidArgument);
    EXPECT_FALSE(settings.m_bUseProxy);
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST(ProxyRecordFields, StandInTheOrderOfTheInterface) {
    const CProxyParams record{1,        L"proxy", 2,     3,     true,   false,  true,   4,
                              L"range", 5,        L"ex", 6,     true,   false,  L"hu",  L"hp",
                              L"fu",    L"fp",    true,  false, L"hau", L"hap", L"fau", L"fap"};
    Settings http(0);
    Settings ftp(1);
    EXPECT_EQ(http.apply(record), voInetErrorSuccess);
    EXPECT_EQ(ftp.apply(record), voInetErrorSuccess);
    EXPECT_EQ(http.m_nProxyPort, 2);
    EXPECT_EQ(ftp.m_nProxyPort, 3);
    EXPECT_EQ(http.m_nRangeListSize, 4);
    EXPECT_EQ(http.m_nExclusionListSize, 5);
    EXPECT_EQ(ftp.m_strProxyUserPwd, L"fu:fp");
    EXPECT_FALSE(http.m_bUseProxyAuthentication);
    EXPECT_TRUE(ftp.m_strAltProxyUserPwd == L"fau:fap" && http.m_strAltProxyUserPwd.empty());
}

TEST_P(ProxyRecord, HostPortAndFlags_AreTakenOver) {
    record.m_bBypassLocal = true;
    record.m_bUseIEConfig = true;
    EXPECT_EQ(settings.apply(record), voInetErrorSuccess);
    EXPECT_EQ(settings.m_strProxy, L"pr\u00F6xy");
    EXPECT_EQ(settings.m_strProxy_utf8_rep, "pr\xC3\xB6xy");
    EXPECT_EQ(settings.m_nProxyPort, 3128);
    EXPECT_TRUE(settings.m_bUseProxy);
    EXPECT_TRUE(settings.m_bBypassLocal);
    EXPECT_TRUE(settings.m_bUseIEConfig);
    EXPECT_FALSE(settings.m_bAllowUserToConfigureProxy);
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_P(ProxyRecord, EmptyRecord_StillSwitchesTheProxyOnAndClearsHostAndFlags) {
    record.m_bBypassLocal = record.m_bUseIEConfig = record.m_bAllowUserToConfigureProxy = true;
    settings.apply(record);
    EXPECT_EQ(settings.apply(CProxyParams()), voInetErrorSuccess);
    EXPECT_EQ(settings.m_strProxy, L"");
    EXPECT_EQ(settings.m_strProxy_utf8_rep, "");
    EXPECT_EQ(settings.m_nProxyPort, 0);
    EXPECT_TRUE(settings.m_bUseProxy);
    EXPECT_FALSE(settings.m_bBypassLocal || settings.m_bUseIEConfig ||
                 settings.m_bAllowUserToConfigureProxy);
}

TEST_P(ProxyRecord, Lists_AreTakenOverWithTheirCounts) {
    record.m_strExclusionList = L"\u00E4;b";
    record.m_nExclusionListSize = 2;
    record.m_strRangeList = L"r\u00E4nge";
    record.m_nRangeListSize = 9;
    settings.apply(record);
    EXPECT_EQ(settings.m_strExclusionList, L"\u00E4;b");
    EXPECT_EQ(settings.m_strExclusionList_utf8_rep, "\xC3\xA4;b");
    EXPECT_EQ(settings.m_nExclusionListSize, 2);
    EXPECT_EQ(settings.m_strRangeList, L"r\u00E4nge");
    EXPECT_EQ(settings.m_strRangeList_utf8_rep, "r\xC3\xA4nge");
    EXPECT_EQ(settings.m_nRangeListSize, 9);
}

TEST_P(ProxyRecord, EmptyLists_LeaveTheEarlierListsAndCounts) {
    record.m_strExclusionList = L"a";
    record.m_nExclusionListSize = 1;
    record.m_strRangeList = L"r";
    record.m_nRangeListSize = 2;
    settings.apply(record);
    record.m_strExclusionList = record.m_strRangeList = L"";
    record.m_nExclusionListSize = record.m_nRangeListSize = 50;
    settings.apply(record);
    EXPECT_EQ(settings.m_strExclusionList_utf8_rep, "a");
    EXPECT_EQ(settings.m_nExclusionListSize, 1);
    EXPECT_EQ(settings.m_strRangeList_utf8_rep, "r");
    EXPECT_EQ(settings.m_nRangeListSize, 2);
}

TEST_P(ProxyRecord, Credentials_AreJoinedAndSwitchProxyAuthenticationOn) {
    setCredentials(L"us\u00E9r", L"pa:ss");
    settings.apply(record);
    EXPECT_EQ(settings.m_strProxyUserName_utf8_rep, "us\xC3\xA9r");
    EXPECT_EQ(settings.m_strProxyPassword_utf8_rep, "pa:ss");
    EXPECT_EQ(settings.m_strProxyUserPwd, L"us\u00E9r:pa:ss");
    EXPECT_EQ(settings.m_strProxyUserPwd_utf8_rep, "us\xC3\xA9r:pa:ss");
    EXPECT_TRUE(settings.m_bUseProxyAuthentication);
    EXPECT_FALSE(settings.m_bAltUseProxyAuthentication);
}

TEST_P(ProxyRecord, CredentialsWithoutTheirFlag_AreIgnored) {
    setCredentials(L"user", L"password");
    record.*GetParam().authentication = false;
    settings.apply(record);
    EXPECT_EQ(settings.m_strProxyUserName, L"");
    EXPECT_EQ(settings.m_strProxyUserPwd, L"");
    EXPECT_FALSE(settings.m_bUseProxyAuthentication);
}

TEST_P(ProxyRecord, EmptyPassword_LeavesProxyAuthenticationOff) {
    setCredentials(L"user", L"");
    settings.m_strProxyUserPwd = L"before";
    settings.apply(record);
    EXPECT_EQ(settings.m_strProxyUserName, L"user");
    EXPECT_EQ(settings.m_strProxyUserPwd, L"before");
    EXPECT_FALSE(settings.m_bUseProxyAuthentication);
}

TEST_P(ProxyRecord, EmptyUser_LeavesProxyAuthenticationOff) {
    setCredentials(L"", L"password");
    settings.apply(record);
    EXPECT_EQ(settings.m_strProxyPassword_utf8_rep, "password");
    EXPECT_EQ(settings.m_strProxyUserPwd_utf8_rep, "");
    EXPECT_FALSE(settings.m_bUseProxyAuthentication);
}

TEST_P(ProxyRecord, CredentialsOfAnEarlierRecord_SurviveEmptyOnesAndAreJoined) {
    setCredentials(L"user", L"");
    settings.apply(record);
    setCredentials(L"", L"later");
    settings.apply(record);
    EXPECT_EQ(settings.m_strProxyUserPwd_utf8_rep, "user:later");
    EXPECT_TRUE(settings.m_bUseProxyAuthentication);
}

TEST_P(ProxyRecord, AltCredentials_AreJoinedAndSwitchedOn) {
    setAltCredentials(L"\u00E4lt", L"sec");
    settings.apply(record);
    EXPECT_EQ(settings.m_strAltProxyUserName_utf8_rep, "\xC3\xA4lt");
    EXPECT_EQ(settings.m_strAltProxyPassword_utf8_rep, "sec");
    EXPECT_EQ(settings.m_strAltProxyUserPwd, L"\u00E4lt:sec");
    EXPECT_EQ(settings.m_strAltProxyUserPwd_utf8_rep, "\xC3\xA4lt:sec");
    EXPECT_TRUE(settings.m_bAltUseProxyAuthentication);
    EXPECT_FALSE(settings.m_bUseProxyAuthentication);
}

TEST_P(ProxyRecord, AltCredentialsWithoutUserConfiguredProxies_AreIgnored) {
    setAltCredentials(L"alt", L"sec");
    record.m_bAllowUserToConfigureProxy = false;
    settings.m_bAllowUserToConfigureProxy = true;
    settings.apply(record);
    EXPECT_EQ(settings.m_strAltProxyUserName, L"");
    EXPECT_FALSE(settings.m_bAltUseProxyAuthentication);
}

TEST_P(ProxyRecord, AltCredentialsWithoutTheirFlag_AreIgnored) {
    setAltCredentials(L"alt", L"sec");
    record.*GetParam().altCredentials = false;
    settings.apply(record);
    EXPECT_EQ(settings.m_strAltProxyUserPwd, L"");
    EXPECT_FALSE(settings.m_bAltUseProxyAuthentication);
}

TEST_P(ProxyRecord, IncompleteAltCredentials_StayOffUntilALaterRecordCompletesThem) {
    setAltCredentials(L"", L"sec");
    settings.apply(record);
    EXPECT_FALSE(settings.m_bAltUseProxyAuthentication);
    setAltCredentials(L"alt", L"");
    settings.apply(record);
    EXPECT_EQ(settings.m_strAltProxyUserPwd_utf8_rep, "alt:sec");
    EXPECT_TRUE(settings.m_bAltUseProxyAuthentication);
}

TEST_P(ProxyRecord, FieldsOfTheOtherProtocol_AreNotRead) {
    const auto& other = GetParam().protocol ? kHttp : kFtp;
    CProxyParams foreign;
    foreign.m_bAllowUserToConfigureProxy = true;
    foreign.*other.port = 99;
    foreign.*other.authentication = foreign.*other.altCredentials = true;
    foreign.*other.user = foreign.*other.password = L"x";
    foreign.*other.altUser = foreign.*other.altPassword = L"y";
    settings.apply(foreign);
    EXPECT_EQ(settings.m_nProxyPort, 0);
    EXPECT_EQ(settings.m_strProxyUserName + settings.m_strAltProxyUserName, L"");
    EXPECT_FALSE(settings.m_bUseProxyAuthentication || settings.m_bAltUseProxyAuthentication);
}

TEST_P(ProxyRecord, ReservedFields_AreNotRead) {
    record.m_nReserved1 = -1;
    record.m_nReserved2 = -1;
    EXPECT_EQ(settings.apply(record), voInetErrorSuccess);
    EXPECT_EQ(settings.m_nProxyPort, 3128);
    EXPECT_EQ(settings.m_nExclusionListSize, 0);
}

TEST_P(ProxyRecord, IllFormedTexts_GetTwinsWithReplacementCharacters) {
    const std::wstring unpaired(1, static_cast<wchar_t>(0xD800));
    record.m_strProxyHost = record.m_strExclusionList = record.m_strRangeList = unpaired;
    setCredentials(unpaired, unpaired);
    settings.apply(record);
    EXPECT_EQ(settings.m_strProxy_utf8_rep, "\xEF\xBF\xBD");
    EXPECT_EQ(settings.m_strExclusionList_utf8_rep, "\xEF\xBF\xBD");
    EXPECT_EQ(settings.m_strProxyUserPwd_utf8_rep, "\xEF\xBF\xBD:\xEF\xBF\xBD");
}

TEST(ProxyRecordOfOtherProtocols, SetsProxyListsAndFlagsButNeitherPortNorCredentials) {
    for (const int protocol : {2, 3, 4}) {
        Settings settings(protocol);
        const CProxyParams record{0,     L"proxy", 80,   80,   true, true, true,  1,
                                  L"r",  1,        L"e", 0,    true, true, L"hu", L"hp",
                                  L"fu", L"fp",    true, true, L"u", L"p", L"u",  L"p"};
        EXPECT_EQ(settings.apply(record), voInetErrorSuccess);
        EXPECT_EQ(settings.m_strProxy_utf8_rep + settings.m_strExclusionList_utf8_rep +
                      settings.m_strRangeList_utf8_rep,
                  "proxyer");
        EXPECT_TRUE(settings.m_bUseProxy && settings.m_bBypassLocal && settings.m_bUseIEConfig &&
                    settings.m_bAllowUserToConfigureProxy);
        EXPECT_EQ(settings.m_nProxyPort, 0);
        EXPECT_EQ(settings.m_strProxyUserName + settings.m_strAltProxyUserName, L"");
        EXPECT_FALSE(settings.m_bUseProxyAuthentication || settings.m_bAltUseProxyAuthentication);
    }
}
