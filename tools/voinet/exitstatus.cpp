#include "exitstatus.h"

#include <algorithm>

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
    switch (result) {
        case voInet::voInetErrorSuccess:
        case voInet::voInetErrorPackageReceived:
            return ExitStatus::success;
        case voInet::voInetErrorCancelled:
        case voInet::voInetErrorShutdown:
            return ExitStatus::cancelled;
        case voInet::voInetErrorKeysOutdated:
            return ExitStatus::updateKeys;
        case voInet::voInetErrorGuidExists:
            return ExitStatus::newIdentity;
        case voInet::voInetErrorServerBusy:
            return ExitStatus::busy;
        case voInet::voInetErrorNoPackage:
            return ExitStatus::noPackage;
        case voInet::voInetErrorInvalidRequest:
            return ExitStatus::invalidRequest;
        case voInet::voInetErrorInvalidOption:
        case voInet::voInetErrorInvalidArgument:
        case voInet::voInetErrorBadOptions:
            return ExitStatus::usage;
        case voInet::voInetErrorFileNotFound:
            return ExitStatus::notFound;
        case voInet::voInetErrorLoginIncorrect:
        case voInet::voInetErrorProxyAuthRequired:
        case voInet::voInetErrorAccessDenied:
        case voInet::voInetErrorMaxRetries:  // Credentials that are refused again and again.
            return ExitStatus::refused;
        case voInet::voInetErrorProxyNotResolved:
        case voInet::voInetErrorHostNotResolved:
        case voInet::voInetErrorTimeout:
            return ExitStatus::unreachable;
        case voInet::voInetErrorFailed:
            return replyStatus ? kindOfReply(*replyStatus) : ExitStatus::serverError;
        case voInet::voInetErrorTransferFailed:
            return kindOfFailedTransfer(replyStatus);
        case voInet::voInetErrorRangeNotSatisfiable:
        case voInet::voInetErrorRangeIgnored:
        case voInet::voInetErrorRangeFailed:
            return ExitStatus::serverError;
        case voInet::voInetErrorWriteFailed:
        case voInet::voInetErrorLocalFileOpen:
        case voInet::voInetErrorUploadSetup:
            return ExitStatus::localFile;
        case voInet::voInetErrorPeerVerification:
        case voInet::voInetErrorCaCert:
        case voInet::voInetErrorSslConnect:
            return ExitStatus::tls;
        default:
            return ExitStatus::failed;
    }
}

}  // namespace voinet_command
