#ifndef VOINET_COMMAND_COMMANDLINE_H
#define VOINET_COMMAND_COMMANDLINE_H

#include "options.h"

#include <optional>
#include <string>
#include <vector>

namespace voinet_command {

/// Takes the arguments (without the program's name) into `options`.
///
/// @return a text to print instead of running, for --help and --version; null when the command is
/// to
///         run. Throws CommandError (usage) for arguments that are wrong.
std::optional<std::string> parseCommandLine(const std::vector<std::string>& arguments,
                                            Options& options);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_COMMANDLINE_H
