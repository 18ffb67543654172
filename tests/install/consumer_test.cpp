#include "installation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace voinettest {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::IsEmpty;

/// Another project's sources, build folder and data, and an installation in a moved prefix.
class Consumer : public testing::Test {
  protected:
    Consumer() {
        fs::copy(VOINET_SOURCE_DIRECTORY "/tests/install/consumer", source());
        site_.write("repository/folder/a.bin", sampleBytes());
    }

    fs::path source() const { return site_.path() / "source"; }
    fs::path build() const { return site_.path() / "build"; }
    std::string program() const { return build() / "consumer"; }

    /// Configures a project that finds the installation.
    void configure(const fs::path& project) const {
        const std::string compiler = VOINET_CXX_COMPILER;
        runChecked({VOINET_CMAKE, "-S", project, "-B", build(), "-G", VOINET_GENERATOR, "-D",
                    "CMAKE_BUILD_TYPE=Release", "-D", "CMAKE_CXX_COMPILER=" + compiler, "-D",
                    "CMAKE_CXX_FLAGS=-Wall -Wextra -Wpedantic -Werror", "-D",
                    "CMAKE_PREFIX_PATH=" + installation_.prefix().string()});
    }
    /// Copies a.bin out of the repository with the consumer.
    void copyAndCompare(const Environment& environment) const {
        const std::string output = runChecked(
            {program(), site_.path() / "repository", "folder/a.bin", site_.path() / "copy.bin"},
            environment);
        EXPECT_EQ(output, "result: 0\n");
        EXPECT_TRUE(site_.read("copy.bin") == sampleBytes());
    }
    void expectLibrariesOfPrefix(const Environment& environment) const {
        const std::string libraries = runChecked({"ldd", program()}, environment);
        for (const std::string name : {"libvoinet.so.4", "libkvecomn.so.4"}) {
            std::string line = name;
            line.append(" => ").append(installation_.libraries() / name);
            EXPECT_THAT(libraries, HasSubstr(line));
        }
    }
    /// pkg-config, looking into the prefix besides the system's directories.
    ProcessResult pkgConfig(std::vector<std::string> words) const {
        words.insert(words.begin(), "pkg-config");
        return runToEnd({words, {{"PKG_CONFIG_PATH", installation_.libraries() / "pkgconfig"}}});
    }
    TemporaryDirectory site_;
    MovedInstallation installation_;
};

TEST_F(Consumer, FindPackage_BuildsAHostThatDownloads) {
    configure(source());
    runChecked({VOINET_CMAKE, "--build", build()});

    // What CMake has noted in the program leads to the libraries.
    const Environment environment = {{"LD_LIBRARY_PATH", ""}};
    expectLibrariesOfPrefix(environment);
    copyAndCompare(environment);
    EXPECT_THAT(filesMentioning(build(), VOINET_BUILD_DIRECTORY), IsEmpty());
}

TEST_F(Consumer, PkgConfig_BuildsAHostThatDownloads) {
    const ProcessResult flags = pkgConfig({"--cflags", "--libs", "voinet"});
    ASSERT_EQ(flags.status, 0) << flags.standardError;
    std::vector<std::string> words = {VOINET_CXX_COMPILER,
                                      "-std=c++17",
                                      "-Wall",
                                      "-Wextra",
                                      "-Wpedantic",
                                      "-Werror",
                                      "-o",
                                      program(),
                                      source() / "consumer.cpp"};
    for (const std::string& flag : wordsOf(flags.standardOutput)) {
        words.push_back(flag);
    }
    fs::create_directory(build());
    runChecked(words);

    const Environment environment = {{"LD_LIBRARY_PATH", installation_.libraries()}};
    expectLibrariesOfPrefix(environment);
    copyAndCompare(environment);
    EXPECT_THAT(filesMentioning(build(), VOINET_BUILD_DIRECTORY), IsEmpty());
}

TEST_F(Consumer, FindPackage_TakesTheVersionsWithTheSameInterface) {
    configure(VOINET_SOURCE_DIRECTORY "/tests/install/versions");
}

TEST_F(Consumer, PkgConfig_KnowsTheVersion) {
    EXPECT_EQ(pkgConfig({"--modversion", "voinet"}).standardOutput, VOINET_VERSION "\n");
    EXPECT_EQ(pkgConfig({"--exists", "voinet >= 4.0", "voinet < 5"}).status, 0);
    EXPECT_NE(pkgConfig({"--exists", "voinet >= 5"}).status, 0);
    EXPECT_NE(pkgConfig({"--exists", "voinet < 4"}).status, 0);
}

// voinet/callbacks.h includes curl/curl.h; what is linked is no business of a host's.
TEST_F(Consumer, PkgConfig_AsksForTheHeadersOfLibcurlOnly) {
    EXPECT_EQ(pkgConfig({"--print-requires-private", "voinet"}).standardOutput, "libcurl\n");
    EXPECT_EQ(pkgConfig({"--libs-only-l", "voinet"}).standardOutput, "-lvoinet -lkvecomn \n");
}

}  // namespace
}  // namespace voinettest
