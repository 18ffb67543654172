#ifndef VOINET_COMMAND_COMMANDERROR_H
#define VOINET_COMMAND_COMMANDERROR_H

#include "exitstatus.h"

#include <stdexcept>
#include <string>

namespace voinet_command {

/// Ends the command: one sentence for a person, what to try (may be empty), and the exit status.
/// main() catches it.
class CommandError : public std::runtime_error {
  public:
    CommandError(ExitStatus status, const std::string& sentence, std::string hint = {})
        : std::runtime_error(sentence), m_status(status), m_hint(std::move(hint)) {}

    ExitStatus Status() const { return m_status; }
    const std::string& Hint() const { return m_hint; }

  private:
    ExitStatus m_status;
    std::string m_hint;
};

}  // namespace voinet_command

#endif  // VOINET_COMMAND_COMMANDERROR_H
