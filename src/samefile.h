#ifndef VOINET_SRC_SAMEFILE_H
#define VOINET_SRC_SAMEFILE_H

#include <sys/stat.h>

#include <string>

namespace tessaro_com::pkm::voInet {

/// Whether both names lead to one regular file, through links or not. Devices and FIFOs may well be
/// read and written at a time.
inline bool isSameRegularFile(const std::string& one, const std::string& other) {
    struct stat first {};
    struct stat second {};
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
           S_ISREG(first.st_mode) && first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_SAMEFILE_H
