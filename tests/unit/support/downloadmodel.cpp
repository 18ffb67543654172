#include "downloadmodel.h"

#include "curlsetupmodel.h"
#include "logcapture.h"
#include "temporaryfiles.h"

#include <algorithm>
#include <array>

namespace voinet_test {

using namespace tessaro_com::pkm::voInet;

namespace {

constexpr std::size_t kPrefix = 1024;
constexpr std::size_t kPiece = 700;
constexpr long kAnyMethod = -17;
constexpr int kAborted = 42;
constexpr int kBadHandle = 43;
constexpr int kMostRequests = 4;

/// How an answer looks on the wire.
struct Wire {
    int code;
    long status;
    std::string body;
};

std::string slice(const std::string& range) {
    if (range.empty()) {
        return serverFile();
    }
    const auto start = static_cast<std::size_t>(std::stoull(range));
    const auto dash = range.find('-');
    const bool open = dash + 1 == range.size();
    const auto end = open ? serverFile().size()
                          : static_cast<std::size_t>(std::stoull(range.substr(dash + 1))) + 1;
    return serverFile().substr(std::min(start, serverFile().size()), end - start);
}

std::string half(const std::string& body) {
    return body.substr(0, body.size() / 2);
}

Wire wireOf(Answer answer, const std::string& range) {
    switch (answer) {
        case Answer::whole200:
            return {0, 200, serverFile()};
        case Answer::part206:
            return {0, 206, slice(range)};
        case Answer::unauthorized401:
            return {0, 401, "please log in"};
        case Answer::notFound404:
            return {0, 404, "no such file"};
        case Answer::proxyAuthentication407:
            return {0, 407, "the proxy wants to know you"};
        case Answer::rangeNotSatisfiable416:
            return {0, 416, "no such range"};
        case Answer::serverError500:
            return {0, 500, "something went wrong"};
        case Answer::connectionBroken:
            return {CURLE_RECV_ERROR, 206, half(slice(range))};
        case Answer::proxyNotResolved:
            return {CURLE_COULDNT_RESOLVE_PROXY, 0, ""};
        case Answer::cancelled:
            return {CURLE_ABORTED_BY_CALLBACK, 206, half(slice(range))};
    }
    return {};
}

std::string number(long value) {
    return std::to_string(value);
}

}  // namespace

const std::vector<Answer>& allAnswers() {
    static const std::vector<Answer> kAll{Answer::whole200,
                                          Answer::part206,
                                          Answer::unauthorized401,
                                          Answer::notFound404,
                                          Answer::proxyAuthentication407,
                                          Answer::rangeNotSatisfiable416,
                                          Answer::serverError500,
                                          Answer::connectionBroken,
                                          Answer::proxyNotResolved,
                                          Answer::cancelled};
    return kAll;
}

const std::string& serverFile() {
    static const std::string kFile = positionDependentBytes(5000);
    return kFile;
}

Reply replyOf(Answer answer, const std::string& range) {
    const auto wire = wireOf(answer, range);
    Reply reply(wire.status);
    reply.result(static_cast<CURLcode>(wire.code));
    for (std::size_t sent = 0; sent < wire.body.size(); sent += kPiece) {
        reply.body(wire.body.substr(sent, kPiece));
    }
    return reply;
}

void DownloadModel::info(const std::string& text) {
    m_world.log.push_back(infoLine(text));
}

void DownloadModel::debug(const std::string& text) {
    m_world.log.push_back(debugLine(text));
}

int DownloadModel::run(long resumeOffset, std::function<Answer()> next) {
    m_next = std::move(next);
    m_offset = resumeOffset;
    info("Open URL: " + m_url);
    if (m_offset > 0) {
        auto check = begin(true);
        transfer(check);
        if (!matches(check)) {
            m_offset = 0;
        }
    }
    auto pass = begin(false);
    int result = transfer(pass);
    bool commits = result == 0 || result == 7;
    if (result == 4 || result == 6) {
        m_offset = 0;
        pass = begin(false);
        result = transfer(pass);
        commits = result == 0;
    }
    if (commits && (pass.status == 200 || pass.status == 206)) {
        m_local = pass.temporary;
    }
    return result;
}

DownloadModel::Pass DownloadModel::begin(bool prefixCheck) const {
    Pass pass{prefixCheck, m_offset, "", 0, "", false, 0, 0};
    flush(pass);
    return pass;
}

void DownloadModel::flush(Pass& pass) const {
    pass.prefix.clear();
    pass.temporary = pass.start > 0 ? m_local : "";
    pass.position = pass.start > 0 ? static_cast<std::size_t>(pass.start) : 0;
}

bool DownloadModel::matches(const Pass& pass) const {
    auto local = m_local.substr(std::min(m_local.size(), static_cast<std::size_t>(pass.start)));
    auto received = pass.prefix;
    local.resize(kPrefix);
    received.resize(kPrefix);
    return local == received;
}

std::string DownloadModel::range(const Pass& pass) {
    if (pass.start <= 0) {
        return "";
    }
    return number(pass.start) + "-" + (pass.prefixCheck ? number(pass.start + 1023) : "");
}

int DownloadModel::transfer(Pass& pass) {
    if (m_world.retries >= kMostRequests) {
        m_world.retries = 0;
        info("DoHttpDownload max retries reached.");
        return -2;
    }
    ++m_world.retries;
    const bool owner = !pass.hasHandle && !m_world.alternateUsed;
    const bool headers = owner && configure(pass);
    pass.hasHandle = pass.hasHandle || owner;
    useAlternate(pass);
    const int code = perform(pass);
    m_world.error = mapCurlErrorCode(code);
    debug("curl_easy_perform returned value: " + number(code));
    const bool allowed = m_connection.m_bAllowUserToConfigureProxy;
    if (code == kAborted) {
        curl("getinfo RESPONSE_CODE");
        pass.status = pass.handleStatus;
    } else {
        if ((m_world.noProxyFound || code != 0) && allowed && !m_world.alternateUsed) {
            m_world.noProxyFound = true;
            debug("Unable to use IE proxy settings, will try to use alternate proxy settings.");
            flush(pass);
            m_world.error = transfer(pass);
            if (m_world.error != 0) {
                debug("DoHttpDownload return value after trying alternate proxy settings: " +
                      number(m_world.error) + ".");
            }
            m_world.alternateUsed = true;
        }
        if (m_world.error == 0) {
            actOnStatus(pass);
        }
    }
    if (headers) {
        curl("headers freed");
    }
    if (owner) {
        m_world.retries = 0;
        curl("cleanup");
        pass.hasHandle = false;
    }
    m_world.alternateUsed = m_world.noProxyFound = false;
    return m_world.error;
}

/// A new handle with all that the request needs. Returns whether there are header lines.
bool DownloadModel::configure(const Pass& pass) {
    for (const auto& step : withoutManager(expectedSetup(m_connection, nullptr, false))) {
        curl(step);
    }
    debug("Proxy setting m_bUseIEConfig = " + number(m_connection.m_bUseIEConfig));
    m_world.noProxyFound = true;
    std::vector<std::string> headers;
    if (!m_connection.m_strUpdateToken.empty()) {
        headers.push_back("UpdateToken: " + std::string(m_connection.m_strUpdateToken.begin(),
                                                        m_connection.m_strUpdateToken.end()));
    }
    if (!m_useCache) {
        headers.emplace_back("pragma:no-cache");
        debug("Using proxy setting:pragma:no-cache");
    }
    for (const auto& header : headers) {
        curl("header " + header);
    }
    if (!headers.empty()) {
        curl(option(CURLOPT_HTTPHEADER, headers));
    }
    if (pass.start > 0) {
        curl(option(CURLOPT_RANGE, range(pass)));
    }
    curl(option(CURLOPT_URL, m_url));
    if (m_connection.m_bUseAuthentication) {
        curl(option(CURLOPT_HTTPAUTH, kAnyMethod));
        curl(option(CURLOPT_USERNAME, m_connection.m_strUser_utf8_rep));
        curl(option(CURLOPT_PASSWORD, m_connection.m_strPassword_utf8_rep));
    }
    if (m_connection.m_bUseProxyAuthentication) {
        curl(option(CURLOPT_PROXYAUTH, kAnyMethod));
        curl(option(CURLOPT_PROXYUSERPWD, m_connection.m_strProxyUserPwd_utf8_rep));
    }
    for (const auto& step : expectedDownloadOptions()) {
        curl(step);
    }
    return !headers.empty();
}

void DownloadModel::useAlternate(const Pass& pass) {
    if (!m_connection.m_bAllowUserToConfigureProxy ||
        !(m_world.alternateUsed || m_world.noProxyFound)) {
        return;
    }
    std::string proxy;
    if (pass.hasHandle) {
        proxy = inUrl(m_connection.m_strProxy_utf8_rep);
        curl(option(CURLOPT_PROXY, proxy));
        curl(option(CURLOPT_PROXYPORT, m_connection.m_nProxyPort));
        if (m_connection.m_bAltUseProxyAuthentication) {
            curl(option(CURLOPT_PROXYUSERPWD, m_connection.m_strAltProxyUserPwd_utf8_rep));
            curl(option(CURLOPT_PROXYAUTH, kAnyMethod));
        }
    }
    info("Using alternate proxy server: " + proxy + " ");
    m_world.alternateUsed = true;
}

int DownloadModel::perform(Pass& pass) {
    if (!pass.hasHandle) {
        curl("perform null");
        return kBadHandle;
    }
    curl("perform");
    const auto wire = wireOf(m_next(), range(pass));
    pass.handleStatus = wire.status;
    if (++m_requests == m_hookedRequest) {
        m_hook();
    }
    if (pass.prefixCheck) {
        pass.prefix += wire.body.substr(0, kPrefix - std::min(kPrefix, pass.prefix.size()));
    } else {
        pass.temporary.resize(std::max(pass.temporary.size(), pass.position));
        pass.temporary.replace(pass.position, wire.body.size(), wire.body);
        pass.position += wire.body.size();
    }
    return wire.code;
}

void DownloadModel::actOnStatus(Pass& pass) {
    curl("getinfo RESPONSE_CODE");
    pass.status = pass.handleStatus;
    debug("Server response code value: " + number(pass.status) + " ");
    switch (pass.status) {
        case 200:
            m_world.error = pass.start > 0 ? 6 : 0;
            break;
        case 206:
            break;
        case 401:
            actOn401(pass);
            break;
        case 404:
            m_world.error = -5;
            break;
        case 407:
            actOn407(pass);
            break;
        case 416:
            m_world.error = 4;
            break;
        default:
            m_world.error = -88;
    }
}

void DownloadModel::actOn401(Pass& pass) {
    if (!m_connection.m_bUseAuthentication) {
        m_world.error = 1;
        return;
    }
    curl(option(CURLOPT_USERNAME, m_connection.m_strUser_utf8_rep));
    curl(option(CURLOPT_PASSWORD, m_connection.m_strPassword_utf8_rep));
    curl(option(CURLOPT_HTTPAUTH, kAnyMethod));
    retry(pass);
}

void DownloadModel::actOn407(Pass& pass) {
    if (m_connection.m_bUseProxyAuthentication) {
        curl(option(CURLOPT_PROXYUSERPWD, m_connection.m_strProxyUserPwd_utf8_rep));
        curl(option(CURLOPT_PROXYAUTH, kAnyMethod));
        retry(pass);
    } else if (!m_world.alternateUsed && m_connection.m_bAllowUserToConfigureProxy) {
        debug(
            "Authentication required by IE proxy settings, will try to use alternate proxy "
            "settings.");
        m_world.alternateUsed = m_world.noProxyFound = true;
        retry(pass);
    } else {
        m_world.error = 2;
    }
}

void DownloadModel::retry(Pass& pass) {
    flush(pass);
    m_world.error = transfer(pass);
    if (m_world.error != 0) {
        debug("Retry of DoHttpDownload return value: " + number(m_world.error));
    }
}

}  // namespace voinet_test
