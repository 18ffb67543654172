#include "replacefile.h"

#include "uniquefd.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace voinetserver {
namespace {

constexpr mode_t kPublicMode = 0644;

bool writeText(int file, const std::string& text) {
    return ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
           ::fchmod(file, kPublicMode) == 0;
}

}  // namespace

bool replaceFile(const std::string& file, const std::string& text) {
    std::string sibling = file + ".XXXXXX";
    const UniqueFd opened(::mkstemp(sibling.data()));
    if (!opened.valid()) {
        return false;
    }
    if (writeText(opened.get(), text) && std::rename(sibling.c_str(), file.c_str()) == 0) {
        return true;
    }
    const int reason = errno;
    ::unlink(sibling.c_str());
    errno = reason;
    return false;
}

}  // namespace voinetserver
