#ifndef VOINET_SRC_ASCIITEXT_H
#define VOINET_SRC_ASCIITEXT_H

#include <algorithm>
#include <string_view>

// Texts of protocols, which are ASCII whatever locale the host has set.

namespace tessaro_com::pkm::voInet {

inline bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

/// Blanks and all that ends a line or a page.
inline bool isWhiteSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

inline char toLowerAscii(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline bool equalsIgnoringCase(std::string_view one, std::string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return toLowerAscii(a) == toLowerAscii(b); });
}

inline bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

/// `text` without blanks and line ends at both sides.
inline std::string_view trimmed(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const auto first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_ASCIITEXT_H
