#include "installation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace voinettest {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(Installation, Prefix_GetsExactlyTheListedFiles) {
    const MovedInstallation installation;

    EXPECT_EQ(filesBelow(installation.prefix()), allFiles());
}

TEST(Installation, Components_GetTheirOwnFiles) {
    const std::map<std::string, std::set<std::string>> components = {
        {"runtime", runtimeFiles()}, {"development", developmentFiles()}, {"tools", toolFiles()}};

    for (const auto& [component, files] : components) {
        const TemporaryDirectory prefix;
        runChecked({VOINET_CMAKE, "--install", VOINET_BUILD_DIRECTORY, "--component", component,
                    "--prefix", prefix.path().string()});
        EXPECT_EQ(filesBelow(prefix.path()), files) << component;
    }
}

TEST(Installation, Destdir_GetsTheSameBelowThePrefix) {
    const TemporaryDirectory destination;

    runChecked({VOINET_CMAKE, "--install", VOINET_BUILD_DIRECTORY, "--prefix", "/opt/voinet"},
               {{"DESTDIR", destination.path().string()}});

    EXPECT_EQ(filesBelow(destination.path() / "opt/voinet"), allFiles());
    EXPECT_EQ(filesBelow(destination.path()).size(), allFiles().size());
    EXPECT_THAT(filesMentioning(destination.path(), destination.path().string()), IsEmpty());
}

TEST(Installation, Files_MentionNoDirectoryOfTheBuild) {
    const MovedInstallation installation;

    for (const std::string& directory :
         {std::string(VOINET_BUILD_DIRECTORY), std::string(VOINET_SOURCE_DIRECTORY),
          installation.firstPrefix().string()}) {
        EXPECT_THAT(filesMentioning(installation.prefix(), directory), IsEmpty()) << directory;
    }
}

TEST(Installation, Libraries_AreLinkedFromTheirShortNames) {
    const MovedInstallation installation;

    for (const std::string name : {"libvoinet.so", "libkvecomn.so"}) {
        const fs::path library = installation.libraries() / name;
        EXPECT_EQ(fs::read_symlink(library), name + ".4");
        EXPECT_EQ(fs::read_symlink(library.string() + ".4"), name + "." VOINET_VERSION);
        EXPECT_THAT(runChecked({"readelf", "-d", library.string()}),
                    HasSubstr("Library soname: [" + name + ".4]"));
    }
}

// The system decides where libraries are looked for.
TEST(Installation, Programs_CarryNoSearchPath) {
    const MovedInstallation installation;

    for (const fs::path& file :
         {installation.libraries() / "libvoinet.so", installation.libraries() / "libkvecomn.so",
          installation.prefix() / "bin/voinet"}) {
        const std::string dynamic = runChecked({"readelf", "-d", file.string()});
        EXPECT_THAT(dynamic, HasSubstr("(NEEDED)")) << file;
        EXPECT_THAT(dynamic, Not(HasSubstr("(RPATH)"))) << file;
        EXPECT_THAT(dynamic, Not(HasSubstr("(RUNPATH)"))) << file;
    }
}

TEST(Installation, Command_RunsWithTheLibrariesOfAMovedPrefix) {
    const MovedInstallation installation;

    const std::string output =
        runChecked({(installation.prefix() / "bin/voinet").string(), "--version"},
                   {{"LD_LIBRARY_PATH", installation.libraries().string()}});

    EXPECT_THAT(output, HasSubstr(VOINET_VERSION));
}

}  // namespace
}  // namespace voinettest
