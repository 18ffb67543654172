#include "descriptor.h"

#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace kvecomn {

namespace {

std::string describe(int error, const std::string& step) {
    const std::string reason = std::generic_category().message(error);
    return step.empty() ? reason : step + ": " + reason;
}

}  // namespace

FileError::FileError(int error, const std::string& step)
    : std::runtime_error(describe(error, step)), m_code(error) {}

FileError::FileError(const char* rule) : std::runtime_error(rule), m_code(0) {}

Descriptor::~Descriptor() {
    const int savedError = errno;
    close();
    errno = savedError;
}

Descriptor::Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        close();
        m_number = std::exchange(other.m_number, -1);
    }
    return *this;
}

int Descriptor::close() noexcept {
    if (!isOpen()) {
        return 0;
    }
    // An interrupted close has released the number; trying again could close another thread's file.
    const int result = ::close(std::exchange(m_number, -1));
    return result == -1 && errno != EINTR ? errno : 0;
}

std::size_t readFully(int file, void* buffer, std::size_t size) noexcept {
    auto* position = static_cast<char*>(buffer);
    std::size_t done = 0;
    while (done < size) {
        const std::size_t wanted = std::min(size - done, kLongestTransfer);
        const ssize_t count = uninterrupted([&] { return read(file, position + done, wanted); });
        if (count <= 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    return done;
}

std::size_t writeFully(int file, const void* data, std::size_t size) noexcept {
    const auto* position = static_cast<const char*>(data);
    std::size_t done = 0;
    while (done < size) {
        const std::size_t wanted = std::min(size - done, kLongestTransfer);
        const ssize_t count = uninterrupted([&] { return write(file, position + done, wanted); });
        if (count == 0) {
            errno = EIO;
        }
        if (count <= 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    return done;
}

}  // namespace kvecomn
