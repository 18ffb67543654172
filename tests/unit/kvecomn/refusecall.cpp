// Runs a program on a kernel without openat2, as far as the program can tell:
// "refusecall ENOSYS PROGRAM ARGUMENT..." for an old kernel, "refusecall EPERM ..." for a filter of
// system calls that does not know it.

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr int kFailure = 125;

bool refuse(int error) {
    const auto answer = SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error);
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, answer),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof filter / sizeof filter[0], filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

bool isRefused(int error) {
    const std::uint64_t how[3] = {O_PATH, 0, 0};
    return syscall(SYS_openat2, AT_FDCWD, "/", how, sizeof how) == -1 && errno == error;
}

}  // namespace

int main(int count, char** words) {
    if (count < 3) {
        std::fputs("usage: refusecall ENOSYS|EPERM PROGRAM [ARGUMENT...]\n", stderr);
        return kFailure;
    }
    const int error = std::strcmp(words[1], "ENOSYS") == 0 ? ENOSYS : EPERM;
    if (!refuse(error) || !isRefused(error)) {
        std::perror("refusecall: the filter has no effect");
        return kFailure;
    }
    execv(words[2], words + 2);
    std::perror(words[2]);
    return kFailure;
}
