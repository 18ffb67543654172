#ifndef KVECOMN_PLACE_H
#define KVECOMN_PLACE_H

#include "descriptor.h"

#include <sys/stat.h>

#include <string>

namespace kvecomn {

/// Where a path leads: an open directory and a name in it. Whoever renames or replaces parts of the
/// path afterwards cannot lead operations on the place elsewhere.
struct Place {
    /// For the "at" calls.
    Descriptor directory;
    /// Whether the directory is open for reading as well, which fsync needs, and not with O_PATH
    /// only.
    bool isDirectoryReadable = false;
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

/// An open file.
struct OpenFile {
    Descriptor descriptor;
    /// As it was when the file was opened.
    struct stat status {};
};

/// What a place's directory is opened for.
enum class DirectoryUse {
    names,
    /// For reading too, if it may be read.
    reading
};

/// Follows a path, its symbolic links included, except for somebody else's links in shared
/// directories. The last part need not exist. Throws FileError.
Place lookUp(const std::string& path, DirectoryUse use = DirectoryUse::names);

/// The text of a symbolic link; throws FileError.
std::string readLink(const Descriptor& directory, const std::string& name);

/// Opens what a path leads to when no symbolic link is on the way, in the fewest calls and without
/// waiting for anybody. A closed descriptor with the reason in errno when the path has to be looked
/// up. The file may be used only when mayUseAnywhere() says so; else openExisting() decides.
///
/// @param access  O_RDONLY, O_WRONLY or O_RDWR.
OpenFile openDirectly(const std::string& path, int access);

/// Whether a file may be used whatever directory it is in: it obeys the rules of shared ones.
bool mayUseAnywhere(const OpenFile& file, int access);

/// Opens what stands at a place, without waiting for anybody. In a shared directory only regular
/// files are opened, and for writing only those that are this user's under no second name. Throws
/// FileError.
///
/// @param candidate  what openDirectly() gave for the same path and access. It is used when it
///                   stands at the place: opening a FIFO or a device twice can be noticed.
OpenFile openExisting(const Place& place, int access, OpenFile candidate = {});

/// Reading and writing may wait, as programs expect of a terminal or a FIFO. For files of
/// openDirectly(); those of openExisting() have it. Throws FileError.
void allowWaiting(const OpenFile& file, int access);

/// Makes a file that did not exist. The kernel takes the umask off `mode`. Throws FileError.
Descriptor makeNew(const Place& place, const std::string& name, int access, mode_t mode);

/// The mode for new files at a place.
mode_t newFileMode(const Place& place);

/// Throws FileError unless the status is that of a regular file which belongs to this user and has
/// no second name. Through a hard link a file from elsewhere could be written.
void requireOwnFile(const struct stat& status);

bool isSameFile(const struct stat& one, const struct stat& other);

/// The status of an open file; throws FileError.
struct stat statusOf(const Descriptor& file);

}  // namespace kvecomn

#endif  // KVECOMN_PLACE_H
