#ifndef VOINET_COMMAND_FAILUREREPORT_H
#define VOINET_COMMAND_FAILUREREPORT_H

#include "attempts.h"
#include "commanderror.h"
#include "events.h"
#include "exitstatus.h"
#include "voinet/voineterror.h"

#include <optional>
#include <string>
#include <vector>

namespace voinet_command {

/// A failure, with all that a person needs to act on it.
struct FailureReport {
    ExitStatus status = ExitStatus::failed;
    std::string sentence;
    std::string hint;
    /// What the server wrote, in one line; may be empty.
    std::string serverText;
    std::vector<Attempt> attempts;
    /// The result that the sentence is about, and what the library's operation ended with.
    std::optional<tessaro_com::pkm::voInet::voInetError> cause;
    std::optional<tessaro_com::pkm::voInet::voInetError> ending;
    /// Why the two differ, or say less than the sentence; empty when neither is so.
    std::string difference;
};

/// A failure of the command itself.
FailureReport reportOf(const CommandError& error);

/// A failure of a library operation that ended with `result`. The cause is the first real failure
/// among the attempts, or `result` itself without one.
FailureReport reportOf(const AttemptLog& attempts, tessaro_com::pkm::voInet::voInetError result);

/// The lines for a person.
std::vector<std::string> reportLines(const FailureReport& report);

/// One attempt in one line.
std::string attemptLine(const Attempt& attempt);

/// The fields of the event "result".
EventStream::Object reportFields(const FailureReport& report);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_FAILUREREPORT_H
