#ifndef KVECOMN_DESCRIPTOR_H
#define KVECOMN_DESCRIPTOR_H

#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

namespace kvecomn {

static_assert(sizeof(off_t) == 8, "file offsets must have 64 bits: compile with large files");

/// Most bytes moved by one system call, so that counts fit a 32-bit ssize_t.
constexpr std::size_t kLongestTransfer = std::size_t{1} << 30;

/// A file operation that failed; the text is the reason for the log.
class FileError : public std::runtime_error {
  public:
    /// @param error  an errno value.
    /// @param step   what was tried, when that helps to find the cause.
    explicit FileError(int error, const std::string& step = "");
    /// A rule of this library that forbids the operation.
    explicit FileError(const char* rule);

    /// The errno value; 0 for a rule.
    int code() const noexcept { return m_code; }

  private:
    int m_code;
};

/// Repeats a system call until no signal interrupts it.
template <typename Call>
auto uninterrupted(Call call) -> decltype(call()) {
    decltype(call()) result;
    do {
        result = call();
    } while (result == -1 && errno == EINTR);
    return result;
}

/// Owns an open file descriptor.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) noexcept : m_number(number) {}
    /// Closes without looking at the result, and keeps errno.
    ~Descriptor();

    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;

    int get() const noexcept { return m_number; }
    bool isOpen() const noexcept { return m_number >= 0; }

    /// Gives the descriptor to another owner.
    int release() noexcept { return std::exchange(m_number, -1); }

    /// Closes and returns 0 or the errno value of what got lost.
    int close() noexcept;

  private:
    int m_number = -1;
};

/// Reads until the buffer is full, the file ends or an error ends it; returns the count.
std::size_t readFully(int file, void* buffer, std::size_t size) noexcept;

/// Writes until everything is written or an error ends it; returns the count and leaves the reason
/// in errno.
std::size_t writeFully(int file, const void* data, std::size_t size) noexcept;

}  // namespace kvecomn

#endif  // KVECOMN_DESCRIPTOR_H
