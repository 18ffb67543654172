#ifndef VOINET_TESTS_WIRE_SUPPORT_EVENT_H
#define VOINET_TESTS_WIRE_SUPPORT_EVENT_H

#include "support/descriptor.h"

#include <chrono>

namespace tessaro_com::pkm::voInet::wire {

/// How long a test waits for anything that is due. Only a broken test ever waits that long: it
/// then ends red instead of hanging. Generous, because emulated and sanitized programs are slow.
inline constexpr std::chrono::milliseconds kPatience{20'000};

/// A point in time after which waiting is a failure.
class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds patience = kPatience);

    /// As poll(2) takes it: 0 when the time is over.
    int remainingMilliseconds() const;

  private:
    std::chrono::steady_clock::time_point m_end;
};

/// Something that happens once, in one thread, for others to wait for. It is a descriptor, so that
/// it can be waited for together with sockets.
class Event {
  public:
    Event();

    void set();
    bool isSet() const { return await(Deadline(std::chrono::milliseconds(0))); }

    /// False when it did not happen in time.
    bool await(const Deadline& deadline = Deadline()) const;

    /// Readable once the event has happened.
    int descriptor() const { return m_descriptor.get(); }

  private:
    Descriptor m_descriptor;
};

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_EVENT_H
