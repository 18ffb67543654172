#ifndef VOINET_SERVER_STOP_H
#define VOINET_SERVER_STOP_H

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>

namespace voinetserver {

/// Tells every thread that the server stops, and wakes those that wait for time to pass.
class StopEvent {
  public:
    void set();

    /// Returns true at once when the event is set, false when `time` has come without it.
    bool waitUntil(std::chrono::steady_clock::time_point time);

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool set_ = false;
};

/// The signals that ask the server to stop (SIGINT, SIGTERM). To be made before any other thread:
/// it blocks them, threads started later inherit that, and so they wait here to be fetched.
class StopSignals {
  public:
    StopSignals();

    void wait() const;

  private:
    sigset_t signals_{};
};

}  // namespace voinetserver

#endif
