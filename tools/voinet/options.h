#ifndef VOINET_COMMAND_OPTIONS_H
#define VOINET_COMMAND_OPTIONS_H

#include "endpoint.h"
#include "kvecomn/hostlog.h"
#include "voinet/voinetprotocol.h"

#include <optional>
#include <string>

namespace voinet_command {

/// Where a secret comes from. At most one member is set; none means that there is no such secret.
struct SecretSource {
    std::string file;
    std::string environment;
    bool ask = false;

    bool Given() const { return ask || !file.empty() || !environment.empty(); }
};

/// The server and the way to it, as typed.
struct ConnectionOptions {
    tessaro_com::pkm::voInet::voInetProtocol protocol =
        tessaro_com::pkm::voInet::voInetProtocolHttp;
    std::string host;
    /// The form that `host` stands for; unset: the one that fits it.
    std::optional<HostForm> hostForm;
    std::string hostIp;
    std::string hostFqdn;
    std::string hostNetbios;
    std::string site = "default";
    std::string repository;
    std::string user;
    SecretSource password;
    std::string proxy;
    std::string proxyUser;
    SecretSource proxyPassword;
    std::string altProxyUser;
    SecretSource altProxyPassword;
    std::string bypass;
    bool bypassLocal = false;
    std::string caFile;
    std::string userAgent;
    SecretSource updateToken;
    bool ssl = false;
    /// 0 when not given.
    int sslPort = 0;
};

/// What the command prints, and where to.
struct OutputOptions {
    bool quiet = false;
    bool json = false;
    HostLogLevel logLevel = HostLogLevel::error;
    std::string logFile;
};

struct GetOptions {
    std::string remote;
    std::string local;
    bool noCache = false;
    bool resume = false;
    /// Empty when there is nothing to compare with.
    std::string sha256;
};

struct PostOptions {
    std::string request;
    std::string serverPath;
    std::string response;
};

struct ProbeOptions {
    /// Seconds.
    std::optional<unsigned int> timeout;
};

enum class Subcommand { get, post, probe, errors };

struct Options {
    Subcommand subcommand = Subcommand::errors;
    ConnectionOptions connection;
    OutputOptions output;
    GetOptions get;
    PostOptions post;
    ProbeOptions probe;
};

}  // namespace voinet_command

#endif  // VOINET_COMMAND_OPTIONS_H
