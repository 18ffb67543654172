#ifndef VOINET_SRC_REDACTION_H
#define VOINET_SRC_REDACTION_H

#include "voinet/transferitf.h"
#include "voinet/transfermonitor.h"

#include <string>
#include <string_view>
#include <vector>

namespace tessaro_com::pkm::voInet {

/// Takes the secrets out of what a monitor is told about the transfers of one object: user
/// information in URLs, the values of header lines that carry credentials, and the passwords and
/// the token of the settings wherever they are repeated. What is taken out is "***".
///
/// Secrets of fewer than four characters are looked for in none but those places: half of every
/// text would be taken out with them.
class Redaction {
  public:
    explicit Redaction(const TransferItf& settings);

    /// Any text; well-formed UTF-8 afterwards.
    std::string text(std::string_view raw) const;

    HeaderField header(std::string_view name, std::string_view value) const;

  private:
    void addSecret(const std::string& secret);
    void addCredentials(const std::string& user, const std::string& password);

    /// The longest first, so that none is cut by another one that it contains.
    std::vector<std::string> m_secrets;
};

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_SRC_REDACTION_H
