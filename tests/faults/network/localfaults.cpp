#include "localfaults.h"

namespace tessaro_com::pkm::voInet::faults {

const std::vector<LocalFault>& localFaults() {
    static const std::vector<LocalFault> kFaults = {
        {"none", LocalTrouble::none},
        {"source-missing", LocalTrouble::sourceMissing},
        {"source-is-directory", LocalTrouble::sourceIsDirectory},
        {"target-directory-missing", LocalTrouble::targetDirectoryMissing},
        {"target-is-directory", LocalTrouble::targetIsDirectory},
        {"disk-full", LocalTrouble::diskFull},
    };
    return kFaults;
}

}  // namespace tessaro_com::pkm::voInet::faults
