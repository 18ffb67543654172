#ifndef VOINET_TESTS_RUNNINGSERVER_H
#define VOINET_TESTS_RUNNINGSERVER_H

#include "descriptor.h"
#include "process.h"

#include <cstdint>
#include <string>
#include <vector>

namespace voinettest {

constexpr const char* kLoopbackIpv4 = "127.0.0.1";
constexpr const char* kLoopbackIpv6 = "::1";

/// A port of the loopback interface that is free and that nobody else is given while this object
/// lives: its socket is bound and does not listen, and a server that allows its address to be used
/// again, as all of them do, can listen on the same port.
class ReservedPort {
  public:
    explicit ReservedPort(const std::string& address = kLoopbackIpv4);

    const std::string& address() const { return address_; }
    std::uint16_t number() const { return number_; }
    std::string text() const { return std::to_string(number_); }

  private:
    std::string address_;
    Descriptor socket_;
    std::uint16_t number_ = 0;
};

/// An installed server from its start, which ends when it accepts connections, to its end, which
/// comes with this object. It ends as well when the test's process is killed.
class RunningServer {
  public:
    /// Starts the program as the given user (an empty name: as the user of the test). Throws
    /// std::runtime_error that tells what the server printed when it does not start.
    RunningServer(const std::vector<std::string>& words, const std::vector<ReservedPort>& ports,
                  const std::string& user = {});
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;
    ~RunningServer();

  private:
    void awaitConnections(const ReservedPort& port, Deadline deadline);

    std::string name_;
    Process process_;
};

bool isRoot();

}  // namespace voinettest

#endif
