#include "curlsetupmodel.h"

#include "curldouble.h"
#include "voinet/callbacks.h"

#include <algorithm>
#include <array>

namespace voinet_test {

using namespace tessaro_com::pkm::voInet;

namespace {

constexpr long kAnyMethod = -17;

std::string encoded(const std::string& credential) {
    std::string result;
    for (const char each : credential) {
        switch (each) {
            case '@':
                result += "%40";
                break;
            case '%':
                result += "%25";
                break;
            case ':':
                result += "%3a";
                break;
            default:
                result += each;
        }
    }
    return result;
}

std::string firstWord(const std::string& text) {
    constexpr auto* kBlanks = " \t\n\v\f\r";
    const auto start = std::min(text.find_first_not_of(kBlanks), text.size());
    return text.substr(start, text.find_first_of(kBlanks, start) - start);
}

class Setup {
  public:
    Setup(const CNetConnection& connection, const CallbackManager* manager, bool traced)
        : m_connection(connection), m_manager(manager), m_traced(traced) {}

    std::vector<std::string> run() {
        m_steps = {"init", option(CURLOPT_PROXY, ""), option(CURLOPT_NOPROGRESS, 0L),
                   option(CURLOPT_USERAGENT, "Tessaro Agent")};
        trace();
        proxy();
        credentials();
        timeout();
        callbacks();
        add(option(CURLOPT_LOW_SPEED_LIMIT, 1L));
        add(option(CURLOPT_LOW_SPEED_TIME, 600L));
        redirects();
        return m_steps;
    }

  private:
    void add(const std::string& step) { m_steps.push_back(step); }

    void trace() {
        if (m_traced) {
            add(option(CURLOPT_VERBOSE, 1L));
            add(option(CURLOPT_DEBUGFUNCTION, trace_curl));
        }
    }

    void proxy() {
        if (!m_connection.m_bUseProxy || m_connection.m_bUseIEConfig) {
            return;
        }
        add(option(CURLOPT_PROXY, inUrl(m_connection.m_strProxy_utf8_rep)));
        add(option(CURLOPT_PROXYPORT, m_connection.m_nProxyPort));
        if (m_connection.m_bUseProxyAuthentication) {
            add(option(CURLOPT_PROXYUSERPWD, m_connection.m_strProxyUserPwd_utf8_rep));
            add(option(CURLOPT_PROXYAUTH, kAnyMethod));
        }
    }

    void credentials() {
        if (!m_connection.m_bUseAuthentication) {
            return;
        }
        const auto& user = m_connection.m_strUser_utf8_rep;
        const auto& password = m_connection.m_strPassword_utf8_rep;
        if (m_connection.m_bUseProxy) {
            add(option(CURLOPT_USERPWD, joinedCredentials(user, password)));
        } else {
            add(option(CURLOPT_USERNAME, user));
            add(option(CURLOPT_PASSWORD, password));
        }
        add(option(CURLOPT_HTTPAUTH, kAnyMethod));
    }

    void timeout() {
        if (m_connection.IsLogonTimeoutUsed()) {
            add(option(CURLOPT_NOSIGNAL, 1L));
            add(option(CURLOPT_CONNECTTIMEOUT, static_cast<long>(m_connection.GetLogonTimeout())));
            add(option(CURLOPT_CONNECT_ONLY, 1L));
        }
    }

    void callbacks() {
        const void* data = m_manager;
        add(option(CURLOPT_WRITEFUNCTION, writeCallback));
        add(option(CURLOPT_WRITEDATA, data));
        add(option(CURLOPT_PROGRESSFUNCTION, progressCallback));
        add(option(CURLOPT_PROGRESSDATA, data));
        add(option(CURLOPT_HTTPAUTH, kAnyMethod));
        add(option(CURLOPT_READFUNCTION, readCallback));
        add(option(CURLOPT_READDATA, data));
    }

    void redirects() {
        if (m_connection.GetProtocol() == voInetProtocolHttp) {
            add(option(CURLOPT_FOLLOWLOCATION, 1L));
            add(option(CURLOPT_REDIR_PROTOCOLS, 1L));
            add(option(CURLOPT_MAXREDIRS, 5L));
        }
    }

    const CNetConnection& m_connection;
    const CallbackManager* m_manager;
    bool m_traced;
    std::vector<std::string> m_steps;
};

}  // namespace

std::vector<std::string> expectedSetup(const CNetConnection& connection,
                                       const CallbackManager* manager, bool traced) {
    return Setup(connection, manager, traced).run();
}

std::vector<std::string> expectedDownloadOptions() {
    return {option(CURLOPT_BUFFERSIZE, 65536L), "CURLOPT_HEADERFUNCTION=*",
            "CURLOPT_WRITEHEADER=*"};
}

std::vector<std::string> withoutManager(std::vector<std::string> trace) {
    const std::array starts{std::string("CURLOPT_WRITEDATA="), std::string("CURLOPT_PROGRESSDATA="),
                            std::string("CURLOPT_READDATA="),
                            std::string("CURLOPT_HEADERFUNCTION="),
                            std::string("CURLOPT_WRITEHEADER=")};
    for (auto& entry : trace) {
        for (const auto& start : starts) {
            if (entry.rfind(start, 0) == 0) {
                entry = start + "*";
            }
        }
    }
    return trace;
}

std::string joinedCredentials(const std::string& user, const std::string& password) {
    return firstWord(encoded(user) + ":" + encoded(password));
}

std::string inUrl(const std::string& host) {
    return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

}  // namespace voinet_test
