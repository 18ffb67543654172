#ifndef VOINET_TESTS_FUZZ_SUPPORT_INPUT_H
#define VOINET_TESTS_FUZZ_SUPPORT_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace voinet_fuzz {

/// Takes an input apart from its front. At the end everything is 0 and empty.
class Input {
  public:
    explicit Input(std::string bytes) : m_bytes(std::move(bytes)) {}

    bool empty() const { return m_position >= m_bytes.size(); }

    std::uint8_t byte() { return empty() ? 0 : static_cast<std::uint8_t>(m_bytes[m_position++]); }

    /// Big-endian, of `bytes` bytes.
    std::uint64_t number(std::size_t bytes) {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < bytes; ++i) {
            value = (value << 8) | byte();
        }
        return value;
    }

    bool flag() { return (byte() & 1U) != 0; }

    std::string take(std::size_t count) {
        const std::size_t position = std::min(m_position, m_bytes.size());
        std::string text = m_bytes.substr(position, count);
        m_position = position + text.size();
        return text;
    }

    /// Up to the next line end, which is taken as well.
    std::string line() {
        const std::size_t end = std::min(m_bytes.find('\n', m_position), m_bytes.size());
        std::string text = take(end - std::min(m_position, end));
        ++m_position;
        return text;
    }

    std::string rest() { return take(m_bytes.size()); }

  private:
    std::string m_bytes;
    std::size_t m_position = 0;
};

/// `text` as a C text shows it.
inline std::string upToZero(const std::string& text) {
    return text.substr(0, text.find('\0'));
}

/// The parts of `text` between separators, empty ones included; always one at least.
inline std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char each : text) {
        if (each == separator) {
            parts.emplace_back();
        } else {
            parts.back() += each;
        }
    }
    return parts;
}

}  // namespace voinet_fuzz

#endif  // VOINET_TESTS_FUZZ_SUPPORT_INPUT_H
