#ifndef VOINET_SRC_CONTENTRANGE_H
#define VOINET_SRC_CONTENTRANGE_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace tessaro_com::pkm::voInet {

/// What a part of a file says about itself: its first and last byte and the size of the whole.
struct ContentRange {
    std::int64_t first;
    std::int64_t last;
    std::int64_t total;

    std::int64_t size() const { return last - first + 1; }
};

/// The value of a Content-Range header line. Nothing unless it names bytes, a range and a total
/// that fit each other.
std::optional<ContentRange> parseContentRange(std::string_view value);

/// A number of decimal digits and nothing else; nothing beyond 64 bits either.
std::optional<std::int64_t> parseDigits(std::string_view text);

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_CONTENTRANGE_H
