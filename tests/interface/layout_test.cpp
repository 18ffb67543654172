#include "kvecomn/anetworkutil.h"
#include "kvecomn/astring.h"
#include "kvecomn/telfile.h"
#include "voinet/FTPConnection.h"
#include "voinet/HTTPConnection.h"
#include "voinet/cbmgr.h"
#include "voinet/chttphelper.h"
#include "voinet/lnxLocalConnection.h"
#include "voinet/lnxuncconnection.h"
#include "voinet/transfermonitor.h"
#include "voinet/voitffactory.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

// Where hosts that were compiled earlier look for the fields of the records. Everything is worked
// out from the sizes of the types, so that it holds for 32 and for 64 bits.

using namespace tessaro_com::pkm::voInet;

namespace {

struct Field {
    std::size_t offset;
    std::size_t size;
    std::size_t alignment;
};

template <class Agreed, class Declared>
constexpr Field fieldAt(std::size_t offset) {
    static_assert(std::is_same_v<Agreed, Declared>, "hosts know this field with another type");
    return {offset, sizeof(Agreed), alignof(Agreed)};
}

constexpr std::size_t alignedTo(std::size_t alignment, std::size_t offset) {
    return (offset + alignment - 1) / alignment * alignment;
}

/// The position of the first field that does not stand right behind the one before it, or the
/// count of the fields when all do.
template <class Fields>
constexpr std::size_t firstMoved(const Fields& fields, std::size_t start) {
    std::size_t position = 0;
    for (const Field& field : fields) {
        if (field.offset != alignedTo(field.alignment, start)) {
            return position;
        }
        start = field.offset + field.size;
        ++position;
    }
    return position;
}

template <class Fields>
constexpr std::size_t endOf(const Fields& fields) {
    const Field& last = fields[fields.size() - 1];
    return last.offset + last.size;
}

#define FIELD(type, name) fieldAt<type, decltype(CProxyParams::name)>(offsetof(CProxyParams, name))

constexpr std::array kProxyFields{
    FIELD(std::int32_t, m_nReserved1),
    FIELD(std::wstring, m_strProxyHost),
    FIELD(int, m_nHttpProxyPort),
    FIELD(int, m_nFtpProxyPort),
    FIELD(bool, m_bAllowUserToConfigureProxy),
    FIELD(bool, m_bBypassLocal),
    FIELD(bool, m_bUseIEConfig),
    FIELD(int, m_nRangeListSize),
    FIELD(std::wstring, m_strRangeList),
    FIELD(int, m_nExclusionListSize),
    FIELD(std::wstring, m_strExclusionList),
    FIELD(std::int32_t, m_nReserved2),
    FIELD(bool, m_bFtpProxyAuthentication),
    FIELD(bool, m_bHttpProxyAuthentication),
    FIELD(std::wstring, m_strHttpProxyUser),
    FIELD(std::wstring, m_strHttpProxyPassword),
    FIELD(std::wstring, m_strFtpProxyUser),
    FIELD(std::wstring, m_strFtpProxyPassword),
    FIELD(bool, m_bFtpAltCredentials),
    FIELD(bool, m_bHttpAltCredentials),
    FIELD(std::wstring, m_strHttpAltUser),
    FIELD(std::wstring, m_strHttpAltPassword),
    FIELD(std::wstring, m_strFtpAltUser),
    FIELD(std::wstring, m_strFtpAltPassword),
};

#undef FIELD

static_assert(std::is_aggregate_v<CProxyParams>);
static_assert(std::is_standard_layout_v<CProxyParams>);
static_assert(kProxyFields.size() == 24);
static_assert(firstMoved(kProxyFields, 0) == kProxyFields.size());
static_assert(sizeof(CProxyParams) == alignedTo(alignof(CProxyParams), endOf(kProxyFields)));

#define FIELD(type, name) \
    fieldAt<type, decltype(RequestRecord::name)>(offsetof(RequestRecord, name))

/// Those that hosts know; later ones may follow them.
constexpr std::array kRecordFields{
    FIELD(voInetProtocol, protocol),
    FIELD(RequestPurpose, purpose),
    FIELD(int, hostForm),
    FIELD(std::string, url),
    FIELD(std::string, effectiveUrl),
    FIELD(int, redirects),
    FIELD(std::string, proxy),
    FIELD(std::string, remoteAddress),
    FIELD(int, remotePort),
    FIELD(int, curlResult),
    FIELD(std::string, reason),
    FIELD(int, status),
    FIELD(int, proxyStatus),
    FIELD(std::vector<HeaderField>, headers),
    FIELD(std::int64_t, rangeStart),
    FIELD(std::int64_t, announced),
    FIELD(std::int64_t, received),
    FIELD(std::int64_t, sent),
    FIELD(RequestTimes, times),
};

#undef FIELD

static_assert(firstMoved(kRecordFields, 0) == kRecordFields.size());

// What stands inside of a record or is handed over by value can grow no more.
static_assert(offsetof(HeaderField, name) == 0 && sizeof(HeaderField) == 2 * sizeof(std::string));
static_assert(offsetof(RequestTimes, nameLookedUp) == 0 && offsetof(RequestTimes, connected) == 8 &&
              offsetof(RequestTimes, tlsReady) == 16 && offsetof(RequestTimes, requestSent) == 24 &&
              offsetof(RequestTimes, firstByte) == 32 && offsetof(RequestTimes, ended) == 40 &&
              sizeof(RequestTimes) == 48);
static_assert(std::is_same_v<decltype(TransferLimits::connectTimeoutMs), std::int64_t> &&
              std::is_same_v<decltype(TransferLimits::maxReceiveBytesPerSecond), std::int64_t> &&
              offsetof(TransferLimits, connectTimeoutMs) == 0 &&
              offsetof(TransferLimits, maxReceiveBytesPerSecond) == 8 &&
              sizeof(TransferLimits) == 16);
static_assert(sizeof(TransferMonitor) == sizeof(void*));

/// A member of an object that is no standard-layout class, by its address.
template <class Agreed, class Declared>
Field memberIn(const void* object, const Declared& member) {
    const auto distance = reinterpret_cast<const char*>(&member) - static_cast<const char*>(object);
    return fieldAt<Agreed, Declared>(static_cast<std::size_t>(distance));
}

// Hosts make some objects themselves and derive from others.
static_assert(std::is_empty_v<VoInetItfFactory>);
static_assert(sizeof(VoInetCreator) == sizeof(void*));
static_assert(sizeof(CNetSessionSink) == sizeof(void*));
static_assert(sizeof(CConnectionHelper) == sizeof(void*));
static_assert(sizeof(CHttpConnection) == sizeof(CNetConnection));
static_assert(sizeof(CFtpConnection) == sizeof(CNetConnection));
static_assert(sizeof(CLocalConnection) == sizeof(TransferItf));
static_assert(sizeof(CUncConnection) == sizeof(TransferItf));
static_assert(sizeof(AString) == sizeof(std::wstring));

// What is not polymorphic stays so: a table would move every field.
static_assert(!std::is_polymorphic_v<VoInetItfFactory> &&
              !std::is_polymorphic_v<CConnectionHelper>);
static_assert(!std::is_polymorphic_v<ANetworkUtil> && !std::is_polymorphic_v<AString> &&
              !std::is_polymorphic_v<AFormat>);

// Texts are wide with one character per code point; file positions have 64 bits on every target.
static_assert(sizeof(wchar_t) == 4);
static_assert(sizeof(bool) == 1);
static_assert(sizeof(long) == sizeof(void*));
static_assert(std::is_same_v<decltype(telSetFilePointer),
                             std::int64_t(telHandle, std::int64_t, std::uint32_t)>);

struct OpenedConnection : CHttpConnection {
    using CNetConnection::m_bUseLogonTimeout;
    using CNetConnection::m_nLogonTimeoutSeconds;
};

template <class... Members>
std::vector<const void*> addressesOf(const Members&... members) {
    return {static_cast<const void*>(&members)...};
}

}  // namespace

TEST(ProxyRecord, Fields_AreTheAgreedOnesAndNoOthers) {
    const CProxyParams p;

    // Takes exactly as many names as there are fields, those in the gaps between them included.
    const auto& [reserved1, proxyHost, httpPort, ftpPort, allowUser, bypassLocal, useIeConfig,
                 rangeListSize, rangeList, exclusionListSize, exclusionList, reserved2,
                 ftpAuthentication, httpAuthentication, httpUser, httpPassword, ftpUser,
                 ftpPassword, ftpAlt, httpAlt, httpAltUser, httpAltPassword, ftpAltUser,
                 ftpAltPassword] = p;

    EXPECT_EQ(addressesOf(reserved1, proxyHost, httpPort, ftpPort, allowUser, bypassLocal,
                          useIeConfig, rangeListSize, rangeList, exclusionListSize, exclusionList,
                          reserved2, ftpAuthentication, httpAuthentication, httpUser, httpPassword,
                          ftpUser, ftpPassword, ftpAlt, httpAlt, httpAltUser, httpAltPassword,
                          ftpAltUser, ftpAltPassword),
              addressesOf(p.m_nReserved1, p.m_strProxyHost, p.m_nHttpProxyPort, p.m_nFtpProxyPort,
                          p.m_bAllowUserToConfigureProxy, p.m_bBypassLocal, p.m_bUseIEConfig,
                          p.m_nRangeListSize, p.m_strRangeList, p.m_nExclusionListSize,
                          p.m_strExclusionList, p.m_nReserved2, p.m_bFtpProxyAuthentication,
                          p.m_bHttpProxyAuthentication, p.m_strHttpProxyUser,
                          p.m_strHttpProxyPassword, p.m_strFtpProxyUser, p.m_strFtpProxyPassword,
                          p.m_bFtpAltCredentials, p.m_bHttpAltCredentials, p.m_strHttpAltUser,
                          p.m_strHttpAltPassword, p.m_strFtpAltUser, p.m_strFtpAltPassword));
}

TEST(Settings, Members_StandOneAfterTheOther) {
    const CUncConnection s;
    const auto number = [&s](const int& member) { return memberIn<int>(&s, member); };
    const auto flag = [&s](const bool& member) { return memberIn<bool>(&s, member); };
    const auto wide = [&s](const std::wstring& member) {
        return memberIn<std::wstring>(&s, member);
    };
    const auto utf8 = [&s](const std::string& member) { return memberIn<std::string>(&s, member); };

    const std::array members{
        memberIn<voInetProtocol>(&s, s.m_protocol),
        number(s.m_nPort),
        number(s.m_nSslPort),
        number(s.m_nPortIP),
        number(s.m_nPortFqdn),
        number(s.m_nPortNetbios),
        wide(s.m_strAccount),
        wide(s.m_strProxy),
        number(s.m_nProxyPort),
        wide(s.m_strProxyUserName),
        wide(s.m_strProxyPassword),
        wide(s.m_strAltProxyUserName),
        wide(s.m_strAltProxyPassword),
        flag(s.m_bUseProxy),
        wide(s.m_strProxyUserPwd),
        wide(s.m_strAltProxyUserPwd),
        wide(s.m_strExclusionList),
        wide(s.m_strRangeList),
        number(s.m_nExclusionListSize),
        number(s.m_nRangeListSize),
        flag(s.m_bBypassLocal),
        flag(s.m_bUseIEConfig),
        flag(s.m_bAllowUserToConfigureProxy),
        flag(s.m_bUseLoggedOnUser),
        flag(s.m_bUseAuthentication),
        flag(s.m_bUseProxyAuthentication),
        flag(s.m_bAltUseProxyAuthentication),
        wide(s.m_strSite),
        wide(s.m_strHostIP),
        wide(s.m_strHostFqdn),
        wide(s.m_strHostNetBios),
        wide(s.m_strHost),
        wide(s.m_strUser),
        wide(s.m_strPassword),
        wide(s.m_strDomain),
        wide(s.m_strServer),
        wide(s.m_strShare),
        wide(s.m_strRelativePath),
        wide(s.m_strUserAgent),
        flag(s.m_bUseSSL),
        wide(s.m_strCARootPath),
        wide(s.m_strUpdateToken),
        utf8(s.m_strSite_utf8_rep),
        utf8(s.m_strHost_utf8_rep),
        utf8(s.m_strHostIP_utf8_rep),
        utf8(s.m_strHostFqdn_utf8_rep),
        utf8(s.m_strHostNetBios_utf8_rep),
        utf8(s.m_strUser_utf8_rep),
        utf8(s.m_strPassword_utf8_rep),
        utf8(s.m_strAccount_utf8_rep),
        utf8(s.m_strProxy_utf8_rep),
        utf8(s.m_strProxyUserName_utf8_rep),
        utf8(s.m_strProxyPassword_utf8_rep),
        utf8(s.m_strAltProxyUserName_utf8_rep),
        utf8(s.m_strAltProxyPassword_utf8_rep),
        utf8(s.m_strAltProxyUserPwd_utf8_rep),
        utf8(s.m_strProxyUserPwd_utf8_rep),
        utf8(s.m_strExclusionList_utf8_rep),
        utf8(s.m_strRangeList_utf8_rep),
        utf8(s.m_strDomain_utf8_rep),
        utf8(s.m_strServer_utf8_rep),
        utf8(s.m_strShare_utf8_rep),
        utf8(s.m_strRelativePath_utf8_rep),
        utf8(s.m_strUserAgent_utf8_rep),
        utf8(s.m_strCARootPath_utf8_rep),
    };

    // The table of the virtual operations stands in front.
    EXPECT_EQ(firstMoved(members, sizeof(void*)), members.size()) << "the first one that moved";
    EXPECT_EQ(sizeof(TransferItf), alignedTo(alignof(TransferItf), endOf(members)));
}

TEST(NetConnection, Members_FollowTheSettings) {
    const OpenedConnection connection;

    const std::array members{
        memberIn<bool>(&connection, connection.m_bUseLogonTimeout),
        memberIn<unsigned int>(&connection, connection.m_nLogonTimeoutSeconds),
    };

    EXPECT_EQ(firstMoved(members, sizeof(TransferItf)), members.size())
        << "the first one that moved";
    // The current host form is the last.
    EXPECT_EQ(sizeof(CNetConnection),
              alignedTo(alignof(CNetConnection), endOf(members) + sizeof(voInetConnMethod)));
}
