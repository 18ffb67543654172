#include "logoutput.h"

#include "commanderror.h"
#include "kvecomn/telmcomn.h"
#include "texts.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace voinet_command {

namespace {

constexpr const char* kOwnModule = "voinet";

UniqueFd openLogFile(const std::string& path) {
    UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600));
    if (!file) {
        throw CommandError(ExitStatus::localFile, fmt::format("cannot open the log file {}: {}",
                                                              path, std::strerror(errno)));
    }
    return file;
}

std::string logLine(HostLogLevel level, const std::string& module, const std::string& message) {
    const auto now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ} {} {}: {}\n", fmt::gmtime(now),
                       hostLogLevelName(level), module, withoutControls(message));
}

}  // namespace

LogOutput::LogOutput(const OutputOptions& options, Console& console, const EventStream& events,
                     Masker& masker)
    : m_options(options), m_console(console), m_events(events), m_masker(masker) {
    if (!options.logFile.empty()) {
        m_file = openLogFile(options.logFile);
    }
    hostLogSetHandler([this](HostLogLevel level, const wchar_t* module, const wchar_t* message) {
        Take(level, module, message);
    });
    // curl's trace is wanted whatever is printed: it holds the replies to logons, and the reason
    // why there was none.
    hostLogSetDetailList({"curl"});
    hostLogSetDetailEnabled(options.logLevel == HostLogLevel::detail);
}

LogOutput::~LogOutput() {
    hostLogSetDetailEnabled(false);
    hostLogSetDetailList({});
    hostLogSetHandler({});
}

void LogOutput::Write(HostLogLevel level, const std::string& message) {
    Emit(level, kOwnModule, m_masker.Mask(kOwnModule, message));
}

void LogOutput::Take(HostLogLevel level, const wchar_t* module, const wchar_t* message) {
    const std::string name = telmcomn_wide_to_ansi(module);
    const std::string text = m_masker.Mask(name, telmcomn_wide_to_ansi(message));
    if (m_attempts != nullptr) {
        m_attempts->Add(name, text);
    }
    if (level == HostLogLevel::error) {
        m_latestError = text;
    }
    Emit(level, name, text);
}

void LogOutput::Emit(HostLogLevel level, const std::string& module, const std::string& message) {
    if (level > m_options.logLevel) {
        return;
    }
    if (m_file) {
        const std::string line = logLine(level, module, message);
        // A log that cannot be written is no reason to fail a transfer.
        static_cast<void>(!::write(m_file.Get(), line.data(), line.size()));
    } else if (m_events.Enabled()) {
        m_events.Write(
            "log", {{"level", hostLogLevelName(level)}, {"module", module}, {"message", message}});
    } else {
        m_console.Line(fmt::format("{} {}: {}", hostLogLevelName(level), module, message));
    }
}

}  // namespace voinet_command
