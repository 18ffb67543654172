#ifndef VOINET_TESTS_WIRE_SUPPORT_DESCRIPTOR_H
#define VOINET_TESTS_WIRE_SUPPORT_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace tessaro_com::pkm::voInet::wire {

/// Owns a file descriptor.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int number) noexcept : m_number(number) {}
    ~Descriptor() { close(); }

    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_number, other.m_number);
        return *this;
    }

    int get() const noexcept { return m_number; }
    explicit operator bool() const noexcept { return m_number >= 0; }

    void close() noexcept {
        if (m_number >= 0) {
            ::close(std::exchange(m_number, -1));
        }
    }

  private:
    int m_number = -1;
};

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_DESCRIPTOR_H
