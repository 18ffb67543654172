#include "installation.h"

#include <gtest/gtest.h>

#include <cctype>
#include <regex>
#include <sstream>

namespace voinettest {
namespace {

// "VOINET_LOG_H" of include/voinet/log.h.
std::string guardOf(const std::string& header) {
    std::string guard = header.substr(header.find('/') + 1);
    for (char& character : guard) {
        const auto byte = static_cast<unsigned char>(character);
        character = std::isalnum(byte) != 0 ? static_cast<char>(std::toupper(byte)) : '_';
    }
    return guard;
}

std::string withoutComments(const std::string& code) {
    return std::regex_replace(code, std::regex("//[^\n]*"), "");
}

// The compiler takes each header as a source of its own.
TEST(Headers, EachAlone_CompilesWithoutWarnings) {
    const MovedInstallation installation;
    std::vector<std::string> words = {VOINET_CXX_COMPILER,
                                      "-std=c++17",
                                      "-Wall",
                                      "-Wextra",
                                      "-Wpedantic",
                                      "-Werror",
                                      "-U_FILE_OFFSET_BITS",
                                      "-fsyntax-only",
                                      "-I",
                                      installation.prefix() / "include",
                                      "-x",
                                      "c++"};
    for (const std::string& header : headerFiles()) {
        words.push_back(installation.prefix() / header);
    }

    EXPECT_EQ(runChecked(words), "");
}

// Types whose size depends on how the caller compiles (-D_FILE_OFFSET_BITS, -D_TIME_BITS).
TEST(Headers, Interfaces_UseNoTypeThatTheCallersFlagsChange) {
    const MovedInstallation installation;
    const std::regex changing(
        "\\b(off_t|ino_t|blkcnt_t|fsblkcnt_t|fsfilcnt_t|rlim_t|time_t|"
        "struct (stat|statvfs|dirent|rlimit|timeval|timespec))\\b");

    for (const std::string& header : headerFiles()) {
        const std::string code = withoutComments(contentOf(installation.prefix() / header));
        std::smatch match;
        EXPECT_FALSE(std::regex_search(code, match, changing)) << header << ": " << match.str();
    }
}

// Besides the include guard only the export marker asks, for the compiler's kind.
TEST(Headers, Conditions_AskForNothingThatTheCallerDefines) {
    const MovedInstallation installation;
    const std::regex condition("^ *# *(if|ifdef|ifndef|elif)\\b *(.*)$");

    for (const std::string& header : headerFiles()) {
        std::istringstream lines(contentOf(installation.prefix() / header));
        std::smatch match;
        for (std::string line; std::getline(lines, line);) {
            if (std::regex_search(line, match, condition)) {
                EXPECT_TRUE(match[2] == guardOf(header) || match[2] == "defined(__GNUC__)")
                    << header << ": " << line;
            }
        }
    }
}

}  // namespace
}  // namespace voinettest
