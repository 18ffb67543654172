#include "exitstatus.h"

#include <algorithm>
#include <iterator>

namespace voinet_command {

namespace voInet = tessaro_com::pkm::voInet;

namespace {

const ExitStatusRow& rowOf(ExitStatus status) {
    const auto& table = exitStatusTable();
    const auto row = std::find_if(table.begin(), table.end(), [status](const ExitStatusRow& each) {
        return each.status == status;
    });
    return row == table.end() ? table[1] : *row;
}

ExitStatus kindOfReply(int replyStatus) {
    switch (replyStatus) {
        case 401:
        case 403:
        case 407:
        case 530:  // FTP: not logged in.
            return ExitStatus::refused;
        case 404:
        case 550:  // FTP: file unavailable.
            return ExitStatus::notFound;
        default:
            return ExitStatus::serverError;
    }
}

ExitStatus kindOfFailedTransfer(std::optional<int> replyStatus) {
    return replyStatus ? kindOfReply(*replyStatus) : ExitStatus::unreachable;
}

/// The results whose exit status does not depend on the reply.
constexpr struct {
    voInet::voInetError result;
    ExitStatus status;
} kStatusOfResult[] = {
    {voInet::voInetErrorSuccess, ExitStatus::success},
    {voInet::voInetErrorPackageReceived, ExitStatus::success},
    {voInet::voInetErrorCancelled, ExitStatus::cancelled},
    {voInet::voInetErrorShutdown, ExitStatus::cancelled},
    {voInet::voInetErrorKeysOutdated, ExitStatus::updateKeys},
    {voInet::voInetErrorGuidExists, ExitStatus::newIdentity},
    {voInet::voInetErrorServerBusy, ExitStatus::busy},
    {voInet::voInetErrorNoPackage, ExitStatus::noPackage},
    {voInet::voInetErrorInvalidRequest, ExitStatus::invalidRequest},
    {voInet::voInetErrorInvalidOption, ExitStatus::usage},
    {voInet::voInetErrorInvalidArgument, ExitStatus::usage},
    {voInet::voInetErrorBadOptions, ExitStatus::usage},
    {voInet::voInetErrorFileNotFound, ExitStatus::notFound},
    {voInet::voInetErrorLoginIncorrect, ExitStatus::refused},
    {voInet::voInetErrorProxyAuthRequired, ExitStatus::refused},
    {voInet::voInetErrorAccessDenied, ExitStatus::refused},
    {voInet::voInetErrorMaxRetries,
     ExitStatus::refused},  // credentials that are refused again and again
    {voInet::voInetErrorProxyNotResolved, ExitStatus::unreachable},
    {voInet::voInetErrorHostNotResolved, ExitStatus::unreachable},
    {voInet::voInetErrorTimeout, ExitStatus::unreachable},
    {voInet::voInetErrorRangeNotSatisfiable, ExitStatus::serverError},
    {voInet::voInetErrorRangeIgnored, ExitStatus::serverError},
    {voInet::voInetErrorRangeFailed, ExitStatus::serverError},
    {voInet::voInetErrorWriteFailed, ExitStatus::localFile},
    {voInet::voInetErrorLocalFileOpen, ExitStatus::localFile},
    {voInet::voInetErrorUploadSetup, ExitStatus::localFile},
    {voInet::voInetErrorPeerVerification, ExitStatus::tls},
    {voInet::voInetErrorCaCert, ExitStatus::tls},
    {voInet::voInetErrorSslConnect, ExitStatus::tls},
};

}  // namespace

const std::vector<ExitStatusRow>& exitStatusTable() {
    static const std::vector<ExitStatusRow> kTable = {
        {ExitStatus::success, "success", "done; the local file is complete"},
        {ExitStatus::failed, "failed", "a failure without a kind of its own"},
        {ExitStatus::usage, "usage", "the command line or the settings are wrong"},
        {ExitStatus::notFound, "not-found",
         "the remote file or the path on the server does not exist"},
        {ExitStatus::refused, "refused",
         "the server or the proxy refused access or wants (other) credentials"},
        {ExitStatus::unreachable, "unreachable",
         "no connection, a name that does not resolve, a time-out or a broken connection"},
        {ExitStatus::serverError, "server-error",
         "the server answered something else, such as HTTP 500"},
        {ExitStatus::localFile, "local-file",
         "a local file could not be read, written, locked or put in place"},
        {ExitStatus::tls, "tls", "a certificate or the TLS handshake failed"},
        {ExitStatus::integrity, "integrity",
         "what arrived has the wrong size or the wrong SHA-256 digest"},
        {ExitStatus::updateKeys, "update-keys", "the management server wants the keys updated"},
        {ExitStatus::newIdentity, "new-identity",
         "the management server wants a new identity, since this one is taken"},
        {ExitStatus::busy, "busy", "the management server is busy; try later"},
        {ExitStatus::noPackage, "no-package", "the management server has nothing for you"},
        {ExitStatus::invalidRequest, "invalid-request",
         "the management server calls the request invalid"},
        {ExitStatus::cancelled, "cancelled", "stopped by Ctrl-C or SIGTERM"},
    };
    return kTable;
}

const char* exitStatusName(ExitStatus status) {
    return rowOf(status).name;
}

const char* exitStatusMeaning(ExitStatus status) {
    return rowOf(status).meaning;
}

ExitStatus exitStatusOf(voInet::voInetError result, std::optional<int> replyStatus) {
    if (result == voInet::voInetErrorFailed) {
        return replyStatus ? kindOfReply(*replyStatus) : ExitStatus::serverError;
    }
    if (result == voInet::voInetErrorTransferFailed) {
        return kindOfFailedTransfer(replyStatus);
    }
    const auto* row = std::find_if(std::begin(kStatusOfResult), std::end(kStatusOfResult),
                                   [result](const auto& each) { return each.result == result; });
    return row == std::end(kStatusOfResult) ? ExitStatus::failed : row->status;
}

}  // namespace voinet_command
