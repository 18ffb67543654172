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
using kvecomn::OpenFile;
using kvecomn::Place;

struct TelFile {
    explicit TelFile(const std::string& openPath) : path(openPath) {}

    Descriptor file;
    /// As it was opened, for the log.
    std::string path;
    /// Writing to a pipe can raise a signal.
    bool isPipe = false;
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

void makeEmpty(const OpenFile& file) {
    // Terminals and FIFOs have nothing to throw away. Nor has an empty file, and some file systems
    // write a file that was emptied to storage when it is closed, which costs a temporary one dear.
    if (S_ISREG(file.status.st_mode) && file.status.st_size > 0 &&
        kvecomn::uninterrupted([&] { return ftruncate(file.descriptor.get(), 0); }) == -1) {
        throw FileError(errno, "empty");
    }
}

/// Opens what stands at the place; a closed descriptor when nothing does and it may be made.
OpenFile tryExisting(const Place& place, int access, const DispositionRule& rule,
                     OpenFile& candidate) {
    try {
        return kvecomn::openExisting(place, access, std::exchange(candidate, OpenFile()));
    } catch (const FileError& error) {
        if (error.code() == ENOENT && rule.makesMissing) {
            return OpenFile();
        }
        throw;
    }
}

/// Makes the file; a closed descriptor when it has come into being and may be opened.
OpenFile tryNew(const Place& place, int access, const DispositionRule& rule) {
    OpenFile file;
    try {
        file.descriptor = kvecomn::makeNew(place, place.name, access, kvecomn::newFileMode(place));
    } catch (const FileError& error) {
        if (error.code() != EEXIST || !rule.opensExisting) {
            throw;
        }
    }
    return file;
}

OpenFile openAtPlace(const Place& place, int access, const DispositionRule& rule,
                     OpenFile candidate) {
    if (!rule.opensExisting && place.isBehindLink) {
        throw FileError(EEXIST);
    }
    // What was missing a moment ago is made first.
    bool makesNow = rule.makesMissing && !(rule.opensExisting && place.exists);
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
        OpenFile file =
            makesNow ? tryNew(place, access, rule) : tryExisting(place, access, rule, candidate);
        if (file.descriptor.isOpen()) {
            return file;
        }
        makesNow = !makesNow;
    }
    throw FileError(EAGAIN);
}

OpenFile openByRule(const std::string& path, int access, const DispositionRule& rule) {
    OpenFile file;
    if (rule.opensExisting) {
        file = kvecomn::openDirectly(path, access);
    }
    if (kvecomn::mayUseAnywhere(file, access)) {
        kvecomn::allowWaiting(file, access);
    } else {
        file = openAtPlace(kvecomn::lookUp(path), access, rule, std::move(file));
    }
    // Only now is it known to be a file that may be emptied.
    if (rule.empties) {
        makeEmpty(file);
    }
    return file;
}

std::unique_ptr<TelFile> openFile(const std::string& path, std::uint32_t access,
                                  std::uint32_t disposition) {
    const DispositionRule* rule = findRule(disposition);
    if (rule == nullptr) {
        throw FileError("unknown disposition");
    }
    // First: without memory for it no file is made or emptied.
    auto result = std::make_unique<TelFile>(path);
    OpenFile file = openByRule(path, openAccess(access, rule->empties), *rule);
    result->isPipe = S_ISFIFO(file.status.st_mode);
    result->file = std::move(file.descriptor);
    return result;
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
