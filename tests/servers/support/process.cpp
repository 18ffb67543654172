#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <utility>

namespace voinettest {
namespace {

// poll() leaves out negative numbers: those of closed pipes too.
constexpr int kNoEvent = -1;

struct Pipe {
    Descriptor readEnd;
    Descriptor writeEnd;
};

Pipe makePipe() {
    std::array<int, 2> ends{};
    require(::pipe2(ends.data(), O_CLOEXEC) == 0, "making a pipe");
    Pipe made{Descriptor(ends[0]), Descriptor(ends[1])};
    require(::fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0, "setting up a pipe");
    return made;
}

// A file in memory: unlike a pipe it takes any amount before the child reads.
Descriptor makeInput(const std::string& text) {
    Descriptor file(::memfd_create("input", MFD_CLOEXEC));
    require(file.isOpen(), "making the input of a process");
    require(::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()),
            "writing the input of a process");
    require(::lseek(file.get(), 0, SEEK_SET) == 0, "rewinding the input of a process");
    return file;
}

std::vector<std::string> makeEnvironment(const std::map<std::string, std::string>& additions) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (additions.count(text.substr(0, text.find('='))) == 0) {
            result.push_back(text);
        }
    }
    for (const auto& [name, value] : additions) {
        result.push_back(std::string(name).append(1, '=').append(value));
    }
    return result;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    std::transform(texts.begin(), texts.end(), std::back_inserter(pointers),
                   [](std::string& text) { return text.data(); });
    pointers.push_back(nullptr);
    return pointers;
}

// Which of the parent's descriptors become the child's standard ones.
class SpawnFiles {
  public:
    SpawnFiles() { ::posix_spawn_file_actions_init(&actions_); }
    SpawnFiles(const SpawnFiles&) = delete;
    SpawnFiles& operator=(const SpawnFiles&) = delete;
    ~SpawnFiles() { ::posix_spawn_file_actions_destroy(&actions_); }

    void pass(const Descriptor& file, int asNumber) {
        ::posix_spawn_file_actions_adddup2(&actions_, file.get(), asNumber);
    }
    const posix_spawn_file_actions_t* get() const { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_{};
};

// No signal blocked and none ignored, whatever the test runner was started with.
class SpawnSignals {
  public:
    SpawnSignals() {
        sigset_t none{};
        sigset_t all{};
        ::sigemptyset(&none);
        ::sigfillset(&all);
        ::posix_spawnattr_init(&attributes_);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &all);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    SpawnSignals(const SpawnSignals&) = delete;
    SpawnSignals& operator=(const SpawnSignals&) = delete;
    ~SpawnSignals() { ::posix_spawnattr_destroy(&attributes_); }

    const posix_spawnattr_t* get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_{};
};

pid_t spawn(const Command& command, const SpawnFiles& files) {
    if (command.words.empty()) {
        throw std::invalid_argument("a command without a program");
    }
    std::vector<std::string> words = command.words;
    std::vector<std::string> environment = makeEnvironment(command.environment);
    const SpawnSignals signals;
    pid_t id = -1;
    errno = ::posix_spawnp(&id, words.front().c_str(), files.get(), signals.get(),
                           pointersTo(words).data(), pointersTo(environment).data());
    require(errno == 0, "starting " + words.front());
    return id;
}

// A descriptor that becomes readable when the process ends. The wrapper of glibc 2.36 is declared
// without C linkage, so C++ cannot link with it.
Descriptor openEndEvent(pid_t id) {
    Descriptor event(static_cast<int>(::syscall(SYS_pidfd_open, id, 0)));
    require(event.isOpen(), "watching a process");
    return event;
}

int shellStatus(int waitStatus) {
    constexpr int kSignalBase = 128;
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : kSignalBase + WTERMSIG(waitStatus);
}

}  // namespace

Process::Process(const Command& command) {
    Pipe output = makePipe();
    Pipe error = makePipe();
    const Descriptor input = makeInput(command.input);
    SpawnFiles files;
    files.pass(input, STDIN_FILENO);
    files.pass(output.writeEnd, STDOUT_FILENO);
    files.pass(error.writeEnd, STDERR_FILENO);
    streams_[0].pipe = std::move(output.readEnd);
    streams_[1].pipe = std::move(error.readEnd);
    id_ = spawn(command, files);
    endEvent_ = openEndEvent(id_);
}

Process::~Process() {
    if (!status_) {
        ::kill(id_, SIGKILL);
        ::waitpid(id_, nullptr, 0);
    }
}

std::optional<std::string> Process::readLine(Deadline deadline) {
    while (true) {
        if (auto line = takeLine()) {
            return line;
        }
        if (!streams_[0].pipe.isOpen() || !pump(kNoEvent, deadline)) {
            return std::nullopt;
        }
    }
}

void Process::signal(int number) const {
    // After the end the number may belong to another process.
    if (!status_) {
        require(::kill(id_, number) == 0, "sending a signal");
    }
}

std::optional<int> Process::wait(Deadline deadline) {
    while (!status_) {
        int waitStatus = 0;
        if (::waitpid(id_, &waitStatus, WNOHANG) == id_) {
            status_ = shellStatus(waitStatus);
            drain();
        } else if (!pump(endEvent_.get(), deadline)) {
            return std::nullopt;
        }
    }
    return status_;
}

std::optional<int> Process::stop(Deadline deadline) {
    signal(SIGTERM);
    return wait(deadline);
}

// Takes what there is. False at the end of the stream, which is closed then.
bool Process::collect(Stream& stream) {
    std::array<char, 16384> buffer{};
    while (stream.pipe.isOpen()) {
        const ssize_t count = ::read(stream.pipe.get(), buffer.data(), buffer.size());
        if (count > 0) {
            stream.text.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (count < 0 && errno == EAGAIN) {
            return true;
        } else if (count == 0 || errno != EINTR) {
            stream.pipe.close();
        }
    }
    return false;
}

// Waits until the child has printed something, has closed an output, or `event` has come. False at
// the deadline.
bool Process::pump(int event, Deadline deadline) {
    std::array<pollfd, 3> events = {{{streams_[0].pipe.get(), POLLIN, 0},
                                     {streams_[1].pipe.get(), POLLIN, 0},
                                     {event, POLLIN, 0}}};
    const int ready = ::poll(events.data(), events.size(), deadline.remainingMilliseconds());
    if (ready == 0 || (ready < 0 && errno != EINTR)) {
        return false;
    }
    drain();
    return true;
}

void Process::drain() {
    for (Stream& stream : streams_) {
        collect(stream);
    }
}

std::optional<std::string> Process::takeLine() {
    const std::string& text = streams_[0].text;
    const std::size_t end = text.find('\n', consumed_);
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::string line = text.substr(consumed_, end - consumed_);
    consumed_ = end + 1;
    return line;
}

ProcessResult runToEnd(const Command& command, Deadline deadline) {
    Process process(command);
    const auto status = process.wait(deadline);
    if (!status) {
        throw std::runtime_error(command.words.front() + " does not end");
    }
    return {*status, process.standardOutput(), process.standardError()};
}

}  // namespace voinettest
