#ifndef VOINET_TESTS_TEMPORARYFOLDER_H
#define VOINET_TESTS_TEMPORARYFOLDER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace voinet_command {

/// A fresh folder that is removed with everything in it.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name =
            (std::filesystem::temp_directory_path() / "voinet-command.XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("cannot make a temporary folder");
        }
        m_path = name;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    std::string Path(const std::string& name) const { return (m_path / name).string(); }

    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(Path(name), std::ios::binary) << content;
        return Path(name);
    }
    std::string Read(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    bool Has(const std::string& name) const {
        return std::filesystem::exists(std::filesystem::symlink_status(m_path / name));
    }

  private:
    std::filesystem::path m_path;
};

}  // namespace voinet_command

#endif  // VOINET_TESTS_TEMPORARYFOLDER_H
