#ifndef VOINET_TESTS_SCRIPTEDSERVER_H
#define VOINET_TESTS_SCRIPTEDSERVER_H

#include "deadline.h"
#include "descriptor.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace voinettest {

/// What a scripted server does with a connection that it has answered.
enum class AfterAnswer {
    close,
    /// Wait for the client to go.
    hold
};

/// A server on a free port of the loopback interface that answers every request with the same
/// bytes: for replies that a proper server would not send.
class ScriptedServer {
  public:
    /// `onHead` is called, by the server's thread, when a request's head is there and its body is
    /// not read yet.
    explicit ScriptedServer(std::string answer, AfterAnswer after = AfterAnswer::close,
                            std::function<void()> onHead = {});
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    /// Clients of a server that holds its connections must have gone.
    ~ScriptedServer();

    std::uint16_t port() const { return port_; }

    /// The requests so far, heads and bodies.
    std::vector<std::string> requests() const;

    /// Waits for the first request to be there, whole. False at the deadline.
    bool awaitRequest(Deadline deadline = Deadline::generous()) const;

  private:
    void serve();
    void answer(const Descriptor& connection);

    std::string answer_;
    AfterAnswer after_;
    std::function<void()> onHead_;
    Descriptor listener_;
    std::uint16_t port_ = 0;
    std::atomic<bool> ending_{false};
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

/// A port of the loopback interface on which nothing listens: it is bound for the object's life.
class ClosedPort {
  public:
    ClosedPort();
    std::uint16_t port() const { return port_; }

  private:
    Descriptor socket_;
    std::uint16_t port_ = 0;
};

}  // namespace voinettest

#endif
