#ifndef VOINET_COMMAND_SECRETS_H
#define VOINET_COMMAND_SECRETS_H

#include "options.h"

#include <string>

namespace voinet_command {

/// Fetches a secret: the first line of a file, the value of an environment variable, or what a
/// person types at the terminal without echo. Empty when the source is not given. Throws
/// CommandError for a source that gives nothing usable; no message ever shows the secret.
///
/// @param what  names the secret in messages and in the prompt, such as "password".
std::string readSecret(const SecretSource& source, const std::string& what);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_SECRETS_H
