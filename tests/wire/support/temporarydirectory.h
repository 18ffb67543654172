#ifndef VOINET_TESTS_WIRE_SUPPORT_TEMPORARYDIRECTORY_H
#define VOINET_TESTS_WIRE_SUPPORT_TEMPORARYDIRECTORY_H

#include <string>
#include <string_view>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

/// A directory of its own, removed with everything in it at the end.
class TemporaryDirectory {
  public:
    TemporaryDirectory();
    ~TemporaryDirectory();

    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return m_path; }
    /// The path of an entry.
    std::string path(std::string_view name) const;
    /// The names of all entries, sorted.
    std::vector<std::string> entries() const;

    /// Makes a file, with its directories, and returns its path.
    std::string makeFile(std::string_view name, std::string_view content) const;

  private:
    std::string m_path;
};

/// The content of a file. A missing file fails the test and gives an empty text.
std::string readFile(const std::string& path);

/// ASCII only.
std::wstring widened(std::string_view text);

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_TEMPORARYDIRECTORY_H
