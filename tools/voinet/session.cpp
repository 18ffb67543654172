#include "session.h"

#include "commanderror.h"
#include "endpoint.h"
#include "kvecomn/telmcomn.h"
#include "resulttexts.h"
#include "secrets.h"
#include "texts.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace voinet_command {

namespace voInet = tessaro_com::pkm::voInet;

namespace {

constexpr int kHttpPort = 80;
constexpr int kFtpPort = 21;

bool isNetwork(voInet::voInetProtocol protocol) {
    return protocol == voInet::voInetProtocolHttp || protocol == voInet::voInetProtocolFtp;
}

void checkText(const std::string& text, const std::string& option) {
    if (!isUtf8(text) || withoutControls(text) != text) {
        throw CommandError(ExitStatus::usage,
                           fmt::format("{}: the value is no plain text in UTF-8", option));
    }
}

TransferPtr makeTransfer(voInet::voInetProtocol protocol) {
    TransferPtr transfer(voInet::VoInetItfFactory().CreateInterface(protocol));
    if (!transfer) {
        throw CommandError(ExitStatus::failed, "the library does not offer this protocol");
    }
    return transfer;
}

/// Sets options of one transfer object; empty texts are left alone.
class Settings {
  public:
    explicit Settings(voInet::TransferItf& transfer) : m_transfer(transfer) {}

    void Text(voInet::voInetOption option, const std::string& text, const std::string& name) {
        if (!text.empty()) {
            checkText(text, name);
            Check(m_transfer.SetOption(option, telmcomn_ansi_to_wide(text)), name);
        }
    }
    void Flag(voInet::voInetOption option, bool value, const std::string& name) {
        Check(m_transfer.SetOption(option, value), name);
    }
    void Number(voInet::voInetOption option, int value, const std::string& name) {
        Check(m_transfer.SetOption(option, value), name);
    }
    void Proxy(const voInet::CProxyParams& proxy) {
        // The option's number is not looked at for a proxy record.
        Check(m_transfer.SetOption(voInet::voInetOptionHostFqdn, &proxy), "--proxy");
    }

  private:
    static void Check(voInet::voInetError result, const std::string& name) {
        if (result != voInet::voInetErrorSuccess) {
            throw CommandError(ExitStatus::usage,
                               fmt::format("{}: {}", name, nameWithNumber(result)));
        }
    }

    voInet::TransferItf& m_transfer;
};

voInet::voInetOption optionOf(HostForm form) {
    switch (form) {
        case HostForm::ip:
            return voInet::voInetOptionHostIP;
        case HostForm::fqdn:
            return voInet::voInetOptionHostFqdn;
        case HostForm::netbios:
            break;
    }
    return voInet::voInetOptionHostNetBios;
}

/// Sets one host form; the library takes host and port only together.
void applyHost(Settings& settings, HostForm form, const Endpoint& endpoint,
               const std::string& name) {
    settings.Text(optionOf(form), fmt::format("{}:{}", bracketed(endpoint.host), endpoint.port),
                  name);
}

void applyHosts(Settings& settings, const ConnectionOptions& options) {
    const int port = options.protocol == voInet::voInetProtocolFtp ? kFtpPort : kHttpPort;
    struct Given {
        const std::string& text;
        HostForm form;
        const char* name;
    };
    const std::array<Given, 3> forms = {
        {{options.hostIp, HostForm::ip, "--host-ip"},
         {options.hostFqdn, HostForm::fqdn, "--host-fqdn"},
         {options.hostNetbios, HostForm::netbios, "--host-netbios"}}};
    bool any = !options.host.empty();
    if (any) {
        const Endpoint endpoint = parseEndpoint(options.host, port, "--host");
        applyHost(settings, options.hostForm.value_or(hostFormOf(endpoint.host)), endpoint,
                  "--host");
    }
    for (const Given& each : forms) {
        if (!each.text.empty()) {
            applyHost(settings, each.form, parseEndpoint(each.text, port, each.name), each.name);
            any = true;
        }
    }
    if (!any && isNetwork(options.protocol)) {
        // The library would call a logon without a host a success.
        throw CommandError(ExitStatus::usage, "no server is named",
                           "give --host HOST[:PORT], or one or more of the three host forms");
    }
}

std::string trimmedSlashes(const std::string& path) {
    const auto first = path.find_first_not_of('/');
    return first == std::string::npos ? std::string()
                                      : path.substr(first, path.find_last_not_of('/') - first + 1);
}

std::string repositoryOf(const ConnectionOptions& options) {
    if (!isNetwork(options.protocol)) {
        if (options.protocol == voInet::voInetProtocolLocal && options.repository.empty()) {
            throw CommandError(ExitStatus::usage, "no repository is named",
                               "give its directory with --repository");
        }
        return options.repository;
    }
    if (hasBlank(options.repository)) {
        throw CommandError(ExitStatus::usage, "--repository: a URL has no blanks",
                           "write %20 for a blank");
    }
    return trimmedSlashes(options.repository);
}

void applyServer(Settings& settings, const ConnectionOptions& options, Masker& masker) {
    applyHosts(settings, options);
    if (options.site.empty()) {
        throw CommandError(ExitStatus::usage, "--site: the name is empty");
    }
    settings.Text(voInet::voInetOptionSite, options.site, "--site");
    settings.Text(voInet::voInetOptionRelativePath, repositoryOf(options), "--repository");
    settings.Text(voInet::voInetOptionUserAgent, options.userAgent, "--user-agent");
    settings.Text(voInet::voInetOptionCARootPath, options.caFile, "--ca");
    settings.Flag(voInet::voInetOptionUseSSL, options.ssl, "--ssl");
    settings.Number(voInet::voInetOptionSslPort, options.sslPort, "--ssl-port");
    settings.Text(voInet::voInetOptionUser, options.user, "--user");

    const std::string password = readSecret(options.password, "password");
    masker.AddSecret(password);
    settings.Text(voInet::voInetOptionPassword, password, "the password");
    const std::string token = readSecret(options.updateToken, "update token");
    masker.AddSecret(token);
    settings.Text(voInet::voInetOptionUpdateToken, token, "the update token");
}

std::wstring wideText(const std::string& text, const std::string& option) {
    checkText(text, option);
    return telmcomn_ansi_to_wide(text);
}

int countEntries(const std::wstring& list) {
    std::vector<std::wstring> entries;
    voInet::tokenize(list, entries, std::wstring(L",; \t\n\r"));
    return static_cast<int>(entries.size());
}

void fillProxyCredentials(voInet::CProxyParams& proxy, const ConnectionOptions& options,
                          Masker& masker) {
    const std::string password = readSecret(options.proxyPassword, "proxy password");
    masker.AddSecret(password);
    proxy.m_bHttpProxyAuthentication = !options.proxyUser.empty();
    proxy.m_strHttpProxyUser = wideText(options.proxyUser, "--proxy-user");
    proxy.m_strHttpProxyPassword = telmcomn_ansi_to_wide(password);
    proxy.m_bFtpProxyAuthentication = proxy.m_bHttpProxyAuthentication;
    proxy.m_strFtpProxyUser = proxy.m_strHttpProxyUser;
    proxy.m_strFtpProxyPassword = proxy.m_strHttpProxyPassword;
}

void fillAlternateCredentials(voInet::CProxyParams& proxy, const ConnectionOptions& options,
                              Masker& masker) {
    const std::string password = readSecret(options.altProxyPassword, "alternate proxy password");
    masker.AddSecret(password);
    // The library takes alternate credentials only from a user who may configure the proxy.
    proxy.m_bAllowUserToConfigureProxy = !options.altProxyUser.empty();
    proxy.m_bHttpAltCredentials = proxy.m_bAllowUserToConfigureProxy;
    proxy.m_strHttpAltUser = wideText(options.altProxyUser, "--alt-proxy-user");
    proxy.m_strHttpAltPassword = telmcomn_ansi_to_wide(password);
    proxy.m_bFtpAltCredentials = proxy.m_bHttpAltCredentials;
    proxy.m_strFtpAltUser = proxy.m_strHttpAltUser;
    proxy.m_strFtpAltPassword = proxy.m_strHttpAltPassword;
}

void applyProxy(Settings& settings, const ConnectionOptions& options, Masker& masker) {
    if (options.proxy.empty()) {
        return;
    }
    const Endpoint endpoint = parseEndpoint(options.proxy, 0, "--proxy");
    voInet::CProxyParams proxy;
    proxy.m_strProxyHost = telmcomn_ansi_to_wide(endpoint.host);
    proxy.m_nHttpProxyPort = endpoint.port;
    proxy.m_nFtpProxyPort = endpoint.port;
    proxy.m_bBypassLocal = options.bypassLocal;
    proxy.m_strExclusionList = wideText(options.bypass, "--bypass");
    proxy.m_nExclusionListSize = countEntries(proxy.m_strExclusionList);
    fillProxyCredentials(proxy, options, masker);
    fillAlternateCredentials(proxy, options, masker);
    settings.Proxy(proxy);
}

std::string withoutBrackets(const std::string& host) {
    const bool has = host.size() > 1 && host.front() == '[' && host.back() == ']';
    return has ? host.substr(1, host.size() - 2) : host;
}

/// Whether the form that a network connection works with has a host.
bool isConfigured(const voInet::TransferItf& transfer, HostForm form) {
    switch (form) {
        case HostForm::ip:
            return !transfer.m_strHostIP.empty();
        case HostForm::fqdn:
            return !transfer.m_strHostFqdn.empty();
        case HostForm::netbios:
            break;
    }
    return !transfer.m_strHostNetBios.empty();
}

HostForm formOf(const voInet::voInetConnMethod& method) {
    if (method == voInet::connMethodFqdn) {
        return HostForm::fqdn;
    }
    return method == voInet::connMethodNetBios ? HostForm::netbios : HostForm::ip;
}

}  // namespace

void TransferDeleter::operator()(voInet::TransferItf* transfer) const {
    voInet::VoInetItfFactory().DestroyInterface(transfer);
}

Session::Session(const ConnectionOptions& options, const CommandContext& context)
    : m_context(context),
      m_transfer(makeTransfer(options.protocol)),
      m_attempts([this] { return Target(); }) {
    Settings settings(*m_transfer);
    applyServer(settings, options, context.masker);
    applyProxy(settings, options, context.masker);
    m_context.log.SetAttempts(&m_attempts);
}

Session::~Session() {
    m_context.log.SetAttempts(nullptr);
}

voInet::voInetError Session::Logon(std::optional<unsigned int> timeout) {
    const voInet::voInetError result = m_transfer->Logon(timeout.has_value(), timeout.value_or(0));
    Finish(Stage::logon, result);
    return result;
}

void Session::Finish(Stage stage, voInet::voInetError result) {
    m_attempts.Finish(stage, result);
    const auto& all = m_attempts.All();
    for (; m_reported < all.size() && all[m_reported].result; ++m_reported) {
        m_context.events.Write("attempt", attemptFields(all[m_reported]));
    }
}

ActiveTarget Session::Target() const {
    ActiveTarget target;
    if (const auto* connection = dynamic_cast<const voInet::CNetConnection*>(m_transfer.get())) {
        target.form = formOf(connection->GetCurrentConnectionMethod());
        target.configured = isConfigured(*m_transfer, target.form);
    }
    target.endpoint = {withoutBrackets(m_transfer->m_strHost_utf8_rep), m_transfer->m_nPort};
    target.ftp = m_transfer->GetProtocol() == voInet::voInetProtocolFtp;
    if (!m_transfer->m_strProxy_utf8_rep.empty()) {
        target.alternateProxy =
            joinHostPort(m_transfer->m_strProxy_utf8_rep, m_transfer->m_nProxyPort);
    }
    if (m_transfer->m_bUseProxy) {
        target.proxy = target.alternateProxy;
    }
    return target;
}

EventStream::Object attemptFields(const Attempt& attempt) {
    EventStream::Object fields;
    fields["stage"] = stageName(attempt.stage);
    fields["form"] = hostFormName(attempt.target.form);
    fields["host"] = attempt.target.endpoint.host;
    fields["port"] = attempt.target.endpoint.port;
    fields["proxy"] = nullptr;
    if (!attempt.target.proxy.empty()) {
        fields["proxy"] = attempt.target.proxy;
    }
    fields["alternateCredentials"] = attempt.alternateCredentials;
    fields["reply"] = nullptr;
    if (attempt.Answer()) {
        fields["reply"] = *attempt.Answer();
    }
    const voInet::voInetError result = attempt.result.value_or(voInet::voInetErrorFailed);
    const ResultText* text = findResultText(result);
    fields["result"] = static_cast<int>(result);
    fields["name"] = text == nullptr ? "unknown" : text->name;
    fields["reason"] = attempt.Failed() && !attempt.Answer() ? attempt.reason : std::string();
    return fields;
}

}  // namespace voinet_command
