#ifndef VOINET_TESTS_FAULTS_NETWORK_VIRTUALTIME_H
#define VOINET_TESTS_FAULTS_NETWORK_VIRTUALTIME_H

#include <chrono>
#include <cstdint>

namespace tessaro_com::pkm::voInet::faults {

/// The clock of the thread that makes transfers. It is the real one, except while a server is
/// silent on purpose: then a wait of that thread in which nothing happens is over at once, and its
/// clock is put forward by what the wait would have taken. So limits of minutes are met, by the
/// same code as ever, within milliseconds.
///
/// It stands in for poll(2), connect(2) and clock_gettime(2) of the whole program; other threads
/// see the real ones.
class VirtualTime {
  public:
    /// Makes the calling thread the one whose clock it is.
    static void adoptThisThread();

    /// For a server's thread: there is silence until the client connects to somebody or is gone.
    static void beginSilence();
    /// The same for no longer than `length`; waits for the end. False when the client left before.
    static bool keepSilence(std::chrono::seconds length);

    /// While it lives a host at this port never answers: there is silence from when the thread
    /// connects to it until it connects to another one.
    class SilentPort {
      public:
        explicit SilentPort(std::uint16_t port);
        ~SilentPort();

        SilentPort(const SilentPort&) = delete;
        SilentPort& operator=(const SilentPort&) = delete;

      private:
        std::uint16_t m_port;
    };

    /// While it lives there is a client that could wait.
    class Client {
      public:
        Client();
        ~Client();

        Client(const Client&) = delete;
        Client& operator=(const Client&) = delete;
    };

    /// Of the real clock, on any thread.
    static std::chrono::nanoseconds realNow();
};

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_VIRTUALTIME_H
