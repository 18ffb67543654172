#include "requestfile.h"

#include "commanderror.h"
#include "partfile.h"
#include "texts.h"
#include "uniquefd.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace voinet_command {

namespace {

CommandError requestError(const std::string& sentence) {
    return {ExitStatus::localFile, sentence, "check the name of the request file"};
}

void rejectSameFile(const struct stat& request, const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0 && info.st_dev == request.st_dev &&
        info.st_ino == request.st_ino) {
        throw CommandError(ExitStatus::usage,
                           fmt::format("the answer would take the place of the request: {}", path),
                           "choose another RESPONSE");
    }
}

}  // namespace

std::uint64_t checkRequestFile(const std::string& request, const std::string& response) {
    if (request.empty() || !isUtf8(request)) {
        throw CommandError(ExitStatus::usage,
                           "REQUEST: the file name is empty or no text in UTF-8");
    }
    // O_NONBLOCK: a FIFO must not make the command wait.
    const UniqueFd file(::open(request.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat info {};
    if (!file || ::fstat(file.Get(), &info) != 0) {
        throw requestError(
            fmt::format("cannot read the request file {}: {}", request, std::strerror(errno)));
    }
    if (S_ISDIR(info.st_mode)) {
        throw requestError(fmt::format("the request file {} is a folder", request));
    }
    if (!S_ISREG(info.st_mode)) {
        // Its size has to be announced.
        throw requestError(fmt::format("the request file {} is no regular file", request));
    }
    if (info.st_size == 0) {
        throw requestError(fmt::format("the request file {} is empty", request));
    }
    for (const char* suffix : {"", PartFile::kPartSuffix, PartFile::kLockSuffix}) {
        rejectSameFile(info, response + suffix);
    }
    return static_cast<std::uint64_t>(info.st_size);
}

}  // namespace voinet_command
