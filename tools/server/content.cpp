#include "content.h"

#include <unistd.h>

#include <cerrno>
#include <limits>

namespace voinetserver {

static_assert(sizeof(off_t) == 8, "files of several GiB must be served on every target");

std::size_t TextContent::read(std::uint64_t offset, char* buffer, std::size_t capacity) const {
    if (offset >= text_.size()) {
        return 0;
    }
    return text_.copy(buffer, capacity, static_cast<std::size_t>(offset));
}

std::size_t FileContent::read(std::uint64_t offset, char* buffer, std::size_t capacity) const {
    if (offset > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
        return 0;
    }
    ssize_t count = 0;
    do {
        count = ::pread(file_.get(), buffer, capacity, static_cast<off_t>(offset));
    } while (count < 0 && errno == EINTR);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

}  // namespace voinetserver
