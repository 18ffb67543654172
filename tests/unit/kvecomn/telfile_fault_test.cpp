// The file functions when single system calls fail, are interrupted, or are the last that the
// process makes. The calls are replaced by the definitions below, which the library finds first.

#include "kvecomn/telfile.h"
#include "testsupport.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/random.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <functional>
#include <iterator>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace {

/// What happens to the calls of this thread; only tests set it.
struct FaultPlan {
    bool isActive = false;
    /// Openat2 is refused (EPERM), as filters of system calls do that do not know it.
    bool isWithoutOpenat2 = false;
    /// The call that fails, counted from 0; -1: none.
    int failing = -1;
    /// errno of the failing call, or SIGKILL's number with `kills`.
    int error = 0;
    bool kills = false;
    /// Fails all calls of this name instead of one by number.
    std::string name;
    /// Cuts every count of bytes down to this, when not 0.
    std::size_t mostBytes = 0;
    /// Somebody else's work just before a call of this name.
    std::string interveningName;
    std::function<void()> intervention;
    std::vector<std::string> calls;
};

FaultPlan plan;

/// Whether the present call has to fail; errno is set then.
bool failsNow(const char* name) {
    if (!plan.isActive) {
        return false;
    }
    const int number = static_cast<int>(plan.calls.size());
    plan.calls.emplace_back(name);
    if (plan.interveningName == name) {
        plan.isActive = false;
        plan.intervention();
        plan.isActive = true;
    }
    if (number != plan.failing && plan.name != name) {
        return false;
    }
    if (plan.kills) {
        kill(getpid(), SIGKILL);
    }
    errno = plan.error;
    return true;
}

std::size_t shortened(std::size_t size) {
    return plan.isActive && plan.mostBytes != 0 ? std::min(size, plan.mostBytes) : size;
}

template <typename Function>
Function* realFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The system's declarations have reserved names for their parameters.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    static auto* const kReal = realFunction<int(int, const char*, int, ...)>("openat64");
    return failsNow("openat") ? -1 : kReal(directory, path, flags, mode);
}

/// Openat2 has no function in the C library.
long syscall(long number, ...) noexcept {
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long& argument : arguments) {
        argument = va_arg(list, long);
    }
    va_end(list);
    static auto* const kReal = realFunction<long(long, ...)>("syscall");
    if (number == SYS_openat2 && plan.isActive && plan.isWithoutOpenat2) {
        errno = EPERM;
        return -1;
    }
    if (number == SYS_openat2 && failsNow("openat2")) {
        return -1;
    }
    return kReal(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                 arguments[5]);
}

int fstat(int file, struct stat* status) noexcept {
    static auto* const kReal = realFunction<int(int, struct stat*)>("fstat64");
    return failsNow("fstat") ? -1 : kReal(file, status);
}

int fstatat(int directory, const char* path, struct stat* status, int flags) noexcept {
    static auto* const kReal = realFunction<int(int, const char*, struct stat*, int)>("fstatat64");
    return failsNow("fstatat") ? -1 : kReal(directory, path, status, flags);
}

int fstatfs(int file, struct statfs* status) noexcept {
    static auto* const kReal = realFunction<int(int, struct statfs*)>("fstatfs64");
    return failsNow("fstatfs") ? -1 : kReal(file, status);
}

ssize_t readlinkat(int directory, const char* path, char* text, std::size_t size) noexcept {
    static auto* const kReal =
        realFunction<ssize_t(int, const char*, char*, std::size_t)>("readlinkat");
    return failsNow("readlinkat") ? -1 : kReal(directory, path, text, size);
}

int fcntl(int file, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    static auto* const kReal = realFunction<int(int, int, ...)>("fcntl64");
    return failsNow("fcntl") ? -1 : kReal(file, command, argument);
}

int ioctl(int file, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    static auto* const kReal = realFunction<int(int, unsigned long, ...)>("ioctl");
    return failsNow("ioctl") ? -1 : kReal(file, request, argument);
}

ssize_t read(int file, void* buffer, std::size_t size) {
    static auto* const kReal = realFunction<ssize_t(int, void*, std::size_t)>("read");
    return failsNow("read") ? -1 : kReal(file, buffer, shortened(size));
}

ssize_t write(int file, const void* buffer, std::size_t size) {
    static auto* const kReal = realFunction<ssize_t(int, const void*, std::size_t)>("write");
    return failsNow("write") ? -1 : kReal(file, buffer, shortened(size));
}

ssize_t copy_file_range(int in, off_t* inOffset, int out, off_t* outOffset, std::size_t size,
                        unsigned flags) {
    static auto* const kReal =
        realFunction<ssize_t(int, off_t*, int, off_t*, std::size_t, unsigned)>("copy_file_range");
    return failsNow("copy_file_range")
               ? -1
               : kReal(in, inOffset, out, outOffset, shortened(size), flags);
}

ssize_t sendfile(int out, int in, off_t* offset, std::size_t size) noexcept {
    static auto* const kReal = realFunction<ssize_t(int, int, off_t*, std::size_t)>("sendfile64");
    return failsNow("sendfile") ? -1 : kReal(out, in, offset, shortened(size));
}

int ftruncate(int file, off_t size) noexcept {
    static auto* const kReal = realFunction<int(int, off_t)>("ftruncate64");
    return failsNow("ftruncate") ? -1 : kReal(file, size);
}

off_t lseek(int file, off_t offset, int origin) noexcept {
    static auto* const kReal = realFunction<off_t(int, off_t, int)>("lseek64");
    return failsNow("lseek") ? -1 : kReal(file, offset, origin);
}

int fchmod(int file, mode_t mode) noexcept {
    static auto* const kReal = realFunction<int(int, mode_t)>("fchmod");
    return failsNow("fchmod") ? -1 : kReal(file, mode);
}

int fchown(int file, uid_t owner, gid_t group) noexcept {
    static auto* const kReal = realFunction<int(int, uid_t, gid_t)>("fchown");
    return failsNow("fchown") ? -1 : kReal(file, owner, group);
}

int fdatasync(int file) {
    static auto* const kReal = realFunction<int(int)>("fdatasync");
    return failsNow("fdatasync") ? -1 : kReal(file);
}

int fsync(int file) {
    static auto* const kReal = realFunction<int(int)>("fsync");
    return failsNow("fsync") ? -1 : kReal(file);
}

int syncfs(int file) noexcept {
    static auto* const kReal = realFunction<int(int)>("syncfs");
    return failsNow("syncfs") ? -1 : kReal(file);
}

int flock(int file, int operation) noexcept {
    static auto* const kReal = realFunction<int(int, int)>("flock");
    return failsNow("flock") ? -1 : kReal(file, operation);
}

ssize_t getrandom(void* buffer, std::size_t size, unsigned flags) {
    static auto* const kReal = realFunction<ssize_t(void*, std::size_t, unsigned)>("getrandom");
    return failsNow("getrandom") ? -1 : kReal(buffer, shortened(size), flags);
}

int renameat(int fromDirectory, const char* from, int toDirectory, const char* to) noexcept {
    static auto* const kReal = realFunction<int(int, const char*, int, const char*)>("renameat");
    return failsNow("renameat") ? -1 : kReal(fromDirectory, from, toDirectory, to);
}

ssize_t getdents64(int file, void* buffer, std::size_t size) noexcept {
    static auto* const kReal = realFunction<ssize_t(int, void*, std::size_t)>("getdents64");
    return failsNow("getdents64") ? -1 : kReal(file, buffer, size);
}

int unlinkat(int directory, const char* path, int flags) noexcept {
    static auto* const kReal = realFunction<int(int, const char*, int)>("unlinkat");
    return failsNow("unlinkat") ? -1 : kReal(directory, path, flags);
}

int close(int file) {
    static auto* const kReal = realFunction<int(int)>("close");
    if (!failsNow("close")) {
        return kReal(file);
    }
    // As in the kernel, the number is free whatever the answer.
    const int error = errno;
    kReal(file);
    errno = error;
    return -1;
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

constexpr int kMostCalls = 1000;

/// Puts a plan into force while it lives.
class ActivePlan {
  public:
    explicit ActivePlan(FaultPlan next) {
        next.isActive = true;
        plan = std::move(next);
    }
    ~ActivePlan() { plan.isActive = false; }
    ActivePlan(const ActivePlan&) = delete;
    ActivePlan& operator=(const ActivePlan&) = delete;
};

std::size_t openDescriptors() {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count += entry.path().empty() ? 0U : 1U;
    }
    return count;
}

/// Whether the kernel below these tests knows openat2; emulators may not.
bool hasOpenat2() {
    const std::uint64_t how[3] = {O_PATH | O_CLOEXEC, 0, 0};
    const auto file = static_cast<int>(syscall(SYS_openat2, AT_FDCWD, "/", how, sizeof how));
    if (file >= 0) {
        close(file);
    }
    return file >= 0;
}

int countOf(const char* name) {
    return static_cast<int>(std::count(plan.calls.begin(), plan.calls.end(), name));
}

FaultPlan failingCall(int number, int error) {
    FaultPlan next;
    next.failing = number;
    next.error = error;
    return next;
}

FaultPlan failingName(const char* name, int error) {
    FaultPlan next;
    next.name = name;
    next.error = error;
    return next;
}

/// A copy over an old file that lies behind a link, with a mode of its own.
class CopyFault : public testing::Test {
  protected:
    CopyFault() {
        writeText(m_directory / "from", m_new);
        std::filesystem::create_symlink("target", m_directory / "to");
        restore();
    }

    void restore() {
        std::filesystem::remove(m_directory / "target");
        writeText(m_directory / "target", m_old);
        chmod((m_directory / "target").c_str(), 0640);
        giveAway(m_directory / "target");
        m_log.lines.clear();
    }

    bool copyWith(const FaultPlan& next) {
        const ActivePlan active(next);
        return telCopyFile(m_directory / "from", m_directory / "to");
    }

    void expectNothingBeside() {
        EXPECT_THAT(m_directory.names(), UnorderedElementsAre("from", "to", "target"));
        EXPECT_TRUE(std::filesystem::is_symlink(m_directory / "to"));
    }

    TestDirectory m_directory;
    LogCapture m_log;
    const std::string m_old = numberedText(3000);
    const std::string m_new = std::string(200000, 'n') + numberedText(70001);
};

/// The error, and whether the kernel follows whole paths.
class CopyFaultError : public CopyFault,
                       public testing::WithParamInterface<std::tuple<int, bool>> {};

TEST_P(CopyFaultError, AtEveryCall_TargetIsOldWithOneLineOrNew) {
    const std::size_t descriptors = openDescriptors();
    int failures = 0;
    int number = 0;
    for (; number < kMostCalls; ++number) {
        restore();
        FaultPlan next = failingCall(number, std::get<int>(GetParam()));
        next.isWithoutOpenat2 = !std::get<bool>(GetParam());
        const bool isCopied = copyWith(next);
        const std::string failed = plan.calls.size() > static_cast<std::size_t>(number)
                                       ? plan.calls[static_cast<std::size_t>(number)]
                                       : "";
        EXPECT_EQ(readText(m_directory / "target"), isCopied ? m_new : m_old) << failed;
        EXPECT_EQ(modeOf(m_directory / "target"), 0640U) << failed;
        EXPECT_EQ(m_log.lines.size(), isCopied && failed != "fsync" ? 0U : 1U) << failed;
        expectNothingBeside();
        failures += isCopied ? 0 : 1;
        if (failed.empty()) {
            EXPECT_TRUE(isCopied);
            break;
        }
    }
    EXPECT_LT(number, kMostCalls);
    EXPECT_GT(failures, 15);
    EXPECT_EQ(openDescriptors(), descriptors);
}

INSTANTIATE_TEST_SUITE_P(Errors, CopyFaultError,
                         testing::Combine(testing::Values(EIO, ENOSPC, EDQUOT, EROFS),
                                          testing::Bool()));

class PathFault : public CopyFault, public testing::WithParamInterface<bool> {
  protected:
    static FaultPlan planFor(int number, int error) {
        FaultPlan next = failingCall(number, error);
        next.isWithoutOpenat2 = !GetParam();
        return next;
    }
};

TEST_P(PathFault, InterruptionAtEveryCall_ChangesNothing) {
    int number = 0;
    for (; number < kMostCalls; ++number) {
        restore();
        EXPECT_TRUE(copyWith(planFor(number, EINTR))) << plan.calls[plan.calls.size() - 1];
        EXPECT_EQ(readText(m_directory / "target"), m_new);
        EXPECT_THAT(m_log.lines, testing::IsEmpty());
        expectNothingBeside();
        if (plan.calls.size() <= static_cast<std::size_t>(number)) {
            break;
        }
    }
    EXPECT_GT(number, 20);
    EXPECT_LT(number, kMostCalls);
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutOpenat2, PathFault, testing::Bool());

/// The same with a file that begins with a hole.
class SparseCopyFault : public CopyFault {
  protected:
    SparseCopyFault() {
        std::ofstream file(m_directory / "from", std::ios::binary);
        file.seekp(kHoleSize);
        file << m_new;
    }

    static constexpr std::size_t kHoleSize = std::size_t{1} << 20;
    const std::string m_sparse = std::string(kHoleSize, '\0') + m_new;
};

TEST_F(SparseCopyFault, AtEveryCall_TargetIsOldOrNew) {
    int seeks = 0;
    int number = 0;
    for (; number < kMostCalls; ++number) {
        restore();
        const bool isCopied = copyWith(failingCall(number, EIO));
        EXPECT_EQ(readText(m_directory / "target"), isCopied ? m_sparse : m_old) << number;
        expectNothingBeside();
        if (plan.calls.size() <= static_cast<std::size_t>(number)) {
            break;
        }
        const std::string& failed = plan.calls[static_cast<std::size_t>(number)];
        const bool isSeek = failed == "lseek" || failed == "ftruncate";
        EXPECT_FALSE(isSeek && isCopied) << failed;
        seeks += isSeek ? 1 : 0;
    }
    EXPECT_LT(number, kMostCalls);
    EXPECT_GE(seeks, 5);
}

TEST_F(CopyFault, WaysOfTheKernelThatAreMissing_FallBackToTheNext) {
    for (const int error : {ENOSYS, EXDEV, EINVAL, EOPNOTSUPP, EPERM, ENOTTY}) {
        for (const char* name : {"ioctl", "copy_file_range", "sendfile"}) {
            restore();
            EXPECT_TRUE(copyWith(failingName(name, error))) << name << ' ' << error;
            EXPECT_EQ(readText(m_directory / "target"), m_new) << name << ' ' << error;
        }
    }
}

TEST_F(CopyFault, WayThatBreaksOffInTheMiddle_GoesOnWhereItStopped) {
    // The first parts are moved by the kernel; later calls of each kind are refused in turn.
    FaultPlan counting;
    counting.mostBytes = 1000;
    copyWith(counting);
    const std::vector<std::string> calls = plan.calls;
    int refused = 0;
    for (std::size_t i = 0; i < calls.size(); i += 7) {
        if (calls[i] == "copy_file_range" || calls[i] == "sendfile") {
            restore();
            FaultPlan next = failingCall(static_cast<int>(i), EXDEV);
            next.mostBytes = 1000;
            EXPECT_TRUE(copyWith(next));
            EXPECT_EQ(readText(m_directory / "target"), m_new) << i;
            ++refused;
        }
    }
    EXPECT_GT(refused, 10);
}

TEST_F(CopyFault, ShortCountsEverywhere_AreCompleted) {
    for (const std::size_t most : {7U, 1000U, 65535U}) {
        for (const char* name : {"", "copy_file_range"}) {
            restore();
            FaultPlan next = failingName(name, ENOSYS);
            next.mostBytes = most;
            EXPECT_TRUE(copyWith(next));
            EXPECT_EQ(readText(m_directory / "target"), m_new) << most << name;
        }
    }
}

TEST_F(CopyFault, OwnerThatCannotBeKept_TakesTheSetIdBitsAlong) {
    chmod((m_directory / "target").c_str(), 06755);
    struct stat before {};
    stat((m_directory / "target").c_str(), &before);
    const bool isForeign = before.st_uid != geteuid();

    EXPECT_TRUE(copyWith(failingName("fchown", EPERM)));

    EXPECT_EQ(modeOf(m_directory / "target"), isForeign ? 0755U : 06755U);
}

TEST_F(CopyFault, DirectoryThatCannotBeFlushed_IsTrueWithOneLine) {
    EXPECT_TRUE(copyWith(failingName("fsync", EIO)));

    EXPECT_EQ(readText(m_directory / "target"), m_new);
    EXPECT_THAT(m_log.lines, ElementsAre(testing::AllOf(HasSubstr(m_directory / "from"),
                                                        HasSubstr(m_directory / "to"),
                                                        HasSubstr("Input/output"))));
}

TEST_F(CopyFault, FileSystemWithoutFlush_IsNoError) {
    EXPECT_TRUE(copyWith(failingName("fsync", EINVAL)));
    EXPECT_TRUE(copyWith(failingName("fdatasync", EINVAL)));
    EXPECT_THAT(m_log.lines, testing::IsEmpty());
}

TEST_F(CopyFault, FileSystemWithoutLocks_IsNoError) {
    EXPECT_TRUE(copyWith(failingName("flock", ENOLCK)));
    EXPECT_THAT(m_log.lines, testing::IsEmpty());
}

TEST_F(CopyFault, LockedByAnotherEachTime_FailsAndLeavesNothing) {
    EXPECT_FALSE(copyWith(failingName("flock", EWOULDBLOCK)));
    EXPECT_EQ(m_log.lines.size(), 1U);
    expectNothingBeside();
}

TEST_F(CopyFault, DataLostAtClose_LeavesTheOldFile) {
    // The first copy looks for left siblings; the second shows the calls that the third will make.
    copyWith({});
    restore();
    copyWith({});
    const auto rename = std::find(plan.calls.begin(), plan.calls.end(), "renameat");
    const auto close = std::find(std::make_reverse_iterator(rename), plan.calls.rend(), "close");
    ASSERT_NE(close, plan.calls.rend());
    const auto number = static_cast<int>(plan.calls.rend() - close - 1);
    restore();

    EXPECT_FALSE(copyWith(failingCall(number, EDQUOT)));

    EXPECT_EQ(plan.calls[static_cast<std::size_t>(number)], "close");
    EXPECT_EQ(readText(m_directory / "target"), m_old);
    EXPECT_THAT(m_log.lines, ElementsAre(HasSubstr("close: ")));
    expectNothingBeside();
}

std::size_t positionOf(const char* name) {
    const auto found = std::find(plan.calls.begin(), plan.calls.end(), name);
    return static_cast<std::size_t>(found - plan.calls.begin());
}

TEST_F(CopyFault, Storage_GetsContentsBeforeTheRenameAndDirectoryAfterIt) {
    EXPECT_TRUE(copyWith({}));

    EXPECT_LT(positionOf("fdatasync"), positionOf("renameat"));
    EXPECT_LT(positionOf("renameat"), positionOf("fsync"));
    EXPECT_LT(positionOf("fsync"), plan.calls.size());
}

TEST_F(CopyFault, TemporaryDirectory_IsNotFlushed) {
    const std::string to = "/tmp/kvecomn-test-" + std::to_string(getpid());
    bool isCopied = false;
    {
        const ActivePlan active({});
        isCopied = telCopyFile(m_directory / "from", to);
    }
    std::filesystem::remove(to);

    EXPECT_TRUE(isCopied);
    EXPECT_EQ(positionOf("fdatasync"), plan.calls.size());
    EXPECT_EQ(positionOf("fsync"), plan.calls.size());
    EXPECT_LT(positionOf("renameat"), plan.calls.size());
}

TEST_F(CopyFault, SmallCopy_TakesFewCalls) {
    // Older kernels follow the paths in three calls for each part.
    const std::size_t walks = hasOpenat2() ? 0 : 40;
    std::filesystem::create_directories(m_directory / "a/b/c");
    writeText(m_directory / "small", numberedText(4096));
    const auto callsOfCopy = [this] {
        const ActivePlan active({});
        EXPECT_TRUE(telCopyFile(m_directory / "small", m_directory / "a/b/c/to"));
        return plan.calls.size();
    };

    const std::size_t first = callsOfCopy();
    const std::size_t over = callsOfCopy();

    EXPECT_LE(first, 19U + walks);
    EXPECT_LE(over, 18U + walks);
    EXPECT_EQ(readText(m_directory / "a/b/c/to"), numberedText(4096));
}

TEST_F(CopyFault, FileThatGrowsMeanwhile_IsCopiedToItsEnd) {
    for (const std::size_t size : {10U, 5000U, 270001U}) {
        for (const char* name : {"ioctl", "copy_file_range", "sendfile", "read"}) {
            restore();
            writeText(m_directory / "from", numberedText(size));
            // The later ways are only tried where the earlier ones are missing.
            FaultPlan next =
                failingName(name == std::string("sendfile") ? "copy_file_range" : "", EXDEV);
            next.interveningName = name;
            next.intervention = [this] {
                plan.interveningName.clear();
                std::ofstream(m_directory / "from", std::ios::app) << "more";
            };
            EXPECT_TRUE(copyWith(next));
            EXPECT_EQ(readText(m_directory / "target"), readText(m_directory / "from"))
                << size << name;
        }
    }
}

TEST_F(SparseCopyFault, FileThatIsMadeShorterMeanwhile_EndsWhereItEnds) {
    restore();
    FaultPlan next;
    next.interveningName = "copy_file_range";
    next.intervention = [this] {
        std::filesystem::resize_file(m_directory / "from", kHoleSize + 1000);
    };

    EXPECT_TRUE(copyWith(next));

    EXPECT_EQ(readText(m_directory / "target"), m_sparse.substr(0, kHoleSize + 1000));
}

/// What a process does that takes the sibling for left: its maker has just closed it.
void removeSiblingsIn(const TestDirectory& directory) {
    for (const std::string& name : directory.names()) {
        if (name.find(".kvecomn-") == 0) {
            std::filesystem::remove(directory / name);
        }
    }
}

TEST_F(CopyFault, SiblingTakenForLeftBeforeTheRename_IsMadeAnew) {
    FaultPlan next;
    next.interveningName = "renameat";
    next.intervention = [this] {
        plan.interveningName.clear();
        removeSiblingsIn(m_directory);
    };

    EXPECT_TRUE(copyWith(next));

    EXPECT_EQ(countOf("renameat"), 2);
    EXPECT_EQ(readText(m_directory / "target"), m_new);
    EXPECT_EQ(modeOf(m_directory / "target"), 0640U);
    EXPECT_THAT(m_log.lines, testing::IsEmpty());
    expectNothingBeside();
}

TEST_F(CopyFault, SiblingTakenEachTime_FailsAndLeavesTheOldFile) {
    FaultPlan next;
    next.interveningName = "renameat";
    next.intervention = [this] { removeSiblingsIn(m_directory); };

    EXPECT_FALSE(copyWith(next));

    EXPECT_EQ(readText(m_directory / "target"), m_old);
    EXPECT_THAT(m_log.lines, ElementsAre(HasSubstr("rename: ")));
    expectNothingBeside();
}

TEST_F(CopyFault, DirectoryThatMayNotBeRead_IsBroughtToStorageWithItsFileSystem) {
    const std::string closed = m_directory / "closed";
    ASSERT_EQ(mkdir(closed.c_str(), 0300), 0);
    giveAway(closed);
    chmod(m_directory.path().c_str(), 0711);
    const pid_t child = fork();
    if (child == 0) {
        // Root may read everything.
        struct stat status {};
        stat(closed.c_str(), &status);
        const bool isReady = geteuid() != 0 || setresuid(status.st_uid, status.st_uid, 0) == 0;
        const ActivePlan active({});
        const bool isCopied = telCopyFile("/proc/version", closed + "/to");
        _exit(isReady && isCopied && countOf("syncfs") == 1 && countOf("fsync") == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);

    EXPECT_EQ(status, 0);
    EXPECT_EQ(readText(closed + "/to"), readText("/proc/version"));
    chmod(closed.c_str(), 0700);
}

/// A name in the temporary directory, removed at the end.
class TemporaryName {
  public:
    TemporaryName() = default;
    ~TemporaryName() { std::filesystem::remove(path); }
    TemporaryName(const TemporaryName&) = delete;
    TemporaryName& operator=(const TemporaryName&) = delete;

    const std::string path = "/tmp/kvecomn-test-" + std::to_string(getpid());
};

TEST_F(CopyFault, LinkFromTheTemporaryDirectory_IsFlushedWhereItLeads) {
    for (const bool isOpenFile : {false, true}) {
        const int file = open((m_directory / "target").c_str(), O_RDONLY | O_CLOEXEC);
        const TemporaryName link;
        std::filesystem::create_symlink(
            isOpenFile ? "/proc/self/fd/" + std::to_string(file) : m_directory / "target",
            link.path);
        {
            const ActivePlan active({});
            EXPECT_TRUE(telCopyFile(m_directory / "from", link.path));
        }
        close(file);
        EXPECT_EQ(countOf("fdatasync"), 1) << isOpenFile;
        EXPECT_EQ(countOf("fsync"), 1) << isOpenFile;
    }
}

/// Copies in a process of its own; returns its wait status.
int copyInChild(const std::string& from, const std::string& to, const FaultPlan& next) {
    const pid_t child = fork();
    if (child == 0) {
        const ActivePlan active(next);
        _exit(telCopyFile(from, to) ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

TEST_P(PathFault, DeathAtEveryCall_LeavesOldOrNewAndTheNextRunCleansUp) {
    int deaths = 0;
    bool wasLeftBehind = false;
    for (int number = 0; number < kMostCalls; ++number) {
        restore();
        FaultPlan next = planFor(number, 0);
        next.kills = true;
        const int status = copyInChild(m_directory / "from", m_directory / "to", next);
        const std::string seen = readText(m_directory / "target");
        EXPECT_TRUE(seen == m_old || seen == m_new) << number;
        wasLeftBehind = wasLeftBehind || m_directory.names().size() > 3;
        if (!WIFSIGNALED(status)) {
            EXPECT_EQ(status, 0);
            EXPECT_EQ(seen, m_new);
            break;
        }
        ++deaths;
        EXPECT_EQ(copyInChild(m_directory / "from", m_directory / "to", {}), 0);
        EXPECT_EQ(readText(m_directory / "target"), m_new);
        expectNothingBeside();
    }
    EXPECT_GT(deaths, 20);
    EXPECT_TRUE(wasLeftBehind);
}

class FileFault : public testing::Test {
  protected:
    telHandle openWith(const FaultPlan& next, std::uint32_t disposition) {
        const ActivePlan active(next);
        return telCreateFileAW(m_directory / "f", telGenericRead | telGenericWrite, telShareNone,
                               disposition, telAttributeNormal);
    }

    TestDirectory m_directory;
    LogCapture m_log;
};

class OpenFault : public FileFault, public testing::WithParamInterface<bool> {
  protected:
    static FaultPlan planFor(int number, int error) {
        FaultPlan next = failingCall(number, error);
        next.isWithoutOpenat2 = !GetParam();
        return next;
    }
};

TEST_P(OpenFault, ErrorAtEveryCall_IsNullWithOneLineOrWhole) {
    for (const std::uint32_t disposition : {telCreateAlways, telOpenAlways, telOpenExisting}) {
        int failures = 0;
        for (int number = 0;; ++number) {
            ASSERT_LT(number, kMostCalls);
            writeText(m_directory / "f", "old");
            m_log.lines.clear();
            const std::size_t descriptors = openDescriptors();
            TelFile* const file = openWith(planFor(number, EIO), disposition);
            const bool isDone = plan.calls.size() <= static_cast<std::size_t>(number);
            failures += file == nullptr ? 1 : 0;
            EXPECT_EQ(m_log.lines.size(), file == nullptr ? 1U : 0U);
            telCloseHandle(file);
            EXPECT_EQ(openDescriptors(), descriptors);
            if (isDone) {
                EXPECT_NE(file, nullptr);
                break;
            }
        }
        // Where the kernel follows the path there are few calls, and one of them has a substitute.
        EXPECT_GT(failures, GetParam() ? 0 : 5);
    }
}

TEST_P(OpenFault, InterruptionAtEveryCall_ChangesNothing) {
    for (int number = 0;; ++number) {
        ASSERT_LT(number, kMostCalls);
        TelFile* const file = openWith(planFor(number, EINTR), telCreateAlways);
        const bool isDone = plan.calls.size() <= static_cast<std::size_t>(number);
        EXPECT_NE(file, nullptr);
        telCloseHandle(file);
        if (isDone) {
            break;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutOpenat2, OpenFault, testing::Bool());

TEST_F(FileFault, ExistingFile_IsOpenedInFewCalls) {
    writeText(m_directory / "f", "old");

    telCloseHandle(openWith({}, telOpenExisting));

    if (hasOpenat2()) {
        EXPECT_THAT(plan.calls, ElementsAre("openat2", "fstat"));
    } else {
        EXPECT_EQ(countOf("openat2"), 1);
        EXPECT_EQ(countOf("fstatat"), 3);
    }
}

TEST_F(FileFault, KernelWithoutOpenat2_IsAskedOnce) {
    writeText(m_directory / "f", "old");
    const pid_t child = fork();
    if (child == 0) {
        // What the process learns stays in it.
        TelFile* const first = openWith(failingName("openat2", ENOSYS), telOpenExisting);
        const int firstQuestions = countOf("openat2");
        TelFile* const second = openWith({}, telOpenExisting);
        const bool isRight = first != nullptr && second != nullptr && firstQuestions == 1 &&
                             countOf("openat2") == 0 && countOf("fstatat") > 0;
        _exit(isRight ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);

    EXPECT_EQ(status, 0);
}

TEST_F(FileFault, FilterThatRefusesOpenat2_LeavesTheWalk) {
    writeText(m_directory / "f", "old");

    TelFile* const file = openWith(failingName("openat2", EPERM), telOpenExisting);

    EXPECT_NE(file, nullptr);
    EXPECT_GT(countOf("fstatat"), 2);
    telCloseHandle(file);
}

TEST_F(FileFault, Fifo_IsOpenedOnce) {
    ASSERT_EQ(mkfifo((m_directory / "f").c_str(), 0600), 0);

    TelFile* const file = openWith({}, telOpenExisting);

    EXPECT_NE(file, nullptr);
    if (hasOpenat2()) {
        // The file and its directory.
        EXPECT_EQ(countOf("openat2"), 2);
        EXPECT_EQ(countOf("openat"), 0);
    }
    EXPECT_EQ(countOf("fcntl"), 2) << "it may not wait";
    telCloseHandle(file);
}

TEST_F(FileFault, FileThatMayWait_IsAllowedTo) {
    writeText(m_directory / "full", "old");
    writeText(m_directory / "empty", "");
    const auto isAllowed = [](const std::string& path, std::uint32_t access) {
        const ActivePlan active({});
        telCloseHandle(
            telCreateFileAW(path, access, telShareNone, telOpenExisting, telAttributeNormal));
        return countOf("fcntl") == 2;
    };

    // Some files of the proc file system wait for news. They are empty by their size.
    EXPECT_TRUE(isAllowed("/proc/version", telGenericRead));
    EXPECT_TRUE(isAllowed("/dev/null", telGenericRead));
    EXPECT_TRUE(isAllowed("/dev/null", telGenericWrite));
    EXPECT_FALSE(isAllowed(m_directory / "full", telGenericRead));
    EXPECT_FALSE(isAllowed(m_directory / "empty", telGenericWrite));
}

TEST_F(FileFault, FileThatIsReplacedBetweenTwoLooks_IsTheNewOne) {
    // It is no file that may be used anywhere, so its directory is looked at as well.
    ASSERT_EQ(mkfifo((m_directory / "f").c_str(), 0600), 0);
    FaultPlan next;
    next.interveningName = "fstatat";
    next.intervention = [this] {
        std::filesystem::remove(m_directory / "f");
        writeText(m_directory / "f", "new");
    };

    TelFile* const file = openWith(next, telOpenExisting);

    char text[4] = {};
    EXPECT_EQ(telReadFile(file, text, sizeof text), 3U);
    EXPECT_STREQ(text, "new");
    telCloseHandle(file);
}

TEST_F(FileFault, CloseThatLosesData_IsFalseAndAnInterruptedOneIsNot) {
    for (const int error : {EIO, ENOSPC, EDQUOT, EINTR}) {
        TelFile* const file = openWith({}, telCreateAlways);
        const ActivePlan active(failingName("close", error));
        EXPECT_EQ(telCloseHandle(file), error == EINTR) << error;
    }
}

TEST_F(FileFault, ShortCounts_AreCompletedBothWays) {
    const std::string text = numberedText(5000);
    TelFile* const file = openWith({}, telCreateAlways);
    FaultPlan next;
    next.mostBytes = 13;
    std::string received(text.size(), '?');
    {
        const ActivePlan active(next);
        EXPECT_EQ(telWriteFile(file, text.data(), text.size()), text.size());
        EXPECT_EQ(telSetFilePointer(file, 0, telFileBegin), 0);
        EXPECT_EQ(telReadFile(file, received.data(), received.size()), text.size());
    }
    telCloseHandle(file);

    EXPECT_EQ(received, text);
}

TEST_F(FileFault, ErrorInTheMiddle_ReturnsTheCountUntilThere) {
    const std::string text = numberedText(5000);
    TelFile* const file = openWith({}, telCreateAlways);
    FaultPlan next = failingCall(3, EIO);
    next.mostBytes = 100;
    {
        const ActivePlan active(next);
        EXPECT_EQ(telWriteFile(file, text.data(), text.size()), 300U);
    }
    telCloseHandle(file);

    EXPECT_EQ(readText(m_directory / "f"), text.substr(0, 300));
}

}  // namespace
