#include "voinet/cnetconnection.h"
#include "voinet/lnxuncconnection.h"
#include "voinet/netsessionsink.h"
#include "voinet/voinetprotocol.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <vector>

// What hosts that were compiled earlier rely on: the slots of the virtual operations and the order
// of the settings.

using namespace tessaro_com::pkm::voInet;

namespace {

/// The slot of a virtual operation. A pointer to such a member holds one plus the slot's distance
/// from the begin of the table, as the C++ ABI of the supported targets has it.
template <class Member>
std::size_t slotOf(Member member) {
    std::ptrdiff_t representation = 0;
    static_assert(sizeof member >= sizeof representation);
    std::memcpy(&representation, &member, sizeof representation);
    EXPECT_EQ(representation % 2, 1) << "not a virtual operation";
    return static_cast<std::size_t>(representation - 1) / sizeof(void*);
}

template <class... Members>
std::vector<const void*> addressesOf(const Members&... members) {
    return {static_cast<const void*>(&members)...};
}

void expectAscending(const std::vector<const void*>& addresses) {
    for (std::size_t i = 1; i < addresses.size(); ++i) {
        EXPECT_LT(addresses[i - 1], addresses[i]) << "at position " << i;
    }
}

}  // namespace

TEST(BinaryInterface, SlotsOfTransferItf_HaveTheDestructorSecond) {
    EXPECT_EQ(slotOf(&TransferItf::CheckOptions), 0U);
    // The destructor takes two.
    EXPECT_EQ(slotOf(&TransferItf::DownloadFile), 3U);
    EXPECT_EQ(slotOf(&TransferItf::UploadFile), 4U);
    EXPECT_EQ(slotOf(&TransferItf::UploadFileResponse), 5U);
    EXPECT_EQ(slotOf(&TransferItf::Logon), 6U);
    EXPECT_EQ(slotOf(&TransferItf::LogOut), 7U);
    EXPECT_EQ(slotOf(&TransferItf::PostLogOutOperations), 8U);
}

TEST(BinaryInterface, SlotsOfCNetConnection_FollowThoseOfTransferItf) {
    EXPECT_EQ(slotOf(&CNetConnection::DownloadFileWithConnSpec), 9U);
    EXPECT_EQ(slotOf(&CNetConnection::UploadFileWithConnSpec), 10U);
    EXPECT_EQ(slotOf(&CNetConnection::UploadFileResponseWithConnSpec), 11U);
    EXPECT_EQ(slotOf(&CNetConnection::LogonWithConnSpec), 12U);
}

TEST(BinaryInterface, SlotOfTheSink_IsTheThird) {
    EXPECT_EQ(slotOf(&CNetSessionSink::OnTransferProgress), 2U);
}

TEST(BinaryInterface, NumbersOfTheProtocols_AreFixed) {
    EXPECT_EQ(voInetProtocolHttp, 0);
    EXPECT_EQ(voInetProtocolFtp, 1);
    EXPECT_EQ(voInetProtocolUnc, 2);
    EXPECT_EQ(voInetProtocolLocal, 3);
    EXPECT_EQ(voInetProtocolNone, 4);
}

TEST(BinaryInterface, Settings_StandInTheirOrder) {
    const CUncConnection s;
    expectAscending(addressesOf(
        s.m_protocol, s.m_nPort, s.m_nSslPort, s.m_nPortIP, s.m_nPortFqdn, s.m_nPortNetbios,
        s.m_strAccount, s.m_strProxy, s.m_nProxyPort, s.m_strProxyUserName, s.m_strProxyPassword,
        s.m_strAltProxyUserName, s.m_strAltProxyPassword, s.m_bUseProxy, s.m_strProxyUserPwd,
        s.m_strAltProxyUserPwd, s.m_strExclusionList, s.m_strRangeList, s.m_nExclusionListSize,
        s.m_nRangeListSize, s.m_bBypassLocal, s.m_bUseIEConfig, s.m_bAllowUserToConfigureProxy,
        s.m_bUseLoggedOnUser, s.m_bUseAuthentication, s.m_bUseProxyAuthentication,
        s.m_bAltUseProxyAuthentication, s.m_strSite, s.m_strHostIP, s.m_strHostFqdn,
        s.m_strHostNetBios, s.m_strHost, s.m_strUser, s.m_strPassword, s.m_strDomain, s.m_strServer,
        s.m_strShare, s.m_strRelativePath, s.m_strUserAgent, s.m_bUseSSL, s.m_strCARootPath,
        s.m_strUpdateToken, s.m_strSite_utf8_rep));
}

TEST(BinaryInterface, Twins_FollowTheSettingsInTheirOrder) {
    const CUncConnection s;
    expectAscending(addressesOf(
        s.m_strUpdateToken, s.m_strSite_utf8_rep, s.m_strHost_utf8_rep, s.m_strHostIP_utf8_rep,
        s.m_strHostFqdn_utf8_rep, s.m_strHostNetBios_utf8_rep, s.m_strUser_utf8_rep,
        s.m_strPassword_utf8_rep, s.m_strAccount_utf8_rep, s.m_strProxy_utf8_rep,
        s.m_strProxyUserName_utf8_rep, s.m_strProxyPassword_utf8_rep,
        s.m_strAltProxyUserName_utf8_rep, s.m_strAltProxyPassword_utf8_rep,
        s.m_strAltProxyUserPwd_utf8_rep, s.m_strProxyUserPwd_utf8_rep,
        s.m_strExclusionList_utf8_rep, s.m_strRangeList_utf8_rep, s.m_strDomain_utf8_rep,
        s.m_strServer_utf8_rep, s.m_strShare_utf8_rep, s.m_strRelativePath_utf8_rep,
        s.m_strUserAgent_utf8_rep, s.m_strCARootPath_utf8_rep));
}
