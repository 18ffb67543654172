#ifndef VOINET_COMMAND_FILELOCK_H
#define VOINET_COMMAND_FILELOCK_H

#include "uniquefd.h"

#include <string>

namespace voinet_command {

/// An exclusive lock among processes, by a file of its own that is removed with the object. It ends
/// with the process, however that ends; the file that a killed process leaves locks nothing.
class FileLock {
  public:
    /// Throws CommandError when the file cannot be made, or when another process holds the lock;
    /// `purpose` says what is locked.
    FileLock(std::string path, const std::string& purpose);
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock();

    /// Removes the file, which stays locked until the object or the process ends.
    void Remove() noexcept;

  private:
    bool TryLock(const std::string& purpose);

    std::string m_path;
    UniqueFd m_file;
};

}  // namespace voinet_command

#endif  // VOINET_COMMAND_FILELOCK_H
