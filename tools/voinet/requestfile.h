#ifndef VOINET_COMMAND_REQUESTFILE_H
#define VOINET_COMMAND_REQUESTFILE_H

#include <cstdint>
#include <string>

namespace voinet_command {

/// Checks that a package can be sent, and that the answer at `response`, or a file that is made on
/// the way to it, does not take its place.
///
/// @return the package's size. Throws CommandError.
std::uint64_t checkRequestFile(const std::string& request, const std::string& response);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_REQUESTFILE_H
