#ifndef VOINET_SRC_BOUNDARY_H
#define VOINET_SRC_BOUNDARY_H

#include "voinet/voineterror.h"

#include <new>

namespace tessaro_com::pkm::voInet {

/// Runs one operation of the public interface. Nothing may be thrown across the library's boundary:
/// the host may be built without exceptions.
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

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_BOUNDARY_H
