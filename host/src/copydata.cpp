#include "copydata.h"

#include "place.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

namespace kvecomn {

namespace {

constexpr std::size_t kBufferSize = std::size_t{64} * 1024;

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

void copyByBuffer(int from, int to, std::uint64_t left) {
    const std::unique_ptr<char[]> buffer(new char[kBufferSize]);
    while (left > 0) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, kBufferSize));
        const ssize_t count = uninterrupted([&] { return read(from, buffer.get(), wanted); });
        if (count == -1) {
            throw FileError(errno, "read");
        }
        if (count == 0) {
            return;
        }
        const auto size = static_cast<std::size_t>(count);
        if (writeFully(to, buffer.get(), size) != size) {
            throw FileError(errno, "write");
        }
        left -= size;
    }
}

constexpr std::uint64_t kToTheEnd = std::numeric_limits<std::uint64_t>::max();

/// Copies up to `length` bytes. Each way goes on where the one before it stopped; the last finds
/// the true end.
void copyRange(int from, int to, std::uint64_t length) {
    std::uint64_t left = length;
    left = copyByKernel("copy", left, [=](std::size_t size) {
        return copy_file_range(from, nullptr, to, nullptr, size, 0);
    });
    left = copyByKernel("copy", left,
                        [=](std::size_t size) { return sendfile(to, from, nullptr, size); });
    copyByBuffer(from, to, left);
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

/// Whether `from` holds less than its size says and `to` can have holes as well.
bool canKeepHoles(const struct stat& from, const struct stat& to) {
    constexpr off_t kBlockUnit = 512;
    return S_ISREG(from.st_mode) && S_ISREG(to.st_mode) && to.st_size == 0 &&
           from.st_blocks * kBlockUnit < from.st_size;
}

/// A partial file of some gigabytes may be a hole for the most part; it must not take that room.
void copyAroundHoles(int from, int to, off_t size) {
    off_t position = 0;
    while (const auto data = nextData(from, position)) {
        position = seek(from, *data, SEEK_HOLE);
        seek(from, *data, SEEK_SET);
        seek(to, *data, SEEK_SET);
        copyRange(from, to, static_cast<std::uint64_t>(position - *data));
    }
    if (uninterrupted([=] { return ftruncate(to, std::max(position, size)); }) == -1) {
        throw FileError(errno, "write");
    }
}

}  // namespace

void copyData(const Descriptor& from, const Descriptor& to) {
    const int source = from.get();
    const int target = to.get();
    if (shareStorage(source, target)) {
        return;
    }
    const struct stat sourceStatus = statusOf(from);
    if (canKeepHoles(sourceStatus, statusOf(to))) {
        copyAroundHoles(source, target, sourceStatus.st_size);
    } else {
        copyRange(source, target, kToTheEnd);
    }
}

}  // namespace kvecomn
