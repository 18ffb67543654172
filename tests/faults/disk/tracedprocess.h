#ifndef VOINET_TESTS_TRACEDPROCESS_H
#define VOINET_TESTS_TRACEDPROCESS_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace voinettest {

/// A system call that a traced process is about to make on a file.
struct FileCall {
    std::string name;
    /// Absolute; of a rename the old name.
    std::string path;
    /// Of a rename only: the new name.
    std::string newPath = {};
    /// Whether it names its file by a descriptor that is open for writing.
    bool isOnWritable = false;
};

/// What becomes of a call.
struct Treatment {
    enum class Kind {
        proceed,
        /// Not made; the process sees the error. A close is made all the same, as in the kernel.
        fail,
        /// A close that reports the error, and before it the file loses its second half: what a
        /// file server does when it has no room for data that was taken already.
        loseAndFail,
        /// Not made; the process sees success.
        pretend,
        /// Made for a few bytes only; other calls than those that move data proceed.
        shorten,
        /// The process dies before the call.
        kill
    };
    Kind kind = Kind::proceed;
    int error = 0;
};

/// Runs a piece of this program, or a program that it turns into, in a process of its own and stops
/// that process at every system call on files of interest.
///
/// System calls are caught in the kernel (seccomp and ptrace), so none escapes, neither those that
/// the C library makes inside its streams nor those of libcurl.
class TracedProcess {
  public:
    using Judge = std::function<Treatment(const FileCall&)>;

    /// @param roots  calls count that name a path which begins with one of these texts, or one of
    ///               the directories above them.
    TracedProcess(std::vector<std::string> roots, Judge judge)
        : roots_(std::move(roots)), judge_(std::move(judge)) {}

    /// Calls `work` in a child process and returns the child's wait status; `work`'s result is the
    /// exit status. A child that hangs is ended by SIGALRM.
    int run(const std::function<int()>& work);

  private:
    void judgeCall(pid_t thread);
    void apply(pid_t thread, const Treatment& treatment, const FileCall& call);
    bool isOfInterest(const std::string& path) const;

    std::vector<std::string> roots_;
    Judge judge_;
    pid_t child_ = -1;
    /// The answer that replaces the kernel's at the end of the call that a thread is in.
    int pendingError_ = 0;
};

}  // namespace voinettest

#endif
