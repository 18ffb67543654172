#ifndef VOINET_COMMAND_UNIQUEFD_H
#define VOINET_COMMAND_UNIQUEFD_H

#include <unistd.h>

#include <utility>

namespace voinet_command {

/// Owns a file descriptor.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }

    int Get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }

  private:
    int m_fd = -1;
};

}  // namespace voinet_command

#endif  // VOINET_COMMAND_UNIQUEFD_H
