#ifndef VOINET_COMMAND_POSTCOMMAND_H
#define VOINET_COMMAND_POSTCOMMAND_H

#include "exitstatus.h"
#include "options.h"
#include "session.h"

namespace voinet_command {

/// `voinet post`: sends a package to the management server and stores the package that it answers
/// with. Throws CommandError for failures of the command itself; everything that the server answers
/// is an exit status.
ExitStatus runPost(const Options& options, const CommandContext& context);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_POSTCOMMAND_H
