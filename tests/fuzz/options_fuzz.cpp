// The settings of transfer objects: a sequence of SetOption calls, each compared with a model that
// knows which overload takes what and that a refused value changes nothing.

#include "kvecomn/telmcomn.h"
#include "support/fuzztarget.h"
#include "support/input.h"
#include "voinet/cnetconnection.h"
#include "voinet/voinet.h"

#include <array>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace voinet_fuzz {

namespace {

using namespace tessaro_com::pkm::voInet;

using Wide = std::wstring TransferItf::*;
using Twin = std::string TransferItf::*;
using Number = int TransferItf::*;
using Flag = bool TransferItf::*;

struct Text {
    Wide wide;
    Twin twin;
};

const std::array<Text, 23> kTexts = {{
    {&TransferItf::m_strSite, &TransferItf::m_strSite_utf8_rep},
    {&TransferItf::m_strHost, &TransferItf::m_strHost_utf8_rep},
    {&TransferItf::m_strHostIP, &TransferItf::m_strHostIP_utf8_rep},
    {&TransferItf::m_strHostFqdn, &TransferItf::m_strHostFqdn_utf8_rep},
    {&TransferItf::m_strHostNetBios, &TransferItf::m_strHostNetBios_utf8_rep},
    {&TransferItf::m_strUser, &TransferItf::m_strUser_utf8_rep},
    {&TransferItf::m_strPassword, &TransferItf::m_strPassword_utf8_rep},
    {&TransferItf::m_strAccount, &TransferItf::m_strAccount_utf8_rep},
    {&TransferItf::m_strProxy, &TransferItf::m_strProxy_utf8_rep},
    {&TransferItf::m_strProxyUserName, &TransferItf::m_strProxyUserName_utf8_rep},
    {&TransferItf::m_strProxyPassword, &TransferItf::m_strProxyPassword_utf8_rep},
    {&TransferItf::m_strProxyUserPwd, &TransferItf::m_strProxyUserPwd_utf8_rep},
    {&TransferItf::m_strAltProxyUserName, &TransferItf::m_strAltProxyUserName_utf8_rep},
    {&TransferItf::m_strAltProxyPassword, &TransferItf::m_strAltProxyPassword_utf8_rep},
    {&TransferItf::m_strAltProxyUserPwd, &TransferItf::m_strAltProxyUserPwd_utf8_rep},
    {&TransferItf::m_strExclusionList, &TransferItf::m_strExclusionList_utf8_rep},
    {&TransferItf::m_strRangeList, &TransferItf::m_strRangeList_utf8_rep},
    {&TransferItf::m_strDomain, &TransferItf::m_strDomain_utf8_rep},
    {&TransferItf::m_strServer, &TransferItf::m_strServer_utf8_rep},
    {&TransferItf::m_strShare, &TransferItf::m_strShare_utf8_rep},
    {&TransferItf::m_strRelativePath, &TransferItf::m_strRelativePath_utf8_rep},
    {&TransferItf::m_strUserAgent, &TransferItf::m_strUserAgent_utf8_rep},
    {&TransferItf::m_strCARootPath, &TransferItf::m_strCARootPath_utf8_rep},
}};

const std::array<Number, 8> kNumbers = {
    &TransferItf::m_nPort,
    &TransferItf::m_nSslPort,
    &TransferItf::m_nPortIP,
    &TransferItf::m_nPortFqdn,
    &TransferItf::m_nPortNetbios,
    &TransferItf::m_nProxyPort,
    &TransferItf::m_nExclusionListSize,
    &TransferItf::m_nRangeListSize,
};

const std::array<Flag, 9> kFlags = {
    &TransferItf::m_bUseProxy,
    &TransferItf::m_bBypassLocal,
    &TransferItf::m_bUseIEConfig,
    &TransferItf::m_bAllowUserToConfigureProxy,
    &TransferItf::m_bUseLoggedOnUser,
    &TransferItf::m_bUseAuthentication,
    &TransferItf::m_bUseProxyAuthentication,
    &TransferItf::m_bAltUseProxyAuthentication,
    &TransferItf::m_bUseSSL,
};

/// What the options may change of an object.
struct Settings {
    std::array<std::wstring, kTexts.size()> wide;
    std::array<std::string, kTexts.size()> twin;
    std::array<int, kNumbers.size()> number{};
    std::array<bool, kFlags.size()> flag{};
    std::wstring token;

    bool operator==(const Settings& other) const {
        return std::tie(wide, twin, number, flag, token) ==
               std::tie(other.wide, other.twin, other.number, other.flag, other.token);
    }

    template <class Members, class Member>
    static std::size_t indexOf(const Members& members, Member member) {
        std::size_t index = 0;
        while (members[index] != member) {
            ++index;
        }
        return index;
    }
    std::wstring& operator[](Wide member) { return wide[indexOfText(member)]; }
    int& operator[](Number member) { return number[indexOf(kNumbers, member)]; }
    bool isSet(Flag member) const { return flag[indexOf(kFlags, member)]; }
    void put(Flag member, bool value) { flag[indexOf(kFlags, member)] = value; }
    void put(Wide member, const std::wstring& value) {
        wide[indexOfText(member)] = value;
        twin[indexOfText(member)] = telmcomn_wide_to_ansi(value);
    }

  private:
    static std::size_t indexOfText(Wide member) {
        std::size_t index = 0;
        while (kTexts[index].wide != member) {
            ++index;
        }
        return index;
    }
};

Settings settingsOf(const TransferItf& transfer) {
    Settings settings;
    for (std::size_t i = 0; i < kTexts.size(); ++i) {
        settings.wide[i] = transfer.*kTexts[i].wide;
        settings.twin[i] = transfer.*kTexts[i].twin;
    }
    for (std::size_t i = 0; i < kNumbers.size(); ++i) {
        settings.number[i] = transfer.*kNumbers[i];
    }
    for (std::size_t i = 0; i < kFlags.size(); ++i) {
        settings.flag[i] = transfer.*kFlags[i];
    }
    settings.token = transfer.m_strUpdateToken;
    return settings;
}

const std::map<int, Number> kNumberOptions = {
    {3, &TransferItf::m_nPortIP},
    {4, &TransferItf::m_nPortFqdn},
    {5, &TransferItf::m_nPortNetbios},
    {17, &TransferItf::m_nSslPort},
};

const std::map<int, Flag> kFlagOptions = {
    {15, &TransferItf::m_bUseLoggedOnUser},
    {18, &TransferItf::m_bUseSSL},
};

const std::map<int, Wide> kTextOptions = {
    {6, &TransferItf::m_strSite},         {7, &TransferItf::m_strUser},
    {8, &TransferItf::m_strPassword},     {9, &TransferItf::m_strAccount},
    {11, &TransferItf::m_strDomain},      {12, &TransferItf::m_strServer},
    {13, &TransferItf::m_strShare},       {14, &TransferItf::m_strRelativePath},
    {16, &TransferItf::m_strUserAgent},   {19, &TransferItf::m_strCARootPath},
    {20, &TransferItf::m_strUpdateToken},
};

struct HostOption {
    Wide host;
    Number port;
};

const std::map<int, HostOption> kHostOptions = {
    {0, {&TransferItf::m_strHostFqdn, &TransferItf::m_nPortFqdn}},
    {1, {&TransferItf::m_strHostNetBios, &TransferItf::m_nPortNetbios}},
    {2, {&TransferItf::m_strHostIP, &TransferItf::m_nPortIP}},
};

int clamped(long value) {
    constexpr long kLeast = std::numeric_limits<int>::min();
    constexpr long kMost = std::numeric_limits<int>::max();
    return static_cast<int>(value < kLeast ? kLeast : value > kMost ? kMost : value);
}

/// Blanks, a sign and digits; anything else behind them is passed over, and no digits are 0.
int portOf(const std::wstring& text) {
    const auto start = text.find_first_not_of(L" \t\n\v\f\r");
    if (start == std::wstring::npos) {
        return 0;
    }
    const bool isNegative = text[start] == L'-';
    const bool isSigned = isNegative || text[start] == L'+';
    long value = 0;
    for (std::size_t i = start + (isSigned ? 1 : 0);
         i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i) {
        value = clamped(value) * 10LL > std::numeric_limits<int>::max()
                    ? std::numeric_limits<int>::max()
                    : clamped(static_cast<long>(value * 10LL + (text[i] - L'0')));
    }
    const long long wanted = isNegative ? -static_cast<long long>(value) : value;
    return static_cast<int>(wanted);
}

voInetError applyHost(Settings& settings, const HostOption& option, std::wstring value) {
    const auto scheme = value.find(L"://");
    if (scheme != std::wstring::npos) {
        value = value.substr(scheme + 3);
    }
    const auto colon = value.rfind(L':');
    if (colon != std::wstring::npos) {
        settings.put(option.host, value.substr(0, colon));
        settings[option.port] = portOf(value.substr(colon + 1));
    }
    return voInetErrorSuccess;
}

voInetError applyText(Settings& settings, int option, const std::wstring& value) {
    constexpr int kRelativePath = 14;
    constexpr int kUser = 7;
    constexpr int kUpdateToken = 20;
    if (value.empty()) {
        return option == kRelativePath ? voInetErrorSuccess : voInetErrorInvalidArgument;
    }
    if (const auto host = kHostOptions.find(option); host != kHostOptions.end()) {
        return applyHost(settings, host->second, value);
    }
    const auto text = kTextOptions.find(option);
    if (text == kTextOptions.end()) {
        return voInetErrorInvalidOption;
    }
    if (option == kUpdateToken) {
        settings.token = value;
    } else {
        settings.put(text->second, value);
    }
    if (option == kUser) {
        settings.put(&TransferItf::m_bUseAuthentication, true);
    }
    return voInetErrorSuccess;
}

struct Credentials {
    Wide user;
    Wide password;
    Wide joined;
    Flag complete;
};

const Credentials kFirstCredentials = {
    &TransferItf::m_strProxyUserName, &TransferItf::m_strProxyPassword,
    &TransferItf::m_strProxyUserPwd, &TransferItf::m_bUseProxyAuthentication};
const Credentials kAlternateCredentials = {
    &TransferItf::m_strAltProxyUserName, &TransferItf::m_strAltProxyPassword,
    &TransferItf::m_strAltProxyUserPwd, &TransferItf::m_bAltUseProxyAuthentication};

void applyCredentials(Settings& settings, const Credentials& members, const std::wstring& user,
                      const std::wstring& password) {
    if (!user.empty()) {
        settings.put(members.user, user);
    }
    if (!password.empty()) {
        settings.put(members.password, password);
    }
    const std::wstring storedUser = settings[members.user];
    const std::wstring storedPassword = settings[members.password];
    if (!storedUser.empty() && !storedPassword.empty()) {
        settings.put(members.joined, storedUser + L":" + storedPassword);
        settings.put(members.complete, true);
    }
}

void applyProxy(Settings& settings, const CProxyParams& proxy, voInetProtocol protocol) {
    settings.put(&TransferItf::m_strProxy, proxy.m_strProxyHost);
    settings.put(&TransferItf::m_bUseProxy, true);
    if (!proxy.m_strExclusionList.empty()) {
        settings.put(&TransferItf::m_strExclusionList, proxy.m_strExclusionList);
        settings[&TransferItf::m_nExclusionListSize] = proxy.m_nExclusionListSize;
    }
    if (!proxy.m_strRangeList.empty()) {
        settings.put(&TransferItf::m_strRangeList, proxy.m_strRangeList);
        settings[&TransferItf::m_nRangeListSize] = proxy.m_nRangeListSize;
    }
    settings.put(&TransferItf::m_bBypassLocal, proxy.m_bBypassLocal);
    settings.put(&TransferItf::m_bUseIEConfig, proxy.m_bUseIEConfig);
    settings.put(&TransferItf::m_bAllowUserToConfigureProxy, proxy.m_bAllowUserToConfigureProxy);
    const bool isHttp = protocol == voInetProtocolHttp;
    if (!isHttp && protocol != voInetProtocolFtp) {
        return;
    }
    settings[&TransferItf::m_nProxyPort] = isHttp ? proxy.m_nHttpProxyPort : proxy.m_nFtpProxyPort;
    if (isHttp ? proxy.m_bHttpProxyAuthentication : proxy.m_bFtpProxyAuthentication) {
        applyCredentials(settings, kFirstCredentials,
                         isHttp ? proxy.m_strHttpProxyUser : proxy.m_strFtpProxyUser,
                         isHttp ? proxy.m_strHttpProxyPassword : proxy.m_strFtpProxyPassword);
    }
    if (proxy.m_bAllowUserToConfigureProxy &&
        (isHttp ? proxy.m_bHttpAltCredentials : proxy.m_bFtpAltCredentials)) {
        applyCredentials(settings, kAlternateCredentials,
                         isHttp ? proxy.m_strHttpAltUser : proxy.m_strFtpAltUser,
                         isHttp ? proxy.m_strHttpAltPassword : proxy.m_strFtpAltPassword);
    }
}

std::wstring wideText(Input& input) {
    const std::string text = input.take(input.byte() % 48U);
    // Now and then characters that no UTF-8 can stand for.
    return input.byte() % 16U == 15 ? telmcomn_ansi_to_wide(text) + wchar_t(0xD800)
                                    : telmcomn_ansi_to_wide(text);
}

CProxyParams proxyRecord(Input& input) {
    CProxyParams proxy;
    for (bool CProxyParams::*member :
         {&CProxyParams::m_bAllowUserToConfigureProxy, &CProxyParams::m_bBypassLocal,
          &CProxyParams::m_bUseIEConfig, &CProxyParams::m_bFtpProxyAuthentication,
          &CProxyParams::m_bHttpProxyAuthentication, &CProxyParams::m_bFtpAltCredentials,
          &CProxyParams::m_bHttpAltCredentials}) {
        proxy.*member = input.flag();
    }
    for (int CProxyParams::*member :
         {&CProxyParams::m_nHttpProxyPort, &CProxyParams::m_nFtpProxyPort,
          &CProxyParams::m_nRangeListSize, &CProxyParams::m_nExclusionListSize}) {
        proxy.*member = static_cast<int>(input.number(4));
    }
    for (std::wstring CProxyParams::*member :
         {&CProxyParams::m_strProxyHost, &CProxyParams::m_strRangeList,
          &CProxyParams::m_strExclusionList, &CProxyParams::m_strHttpProxyUser,
          &CProxyParams::m_strHttpProxyPassword, &CProxyParams::m_strFtpProxyUser,
          &CProxyParams::m_strFtpProxyPassword, &CProxyParams::m_strHttpAltUser,
          &CProxyParams::m_strHttpAltPassword, &CProxyParams::m_strFtpAltUser,
          &CProxyParams::m_strFtpAltPassword}) {
        proxy.*member = wideText(input);
    }
    return proxy;
}

// One call on the object and the same on the model. Each answers whether the results agree.

bool setNumber(TransferItf& transfer, Settings& model, voInetOption option, Input& input) {
    const bool isInt = input.flag();
    const auto value = static_cast<long>(input.number(8));
    const auto row = kNumberOptions.find(option);
    const auto expected =
        row == kNumberOptions.end() ? voInetErrorInvalidOption : voInetErrorSuccess;
    if (row != kNumberOptions.end()) {
        model[row->second] = isInt ? static_cast<int>(value) : clamped(value);
    }
    return expected == (isInt ? transfer.SetOption(option, static_cast<int>(value))
                              : transfer.SetOption(option, value));
}

bool setFlag(TransferItf& transfer, Settings& model, voInetOption option, Input& input) {
    const bool value = input.flag();
    const auto row = kFlagOptions.find(option);
    if (row != kFlagOptions.end()) {
        model.put(row->second, value);
    }
    return transfer.SetOption(option, value) ==
           (row == kFlagOptions.end() ? voInetErrorInvalidOption : voInetErrorSuccess);
}

bool setText(TransferItf& transfer, Settings& model, voInetOption option, Input& input) {
    const std::wstring value = wideText(input);
    return transfer.SetOption(option, value) == applyText(model, option, value);
}

bool setProxy(TransferItf& transfer, Settings& model, voInetOption option, Input& input) {
    if (input.byte() == 0) {
        const CProxyParams* none = nullptr;
        return transfer.SetOption(option, none) == voInetErrorInvalidArgument;
    }
    const CProxyParams proxy = proxyRecord(input);
    applyProxy(model, proxy, transfer.GetProtocol());
    return transfer.SetOption(option, &proxy) == voInetErrorSuccess;
}

/// Makes one host form the active one.
bool activate(TransferItf& transfer, Settings& model, voInetOption option, Input& /*input*/) {
    auto* connection = dynamic_cast<CNetConnection*>(&transfer);
    if (connection == nullptr) {
        return true;
    }
    const std::map<int, HostOption> forms = {
        {1, kHostOptions.at(2)}, {2, kHostOptions.at(0)}, {3, kHostOptions.at(1)}};
    const auto form = forms.find(option);
    const bool isConfigured = form != forms.end() && !model[form->second.host].empty();
    if (isConfigured) {
        model.put(&TransferItf::m_strHost, model[form->second.host]);
        const int sslPort = model[&TransferItf::m_nSslPort];
        model[&TransferItf::m_nPort] =
            model.isSet(&TransferItf::m_bUseSSL) ? sslPort : model[form->second.port];
    }
    const voInetConnMethod method{static_cast<int>(option)};
    return connection->ApplyHostInformation(method) == isConfigured &&
           connection->CheckOptionsWithConnSpec(method) == isConfigured;
}

bool dump(TransferItf& transfer, Settings& /*model*/, voInetOption /*option*/, Input& /*input*/) {
    return transfer.dumpObject();
}

using Call = bool (*)(TransferItf&, Settings&, voInetOption, Input&);
constexpr Call kCalls[] = {setText, setNumber, setFlag, setProxy, activate, dump, setText, setText};

bool suffices(voInetProtocol protocol, Settings settings) {
    const bool hasServer = !settings[&TransferItf::m_strSite].empty() &&
                           !settings[&TransferItf::m_strHost].empty() &&
                           settings[&TransferItf::m_nPort] >= 1;
    switch (protocol) {
        case voInetProtocolHttp:
            return hasServer;
        case voInetProtocolFtp:
            return hasServer && !settings[&TransferItf::m_strUser].empty();
        case voInetProtocolUnc:
            return true;
        default:
            return false;
    }
}

/// "Is the current and configured" goes stale with the current form, so it is not part of the
/// model.
void makeCalls(TransferItf& transfer, voInetProtocol protocol, Input& input) {
    constexpr int kMaxCalls = 64;
    constexpr int kOptionCount = 24;
    Settings model = settingsOf(transfer);
    for (int i = 0; i < kMaxCalls && !input.empty(); ++i) {
        const Call call = kCalls[input.byte() % std::size(kCalls)];
        const auto option = static_cast<voInetOption>(input.byte() % kOptionCount - 1);
        require(call(transfer, model, option, input), "the result is the expected one");
        require(settingsOf(transfer) == model, "exactly the named settings change");
        require(transfer.CheckOptions() == suffices(protocol, model), "settings suffice or not");
    }
}

struct Destroy {
    void operator()(TransferItf* transfer) const { VoInetItfFactory().DestroyInterface(transfer); }
};

}  // namespace

void tryInput(const std::string& bytes) {
    static constexpr voInetProtocol kProtocols[] = {voInetProtocolHttp, voInetProtocolFtp,
                                                    voInetProtocolLocal, voInetProtocolUnc};
    Input input(bytes);
    const voInetProtocol protocol = kProtocols[input.byte() % std::size(kProtocols)];
    const std::unique_ptr<TransferItf, Destroy> transfer(
        VoInetItfFactory().CreateInterface(protocol));
    require(transfer != nullptr, "every protocol has an object");
    makeCalls(*transfer, protocol, input);
}

}  // namespace voinet_fuzz
