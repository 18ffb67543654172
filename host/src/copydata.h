#ifndef KVECOMN_COPYDATA_H
#define KVECOMN_COPYDATA_H

#include "place.h"

namespace kvecomn {

/// Copies everything from the begin of `from` to its end to the begin of `to`, by the fastest way
/// that both support. Both are at their begin. An empty regular file gets the holes of `from`.
/// Throws FileError; `to` may then hold a part.
void copyData(const OpenFile& from, const OpenFile& to);

}  // namespace kvecomn

#endif  // KVECOMN_COPYDATA_H
