#ifndef VOINET_TESTS_WIRE_SUPPORT_BODY_H
#define VOINET_TESTS_WIRE_SUPPORT_BODY_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace tessaro_com::pkm::voInet::wire {

/// `size` bytes of one endless text, from position `from` on. Each byte depends on its whole
/// position, so that an offset error of any size shows.
std::string makeBody(std::size_t size, std::uint64_t from = 0);

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_BODY_H
