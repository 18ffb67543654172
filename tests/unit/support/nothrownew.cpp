#include "nothrownew.h"

#include <new>

namespace {

std::size_t g_sizeThatFails = 0;
std::size_t g_calls = 0;

bool fails(std::size_t size) noexcept {
    ++g_calls;
    return g_sizeThatFails != 0 && size >= g_sizeThatFails;
}

}  // namespace

namespace voinet_test {

void failNothrowNew(std::size_t size) {
    g_sizeThatFails = size;
}

std::size_t nothrowNewCalls() {
    return g_calls;
}

}  // namespace voinet_test

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (fails(size)) {
        return nullptr;
    }
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    if (fails(size)) {
        return nullptr;
    }
    try {
        return ::operator new[](size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
