#ifndef VOINET_TESTS_FAULTS_LOAD_MANYFILES_H
#define VOINET_TESTS_FAULTS_LOAD_MANYFILES_H

#include "support/body.h"

#include <cstddef>
#include <string>

// What the server of many processes has, and what they expect.

namespace voinettest {

inline constexpr std::size_t kManyFilesCount = 8;

inline std::string manyFilesName(std::size_t number) {
    return "file-" + std::to_string(number) + ".bin";
}

inline std::string manyFilesContent(std::size_t number) {
    constexpr std::size_t kStep = 40'007;
    return tessaro_com::pkm::voInet::wire::makeBody((number + 1) * kStep, number * kStep);
}

/// Each second one.
inline bool isResumed(std::size_t number) {
    return number % 2 == 1;
}

}  // namespace voinettest

#endif  // VOINET_TESTS_FAULTS_LOAD_MANYFILES_H
