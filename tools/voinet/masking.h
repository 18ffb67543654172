#ifndef VOINET_COMMAND_MASKING_H
#define VOINET_COMMAND_MASKING_H

#include <string>
#include <vector>

namespace voinet_command {

/// Takes secrets out of log lines before anybody sees them: the values of the headers
/// Authorization, Proxy-Authorization and UpdateToken, the argument of FTP's PASS, credentials in
/// URLs, and the texts that the command itself knows to be secret.
///
/// Lines go through in the order in which they were logged: a request head that curl sent in pieces
/// is told from the piece before.
class Masker {
  public:
    /// Adds a text that must never show. Texts of less than four characters are passed over: they
    /// would mask half of every line and so give themselves away.
    void AddSecret(const std::string& secret);

    /// The line without its secrets.
    std::string Mask(const std::string& module, const std::string& message);

  private:
    std::vector<std::string> m_secrets;
    /// The latest piece of an outgoing head ended inside a line.
    bool m_headCut = false;
};

/// What stands in place of a secret.
inline constexpr const char* kMaskText = "***";

}  // namespace voinet_command

#endif  // VOINET_COMMAND_MASKING_H
