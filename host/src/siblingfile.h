#ifndef KVECOMN_SIBLINGFILE_H
#define KVECOMN_SIBLINGFILE_H

#include "descriptor.h"
#include "place.h"

#include <string>

namespace kvecomn {

/// A new file beside a place, which takes the place when it is complete and goes when it is not.
///
/// Its name cannot be predicted, and it is locked (flock) while its maker works on it: a sibling
/// that nobody locks was left by a process that died.
class SiblingFile {
  public:
    /// Makes the file; `place` must live as long. Throws FileError.
    SiblingFile(const Place& place, mode_t mode);
    /// Deletes the file unless it replaced the place.
    ~SiblingFile();

    SiblingFile(const SiblingFile&) = delete;
    SiblingFile& operator=(const SiblingFile&) = delete;

    /// Its status is that of the empty file.
    const OpenFile& file() const { return m_file; }

    /// Closes the file and puts it in the place of what stands there, in one step. False when it is
    /// not there any more: another process has taken it for left between the two. Throws FileError.
    /// The place is as it was in both cases.
    bool replace();

  private:
    /// No file yet. What makes one delegates to it: from then on the destructor runs, even when the
    /// making is broken off.
    explicit SiblingFile(const Place& place) : m_place(place) {}

    void make(mode_t mode);
    bool isSafelyLocked();
    void remove();
    bool hasLanded() const;

    const Place& m_place;
    std::string m_name;
    OpenFile m_file;
    bool m_isOwner = false;
};

/// Deletes the siblings that died processes left in the place's directory, in a shared directory
/// those of this user only. A process looks into a directory once. A directory that cannot be read
/// and failures are passed over.
void removeLeftSiblings(const Place& place);

}  // namespace kvecomn

#endif  // KVECOMN_SIBLINGFILE_H
