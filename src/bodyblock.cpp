#include "bodyblock.h"

#include "voinet/cbmgr.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace tessaro_com::pkm::voInet {

namespace {

constexpr unsigned long kBlockSize = 32UL * 1024;

}  // namespace

unsigned long BodyBlock::take(CallbackManager& manager, const void* piece, unsigned long size) {
    if (m_manager == nullptr && !begin(manager)) {
        return manager.WriteData(const_cast<void*>(piece), size);
    }
    const auto* from = static_cast<const char*>(piece);
    unsigned long left = size;
    while (left > 0) {
        const unsigned long count = std::min(left, m_capacity - m_size);
        std::memcpy(m_bytes.get() + m_size, from, count);
        m_size += count;
        from += count;
        left -= count;
        if (m_size == m_capacity && !writeOut()) {
            return 0;
        }
    }
    return size;
}

bool BodyBlock::flush() {
    const bool isWritten = m_size == 0 || writeOut();
    clear();
    return isWritten;
}

void BodyBlock::clear() {
    m_manager = nullptr;
    m_size = 0;
}

/// Without memory for a block the pieces are written as they come.
bool BodyBlock::begin(CallbackManager& manager) {
    if (m_bytes == nullptr) {
        m_bytes.reset(new (std::nothrow) char[kBlockSize]);
    }
    if (m_bytes == nullptr) {
        return false;
    }
    m_manager = &manager;
    const auto start = static_cast<unsigned long>(std::max(manager.GetStartPosition(), 0L));
    m_capacity = kBlockSize - start % kBlockSize;
    return true;
}

bool BodyBlock::writeOut() {
    const bool isWritten = m_manager->WriteData(m_bytes.get(), m_size) == m_size;
    m_size = 0;
    m_capacity = kBlockSize;
    return isWritten;
}

}  // namespace tessaro_com::pkm::voInet
