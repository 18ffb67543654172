#include "gauge.h"

#include "allocations.h"
#include "support/leakguard.h"

#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
// Of every sanitizer's run-time library; its header does not come with every compiler.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#else
#include <malloc.h>
#endif

namespace tessaro_com::pkm::voInet::load {

namespace {

namespace fs = std::filesystem;

constexpr long kHeapSlack = 32L << 10;
// A sanitizer keeps what was given back for a while.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kResidentSlack = 512L << 20;
#else
constexpr long kResidentSlack = 2L << 20;
#endif

/// Begins the names of the files that the host library makes beside the ones it replaces.
std::string siblingMark() {
    const auto process = static_cast<std::uint32_t>(::getpid());
    constexpr char kDigits[] = "0123456789abcdef";
    std::string mark = ".kvecomn-";
    const auto* bytes = reinterpret_cast<const unsigned char*>(&process);
    for (std::size_t i = 0; i < sizeof process; ++i) {
        mark += {kDigits[bytes[i] >> 4U], kDigits[bytes[i] & 0xfU]};
    }
    return mark;
}

long countEntries(const std::string& directory, const std::string& begin = {}) {
    long count = 0;
    // Other processes remove entries meanwhile.
    std::error_code ignored;
    for (fs::directory_iterator each(directory, ignored), end; !ignored && each != end;
         each.increment(ignored)) {
        count += each->path().filename().string().rfind(begin, 0) == 0 ? 1 : 0;
    }
    return count;
}

long heapBytesInUse() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return static_cast<long>(__sanitizer_get_current_allocated_bytes());
#else
    const auto info = ::mallinfo2();
    return static_cast<long>(info.uordblks + info.hblkhd);
#endif
}

long residentBytes() {
    long all = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
}

}  // namespace

void startGauging() {
    faults::countAllocationsOfCurl();
}

Gauge gauge(const std::string& directory) {
    // In this order: nothing that is made in order to count is counted.
    Gauge now;
    now.pieces = faults::liveAllocations();
    now.heapBytes = heapBytesInUse();
    now.residentBytes = residentBytes();
    now.descriptors = countEntries("/proc/self/fd");
    now.files = static_cast<long>(wire::ownTemporaryFiles().size()) +
                countEntries("/tmp", siblingMark()) + countEntries(directory);
    return now;
}

std::vector<std::string> growth(const Gauge& before, const Gauge& after) {
    struct Row {
        const char* what;
        long Gauge::*value;
        long slack;
    };
    constexpr Row kRows[] = {
        {"descriptors", &Gauge::descriptors, 0},
        {"files", &Gauge::files, 0},
        {"pieces of memory", &Gauge::pieces, 0},
        {"bytes of the heap", &Gauge::heapBytes, kHeapSlack},
        {"resident bytes", &Gauge::residentBytes, kResidentSlack},
    };
    std::vector<std::string> found;
    for (const Row& row : kRows) {
        const long more = after.*row.value - before.*row.value;
        if (more > row.slack) {
            found.push_back(std::to_string(more) + " more " + row.what);
        }
    }
    return found;
}

}  // namespace tessaro_com::pkm::voInet::load

// Takes the place of the C library's for the whole program: from it the host library makes the
// names of the files beside the ones it replaces, and a mark of this process in front tells them
// from those of other processes, as LeakGuard's random() does for the temporary copies.
extern "C" ssize_t getrandom(void* buffer, std::size_t length, unsigned int /*flags*/) {
    static std::atomic<std::uint64_t> counter{0};
    const auto process = static_cast<std::uint32_t>(::getpid());
    const std::uint64_t number = ++counter;
    std::array<unsigned char, sizeof process + sizeof number> bytes{};
    std::memcpy(bytes.data(), &process, sizeof process);
    std::memcpy(bytes.data() + sizeof process, &number, sizeof number);
    for (std::size_t i = 0; i < length; ++i) {
        static_cast<unsigned char*>(buffer)[i] = bytes[i % bytes.size()];
    }
    return static_cast<ssize_t>(length);
}
