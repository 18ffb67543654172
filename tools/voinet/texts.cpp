#include "texts.h"

#include "kvecomn/telmcomn.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace voinet_command {

bool isUtf8(const std::string& text) {
    // The conversion replaces whatever is ill-formed, so only well-formed text survives both ways.
    return telmcomn_wide_to_ansi(telmcomn_ansi_to_wide(text)) == text;
}

bool hasBlank(const std::string& text) {
    return text.find_first_of(" \t\n\v\f\r") != std::string::npos;
}

std::string withoutControls(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](char each) {
            const auto byte = static_cast<unsigned char>(each);
            return byte < 0x20 || byte == 0x7f;
        },
        '?');
    return text;
}

std::string formatBytes(std::uint64_t bytes) {
    static constexpr std::array<const char*, 5> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB"};
    if (bytes < 1024) {
        return fmt::format("{} B", bytes);
    }
    double figure = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    while (figure >= 1024 && unit + 1 < kUnits.size()) {
        figure /= 1024;
        ++unit;
    }
    return fmt::format("{:.1f} {}", figure, kUnits[unit]);
}

std::string formatDuration(std::uint64_t seconds) {
    const std::uint64_t hours = seconds / 3600;
    const std::uint64_t minutes = seconds / 60 % 60;
    if (hours > 0) {
        return fmt::format("{}:{:02}:{:02}", hours, minutes, seconds % 60);
    }
    return fmt::format("{}:{:02}", minutes, seconds % 60);
}

std::string joinHostPort(const std::string& host, int port) {
    const bool bare = host.find(':') != std::string::npos && host.front() != '[';
    return bare ? fmt::format("[{}]:{}", host, port) : fmt::format("{}:{}", host, port);
}

}  // namespace voinet_command
