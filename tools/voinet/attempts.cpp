#include "attempts.h"

#include "traceline.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace voinet_command {

using tessaro_com::pkm::voInet::mapCurlErrorCode;
using tessaro_com::pkm::voInet::voInetError;
using tessaro_com::pkm::voInet::voInetErrorAccessDenied;
using tessaro_com::pkm::voInet::voInetErrorFailed;
using tessaro_com::pkm::voInet::voInetErrorFileNotFound;
using tessaro_com::pkm::voInet::voInetErrorHostNotResolved;
using tessaro_com::pkm::voInet::voInetErrorInvalidRequest;
using tessaro_com::pkm::voInet::voInetErrorNoPackage;
using tessaro_com::pkm::voInet::voInetErrorPackageReceived;
using tessaro_com::pkm::voInet::voInetErrorProxyNotResolved;
using tessaro_com::pkm::voInet::voInetErrorServerBusy;
using tessaro_com::pkm::voInet::voInetErrorSuccess;
using tessaro_com::pkm::voInet::voInetErrorTimeout;
using tessaro_com::pkm::voInet::voInetErrorTransferFailed;
using tessaro_com::pkm::voInet::voInetErrorUploadSetup;

namespace {

// Lines of the library.
constexpr std::string_view kLogonBegins = "Trying to connect..";
constexpr std::string_view kLogonFailed = "Unable to connect to ";
constexpr std::string_view kDownloadBegins = "Open URL: ";
constexpr std::string_view kExchangeBegins = "Calling upload file response";
constexpr std::string_view kServerStatus = "Server response code value: ";
constexpr std::string_view kUnknownStatus = "Received response ";
constexpr std::string_view kCurlResult = "curl_easy_perform returned value: ";
constexpr std::string_view kExchangeCurlResult = "curl returned ";
constexpr std::string_view kAlternateHttp = "Using alternate proxy server: ";
constexpr std::string_view kAlternateFtp = "Using Alternate proxy server: ";

constexpr int kFirstErrorStatus = 400;
constexpr int kFtpNotAvailable = 421;
constexpr int kFtpNotLoggedIn = 530;
constexpr int kFtpFileUnavailable = 550;

constexpr int kCurlAbortedByCallback = 42;
// Handshake, certificates of either side, the CA file and others of TLS.
constexpr std::array<int, 14> kCurlTlsFailures = {35, 51, 53, 54, 58, 59, 60,
                                                  64, 66, 77, 80, 82, 83, 91};

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::optional<int> numberAfter(std::string_view text, std::string_view prefix) {
    if (!startsWith(text, prefix)) {
        return std::nullopt;
    }
    int number = 0;
    const auto [stop, error] =
        std::from_chars(text.data() + prefix.size(), text.data() + text.size(), number);
    return error == std::errc() ? std::optional<int>(number) : std::nullopt;
}

std::optional<int> eitherNumber(std::string_view text, std::string_view prefix,
                                std::string_view otherPrefix) {
    const auto number = numberAfter(text, prefix);
    return number ? number : numberAfter(text, otherPrefix);
}

/// Lines of curl that follow a failure without explaining it.
bool isHousekeeping(const std::string& line) {
    static constexpr std::array<std::string_view, 5> kStarts = {
        "Closing connection", "Connection #", "Expire", "Hostname ", "shutting down connection"};
    return std::any_of(kStarts.begin(), kStarts.end(),
                       [&line](std::string_view start) { return startsWith(line, start); });
}

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find_first_of("\r\n"));
}

/// The result that curl's words tell of.
voInetError resultOfReason(const Attempt& attempt) {
    const auto says = [&attempt](const char* words) {
        return attempt.reason.find(words) != std::string::npos;
    };
    if (says("resolve proxy")) {
        return voInetErrorProxyNotResolved;
    }
    if (says("resolve host")) {
        return voInetErrorHostNotResolved;
    }
    return says("timed out") || says("timeout") ? voInetErrorTimeout : voInetErrorTransferFailed;
}

bool isRefusal(const std::optional<int>& reply) {
    return reply && *reply > kFirstErrorStatus;
}

/// The result of a logon that another one followed. The library does not log it, so it is told from
/// the reply or else from curl's words.
voInetError failedLogonResult(const Attempt& attempt) {
    // Curl itself gives up when FTP refuses the user or the connection.
    const int reply = attempt.replyIsFtp ? attempt.reply.value_or(0) : 0;
    const bool curlGaveUp = reply == kFtpNotLoggedIn || reply == kFtpNotAvailable;
    return isRefusal(attempt.reply) && !curlGaveUp ? voInetErrorFailed : resultOfReason(attempt);
}

/// The result of a download that another attempt followed.
voInetError failedDownloadResult(const Attempt& attempt) {
    if (attempt.target.ftp) {
        if (!isRefusal(attempt.reply)) {
            return resultOfReason(attempt);
        }
        return *attempt.reply == kFtpFileUnavailable ? voInetErrorFileNotFound : voInetErrorFailed;
    }
    const voInetError mapped = mapCurlErrorCode(attempt.curlCode.value_or(0));
    return mapped == voInetErrorSuccess ? voInetErrorTransferFailed : mapped;
}

/// The result of an exchange that another one followed: only these move the library on.
voInetError failedExchangeResult(const Attempt& attempt) {
    if (!attempt.curlCode) {
        return voInetErrorUploadSetup;
    }
    if (*attempt.curlCode != 0) {
        return attempt.RequestBroke() ? voInetErrorTransferFailed
                                      : mapCurlErrorCode(*attempt.curlCode);
    }
    switch (attempt.reply.value_or(0)) {
        case 400:
            return voInetErrorInvalidRequest;
        case 403:
            return voInetErrorAccessDenied;
        case 404:
            return voInetErrorFileNotFound;
        default:
            return voInetErrorFailed;
    }
}

bool isOutcome(voInetError result) {
    return result == voInetErrorPackageReceived || result == voInetErrorServerBusy ||
           result == voInetErrorNoPackage;
}

}  // namespace

const char* stageName(Stage stage) {
    switch (stage) {
        case Stage::logon:
            return "logon";
        case Stage::download:
            return "download";
        case Stage::exchange:
            break;
    }
    return "exchange";
}

bool Attempt::Failed() const {
    if (!result) {
        return false;
    }
    return stage == Stage::exchange ? !isOutcome(*result) : *result != voInetErrorSuccess;
}

bool Attempt::RequestBroke() const {
    // Nothing but the end of the request file stops an exchange from within.
    return stage == Stage::exchange && curlCode == kCurlAbortedByCallback;
}

bool Attempt::TlsFailed() const {
    return curlCode && std::find(kCurlTlsFailures.begin(), kCurlTlsFailures.end(), *curlCode) !=
                           kCurlTlsFailures.end();
}

std::optional<int> Attempt::Answer() const {
    if (curlCode.value_or(0) != 0) {
        return std::nullopt;
    }
    if (replyIsFtp) {
        // Before it fails, a transfer is answered many times; only a refusal explains anything.
        return Failed() && !isRefusal(reply) ? std::nullopt : reply;
    }
    const bool logonBroke = stage == Stage::logon && Failed() && *result != voInetErrorFailed;
    return logonBroke ? std::nullopt : reply;
}

AttemptLog::AttemptLog(TargetSource source) : m_source(std::move(source)) {}

void AttemptLog::Add(const std::string& module, const std::string& message) {
    if (module == "curl") {
        AddTraceLine(message);
    } else {
        AddLibraryLine(message);
    }
}

void AttemptLog::AddLibraryLine(const std::string& message) {
    if (startsWith(message, kLogonBegins)) {
        Begin(Stage::logon);
        return;
    }
    if (startsWith(message, kDownloadBegins)) {
        Begin(Stage::download);
        return;
    }
    if (startsWith(message, kExchangeBegins)) {
        Begin(Stage::exchange);
        return;
    }
    Attempt* attempt = Running();
    if (attempt == nullptr) {
        return;
    }
    if (startsWith(message, kLogonFailed)) {
        m_connectFailed = true;
    } else if (const auto status = eitherNumber(message, kServerStatus, kUnknownStatus)) {
        attempt->reply = status;
        attempt->replyIsFtp = false;
    } else if (const auto code = eitherNumber(message, kCurlResult, kExchangeCurlResult)) {
        attempt->curlCode = code;
    } else if (startsWith(message, kAlternateHttp) || startsWith(message, kAlternateFtp)) {
        attempt->alternateCredentials = true;
        attempt->target.proxy = attempt->target.alternateProxy;
    }
}

void AttemptLog::AddTraceLine(const std::string& message) {
    Attempt* attempt = Running();
    const auto trace = parseTraceLine(message);
    if (attempt == nullptr || !trace) {
        return;
    }
    const std::string line = firstLine(unescapeTrace(trace->escaped));
    if (trace->kind == "rcv head") {
        // A header line that begins with three digits does not exist in HTTP.
        if (const auto status = replyStatusOf(line)) {
            attempt->reply = status;
            attempt->replyIsFtp = !startsWith(line, "HTTP/");
        }
    } else if (trace->kind == "info" && !line.empty() && !isHousekeeping(line)) {
        attempt->reason = line;
    }
}

void AttemptLog::Begin(Stage stage) {
    Close();
    const ActiveTarget target = m_source();
    m_skipping = !target.configured;
    m_missingForm = m_missingForm || m_skipping;
    if (!m_skipping) {
        Attempt attempt;
        attempt.stage = stage;
        attempt.target = target;
        m_attempts.push_back(attempt);
    }
}

void AttemptLog::Close() {
    if (Attempt* attempt = Running()) {
        attempt->result = ResultOfFinished(*attempt);
    }
    m_connectFailed = false;
}

voInetError AttemptLog::ResultOfFinished(const Attempt& attempt) const {
    switch (attempt.stage) {
        case Stage::logon:
            return m_connectFailed ? failedLogonResult(attempt) : voInetErrorSuccess;
        case Stage::download:
            return failedDownloadResult(attempt);
        case Stage::exchange:
            break;
    }
    return failedExchangeResult(attempt);
}

void AttemptLog::Finish(Stage stage, voInetError result) {
    Attempt* attempt = Running();
    if (attempt != nullptr && attempt->stage == stage) {
        attempt->result = result;
    }
    // A logon that runs when a download ends was the library's last try with another form; the
    // download's result is not its own.
    Close();
}

Attempt* AttemptLog::Running() {
    if (m_skipping || m_attempts.empty() || m_attempts.back().result) {
        return nullptr;
    }
    return &m_attempts.back();
}

const Attempt* AttemptLog::Cause() const {
    const auto answered =
        std::find_if(m_attempts.rbegin(), m_attempts.rend(), [](const Attempt& each) {
            return each.stage == Stage::exchange && each.Failed() && each.Answer();
        });
    if (answered != m_attempts.rend()) {
        return &*answered;
    }
    const auto isDownload = [](const Attempt& each) { return each.stage == Stage::download; };
    const bool anyDownload = std::any_of(m_attempts.begin(), m_attempts.end(), isDownload);
    const auto cause = std::find_if(m_attempts.begin(), m_attempts.end(), [&](const Attempt& each) {
        return each.Failed() && (!anyDownload || isDownload(each));
    });
    return cause == m_attempts.end() ? nullptr : &*cause;
}

}  // namespace voinet_command
