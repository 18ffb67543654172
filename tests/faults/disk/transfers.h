#ifndef VOINET_TESTS_TRANSFERS_H
#define VOINET_TESTS_TRANSFERS_H

#include "fileserver.h"
#include "ftpserver.h"
#include "temporarydirectory.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace voinettest {

/// Text in which every position can be told from its neighbours.
std::string numberedText(std::size_t size, char separator);

/// The content of a file; none when there is no file.
std::optional<std::string> contentOf(const std::string& path);

/// What a transfer in a process of its own has told before that process ended.
struct TransferReport {
    bool isComplete = false;
    /// voInetError.
    int result = 0;
    std::vector<std::string> errorLines;
    int descriptorsLeft = 0;
};

/// The temporary names that the library is about to draw: "/tmp/Cbmgr" and a number. The program's
/// own random() counts up from a number that belongs to the process, so that the tests of two
/// processes never meet and a test knows the names beforehand.
class TemporaryNames {
  public:
    static constexpr std::size_t kCount = 64;

    static std::string at(std::size_t index);
    static long numberAt(std::size_t index);
    /// The next name that the library draws in this process, and in its children, is the first.
    static void startOver();
    /// The names that exist.
    static std::vector<std::string> existing();
    static void removeAll();
};

/// A place with a repository: servers, request file, destination. Transfers run in child processes,
/// by the library itself or by the command.
class Site {
  public:
    Site();
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;
    ~Site();

    /// One way to move the site's file to the destination.
    struct Transfer {
        std::string name;
        /// What stands at the destination before; none: nothing.
        std::optional<std::string> before;
        /// What the transfer puts there.
        std::string after;
        /// To be called in a child process. The exit status of the command, 0 of the library.
        std::function<int()> work;
        bool isCommand = false;
        /// Whether the destination itself is written, and is no copy that takes its place.
        bool isInPlace = false;
        /// Whether the command has a part of the file to begin with.
        bool isResumed = false;
    };

    Transfer httpFresh();
    Transfer httpReplacing();
    Transfer httpResumed();
    Transfer ftpReplacing();
    Transfer ftpResumed();
    Transfer localCopy();
    Transfer exchange();

    Transfer commandHttp();
    Transfer commandHttpResumed();
    Transfer commandLocal();
    Transfer commandExchange();

    /// Brings everything into the state before a transfer.
    void prepare(const Transfer& transfer);
    /// The same without a look at temporary names that are taken.
    void prepareDestination(const Transfer& transfer);
    /// What the latest transfer of the library has told.
    TransferReport report() const;

    /// Where the files of all transfers are: the site's directory and the temporary names.
    std::vector<std::string> roots() const;
    std::string destination() const { return path("destination"); }
    std::optional<std::string> found() const { return contentOf(destination()); }
    /// To be told of each file that a transfer has open for writing: the names of those that grow
    /// beside temporary files cannot be known beforehand.
    void noteWritten(const std::string& path);
    /// Files that belong neither to the site nor to the destination, temporary ones included.
    std::vector<std::string> leftovers() const;
    /// The path of another file in the site's directory.
    std::string path(const std::string& name) const { return (directory_.path() / name).string(); }

  private:
    struct SharedReport;

    Transfer library(const std::string& name, std::optional<std::string> before,
                     std::function<int(const Site&)> work);
    Transfer command(const std::string& name, std::vector<std::string> words);
    void runInChild(const std::function<int(const Site&)>& work);
    void removeLeftovers();
    int runCommand(const std::vector<std::string>& words) const;
    int download(int protocol, const std::string& hostAndPort, long offset) const;
    int copyLocally() const;
    int post() const;

    std::string file_;
    std::string old_;
    TemporaryDirectory directory_;
    FileServer http_;
    FtpServer ftp_;
    SharedReport* report_;
    std::set<std::string> temporarySiblings_;
};

}  // namespace voinettest

#endif
