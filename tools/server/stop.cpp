#include "stop.h"

namespace voinetserver {

void StopEvent::set() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        set_ = true;
    }
    changed_.notify_all();
}

bool StopEvent::waitUntil(std::chrono::steady_clock::time_point time) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_until(lock, time, [this] { return set_; });
}

StopSignals::StopSignals() {
    ::sigemptyset(&signals_);
    ::sigaddset(&signals_, SIGINT);
    ::sigaddset(&signals_, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
}

void StopSignals::wait() const {
    int signal = 0;
    ::sigwait(&signals_, &signal);
}

}  // namespace voinetserver
