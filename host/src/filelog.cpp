#include "filelog.h"

#include "kvecomn/astring.h"
#include "kvecomn/log.h"

namespace kvecomn {

namespace {

constexpr wchar_t kModuleName[] = L"kvecomn";

/// Writes the texts one after the other as an error line.
template <typename... Text>
void logLine(const Text&... texts) noexcept {
    try {
        AString message;
        (message += ... += texts);
        logError(kModuleName, message);
    } catch (...) {
        logError(kModuleName, L"A file operation failed, and memory lacks to say which and why");
    }
}

}  // namespace

void logOpenError(const std::string& path, const char* reason) noexcept {
    logLine("Cannot open \"", path, "\": ", reason);
}

void logCloseError(const std::string& path, const char* reason) noexcept {
    logLine("Cannot close \"", path, "\": ", reason);
}

void logCopyError(const std::string& from, const std::string& to, const char* reason) noexcept {
    logLine("Cannot copy \"", from, "\" to \"", to, "\": ", reason);
}

void logUnsafeCopy(const std::string& from, const std::string& to, const char* reason) noexcept {
    logLine("Copied \"", from, "\" to \"", to,
            "\", but the directory may lose it with the power: flush: ", reason);
}

}  // namespace kvecomn
