#include "repository.h"

#include "starterror.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <system_error>
#include <utility>

namespace voinetserver {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSiteFile = "SiteStat.xml";

// What a client asks for is whether the file is there; what stands in it is for people.
constexpr const char* kMadeUpSiteFile =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<site>\n"
    "  <server>voinet-server</server>\n"
    "  <state>ready</state>\n"
    "</site>\n";

struct TypeOfSuffix {
    std::string_view suffix;
    const char* type;
};

constexpr const char* kDefaultType = "application/octet-stream";
constexpr std::array<TypeOfSuffix, 3> kTypesOfSuffixes = {{
    {".xml", "application/xml"},
    {".txt", "text/plain"},
    {".html", "text/html"},
}};

const char* typeOf(const fs::path& file) {
    const std::string suffix = file.extension().string();
    const auto* entry =
        std::find_if(kTypesOfSuffixes.begin(), kTypesOfSuffixes.end(),
                     [&](const TypeOfSuffix& candidate) { return candidate.suffix == suffix; });
    return entry != kTypesOfSuffixes.end() ? entry->type : kDefaultType;
}

bool hasParentSegment(const std::string& path) {
    const fs::path segments(path);
    return std::find(segments.begin(), segments.end(), "..") != segments.end();
}

bool isMissing(const std::error_code& error) {
    return error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory ||
           error == std::errc::filename_too_long;
}

Refusal forbidden(const std::string& reason) {
    return {403, reason};
}

Lookup openFile(const fs::path& file) {
    // Not blocking: opening a FIFO must not wait for somebody who writes to it. No link: the path
    // has none, unless somebody puts one there right now.
    UniqueFd opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    struct stat status {};
    if (!opened.valid() || ::fstat(opened.get(), &status) != 0) {
        return forbidden("the file cannot be read: " + std::generic_category().message(errno));
    }
    if (S_ISDIR(status.st_mode)) {
        return forbidden("this is a directory, and directories are not listed");
    }
    if (!S_ISREG(status.st_mode)) {
        return forbidden("this is not a regular file");
    }
    return Found{std::make_shared<FileContent>(std::move(opened),
                                               static_cast<std::uint64_t>(status.st_size)),
                 typeOf(file)};
}

}  // namespace

Repository::Repository(const std::string& directory) {
    std::error_code error;
    root_ = fs::canonical(directory, error);
    if (error) {
        throw StartError("the directory " + directory + " cannot be served: " + error.message());
    }
    if (!fs::is_directory(root_, error)) {
        throw StartError(directory + " is not a directory");
    }
}

Lookup Repository::find(const std::string& path) const {
    if (path.empty() || path.front() != '/' || path.find('\0') != std::string::npos) {
        return Refusal{400, "the path of a request begins with a slash and has no null character"};
    }
    if (hasParentSegment(path)) {
        return forbidden("a path with '..' is not served");
    }
    std::error_code error;
    // Joined as texts: joining as paths would let a second slash lead to the root of the machine.
    const fs::path file = fs::canonical(root_.native() + path, error);
    if (isMissing(error)) {
        return findMissing(path);
    }
    if (error) {
        return forbidden("the file cannot be reached: " + error.message());
    }
    if (!contains(file)) {
        return forbidden("a symbolic link leads out of the repository");
    }
    return openFile(file);
}

Lookup Repository::findMissing(const std::string& path) const {
    const fs::path wanted(root_.native() + path);
    std::error_code error;
    if (wanted.filename() == kSiteFile) {
        const fs::path folder = fs::canonical(wanted.parent_path(), error);
        if (!error && fs::is_directory(folder, error) && contains(folder)) {
            return Found{std::make_shared<TextContent>(kMadeUpSiteFile), typeOf(wanted)};
        }
    }
    return Refusal{404, "there is no such file in the repository"};
}

bool Repository::contains(const fs::path& canonicalPath) const {
    const auto [rootEnd, unused] =
        std::mismatch(root_.begin(), root_.end(), canonicalPath.begin(), canonicalPath.end());
    return rootEnd == root_.end();
}

}  // namespace voinetserver
