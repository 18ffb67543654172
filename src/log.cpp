#include "voinet/log.h"

#include "kvecomn/astring.h"
#include "kvecomn/log.h"

#include <cstdarg>
#include <cstdio>

namespace tessaro_com::pkm::voInet {

namespace {

constexpr std::size_t kMessageSize = 512;

using HostLogFunction = void (*)(const wchar_t* module, const wchar_t* message);

void writeToHost(HostLogFunction hostLog, const char* module, const char* format,
                 std::va_list arguments) noexcept {
    char message[kMessageSize] = "";
    std::vsnprintf(message, sizeof message, format, arguments);
    try {
        hostLog(AString(module), AString(message));
    } catch (...) {
        // A line that cannot be logged must not end a transfer.
    }
}

}  // namespace

void voinet_Loginfo(const char* module, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    writeToHost(logInfo, module, format, arguments);
    va_end(arguments);
}

void voinet_LoginfoDebug(const char* module, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    writeToHost(logDetail, module, format, arguments);
    va_end(arguments);
}

void voinet_LogWarn(const char* module, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    // The host's log has no warnings; information is what it gets, on purpose.
    writeToHost(logInfo, module, format, arguments);
    va_end(arguments);
}

void voinet_LogError(const char* module, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    writeToHost(logError, module, format, arguments);
    va_end(arguments);
}

}  // namespace tessaro_com::pkm::voInet
