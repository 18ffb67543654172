#include "environment.h"

#include <array>
#include <cstdlib>

namespace voinet_command {

namespace {

constexpr std::array<const char*, 9> kProxyVariables = {"no_proxy",    "NO_PROXY",    "http_proxy",
                                                        "https_proxy", "HTTPS_PROXY", "ftp_proxy",
                                                        "FTP_PROXY",   "all_proxy",   "ALL_PROXY"};

}  // namespace

void clearProxyEnvironment() {
    for (const char* name : kProxyVariables) {
        ::unsetenv(name);
    }
}

}  // namespace voinet_command
