#include "support/logcapture.h"

namespace tessaro_com::pkm::voInet::wire {

LogCapture::LogCapture() {
    hostLogSetHandler([this](HostLogLevel level, const wchar_t* module, const wchar_t* message) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back({level, module, message});
    });
}

LogCapture::~LogCapture() {
    hostLogSetHandler({});
}

std::vector<LogLine> LogCapture::lines() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::vector<std::wstring> LogCapture::messages(HostLogLevel level, std::wstring_view part) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::wstring> found;
    for (const auto& line : m_lines) {
        if (line.level == level && line.message.find(part) != std::wstring::npos) {
            found.push_back(line.message);
        }
    }
    return found;
}

}  // namespace tessaro_com::pkm::voInet::wire
