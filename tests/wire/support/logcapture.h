#ifndef VOINET_TESTS_WIRE_SUPPORT_LOGCAPTURE_H
#define VOINET_TESTS_WIRE_SUPPORT_LOGCAPTURE_H

#include "kvecomn/hostlog.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

struct LogLine {
    HostLogLevel level;
    std::wstring module;
    std::wstring message;
};

/// Takes the process's log lines for as long as it lives.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    /// The messages of one level that hold `part`.
    std::vector<std::wstring> messages(HostLogLevel level, std::wstring_view part = {}) const;
    /// How many lines of that level hold `part`.
    std::size_t count(HostLogLevel level, std::wstring_view part = {}) const {
        return messages(level, part).size();
    }

  private:
    mutable std::mutex m_mutex;
    std::vector<LogLine> m_lines;
};

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_LOGCAPTURE_H
