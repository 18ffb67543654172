#ifndef VOINET_SRC_CURLHANDLE_H
#define VOINET_SRC_CURLHANDLE_H

#include "kvecomn/log.h"
#include "voinet/callbacks.h"

#include <curl/curl.h>

#include <memory>
#include <new>
#include <string>

namespace tessaro_com::pkm::voInet {

static_assert(sizeof(curl_off_t) == 8, "files beyond 2 GiB need 64-bit offsets");

struct EasyHandleCleanup {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};

/// Owns an easy handle; null when curl had none.
using EasyHandle = std::unique_ptr<CURL, EasyHandleCleanup>;

/// Owns the header lines of a request. They must outlive the transfers of the handle they are set
/// on.
class HeaderList {
  public:
    /// Throws std::bad_alloc rather than leave the line out.
    void append(const std::string& line) {
        curl_slist* const longer = curl_slist_append(m_lines.get(), line.c_str());
        if (longer == nullptr) {
            throw std::bad_alloc();
        }
        (void)m_lines.release();
        m_lines.reset(longer);
    }

    curl_slist* get() const { return m_lines.get(); }
    bool empty() const { return m_lines == nullptr; }

  private:
    struct FreeAll {
        void operator()(curl_slist* lines) const noexcept { curl_slist_free_all(lines); }
    };
    std::unique_ptr<curl_slist, FreeAll> m_lines;
};

/// Sets an option that is a text, which libcurl copies. Throws std::bad_alloc when it has no memory
/// for that, since a request without its proxy, range or CA file is another request; any other
/// answer is not looked at.
inline void setTextOption(CURL* handle, CURLoption option, const char* text) {
    if (curl_easy_setopt(handle, option, text) == CURLE_OUT_OF_MEMORY) {
        throw std::bad_alloc();
    }
}

inline void setTextOption(CURL* handle, CURLoption option, const std::string& text) {
    setTextOption(handle, option, text.c_str());
}

/// CURLAUTH_ANY as curl_easy_setopt reads it.
inline constexpr long kAnyAuthentication = static_cast<long>(CURLAUTH_ANY);

/// A figure of the latest request, its status by default; 0 when there is none.
inline int responseCode(CURL* handle, CURLINFO info = CURLINFO_RESPONSE_CODE) {
    long code = 0;
    if (handle != nullptr) {
        curl_easy_getinfo(handle, info, &code);
    }
    return static_cast<int>(code);
}

/// Switches curl's trace on when the host wants detail from everything or from curl.
inline void installTraceIfWanted(CURL* handle) {
    char name[] = "curl";
    if (isDetailLoggingEnabled() || logDetailListContains(name)) {
        curl_easy_setopt(handle, CURLOPT_VERBOSE, 1L);
        curl_easy_setopt(handle, CURLOPT_DEBUGFUNCTION, trace_curl);
    }
}

/// A transfer that moves less than one byte per second for ten minutes has failed.
inline void installStallDetection(CURL* handle) {
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, 600L);
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_CURLHANDLE_H
