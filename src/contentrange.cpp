#include "contentrange.h"

#include "asciitext.h"

#include <charconv>

namespace tessaro_com::pkm::voInet {

std::optional<std::int64_t> parseDigits(std::string_view text) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    // from_chars takes a minus sign for part of a number.
    const bool isNumber = error == std::errc() && stop == end && text.front() != '-';
    return isNumber ? std::optional(number) : std::nullopt;
}

std::optional<ContentRange> parseContentRange(std::string_view value) {
    constexpr std::string_view kUnit = "bytes";
    value = trimmed(value);
    if (!equalsIgnoringCase(value.substr(0, kUnit.size()), kUnit)) {
        return std::nullopt;
    }
    value.remove_prefix(kUnit.size());
    const auto dash = value.find('-');
    const auto slash = value.find('/');
    if (!isBlank(value.empty() ? '\0' : value.front()) || dash == std::string_view::npos ||
        slash == std::string_view::npos || slash < dash) {
        return std::nullopt;
    }
    const auto first = parseDigits(trimmed(value.substr(0, dash)));
    const auto last = parseDigits(value.substr(dash + 1, slash - dash - 1));
    const auto total = parseDigits(value.substr(slash + 1));
    if (!first || !last || !total || *first > *last || *last >= *total) {
        return std::nullopt;
    }
    return ContentRange{*first, *last, *total};
}

}  // namespace tessaro_com::pkm::voInet
