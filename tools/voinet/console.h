#ifndef VOINET_COMMAND_CONSOLE_H
#define VOINET_COMMAND_CONSOLE_H

#include <mutex>
#include <string>

namespace voinet_command {

/// The standard error stream, shared by messages and the progress bar: a line removes the bar
/// first, so that the two never mix. Any thread may use it.
class Console {
  public:
    explicit Console(bool quiet) : m_quiet(quiet) {}
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console();

    bool IsTerminal() const;
    /// Columns of the terminal; 80 when it does not say.
    int Width() const;

    /// Writes a line. Control characters do not get through. Nothing when quiet.
    void Line(const std::string& text);

    /// Draws the bar anew in the current line.
    void Bar(const std::string& text);

    /// Leaves the bar as it stands and goes to a new line.
    void EndBar();

  private:
    const bool m_quiet;
    std::mutex m_mutex;
    bool m_barShown = false;
};

}  // namespace voinet_command

#endif  // VOINET_COMMAND_CONSOLE_H
