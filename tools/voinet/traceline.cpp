#include "traceline.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <string_view>

namespace voinet_command {

namespace {

constexpr std::array<std::string_view, 7> kInds = {
    "info", "rcv head", "snd head", "rcv data", "snd data", "rcv SSL data", "snd SSL data"};
// "`0x" and two digits.
constexpr std::size_t kEscapeLength = 5;

bool isDigit(char each) {
    return std::isdigit(static_cast<unsigned char>(each)) != 0;
}

bool startsWith(const std::string& text, std::size_t position, std::string_view prefix) {
    return text.compare(position, prefix.size(), prefix) == 0;
}

/// The byte of an escape at `position`; null when none stands there.
std::optional<char> escapedByte(const std::string& text, std::size_t position) {
    if (!startsWith(text, position, "`0x") || position + kEscapeLength > text.size()) {
        return std::nullopt;
    }
    unsigned int byte = 0;
    const char* digits = text.data() + position + 3;
    const auto [stop, error] = std::from_chars(digits, digits + 2, byte, 16);
    if (error != std::errc() || stop != digits + 2) {
        return std::nullopt;
    }
    return static_cast<char>(static_cast<unsigned char>(byte));
}

}  // namespace

std::optional<TraceLine> parseTraceLine(const std::string& message) {
    const auto blank = message.find(' ');
    if (blank == std::string::npos) {
        return std::nullopt;
    }
    const std::size_t kindStart = blank + 1;
    for (const std::string_view kind : kInds) {
        const std::size_t sizeStart = kindStart + kind.size() + 1;
        if (!startsWith(message, kindStart, kind) || sizeStart >= message.size() ||
            !isDigit(message[sizeStart])) {
            continue;
        }
        const auto sizeEnd = message.find(' ', sizeStart);
        const std::size_t start = sizeEnd == std::string::npos ? message.size() : sizeEnd + 1;
        return TraceLine{std::string(kind), message.substr(start), start};
    }
    return std::nullopt;
}

std::string escapeTrace(const std::string& bytes) {
    static constexpr char kHexDigits[] = "0123456789abcdef";
    std::string escaped;
    for (const char each : bytes) {
        const auto byte = static_cast<unsigned char>(each);
        if (each == '`') {
            escaped += "``";
        } else if (byte >= 0x20 && byte < 0x7f) {
            escaped += each;
        } else {
            escaped += {'`', '0', 'x', kHexDigits[byte / 16], kHexDigits[byte % 16]};
        }
    }
    return escaped;
}

std::string unescapeTrace(const std::string& escaped) {
    std::string bytes;
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        if (const auto byte = escapedByte(escaped, i)) {
            bytes.push_back(*byte);
            i += kEscapeLength - 1;
        } else {
            bytes.push_back(escaped[i]);
            i += startsWith(escaped, i, "``") ? 1 : 0;
        }
    }
    return bytes;
}

std::optional<int> replyStatusOf(const std::string& line) {
    std::size_t start = 0;
    if (startsWith(line, 0, "HTTP/")) {
        start = std::min(line.find(' '), line.size() - 1) + 1;
    }
    constexpr std::size_t kDigits = 3;
    if (line.size() < start + kDigits ||
        !std::all_of(line.begin() + static_cast<std::ptrdiff_t>(start),
                     line.begin() + static_cast<std::ptrdiff_t>(start + kDigits), isDigit)) {
        return std::nullopt;
    }
    if (line.size() > start + kDigits && isDigit(line[start + kDigits])) {
        return std::nullopt;
    }
    return std::stoi(line.substr(start, kDigits));
}

}  // namespace voinet_command
