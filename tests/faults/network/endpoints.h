#ifndef VOINET_TESTS_FAULTS_NETWORK_ENDPOINTS_H
#define VOINET_TESTS_FAULTS_NETWORK_ENDPOINTS_H

#include "ftpfaults.h"
#include "httpfaults.h"
#include "scenario.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::faults {

/// Something that a host form, or the proxy, of a case names.
class Endpoint {
  public:
    virtual ~Endpoint() = default;

    /// As the library takes it.
    virtual std::wstring host() const { return L"127.0.0.1"; }
    virtual std::uint16_t port() const = 0;
    virtual std::size_t connectionCount() const { return 0; }
    /// When no client will come any more: what it could not do as it should.
    virtual std::vector<std::string> finish() { return {}; }
    /// The bodies of the POST requests so far.
    virtual std::vector<std::string> posted() const { return {}; }
};

using EndpointPtr = std::unique_ptr<Endpoint>;

/// What the server behind an endpoint has, and what is wrong with it.
struct ServerPlan {
    std::string file;
    Phase phase = everyAnswer;
    std::uint32_t place = 0;
    /// "host:port" of a server that is well, to be redirected to.
    std::string otherServer = {};
    /// Its FTP sessions are bad from the first on; else that one is a logon.
    bool spoilsLogon = false;
};

/// Whether the answer with this number, from 0, is a bad one.
bool isBad(Phase phase, std::size_t number);

EndpointPtr makeHttpEndpoint(const HttpFault& fault, const ServerPlan& plan);
EndpointPtr makeFtpEndpoint(const FtpFault& fault, const ServerPlan& plan);

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_ENDPOINTS_H
