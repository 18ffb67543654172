#ifndef VOINET_TESTS_UNIT_SUPPORT_TEMPORARYFILES_H
#define VOINET_TESTS_UNIT_SUPPORT_TEMPORARYFILES_H

#include <sys/resource.h>

#include <cstddef>
#include <set>
#include <string>

namespace voinet_test {

/// The temporary files of transfers ("/tmp/Cbmgr...") that this process has open at the moment.
/// Other tests make files there at the same time, so the directory itself tells nothing.
std::set<std::string> openTemporaryFiles();

/// Remembers them, for the check at the end of the test that they are gone.
void noteTemporaryFiles();

/// Red for each remembered file that still exists; then forgets them.
void expectTemporaryFilesGone();

/// Number of file descriptors of this process.
std::size_t openDescriptors();

/// A directory of its own for a test; removed with everything in it.
class ScratchDirectory {
  public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    const std::string& path() const { return m_path; }
    /// Full path of a name in it.
    std::string file(const std::string& name) const { return m_path + "/" + name; }
    std::wstring wideFile(const std::string& name) const;
    /// Makes a file and returns its full path.
    std::string write(const std::string& name, const std::string& content) const;
    /// Content of a file; "(missing)" when it does not exist.
    std::string read(const std::string& name) const;
    std::set<std::string> names() const;

  private:
    std::string m_path;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);

/// `size` bytes, each of which tells its position: no two blocks are alike.
std::string positionDependentBytes(std::size_t size, std::size_t firstPosition = 0);

/// A file size limit for this process while it lives: writes beyond it fail.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(std::size_t bytes);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlim_t m_previous;
    void (*m_previousHandler)(int);
};

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_TEMPORARYFILES_H
