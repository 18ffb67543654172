#ifndef VOINET_TESTS_FAULTS_NETWORK_LOCALFAULTS_H
#define VOINET_TESTS_FAULTS_NETWORK_LOCALFAULTS_H

#include <vector>

namespace tessaro_com::pkm::voInet::faults {

enum class LocalTrouble {
    none,
    sourceMissing,
    sourceIsDirectory,
    targetDirectoryMissing,
    targetIsDirectory,
    diskFull,
};

struct LocalFault {
    const char* name;
    LocalTrouble trouble;
};

/// What can go wrong with a copy from a local or mounted directory.
const std::vector<LocalFault>& localFaults();

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_LOCALFAULTS_H
