#include "ftpdownloadmodel.h"

#include "curlsetupmodel.h"
#include "downloadmodel.h"
#include "logcapture.h"

#include <algorithm>

namespace voinet_test {

using namespace tessaro_com::pkm::voInet;

namespace {

constexpr std::size_t kPrefix = 1024;
constexpr std::size_t kPiece = 700;
constexpr long kAnyMethod = -17;

/// How an answer looks to curl, and what a download without a fall-back ends with.
struct Wire {
    CURLcode code;
    long reply;
    std::string body;
    int result;
};

std::string slice(const std::string& range) {
    if (range.empty()) {
        return serverFile();
    }
    const auto start = std::stoul(range);
    const auto dash = range.find('-');
    const bool open = dash + 1 == range.size();
    const auto end = open ? serverFile().size() : std::stoul(range.substr(dash + 1)) + 1;
    return serverFile().substr(start, end - start);
}

std::string half(const std::string& body) {
    return body.substr(0, body.size() / 2);
}

Wire wireOf(FtpAnswer answer, const std::string& range) {
    switch (answer) {
        case FtpAnswer::sent226:
            return {CURLE_OK, 226, slice(range), 0};
        case FtpAnswer::noSuchFile550:
            return {CURLE_REMOTE_FILE_NOT_FOUND, 550, "", -5};
        case FtpAnswer::notLoggedIn530:
            return {CURLE_LOGIN_DENIED, 530, "", -1};
        case FtpAnswer::proxyPage400:
            return {CURLE_OK, 400, "the proxy does not understand", 0};
        case FtpAnswer::connectionBroken:
            return {CURLE_RECV_ERROR, 150, half(slice(range)), -88};
        case FtpAnswer::cancelled:
            return {CURLE_ABORTED_BY_CALLBACK, 150, half(slice(range)), 7};
        case FtpAnswer::hostNotResolved:
            return {CURLE_COULDNT_RESOLVE_HOST, 0, "", -8};
    }
    return {};
}

}  // namespace

const std::vector<FtpAnswer>& allFtpAnswers() {
    static const std::vector<FtpAnswer> kAll{FtpAnswer::sent226,        FtpAnswer::noSuchFile550,
                                             FtpAnswer::notLoggedIn530, FtpAnswer::proxyPage400,
                                             FtpAnswer::cancelled,      FtpAnswer::connectionBroken,
                                             FtpAnswer::hostNotResolved};
    return kAll;
}

Reply replyOf(FtpAnswer answer, const std::string& range) {
    const auto wire = wireOf(answer, range);
    Reply reply(wire.reply);
    reply.result(wire.code);
    for (std::size_t sent = 0; sent < wire.body.size(); sent += kPiece) {
        reply.body(wire.body.substr(sent, kPiece));
    }
    return reply;
}

FtpDownloadModel::FtpDownloadModel(FtpWorld& world, const CFtpConnection& connection,
                                   std::string remotePath, std::string localFile)
    : m_world(world),
      m_connection(connection),
      m_remotePath(std::move(remotePath)),
      m_url("ftp://" + inUrl(connection.m_strHost_utf8_rep) + ":" +
            std::to_string(connection.m_nPort) + "/" + connection.m_strRelativePath_utf8_rep + "/" +
            m_remotePath),
      m_local(std::move(localFile)) {}

int FtpDownloadModel::run(long resumeOffset, std::function<FtpAnswer()> next) {
    m_next = std::move(next);
    m_offset = resumeOffset;
    log(infoLine("FTP Downloading file: " + m_remotePath +
                     " from FTP Server: " + m_connection.m_strHost_utf8_rep,
                 "VoInet"));
    log(infoLine("Open URL: " + m_url));
    if (m_offset > 0) {
        auto check = begin(true);
        transfer(check);
        if (!matches(check)) {
            m_offset = 0;
        }
    }
    auto pass = begin(false);
    const int result = transfer(pass);
    if (result == 0 || result == 7) {
        m_local = pass.temporary;
    }
    return result;
}

FtpDownloadModel::Pass FtpDownloadModel::begin(bool prefixCheck) const {
    Pass pass{prefixCheck, m_offset, "", 0, "", false};
    flush(pass);
    return pass;
}

void FtpDownloadModel::flush(Pass& pass) const {
    pass.prefix.clear();
    pass.temporary = pass.start > 0 ? m_local : "";
    pass.position = pass.start > 0 ? static_cast<std::size_t>(pass.start) : 0;
}

bool FtpDownloadModel::matches(const Pass& pass) const {
    auto local = m_local.substr(std::min(m_local.size(), static_cast<std::size_t>(pass.start)));
    auto received = pass.prefix;
    local.resize(kPrefix);
    received.resize(kPrefix);
    return local == received;
}

std::string FtpDownloadModel::range(const Pass& pass) {
    if (pass.start <= 0) {
        return "";
    }
    return std::to_string(pass.start) + "-" +
           (pass.prefixCheck ? std::to_string(pass.start + 1023) : "");
}

int FtpDownloadModel::transfer(Pass& pass) {
    const bool owner = !pass.hasHandle && !m_world.alternateUsed;
    if (owner) {
        configure(pass);
        pass.hasHandle = true;
    }
    int result = perform(pass);
    if (result != 0 && m_connection.m_bAllowUserToConfigureProxy && !m_world.alternateUsed) {
        log(infoLine("Unable to use IE proxy settings so using the alternate proxy settings"));
        flush(pass);
        m_world.alternateUsed = true;
        log(infoLine("Using Alternate proxy server: " + useAlternate(pass) + " "));
        result = transfer(pass);
    }
    if (owner) {
        curl("cleanup");
        pass.hasHandle = false;
    }
    m_world.alternateUsed = false;
    return result;
}

/// A new handle with all that the request needs.
void FtpDownloadModel::configure(const Pass& pass) {
    for (const auto& step : withoutManager(expectedSetup(m_connection, nullptr, false))) {
        curl(step);
    }
    log(debugLine("Proxy setting m_bUseIEConfig = " + std::to_string(m_connection.m_bUseIEConfig)));
    curl(option(CURLOPT_URL, m_url));
    if (pass.start > 0) {
        curl(option(CURLOPT_RANGE, range(pass)));
    }
    setCredentials();
}

void FtpDownloadModel::setCredentials() {
    const auto& user = m_connection.m_strUser_utf8_rep;
    const auto& password = m_connection.m_strPassword_utf8_rep;
    if (m_connection.m_bUseAuthentication) {
        curl(option(CURLOPT_HTTPAUTH, kAnyMethod));
        if (m_connection.m_bUseProxy) {
            curl(option(CURLOPT_USERPWD, joinedCredentials(user, password)));
        } else {
            curl(option(CURLOPT_USERNAME, user));
            curl(option(CURLOPT_PASSWORD, password));
        }
    }
    if (m_connection.m_bUseProxyAuthentication) {
        curl(option(CURLOPT_PROXYAUTH, kAnyMethod));
        curl(option(CURLOPT_PROXYUSERPWD, m_connection.m_strProxyUserPwd_utf8_rep));
    }
    for (const auto& step : expectedDownloadOptions()) {
        curl(step);
    }
}

/// Returns the proxy as the log names it.
std::string FtpDownloadModel::useAlternate(const Pass& pass) {
    if (!pass.hasHandle) {
        return "";
    }
    auto proxy = inUrl(m_connection.m_strProxy_utf8_rep);
    curl(option(CURLOPT_PROXY, proxy));
    curl(option(CURLOPT_PROXYPORT, static_cast<long>(m_connection.m_nProxyPort)));
    if (m_connection.m_bAltUseProxyAuthentication) {
        curl(option(CURLOPT_PROXYUSERPWD, m_connection.m_strAltProxyUserPwd_utf8_rep));
        curl(option(CURLOPT_PROXYAUTH, kAnyMethod));
    }
    return proxy;
}

int FtpDownloadModel::perform(Pass& pass) {
    if (!pass.hasHandle) {
        curl("perform null");
        return -88;
    }
    curl("perform");
    const auto wire = wireOf(m_next(), range(pass));
    if (++m_requests == m_hookedRequest) {
        m_hook();
    }
    receive(pass, wire.body);
    curl("getinfo RESPONSE_CODE");
    return wire.result;
}

void FtpDownloadModel::receive(Pass& pass, const std::string& body) {
    if (pass.prefixCheck) {
        pass.prefix += body.substr(0, kPrefix - std::min(kPrefix, pass.prefix.size()));
        return;
    }
    pass.temporary.resize(std::max(pass.temporary.size(), pass.position));
    pass.temporary.replace(pass.position, body.size(), body);
    pass.position += body.size();
}

}  // namespace voinet_test
