#ifndef VOINET_TESTS_SQUIDPROXY_H
#define VOINET_TESTS_SQUIDPROXY_H

#include "runningserver.h"
#include "serverdirectory.h"

#include <string>
#include <vector>

namespace voinettest {

/// squid as a proxy that caches nothing.
class SquidProxy {
  public:
    /// The users of the port that asks for credentials.
    static constexpr const char* kUser = "branch";
    static constexpr const char* kPassword = "first";
    static constexpr const char* kAlternateUser = "visitor";
    static constexpr const char* kAlternatePassword = "second";

    SquidProxy();

    /// Serves everybody.
    const ReservedPort& port() const { return ports_[0]; }
    /// Asks for credentials.
    const ReservedPort& portAuthenticated() const { return ports_[1]; }

    /// What the proxy has logged up to now. Sends a request of its own, so that nothing that was
    /// asked before is missing.
    std::string accessLog() const;

  private:
    ServerDirectory directory_;
    std::vector<ReservedPort> ports_;
    RunningServer server_;
    mutable int ownRequests_ = 0;
};

}  // namespace voinettest

#endif
