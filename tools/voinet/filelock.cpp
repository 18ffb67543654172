#include "filelock.h"

#include "commanderror.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace voinet_command {

namespace {

UniqueFd openLockFile(const std::string& path) {
    // O_NONBLOCK: a FIFO of that name must not make the command wait.
    UniqueFd file(::open(path.c_str(),
                         O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0600));
    if (!file) {
        throw CommandError(ExitStatus::localFile,
                           fmt::format("cannot make the file {}: {}", path, std::strerror(errno)),
                           "check that the folder exists and that you may write to it");
    }
    return file;
}

/// Whether `path` still names the open file: its last holder may have removed it meanwhile.
bool namesFile(const std::string& path, int fd) {
    struct stat byName {};
    struct stat byFd {};
    return ::lstat(path.c_str(), &byName) == 0 && ::fstat(fd, &byFd) == 0 &&
           byName.st_dev == byFd.st_dev && byName.st_ino == byFd.st_ino;
}

}  // namespace

FileLock::FileLock(std::string path, const std::string& purpose) : m_path(std::move(path)) {
    while (!TryLock(purpose)) {
    }
}

bool FileLock::TryLock(const std::string& purpose) {
    m_file = openLockFile(m_path);
    if (::flock(m_file.Get(), LOCK_EX | LOCK_NB) != 0) {
        throw CommandError(ExitStatus::localFile,
                           fmt::format("another process is working on {}", purpose),
                           "wait for it to end, or choose another local file");
    }
    return namesFile(m_path, m_file.Get());
}

FileLock::~FileLock() {
    // Removed while it is still locked, so that whoever gets the lock next sees that the name is
    // gone and makes a file of its own.
    Remove();
}

void FileLock::Remove() noexcept {
    ::unlink(m_path.c_str());
}

}  // namespace voinet_command
