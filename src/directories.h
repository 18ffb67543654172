#ifndef VOINET_SRC_DIRECTORIES_H
#define VOINET_SRC_DIRECTORIES_H

#include <sys/stat.h>

#include <string>

namespace tessaro_com::pkm::voInet {

/// What became of the last directory that makeDirectoriesOf had to make.
enum class LastDirectory { none, made, failed };

/// Makes the directory in front of every "/" of `path` whose index is greater than 3, so short top
/// directories such as "/tmp" without its slash are taken for granted. A directory that exists
/// already counts as failed.
inline LastDirectory makeDirectoriesOf(const std::string& path) {
    constexpr std::size_t kFirstSlash = 4;
    LastDirectory last = LastDirectory::none;
    for (auto slash = path.find('/', kFirstSlash); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        const std::string directory = path.substr(0, slash + 1);
        last = mkdir(directory.c_str(), S_IRWXU) == 0 ? LastDirectory::made : LastDirectory::failed;
    }
    return last;
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_DIRECTORIES_H
