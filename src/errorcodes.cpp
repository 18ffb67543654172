#include "voinet/voineterror.h"

namespace tessaro_com::pkm::voInet {

voInetError mapCurlErrorCode(int curlCode) {
    // By number: recent curl headers give several of the old names one value, and number 10 has had
    // different names.
    switch (curlCode) {
        case 0:  // OK
            return voInetErrorSuccess;
        case 5:  // proxy not resolved
            return voInetErrorProxyNotResolved;
        case 6:  // host not resolved
            return voInetErrorHostNotResolved;
        case 10:
            return voInetErrorLoginIncorrect;
        case 19:  // FTP: the file could not be retrieved
            return voInetErrorFileNotFound;
        case 23:  // write error
            return voInetErrorWriteFailed;
        case 27:  // out of memory
            return voInetErrorOutOfMemory;
        case 28:  // timed out
            return voInetErrorTimeout;
        case 33:  // range error
            return voInetErrorRangeFailed;
        case 35:  // TLS handshake
            return voInetErrorSslConnect;
        case 42:  // aborted by callback; no failure, so that no other host form is tried
            return voInetErrorCancelled;
        case 51:  // the older number of a failed verification
            return voInetErrorPeerVerification;
        case 60:  // CA certificate
            return voInetErrorCaCert;
        default:
            return voInetErrorTransferFailed;
    }
}

}  // namespace tessaro_com::pkm::voInet
