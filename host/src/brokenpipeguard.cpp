#include "brokenpipeguard.h"

#include <cerrno>
#include <ctime>

namespace kvecomn {

namespace {

sigset_t brokenPipeSet() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

bool isBrokenPipePending() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 1;
}

/// Takes a waiting SIGPIPE off the thread; returns at once when none waits.
void consumeBrokenPipe() {
    const sigset_t set = brokenPipeSet();
    const timespec atOnce{};
    while (sigtimedwait(&set, nullptr, &atOnce) == -1 && errno == EINTR) {
    }
}

}  // namespace

BrokenPipeGuard::BrokenPipeGuard() noexcept {
    // One that waits already is somebody else's and must stay.
    m_wasPending = isBrokenPipePending();
    const sigset_t set = brokenPipeSet();
    pthread_sigmask(SIG_BLOCK, &set, &m_oldMask);
}

BrokenPipeGuard::~BrokenPipeGuard() {
    const int savedError = errno;
    if (!m_wasPending) {
        consumeBrokenPipe();
    }
    pthread_sigmask(SIG_SETMASK, &m_oldMask, nullptr);
    errno = savedError;
}

}  // namespace kvecomn
