#ifndef KVECOMN_TELFILE_H
#define KVECOMN_TELFILE_H

#include "kvecomn/kvecomn_export.h"

#include <cstddef>
#include <cstdint>
#include <string>

// Files. Paths are UTF-8, offsets have 64 bits on every target. Interrupted calls and short reads
// and writes are survived: a count below the one asked for is the end of the file or an error.
// Any thread may call these functions; one open file is used by one thread at a time.
//
// In a directory that everybody may write to and where only owners may delete (mode 1777, such as
// /tmp) files are made with mode 0600, no symbolic link of another user is followed, on the way
// neither, only regular files are opened, and only those are written or replaced that belong to
// this user and have no second name. Opening never waits for the other end of a FIFO, in any
// directory.

/// An open file; opaque.
struct TelFile;
using telHandle = TelFile*;

// Access; combine with |.
inline constexpr std::uint32_t telGenericRead = 0x80000000U;
inline constexpr std::uint32_t telGenericWrite = 0x40000000U;

// Sharing. POSIX files are always shared; the value is accepted and not looked at.
inline constexpr std::uint32_t telShareNone = 0;

// Disposition: what to do about an existing or a missing file.
/// Make it; fail when it exists, be it as a symbolic link to nothing.
inline constexpr std::uint32_t telCreateNew = 1;
/// Make it or empty it.
inline constexpr std::uint32_t telCreateAlways = 2;
/// Open it; fail when it is missing.
inline constexpr std::uint32_t telOpenExisting = 3;
/// Open it or make it.
inline constexpr std::uint32_t telOpenAlways = 4;
/// Open and empty it; fail when it is missing.
inline constexpr std::uint32_t telTruncateExisting = 5;

// Attributes; accepted and not looked at.
inline constexpr std::uint32_t telAttributeNormal = 0x80;

// Where a distance counts from.
inline constexpr std::uint32_t telFileBegin = 0;
inline constexpr std::uint32_t telFileCurrent = 1;
inline constexpr std::uint32_t telFileEnd = 2;

/// Opens or makes a file. The caller closes it with telCloseHandle. Null on failure, with one error
/// line that names the file and the reason, except for a missing file that was only to be read.
/// Directories cannot be opened. What empties a file opens it for writing too.
KVECOMN_API telHandle telCreateFileAW(const std::string& path, std::uint32_t access,
                                      std::uint32_t share, std::uint32_t disposition,
                                      std::uint32_t attributes);

/// Reads up to `size` bytes at the file's position and returns the count; fewer than `size` only at
/// the end of the file or on an error, 0 for a null handle.
KVECOMN_API std::size_t telReadFile(telHandle file, void* buffer, std::size_t size);

/// Writes at the file's position and returns the count; fewer than `size` only on an error, 0 for a
/// null handle.
KVECOMN_API std::size_t telWriteFile(telHandle file, const void* data, std::size_t size);

/// Moves the file's position. Returns the new one from the file's begin, -1 on failure.
KVECOMN_API std::int64_t telSetFilePointer(telHandle file, std::int64_t distance,
                                           std::uint32_t from);

/// Closes a file; null is ignored. False, with one error line that names the file and the reason,
/// when the system reports that written data was lost.
KVECOMN_API bool telCloseHandle(telHandle file);

/// Copies `from` over `to` in one step: `to` is the old file or the whole new one at any moment.
///
/// The mode of an existing `to` is kept, its owner as far as this process may (set-id bits go with
/// an owner that cannot be kept); a symbolic link at `to` stays and what it points to is replaced;
/// a `to` that is no regular file is written straight into, with SIGPIPE held off. Contents reach
/// storage before the replacement and the directory after it, except in the temporary directory.
/// `from` has to be a regular file; it may be `to` itself.
///
/// The new file grows beside `to` under the name ".kvecomn-" and 32 hexadecimal digits. When the
/// process dies meanwhile, the next one that copies into the directory deletes what is left.
///
/// @return false when nothing was replaced: `to` is then as it was (a `to` that is no regular file
///         may have received a part), nothing is left beside it, and one error line names both
///         files and the reason. A missing `from` is false without a line. True with an error line
///         when the replacement stands, but the directory could not be brought to storage.
KVECOMN_API bool telCopyFile(const std::string& from, const std::string& to);

#endif  // KVECOMN_TELFILE_H
