#include "kvecomn/telfile.h"

#include "testsupport.h"

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;
using testing::StartsWith;
using testing::UnorderedElementsAre;

constexpr std::uint32_t kReadWrite = telGenericRead | telGenericWrite;

struct HandleCloser {
    void operator()(TelFile* file) const { telCloseHandle(file); }
};
using Handle = std::unique_ptr<TelFile, HandleCloser>;

Handle openFile(const std::string& path, std::uint32_t access, std::uint32_t disposition) {
    return Handle(telCreateFileAW(path, access, telShareNone, disposition, telAttributeNormal));
}

std::string readFrom(const Handle& file, std::size_t size) {
    std::string text(size, '?');
    text.resize(telReadFile(file.get(), text.data(), size));
    return text;
}

std::size_t writeTo(const Handle& file, const std::string& text) {
    return telWriteFile(file.get(), text.data(), text.size());
}

/// An end of a FIFO that keeps the other end from failing.
class FifoEnd {
  public:
    FifoEnd(const std::string& path, int access)
        : m_file(open(path.c_str(), access | O_NONBLOCK | O_CLOEXEC)) {}
    ~FifoEnd() { close(m_file); }
    FifoEnd(const FifoEnd&) = delete;
    FifoEnd& operator=(const FifoEnd&) = delete;
    int get() const { return m_file; }

  private:
    int m_file;
};

/// No file may grow beyond a size while it lives: a disk that is full on the way.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t size) : m_oldHandler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_oldLimit);
        const rlimit limit{size, m_oldLimit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_oldLimit);
        std::signal(SIGXFSZ, m_oldHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    void (*m_oldHandler)(int);
    rlimit m_oldLimit{};
};

class FileModeMask {
  public:
    explicit FileModeMask(mode_t mask) : m_old(umask(mask)) {}
    ~FileModeMask() { umask(m_old); }
    FileModeMask(const FileModeMask&) = delete;
    FileModeMask& operator=(const FileModeMask&) = delete;

  private:
    mode_t m_old;
};

std::size_t openDescriptors() {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count += entry.path().empty() ? 0U : 1U;
    }
    return count;
}

ino_t inodeOf(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

// --- Opening ------------------------------------------------------------------------------------

struct DispositionCase {
    std::uint32_t disposition;
    bool opensExisting;
    bool makesMissing;
    bool empties;
};

class Disposition : public testing::TestWithParam<DispositionCase> {
  protected:
    TestDirectory m_directory;
    LogCapture m_log;
};

TEST_P(Disposition, ExistingFile_IsOpenedOrRefusedAndEmptiedOrKept) {
    const std::string path = m_directory / "f";
    writeText(path, "old");

    const Handle file = openFile(path, kReadWrite, GetParam().disposition);

    EXPECT_EQ(file != nullptr, GetParam().opensExisting);
    EXPECT_EQ(readText(path), GetParam().empties ? "" : "old");
    EXPECT_EQ(m_log.lines.size(), GetParam().opensExisting ? 0U : 1U);
}

TEST_P(Disposition, MissingFile_IsMadeOrRefused) {
    const std::string path = m_directory / "f";

    const Handle file = openFile(path, telGenericWrite, GetParam().disposition);

    EXPECT_EQ(file != nullptr, GetParam().makesMissing);
    EXPECT_EQ(std::filesystem::exists(path), GetParam().makesMissing);
    EXPECT_EQ(m_log.lines.size(), GetParam().makesMissing ? 0U : 1U);
}

TEST_P(Disposition, LinkToMissingFile_MakesItsTargetUnlessItMustBeNew) {
    const std::string link = m_directory / "link";
    std::filesystem::create_symlink("target", link);

    const Handle file = openFile(link, telGenericWrite, GetParam().disposition);

    const bool isMade = GetParam().makesMissing && GetParam().opensExisting;
    EXPECT_EQ(file != nullptr, isMade);
    EXPECT_EQ(std::filesystem::exists(m_directory / "target"), isMade);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
}

INSTANTIATE_TEST_SUITE_P(All, Disposition,
                         testing::Values(DispositionCase{telCreateNew, false, true, false},
                                         DispositionCase{telCreateAlways, true, true, true},
                                         DispositionCase{telOpenExisting, true, false, false},
                                         DispositionCase{telOpenAlways, true, true, false},
                                         DispositionCase{telTruncateExisting, true, false, true}));

class FileTest : public testing::Test {
  protected:
    TestDirectory m_directory;
    LogCapture m_log;
};

using OpenFile = FileTest;
using OpenFileShared = FileTest;
using FileAccess = FileTest;
using CopyFile = FileTest;
using CopyFileShared = FileTest;
using CopyFileSpecial = FileTest;

TEST_F(OpenFile, MissingFileToBeReadOnly_IsNullWithoutLine) {
    EXPECT_THAT(openFile(m_directory / "missing", telGenericRead, telOpenExisting), IsNull());
    EXPECT_THAT(openFile(m_directory / "no/such", telGenericRead, telOpenExisting), IsNull());
    EXPECT_THAT(m_log.lines, IsEmpty());
}

TEST_F(OpenFile, MissingFileToBeWritten_IsOneLineWithNameAndReason) {
    const std::string path = m_directory / "missing";

    EXPECT_THAT(openFile(path, kReadWrite, telOpenExisting), IsNull());

    EXPECT_THAT(m_log.lines, ElementsAre(AllOf(StartsWith("error kvecomn "), HasSubstr(path),
                                               HasSubstr("No such file or directory"))));
}

TEST_F(OpenFile, FileToBeMadeInMissingDirectory_IsOneLine) {
    EXPECT_THAT(openFile(m_directory / "no/such", telGenericRead, telCreateAlways), IsNull());
    EXPECT_EQ(m_log.lines.size(), 1U);
}

TEST_F(OpenFile, WrongArguments_AreRefusedWithOneLineEach) {
    const std::string path = m_directory / "f";
    writeText(path, "old");

    EXPECT_THAT(openFile(path, kReadWrite, 0), IsNull());
    EXPECT_THAT(openFile(path, kReadWrite, 6), IsNull());
    EXPECT_THAT(openFile(path, 0, telCreateAlways), IsNull());
    EXPECT_THAT(openFile("", telGenericWrite, telCreateAlways), IsNull());
    EXPECT_THAT(openFile(path + std::string("\0x", 2), telGenericWrite, telCreateAlways), IsNull());

    EXPECT_EQ(m_log.lines.size(), 5U);
    EXPECT_EQ(readText(path), "old");
}

TEST_F(OpenFile, Directory_IsRefusedWithOneLine) {
    for (const std::string& path : {m_directory.path(), m_directory / "", m_directory / ".",
                                    std::string("/"), std::string("..")}) {
        m_log.lines.clear();
        EXPECT_THAT(openFile(path, telGenericRead, telOpenExisting), IsNull()) << path;
        EXPECT_THAT(m_log.lines, ElementsAre(HasSubstr("directory"))) << path;
    }
}

TEST_F(OpenFile, FileUsedAsDirectory_IsRefused) {
    writeText(m_directory / "f", "old");

    EXPECT_THAT(openFile(m_directory / "f/", telGenericRead, telOpenExisting), IsNull());
    EXPECT_THAT(openFile(m_directory / "f/g", telGenericRead, telOpenExisting), IsNull());
    EXPECT_EQ(m_log.lines.size(), 2U);
}

TEST_F(OpenFile, LinksAndDotsOnTheWay_AreFollowed) {
    std::filesystem::create_directories(m_directory / "a/b");
    writeText(m_directory / "a/f", "found");
    std::filesystem::create_symlink(m_directory / "a/b", m_directory / "absolute");
    std::filesystem::create_symlink("a/b/", m_directory / "relative");
    std::filesystem::create_symlink("absolute/../f", m_directory / "chain");

    for (const char* path :
         {"absolute/../f", "relative/../f", "relative//..///f", "./a/./f", "chain"}) {
        const Handle file = openFile(m_directory / path, telGenericRead, telOpenExisting);
        EXPECT_EQ(readFrom(file, 10), "found") << path;
    }
}

TEST_F(OpenFile, LinkToItself_IsRefused) {
    std::filesystem::create_symlink("loop", m_directory / "loop");

    EXPECT_THAT(openFile(m_directory / "loop", telGenericRead, telOpenExisting), IsNull());
    EXPECT_THAT(m_log.lines, ElementsAre(HasSubstr("symbolic links")));
}

TEST_F(OpenFile, OpenFileOfThisProcess_IsReachedThroughProc) {
    const std::string path = m_directory / "f";
    writeText(path, "content");
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::filesystem::remove(path);

    const std::string link = "/proc/self/fd/" + std::to_string(file);
    EXPECT_EQ(readFrom(openFile(link, telGenericRead, telOpenExisting), 10), "content");

    close(file);
}

TEST_F(OpenFile, NewFile_HasTheModeThatTheMaskLeaves) {
    const FileModeMask mask(027);

    EXPECT_THAT(openFile(m_directory / "f", telGenericWrite, telCreateAlways), NotNull());

    EXPECT_EQ(modeOf(m_directory / "f"), 0640U);
}

TEST_F(OpenFile, FifoWithoutOtherEnd_DoesNotHang) {
    const std::string fifo = m_directory / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);

    EXPECT_THAT(openFile(fifo, telGenericWrite, telCreateAlways), IsNull());
    EXPECT_EQ(m_log.lines.size(), 1U);
    EXPECT_EQ(readFrom(openFile(fifo, telGenericRead, telOpenExisting), 1), "");
}

TEST_F(OpenFile, FifoThatIsOpen_WaitsForItsDataAgain) {
    const std::string fifo = m_directory / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Handle file = openFile(fifo, telGenericRead, telOpenExisting);
    std::string received;
    FifoEnd writer(fifo, O_WRONLY);
    std::thread reader([&] { received = readFrom(file, 3); });

    EXPECT_EQ(write(writer.get(), "abc", 3), 3);

    reader.join();
    EXPECT_EQ(received, "abc");
}

TEST_F(OpenFile, Handle_IsClosedInAnotherProgram) {
    const Handle file = openFile(m_directory / "f", telGenericWrite, telCreateNew);

    int inheritable = 0;
    for (int number = 3; number < 64; ++number) {
        const int flags = fcntl(number, F_GETFD);
        struct stat status {};
        if (flags != -1 && fstat(number, &status) == 0 &&
            status.st_ino == inodeOf(m_directory / "f")) {
            inheritable += (flags & FD_CLOEXEC) == 0 ? 1 : 0;
        }
    }
    EXPECT_EQ(inheritable, 0);
}

TEST_F(OpenFileShared, NewFile_IsForItsOwnerOnly) {
    m_directory.share();
    const FileModeMask mask(0);

    EXPECT_THAT(openFile(m_directory / "f", telGenericWrite, telCreateAlways), NotNull());

    EXPECT_EQ(modeOf(m_directory / "f"), 0600U);
}

TEST_F(OpenFileShared, LinkOfAnotherUser_IsNotFollowed) {
    m_directory.share();
    const TestDirectory elsewhere;
    writeText(elsewhere / "f", "old");
    std::filesystem::create_symlink(elsewhere / "f", m_directory / "link");
    const bool isForeign = giveAway(m_directory / "link");

    const Handle file = openFile(m_directory / "link", telGenericWrite, telCreateAlways);

    EXPECT_EQ(file == nullptr, isForeign);
    EXPECT_EQ(readText(elsewhere / "f"), isForeign ? "old" : "");
}

TEST_F(OpenFileShared, LinkOfAnotherUserToMissingFile_MakesNothing) {
    m_directory.share();
    const TestDirectory elsewhere;
    std::filesystem::create_symlink(elsewhere / "f", m_directory / "link");
    const bool isForeign = giveAway(m_directory / "link");

    const Handle file = openFile(m_directory / "link", telGenericWrite, telCreateAlways);

    EXPECT_EQ(std::filesystem::exists(elsewhere / "f"), !isForeign);
}

TEST_F(OpenFileShared, LinkOfAnotherUserOnTheWay_IsNotFollowed) {
    m_directory.share();
    const TestDirectory elsewhere;
    std::filesystem::create_symlink(elsewhere.path(), m_directory / "way");
    const bool isForeign = giveAway(m_directory / "way");

    const Handle file = openFile(m_directory / "way/f", telGenericWrite, telCreateAlways);

    EXPECT_EQ(file == nullptr, isForeign);
    EXPECT_EQ(std::filesystem::exists(elsewhere / "f"), !isForeign);
}

TEST_F(OpenFileShared, FileOfAnotherUser_IsReadAndNotWritten) {
    m_directory.share();
    writeText(m_directory / "f", "old");
    chmod((m_directory / "f").c_str(), 0666);
    const bool isForeign = giveAway(m_directory / "f");

    EXPECT_EQ(openFile(m_directory / "f", telGenericWrite, telCreateAlways) == nullptr, isForeign);
    EXPECT_EQ(readText(m_directory / "f"), isForeign ? "old" : "");
    EXPECT_THAT(openFile(m_directory / "f", telGenericRead, telOpenExisting), NotNull());
}

TEST_F(OpenFileShared, HardLink_IsNotEmptied) {
    m_directory.share();
    const TestDirectory elsewhere;
    writeText(elsewhere / "f", "old");
    std::filesystem::create_hard_link(elsewhere / "f", m_directory / "f");

    EXPECT_THAT(openFile(m_directory / "f", telGenericWrite, telCreateAlways), IsNull());

    EXPECT_EQ(readText(elsewhere / "f"), "old");
    EXPECT_EQ(m_log.lines.size(), 1U);
}

TEST_F(OpenFileShared, Fifo_IsRefusedForReadingAndWriting) {
    m_directory.share();
    const std::string fifo = m_directory / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    const FifoEnd reader(fifo, O_RDONLY);

    EXPECT_THAT(openFile(fifo, telGenericRead, telOpenExisting), IsNull());
    EXPECT_THAT(openFile(fifo, telGenericWrite, telCreateAlways), IsNull());
    EXPECT_THAT(openFile(fifo, kReadWrite, telOpenAlways), IsNull());
    EXPECT_EQ(m_log.lines.size(), 3U);
}

// --- Reading, writing, moving, closing -----------------------------------------------------------

TEST_F(FileAccess, WrittenText_IsReadBackFromAnyPosition) {
    const std::string text = numberedText(100000);
    const Handle file = openFile(m_directory / "f", kReadWrite, telCreateAlways);

    EXPECT_EQ(writeTo(file, text), text.size());
    EXPECT_EQ(telSetFilePointer(file.get(), 77777, telFileBegin), 77777);
    EXPECT_EQ(readFrom(file, 1000), text.substr(77777, 1000));
    EXPECT_EQ(telSetFilePointer(file.get(), -500, telFileCurrent), 78277);
    EXPECT_EQ(readFrom(file, 10), text.substr(78277, 10));
    EXPECT_EQ(telSetFilePointer(file.get(), -5, telFileEnd), 99995);
    EXPECT_EQ(readFrom(file, 1000), text.substr(99995));
    EXPECT_EQ(readFrom(file, 1), "");
}

TEST_F(FileAccess, PositionsBeyond4GiB_AreExact) {
    constexpr std::int64_t kFar = (std::int64_t{5} << 30) + 7;
    const Handle file = openFile(m_directory / "f", kReadWrite, telCreateAlways);

    EXPECT_EQ(telSetFilePointer(file.get(), kFar, telFileBegin), kFar);
    EXPECT_EQ(writeTo(file, "far"), 3U);
    EXPECT_EQ(telSetFilePointer(file.get(), 0, telFileEnd), kFar + 3);
    EXPECT_EQ(telSetFilePointer(file.get(), -kFar - 3, telFileCurrent), 0);
    EXPECT_EQ(telSetFilePointer(file.get(), kFar, telFileCurrent), kFar);
    EXPECT_EQ(readFrom(file, 3), "far");
    EXPECT_EQ(std::filesystem::file_size(m_directory / "f"), static_cast<std::uintmax_t>(kFar + 3));
}

TEST_F(FileAccess, WrongMoves_FailAndLeaveThePosition) {
    const Handle file = openFile(m_directory / "f", kReadWrite, telCreateAlways);
    writeTo(file, "abc");

    EXPECT_EQ(telSetFilePointer(file.get(), -1, telFileBegin), -1);
    EXPECT_EQ(telSetFilePointer(file.get(), 0, 3), -1);
    EXPECT_EQ(telSetFilePointer(file.get(), 0, telFileCurrent), 3);
    EXPECT_EQ(telSetFilePointer(nullptr, 0, telFileBegin), -1);
}

TEST_F(FileAccess, NullHandle_MovesNoBytesAndIsClosedWithoutComplaint) {
    char buffer[4] = {'a', 'b', 'c', 'd'};

    EXPECT_EQ(telReadFile(nullptr, buffer, sizeof buffer), 0U);
    EXPECT_EQ(telWriteFile(nullptr, buffer, sizeof buffer), 0U);
    EXPECT_TRUE(telCloseHandle(nullptr));
    EXPECT_EQ(buffer[0], 'a');
}

TEST_F(FileAccess, WrongDirection_MovesNoBytes) {
    writeText(m_directory / "f", "old");

    EXPECT_EQ(writeTo(openFile(m_directory / "f", telGenericRead, telOpenExisting), "new"), 0U);
    EXPECT_EQ(readFrom(openFile(m_directory / "f", telGenericWrite, telOpenExisting), 3), "");
    EXPECT_EQ(readText(m_directory / "f"), "old");
}

TEST_F(FileAccess, DiskFullOnTheWay_ReturnsTheShortCount) {
    const Handle file = openFile(m_directory / "f", telGenericWrite, telCreateAlways);
    const FileSizeLimit limit(1000);

    EXPECT_EQ(writeTo(file, std::string(1500, 'x')), 1000U);
    EXPECT_EQ(writeTo(file, "y"), 0U);
}

TEST_F(FileAccess, FullDevice_TakesNothing) {
    EXPECT_EQ(writeTo(openFile("/dev/full", telGenericWrite, telOpenExisting), "x"), 0U);
}

TEST_F(FileAccess, Close_IsTrueAndReleasesTheDescriptor) {
    const std::size_t before = openDescriptors();
    telHandle file = openFile(m_directory / "f", telGenericWrite, telCreateNew).release();
    EXPECT_EQ(openDescriptors(), before + 1);

    EXPECT_TRUE(telCloseHandle(file));

    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(FileAccess, PipeThatNobodyReadsAnyMore_GivesShortCountAndNoSignal) {
    const std::string fifo = m_directory / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    auto reader = std::make_unique<FifoEnd>(fifo, O_RDONLY);
    const Handle file = openFile(fifo, telGenericWrite, telOpenExisting);
    ASSERT_EQ(writeTo(file, "x"), 1U);
    reader.reset();

    EXPECT_EQ(writeTo(file, "y"), 0U);
}

std::atomic<int> interruptions{0};

TEST_F(FileAccess, InterruptedRead_GoesOnAndCollectsShortParts) {
    const std::string fifo = m_directory / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    struct sigaction action {};
    action.sa_handler = [](int) { ++interruptions; };
    struct sigaction oldAction {};
    sigaction(SIGUSR1, &action, &oldAction);
    const Handle file = openFile(fifo, telGenericRead, telOpenExisting);
    FifoEnd writer(fifo, O_WRONLY);
    const std::string text = numberedText(2000);
    std::string received;
    std::thread reader([&] { received = readFrom(file, text.size()); });

    for (std::size_t part = 0; part < 20; ++part) {
        for (int signal = 0; signal < 20; ++signal) {
            const int before = interruptions;
            while (interruptions == before) {
                pthread_kill(reader.native_handle(), SIGUSR1);
                sched_yield();
            }
        }
        ASSERT_EQ(write(writer.get(), text.data() + part * 100, 100), 100);
    }
    reader.join();
    sigaction(SIGUSR1, &oldAction, nullptr);

    EXPECT_EQ(received, text);
}

// --- Copying ------------------------------------------------------------------------------------

TEST_F(CopyFile, NewTarget_HasTheContentsAndTheModeThatTheMaskLeaves) {
    const FileModeMask mask(027);
    const std::string text = numberedText(300000);
    writeText(m_directory / "from", text);
    chmod((m_directory / "from").c_str(), 0777);

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to"));

    EXPECT_EQ(readText(m_directory / "to"), text);
    EXPECT_EQ(modeOf(m_directory / "to"), 0640U);
    EXPECT_THAT(m_directory.names(), UnorderedElementsAre("from", "to"));
    EXPECT_THAT(m_log.lines, IsEmpty());
}

TEST_F(CopyFile, EverySizeAroundTheBuffer_IsCopiedWhole) {
    for (const std::size_t size : {0U, 1U, 4095U, 4096U, 65535U, 65536U, 65537U, 1000003U}) {
        writeText(m_directory / "from", numberedText(size));
        EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to")) << size;
        EXPECT_EQ(readText(m_directory / "to"), numberedText(size)) << size;
    }
}

/// Makes a file of `size` bytes that is a hole but for a numbered text at each of the positions.
void writeSparse(const std::string& path, off_t size, const std::vector<off_t>& positions) {
    std::ofstream file(path, std::ios::binary);
    for (const off_t position : positions) {
        file.seekp(position);
        file << numberedText(70001);
    }
    file.close();
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size));
}

off_t roomOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_blocks * 512 : -1;
}

TEST_F(CopyFile, Holes_AreKeptWhereverTheyLie) {
    constexpr off_t kMebi = 1024 * 1024;
    const std::vector<std::vector<off_t>> layouts = {
        {}, {0}, {5 * kMebi}, {0, 5 * kMebi}, {3 * kMebi, 6 * kMebi}, {7 * kMebi - 70001}};
    for (const auto& layout : layouts) {
        writeSparse(m_directory / "from", 7 * kMebi, layout);
        EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to"));
        EXPECT_EQ(readText(m_directory / "to"), readText(m_directory / "from"));
        EXPECT_LT(roomOf(m_directory / "to"), kMebi);
    }
}

TEST_F(CopyFile, HoleBeyond4GiB_TakesNoRoom) {
    constexpr off_t kSize = (off_t{5} << 30) + 70001;
    writeSparse(m_directory / "from", kSize, {kSize - 70001});
    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to"));
    EXPECT_EQ(std::filesystem::file_size(m_directory / "to"), static_cast<std::uintmax_t>(kSize));
    EXPECT_LT(roomOf(m_directory / "to"), off_t{1} << 20);
    std::ifstream copied(m_directory / "to", std::ios::binary);
    copied.seekg(kSize - 70001);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(copied), {}), numberedText(70001));
}

TEST_F(CopyFile, ShorterThanTheOldFile_LeavesNothingOfIt) {
    writeText(m_directory / "from", "new");
    writeText(m_directory / "to", numberedText(5000));

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to"));

    EXPECT_EQ(readText(m_directory / "to"), "new");
}

TEST_F(CopyFile, ExistingTarget_KeepsItsModeWithSetIdBits) {
    const FileModeMask mask(077);
    writeText(m_directory / "from", "new");
    for (const mode_t mode : {0600U, 0444U, 0777U, 04755U, 02711U, 0U}) {
        writeText(m_directory / "to", "old");
        chmod((m_directory / "to").c_str(), mode);
        EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to"));
        EXPECT_EQ(modeOf(m_directory / "to"), mode);
        chmod((m_directory / "to").c_str(), 0600);
        EXPECT_EQ(readText(m_directory / "to"), "new");
    }
}

TEST_F(CopyFile, ExistingTarget_KeepsItsOwner) {
    writeText(m_directory / "from", "new");
    writeText(m_directory / "to", "old");
    chmod((m_directory / "to").c_str(), 04755);
    giveAway(m_directory / "to");
    struct stat before {};
    ASSERT_EQ(stat((m_directory / "to").c_str(), &before), 0);

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to"));

    struct stat after {};
    ASSERT_EQ(stat((m_directory / "to").c_str(), &after), 0);
    EXPECT_EQ(after.st_uid, before.st_uid);
    EXPECT_EQ(after.st_gid, before.st_gid);
    EXPECT_EQ(after.st_mode, before.st_mode);
}

TEST_F(CopyFile, ReaderOfTheOldFile_KeepsIt) {
    writeText(m_directory / "from", "new");
    writeText(m_directory / "to", "old");
    const Handle reader = openFile(m_directory / "to", telGenericRead, telOpenExisting);

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to"));

    EXPECT_EQ(readFrom(reader, 10), "old");
    EXPECT_EQ(readText(m_directory / "to"), "new");
}

TEST_F(CopyFile, LinkAtTarget_StaysAndItsTargetIsReplaced) {
    writeText(m_directory / "from", "new");
    writeText(m_directory / "target", "old");
    std::filesystem::create_symlink("target", m_directory / "middle");
    std::filesystem::create_symlink(m_directory / "middle", m_directory / "link");

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "link"));

    EXPECT_TRUE(std::filesystem::is_symlink(m_directory / "link"));
    EXPECT_TRUE(std::filesystem::is_symlink(m_directory / "middle"));
    EXPECT_EQ(readText(m_directory / "target"), "new");
    EXPECT_FALSE(std::filesystem::is_symlink(m_directory / "target"));
}

TEST_F(CopyFile, LinkToMissingFile_StaysAndItsTargetIsMade) {
    writeText(m_directory / "from", "new");
    std::filesystem::create_symlink("target", m_directory / "link");

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "link"));

    EXPECT_TRUE(std::filesystem::is_symlink(m_directory / "link"));
    EXPECT_EQ(readText(m_directory / "target"), "new");
}

TEST_F(CopyFile, MissingSource_IsFalseWithoutLineAndLeavesTheTarget) {
    writeText(m_directory / "to", "old");

    EXPECT_FALSE(telCopyFile(m_directory / "missing", m_directory / "to"));
    EXPECT_FALSE(telCopyFile("", m_directory / "to"));

    EXPECT_EQ(readText(m_directory / "to"), "old");
    EXPECT_THAT(m_log.lines, IsEmpty());
}

TEST_F(CopyFile, OntoItself_KeepsTheContents) {
    const std::string text = numberedText(5000);
    writeText(m_directory / "f", text);
    std::filesystem::create_symlink("f", m_directory / "link");
    std::filesystem::create_hard_link(m_directory / "f", m_directory / "twin");

    for (const char* to : {"f", "link", "twin"}) {
        EXPECT_TRUE(telCopyFile(m_directory / "f", m_directory / to)) << to;
        EXPECT_EQ(readText(m_directory / "f"), text) << to;
        EXPECT_EQ(readText(m_directory / to), text) << to;
    }
}

TEST_F(CopyFile, RelativePaths_StartAtTheWorkingDirectory) {
    writeText(m_directory / "from", "new");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(m_directory.path());

    const bool isCopied = telCopyFile("from", "to");

    std::filesystem::current_path(before);
    EXPECT_TRUE(isCopied);
    EXPECT_EQ(readText(m_directory / "to"), "new");
}

TEST_F(CopyFile, LongestName_IsCopied) {
    const std::string name(255, 'n');
    writeText(m_directory / "from", "new");

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / name));

    EXPECT_EQ(readText(m_directory / name), "new");
}

TEST_F(CopyFile, ProcFileWithoutSize_IsCopiedWhole) {
    EXPECT_TRUE(telCopyFile("/proc/version", m_directory / "to"));

    EXPECT_EQ(readText(m_directory / "to"), readText("/proc/version"));
    EXPECT_FALSE(readText(m_directory / "to").empty());
}

TEST_F(CopyFile, OtherFileSystem_IsCopiedWhole) {
    const std::string text = numberedText(200000);
    const std::string memory = "/dev/shm/kvecomn-test-" + std::to_string(getpid());
    writeText(memory, text);

    EXPECT_TRUE(telCopyFile(memory, m_directory / "to"));

    std::filesystem::remove(memory);
    EXPECT_EQ(readText(m_directory / "to"), text);
}

TEST_F(CopyFile, AnyOutcome_LeavesNoDescriptor) {
    writeText(m_directory / "from", "new");
    const std::size_t before = openDescriptors();

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to"));
    EXPECT_FALSE(telCopyFile(m_directory / "missing", m_directory / "to"));
    EXPECT_FALSE(telCopyFile(m_directory / "from", m_directory / "no/such"));

    EXPECT_EQ(openDescriptors(), before);
}

/// A failed copy: false, the old target, nothing beside it, one line with both names and the
/// reason.
void expectFailedCopy(const TestDirectory& directory, LogCapture& log, const std::string& from,
                      const std::string& to, const std::string& reason) {
    const std::vector<std::string> namesBefore = directory.names();
    log.lines.clear();

    EXPECT_FALSE(telCopyFile(from, to));

    EXPECT_THAT(directory.names(), testing::UnorderedElementsAreArray(namesBefore));
    EXPECT_THAT(log.lines, ElementsAre(AllOf(StartsWith("error kvecomn "), HasSubstr(from),
                                             HasSubstr(to), HasSubstr(reason))));
}

TEST_F(CopyFile, DiskFullOnTheWay_LeavesTheOldFile) {
    writeText(m_directory / "from", numberedText(1000000));
    writeText(m_directory / "to", "old");
    const FileSizeLimit limit(100000);

    expectFailedCopy(m_directory, m_log, m_directory / "from", m_directory / "to", "too large");

    EXPECT_EQ(readText(m_directory / "to"), "old");
}

TEST_F(CopyFile, DiskFullOnTheWayToANewFile_LeavesNothing) {
    writeText(m_directory / "from", numberedText(1000000));
    const FileSizeLimit limit(100000);

    expectFailedCopy(m_directory, m_log, m_directory / "from", m_directory / "to", "too large");
}

TEST_F(CopyFile, NoDescriptorLeftAtAnyStep_LeavesTheOldFile) {
    writeText(m_directory / "from", "new");
    writeText(m_directory / "to", "old");
    // UBSan opens a pipe when it meets a type for the first time; let it meet the errors now.
    EXPECT_FALSE(telCopyFile(m_directory / "from", m_directory / "no/such"));
    rlimit old{};
    getrlimit(RLIMIT_NOFILE, &old);
    // Without this many numbers nothing opens; with all of them the copy lands.
    bool isCopied = false;
    rlim_t free = 0;
    const int firstFree = dup(0);
    close(firstFree);
    for (; free < 32 && !isCopied; ++free) {
        EXPECT_EQ(readText(m_directory / "to"), "old");
        m_log.lines.clear();
        const rlimit limit{static_cast<rlim_t>(firstFree) + free, old.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
        isCopied = telCopyFile(m_directory / "from", m_directory / "to");
        setrlimit(RLIMIT_NOFILE, &old);
        EXPECT_EQ(m_log.lines.size(), isCopied ? 0U : 1U) << free;
        EXPECT_THAT(m_directory.names(), UnorderedElementsAre("from", "to"));
    }

    EXPECT_TRUE(isCopied);
    EXPECT_GT(free, 3U);
    EXPECT_EQ(readText(m_directory / "to"), "new");
}

TEST_F(CopyFile, SourceThatIsNoRegularFile_IsRefusedAndDoesNotHang) {
    writeText(m_directory / "to", "old");
    std::filesystem::create_directory(m_directory / "directory");
    ASSERT_EQ(mkfifo((m_directory / "fifo").c_str(), 0600), 0);

    expectFailedCopy(m_directory, m_log, m_directory / "directory", m_directory / "to",
                     "Is a directory");
    expectFailedCopy(m_directory, m_log, m_directory / "fifo", m_directory / "to", "regular file");
    expectFailedCopy(m_directory, m_log, "/dev/zero", m_directory / "to", "regular file");

    EXPECT_EQ(readText(m_directory / "to"), "old");
}

TEST_F(CopyFile, TargetThatCannotBe_IsRefused) {
    writeText(m_directory / "from", "new");
    std::filesystem::create_directory(m_directory / "directory");

    expectFailedCopy(m_directory, m_log, m_directory / "from", m_directory / "directory",
                     "Is a directory");
    expectFailedCopy(m_directory, m_log, m_directory / "from", m_directory / "new/",
                     "No such file");
    expectFailedCopy(m_directory, m_log, m_directory / "from", m_directory / "no/such",
                     "No such file");
    expectFailedCopy(m_directory, m_log, m_directory / "from", m_directory / "from/x",
                     "Not a directory");
    expectFailedCopy(m_directory, m_log, m_directory / "from", m_directory / std::string(256, 'n'),
                     "too long");
    expectFailedCopy(m_directory, m_log, m_directory / "from", "/proc/kvecomn-test", "");
}

TEST_F(CopyFile, DirectoryThatCannotBeWritten_LeavesTheOldFile) {
    // Root may write anywhere but to this file system.
    writeText(m_directory / "from", "new");

    expectFailedCopy(m_directory, m_log, m_directory / "from", "/proc/version", "");
}

TEST_F(CopyFile, SiblingsLeftByDeadProcesses_AreRemovedAndLiveOnesStay) {
    const std::string digits(32, 'a');
    const std::string live = m_directory / (".kvecomn-" + std::string(32, 'b'));
    const std::string changed = m_directory / (".kvecomn-" + std::string(32, 'c'));
    const std::string fifo = m_directory / (".kvecomn-" + std::string(32, 'd'));
    const std::string longer = m_directory / (".kvecomn-x" + digits);
    const std::string noDigits = m_directory / (".kvecomn-" + std::string(32, 'g'));
    const std::string from = m_directory / "from";
    for (const std::string& path :
         {m_directory / (".kvecomn-" + digits), live, changed, longer, noDigits, from}) {
        writeText(path, "part");
    }
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    // It died after it had given its file the owner of the old one.
    giveAway(changed);
    const int file = open(live.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(file, LOCK_EX), 0);

    EXPECT_TRUE(telCopyFile(from, m_directory / "to"));

    close(file);
    std::vector<std::string> left;
    for (const std::string& name : m_directory.names()) {
        left.push_back(m_directory / name);
    }
    EXPECT_THAT(left, UnorderedElementsAre(live, fifo, longer, noDigits, from, m_directory / "to"));
}

TEST_F(CopyFileShared, SiblingOfAnotherUser_IsLeftAlone) {
    m_directory.share();
    const std::string sibling = m_directory / (".kvecomn-" + std::string(32, 'a'));
    writeText(sibling, "part");
    writeText(m_directory / "from", "new");
    const bool isForeign = giveAway(sibling);

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to"));

    EXPECT_EQ(std::filesystem::exists(sibling), isForeign);
}

TEST_F(CopyFile, ManyThreadsOntoOneTarget_LeaveOneOfTheirFiles) {
    constexpr std::size_t kSize = 50000;
    const std::vector<std::string> texts{std::string(kSize, 'a'), std::string(kSize, 'b'),
                                         std::string(kSize, 'c')};
    writeText(m_directory / "to", texts[0]);
    std::atomic<bool> isDone{false};
    std::atomic<int> mixtures{0};
    std::thread reader([&] {
        while (!isDone) {
            const std::string seen = readText(m_directory / "to");
            mixtures += seen == texts[0] || seen == texts[1] || seen == texts[2] ? 0 : 1;
        }
    });
    std::vector<std::thread> writers;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        const std::string from = m_directory / std::to_string(i);
        writeText(from, texts[i]);
        writers.emplace_back([this, from] {
            for (int round = 0; round < 30; ++round) {
                EXPECT_TRUE(telCopyFile(from, m_directory / "to"));
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    isDone = true;
    reader.join();

    EXPECT_EQ(mixtures, 0);
    EXPECT_THAT(m_directory.names(), UnorderedElementsAre("to", "0", "1", "2"));
}

TEST_F(CopyFileSpecial, FullDevice_IsFalseWithOneLine) {
    writeText(m_directory / "from", "new");

    expectFailedCopy(m_directory, m_log, m_directory / "from", "/dev/full", "No space left");
}

TEST_F(CopyFileSpecial, NullDevice_StaysADevice) {
    writeText(m_directory / "from", "new");

    EXPECT_TRUE(telCopyFile(m_directory / "from", "/dev/null"));

    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(CopyFileSpecial, FifoWithReader_ReceivesTheContents) {
    const std::string fifo = m_directory / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string text = numberedText(300000);
    writeText(m_directory / "from", text);
    FifoEnd keepOpen(fifo, O_RDONLY);
    std::string received;
    std::thread reader([&] { received = readText(fifo); });

    EXPECT_TRUE(telCopyFile(m_directory / "from", fifo));

    char rest[1];
    reader.join();
    EXPECT_EQ(read(keepOpen.get(), rest, 1), 0);
    EXPECT_EQ(received, text);
    EXPECT_TRUE(std::filesystem::is_fifo(fifo));
}

TEST_F(CopyFileSpecial, FifoWithoutReader_IsFalseAndDoesNotHang) {
    const std::string fifo = m_directory / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    writeText(m_directory / "from", "new");

    expectFailedCopy(m_directory, m_log, m_directory / "from", fifo, "No such device");
    EXPECT_TRUE(std::filesystem::is_fifo(fifo));
}

TEST_F(CopyFileSpecial, Socket_IsRefused) {
    const std::string path = m_directory / "socket";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    writeText(m_directory / "from", "new");

    expectFailedCopy(m_directory, m_log, m_directory / "from", path, "");

    close(listener);
}

TEST_F(CopyFileSpecial, OpenPipeBehindProc_ReceivesTheContents) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    writeText(m_directory / "from", "new");

    EXPECT_TRUE(telCopyFile(m_directory / "from", "/proc/self/fd/" + std::to_string(ends[1])));

    close(ends[1]);
    char buffer[10];
    EXPECT_EQ(read(ends[0], buffer, sizeof buffer), 3);
    close(ends[0]);
}

TEST_F(CopyFileSpecial, OpenFileBehindProc_IsReplacedUnderItsName) {
    writeText(m_directory / "from", "new");
    writeText(m_directory / "to", "old");
    const int file = open((m_directory / "to").c_str(), O_RDONLY | O_CLOEXEC);
    const std::string link = "/proc/self/fd/" + std::to_string(file);

    EXPECT_TRUE(telCopyFile(m_directory / "from", link));
    EXPECT_EQ(readText(m_directory / "to"), "new");
    expectFailedCopy(m_directory, m_log, m_directory / "from", link, "no name");

    close(file);
}

TEST_F(CopyFileShared, NewTarget_IsForItsOwnerOnly) {
    m_directory.share();
    const FileModeMask mask(0);
    writeText(m_directory / "from", "new");

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to"));

    EXPECT_EQ(modeOf(m_directory / "to"), 0600U);
}

TEST_F(CopyFileShared, OwnTarget_KeepsItsMode) {
    m_directory.share();
    writeText(m_directory / "from", "new");
    writeText(m_directory / "to", "old");
    chmod((m_directory / "to").c_str(), 0640);

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "to"));

    EXPECT_EQ(modeOf(m_directory / "to"), 0640U);
    EXPECT_EQ(readText(m_directory / "to"), "new");
}

TEST_F(CopyFileShared, LinkOfAnotherUserAtTarget_IsNotFollowed) {
    m_directory.share();
    const TestDirectory elsewhere;
    writeText(m_directory / "from", "new");
    writeText(elsewhere / "f", "old");
    std::filesystem::create_symlink(elsewhere / "f", m_directory / "link");
    const bool isForeign = giveAway(m_directory / "link");

    EXPECT_EQ(telCopyFile(m_directory / "from", m_directory / "link"), !isForeign);

    EXPECT_EQ(readText(elsewhere / "f"), isForeign ? "old" : "new");
    EXPECT_TRUE(std::filesystem::is_symlink(m_directory / "link"));
    EXPECT_EQ(m_log.lines.size(), isForeign ? 1U : 0U);
}

TEST_F(CopyFileShared, OwnLinkAtTarget_IsFollowed) {
    m_directory.share();
    const TestDirectory elsewhere;
    writeText(m_directory / "from", "new");
    std::filesystem::create_symlink(elsewhere / "f", m_directory / "link");

    EXPECT_TRUE(telCopyFile(m_directory / "from", m_directory / "link"));

    EXPECT_EQ(readText(elsewhere / "f"), "new");
}

TEST_F(CopyFileShared, LinkOfAnotherUserAtSource_IsNotFollowed) {
    m_directory.share();
    const TestDirectory elsewhere;
    writeText(elsewhere / "secret", "secret");
    std::filesystem::create_symlink(elsewhere / "secret", m_directory / "from");
    const bool isForeign = giveAway(m_directory / "from");

    EXPECT_EQ(telCopyFile(m_directory / "from", elsewhere / "to"), !isForeign);

    EXPECT_EQ(std::filesystem::exists(elsewhere / "to"), !isForeign);
}

TEST_F(CopyFileShared, FileOfAnotherUserAtTarget_IsNotReplaced) {
    m_directory.share();
    writeText(m_directory / "from", "new");
    writeText(m_directory / "to", "old");
    const bool isForeign = giveAway(m_directory / "to");

    EXPECT_EQ(telCopyFile(m_directory / "from", m_directory / "to"), !isForeign);

    EXPECT_EQ(readText(m_directory / "to"), isForeign ? "old" : "new");
}

TEST_F(CopyFileShared, HardLinkAtTarget_LendsNeitherModeNorContents) {
    m_directory.share();
    const TestDirectory elsewhere;
    writeText(m_directory / "from", "new");
    writeText(elsewhere / "tool", "old");
    chmod((elsewhere / "tool").c_str(), 04755);
    std::filesystem::create_hard_link(elsewhere / "tool", m_directory / "to");

    expectFailedCopy(m_directory, m_log, m_directory / "from", m_directory / "to", "second name");

    EXPECT_EQ(readText(elsewhere / "tool"), "old");
}

TEST_F(CopyFileShared, FifoAtEitherEnd_IsRefusedAndDoesNotHang) {
    m_directory.share();
    const std::string fifo = m_directory / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    const FifoEnd reader(fifo, O_RDONLY);
    writeText(m_directory / "from", "new");

    expectFailedCopy(m_directory, m_log, m_directory / "from", fifo, "regular file");
    expectFailedCopy(m_directory, m_log, fifo, m_directory / "to", "regular file");
}

}  // namespace
