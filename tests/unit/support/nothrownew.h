#ifndef VOINET_TESTS_UNIT_SUPPORT_NOTHROWNEW_H
#define VOINET_TESTS_UNIT_SUPPORT_NOTHROWNEW_H

#include <cstddef>

namespace voinet_test {

/// Lets the non-throwing forms of new fail for everything of at least `size` bytes; 0 ends it.
void failNothrowNew(std::size_t size);

/// Calls of the non-throwing forms of new since the program started.
std::size_t nothrowNewCalls();

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_NOTHROWNEW_H
