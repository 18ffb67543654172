#include "kvecomn/log.h"

#include "brokenpipeguard.h"
#include "kvecomn/hostlog.h"
#include "kvecomn/telmcomn.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

struct LogState {
    // Recursive, so that a handler that logs or replaces itself against the rules does not stand
    // still for ever.
    std::recursive_mutex handlerMutex;
    std::shared_ptr<const HostLogHandler> handler;
    bool isHandlerRunning = false;

    std::atomic<bool> isDetailEnabled{false};

    std::mutex detailListMutex;
    std::vector<std::string> detailList;
};

/// Never destroyed: destructors of other static objects may still log. Not on the heap either: who
/// asks for the first time may have no memory left.
LogState& logState() noexcept {
    alignas(LogState) static unsigned char room[sizeof(LogState)];
    static LogState* const kState = new (room) LogState;
    return *kState;
}

bool isInDetailList(const char* name) {
    LogState& state = logState();
    const std::lock_guard<std::mutex> lock(state.detailListMutex);
    return std::find(state.detailList.begin(), state.detailList.end(), name) !=
           state.detailList.end();
}

struct CharacterRange {
    char32_t first;
    char32_t last;
};

/// What a terminal or a pager acts on instead of showing it: it could end the line, start another
/// that nobody wrote, or change what is read.
constexpr CharacterRange kInvisibleCharacters[] = {
    {0x00, 0x1F},      // controls
    {0x7F, 0x9F},      // delete, more controls
    {0x2028, 0x202E},  // line and paragraph separators, changes of the writing direction
    {0x2066, 0x2069},  // isolated writing directions
};

bool isInvisible(wchar_t character) {
    const auto value = static_cast<char32_t>(character);
    return std::any_of(std::begin(kInvisibleCharacters), std::end(kInvisibleCharacters),
                       [value](const CharacterRange& range) {
                           return value >= range.first && value <= range.last;
                       });
}

/// The usual escapes where there are some, else the number: "\n", "\x1b", "\u2028".
std::wstring escaped(wchar_t character) {
    switch (character) {
        case L'\n':
            return L"\\n";
        case L'\r':
            return L"\\r";
        case L'\t':
            return L"\\t";
        default:
            break;
    }
    constexpr std::size_t kLongest = sizeof("\\u0000");
    constexpr char32_t kLeastOfFourDigits = 0x100;
    char text[kLongest];
    const auto value = static_cast<char32_t>(character);
    std::snprintf(text, sizeof text, value < kLeastOfFourDigits ? "\\x%02x" : "\\u%04x",
                  static_cast<unsigned>(value));
    return telmcomn_ansi_to_wide(text);
}

std::string printable(const wchar_t* text) {
    std::wstring shown;
    for (; *text != L'\0'; ++text) {
        if (isInvisible(*text)) {
            shown += escaped(*text);
        } else {
            shown += *text;
        }
    }
    return telmcomn_wide_to_ansi(shown);
}

/// The present time as "2031-05-09T07:08:09.123Z".
std::string currentTime() {
    constexpr long kNanosecondsPerMillisecond = 1000000;
    constexpr std::size_t kEnoughForAnyYear = 64;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    char seconds[kEnoughForAnyYear];
    const std::size_t length = strftime(seconds, sizeof seconds, "%Y-%m-%dT%H:%M:%S", &parts);
    char milliseconds[kEnoughForAnyYear];
    std::snprintf(milliseconds, sizeof milliseconds, ".%03ldZ",
                  now.tv_nsec / kNanosecondsPerMillisecond);
    return std::string(seconds, length) + milliseconds;
}

/// Writes all of a line, in one call unless the system takes it in parts, so that the lines of
/// several processes do not mix.
void writeToStandardError(std::string_view line) {
    const kvecomn::BrokenPipeGuard guard;
    const char* position = line.data();
    std::size_t left = line.size();
    while (left > 0) {
        const ssize_t written = write(STDERR_FILENO, position, left);
        if (written > 0) {
            position += written;
            left -= static_cast<std::size_t>(written);
        } else if (written == -1 && errno == EAGAIN) {
            pollfd ready{STDERR_FILENO, POLLOUT, 0};
            poll(&ready, 1, -1);
        } else if (written == 0 || errno != EINTR) {
            return;
        }
    }
}

void writeDefault(HostLogLevel level, const wchar_t* module, const wchar_t* message) {
    if (level == HostLogLevel::detail && !logState().isDetailEnabled &&
        !isInDetailList(telmcomn_wide_to_ansi(module).c_str())) {
        return;
    }
    writeToStandardError(currentTime() + ' ' + hostLogLevelName(level) + ' ' + printable(module) +
                         ": " + printable(message) + '\n');
}

/// An error that cannot be written for lack of memory does not pass in silence.
void writeDefaultOrTell(HostLogLevel level, const wchar_t* module, const wchar_t* message) {
    try {
        writeDefault(level, module, message);
    } catch (const std::bad_alloc&) {
        if (level == HostLogLevel::error) {
            writeToStandardError("error kvecomn: memory lacks to write an error line\n");
        }
    }
}

/// Marks that the handler runs, as long as it lives.
class HandlerRun {
  public:
    explicit HandlerRun(bool& isRunning) : m_isRunning(isRunning) { m_isRunning = true; }
    ~HandlerRun() { m_isRunning = false; }
    HandlerRun(const HandlerRun&) = delete;
    HandlerRun& operator=(const HandlerRun&) = delete;

  private:
    bool& m_isRunning;
};

void dispatch(HostLogLevel level, const wchar_t* module, const wchar_t* message) {
    LogState& state = logState();
    const std::lock_guard<std::recursive_mutex> lock(state.handlerMutex);
    if (state.isHandlerRunning) {
        return;
    }
    const HandlerRun run(state.isHandlerRunning);
    // A copy: the handler lives until it returns, even when it replaces itself.
    const std::shared_ptr<const HostLogHandler> handler = state.handler;
    if (handler) {
        (*handler)(level, module, message);
    } else {
        writeDefaultOrTell(level, module, message);
    }
}

/// A log line is never worth a failure of the code that logs: what goes wrong loses the line only.
void log(HostLogLevel level, const wchar_t* module, const wchar_t* message) noexcept {
    const int savedError = errno;
    try {
        dispatch(level, module == nullptr ? L"" : module, message == nullptr ? L"" : message);
    } catch (...) {
    }
    errno = savedError;
}

}  // namespace

void logInfo(const wchar_t* module, const wchar_t* message) {
    log(HostLogLevel::info, module, message);
}

void logDetail(const wchar_t* module, const wchar_t* message) {
    log(HostLogLevel::detail, module, message);
}

void logError(const wchar_t* module, const wchar_t* message) {
    log(HostLogLevel::error, module, message);
}

bool isDetailLoggingEnabled() {
    return logState().isDetailEnabled;
}

bool logDetailListContains(char* name) {
    return name != nullptr && isInDetailList(name);
}

const char* hostLogLevelName(HostLogLevel level) {
    switch (level) {
        case HostLogLevel::error:
            return "error";
        case HostLogLevel::info:
            return "info";
        case HostLogLevel::detail:
            return "detail";
    }
    return "unknown";
}

void hostLogSetHandler(HostLogHandler handler) {
    std::shared_ptr<const HostLogHandler> next;
    try {
        if (handler) {
            next = std::make_shared<const HostLogHandler>(std::move(handler));
        }
    } catch (const std::bad_alloc&) {
        // The default writes the lines.
    }
    LogState& state = logState();
    const std::lock_guard<std::recursive_mutex> lock(state.handlerMutex);
    state.handler.swap(next);
}

void hostLogSetDetailEnabled(bool enabled) {
    logState().isDetailEnabled = enabled;
}

void hostLogSetDetailList(std::vector<std::string> names) {
    LogState& state = logState();
    const std::lock_guard<std::mutex> lock(state.detailListMutex);
    state.detailList.swap(names);
}
