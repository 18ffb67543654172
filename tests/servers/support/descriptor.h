#ifndef VOINET_TESTS_DESCRIPTOR_H
#define VOINET_TESTS_DESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace voinettest {

/// Owner of a file descriptor; -1 is none.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }

    int get() const { return number_; }
    bool isOpen() const { return number_ >= 0; }
    void close() {
        if (isOpen()) {
            ::close(std::exchange(number_, -1));
        }
    }

  private:
    int number_ = -1;
};

/// For system calls that a test cannot go on without: throws what errno says when `ok` is false.
inline void require(bool ok, const std::string& what) {
    if (!ok) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

}  // namespace voinettest

#endif
