#ifndef VOINET_SERVER_OPTIONS_H
#define VOINET_SERVER_OPTIONS_H

#include "exchangeservice.h"
#include "faults.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace voinetserver {

inline constexpr std::uint16_t kDefaultPort = 8080;
inline constexpr const char* kDefaultAddress = "127.0.0.1";

/// The command line. Texts that may be left out are empty.
struct Options {
    std::string directory;
    /// Numeric, IPv4 or IPv6.
    std::string address = kDefaultAddress;
    /// 0 is any free one.
    std::uint16_t port = kDefaultPort;
    std::string portFile;

    /// Where the CA file is put; empty for no TLS.
    std::string tlsDirectory;
    /// TLS beside the plain port instead of on it.
    std::optional<std::uint16_t> tlsPort;

    std::string user;
    /// Read when the server starts; empty when the password came with the environment.
    std::string passwordFile;
    std::string password;

    bool ignoreRanges = false;
    StatusScripts scripts;
    CutRules cuts;
    /// Bytes per second.
    std::optional<std::uint64_t> rate;

    ExchangeSettings exchange;

    std::string accessLog;
    bool quiet = false;
};

/// The process is to end at once with this exit status; what there was to say has been said.
struct ExitNow {
    int status;
};

/// Reads the command line. Prints the help, or one sentence about what is wrong with it.
std::variant<Options, ExitNow> parseOptions(int argc, char** argv);

/// Whether only this machine can reach a numeric address.
bool isLoopback(const std::string& address);

}  // namespace voinetserver

#endif
