#ifndef VOINET_COMMAND_PROBECOMMAND_H
#define VOINET_COMMAND_PROBECOMMAND_H

#include "exitstatus.h"
#include "options.h"
#include "session.h"

namespace voinet_command {

/// `voinet probe`: asks whether a server, or a local repository, is there.
ExitStatus runProbe(const Options& options, const CommandContext& context);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_PROBECOMMAND_H
