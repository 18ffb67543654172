#include "support/temporarydirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace tessaro_com::pkm::voInet::wire {

namespace fs = std::filesystem;

TemporaryDirectory::TemporaryDirectory()
    : m_path((fs::temp_directory_path() / "voinet-wire-XXXXXX").string()) {
    if (::mkdtemp(m_path.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), m_path);
    }
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code error;
    fs::remove_all(m_path, error);
    EXPECT_FALSE(error) << m_path << ": " << error.message();
}

std::string TemporaryDirectory::path(std::string_view name) const {
    return m_path + "/" + std::string(name);
}

std::vector<std::string> TemporaryDirectory::entries() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(m_path)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string TemporaryDirectory::makeFile(std::string_view name, std::string_view content) const {
    const fs::path file(path(name));
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file.string();
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << path << " cannot be read";
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::wstring widened(std::string_view text) {
    return {text.begin(), text.end()};
}

}  // namespace tessaro_com::pkm::voInet::wire
