#include "voinet/transferitf.h"

#include "boundary.h"
#include "hostforms.h"
#include "logtag.h"
#include "saturate.h"
#include "voinet/INetUtils.h"
#include "voinet/log.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <utility>
#include <vector>

namespace tessaro_com::pkm::voInet {

namespace {

using Number = int TransferItf::*;
using Flag = bool TransferItf::*;
using WideText = std::wstring TransferItf::*;
using Utf8Text = std::string TransferItf::*;

void setText(TransferItf& settings, WideText wide, Utf8Text twin, const std::wstring& value) {
    std::string utf8 = unicode_to_utf8(value);
    settings.*wide = value;
    settings.*twin = std::move(utf8);
}

// Which option fills which members.

struct NumberOption {
    voInetOption option;
    Number member;
};

constexpr NumberOption kNumberOptions[] = {
    {voInetOptionPortIP, &TransferItf::m_nPortIP},
    {voInetOptionPortFqdn, &TransferItf::m_nPortFqdn},
    {voInetOptionPortNetbios, &TransferItf::m_nPortNetbios},
    {voInetOptionSslPort, &TransferItf::m_nSslPort},
};

struct FlagOption {
    voInetOption option;
    Flag member;
};

constexpr FlagOption kFlagOptions[] = {
    {voInetOptionUseLoggedOnUser, &TransferItf::m_bUseLoggedOnUser},
    {voInetOptionUseSSL, &TransferItf::m_bUseSSL},
};

struct TextOption {
    voInetOption option;
    WideText wide;
    Utf8Text twin;
};

constexpr TextOption kTextOptions[] = {
    {voInetOptionSite, &TransferItf::m_strSite, &TransferItf::m_strSite_utf8_rep},
    {voInetOptionUser, &TransferItf::m_strUser, &TransferItf::m_strUser_utf8_rep},
    {voInetOptionPassword, &TransferItf::m_strPassword, &TransferItf::m_strPassword_utf8_rep},
    {voInetOptionAccount, &TransferItf::m_strAccount, &TransferItf::m_strAccount_utf8_rep},
    {voInetOptionDomain, &TransferItf::m_strDomain, &TransferItf::m_strDomain_utf8_rep},
    {voInetOptionServer, &TransferItf::m_strServer, &TransferItf::m_strServer_utf8_rep},
    {voInetOptionShare, &TransferItf::m_strShare, &TransferItf::m_strShare_utf8_rep},
    {voInetOptionRelativePath, &TransferItf::m_strRelativePath,
     &TransferItf::m_strRelativePath_utf8_rep},
    {voInetOptionUserAgent, &TransferItf::m_strUserAgent, &TransferItf::m_strUserAgent_utf8_rep},
    {voInetOptionCARootPath, &TransferItf::m_strCARootPath, &TransferItf::m_strCARootPath_utf8_rep},
};

template <class Row, std::size_t size>
const Row* findOption(const Row (&table)[size], voInetOption option) {
    const auto* row = std::find_if(std::begin(table), std::end(table),
                                   [option](const Row& r) { return r.option == option; });
    return row == std::end(table) ? nullptr : row;
}

void remove_protocol_specifier(std::wstring& value) {
    const std::wstring separator = L"://";
    const auto position = value.find(separator);
    if (position != std::wstring::npos) {
        value.erase(0, position + separator.size());
    }
}

/// False, with host and port untouched, for a value without a port.
bool split_host_and_port(const std::wstring& value, std::wstring& host, int& port) {
    std::wstring rest = value;
    remove_protocol_specifier(rest);
    const auto colon = rest.rfind(L':');
    if (colon == std::wstring::npos) {
        return false;
    }
    host = rest.substr(0, colon);
    std::wistringstream portText(rest.substr(colon + 1));
    portText.imbue(std::locale::classic());
    int number = 0;  // what an empty text or one that is no number leaves
    portText >> number;
    port = number;
    return true;
}

// The part of a proxy record that belongs to one protocol.

struct CredentialFields {
    bool CProxyParams::*inUse;
    std::wstring CProxyParams::*user;
    std::wstring CProxyParams::*password;
};

struct ProxyFields {
    int CProxyParams::*port;
    CredentialFields first;
    CredentialFields alternate;
};

constexpr ProxyFields kHttpProxyFields = {
    &CProxyParams::m_nHttpProxyPort,
    {&CProxyParams::m_bHttpProxyAuthentication, &CProxyParams::m_strHttpProxyUser,
     &CProxyParams::m_strHttpProxyPassword},
    {&CProxyParams::m_bHttpAltCredentials, &CProxyParams::m_strHttpAltUser,
     &CProxyParams::m_strHttpAltPassword},
};

constexpr ProxyFields kFtpProxyFields = {
    &CProxyParams::m_nFtpProxyPort,
    {&CProxyParams::m_bFtpProxyAuthentication, &CProxyParams::m_strFtpProxyUser,
     &CProxyParams::m_strFtpProxyPassword},
    {&CProxyParams::m_bFtpAltCredentials, &CProxyParams::m_strFtpAltUser,
     &CProxyParams::m_strFtpAltPassword},
};

/// Null for a protocol that does not go through a proxy.
const ProxyFields* proxyFieldsOf(voInetProtocol protocol) {
    switch (protocol) {
        case voInetProtocolHttp:
            return &kHttpProxyFields;
        case voInetProtocolFtp:
            return &kFtpProxyFields;
        default:
            return nullptr;
    }
}

// Where one set of proxy credentials is kept.

struct CredentialMembers {
    WideText user;
    Utf8Text userTwin;
    WideText password;
    Utf8Text passwordTwin;
    WideText joined;
    Utf8Text joinedTwin;
    Flag complete;
};

constexpr CredentialMembers kFirstCredentials = {
    &TransferItf::m_strProxyUserName,        &TransferItf::m_strProxyUserName_utf8_rep,
    &TransferItf::m_strProxyPassword,        &TransferItf::m_strProxyPassword_utf8_rep,
    &TransferItf::m_strProxyUserPwd,         &TransferItf::m_strProxyUserPwd_utf8_rep,
    &TransferItf::m_bUseProxyAuthentication,
};

constexpr CredentialMembers kAlternateCredentials = {
    &TransferItf::m_strAltProxyUserName,        &TransferItf::m_strAltProxyUserName_utf8_rep,
    &TransferItf::m_strAltProxyPassword,        &TransferItf::m_strAltProxyPassword_utf8_rep,
    &TransferItf::m_strAltProxyUserPwd,         &TransferItf::m_strAltProxyUserPwd_utf8_rep,
    &TransferItf::m_bAltUseProxyAuthentication,
};

/// New texts with their twins, made aside, so that the settings take over all of them or none.
class NewTexts {
  public:
    explicit NewTexts(TransferItf& settings) : m_settings(settings) {}

    void set(WideText wide, Utf8Text twin, const std::wstring& value) {
        m_rows.push_back({wide, twin, value, unicode_to_utf8(value)});
    }

    void setUnlessEmpty(WideText wide, Utf8Text twin, const std::wstring& value) {
        if (!value.empty()) {
            set(wide, twin, value);
        }
    }

    /// What the settings are going to hold.
    const std::wstring& at(WideText wide) const {
        const auto row = std::find_if(m_rows.begin(), m_rows.end(),
                                      [wide](const Row& each) { return each.wide == wide; });
        return row == m_rows.end() ? m_settings.*wide : row->value;
    }

    void takeOver() noexcept {
        for (Row& row : m_rows) {
            (m_settings.*row.wide).swap(row.value);
            (m_settings.*row.twin).swap(row.utf8);
        }
        m_rows.clear();
    }

  private:
    struct Row {
        WideText wide;
        Utf8Text twin;
        std::wstring value;
        std::string utf8;
    };

    TransferItf& m_settings;
    std::vector<Row> m_rows;
};

/// True when user name and password are complete.
bool addCredentials(NewTexts& texts, const CProxyParams& proxy, const CredentialFields& from,
                    const CredentialMembers& to) {
    texts.setUnlessEmpty(to.user, to.userTwin, proxy.*from.user);
    texts.setUnlessEmpty(to.password, to.passwordTwin, proxy.*from.password);
    // The stored members are joined, so what an earlier record brought lives on; intended.
    const bool isComplete = !texts.at(to.user).empty() && !texts.at(to.password).empty();
    if (isComplete) {
        texts.set(to.joined, to.joinedTwin, texts.at(to.user) + L":" + texts.at(to.password));
    }
    return isComplete;
}

void applyProxy(TransferItf& settings, const CProxyParams& proxy) {
    NewTexts texts(settings);
    texts.set(&TransferItf::m_strProxy, &TransferItf::m_strProxy_utf8_rep, proxy.m_strProxyHost);
    texts.setUnlessEmpty(&TransferItf::m_strExclusionList,
                         &TransferItf::m_strExclusionList_utf8_rep, proxy.m_strExclusionList);
    texts.setUnlessEmpty(&TransferItf::m_strRangeList, &TransferItf::m_strRangeList_utf8_rep,
                         proxy.m_strRangeList);
    const ProxyFields* fields = proxyFieldsOf(settings.m_protocol);
    const bool isFirstComplete = fields != nullptr && proxy.*fields->first.inUse &&
                                 addCredentials(texts, proxy, fields->first, kFirstCredentials);
    const bool isAlternateComplete =
        fields != nullptr && proxy.*fields->alternate.inUse && proxy.m_bAllowUserToConfigureProxy &&
        addCredentials(texts, proxy, fields->alternate, kAlternateCredentials);

    // From here on nothing can fail.
    texts.takeOver();
    settings.m_bUseProxy = true;
    if (!proxy.m_strExclusionList.empty()) {
        settings.m_nExclusionListSize = proxy.m_nExclusionListSize;
    }
    if (!proxy.m_strRangeList.empty()) {
        settings.m_nRangeListSize = proxy.m_nRangeListSize;
    }
    settings.m_bBypassLocal = proxy.m_bBypassLocal;
    settings.m_bUseIEConfig = proxy.m_bUseIEConfig;
    settings.m_bAllowUserToConfigureProxy = proxy.m_bAllowUserToConfigureProxy;
    if (fields != nullptr) {
        settings.m_nProxyPort = proxy.*fields->port;
    }
    settings.*kFirstCredentials.complete |= isFirstComplete;
    settings.*kAlternateCredentials.complete |= isAlternateComplete;
}

void setHost(TransferItf& settings, const HostForm& form, const std::wstring& value) {
    std::wstring host = settings.*form.host;
    int port = settings.*form.port;
    // A value without a port changes nothing; intended.
    split_host_and_port(value, host, port);
    std::string utf8 = unicode_to_utf8(host);
    (settings.*form.host).swap(host);
    (settings.*form.hostUtf8).swap(utf8);
    settings.*form.port = port;
}

voInetError setTextOption(TransferItf& settings, voInetOption option, const std::wstring& value) {
    if (value.empty()) {
        return option == voInetOptionRelativePath ? voInetErrorSuccess : voInetErrorInvalidArgument;
    }
    if (const auto* host = findOption(kHostForms, option)) {
        setHost(settings, *host, value);
        return voInetErrorSuccess;
    }
    if (const auto* text = findOption(kTextOptions, option)) {
        setText(settings, text->wide, text->twin, value);
        if (option == voInetOptionUser) {
            settings.m_bUseAuthentication = true;
        }
        return voInetErrorSuccess;
    }
    if (option == voInetOptionUpdateToken) {
        settings.m_strUpdateToken = value;
        return voInetErrorSuccess;
    }
    voinet_LoginfoDebug(kLogTag, "Invalid string option %d = %s", option,
                        unicode_to_utf8(value).c_str());
    return voInetErrorInvalidOption;
}

// What dumpObject writes, line by line.

struct DumpedScalar {
    const char* name;
    Number number;
    Flag flag;
};

constexpr DumpedScalar kDumpedScalars[] = {
    {"m_nPort", &TransferItf::m_nPort, nullptr},
    {"m_nSslPort", &TransferItf::m_nSslPort, nullptr},
    {"m_nPortIP", &TransferItf::m_nPortIP, nullptr},
    {"m_nPortFqdn", &TransferItf::m_nPortFqdn, nullptr},
    {"m_nPortNetbios", &TransferItf::m_nPortNetbios, nullptr},
    {"m_nProxyPort", &TransferItf::m_nProxyPort, nullptr},
    {"m_bUseProxy", nullptr, &TransferItf::m_bUseProxy},
    {"m_nExclusionListSize", &TransferItf::m_nExclusionListSize, nullptr},
    {"m_nRangeListSize", &TransferItf::m_nRangeListSize, nullptr},
    {"m_bBypassLocal", nullptr, &TransferItf::m_bBypassLocal},
    {"m_bUseIEConfig", nullptr, &TransferItf::m_bUseIEConfig},
    {"m_bAllowUserToConfigureProxy", nullptr, &TransferItf::m_bAllowUserToConfigureProxy},
    {"m_bUseLoggedOnUser", nullptr, &TransferItf::m_bUseLoggedOnUser},
    {"m_bUseAuthentication", nullptr, &TransferItf::m_bUseAuthentication},
    {"m_bUseProxyAuthentication", nullptr, &TransferItf::m_bUseProxyAuthentication},
    {"m_bAltUseProxyAuthentication", nullptr, &TransferItf::m_bAltUseProxyAuthentication},
    {"m_bUseSSL", nullptr, &TransferItf::m_bUseSSL},
};

struct DumpedText {
    const char* name;
    Utf8Text text;
};

constexpr DumpedText kDumpedTexts[] = {
    {"m_strSite_utf8_rep", &TransferItf::m_strSite_utf8_rep},
    {"m_strHost_utf8_rep", &TransferItf::m_strHost_utf8_rep},
    {"m_strHostIP_utf8_rep", &TransferItf::m_strHostIP_utf8_rep},
    {"m_strHostFqdn_utf8_rep", &TransferItf::m_strHostFqdn_utf8_rep},
    {"m_strHostNetBios_utf8_rep", &TransferItf::m_strHostNetBios_utf8_rep},
    {"m_strUser_utf8_rep", &TransferItf::m_strUser_utf8_rep},
    {"m_strPassword_utf8_rep", &TransferItf::m_strPassword_utf8_rep},
    {"m_strAccount_utf8_rep", &TransferItf::m_strAccount_utf8_rep},
    {"m_strProxy_utf8_rep", &TransferItf::m_strProxy_utf8_rep},
    {"m_strProxyUserName_utf8_rep", &TransferItf::m_strProxyUserName_utf8_rep},
    {"m_strProxyPassword_utf8_rep", &TransferItf::m_strProxyPassword_utf8_rep},
    {"m_strAltProxyUserName_utf8_rep", &TransferItf::m_strAltProxyUserName_utf8_rep},
    {"m_strAltProxyPassword_utf8_rep", &TransferItf::m_strAltProxyPassword_utf8_rep},
    {"m_strAltProxyUserPwd_utf8_rep", &TransferItf::m_strAltProxyUserPwd_utf8_rep},
    {"m_strProxyUserPwd_utf8_rep", &TransferItf::m_strProxyUserPwd_utf8_rep},
    {"m_strExclusionList_utf8_rep", &TransferItf::m_strExclusionList_utf8_rep},
    {"m_strRangeList_utf8_rep", &TransferItf::m_strRangeList_utf8_rep},
    {"m_strDomain_utf8_rep", &TransferItf::m_strDomain_utf8_rep},
    {"m_strServer_utf8_rep", &TransferItf::m_strServer_utf8_rep},
    {"m_strShare_utf8_rep", &TransferItf::m_strShare_utf8_rep},
    {"m_strRelativePath_utf8_rep", &TransferItf::m_strRelativePath_utf8_rep},
    // Twice, on purpose: readers of the dump count its lines.
    {"m_strRelativePath_utf8_rep", &TransferItf::m_strRelativePath_utf8_rep},
    {"m_strUserAgent_utf8_rep", &TransferItf::m_strUserAgent_utf8_rep},
    {"m_strCARootPath_utf8_rep", &TransferItf::m_strCARootPath_utf8_rep},
};

}  // namespace

TransferItf::TransferItf() = default;

TransferItf::~TransferItf() = default;

void TransferItf::PostLogOutOperations() {}

voInetError TransferItf::SetOption(const voInetOption& option, const int& value) {
    return SetOption(option, static_cast<long>(value));
}

voInetError TransferItf::SetOption(const voInetOption& option, const long& value) {
    const int number = saturate<int>(value);
    if (const auto* row = findOption(kNumberOptions, option)) {
        this->*row->member = number;
        return voInetErrorSuccess;
    }
    voinet_LoginfoDebug(kLogTag, "Invalid long option %d = %d", option, number);
    return voInetErrorInvalidOption;
}

voInetError TransferItf::SetOption(const voInetOption& option, const bool& value) {
    if (const auto* row = findOption(kFlagOptions, option)) {
        this->*row->member = value;
        return voInetErrorSuccess;
    }
    voinet_LoginfoDebug(kLogTag, "Invalid bool option %d = %d", option, value ? 1 : 0);
    return voInetErrorInvalidOption;
}

voInetError TransferItf::SetOption(const voInetOption& option, const std::wstring& value) {
    return withoutExceptions([&] { return setTextOption(*this, option, value); });
}

voInetError TransferItf::SetOption(const voInetOption& /*option*/, const CProxyParams* proxy) {
    if (proxy == nullptr) {
        return voInetErrorInvalidArgument;
    }
    return withoutExceptions([&] {
        applyProxy(*this, *proxy);
        return voInetErrorSuccess;
    });
}

voInetProtocol TransferItf::GetProtocol() const {
    return m_protocol;
}

bool TransferItf::dumpObject() {
    voinet_LoginfoDebug(kLogTag, "Protocol %d", m_protocol);
    for (const auto& row : kDumpedScalars) {
        const int value = row.number != nullptr ? this->*row.number : (this->*row.flag ? 1 : 0);
        voinet_LoginfoDebug(kLogTag, "%s %d", row.name, value);
    }
    for (const auto& row : kDumpedTexts) {
        voinet_LoginfoDebug(kLogTag, "%s %s", row.name, (this->*row.text).c_str());
    }
    return true;
}

}  // namespace tessaro_com::pkm::voInet
