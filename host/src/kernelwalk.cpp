#include "kernelwalk.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>

namespace kvecomn {

namespace {

#ifdef SYS_openat2

/// The kernel's struct open_how, which the headers of older systems lack.
struct OpenHow {
    std::uint64_t flags;
    std::uint64_t mode;
    std::uint64_t resolve;
};

/// Fails with ELOOP at any symbolic link.
constexpr std::uint64_t kResolveNoSymlinks = 0x04;

int callKernel(const char* path, int flags) noexcept {
    const OpenHow how = {static_cast<std::uint64_t>(flags), 0, kResolveNoSymlinks};
    return static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof how));
}

#else

int callKernel(const char* /*path*/, int /*flags*/) noexcept {
    errno = ENOSYS;
    return -1;
}

#endif

/// An old kernel stays old: it is asked once.
std::atomic<bool> isCallMissing{false};

}  // namespace

Descriptor openWithoutLinks(const std::string& path, int flags) noexcept {
    if (isCallMissing.load(std::memory_order_relaxed)) {
        errno = ENOSYS;
        return Descriptor();
    }
    if ((flags & O_PATH) == 0) {
        // The open of the C library adds this by itself.
        flags |= O_LARGEFILE;
    }
    Descriptor file(uninterrupted([&] { return callKernel(path.c_str(), flags | O_CLOEXEC); }));
    if (!file.isOpen() && errno == ENOSYS) {
        isCallMissing.store(true, std::memory_order_relaxed);
    }
    return file;
}

}  // namespace kvecomn
