#ifndef VOINET_COMMAND_ENDPOINT_H
#define VOINET_COMMAND_ENDPOINT_H

#include <string>

namespace voinet_command {

/// The forms in which the server's host can be named, in the order in which the library tries them.
enum class HostForm { ip, fqdn, netbios };

/// "IP address", "full name", "NetBIOS name".
const char* hostFormText(HostForm form);
/// "ip", "fqdn", "netbios", as in the options and in JSON.
const char* hostFormName(HostForm form);

/// A host and a port. An IPv6 address stands without brackets.
struct Endpoint {
    std::string host;
    int port = 0;
};

/// Takes "HOST", "HOST:PORT", "[IPV6]", "[IPV6]:PORT" or a bare IPv6 address apart. Throws
/// CommandError (usage) for anything else; `option` names the value's origin. A `defaultPort` of 0
/// makes the port obligatory.
Endpoint parseEndpoint(const std::string& text, int defaultPort, const std::string& option);

/// The form that fits a host: a numeric address, a name with a dot, any other name.
HostForm hostFormOf(const std::string& host);

/// The host as it stands in front of ":port": an IPv6 address in brackets.
std::string bracketed(const std::string& host);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_ENDPOINT_H
