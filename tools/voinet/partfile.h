#ifndef VOINET_COMMAND_PARTFILE_H
#define VOINET_COMMAND_PARTFILE_H

#include "filelock.h"

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace voinet_command {

/// The life of LOCAL.part, the file that a transfer works on.
///
/// LOCAL changes only in Commit(), by one rename. Until then nothing but LOCAL.part and the lock
/// file LOCAL.part.lock is made. A symbolic link at LOCAL is replaced, not followed.
class PartFile {
  public:
    static constexpr const char* kPartSuffix = ".part";
    static constexpr const char* kLockSuffix = ".part.lock";

    /// Checks that LOCAL can be replaced and takes the lock. Without `resume` an older LOCAL.part
    /// is removed, so that it can never be taken for what is about to arrive. Throws CommandError.
    /// `argument` is what LOCAL is called on the command line.
    PartFile(const std::string& local, bool resume, const std::string& argument = "LOCAL");

    const std::string& LocalPath() const { return m_local; }
    const std::string& PartPath() const { return m_part; }

    /// The byte to resume from: 1,024 below the end, so that the library can compare the last
    /// kilobyte; 0 for a shorter file or none.
    long ResumeOffset() const;

    /// Whether the download has put a new file at LOCAL.part, or changed the one that was there.
    bool Arrived() const;

    /// Size of LOCAL.part; 0 without one.
    std::uint64_t Size() const;

    /// The first bytes of LOCAL.part, at most `limit`.
    std::string Head(std::size_t limit) const;

    /// SHA-256 of LOCAL.part.
    std::string Digest() const;

    /// Puts LOCAL.part in place of LOCAL: its data reaches storage before the rename, the folder
    /// after it. LOCAL's mode is kept; a new file gets the usual one. Throws CommandError.
    void Commit();

    /// Removes LOCAL.part when it is not worth keeping.
    void Discard();
    /// Removes a LOCAL.part that was not there at the start.
    void DiscardIfNew();
    /// After a cancelled download: removes an empty LOCAL.part, since there is nothing to resume.
    void DiscardIfEmpty();
    /// Removes LOCAL.part and the lock file when the process is about to end without destructors.
    void Abandon() noexcept;

  private:
    /// What tells a file from the one that takes its place, and from its own earlier state.
    struct Stamp {
        dev_t device;
        ino_t inode;
        std::uint64_t size;
        timespec changed;

        bool operator==(const Stamp& other) const;
    };

    void RejectUnusableLocal() const;
    void TakeOverOldPart(bool resume);
    std::optional<Stamp> Look() const;

    std::string m_local;
    std::string m_part;
    FileLock m_lock;
    std::optional<Stamp> m_before;
};

}  // namespace voinet_command

#endif  // VOINET_COMMAND_PARTFILE_H
