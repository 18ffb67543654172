#include "watchdog.h"

#include <cstdio>
#include <cstdlib>

namespace tessaro_com::pkm::voInet::faults {

Watchdog::Watchdog(std::chrono::seconds limit) : m_limit(limit) {
    m_id.reserve(256);  // so that it takes no memory while a case's is counted
    m_thread = std::thread([this] { watch(); });
}

Watchdog::~Watchdog() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopped = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void Watchdog::begin(const std::string& id) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_id = id;
    ++m_begun;
    m_changed.notify_all();
}

void Watchdog::watch() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopped) {
        const unsigned long before = m_begun;
        const bool goesOn =
            m_changed.wait_for(lock, m_limit, [&] { return m_stopped || m_begun != before; });
        if (!goesOn && m_begun > 0) {
            std::printf("FAILED %s: not over after %lld s\n", m_id.c_str(),
                        static_cast<long long>(m_limit.count()));
            std::fflush(stdout);
            std::_Exit(EXIT_FAILURE);
        }
    }
}

}  // namespace tessaro_com::pkm::voInet::faults
