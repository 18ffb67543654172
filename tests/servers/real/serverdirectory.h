#ifndef VOINET_TESTS_SERVERDIRECTORY_H
#define VOINET_TESTS_SERVERDIRECTORY_H

#include "temporarydirectory.h"

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace voinettest {

/// What stands for a word of a configuration template (written @WORD@ there).
using Words = std::map<std::string, std::string>;

/// The directory of one server: its configuration, its files and what it writes. Servers drop the
/// rights of the user who starts them, so everybody may read it.
class ServerDirectory {
  public:
    ServerDirectory();

    std::string path() const { return directory_.path().string(); }
    std::string path(const std::string& name) const { return (directory_.path() / name).string(); }
    std::string write(const std::string& name, const std::string& content) const {
        return directory_.write(name, content);
    }
    std::string read(const std::string& name) const { return directory_.read(name); }
    std::string makeFolder(const std::string& name) const;

    /// Writes `name` from the template `name`.in; @DIRECTORY@ is filled in as well. Throws
    /// std::runtime_error when a word is left over. Returns the path.
    std::string configure(const std::string& name, Words words) const;

    /// Waits until the file `name` holds `text` so many times and returns all of it. Throws
    /// std::runtime_error when that does not happen.
    std::string awaitText(const std::string& name, const std::string& text,
                          std::size_t count = 1) const;

  private:
    TemporaryDirectory directory_;
};

/// The text of a template of tests/servers/config with its words filled in.
std::string fillIn(const std::string& templateName, const Words& words);

/// A line of a password file as the servers of this directory take it.
std::string passwordLine(const std::string& user, const std::string& password);

/// The files that the servers hand out, each the beginning of one text in which every byte depends
/// on its position.
constexpr std::size_t kMediumSize = std::size_t{5} << 20U;
constexpr std::size_t kLargeSize = std::size_t{100} << 20U;

/// The first `size` bytes, at most largeSize, of that text.
std::string_view servedText(std::size_t size);

/// Makes empty.bin, one.bin, medium.bin, large.bin and SiteStat.xml in the folder `files`.
void makeServedFiles(const ServerDirectory& directory);

}  // namespace voinettest

#endif
