#include "byterange.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <string_view>

namespace voinetserver {
namespace {

constexpr std::string_view kRangeUnit = "bytes=";

bool hasRangeUnit(const std::string& header) {
    return ::strncasecmp(header.c_str(), kRangeUnit.data(), kRangeUnit.size()) == 0;
}

// Digits only. A number too large for 64 bits is beyond the end of every file, as its nearest
// neighbour is.
std::optional<std::uint64_t> parsePosition(std::string_view digits) {
    std::uint64_t value = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    if (digits.empty() || stop != end) {
        return std::nullopt;
    }
    return error == std::errc{} ? value : std::numeric_limits<std::uint64_t>::max();
}

RangeSelection selectSuffix(std::uint64_t wanted, std::uint64_t size) {
    const std::uint64_t length = std::min(wanted, size);
    if (length == 0) {
        return UnsatisfiableRange{};
    }
    return ByteRange{size - length, length};
}

RangeSelection selectFromTo(std::uint64_t first, std::uint64_t last, std::uint64_t size) {
    if (first > last) {
        return WholeContent{};
    }
    if (first >= size) {
        return UnsatisfiableRange{};
    }
    return ByteRange{first, std::min(last, size - 1) - first + 1};
}

}  // namespace

RangeSelection selectRange(const std::string& header, std::uint64_t size) {
    if (!hasRangeUnit(header)) {
        return WholeContent{};
    }
    const std::string_view range = std::string_view(header).substr(kRangeUnit.size());
    const std::size_t dash = range.find('-');
    if (dash == std::string_view::npos) {
        return WholeContent{};
    }
    const bool openEnd = dash + 1 == range.size();
    const auto first = parsePosition(range.substr(0, dash));
    const auto last =
        openEnd ? std::numeric_limits<std::uint64_t>::max() : parsePosition(range.substr(dash + 1));
    if (!last) {
        return WholeContent{};
    }
    if (first) {
        return selectFromTo(*first, *last, size);
    }
    return dash == 0 && !openEnd ? selectSuffix(*last, size) : RangeSelection(WholeContent{});
}

}  // namespace voinetserver
