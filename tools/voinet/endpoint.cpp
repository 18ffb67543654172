#include "endpoint.h"

#include "commanderror.h"
#include "texts.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>

namespace voinet_command {

namespace {

constexpr int kMaxPort = 65535;
// Names are limited to 253 characters; an address with a scope may add an interface name.
constexpr std::size_t kMaxHostLength = 300;

CommandError badEndpoint(const std::string& option, const std::string& reason) {
    return {ExitStatus::usage, fmt::format("{}: {}", option, reason),
            "write HOST, HOST:PORT, or [IPV6]:PORT"};
}

int parsePort(const std::string& text, const std::string& option) {
    int port = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end || port < 1 || port > kMaxPort) {
        throw badEndpoint(option, fmt::format("a port is a number from 1 to {}", kMaxPort));
    }
    return port;
}

void checkHost(const std::string& host, const std::string& option) {
    if (host.empty()) {
        throw badEndpoint(option, "the host is missing");
    }
    if (host.size() > kMaxHostLength) {
        throw badEndpoint(option, "the host is too long");
    }
    // Any of these would make another URL of it.
    if (hasBlank(host) || host.find_first_of("/\\@?#[]") != std::string::npos) {
        throw badEndpoint(option, "a host has no blanks and none of / \\ @ ? # [ ]");
    }
    if (!isUtf8(host) || withoutControls(host) != host) {
        throw badEndpoint(option, "the host is no text in UTF-8");
    }
}

Endpoint splitEndpoint(const std::string& text, int defaultPort, const std::string& option) {
    if (!text.empty() && text.front() == '[') {
        const auto close = text.find(']');
        if (close == std::string::npos) {
            throw badEndpoint(option, "the closing bracket is missing");
        }
        const std::string rest = text.substr(close + 1);
        if (!rest.empty() && rest.front() != ':') {
            throw badEndpoint(option, "only :PORT may follow the closing bracket");
        }
        return {text.substr(1, close - 1),
                rest.empty() ? defaultPort : parsePort(rest.substr(1), option)};
    }
    const auto colons = std::count(text.begin(), text.end(), ':');
    if (colons != 1) {
        return {text, defaultPort};
    }
    const auto colon = text.find(':');
    return {text.substr(0, colon), parsePort(text.substr(colon + 1), option)};
}

bool isNumericAddress(const std::string& host) {
    const std::string address = host.substr(0, host.find('%'));
    in6_addr buffer{};
    return inet_pton(AF_INET, address.c_str(), &buffer) == 1 ||
           inet_pton(AF_INET6, address.c_str(), &buffer) == 1;
}

}  // namespace

const char* hostFormText(HostForm form) {
    switch (form) {
        case HostForm::ip:
            return "IP address";
        case HostForm::fqdn:
            return "full name";
        case HostForm::netbios:
            break;
    }
    return "NetBIOS name";
}

const char* hostFormName(HostForm form) {
    switch (form) {
        case HostForm::ip:
            return "ip";
        case HostForm::fqdn:
            return "fqdn";
        case HostForm::netbios:
            break;
    }
    return "netbios";
}

Endpoint parseEndpoint(const std::string& text, int defaultPort, const std::string& option) {
    Endpoint endpoint = splitEndpoint(text, defaultPort, option);
    checkHost(endpoint.host, option);
    if (endpoint.host.find(':') != std::string::npos && !isNumericAddress(endpoint.host)) {
        throw badEndpoint(option, "more than one colon, and no IPv6 address");
    }
    if (endpoint.port == 0) {
        throw badEndpoint(option, "the port is missing");
    }
    return endpoint;
}

HostForm hostFormOf(const std::string& host) {
    if (isNumericAddress(host)) {
        return HostForm::ip;
    }
    return host.find('.') == std::string::npos ? HostForm::netbios : HostForm::fqdn;
}

std::string bracketed(const std::string& host) {
    return host.find(':') == std::string::npos ? host : "[" + host + "]";
}

}  // namespace voinet_command
