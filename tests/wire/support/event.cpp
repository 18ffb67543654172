#include "support/event.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace tessaro_com::pkm::voInet::wire {

Deadline::Deadline(std::chrono::milliseconds patience)
    : m_end(std::chrono::steady_clock::now() + patience) {}

int Deadline::remainingMilliseconds() const {
    const auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(
        m_end - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(remaining.count(), 0));
}

Event::Event() : m_descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!m_descriptor) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

void Event::set() {
    // Fails only when the counter is at its limit; the event has happened then.
    static_cast<void>(::eventfd_write(m_descriptor.get(), 1));
}

bool Event::await(const Deadline& deadline) const {
    pollfd waited{m_descriptor.get(), POLLIN, 0};
    int ready = 0;
    do {
        ready = ::poll(&waited, 1, deadline.remainingMilliseconds());
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

}  // namespace tessaro_com::pkm::voInet::wire
