#include "copydata.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

namespace kvecomn {

namespace {

// On the stack: no copy fails for lack of memory.
constexpr std::size_t kBufferSize = std::size_t{16} * 1024;

/// What is no bigger is copied in one go. To share storage or look for holes would save nothing and
/// cost more.
constexpr off_t kSmallSize = off_t{16} * 1024;

/// Whether the error says that the kernel cannot copy this way between these files, and nothing
/// about the files themselves.
bool isUnsupported(int error) {
    switch (error) {
        case EBADF:       // another kind of descriptor, or one that appends
        case EINVAL:      // another kind of file
        case ENOSYS:      // an old kernel
        case ENOTTY:      // a file system without the request
        case EOPNOTSUPP:  // the same
        case EOVERFLOW:   // a range that the way cannot express
        case EPERM:       // a filter of system calls, in containers
        case ETXTBSY:     // a swap file
        case EXDEV:       // two file systems
            return true;
        default:
            return false;
    }
}

/// Lets `to` share the storage of `from`, all of it.
bool shareStorage(int from, int to) {
    if (uninterrupted([&] { return ioctl(to, FICLONE, from); }) == 0) {
        return true;
    }
    if (!isUnsupported(errno)) {
        throw FileError(errno, "clone");
    }
    return false;
}

/// Repeats a call that moves a part and advances both positions, until `left` is used up or it
/// moves nothing more. That may be the end, or a file that the call takes for empty, as in the proc
/// file system. Returns what is left.
template <typename Call>
std::uint64_t copyByKernel(const char* name, std::uint64_t left, Call moveSome) {
    ssize_t count = 1;
    while (left > 0 && count > 0) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(left, kLongestTransfer));
        count = uninterrupted([&] { return moveSome(size); });
        left -= count > 0 ? static_cast<std::uint64_t>(count) : 0;
    }
    if (count == -1 && !isUnsupported(errno)) {
        throw FileError(errno, name);
    }
    return left;
}

/// Copies until `left` is used up or the file ends. Returns what is left then.
std::uint64_t copyByBuffer(int from, int to, std::uint64_t left) {
    char buffer[kBufferSize];
    while (left > 0) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, kBufferSize));
        const ssize_t count = uninterrupted([&] { return read(from, buffer, wanted); });
        if (count == -1) {
            throw FileError(errno, "read");
        }
        if (count == 0) {
            break;
        }
        const auto size = static_cast<std::size_t>(count);
        if (writeFully(to, buffer, size) != size) {
            throw FileError(errno, "write");
        }
        left -= size;
    }
    return left;
}

constexpr std::uint64_t kToTheEnd = std::numeric_limits<std::uint64_t>::max();

/// What can be said of a copy beforehand.
struct CopyTraits {
    bool isSmall;
    bool isOnOneDevice;
    bool isBetweenFiles;
};

CopyTraits traitsOf(const struct stat& from, const struct stat& to) {
    return {from.st_size <= kSmallSize, from.st_dev == to.st_dev,
            S_ISREG(from.st_mode) && S_ISREG(to.st_mode)};
}

/// Copies up to `length` bytes in the kernel. Each way goes on where the one before it stopped.
/// Returns what is left.
std::uint64_t copyInKernel(int from, int to, std::uint64_t length, const CopyTraits& traits) {
    std::uint64_t left = length;
    // Between two devices few kernels and file servers can; a small file is not worth the question.
    if (traits.isBetweenFiles && (traits.isOnOneDevice || !traits.isSmall)) {
        left = copyByKernel("copy", left, [=](std::size_t size) {
            return copy_file_range(from, nullptr, to, nullptr, size, 0);
        });
    }
    return copyByKernel("copy", left,
                        [=](std::size_t size) { return sendfile(to, from, nullptr, size); });
}

off_t seek(int file, off_t position, int from) {
    const off_t result = lseek(file, position, from);
    if (result == -1) {
        throw FileError(errno, "seek");
    }
    return result;
}

/// Where data goes on at or behind `position`; nothing when only a hole is left.
std::optional<off_t> nextData(int file, off_t position) {
    const off_t data = lseek(file, position, SEEK_DATA);
    if (data == -1 && errno != ENXIO) {
        throw FileError(errno, "seek");
    }
    return data == -1 ? std::nullopt : std::optional<off_t>(data);
}

void setLength(int file, off_t length) {
    if (uninterrupted([=] { return ftruncate(file, length); }) == -1) {
        throw FileError(errno, "write");
    }
}

/// Whether `from` holds less than its size says and `to` can have holes as well.
bool canKeepHoles(const struct stat& from, const struct stat& to, const CopyTraits& traits) {
    constexpr off_t kBlockUnit = 512;
    return traits.isBetweenFiles && !traits.isSmall && to.st_size == 0 &&
           from.st_blocks * kBlockUnit < from.st_size;
}

/// A partial file of some gigabytes may be a hole for the most part; it must not take that room.
void copyAroundHoles(int from, int to, off_t size, const CopyTraits& traits) {
    off_t position = 0;
    while (const auto data = nextData(from, position)) {
        position = seek(from, *data, SEEK_HOLE);
        seek(from, *data, SEEK_SET);
        seek(to, *data, SEEK_SET);
        const auto length = static_cast<std::uint64_t>(position - *data);
        const std::uint64_t missing =
            copyByBuffer(from, to, copyInKernel(from, to, length, traits));
        if (missing > 0) {
            // It ends before its size, or was made shorter: what is missing is no hole.
            setLength(to, position - static_cast<off_t>(missing));
            return;
        }
    }
    setLength(to, std::max(position, size));
}

}  // namespace

void copyData(const OpenFile& from, const OpenFile& to) {
    const int source = from.descriptor.get();
    const int target = to.descriptor.get();
    const CopyTraits traits = traitsOf(from.status, to.status);
    const bool canShare = traits.isBetweenFiles && traits.isOnOneDevice && !traits.isSmall;
    if (canShare && shareStorage(source, target)) {
        return;
    }
    if (canKeepHoles(from.status, to.status, traits)) {
        copyAroundHoles(source, target, from.status.st_size, traits);
        return;
    }
    // Only reading finds the true end: a file may grow meanwhile, and the size of those in the proc
    // file system is 0.
    copyInKernel(source, target, static_cast<std::uint64_t>(from.status.st_size), traits);
    copyByBuffer(source, target, kToTheEnd);
}

}  // namespace kvecomn
