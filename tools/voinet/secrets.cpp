#include "secrets.h"

#include "commanderror.h"
#include "interrupt.h"
#include "texts.h"
#include "uniquefd.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace voinet_command {

namespace {

// Far above every password and token, far below what would hurt.
constexpr std::size_t kMaxSecretSize = std::size_t{64} << 10;

/// Switches the echo of a terminal off for the object's life.
class EchoOff {
  public:
    explicit EchoOff(int terminal) : m_terminal(terminal) {
        if (::tcgetattr(terminal, &m_before) != 0) {
            throw CommandError(ExitStatus::usage, "the terminal cannot be asked for a password");
        }
        termios silent = m_before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ECHONL;
        ::tcsetattr(terminal, TCSAFLUSH, &silent);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;
    ~EchoOff() { ::tcsetattr(m_terminal, TCSAFLUSH, &m_before); }

  private:
    int m_terminal;
    termios m_before{};
};

/// Appends the next byte. False at the end of the input; an interrupt ends the command.
bool readByte(int fd, std::string& text, const std::string& name) {
    char byte = 0;
    ssize_t count = 0;
    do {
        throwIfInterrupted();
        count = ::read(fd, &byte, 1);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        throw CommandError(ExitStatus::localFile,
                           fmt::format("cannot read {}: {}", name, std::strerror(errno)));
    }
    text.append(static_cast<std::size_t>(count), byte);
    return count > 0;
}

std::string readLine(int fd, const std::string& name) {
    std::string line;
    while (line.size() < kMaxSecretSize && readByte(fd, line, name) && line.back() != '\n') {
    }
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
        line.pop_back();
    }
    return line;
}

std::string fromFile(const std::string& path) {
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file) {
        throw CommandError(ExitStatus::localFile,
                           fmt::format("cannot read {}: {}", path, std::strerror(errno)));
    }
    return readLine(file.Get(), path);
}

std::string fromEnvironment(const std::string& variable, const std::string& what) {
    const char* value = std::getenv(variable.c_str());
    if (value == nullptr) {
        throw CommandError(ExitStatus::usage,
                           fmt::format("the {} is to come from the variable {}, which is not set",
                                       what, variable));
    }
    return value;
}

std::string fromTerminal(const std::string& what) {
    const UniqueFd terminal(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY));
    if (!terminal) {
        throw CommandError(ExitStatus::usage,
                           fmt::format("there is no terminal to ask for the {}", what),
                           "use the option that reads it from a file or a variable");
    }
    const std::string prompt = fmt::format("voinet: {}: ", what);
    const EchoOff silence(terminal.Get());
    if (::write(terminal.Get(), prompt.data(), prompt.size()) < 0) {
        throw CommandError(ExitStatus::usage, "the terminal cannot be written to");
    }
    return readLine(terminal.Get(), "the terminal");
}

std::string fetch(const SecretSource& source, const std::string& what) {
    if (!source.file.empty()) {
        return fromFile(source.file);
    }
    if (!source.environment.empty()) {
        return fromEnvironment(source.environment, what);
    }
    return fromTerminal(what);
}

}  // namespace

std::string readSecret(const SecretSource& source, const std::string& what) {
    if (!source.Given()) {
        return {};
    }
    std::string secret = fetch(source, what);
    if (secret.empty()) {
        throw CommandError(ExitStatus::usage, fmt::format("the {} is empty", what));
    }
    // A line break would add header lines of its own to a request.
    if (!isUtf8(secret) || withoutControls(secret) != secret) {
        throw CommandError(ExitStatus::usage,
                           fmt::format("the {} is no single line of text in UTF-8", what));
    }
    return secret;
}

}  // namespace voinet_command
