#ifndef VOINET_TESTS_NGINXSERVER_H
#define VOINET_TESTS_NGINXSERVER_H

#include "runningserver.h"
#include "serverdirectory.h"

#include <cstddef>
#include <string>
#include <vector>

namespace voinettest {

/// nginx as a repository and as the management server, with and without TLS.
class NginxServer {
  public:
    static constexpr const char* kUser = "reader";
    static constexpr const char* kPassword = "sec:ret";

    NginxServer();

    const ReservedPort& port() const { return ports_[0]; }
    const ReservedPort& portIpv6() const { return ports_[1]; }
    const ReservedPort& portTls() const { return ports_[2]; }
    /// These speak one version of TLS only, and answer every request with its name.
    const ReservedPort& portTls12() const { return ports_[3]; }
    const ReservedPort& portTls13() const { return ports_[4]; }

    /// The authority that the server's certificate comes from, and one that it does not come from.
    std::string authorityFile() const { return directory_.path("authority.pem"); }
    std::string otherAuthorityFile() const { return directory_.path("other-authority.pem"); }

    const ServerDirectory& directory() const { return directory_; }

    /// The request bodies that were stored since the last call.
    std::vector<std::string> takeBodies() const;

    /// Waits until nginx has logged `count` requests of these words and returns their statuses.
    std::vector<int> statusesOf(const std::string& request, std::size_t count) const;

  private:
    ServerDirectory directory_;
    std::vector<ReservedPort> ports_;
    RunningServer server_;
};

}  // namespace voinettest

#endif
