#ifndef VOINET_TESTS_FAULTS_NETWORK_WATCHDOG_H
#define VOINET_TESTS_FAULTS_NETWORK_WATCHDOG_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace tessaro_com::pkm::voInet::faults {

/// Ends the process, with the name of the case, when a case does not end in time.
class Watchdog {
  public:
    explicit Watchdog(std::chrono::seconds limit);
    ~Watchdog();

    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    /// A new case begins; the one before has ended.
    void begin(const std::string& id);

  private:
    void watch();

    std::chrono::seconds m_limit;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    unsigned long m_begun = 0;
    bool m_stopped = false;
    std::string m_id;
    std::thread m_thread;
};

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_WATCHDOG_H
