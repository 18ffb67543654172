#include "exchangewatch.h"

#include "interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace voinet_command {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kNoTimeout = -1;

UniqueFd makeEvent() {
    UniqueFd event(::eventfd(0, EFD_CLOEXEC));
    if (!event) {
        throw std::system_error(errno, std::generic_category(), "cannot make an event");
    }
    return event;
}

}  // namespace

ExchangeWatch::ExchangeWatch(Tick tick, Stop stop, std::chrono::milliseconds interval)
    : m_tick(std::move(tick)),
      m_stop(std::move(stop)),
      m_interval(interval),
      m_over(makeEvent()),
      m_thread([this] { Run(); }) {}

ExchangeWatch::~ExchangeWatch() {
    const std::uint64_t one = 1;
    static_cast<void>(!::write(m_over.Get(), &one, sizeof one));
    m_thread.join();
}

void ExchangeWatch::Run() const {
    const auto start = Clock::now();
    const int timeout = m_tick ? static_cast<int>(m_interval.count()) : kNoTimeout;
    while (true) {
        std::array<pollfd, 2> events = {
            {{m_over.Get(), POLLIN, 0}, {interruptDescriptor(), POLLIN, 0}}};
        const int ready = ::poll(events.data(), events.size(), timeout);
        if (ready > 0 && events[0].revents != 0) {
            return;
        }
        if (ready > 0) {
            m_stop();
            return;
        }
        if (ready == 0) {
            m_tick(std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start));
        }
    }
}

}  // namespace voinet_command
