#ifndef VOINET_COMMAND_ERRORSCOMMAND_H
#define VOINET_COMMAND_ERRORSCOMMAND_H

#include "events.h"

#include <string>

namespace voinet_command {

/// `voinet errors`: the library's results and the command's exit statuses, as events or as text.
void runErrors(const EventStream& events);

/// The table of results.
std::string resultTable();

/// The table of exit statuses, each line indented.
std::string exitStatusLines();

}  // namespace voinet_command

#endif  // VOINET_COMMAND_ERRORSCOMMAND_H
