#include "allocations.h"

#include <curl/curl.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

namespace tessaro_com::pkm::voInet::faults {

namespace {

std::atomic<long> live{0};

void* taken(void* memory) {
    live += memory == nullptr ? 0 : 1;
    return memory;
}

void* allocate(std::size_t size) {
    return taken(std::malloc(size == 0 ? 1 : size));
}

void* allocateCleared(std::size_t count, std::size_t size) {
    return taken(std::calloc(count, size));
}

void release(void* memory) {
    live -= memory == nullptr ? 0 : 1;
    std::free(memory);
}

void* resize(void* memory, std::size_t size) {
    if (memory != nullptr && size == 0) {
        release(memory);
        return nullptr;
    }
    void* const resized = std::realloc(memory, size);
    return memory == nullptr ? taken(resized) : resized;
}

char* duplicate(const char* text) {
    return static_cast<char*>(taken(::strdup(text)));
}

}  // namespace

void countAllocationsOfCurl() {
    if (curl_global_init_mem(CURL_GLOBAL_DEFAULT, allocate, release, resize, duplicate,
                             allocateCleared) != CURLE_OK) {
        throw std::runtime_error("libcurl cannot be initialized");
    }
}

long liveAllocations() {
    return live;
}

}  // namespace tessaro_com::pkm::voInet::faults

// In place of the C++ library's for the whole program: all forms but the over-aligned ones, since a
// sanitizer has its own of each.

namespace faults = tessaro_com::pkm::voInet::faults;

void* operator new(std::size_t size) {
    void* const memory = faults::allocate(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new[](std::size_t size) {
    return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return faults::allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return faults::allocate(size);
}

void operator delete(void* memory) noexcept {
    faults::release(memory);
}

void operator delete[](void* memory) noexcept {
    faults::release(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
    faults::release(memory);
}

void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    faults::release(memory);
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    faults::release(memory);
}

void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept {
    faults::release(memory);
}
