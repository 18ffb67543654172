#include "voinet/texts.h"

#include <algorithm>
#include <iterator>

namespace tessaro_com::pkm::voInet {

namespace {

struct ResultText {
    voInetError result;
    const char* name;
    const char* meaning;
};

// The name is the enumerator's own; writing it once keeps the two from drifting apart.
#define RESULT_TEXT(name, meaning) \
    { name, #name, meaning }

constexpr ResultText kResultTexts[] = {
    RESULT_TEXT(voInetErrorSuccess, "success"),
    RESULT_TEXT(voInetErrorLoginIncorrect,
                "the login was refused, or the server wants credentials and none are set"),
    RESULT_TEXT(voInetErrorProxyAuthRequired,
                "the proxy wants credentials (HTTP 407) and none are left to try"),
    RESULT_TEXT(voInetErrorRangeNotSatisfiable, "the server has no such byte range (HTTP 416)"),
    RESULT_TEXT(voInetErrorRangeIgnored, "the server sent the whole file instead of a range"),
    RESULT_TEXT(voInetErrorCancelled, "the transfer was stopped on request"),
    RESULT_TEXT(voInetErrorPackageReceived, "the server sent a package"),
    RESULT_TEXT(voInetErrorCode9, "reserved; no operation gives it"),
    RESULT_TEXT(voInetErrorServerBusy, "the server is busy; try later"),
    RESULT_TEXT(voInetErrorNoPackage, "the server has no package"),
    RESULT_TEXT(voInetErrorNotImplemented, "the protocol does not have this operation"),
    RESULT_TEXT(voInetErrorShutdown, "refused because the host process is shutting down"),
    RESULT_TEXT(voInetErrorFailed, "general failure; at logon: the server answered an error"),
    RESULT_TEXT(voInetErrorMaxRetries,
                "four requests were used up, most often because the credentials are wrong"),
    RESULT_TEXT(voInetErrorInvalidOption, "a setting of this kind does not exist"),
    RESULT_TEXT(voInetErrorInvalidArgument, "an empty name or an unusable value"),
    RESULT_TEXT(voInetErrorFileNotFound, "the remote file does not exist"),
    RESULT_TEXT(voInetErrorBadOptions, "the settings are incomplete for the operation"),
    RESULT_TEXT(voInetErrorProxyNotResolved, "the proxy's name does not resolve"),
    RESULT_TEXT(voInetErrorHostNotResolved, "the server's name does not resolve"),
    RESULT_TEXT(voInetErrorWriteFailed, "writing the local file failed"),
    RESULT_TEXT(voInetErrorOutOfMemory, "memory ran out"),
    RESULT_TEXT(voInetErrorRangeFailed, "the server refused the byte range of a resume"),
    RESULT_TEXT(voInetErrorCodeMinus13, "reserved; no operation gives it"),
    RESULT_TEXT(voInetErrorCodeMinus14, "reserved; no operation gives it"),
    RESULT_TEXT(voInetErrorLocalFileOpen, "the local file could not be opened for writing"),
    RESULT_TEXT(voInetErrorUploadSetup,
                "the request file or the response file could not be opened"),
    RESULT_TEXT(voInetErrorAccessDenied, "the server denied access (HTTP 403)"),
    RESULT_TEXT(voInetErrorCodeMinus26, "reserved; no operation gives it"),
    RESULT_TEXT(voInetErrorTimeout, "the operation timed out"),
    RESULT_TEXT(voInetErrorTransferFailed, "the transfer failed"),
    RESULT_TEXT(voInetErrorPeerVerification, "the server's certificate failed verification"),
    RESULT_TEXT(voInetErrorCaCert,
                "the CA certificate file does not vouch for the server's certificate"),
    RESULT_TEXT(voInetErrorSslConnect, "the TLS handshake failed"),
    RESULT_TEXT(voInetErrorNotSupported, "the protocol does not offer plain uploads"),
    RESULT_TEXT(voInetErrorInvalidRequest, "the server calls the request invalid (HTTP 400)"),
    RESULT_TEXT(voInetErrorGuidExists,
                "the agent's identity exists already and is to be made anew (HTTP 506)"),
    RESULT_TEXT(voInetErrorKeysOutdated,
                "the server denied access until the agent updates its keys (HTTP 403)"),
};

#undef RESULT_TEXT

constexpr ResultText kNoResult = {voInetErrorSuccess, "voInetError?", "unknown result"};

const ResultText& textOf(voInetError error) {
    const auto* row =
        std::find_if(std::begin(kResultTexts), std::end(kResultTexts),
                     [error](const ResultText& each) { return each.result == error; });
    return row == std::end(kResultTexts) ? kNoResult : *row;
}

}  // namespace

const char* voInetErrorName(voInetError error) {
    return textOf(error).name;
}

const char* voInetErrorMeaning(voInetError error) {
    return textOf(error).meaning;
}

const char* voInetVersion() {
    return VOINET_VERSION;
}

}  // namespace tessaro_com::pkm::voInet
