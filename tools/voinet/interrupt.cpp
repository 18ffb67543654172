#include "interrupt.h"

#include "commanderror.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace voinet_command {

namespace {

volatile std::sig_atomic_t stopRequested = 0;
// Of a pipe; signal handlers can write to it, so that it wakes who waits.
std::array<int, 2> stopPipe = {-1, -1};

extern "C" void requestStop(int) {
    const int interruptedError = errno;
    stopRequested = 1;
    static_cast<void>(!::write(stopPipe[1], "", 1));
    errno = interruptedError;
}

}  // namespace

void installInterruptHandlers() {
    if (::pipe2(stopPipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
    }
    struct sigaction action = {};
    action.sa_handler = requestStop;
    // No SA_RESTART: a read from the terminal has to end.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

int interruptDescriptor() {
    return stopPipe[0];
}

bool interrupted() {
    return stopRequested != 0;
}

void throwIfInterrupted() {
    if (interrupted()) {
        throw CommandError(ExitStatus::cancelled, "stopped");
    }
}

}  // namespace voinet_command
