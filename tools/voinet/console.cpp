#include "console.h"

#include "texts.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>

namespace voinet_command {

namespace {

constexpr int kDefaultWidth = 80;
// To the first column, and erase to the end of the line.
constexpr const char* kEraseLine = "\r\x1b[K";

}  // namespace

Console::~Console() {
    EndBar();
}

bool Console::IsTerminal() const {
    return ::isatty(STDERR_FILENO) == 1;
}

int Console::Width() const {
    winsize size{};
    const bool known = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : kDefaultWidth;
}

void Console::Line(const std::string& text) {
    if (m_quiet) {
        return;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_barShown) {
        std::fputs(kEraseLine, stderr);
        m_barShown = false;
    }
    std::fputs((withoutControls(text) + "\n").c_str(), stderr);
}

void Console::Bar(const std::string& text) {
    if (m_quiet) {
        return;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::fputs((kEraseLine + withoutControls(text)).c_str(), stderr);
    m_barShown = true;
}

void Console::EndBar() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_barShown) {
        std::fputs("\n", stderr);
        m_barShown = false;
    }
}

}  // namespace voinet_command
