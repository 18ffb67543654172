#ifndef KVECOMN_PLACE_H
#define KVECOMN_PLACE_H

#include "descriptor.h"

#include <sys/stat.h>

#include <string>

namespace kvecomn {

/// Where a path leads: an open directory and a name in it. Whoever renames or replaces parts of the
/// path afterwards cannot lead operations on the place elsewhere.
struct Place {
    /// Opened with O_PATH: for the "at" calls, not for reading or fsync.
    Descriptor directory;
    struct stat directoryStatus {};
    std::string name;
    bool exists = false;
    /// The status of what stands there, when it exists. A symbolic link only when
    /// isOpenFileLink().
    struct stat status {};
    /// Whether the path's last part was a symbolic link.
    bool isBehindLink = false;

    /// Whether everybody may write to the directory and only owners may delete, as in /tmp.
    bool isShared() const;
    /// Whether the name is a link of the proc file system to an open file ("/proc/self/fd/1"): its
    /// text is no path, only the kernel can follow it.
    bool isOpenFileLink() const;
};

/// Follows a path, its symbolic links included, except for somebody else's links in shared
/// directories. The last part need not exist. Throws FileError.
Place lookUp(const std::string& path);

/// The text of a symbolic link; throws FileError.
std::string readLink(const Descriptor& directory, const std::string& name);

/// Opens what stands at a place, without waiting for anybody. In a shared directory only regular
/// files are opened, and for writing only those that are this user's under no second name. Throws
/// FileError.
///
/// @param access  O_RDONLY, O_WRONLY or O_RDWR.
Descriptor openExisting(const Place& place, int access);

/// Makes a file that did not exist. The kernel takes the umask off `mode`. Throws FileError.
Descriptor makeNew(const Place& place, const std::string& name, int access, mode_t mode);

/// The mode for new files at a place.
mode_t newFileMode(const Place& place);

/// Throws FileError unless the status is that of a regular file which belongs to this user and has
/// no second name. Through a hard link a file from elsewhere could be written.
void requireOwnFile(const struct stat& status);

/// The status of an open file; throws FileError.
struct stat statusOf(const Descriptor& file);

}  // namespace kvecomn

#endif  // KVECOMN_PLACE_H
