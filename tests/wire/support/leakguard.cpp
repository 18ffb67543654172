#include "support/leakguard.h"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace tessaro_com::pkm::voInet::wire {

namespace {

constexpr char kTemporaryDirectory[] = "/tmp";
constexpr std::string_view kTemporaryName = "Cbmgr";
// Process ids have 22 bits at most, the results of random() 31.
constexpr int kCounterBits = 9;

long firstNumberOfProcess() {
    return static_cast<long>(::getpid() & 0x3fffff) << kCounterBits;
}

long nextNumberOfProcess() {
    static std::atomic<unsigned> counter{0};
    return firstNumberOfProcess() + static_cast<long>(counter++ & ((1U << kCounterBits) - 1));
}

struct DirectoryCloser {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

/// Calls `visit` with the name of each entry and the descriptor of the open directory.
template <class Visitor>
void visitDirectory(const char* path, Visitor visit) {
    const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir(path));
    if (!directory) {
        throw std::runtime_error(std::string("cannot read ") + path);
    }
    while (const dirent* entry = ::readdir(directory.get())) {
        visit(std::string_view(entry->d_name), ::dirfd(directory.get()));
    }
}

bool isOwnTemporaryName(std::string_view name) {
    const auto position = name.find(kTemporaryName);
    if (position == std::string_view::npos) {
        return false;
    }
    name.remove_prefix(position + kTemporaryName.size());
    long number = -1;
    const auto result = std::from_chars(name.data(), name.data() + name.size(), number);
    return result.ec == std::errc() &&
           (number >> kCounterBits) == (firstNumberOfProcess() >> kCounterBits);
}

std::set<int> openDescriptors() {
    std::set<int> open;
    visitDirectory("/proc/self/fd", [&open](std::string_view name, int directory) {
        int number = -1;
        const auto result = std::from_chars(name.data(), name.data() + name.size(), number);
        if (result.ec == std::errc() && number != directory) {
            open.insert(number);
        }
    });
    return open;
}

std::string describeDescriptor(int number) {
    std::array<char, PATH_MAX> target{};
    const std::string link = "/proc/self/fd/" + std::to_string(number);
    const auto size = ::readlink(link.c_str(), target.data(), target.size());
    return "descriptor " + std::to_string(number) + " -> " +
           std::string(target.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
}

}  // namespace

LeakGuard::LeakGuard() : m_before(openDescriptors()) {}

std::vector<std::string> LeakGuard::leftovers() const {
    std::vector<std::string> found = ownTemporaryFiles();
    for (const int number : openDescriptors()) {
        if (m_before.count(number) == 0) {
            found.push_back(describeDescriptor(number));
        }
    }
    return found;
}

std::vector<std::string> ownTemporaryFiles() {
    std::vector<std::string> found;
    visitDirectory(kTemporaryDirectory, [&found](std::string_view name, int) {
        if (isOwnTemporaryName(name)) {
            found.push_back(std::string(kTemporaryDirectory) + "/" + std::string(name));
        }
    });
    return found;
}

}  // namespace tessaro_com::pkm::voInet::wire

// Takes the place of the C library's for the whole program; see LeakGuard.
extern "C" long random() noexcept {
    return tessaro_com::pkm::voInet::wire::nextNumberOfProcess();
}
