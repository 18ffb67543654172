#ifndef VOINET_VOINETERROR_H
#define VOINET_VOINETERROR_H

#include "voinet/voinet_export.h"

#include <cstdint>

namespace tessaro_com::pkm::voInet {

/// Result of every operation that can fail: 0 is success, a negative value is a failure, a small
/// positive value is an outcome that is not plain success. The numbers are part of the interface
/// (callers store and compare them); gaps are intended.
enum voInetError : std::int32_t {
    voInetErrorSuccess = 0,

    // Outcomes.

    /// The login was refused, or an HTTP server asked for credentials and none are set.
    voInetErrorLoginIncorrect = 1,
    /// The proxy asked for credentials (HTTP 407) and there is no way left to give them.
    voInetErrorProxyAuthRequired = 2,
    /// HTTP 416 to a ranged request. A download restarts from byte 0 on it, so callers see it only
    /// when the restart meets it again.
    voInetErrorRangeNotSatisfiable = 4,
    /// The server sent the whole file, or another part, to a ranged request. A download restarts
    /// from byte 0 on it, so callers see it only when the restart meets it again.
    voInetErrorRangeIgnored = 6,
    /// The caller's progress sink or the thread's monitor asked to stop. Positive: the fall-back
    /// rules do not try another host form after the user stopped a transfer.
    voInetErrorCancelled = 7,
    /// Upload with response: the server sent a package (HTTP 200).
    voInetErrorPackageReceived = 8,
    /// Never produced by this library; the fall-back rules compare against it.
    voInetErrorCode9 = 9,
    /// Upload with response: the server is busy (HTTP 201 or 503).
    voInetErrorServerBusy = 12,
    /// Upload with response: the server has no package (HTTP 202).
    voInetErrorNoPackage = 13,
    /// The protocol does not have this operation (every operation of the UNC connection, uploads of
    /// the local-path connection).
    voInetErrorNotImplemented = 21,
    /// The library-wide shutdown flag is set; the upload was refused before anything was done.
    voInetErrorShutdown = 22,

    // Failures.

    /// General failure with no more precise code.
    voInetErrorFailed = -1,
    /// The HTTP download used up its requests (four) for one transfer.
    voInetErrorMaxRetries = -2,
    /// SetOption: this overload does not accept the option.
    voInetErrorInvalidOption = -3,
    /// An empty file name, an unusable option value, or one file for both ends of a copy or an
    /// exchange.
    voInetErrorInvalidArgument = -4,
    /// The remote or source file does not exist.
    voInetErrorFileNotFound = -5,
    /// The settings are incomplete or inconsistent for the operation.
    voInetErrorBadOptions = -6,
    /// The proxy's host name could not be resolved.
    voInetErrorProxyNotResolved = -7,
    /// The server's host name could not be resolved.
    voInetErrorHostNotResolved = -8,
    /// Writing to the local file failed.
    voInetErrorWriteFailed = -10,
    /// Memory ran out.
    voInetErrorOutOfMemory = -11,
    /// The server refused the byte range of a resumed transfer.
    voInetErrorRangeFailed = -12,
    /// Never produced by this library; the fall-back rules compare against it.
    voInetErrorCodeMinus13 = -13,
    /// Never produced by this library; the fall-back rules compare against it.
    voInetErrorCodeMinus14 = -14,
    /// The local destination could not be opened for writing (local-path copy).
    voInetErrorLocalFileOpen = -16,
    /// Upload with response: the request file or the response file could not be opened.
    voInetErrorUploadSetup = -19,
    /// The server denied access (HTTP 403).
    voInetErrorAccessDenied = -22,
    /// Never produced by this library; the fall-back rules compare against it.
    voInetErrorCodeMinus26 = -26,
    /// The operation timed out.
    voInetErrorTimeout = -60,
    /// Any other transfer failure.
    voInetErrorTransferFailed = -88,
    /// The server's certificate failed verification, as libcurl before 7.62 says it (51). Newer
    /// ones never say so.
    voInetErrorPeerVerification = -89,
    /// The server's certificate could not be verified (60): the CA file does not lead to it, it has
    /// expired, and so on. A CA file that cannot be used at all is voInetErrorTransferFailed.
    voInetErrorCaCert = -91,
    /// The TLS handshake failed.
    voInetErrorSslConnect = -92,
    /// UploadFile is not offered by the FTP and HTTP connections.
    voInetErrorNotSupported = -93,
    /// Upload with response: the server calls the request invalid (HTTP 400).
    voInetErrorInvalidRequest = -94,
    /// Upload with response: the agent's identity already exists and is to be made anew (HTTP 506).
    voInetErrorGuidExists = -95,
    /// Upload with response: access denied, and the agent is to update its keys (HTTP 403 with the
    /// key-update marker).
    voInetErrorKeysOutdated = -96,
};

/// Translates a result of libcurl's easy interface. Every number without an entry of its own gives
/// voInetErrorTransferFailed. A pure function; any thread may call it.
VOINET_API voInetError mapCurlErrorCode(int curlCode);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_VOINETERROR_H
