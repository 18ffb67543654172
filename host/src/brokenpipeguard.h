#ifndef KVECOMN_BROKENPIPEGUARD_H
#define KVECOMN_BROKENPIPEGUARD_H

#include <csignal>

namespace kvecomn {

/// While it lives, a write of its thread to a pipe that nobody reads is an error (EPIPE) and no
/// SIGPIPE: a library must not end the process of its host, nor change the process's own handling.
class BrokenPipeGuard {
  public:
    BrokenPipeGuard() noexcept;
    ~BrokenPipeGuard();

    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

  private:
    sigset_t m_oldMask{};
    bool m_wasPending = false;
};

}  // namespace kvecomn

#endif  // KVECOMN_BROKENPIPEGUARD_H
