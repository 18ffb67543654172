#ifndef VOINET_COMMAND_GETCOMMAND_H
#define VOINET_COMMAND_GETCOMMAND_H

#include "exitstatus.h"
#include "options.h"
#include "session.h"

namespace voinet_command {

/// `voinet get`: downloads one file. Reports a failure of the transfer itself; throws CommandError
/// for everything else that goes wrong.
ExitStatus runGet(const Options& options, const CommandContext& context);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_GETCOMMAND_H
