#ifndef VOINET_PROXY_DETECT_H
#define VOINET_PROXY_DETECT_H

#include "voinet/voinet_export.h"

#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet {

// Whether a host is exempt from the proxy. The functions keep no state and any thread may call
// them. They resolve names, anew at each call, so they may take time: one look-up of the host and
// one of the entry for every entry of a list up to the first match. A name that does not resolve
// matches nothing.

/// @{
/// True when the proxy is not to be used for `host`: when an entry of `list` resolves to one of the
/// host's addresses, or when `bypassLocal` is set and the host is a single-label name (no ".", no
/// ":"; a path that stands behind the host counts as well; intended).
///
/// @param host  a host name or address, or a URL.
/// @param list  entries separated by any of ",; \t\n\r"; no wildcards, no key words. The wide form
///              takes one or several entries per element.
VOINET_API bool isProxyBypassed(const std::string& host, const std::string& list,
                                const bool& bypassLocal);
VOINET_API bool isProxyBypassed(const std::wstring& host, const std::vector<std::wstring>& list,
                                const bool& bypassLocal);
/// @}

/// True when the two site names (scheme, path and port do not count) resolve to a common address.
/// Null names no site.
VOINET_API bool AreSitesIdentical(const char* a, const char* b);

/// True when the two lists of numeric addresses share an entry; letter case does not count.
VOINET_API bool MatchAddrList(const std::vector<char*>& a, const std::vector<char*>& b);

/// Appends the parts of `text` between the characters of `delimiters` to `out`; runs of delimiters
/// give no empty parts. Always true.
template <class String>
bool tokenize(const String& text, std::vector<String>& out, const String& delimiters) {
    auto start = text.find_first_not_of(delimiters);
    auto end = text.find_first_of(delimiters, start);
    while (start != String::npos || end != String::npos) {
        out.push_back(text.substr(start, end - start));
        start = text.find_first_not_of(delimiters, end);
        end = text.find_first_of(delimiters, start);
    }
    return true;
}

extern template VOINET_API bool tokenize<std::string>(const std::string& text,
                                                      std::vector<std::string>& out,
                                                      const std::string& delimiters);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_PROXY_DETECT_H
