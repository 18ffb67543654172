#include "support/scratch.h"

#include "support/fuzztarget.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <thread>

namespace voinet_fuzz {

namespace fs = std::filesystem;

namespace {

class Directory {
  public:
    Directory() : m_path((fs::temp_directory_path() / "voinet-fuzz-XXXXXX").string()) {
        require(::mkdtemp(m_path.data()) != nullptr, "there is a temporary directory", m_path);
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;
    ~Directory() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }

    const std::string& path() const { return m_path; }

  private:
    std::string m_path;
};

}  // namespace

const std::string& scratchDirectory() {
    static const Directory kDirectory;
    return kDirectory.path();
}

std::optional<std::string> readFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        return std::nullopt;
    }
    return std::string{std::istreambuf_iterator<char>(stream), {}};
}

void writeFile(const std::string& path, const std::optional<std::string>& content) {
    if (!content) {
        ::unlink(path.c_str());
        return;
    }
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << *content << std::flush;
    require(stream.good(), "the target can write its files", path);
}

std::string positionDependentBytes(std::size_t size) {
    std::string bytes;
    bytes.reserve(size);
    for (std::size_t position = 0; position < size; ++position) {
        // Four bytes hold one number, so that a shifted block never looks right.
        const auto word = static_cast<std::uint32_t>(position / 4) * 2654435761U + 12345U;
        bytes += static_cast<char>((word >> (8 * (position % 4))) & 0xFFU);
    }
    return bytes;
}

std::size_t openDescriptors() {
    const fs::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

bool hasNoMoreDescriptorsThan(std::size_t before) {
    // The sanitizers' own threads open a file for a moment now and then.
    constexpr int kTries = 1000;
    for (int i = 0; i < kTries; ++i) {
        if (openDescriptors() <= before) {
            return true;
        }
        std::this_thread::yield();
    }
    return false;
}

}  // namespace voinet_fuzz
