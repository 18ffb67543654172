#ifndef VOINET_TESTS_TEMPORARYDIRECTORY_H
#define VOINET_TESTS_TEMPORARYDIRECTORY_H

#include "descriptor.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace voinettest {

/// A fresh directory that is removed with everything in it.
class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "voinet-test.XXXXXX").string();
        require(::mkdtemp(name.data()) != nullptr, "making a temporary directory");
        path_ = name;
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& path() const { return path_; }

    /// Writes a file, with the folders that lead to it, and returns its path.
    std::string write(const std::string& name, const std::string& content) const {
        const std::filesystem::path file = path_ / name;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream output(file, std::ios::binary);
        output << content;
        if (!output.flush()) {
            throw std::runtime_error("cannot write " + file.string());
        }
        return file.string();
    }

    std::string read(const std::string& name) const {
        std::ifstream input(path_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(input), {}};
    }

  private:
    std::filesystem::path path_;
};

}  // namespace voinettest

#endif
