#include "temporaryfiles.h"

#include "kvecomn/telmcomn.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace voinet_test {

namespace fs = std::filesystem;

namespace {

std::set<std::string>& notedFiles() {
    static std::set<std::string> files;
    return files;
}

}  // namespace

std::set<std::string> openTemporaryFiles() {
    std::set<std::string> found;
    for (const auto& descriptor : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const auto target = fs::read_symlink(descriptor.path(), gone).string();
        if (!gone && target.rfind("/tmp/Cbmgr", 0) == 0) {
            found.insert(target);
        }
    }
    return found;
}

void noteTemporaryFiles() {
    notedFiles().merge(openTemporaryFiles());
}

void expectTemporaryFilesGone() {
    for (const auto& file : notedFiles()) {
        EXPECT_FALSE(fs::exists(file)) << file << " was left behind";
    }
    notedFiles().clear();
}

std::size_t openDescriptors() {
    const fs::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

ScratchDirectory::ScratchDirectory() {
    auto name = (fs::temp_directory_path() / "voinet-unit-XXXXXX").string();
    if (!mkdtemp(name.data())) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    m_path = name;
}

ScratchDirectory::~ScratchDirectory() {
    std::error_code ignored;
    fs::remove_all(m_path, ignored);
}

std::wstring ScratchDirectory::wideFile(const std::string& name) const {
    return telmcomn_ansi_to_wide(file(name));
}

std::string ScratchDirectory::write(const std::string& name, const std::string& content) const {
    writeFile(file(name), content);
    return file(name);
}

std::string ScratchDirectory::read(const std::string& name) const {
    return readFile(file(name));
}

std::set<std::string> ScratchDirectory::names() const {
    std::set<std::string> found;
    for (const auto& entry : fs::directory_iterator(m_path)) {
        found.insert(entry.path().filename().string());
    }
    return found;
}

std::string readFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        return "(missing)";
    }
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << content << std::flush;
    if (!stream) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

std::string positionDependentBytes(std::size_t size, std::size_t firstPosition) {
    std::string bytes;
    bytes.reserve(size + 8);
    for (auto position = firstPosition; bytes.size() < size; ++position) {
        // Four bytes per position hold its number, so that a shifted block never looks right.
        const auto word = position / 4;
        const auto mixed = static_cast<std::uint32_t>(word * 2654435761U + 12345U);
        bytes.push_back(static_cast<char>((mixed >> (8 * (position % 4))) & 0xFFU));
    }
    return bytes;
}

FileSizeLimit::FileSizeLimit(std::size_t bytes) : m_previousHandler(std::signal(SIGXFSZ, SIG_IGN)) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    m_previous = limit.rlim_cur;
    limit.rlim_cur = bytes;
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

FileSizeLimit::~FileSizeLimit() {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = m_previous;
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, m_previousHandler);
}

}  // namespace voinet_test
