#include "support/failingmemory.h"

#include <array>
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

/// The blocks that one operation holds: a hash table that needs no memory of its own.
class Blocks {
  public:
    void clear() {
        m_slots.fill(nullptr);
        m_count = 0;
        m_used = 0;
    }

    void insert(void* block) {
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
    static constexpr std::size_t kSlots = std::size_t{1} << 15;
    /// Where a block has been; no block has this address.
    static inline char tombstoneByte = 0;
    static inline void* const kTombstone = &tombstoneByte;

    static std::size_t hashOf(const void* block) {
        return (reinterpret_cast<std::uintptr_t>(block) / 16 * 2654435761U) % kSlots;
    }

    std::array<void*, kSlots> m_slots{};
    std::size_t m_count = 0;
    std::size_t m_used = 0;
};

/// What the thread does at the moment.
enum class Watch {
    off,
    /// Allocations are counted, noted and failed; what is given back is noted.
    operation,
    /// What is given back is noted.
    aftermath,
};

thread_local Watch watch = Watch::off;

// Of the only thread that watches.
Blocks blocks;
Ordeal ordeal;
Shortage currentShortage;
std::size_t firstFailure;

/// Whether the allocation that is being asked for fails.
bool fails() {
    if (watch != Watch::operation) {
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
    if (watch == Watch::operation && memory != nullptr) {
        blocks.insert(memory);
    }
    return memory;
}

void givenBack(void* memory) {
    if (watch != Watch::off && memory != nullptr) {
        blocks.erase(memory);
    }
}

void* resized(void* memory, std::size_t size) {
    const bool isNoted = watch != Watch::off && memory != nullptr && blocks.erase(memory);
    void* const moved = __libc_realloc(memory, size);
    if (moved == nullptr && size != 0) {
        if (isNoted) {
            blocks.insert(memory);
        }
        return nullptr;
    }
    // A block from before the operation stays one, whatever its size.
    if (moved != nullptr && (isNoted || (memory == nullptr && watch == Watch::operation))) {
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
    watch = Watch::operation;
    try {
        operation();
    } catch (...) {
        ordeal.threw = true;
    }
    watch = Watch::aftermath;
    return ordeal;
}

std::size_t blocksLeft() {
    watch = Watch::off;
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
