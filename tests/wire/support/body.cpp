#include "support/body.h"

namespace tessaro_com::pkm::voInet::wire {

namespace {

/// The finalizer of a 64-bit hash: every bit of the position reaches every bit of the result.
char byteAt(std::uint64_t position) {
    position = (position ^ (position >> 30)) * 0xbf58476d1ce4e5b9U;
    position = (position ^ (position >> 27)) * 0x94d049bb133111ebU;
    return static_cast<char>((position ^ (position >> 31)) & 0xffU);
}

}  // namespace

std::string makeBody(std::size_t size, std::uint64_t from) {
    std::string body(size, '\0');
    // Position 0 of the hash is a fixed point.
    std::uint64_t position = from + 1;
    for (char& byte : body) {
        byte = byteAt(position++);
    }
    return body;
}

}  // namespace tessaro_com::pkm::voInet::wire
