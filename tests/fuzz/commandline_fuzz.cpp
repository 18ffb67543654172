// The command's arguments: one per line of an input.

#include "commanderror.h"
#include "commandline.h"
#include "digest.h"
#include "endpoint.h"
#include "support/fuzztarget.h"
#include "support/input.h"
#include "texts.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

namespace voinet_fuzz {

namespace {

using namespace voinet_command;

bool contains(const std::vector<std::string>& arguments, const std::string& what) {
    return std::find(arguments.begin(), arguments.end(), what) != arguments.end();
}

/// A value that the options hold was typed, on its own or behind "=".
void requireTyped(const std::vector<std::string>& arguments, const std::string& value) {
    require(std::any_of(arguments.begin(), arguments.end(),
                        [&value](const std::string& argument) {
                            return argument.size() >= value.size() &&
                                   argument.compare(argument.size() - value.size(), value.size(),
                                                    value) == 0;
                        }),
            "every value comes from the arguments", value);
}

void checkSource(const SecretSource& source) {
    const int sources =
        (source.file.empty() ? 0 : 1) + (source.environment.empty() ? 0 : 1) + (source.ask ? 1 : 0);
    require(sources <= 1, "a secret has one source");
    require(source.Given() == (sources == 1), "a source is given or not");
}

void checkConnection(const ConnectionOptions& connection,
                     const std::vector<std::string>& arguments) {
    for (const std::string& text :
         {connection.host, connection.hostIp, connection.hostFqdn, connection.hostNetbios,
          connection.repository, connection.user, connection.proxy, connection.proxyUser,
          connection.altProxyUser, connection.bypass, connection.caFile, connection.userAgent}) {
        requireTyped(arguments, text);
    }
    for (const SecretSource& source : {connection.password, connection.proxyPassword,
                                       connection.altProxyPassword, connection.updateToken}) {
        checkSource(source);
    }
    require(connection.host.empty() ||
                (connection.hostIp + connection.hostFqdn + connection.hostNetbios).empty(),
            "--host excludes the single forms");
    require(!connection.ssl || connection.sslPort > 0, "--ssl needs a port");
    require(connection.sslPort >= 0 && connection.sslPort <= 65535, "the TLS port is a port");
    require(!connection.password.Given() || !connection.user.empty(), "a password has its user");
    require(!connection.proxyPassword.Given() || !connection.proxyUser.empty(),
            "a proxy password has its user");
    require(!connection.proxy.empty() ||
                (connection.proxyUser + connection.altProxyUser + connection.bypass).empty(),
            "what belongs to a proxy has one");
    require(!connection.site.empty(), "there is a site");
}

void checkOptions(const Options& options, const std::vector<std::string>& arguments) {
    checkConnection(options.connection, arguments);
    require(!(options.output.quiet && options.output.json), "--json excludes --quiet");
    require(options.get.sha256.empty() || isSha256(options.get.sha256), "a digest is one");
    switch (options.subcommand) {
        case Subcommand::get:
            require(contains(arguments, "get"), "the subcommand was named");
            break;
        case Subcommand::post:
            require(contains(arguments, "post"), "the subcommand was named");
            break;
        case Subcommand::probe:
            require(contains(arguments, "probe"), "the subcommand was named");
            require(!options.probe.timeout ||
                        (*options.probe.timeout >= 1 && *options.probe.timeout <= 2147483),
                    "a time-out is what the library takes");
            break;
        case Subcommand::errors:
            require(contains(arguments, "errors"), "the subcommand was named");
            break;
    }
}

/// What must not come back in a message: the value of an option that would be a password.
void checkMessage(const CommandError& error, const std::vector<std::string>& arguments) {
    const std::string message = error.what() + error.Hint();
    require(!message.empty(), "an error says something");
    require(error.Status() == ExitStatus::usage, "wrong arguments are wrong usage");
    for (const std::string option :
         {"--password=", "--proxy-password=", "--alt-proxy-password=", "--update-token="}) {
        for (const std::string& argument : arguments) {
            if (argument.rfind(option, 0) != 0) {
                continue;
            }
            const std::string value = argument.substr(option.size());
            // A short value, or one that other arguments hold too, stands in every message.
            const bool isTelling =
                value.size() >= 8 && value.find_first_of("- ") == std::string::npos &&
                std::count_if(arguments.begin(), arguments.end(), [&value](const auto& each) {
                    return each.find(value) != std::string::npos;
                }) == 1;
            require(!isTelling || message.find(value) == std::string::npos,
                    "no message shows a password", message);
        }
    }
}

/// Host and port come apart, and together again.
void checkEndpoint(const std::string& text) {
    constexpr int kDefaultPort = 80;
    try {
        const Endpoint endpoint = parseEndpoint(text, kDefaultPort, "--host");
        require(endpoint.port >= 1 && endpoint.port <= 65535, "a port is one");
        require(!endpoint.host.empty() &&
                    endpoint.host.find_first_of("/\\@?#[] \t\n\r") == std::string::npos,
                "a host can stand in a URL", endpoint.host);
        require(isUtf8(endpoint.host), "a host is text");
        const std::string joined = bracketed(endpoint.host) + ":" + std::to_string(endpoint.port);
        const Endpoint again = parseEndpoint(joined, 1, "--host");
        require(again.host == endpoint.host && again.port == endpoint.port, "both ways", joined);
        require(hostFormOf(endpoint.host) == hostFormOf(again.host), "a host keeps its form");
        require(joinHostPort(endpoint.host, endpoint.port) == joined, "as it is shown");
    } catch (const CommandError& error) {
        require(error.Status() == ExitStatus::usage, "a wrong host is wrong usage");
    }
}

}  // namespace

void tryInput(const std::string& bytes) {
    std::vector<std::string> arguments = split(bytes, '\n');
    for (std::string& argument : arguments) {
        // As a process gets them.
        argument = upToZero(argument);
        checkEndpoint(argument);
    }
    Options options;
    try {
        if (const auto text = parseCommandLine(arguments, options)) {
            require(!text->empty(), "help has a text");
            return;
        }
        checkOptions(options, arguments);
    } catch (const CommandError& error) {
        checkMessage(error, arguments);
    }
}

}  // namespace voinet_fuzz
