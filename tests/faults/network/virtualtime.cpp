#include "virtualtime.h"

#include "support/event.h"

#include <dlfcn.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <limits>
#include <mutex>
#include <set>

namespace tessaro_com::pkm::voInet::faults {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

/// What was sent before a silence is at the other end of the loopback interface when so many waits
/// of a millisecond are over; the others need not wait at all.
constexpr int kRealWaits = 5;

/// Of a wait without an end.
constexpr milliseconds kEndlessWait{1000};

constexpr milliseconds kUnlimited{std::numeric_limits<int>::max()};

thread_local bool isVirtual = false;
/// Belongs to the virtual thread alone.
nanoseconds::rep putForward = 0;

struct Silence {
    std::mutex mutex;
    std::condition_variable changed;
    /// Counts the silences, so that one is not taken for another.
    unsigned long number = 0;
    milliseconds left{0};
    int realWaits = 0;
    bool hasClient = false;
    std::set<std::uint16_t> silentPorts;

    void begin(milliseconds length) {
        ++number;
        left = length;
        realWaits = kRealWaits;
        changed.notify_all();
    }

    void end() { begin(milliseconds(0)); }
};

Silence& silence() {
    static Silence instance;
    return instance;
}

bool isSilent() {
    const std::lock_guard<std::mutex> lock(silence().mutex);
    return silence().left > milliseconds(0);
}

void skip(milliseconds wait) {
    const std::lock_guard<std::mutex> lock(silence().mutex);
    wait = std::min(wait, silence().left);
    putForward += nanoseconds(wait).count();
    silence().left -= wait;
    silence().changed.notify_all();
}

template <class Function>
Function real(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

int realPoll(pollfd* descriptors, nfds_t count, int timeout) {
    static const auto kFunction = real<int (*)(pollfd*, nfds_t, int)>("poll");
    return kFunction(descriptors, count, timeout);
}

int realClock(clockid_t clock, timespec* now) {
    static const auto kFunction = real<int (*)(clockid_t, timespec*)>("clock_gettime");
    return kFunction(clock, now);
}

int realConnect(int socket, const sockaddr* address, socklen_t size) {
    static const auto kFunction = real<int (*)(int, const sockaddr*, socklen_t)>("connect");
    return kFunction(socket, address, size);
}

/// 0 for anything but an internet address.
std::uint16_t portOf(const sockaddr* address) {
    if (address->sa_family != AF_INET && address->sa_family != AF_INET6) {
        return 0;
    }
    // The port stands at the same place in both kinds.
    sockaddr_in internet{};
    std::memcpy(&internet, address, sizeof internet);
    return ntohs(internet.sin_port);
}

/// Whoever the client was connected to before can be silent no longer.
void noteConnection(std::uint16_t port) {
    const std::lock_guard<std::mutex> lock(silence().mutex);
    silence().begin(silence().silentPorts.count(port) > 0 ? kUnlimited : milliseconds(0));
}

nanoseconds durationOf(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

/// Whether a wait of a silence still takes real time.
bool takeRealWait() {
    const std::lock_guard<std::mutex> lock(silence().mutex);
    return silence().realWaits-- > 0;
}

int pollVirtually(pollfd* descriptors, nfds_t count, int timeout) {
    const int ready = realPoll(descriptors, count, takeRealWait() ? 1 : 0);
    if (ready == 0) {
        skip(timeout < 0 ? kEndlessWait : milliseconds(timeout));
    }
    return ready;
}

/// Waits in slices, since a silence may begin at any moment.
int pollOfVirtualThread(pollfd* descriptors, nfds_t count, int timeout) {
    constexpr int kSlice = 5;
    while (timeout < 0 || timeout > kSlice) {
        if (isSilent()) {
            return pollVirtually(descriptors, count, timeout);
        }
        const int ready = realPoll(descriptors, count, kSlice);
        if (ready != 0) {
            return ready;
        }
        timeout -= timeout < 0 ? 0 : kSlice;
    }
    return realPoll(descriptors, count, timeout);
}

void putForwardTo(timespec& time) {
    const nanoseconds now = durationOf(time) + nanoseconds(putForward);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now);
    time.tv_sec = static_cast<time_t>(seconds.count());
    time.tv_nsec = static_cast<long>((now - seconds).count());
}

}  // namespace

void VirtualTime::adoptThisThread() {
    isVirtual = true;
}

void VirtualTime::beginSilence() {
    const std::lock_guard<std::mutex> lock(silence().mutex);
    silence().begin(silence().hasClient ? kUnlimited : milliseconds(0));
}

bool VirtualTime::keepSilence(std::chrono::seconds length) {
    std::unique_lock<std::mutex> lock(silence().mutex);
    if (!silence().hasClient) {
        return false;
    }
    silence().begin(length);
    const unsigned long number = silence().number;
    silence().changed.wait_for(lock, wire::kPatience, [number] {
        return silence().number != number || silence().left == milliseconds(0);
    });
    return silence().number == number && silence().left == milliseconds(0);
}

VirtualTime::SilentPort::SilentPort(std::uint16_t port) : m_port(port) {
    const std::lock_guard<std::mutex> lock(silence().mutex);
    silence().silentPorts.insert(port);
}

VirtualTime::SilentPort::~SilentPort() {
    const std::lock_guard<std::mutex> lock(silence().mutex);
    silence().silentPorts.erase(m_port);
    silence().end();
}

VirtualTime::Client::Client() {
    const std::lock_guard<std::mutex> lock(silence().mutex);
    silence().hasClient = true;
}

VirtualTime::Client::~Client() {
    const std::lock_guard<std::mutex> lock(silence().mutex);
    silence().hasClient = false;
    silence().end();
}

nanoseconds VirtualTime::realNow() {
    timespec now{};
    realClock(CLOCK_MONOTONIC, &now);
    return durationOf(now);
}

}  // namespace tessaro_com::pkm::voInet::faults

// In place of the C library's for the whole program; see VirtualTime.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): reserved names there

extern "C" int poll(pollfd* descriptors, nfds_t count, int timeout) {
    namespace faults = tessaro_com::pkm::voInet::faults;
    return faults::isVirtual ? faults::pollOfVirtualThread(descriptors, count, timeout)
                             : faults::realPoll(descriptors, count, timeout);
}

extern "C" int connect(int socket, const sockaddr* address, socklen_t size) {
    namespace faults = tessaro_com::pkm::voInet::faults;
    if (faults::isVirtual) {
        faults::noteConnection(faults::portOf(address));
    }
    return faults::realConnect(socket, address, size);
}

extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
    namespace faults = tessaro_com::pkm::voInet::faults;
    const int result = faults::realClock(clock, now);
    if (result == 0 && faults::isVirtual) {
        faults::putForwardTo(*now);
    }
    return result;
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
