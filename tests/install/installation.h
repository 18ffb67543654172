#ifndef VOINET_TESTS_INSTALLATION_H
#define VOINET_TESTS_INSTALLATION_H

#include "process.h"
#include "temporarydirectory.h"

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace voinettest {

using Environment = std::map<std::string, std::string>;

/// Runs a program to its end and returns what it has printed on standard output. Throws
/// std::runtime_error with the command and all of its output unless its exit status is 0.
std::string runChecked(const std::vector<std::string>& words, const Environment& environment = {});

/// The words of a text, at white space.
std::vector<std::string> wordsOf(const std::string& text);

std::string contentOf(const std::filesystem::path& file);

/// Bytes in which every position looks different.
std::string sampleBytes();

/// Everything below a directory that is no directory itself, as paths relative to it.
std::set<std::string> filesBelow(const std::filesystem::path& directory);

/// Those of the files below a directory that contain a text.
std::set<std::string> filesMentioning(const std::filesystem::path& directory,
                                      const std::string& text);

// What is installed, relative to the prefix, one set for each package. Nothing else is.
std::set<std::string> runtimeFiles();
std::set<std::string> developmentFiles();
std::set<std::string> toolFiles();
std::set<std::string> allFiles();

/// The public headers among the development files.
std::set<std::string> headerFiles();

/// The built tree, installed into a prefix that was then given another name: what still leads to
/// the first one does not work.
class MovedInstallation {
  public:
    MovedInstallation();

    std::filesystem::path prefix() const { return directory_.path() / "moved"; }
    std::filesystem::path firstPrefix() const { return directory_.path() / "installed"; }
    std::filesystem::path libraries() const { return prefix() / VOINET_LIBDIR; }

  private:
    TemporaryDirectory directory_;
};

}  // namespace voinettest

#endif
