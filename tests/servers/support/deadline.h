#ifndef VOINET_TESTS_DEADLINE_H
#define VOINET_TESTS_DEADLINE_H

#include <algorithm>
#include <chrono>

namespace voinettest {

/// A moment at which waiting for an event is given up. Tests never wait for time to pass: a
/// deadline is only reached when something is broken, so it is generous (emulators are slow).
class Deadline {
  public:
    static Deadline in(std::chrono::milliseconds patience) { return Deadline(patience); }
    static Deadline generous() { return in(std::chrono::seconds(60)); }

    /// What is left, as poll() takes it; 0 when the deadline has passed.
    int remainingMilliseconds() const {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end_ - std::chrono::steady_clock::now());
        return static_cast<int>(std::clamp<long long>(left.count(), 0, kLongestPoll));
    }

  private:
    static constexpr long long kLongestPoll = 3'600'000;

    explicit Deadline(std::chrono::milliseconds patience)
        : end_(std::chrono::steady_clock::now() + patience) {}

    std::chrono::steady_clock::time_point end_;
};

}  // namespace voinettest

#endif
