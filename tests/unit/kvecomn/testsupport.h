#ifndef KVECOMN_TESTSUPPORT_H
#define KVECOMN_TESTSUPPORT_H

#include "kvecomn/hostlog.h"
#include "kvecomn/telmcomn.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

/// A directory of the test's own, removed with everything in it.
class TestDirectory {
  public:
    TestDirectory() {
        char path[] = "/tmp/kvecomn-test-XXXXXX";
        if (mkdtemp(path) == nullptr) {
            throw std::runtime_error("no test directory");
        }
        m_path = path;
        // Left open until the process ends: no later directory gets the same inode number, by which
        // the library remembers directories.
        static_cast<void>(open(path, O_PATH | O_CLOEXEC));
    }
    ~TestDirectory() { std::filesystem::remove_all(m_path); }
    TestDirectory(const TestDirectory&) = delete;
    TestDirectory& operator=(const TestDirectory&) = delete;

    std::string path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
            found.push_back(entry.path().filename());
        }
        return found;
    }

    /// Lets everybody write to the directory as to /tmp.
    void share() const { chmod(m_path.c_str(), 01777); }

  private:
    std::string m_path;
};

inline std::string readText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline void writeText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

/// Text in which every position can be told from its neighbours.
inline std::string numberedText(std::size_t size) {
    std::string text;
    for (std::size_t number = 0; text.size() < size; ++number) {
        text += std::to_string(number) + ',';
    }
    text.resize(size);
    return text;
}

inline mode_t modeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

/// Gives a file or link to another user, which only root can. Returns whether it did.
inline bool giveAway(const std::string& path) {
    constexpr uid_t kOtherUser = 54321;
    return lchown(path.c_str(), kOtherUser, kOtherUser) == 0;
}

/// Collects log lines as "level module message" while it lives.
class LogCapture {
  public:
    LogCapture() {
        hostLogSetHandler([this](HostLogLevel level, const wchar_t* module,
                                 const wchar_t* message) {
            lines.push_back(std::string(hostLogLevelName(level)) + ' ' +
                            telmcomn_wide_to_ansi(module) + ' ' + telmcomn_wide_to_ansi(message));
        });
    }
    ~LogCapture() { hostLogSetHandler({}); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines;
};

#endif  // KVECOMN_TESTSUPPORT_H
