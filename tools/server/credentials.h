#ifndef VOINET_SERVER_CREDENTIALS_H
#define VOINET_SERVER_CREDENTIALS_H

#include <string>

namespace voinetserver {

/// The environment variable that holds the password when no file is named.
inline constexpr const char* kPasswordVariable = "VOINET_SERVER_PASSWORD";

/// The user name and password that basic authentication demands.
class Credentials {
  public:
    Credentials(const std::string& user, const std::string& password);

    /// Whether the value of an Authorization header carries these credentials.
    bool accept(const std::string& authorization) const;

  private:
    std::string expectedToken_;
};

/// The first line of `file`. Throws StartError when it cannot be read.
std::string readPassword(const std::string& file);

}  // namespace voinetserver

#endif
