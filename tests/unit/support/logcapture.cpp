#include "logcapture.h"

#include "kvecomn/hostlog.h"
#include "kvecomn/telmcomn.h"

namespace voinet_test {

namespace {

std::vector<std::string>& lines() {
    static std::vector<std::string> captured;
    return captured;
}

std::string line(HostLogLevel level, const std::string& module, const std::string& text) {
    return std::string(hostLogLevelName(level)) + " " + module + ": " + text;
}

}  // namespace

std::string errorLine(const std::string& text, const std::string& module) {
    return line(HostLogLevel::error, module, text);
}

std::string infoLine(const std::string& text, const std::string& module) {
    return line(HostLogLevel::info, module, text);
}

std::string debugLine(const std::string& text, const std::string& module) {
    return line(HostLogLevel::detail, module, text);
}

const std::vector<std::string>& logLines() {
    return lines();
}

std::vector<std::string> logLines(const std::string& level) {
    std::vector<std::string> result;
    for (const auto& each : lines()) {
        if (each.rfind(level + " ", 0) == 0) {
            result.push_back(each);
        }
    }
    return result;
}

void clearLog() {
    lines().clear();
}

void startLogCapture() {
    clearLog();
    hostLogSetDetailEnabled(false);
    hostLogSetDetailList({});
    hostLogSetHandler([](HostLogLevel level, const wchar_t* module, const wchar_t* message) {
        lines().push_back(
            line(level, telmcomn_wide_to_ansi(module), telmcomn_wide_to_ansi(message)));
    });
}

}  // namespace voinet_test
