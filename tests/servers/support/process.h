#ifndef VOINET_TESTS_PROCESS_H
#define VOINET_TESTS_PROCESS_H

#include "deadline.h"
#include "descriptor.h"

#include <sys/types.h>

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace voinettest {

/// What to start, and with what around it.
struct Command {
    /// The program (looked up in PATH when it has no slash) and its arguments. An emulator is put
    /// in front like any other program.
    std::vector<std::string> words;
    /// Added to this process's environment.
    std::map<std::string, std::string> environment = {};
    /// What the program reads from its standard input; nothing by default.
    std::string input = {};
};

/// A child process and what it prints. Both outputs are collected whenever something is waited
/// for, so the child never blocks on a full pipe while a test waits for it. Used by one thread; a
/// child that still runs when its owner goes is killed.
class Process {
  public:
    /// Starts the program with default signal handling. Throws std::system_error when that fails.
    explicit Process(const Command& command);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process();

    /// The next line of standard output, without its end. None when the output has ended without
    /// another complete line, or at the deadline.
    std::optional<std::string> readLine(Deadline deadline = Deadline::generous());

    void signal(int number) const;

    /// Waits for the end and returns the exit status, or 128 + N when signal N ended the process,
    /// as a shell does. None at the deadline; the process goes on then.
    std::optional<int> wait(Deadline deadline = Deadline::generous());

    /// Asks the process to end (SIGTERM) and waits for it.
    std::optional<int> stop(Deadline deadline = Deadline::generous());

    /// All that has been collected so far, lines that were read included; after wait() has returned
    /// a status, all that the process has printed.
    const std::string& standardOutput() const { return streams_[0].text; }
    const std::string& standardError() const { return streams_[1].text; }

    pid_t id() const { return id_; }

  private:
    struct Stream {
        Descriptor pipe;
        std::string text = {};
    };

    static bool collect(Stream& stream);
    bool pump(int event, Deadline deadline);
    void drain();
    std::optional<std::string> takeLine();

    std::array<Stream, 2> streams_;
    std::size_t consumed_ = 0;
    pid_t id_ = -1;
    Descriptor endEvent_;
    std::optional<int> status_;
};

/// How a program that was run to its end has ended.
struct ProcessResult {
    int status;
    std::string standardOutput;
    std::string standardError;
};

/// Runs a program to its end. Throws std::runtime_error when it does not end.
ProcessResult runToEnd(const Command& command, Deadline deadline = Deadline::generous());

}  // namespace voinettest

#endif
