#ifndef VOINET_SRC_DIRECTORIES_H
#define VOINET_SRC_DIRECTORIES_H

#include <sys/stat.h>

#include <string>
#include <utility>

namespace tessaro_com::pkm::voInet {

/// What became of the last directory that makeDirectoriesOf had to make.
enum class LastDirectory { none, made, failed };

/// Makes the directory in front of every "/" of `path` whose index is greater than 3, so the first
/// directories of a path with short names, such as "/a/b/", are taken for granted. A directory that
/// exists already counts as failed.
///
/// `path` is the only memory that it takes: once it runs, it does not stop half way for want of it.
inline LastDirectory makeDirectoriesOf(std::string path) {
    constexpr std::size_t kFirstSlash = 4;
    LastDirectory last = LastDirectory::none;
    for (auto slash = path.find('/', kFirstSlash); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        // The end of the text moves along; writing it where it stands already does no harm.
        char& end = path[slash + 1];
        const char next = std::exchange(end, '\0');
        last = mkdir(path.c_str(), S_IRWXU) == 0 ? LastDirectory::made : LastDirectory::failed;
        end = next;
    }
    return last;
}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_DIRECTORIES_H
