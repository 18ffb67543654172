#ifndef VOINET_CALLBACKS_H
#define VOINET_CALLBACKS_H

// The one public header that needs libcurl's: the trace callback takes curl's own types. The
// umbrella header voinet.h does not include it.
#include "voinet/voinet_export.h"

#include <curl/curl.h>

#include <cstddef>

namespace tessaro_com::pkm::voInet {

// Callbacks for libcurl. `userData` is the transfer's CallbackManager, not owned; null makes them
// harmless, as said below. They run on the thread of curl_easy_perform and never throw. During a
// transfer of this library they also serve its monitor, which may stop it whatever `userData` is.

/// CURLOPT_WRITEFUNCTION: the count that CallbackManager::WriteData took; with null all of it, and
/// 0 when the monitor stops the transfer.
VOINET_API unsigned long writeCallback(void* ptr, unsigned long size, int nmemb, void* userData);

/// CURLOPT_READFUNCTION: the count that CallbackManager::ReadData gave; with null 0, the end.
VOINET_API unsigned long readCallback(void* ptr, unsigned long size, int nmemb, void* userData);

/// CURLOPT_PROGRESSFUNCTION: 1 to stop the transfer, 0 to go on; with null 0 unless the monitor
/// stops it.
VOINET_API int progressCallback(void* userData, double dltotal, double dlnow, double ultotal,
                                double ulnow);

/// CURLOPT_DEBUGFUNCTION: writes curl's trace to the log at detail level under the module "curl",
/// as handle, kind, size and bytes. Of bodies and TLS records it shows 16 bytes at most.
/// Unprintable bytes stand as a back-quote, "0x" and two hexadecimal digits, a back-quote as two.
/// Headers are shown whole, credentials included. Always 0.
VOINET_API int trace_curl(CURL* handle, curl_infotype type, char* data, std::size_t size,
                          void* userData);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_CALLBACKS_H
