// The development server: serves a directory over HTTP, plays the management server, and misbehaves
// on request.

#include "accesslog.h"
#include "credentials.h"
#include "endpoint.h"
#include "exchangeservice.h"
#include "options.h"
#include "portfile.h"
#include "reply.h"
#include "repository.h"
#include "repositoryservice.h"
#include "starterror.h"
#include "stop.h"
#include "tlsidentity.h"

#include <chrono>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace voinetserver {
namespace {

constexpr std::chrono::milliseconds kPatienceAtStop{500};

std::optional<Credentials> credentialsFrom(const Options& options) {
    if (options.user.empty()) {
        return std::nullopt;
    }
    const bool hasFile = !options.passwordFile.empty();
    return Credentials(options.user,
                       hasFile ? readPassword(options.passwordFile) : options.password);
}

void warnUnlessLoopback(const Options& options) {
    if (!isLoopback(options.address)) {
        std::cerr << "voinet-server: warning: " << options.address
                  << " is no loopback address; other machines may reach this server, which is not "
                     "made for that\n";
    }
}

std::unique_ptr<TlsIdentity> makeIdentity(const Options& options) {
    return options.tlsDirectory.empty() ? nullptr : std::make_unique<TlsIdentity>(options.address);
}

// The first listens on the port of --port, the second, if any, on the one of --tls-port.
using Endpoints = std::vector<std::unique_ptr<Endpoint>>;

void announce(const Options& options, const Endpoints& endpoints) {
    if (options.quiet) {
        return;
    }
    for (const auto& endpoint : endpoints) {
        std::cout << "voinet-server: listening on " << endpoint->url()
                  << " (for development, not for production)" << std::endl;
    }
}

Endpoints makeEndpoints(const Options& options, const TlsIdentity* identity) {
    Endpoints endpoints;
    endpoints.push_back(std::make_unique<Endpoint>(options.tlsPort ? nullptr : identity));
    if (options.tlsPort) {
        endpoints.push_back(std::make_unique<Endpoint>(identity));
    }
    return endpoints;
}

std::vector<int> listen(const Options& options, const Endpoints& endpoints) {
    std::vector<int> ports;
    for (const auto& endpoint : endpoints) {
        endpoint->listen(options.address, ports.empty() ? options.port : options.tlsPort.value());
        ports.push_back(endpoint->port());
    }
    return ports;
}

bool stop(const Endpoints& endpoints) {
    const auto deadline = std::chrono::steady_clock::now() + kPatienceAtStop;
    const auto left = [deadline] {
        const auto time = deadline - std::chrono::steady_clock::now();
        return std::chrono::ceil<std::chrono::milliseconds>(time);
    };
    bool ended = true;
    for (const auto& endpoint : endpoints) {
        ended = endpoint->stop(left()) && ended;
    }
    return ended;
}

void serve(const Options& options) {
    const StopSignals signals;
    StopEvent stopping;
    AccessLog log(options.accessLog);
    const Repository repository(options.directory);
    const ReplySender sender(log, stopping, options.cuts, options.rate);
    RepositoryService files(
        repository, sender,
        RepositorySettings{credentialsFrom(options), options.ignoreRanges, options.scripts});
    ExchangeService exchange(sender, options.exchange);
    const auto identity = makeIdentity(options);
    const Endpoints endpoints = makeEndpoints(options, identity.get());
    for (const auto& endpoint : endpoints) {
        if (!options.exchange.path.empty()) {
            exchange.install(endpoint->server());
        }
        files.install(endpoint->server());
    }

    warnUnlessLoopback(options);
    const std::vector<int> ports = listen(options, endpoints);
    if (identity != nullptr) {
        // Not before the port is this server's: another one may be using the file.
        identity->writeAuthority(options.tlsDirectory);
    }
    auto portFile = std::make_unique<PortFile>(options.portFile, ports);
    announce(options, endpoints);

    signals.wait();
    stopping.set();
    if (!stop(endpoints)) {
        // What is left are connections that idle and clients that do not read. httplib would wait
        // until their time is over, and neither is worth it.
        portFile.reset();
        std::_Exit(EXIT_SUCCESS);
    }
}

}  // namespace
}  // namespace voinetserver

int main(int argc, char** argv) {
    const auto parsed = voinetserver::parseOptions(argc, argv);
    if (const auto* exit = std::get_if<voinetserver::ExitNow>(&parsed)) {
        return exit->status;
    }
    try {
        voinetserver::serve(std::get<voinetserver::Options>(parsed));
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::cerr << "voinet-server: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
