#include "tracedprocess.h"

#include "descriptor.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/fs.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

namespace voinettest {
namespace {

constexpr unsigned kHangSeconds = 60;
constexpr std::uint64_t kMostShortBytes = 700;
constexpr int kNone = -1;

/// How a system call names its file: by the numbers of its arguments.
struct CallShape {
    long number;
    const char* name;
    int descriptor;
    int path;
    /// How many bytes are to be moved.
    int size = kNone;
    /// Of a rename.
    int newDescriptor = kNone;
    int newPath = kNone;
};

// Everything that reads, writes or changes files, names or their attributes.
constexpr CallShape kCallShapes[] = {
    {SYS_open, "open", kNone, 0},
    {SYS_creat, "creat", kNone, 0},
    {SYS_openat, "openat", 0, 1},
    {SYS_openat2, "openat2", 0, 1},
    {SYS_close, "close", 0, kNone},
    {SYS_read, "read", 0, kNone, 2},
    {SYS_pread64, "pread", 0, kNone, 2},
    {SYS_readv, "readv", 0, kNone},
    {SYS_write, "write", 0, kNone, 2},
    {SYS_pwrite64, "pwrite", 0, kNone, 2},
    {SYS_writev, "writev", 0, kNone},
    {SYS_lseek, "lseek", 0, kNone},
    {SYS_stat, "stat", kNone, 0},
    {SYS_lstat, "lstat", kNone, 0},
    {SYS_fstat, "fstat", 0, kNone},
    {SYS_newfstatat, "fstatat", 0, 1},
    {SYS_statx, "statx", 0, 1},
    {SYS_statfs, "statfs", kNone, 0},
    {SYS_fstatfs, "fstatfs", 0, kNone},
    {SYS_access, "access", kNone, 0},
    {SYS_faccessat, "faccessat", 0, 1},
    {SYS_faccessat2, "faccessat2", 0, 1},
    {SYS_truncate, "truncate", kNone, 0},
    {SYS_ftruncate, "ftruncate", 0, kNone},
    {SYS_fallocate, "fallocate", 0, kNone},
    {SYS_fsync, "fsync", 0, kNone},
    {SYS_fdatasync, "fdatasync", 0, kNone},
    {SYS_syncfs, "syncfs", 0, kNone},
    {SYS_sync_file_range, "sync_file_range", 0, kNone},
    // The descriptor that is written to.
    {SYS_copy_file_range, "copy_file_range", 2, kNone, 4},
    {SYS_sendfile, "sendfile", 0, kNone, 3},
    {SYS_ioctl, "ioctl", 0, kNone},
    {SYS_fcntl, "fcntl", 0, kNone},
    {SYS_flock, "flock", 0, kNone},
    {SYS_chmod, "chmod", kNone, 0},
    {SYS_fchmod, "fchmod", 0, kNone},
    {SYS_fchmodat, "fchmodat", 0, 1},
    {SYS_chown, "chown", kNone, 0},
    {SYS_lchown, "lchown", kNone, 0},
    {SYS_fchown, "fchown", 0, kNone},
    {SYS_fchownat, "fchownat", 0, 1},
    {SYS_utimensat, "utimensat", 0, 1},
    {SYS_mkdir, "mkdir", kNone, 0},
    {SYS_mkdirat, "mkdirat", 0, 1},
    {SYS_rmdir, "rmdir", kNone, 0},
    {SYS_unlink, "unlink", kNone, 0},
    {SYS_unlinkat, "unlinkat", 0, 1},
    {SYS_rename, "rename", kNone, 0, kNone, kNone, 1},
    {SYS_renameat, "renameat", 0, 1, kNone, 2, 3},
    {SYS_renameat2, "renameat2", 0, 1, kNone, 2, 3},
    {SYS_link, "link", kNone, 0, kNone, kNone, 1},
    {SYS_linkat, "linkat", 0, 1, kNone, 2, 3},
    {SYS_symlink, "symlink", kNone, 1},
    {SYS_symlinkat, "symlinkat", 1, 2},
    {SYS_readlink, "readlink", kNone, 0},
    {SYS_readlinkat, "readlinkat", 0, 1},
    {SYS_getdents64, "getdents", 0, kNone},
};

sock_filter statement(std::uint16_t code, std::uint32_t value) {
    return BPF_STMT(code, value);
}

/// A program for the kernel: the calls of the table stop, all others pass.
std::vector<sock_filter> makeFilter() {
    constexpr std::uint16_t kLoad = BPF_LD | BPF_W | BPF_ABS;
    constexpr std::uint16_t kIsEqual = BPF_JMP | BPF_JEQ | BPF_K;
    constexpr std::uint16_t kAnswer = BPF_RET | BPF_K;
    std::vector<sock_filter> filter = {
        statement(kLoad, offsetof(seccomp_data, arch)),
        BPF_JUMP(kIsEqual, AUDIT_ARCH_X86_64, 1, 0),
        statement(kAnswer, SECCOMP_RET_ALLOW),
        statement(kLoad, offsetof(seccomp_data, nr)),
    };
    for (const CallShape& shape : kCallShapes) {
        filter.push_back(BPF_JUMP(kIsEqual, static_cast<std::uint32_t>(shape.number), 0, 1));
        filter.push_back(statement(kAnswer, SECCOMP_RET_TRACE));
    }
    filter.push_back(statement(kAnswer, SECCOMP_RET_ALLOW));
    return filter;
}

void stopAtFileCalls(std::vector<sock_filter>& filter) {
    const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
    require(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "giving up new privileges");
    require(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0, "filtering system calls");
}

[[noreturn]] void workInChild(const std::function<int()>& work) {
    constexpr int kBrokenStatus = 125;
    int status = kBrokenStatus;
    try {
        std::vector<sock_filter> filter = makeFilter();
        ::alarm(kHangSeconds);
        require(::ptrace(PTRACE_TRACEME, 0, 0, 0) == 0, "being traced");
        ::raise(SIGSTOP);
        stopAtFileCalls(filter);
        status = work();
    } catch (...) {
        status = kBrokenStatus;
    }
    ::_exit(status);
}

std::string readTextOf(pid_t thread, std::uint64_t address) {
    std::array<char, PATH_MAX> text{};
    const iovec local = {text.data(), text.size() - 1};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): an address of the other process
    const iovec remote = {reinterpret_cast<void*>(address), text.size() - 1};
    ::process_vm_readv(thread, &local, 1, &remote, 1, 0);
    return text.data();
}

std::string targetOf(const std::string& link) {
    std::array<char, PATH_MAX> text{};
    const ssize_t size = ::readlink(link.c_str(), text.data(), text.size());
    return {text.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
}

std::string pathOfDescriptor(pid_t thread, int descriptor) {
    const std::string process = "/proc/" + std::to_string(thread);
    return targetOf(descriptor == AT_FDCWD ? process + "/cwd"
                                           : process + "/fd/" + std::to_string(descriptor));
}

std::string joined(const std::string& directory, const std::string& name) {
    if (name.empty()) {
        return directory;
    }
    const std::string path = name.front() == '/' ? name : directory + "/" + name;
    const std::string normal = std::filesystem::path(path).lexically_normal().string();
    return normal.size() > 1 && normal.back() == '/' ? normal.substr(0, normal.size() - 1) : normal;
}

/// The open flags of a descriptor, from the proc file system.
int flagsOfDescriptor(pid_t thread, int descriptor) {
    std::ifstream info("/proc/" + std::to_string(thread) + "/fdinfo/" + std::to_string(descriptor));
    std::string word;
    while (info >> word) {
        if (word == "flags:" && info >> word) {
            return static_cast<int>(std::strtol(word.c_str(), nullptr, 8));
        }
    }
    return 0;
}

bool isForWriting(int flags) {
    return (flags & O_PATH) == 0 && (flags & O_ACCMODE) != O_RDONLY;
}

const CallShape* findShape(std::uint64_t number) {
    const auto* const found = std::find_if(
        std::begin(kCallShapes), std::end(kCallShapes),
        [=](const CallShape& shape) { return static_cast<std::uint64_t>(shape.number) == number; });
    return found == std::end(kCallShapes) ? nullptr : found;
}

// The C library's name for it.
using CallInfo = struct __ptrace_syscall_info;
using Arguments = decltype(CallInfo::seccomp.args);

std::string pathOf(pid_t thread, const Arguments& arguments, int descriptor, int path) {
    const std::string name =
        path == kNone ? "" : readTextOf(thread, arguments[static_cast<std::size_t>(path)]);
    if (!name.empty() && name.front() == '/') {
        return joined("", name);
    }
    const int base = descriptor == kNone
                         ? AT_FDCWD
                         : static_cast<int>(arguments[static_cast<std::size_t>(descriptor)]);
    return joined(pathOfDescriptor(thread, base), name);
}

FileCall describe(pid_t thread, const CallShape& shape, const Arguments& arguments) {
    FileCall call{shape.name, pathOf(thread, arguments, shape.descriptor, shape.path)};
    if (shape.newPath != kNone) {
        call.newPath = pathOf(thread, arguments, shape.newDescriptor, shape.newPath);
    }
    if (shape.path == kNone) {
        const auto descriptor =
            static_cast<int>(arguments[static_cast<std::size_t>(shape.descriptor)]);
        call.isOnWritable = isForWriting(flagsOfDescriptor(thread, descriptor));
    }
    return call;
}

user_regs_struct registersOf(pid_t thread) {
    user_regs_struct registers{};
    require(::ptrace(PTRACE_GETREGS, thread, 0, &registers) == 0, "reading registers");
    return registers;
}

void setRegisters(pid_t thread, user_regs_struct registers) {
    require(::ptrace(PTRACE_SETREGS, thread, 0, &registers) == 0, "writing registers");
}

/// Keeps the kernel from making the call that a thread stands before.
void skipCall(pid_t thread, int result) {
    user_regs_struct registers = registersOf(thread);
    registers.orig_rax = static_cast<unsigned long long>(-1);
    registers.rax = static_cast<unsigned long long>(static_cast<long long>(result));
    setRegisters(thread, registers);
}

void setResult(pid_t thread, int result) {
    user_regs_struct registers = registersOf(thread);
    registers.rax = static_cast<unsigned long long>(static_cast<long long>(result));
    setRegisters(thread, registers);
}

void shortenCall(pid_t thread, int sizeArgument) {
    user_regs_struct registers = registersOf(thread);
    unsigned long long* const arguments[] = {&registers.rdi, &registers.rsi, &registers.rdx,
                                             &registers.r10, &registers.r8,  &registers.r9};
    unsigned long long& size = *arguments[sizeArgument];
    size = size > 1 ? std::min<unsigned long long>(size - 1, kMostShortBytes) : size;
    setRegisters(thread, registers);
}

void loseSecondHalf(const std::string& path) {
    struct stat status {};
    require(::stat(path.c_str(), &status) == 0, "looking at " + path);
    require(::truncate(path.c_str(), status.st_size / 2) == 0, "shortening " + path);
}

void resume(pid_t thread, int signal, bool untilEndOfCall = false) {
    // The thread may have died meanwhile; waitpid tells.
    ::ptrace(untilEndOfCall ? PTRACE_SYSCALL : PTRACE_CONT, thread, 0, signal);
}

}  // namespace

int TracedProcess::run(const std::function<int()>& work) {
    constexpr int kEndOfCall = SIGTRAP | 0x80;
    pendingError_ = 0;
    child_ = ::fork();
    require(child_ != -1, "making a process");
    if (child_ == 0) {
        workInChild(work);
    }
    bool isSetUp = false;
    while (true) {
        int status = 0;
        const pid_t thread = ::waitpid(-1, &status, __WALL | __WNOTHREAD);
        require(thread != -1, "waiting for a process");
        if (!WIFSTOPPED(status)) {
            if (thread == child_) {
                return status;
            }
        } else if (!isSetUp) {
            const long options = PTRACE_O_TRACESECCOMP | PTRACE_O_TRACECLONE | PTRACE_O_TRACEEXEC |
                                 PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL;
            require(::ptrace(PTRACE_SETOPTIONS, thread, 0, options) == 0, "tracing");
            isSetUp = true;
            resume(thread, 0);
        } else if (status >> 16 == PTRACE_EVENT_SECCOMP) {
            judgeCall(thread);
        } else if (WSTOPSIG(status) == kEndOfCall) {
            if (pendingError_ != 0) {
                setResult(thread, -pendingError_);
                pendingError_ = 0;
            }
            resume(thread, 0);
        } else {
            // Other events, and the stop with which a thread begins, are not signals of its own.
            const int signal = WSTOPSIG(status);
            resume(thread, status >> 16 != 0 || signal == SIGSTOP ? 0 : signal);
        }
    }
}

void TracedProcess::judgeCall(pid_t thread) {
    CallInfo info{};
    require(::ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) > 0,
            "asking for a system call");
    const CallShape* const shape = findShape(info.seccomp.nr);
    if (shape == nullptr) {
        resume(thread, 0);
        return;
    }
    const FileCall call = describe(thread, *shape, info.seccomp.args);
    if (isOfInterest(call.path) || isOfInterest(call.newPath)) {
        Treatment treatment = judge_(call);
        if (treatment.kind == Treatment::Kind::shorten) {
            if (shape->size != kNone) {
                shortenCall(thread, shape->size);
            }
            treatment = {};
        }
        apply(thread, treatment, call);
    } else {
        resume(thread, 0);
    }
}

void TracedProcess::apply(pid_t thread, const Treatment& treatment, const FileCall& call) {
    switch (treatment.kind) {
        case Treatment::Kind::kill:
            ::kill(child_, SIGKILL);
            return;
        case Treatment::Kind::pretend:
            skipCall(thread, 0);
            break;
        case Treatment::Kind::loseAndFail:
            loseSecondHalf(call.path);
            [[fallthrough]];
        case Treatment::Kind::fail:
            if (call.name == "close") {
                pendingError_ = treatment.error;
                resume(thread, 0, true);
                return;
            }
            skipCall(thread, -treatment.error);
            break;
        default:
            break;
    }
    resume(thread, 0);
}

bool TracedProcess::isOfInterest(const std::string& path) const {
    if (path.empty() || path.front() != '/') {
        return false;
    }
    const std::string below = path == "/" ? path : path + "/";
    return std::any_of(roots_.begin(), roots_.end(), [&](const std::string& root) {
        return path.compare(0, root.size(), root) == 0 || root.compare(0, below.size(), below) == 0;
    });
}

}  // namespace voinettest
