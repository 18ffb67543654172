#ifndef VOINET_SERVER_BYTERANGE_H
#define VOINET_SERVER_BYTERANGE_H

#include <cstdint>
#include <string>
#include <variant>

namespace voinetserver {

/// A piece of a content.
struct ByteRange {
    std::uint64_t offset;
    std::uint64_t length;
};

/// The request names no piece, or none that this server understands: send everything (200).
struct WholeContent {};

/// The piece lies outside the content (416).
struct UnsatisfiableRange {};

using RangeSelection = std::variant<WholeContent, ByteRange, UnsatisfiableRange>;

/// Applies the value of a Range header to a content of `size` bytes. A value that is not
/// well-formed counts as absent, and so does one that names several ranges: answering those with
/// everything is allowed, and nothing in a repository asks for them.
RangeSelection selectRange(const std::string& header, std::uint64_t size);

}  // namespace voinetserver

#endif
