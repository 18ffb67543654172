#ifndef VOINET_COMMAND_ENVIRONMENT_H
#define VOINET_COMMAND_ENVIRONMENT_H

namespace voinet_command {

/// Removes libcurl's proxy variables from the environment: NO_PROXY, for one, would switch off even
/// the proxy of the command line. To be called before any thread exists.
void clearProxyEnvironment();

}  // namespace voinet_command

#endif  // VOINET_COMMAND_ENVIRONMENT_H
