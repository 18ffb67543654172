#include "kvecomn/telfile.h"

#include "brokenpipeguard.h"
#include "descriptor.h"
#include "filelog.h"
#include "place.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <utility>

using kvecomn::Descriptor;
using kvecomn::FileError;
using kvecomn::Place;

struct TelFile {
    TelFile(Descriptor openFile, std::string openPath, bool isOpenPipe)
        : file(std::move(openFile)), path(std::move(openPath)), isPipe(isOpenPipe) {}

    Descriptor file;
    /// As it was opened, for the log.
    std::string path;
    /// Writing to a pipe can raise a signal.
    bool isPipe;
};

namespace {

/// How often opening and making are tried in turn while others delete and make the file.
constexpr int kMostAttempts = 100;

struct DispositionRule {
    std::uint32_t disposition;
    bool opensExisting;
    bool makesMissing;
    bool empties;
};

constexpr DispositionRule kDispositionRules[] = {
    {telCreateNew, false, true, false},       {telCreateAlways, true, true, true},
    {telOpenExisting, true, false, false},    {telOpenAlways, true, true, false},
    {telTruncateExisting, true, false, true},
};

const DispositionRule* findRule(std::uint32_t disposition) {
    for (const DispositionRule& rule : kDispositionRules) {
        if (rule.disposition == disposition) {
            return &rule;
        }
    }
    return nullptr;
}

/// O_RDONLY, O_WRONLY or O_RDWR. Emptying is writing, whether it was asked for or not.
int openAccess(std::uint32_t access, bool empties) {
    const bool reads = (access & telGenericRead) != 0;
    const bool writes = (access & telGenericWrite) != 0;
    if (!reads && !writes) {
        throw FileError("neither reading nor writing was asked for");
    }
    if (reads) {
        return writes || empties ? O_RDWR : O_RDONLY;
    }
    return O_WRONLY;
}

void makeEmpty(const Descriptor& file) {
    const struct stat status = kvecomn::statusOf(file);
    // Terminals and FIFOs have nothing to throw away. Nor has an empty file, and some file systems
    // write a file that was emptied to storage when it is closed, which costs a temporary one dear.
    if (S_ISREG(status.st_mode) && status.st_size > 0 &&
        kvecomn::uninterrupted([&] { return ftruncate(file.get(), 0); }) == -1) {
        throw FileError(errno, "empty");
    }
}

/// Opens what stands at the place; a closed descriptor when nothing does and it may be made.
Descriptor tryExisting(const Place& place, int access, const DispositionRule& rule) {
    try {
        Descriptor file = kvecomn::openExisting(place, access);
        // Only now is it known to be a file that may be emptied.
        if (rule.empties) {
            makeEmpty(file);
        }
        return file;
    } catch (const FileError& error) {
        if (error.code() == ENOENT && rule.makesMissing) {
            return Descriptor();
        }
        throw;
    }
}

/// Makes the file; a closed descriptor when it has come into being and may be opened.
Descriptor tryNew(const Place& place, int access, const DispositionRule& rule) {
    try {
        return kvecomn::makeNew(place, place.name, access, kvecomn::newFileMode(place));
    } catch (const FileError& error) {
        if (error.code() == EEXIST && rule.opensExisting) {
            return Descriptor();
        }
        throw;
    }
}

Descriptor openByRule(const Place& place, int access, const DispositionRule& rule) {
    if (!rule.opensExisting && place.isBehindLink) {
        throw FileError(EEXIST);
    }
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
        Descriptor file;
        if (rule.opensExisting) {
            file = tryExisting(place, access, rule);
        }
        if (!file.isOpen() && rule.makesMissing) {
            file = tryNew(place, access, rule);
        }
        if (file.isOpen()) {
            return file;
        }
    }
    throw FileError(EAGAIN);
}

std::unique_ptr<TelFile> openFile(const std::string& path, std::uint32_t access,
                                  std::uint32_t disposition) {
    const DispositionRule* rule = findRule(disposition);
    if (rule == nullptr) {
        throw FileError("unknown disposition");
    }
    Descriptor file = openByRule(kvecomn::lookUp(path), openAccess(access, rule->empties), *rule);
    const bool isPipe = S_ISFIFO(kvecomn::statusOf(file).st_mode);
    return std::make_unique<TelFile>(std::move(file), path, isPipe);
}

/// Whether a file that does not exist is an ordinary answer and nothing to log.
bool isOnlyRead(std::uint32_t access, std::uint32_t disposition) {
    return (access & telGenericWrite) == 0 && disposition == telOpenExisting;
}

}  // namespace

telHandle telCreateFileAW(const std::string& path, std::uint32_t access, std::uint32_t /*share*/,
                          std::uint32_t disposition, std::uint32_t /*attributes*/) {
    try {
        return openFile(path, access, disposition).release();
    } catch (const FileError& error) {
        if (error.code() != ENOENT || !isOnlyRead(access, disposition)) {
            kvecomn::logOpenError(path, error.what());
        }
    } catch (const std::exception& error) {
        kvecomn::logOpenError(path, error.what());
    }
    return nullptr;
}

std::size_t telReadFile(telHandle file, void* buffer, std::size_t size) {
    return file == nullptr ? 0 : kvecomn::readFully(file->file.get(), buffer, size);
}

std::size_t telWriteFile(telHandle file, const void* data, std::size_t size) {
    if (file == nullptr) {
        return 0;
    }
    if (file->isPipe) {
        const kvecomn::BrokenPipeGuard guard;
        return kvecomn::writeFully(file->file.get(), data, size);
    }
    return kvecomn::writeFully(file->file.get(), data, size);
}

std::int64_t telSetFilePointer(telHandle file, std::int64_t distance, std::uint32_t from) {
    constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    static_assert(telFileBegin == 0 && telFileCurrent == 1 && telFileEnd == 2,
                  "the order of the table");
    if (file == nullptr || from > telFileEnd) {
        return -1;
    }
    return kvecomn::uninterrupted(
        [&]() -> std::int64_t { return lseek(file->file.get(), distance, kOrigins[from]); });
}

bool telCloseHandle(telHandle file) {
    const std::unique_ptr<TelFile> owner(file);
    const int error = owner ? owner->file.close() : 0;
    if (error != 0) {
        kvecomn::logCloseError(owner->path, std::strerror(error));
    }
    return error == 0;
}
