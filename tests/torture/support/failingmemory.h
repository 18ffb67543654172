#ifndef VOINET_TESTS_TORTURE_SUPPORT_FAILINGMEMORY_H
#define VOINET_TESTS_TORTURE_SUPPORT_FAILINGMEMORY_H

#include <cstddef>
#include <functional>

// The memory of the whole program, that of the library, libcurl and the C library included, which
// can be made to run out on purpose. A program with this file has its own malloc and all its kin;
// operator new takes from them as well.

namespace tessaro_com::pkm::voInet::torture {

/// Which allocations of an operation fail.
enum class Shortage {
    /// One; what comes after it succeeds.
    once,
    /// One, and all that come after it.
    forGood,
};

/// What became of an operation.
struct Ordeal {
    /// Allocations that were asked for and that failed.
    std::size_t allocations = 0;
    std::size_t failures = 0;
    /// An exception came out.
    bool threw = false;
};

/// Runs an operation and lets its allocation number `first` (from 1) fail. Only what the calling
/// thread asks for counts. Notes the blocks that the operation takes; see blocksLeft().
Ordeal runShort(Shortage shortage, std::size_t first, const std::function<void()>& operation);

/// How many allocations of the operation have failed so far.
std::size_t failuresSoFar();

/// How many blocks that the operation took have not been given back so far. Call it when all
/// objects are gone; the blocks are forgotten.
std::size_t blocksLeft();

}  // namespace tessaro_com::pkm::voInet::torture

#endif  // VOINET_TESTS_TORTURE_SUPPORT_FAILINGMEMORY_H
