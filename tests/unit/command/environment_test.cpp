#include "environment.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace voinet_command {

TEST(Environment, ProxyVariables_AreGoneAndOthersStay) {
    const auto names = {"no_proxy",  "NO_PROXY",  "http_proxy", "https_proxy", "HTTPS_PROXY",
                        "ftp_proxy", "FTP_PROXY", "all_proxy",  "ALL_PROXY"};
    for (const char* name : names) {
        ::setenv(name, "*", 1);
    }
    ::setenv("VOINET_OTHER", "stays", 1);

    clearProxyEnvironment();

    for (const char* name : names) {
        EXPECT_EQ(std::getenv(name), nullptr) << name;
    }
    EXPECT_STREQ(std::getenv("VOINET_OTHER"), "stays");
    ::unsetenv("VOINET_OTHER");
}

}  // namespace voinet_command
