#ifndef VOINET_SRC_BOUNDARY_H
#define VOINET_SRC_BOUNDARY_H

#include "voinet/voineterror.h"

#include <new>

namespace tessaro_com::pkm::voInet {

// The operations of the public interface run inside of these: nothing may be thrown across the
// library's boundary, since the host may be built without exceptions.

/// An operation that answers a result.
template <class Operation>
voInetError withoutExceptions(Operation operation) noexcept {
    try {
        return operation();
    } catch (const std::bad_alloc&) {
        return voInetErrorOutOfMemory;
    } catch (...) {
        return voInetErrorFailed;
    }
}

/// The same for an operation that answers a flag or a number: `fallback` is what it answers when it
/// could not be carried out.
template <class Answer, class Operation>
Answer withoutExceptionsOr(Answer fallback, Operation operation) noexcept {
    try {
        return operation();
    } catch (...) {
        return fallback;
    }
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_BOUNDARY_H
