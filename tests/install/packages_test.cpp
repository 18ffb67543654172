#include "developmentserver.h"
#include "installation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>

namespace voinettest {
namespace {

namespace fs = std::filesystem;

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

using Names = std::set<std::string>;

// As the change log of the packages has it: "voinet (4.0.0-1) ...".
std::string revision() {
    const std::string changes = contentOf(VOINET_SOURCE_DIRECTORY "/packaging/changelog");
    const std::size_t begin = changes.find('(') + 1;
    return changes.substr(begin, changes.find(')') - begin);
}

std::string architecture() {
    static const std::string kName = wordsOf(runChecked({"dpkg", "--print-architecture"})).at(0);
    return kName;
}

// A file's line in `dpkg-deb --contents` without size and time: "-rw-r--r-- root/root usr/x".
std::string expectedEntry(const std::string& file) {
    static const Names kLinks = {"libkvecomn.so", "libkvecomn.so.4", "libvoinet.so",
                                 "libvoinet.so.4"};
    if (kLinks.count(fs::path(file).filename()) != 0) {
        const std::string target =
            fs::path(file).extension() == ".so" ? ".so.4" : ".so." VOINET_VERSION;
        std::string name = fs::path(file).filename();
        name.resize(name.find('.'));
        return "lrwxrwxrwx root/root usr/" + file + " -> " + name + target;
    }
    const bool isProgram = fs::path(file).parent_path() == "bin";
    return std::string(isProgram ? "-rwxr-xr-x" : "-rw-r--r--") + " root/root usr/" + file;
}

// With the folders that lead to the files.
Names expectedEntries(const std::string& package, Names files) {
    for (const char* document : {"changelog.Debian.gz", "copyright"}) {
        files.insert("share/doc/" + package + "/" + document);
    }
    Names entries;
    for (const std::string& file : files) {
        entries.insert(expectedEntry(file));
        for (fs::path folder = fs::path("usr") / file; folder.has_relative_path();) {
            folder = folder.parent_path();
            entries.insert("drwxr-xr-x root/root " + folder.string() + "/");
        }
    }
    entries.erase("drwxr-xr-x root/root /");
    entries.insert("drwxr-xr-x root/root ./");
    return entries;
}

// "MODE OWNER SIZE DATE TIME ./NAME..." without what changes.
Names entriesOf(const std::string& contents) {
    Names entries;
    std::istringstream lines(contents);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> words = wordsOf(line);
        std::string entry = words.at(0) + ' ' + words.at(1) + ' ';
        entry += words.at(5) == "./" ? "./" : words.at(5).substr(2);
        for (std::size_t i = 6; i < words.size(); ++i) {
            entry += ' ' + words[i];
        }
        entries.insert(entry);
    }
    return entries;
}

/// The packages of the built tree, made once for all tests.
class Packages : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        directory_ = std::make_unique<TemporaryDirectory>();
        makePackages(directory_->path());
    }
    static void TearDownTestSuite() { directory_.reset(); }

    /// A user's umask must not show in the packages.
    static void makePackages(const fs::path& directory) {
        runChecked({"sh", "-c", R"(umask 077 && cd "$1" && exec "$0" -B "$2")", VOINET_CPACK,
                    VOINET_BUILD_DIRECTORY, directory},
                   {{"SOURCE_DATE_EPOCH", "1700000000"}});
    }
    static std::string fileName(const std::string& package) {
        return package + "_" + revision() + "_" + architecture() + ".deb";
    }
    static std::string file(const std::string& package) {
        return directory_->path() / fileName(package);
    }
    static std::vector<std::string> files() {
        return {file("libvoinet4"), file("libvoinet-dev"), file("voinet-tools")};
    }
    static std::string field(const std::string& package, const std::string& name) {
        std::string text = runChecked({"dpkg-deb", "--field", file(package), name});
        return text.substr(0, text.find('\n'));
    }
    /// The alternatives of Depends, one text for each dependency.
    static std::vector<std::string> depends(const std::string& package) {
        std::vector<std::string> dependencies;
        std::istringstream list(field(package, "Depends"));
        for (std::string dependency; std::getline(list >> std::ws, dependency, ',');) {
            dependencies.push_back(dependency);
        }
        return dependencies;
    }
    static Names controlFiles(const std::string& package) {
        const TemporaryDirectory control;
        runChecked({"dpkg-deb", "--control", file(package), control.path() / "files"});
        return filesBelow(control.path() / "files");
    }

    static std::unique_ptr<TemporaryDirectory> directory_;
};

std::unique_ptr<TemporaryDirectory> Packages::directory_;

/// A system of its own: a root folder with a package database.
class ScratchSystem {
  public:
    /// `status` is the database of what is installed there; its packages have no files.
    explicit ScratchSystem(const std::string& status) {
        directory_.write("var/lib/dpkg/status", status);
        fs::create_directories(database() / "info");
        fs::create_directories(database() / "updates");
    }

    fs::path root() const { return directory_.path(); }

    ProcessResult dpkg(std::vector<std::string> words) const {
        const std::vector<std::string> options = {"dpkg", "--root=" + root().string(),
                                                  "--log=" + (root() / "dpkg.log").string(),
                                                  // Whoever runs the tests may be nobody special.
                                                  "--force-not-root", "--force-bad-path"};
        words.insert(words.begin(), options.begin(), options.end());
        return runToEnd({words, {{"LC_ALL", "C"}}});
    }
    ProcessResult install(std::vector<std::string> packages) const {
        packages.insert(packages.begin(), "--install");
        return dpkg(packages);
    }

  private:
    fs::path database() const { return root() / "var/lib/dpkg"; }

    TemporaryDirectory directory_;
};

std::string statusOfThisMachine() {
    return contentOf("/var/lib/dpkg/status");
}

TEST_F(Packages, Cpack_MakesThreePackages) {
    Names made;
    for (const auto& entry : fs::directory_iterator(directory_->path())) {
        if (entry.path().extension() == ".deb") {
            made.insert(entry.path().filename());
        }
    }

    EXPECT_EQ(made,
              (Names{fileName("libvoinet4"), fileName("libvoinet-dev"), fileName("voinet-tools")}));
}

TEST_F(Packages, Contents_AreExactlyTheListedFiles) {
    Names tools = toolFiles();
    tools.erase("share/man/man1/voinet.1");
    tools.insert("share/man/man1/voinet.1.gz");
    const std::map<std::string, Names> packages = {{"libvoinet4", runtimeFiles()},
                                                   {"libvoinet-dev", developmentFiles()},
                                                   {"voinet-tools", tools}};

    for (const auto& [package, names] : packages) {
        EXPECT_EQ(entriesOf(runChecked({"dpkg-deb", "--contents", file(package)})),
                  expectedEntries(package, names))
            << package;
    }
}

TEST_F(Packages, Lintian_FindsNoErrors) {
    std::vector<std::string> words = {"lintian", "--allow-root",        "--fail-on",
                                      "error",   "--tag-display-limit", "0"};
    for (const std::string& name : files()) {
        words.push_back(name);
    }

    const ProcessResult result = runToEnd({words});

    EXPECT_EQ(result.status, 0) << result.standardOutput << result.standardError;
}

TEST_F(Packages, Fields_NameVersionAndMachine) {
    const std::map<std::string, std::string> sections = {
        {"libvoinet4", "libs"}, {"libvoinet-dev", "libdevel"}, {"voinet-tools", "net"}};

    for (const auto& [package, section] : sections) {
        EXPECT_EQ(field(package, "Package"), package);
        EXPECT_EQ(field(package, "Version"), revision());
        EXPECT_EQ(field(package, "Architecture"), architecture());
        EXPECT_EQ(field(package, "Section"), section);
        EXPECT_EQ(field(package, "Priority"), "optional");
    }
}

TEST_F(Packages, Depends_NamesTheLibrariesThatAreLinked) {
    const std::string sameVersion = "libvoinet4 (= " + revision() + ")";
    const auto hasVersioned = [](const std::string& package) {
        return Contains(StartsWith(package + " (>= "));
    };

    EXPECT_THAT(depends("libvoinet4"),
                AllOf(hasVersioned("libc6"), hasVersioned("libcurl4"), hasVersioned("libstdc++6")));
    EXPECT_THAT(depends("libvoinet-dev"),
                UnorderedElementsAre(sameVersion, "libcurl4-openssl-dev | libcurl-dev"));
    EXPECT_THAT(depends("voinet-tools"),
                AllOf(Contains(sameVersion), hasVersioned("libc6"), hasVersioned("libstdc++6"),
                      Contains(StartsWith("libmbedcrypto")), Not(hasVersioned("libcurl4"))));
}

// Two architectures' libraries can only stand side by side in folders of their own.
TEST_F(Packages, MultiArch_IsSameWhereTheFolderNamesTheArchitecture) {
    const bool hasOwnFolder = std::string(VOINET_LIBDIR).find('/') != std::string::npos;
    const std::string expected = hasOwnFolder ? "same" : "no";

    EXPECT_EQ(field("libvoinet4", "Multi-Arch"), expected);
    EXPECT_EQ(field("libvoinet-dev", "Multi-Arch"), expected);
    EXPECT_EQ(field("voinet-tools", "Multi-Arch"), "foreign");
}

TEST_F(Packages, Libvoinet4_TellsOthersHowToDependOnItAndRefreshesTheLoader) {
    const TemporaryDirectory control;
    runChecked({"dpkg-deb", "--control", file("libvoinet4"), control.path() / "files"});

    EXPECT_EQ(control.read("files/shlibs"), "libkvecomn 4 libvoinet4 (>= " VOINET_VERSION
                                            ")\n"
                                            "libvoinet 4 libvoinet4 (>= " VOINET_VERSION ")\n");
    EXPECT_EQ(control.read("files/triggers"), "activate-noawait ldconfig\n");
}

TEST_F(Packages, Control_HoldsNoScripts) {
    EXPECT_EQ(controlFiles("libvoinet4"), (Names{"control", "md5sums", "shlibs", "triggers"}));
    EXPECT_EQ(controlFiles("libvoinet-dev"), (Names{"control", "md5sums"}));
    EXPECT_EQ(controlFiles("voinet-tools"), (Names{"control", "md5sums"}));
}

TEST_F(Packages, SameBuild_MakesTheSameBytes) {
    const TemporaryDirectory again;

    makePackages(again.path());

    for (const char* package : {"libvoinet4", "libvoinet-dev", "voinet-tools"}) {
        EXPECT_TRUE(contentOf(file(package)) == contentOf(again.path() / fileName(package)))
            << package;
    }
}

TEST_F(Packages, Installation_NeedsWhatThePackagesDependOn) {
    const ScratchSystem system("");

    const ProcessResult result = system.install(files());

    EXPECT_NE(result.status, 0);
    EXPECT_THAT(result.standardError, HasSubstr("depends on libc6"));
}

// With the database of this machine dpkg checks the dependencies against what is installed here.
TEST_F(Packages, InstalledCommand_DownloadsFromTheDevelopmentServer) {
    const ScratchSystem system(statusOfThisMachine());
    const ProcessResult installed = system.install(files());
    ASSERT_EQ(installed.status, 0) << installed.standardOutput << installed.standardError;
    const TemporaryDirectory site;
    site.write("repository/folder/a.bin", sampleBytes());
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, site.path() / "repository");

    runChecked(
        {system.root() / "usr/bin/voinet", "get", "--host-ip",
         "127.0.0.1:" + std::to_string(server.port()), "folder/a.bin", site.path() / "copy.bin"},
        {{"LD_LIBRARY_PATH", system.root() / "usr" / VOINET_LIBDIR}});

    EXPECT_TRUE(site.read("copy.bin") == sampleBytes());
}

TEST_F(Packages, InstalledFiles_HaveTheirDigestsAndGoWithThePackages) {
    const ScratchSystem system(statusOfThisMachine());
    const ProcessResult installed = system.install(files());
    ASSERT_EQ(installed.status, 0) << installed.standardOutput << installed.standardError;
    runChecked({"gzip", "--test", system.root() / "usr/share/man/man1/voinet.1.gz"});

    const std::vector<std::string> packages = {"libvoinet4", "libvoinet-dev", "voinet-tools"};
    for (const std::string& package : packages) {
        EXPECT_EQ(system.dpkg({"--verify", package}).standardOutput, "") << package;
    }
    std::vector<std::string> removal = {"--purge"};
    removal.insert(removal.end(), packages.begin(), packages.end());
    const ProcessResult removed = system.dpkg(removal);

    EXPECT_EQ(removed.status, 0) << removed.standardOutput << removed.standardError;
    EXPECT_FALSE(fs::exists(system.root() / "usr"));
}

}  // namespace
}  // namespace voinettest
