#include "support/failingmemory.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

// The C library's own, under the names that are left when a program has others.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace tessaro_com::pkm::voInet::torture {

namespace {

/// The blocks that one operation holds: a hash table that needs no memory of its own. Any thread
/// may give a block back.
class Blocks {
  public:
    void clear() {
        const Lock lock(m_isBusy);
        m_slots.fill(nullptr);
        m_count = 0;
        m_used = 0;
    }

    void insert(void* block) {
        const Lock lock(m_isBusy);
        if (m_used >= kSlots / 2) {
            std::abort();  // too small for the operation
        }
        std::size_t slot = hashOf(block);
        while (m_slots[slot] != nullptr && m_slots[slot] != kTombstone) {
            slot = (slot + 1) % kSlots;
        }
        m_used += m_slots[slot] == nullptr ? 1 : 0;
        m_slots[slot] = block;
        ++m_count;
    }

    /// False when it is not there.
    bool erase(const void* block) {
        const Lock lock(m_isBusy);
        for (std::size_t slot = hashOf(block); m_slots[slot] != nullptr;
             slot = (slot + 1) % kSlots) {
            if (m_slots[slot] == block) {
                m_slots[slot] = kTombstone;
                --m_count;
                return true;
            }
        }
        return false;
    }

    std::size_t count() const { return m_count; }

  private:
    class Lock {
      public:
        explicit Lock(std::atomic_flag& isBusy) : m_isBusy(isBusy) {
            while (m_isBusy.test_and_set(std::memory_order_acquire)) {
            }
        }
        ~Lock() { m_isBusy.clear(std::memory_order_release); }

        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

      private:
        std::atomic_flag& m_isBusy;
    };

    static constexpr std::size_t kSlots = std::size_t{1} << 15;
    /// Where a block has been; no block has this address.
    static inline char tombstoneByte = 0;
    static inline void* const kTombstone = &tombstoneByte;

    static std::size_t hashOf(const void* block) {
        return (reinterpret_cast<std::uintptr_t>(block) / 16 * 2654435761U) % kSlots;
    }

    std::atomic_flag m_isBusy = ATOMIC_FLAG_INIT;
    std::array<void*, kSlots> m_slots{};
    std::atomic<std::size_t> m_count = 0;
    std::size_t m_used = 0;
};

/// The thread runs an operation: its allocations are counted, noted and failed.
thread_local bool runsOperation = false;

/// What is given back is noted.
std::atomic<bool> isWatching{false};

// Of the only thread that runs operations.
Blocks blocks;
Ordeal ordeal;
Shortage currentShortage;
std::size_t firstFailure;

/// Whether the allocation that is being asked for fails.
bool fails() {
    if (!runsOperation) {
        return false;
    }
    ++ordeal.allocations;
    const bool isFirst = ordeal.allocations == firstFailure;
    const bool isLater = ordeal.allocations > firstFailure && currentShortage == Shortage::forGood;
    if (!isFirst && !isLater) {
        return false;
    }
    ++ordeal.failures;
    errno = ENOMEM;
    return true;
}

void* taken(void* memory) {
    if (runsOperation && memory != nullptr) {
        blocks.insert(memory);
    }
    return memory;
}

void givenBack(void* memory) {
    if (isWatching && memory != nullptr) {
        blocks.erase(memory);
    }
}

void* resized(void* memory, std::size_t size) {
    const bool isNoted = isWatching && memory != nullptr && blocks.erase(memory);
    void* const moved = __libc_realloc(memory, size);
    if (moved == nullptr && size != 0) {
        if (isNoted) {
            blocks.insert(memory);
        }
        return nullptr;
    }
    // A block from before the operation stays one, whatever its size.
    if (moved != nullptr && (isNoted || (memory == nullptr && runsOperation))) {
        blocks.insert(moved);
    }
    return moved;
}

}  // namespace

Ordeal runShort(Shortage shortage, std::size_t first, const std::function<void()>& operation) {
    blocks.clear();
    ordeal = Ordeal();
    currentShortage = shortage;
    firstFailure = first;
    isWatching = true;
    runsOperation = true;
    try {
        operation();
    } catch (...) {
        ordeal.threw = true;
    }
    runsOperation = false;
    return ordeal;
}

std::size_t failuresSoFar() {
    return ordeal.failures;
}

std::size_t blocksLeft() {
    isWatching = false;
    return blocks.count();
}

}  // namespace tessaro_com::pkm::voInet::torture

// In place of the C library's for the whole program.

namespace torture = tessaro_com::pkm::voInet::torture;

extern "C" {

void* malloc(std::size_t size) {
    return torture::fails() ? nullptr : torture::taken(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return torture::fails() ? nullptr : torture::taken(__libc_calloc(count, size));
}

void* realloc(void* memory, std::size_t size) {
    return torture::fails() ? nullptr : torture::resized(memory, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
    return torture::fails() ? nullptr : torture::taken(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
    void* const block = memalign(alignment, size);
    if (block == nullptr) {
        return ENOMEM;
    }
    *memory = block;
    return 0;
}

void free(void* memory) {
    torture::givenBack(memory);
    __libc_free(memory);
}

}  // extern "C"
