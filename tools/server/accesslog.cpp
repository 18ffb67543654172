#include "accesslog.h"

#include "starterror.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <system_error>

namespace voinetserver {
namespace {

constexpr const char* kStandardOutput = "-";
constexpr mode_t kLogFileMode = 0644;

std::string timestamp() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &utc);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%s.%03dZ", date.data(),
                  static_cast<int>(milliseconds));
    return text.data();
}

std::string field(const std::string& value) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const char character : value) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte > 0x20 && byte < 0x7F) {
            text += character;
        } else {
            text += {'%', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
        }
    }
    return text.empty() ? "-" : text;
}

int openLog(const std::string& file) {
    if (file == kStandardOutput) {
        return ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    }
    return ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kLogFileMode);
}

// A line that fits is written by one call, which is what keeps lines of several threads apart.
bool writeAll(int file, const std::string& text) {
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t count = ::write(file, text.data() + written, text.size() - written);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        written += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return true;
}

}  // namespace

AccessLog::AccessLog(const std::string& file) {
    if (file.empty()) {
        return;
    }
    file_ = UniqueFd(openLog(file));
    if (!file_.valid()) {
        throw StartError("the access log " + file +
                         " cannot be opened: " + std::generic_category().message(errno));
    }
}

void AccessLog::write(const AccessRecord& record) {
    if (!file_.valid()) {
        return;
    }
    const std::string line = timestamp() + ' ' + field(record.method) + ' ' + field(record.target) +
                             ' ' + field(record.range) + ' ' + std::to_string(record.status) + ' ' +
                             std::to_string(record.bytesSent) + '\n';
    if (!writeAll(file_.get(), line) && !failed_.exchange(true)) {
        std::cerr << "voinet-server: the access log cannot be written: " +
                         std::generic_category().message(errno) + '\n';
    }
}

}  // namespace voinetserver
