#ifndef VOINET_COMMAND_LOGOUTPUT_H
#define VOINET_COMMAND_LOGOUTPUT_H

#include "attempts.h"
#include "console.h"
#include "events.h"
#include "kvecomn/hostlog.h"
#include "masking.h"
#include "options.h"
#include "uniquefd.h"

#include <string>

namespace voinet_command {

/// The command's handler of the host log for as long as it lives: hands every line to the attempt
/// log, masks secrets, and writes the lines of the wanted levels to the log file, as JSON events or
/// to standard error.
class LogOutput {
  public:
    /// Everything handed over must outlive the object. Throws CommandError when the log file cannot
    /// be opened.
    LogOutput(const OutputOptions& options, Console& console, const EventStream& events,
              Masker& masker);
    LogOutput(const LogOutput&) = delete;
    LogOutput& operator=(const LogOutput&) = delete;
    ~LogOutput();

    /// Where lines go to be put together; null for nowhere. Not owned.
    void SetAttempts(AttemptLog* attempts) { m_attempts = attempts; }

    /// Writes a line of the command itself.
    void Write(HostLogLevel level, const std::string& message);

    /// The latest error line; empty without one.
    const std::string& LatestError() const { return m_latestError; }

  private:
    void Take(HostLogLevel level, const wchar_t* module, const wchar_t* message);
    void Emit(HostLogLevel level, const std::string& module, const std::string& message);

    const OutputOptions& m_options;
    Console& m_console;
    const EventStream& m_events;
    Masker& m_masker;
    AttemptLog* m_attempts = nullptr;
    UniqueFd m_file;
    std::string m_latestError;
};

}  // namespace voinet_command

#endif  // VOINET_COMMAND_LOGOUTPUT_H
