#include "credentials.h"

#include "starterror.h"

#include <httplib.h>
#include <strings.h>

#include <cerrno>
#include <fstream>
#include <string_view>
#include <system_error>

namespace voinetserver {
namespace {

constexpr std::string_view kScheme = "Basic ";

}  // namespace

Credentials::Credentials(const std::string& user, const std::string& password)
    : expectedToken_(
          httplib::make_basic_authentication_header(user, password).second.substr(kScheme.size())) {
}

bool Credentials::accept(const std::string& authorization) const {
    return ::strncasecmp(authorization.c_str(), kScheme.data(), kScheme.size()) == 0 &&
           authorization.substr(kScheme.size()) == expectedToken_;
}

std::string readPassword(const std::string& file) {
    std::ifstream input(file);
    std::string password;
    if (!input || !std::getline(input, password)) {
        const std::string reason =
            input.is_open() ? "it has no first line" : std::generic_category().message(errno);
        throw StartError("the password file " + file + " cannot be read: " + reason);
    }
    if (!password.empty() && password.back() == '\r') {
        password.pop_back();
    }
    return password;
}

}  // namespace voinetserver
