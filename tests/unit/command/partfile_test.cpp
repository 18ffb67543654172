#include "partfile.h"

#include "commanderror.h"
#include "temporaryfolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace voinet_command {

namespace {

constexpr const char* kPart = "a.bin.part";
constexpr const char* kLockFile = "a.bin.part.lock";

class PartFileTest : public testing::Test {
  protected:
    std::string Local() const { return folder.Path("a.bin"); }

    void ExpectRefused(const std::string& local, ExitStatus status) const {
        try {
            const PartFile file(local, false);
            ADD_FAILURE() << "accepted: " << local;
        } catch (const CommandError& error) {
            EXPECT_EQ(error.Status(), status) << error.what();
        }
    }

    TemporaryFolder folder;
};

}  // namespace

TEST_F(PartFileTest, Commit_ReplacesLocalAndLeavesNothingBeside) {
    folder.Write("a.bin", "old");
    {
        PartFile file(Local(), false);
        folder.Write(kPart, "the new one");
        EXPECT_TRUE(file.Arrived());
        EXPECT_EQ(file.Size(), 11U);
        file.Commit();
    }
    EXPECT_EQ(folder.Read("a.bin"), "the new one");
    EXPECT_FALSE(folder.Has(kPart));
    EXPECT_FALSE(folder.Has(kLockFile));
}

TEST_F(PartFileTest, Commit_KeepsTheModeOfLocal) {
    folder.Write("a.bin", "old");
    ASSERT_EQ(::chmod(Local().c_str(), 0640), 0);
    PartFile file(Local(), false);
    folder.Write(kPart, "new");
    file.Commit();

    struct stat info {};
    ASSERT_EQ(::stat(Local().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640U);
}

TEST_F(PartFileTest, Commit_NewFileGetsTheModeOfTheUmask) {
    const mode_t before = ::umask(027);
    PartFile file(Local(), false);
    folder.Write(kPart, "new");
    ASSERT_EQ(::chmod(folder.Path(kPart).c_str(), 0600), 0);
    file.Commit();
    ::umask(before);

    struct stat info {};
    ASSERT_EQ(::stat(Local().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640U);
}

TEST_F(PartFileTest, WithoutCommit_LocalStaysAsItWas) {
    folder.Write("a.bin", "old");
    {
        const PartFile file(Local(), false);
        folder.Write(kPart, "half");
    }
    EXPECT_EQ(folder.Read("a.bin"), "old");
    EXPECT_FALSE(folder.Has(kLockFile));
}

TEST_F(PartFileTest, StalePart_IsRemovedWithoutResumeAndKeptWithIt) {
    folder.Write(kPart, "stale");
    { const PartFile file(Local(), true); }
    EXPECT_EQ(folder.Read(kPart), "stale");
    const PartFile file(Local(), false);
    EXPECT_FALSE(folder.Has(kPart));
    EXPECT_FALSE(file.Arrived());
}

TEST_F(PartFileTest, UntouchedPart_HasNotArrived) {
    folder.Write(kPart, "from before");
    const PartFile file(Local(), true);
    EXPECT_FALSE(file.Arrived());

    // As the library does it: another file takes the name.
    folder.Write("sibling", "from before");
    std::filesystem::rename(folder.Path("sibling"), folder.Path(kPart));
    EXPECT_TRUE(file.Arrived()) << "a new file of the same size has arrived";
}

TEST_F(PartFileTest, ResumeOffset_LeavesAKilobyteToCompare) {
    for (const auto& [size, offset] :
         {std::pair(0, 0), std::pair(1, 0), std::pair(1023, 0), std::pair(1024, 0),
          std::pair(1025, 1), std::pair(100000, 98976)}) {
        folder.Write(kPart, std::string(static_cast<std::size_t>(size), 'x'));
        EXPECT_EQ(PartFile(Local(), true).ResumeOffset(), offset) << size;
    }
    EXPECT_EQ(PartFile(Local(), false).ResumeOffset(), 0);
}

TEST_F(PartFileTest, Discards_DependOnWhatWasThere) {
    folder.Write(kPart, "from before");
    PartFile(Local(), true).DiscardIfNew();
    EXPECT_TRUE(folder.Has(kPart));
    PartFile(Local(), true).DiscardIfEmpty();
    EXPECT_TRUE(folder.Has(kPart));
    PartFile(Local(), true).Discard();
    EXPECT_FALSE(folder.Has(kPart));

    PartFile fresh(Local(), false);
    folder.Write(kPart, "new");
    fresh.DiscardIfNew();
    EXPECT_FALSE(folder.Has(kPart));
    folder.Write(kPart, "");
    fresh.DiscardIfEmpty();
    EXPECT_FALSE(folder.Has(kPart));
    EXPECT_NO_THROW(fresh.Discard()) << "there is nothing to remove";
}

TEST_F(PartFileTest, UnusableLocalNames_AreRefused) {
    ExpectRefused("", ExitStatus::usage);
    ExpectRefused(folder.Path("a\xff"), ExitStatus::usage);
    ExpectRefused(folder.Path(""), ExitStatus::localFile);
    ExpectRefused(folder.Path("new/"), ExitStatus::localFile);
    ExpectRefused(folder.Path("none/a.bin"), ExitStatus::localFile);
    ExpectRefused(folder.Path(std::string(300, 'a')), ExitStatus::localFile);
    folder.Write("file", "");
    ExpectRefused(folder.Path("file/a.bin"), ExitStatus::localFile);
    std::filesystem::create_directory(folder.Path("d"));
    ExpectRefused(folder.Path("d"), ExitStatus::localFile);
    ExpectRefused(folder.Path("d/."), ExitStatus::localFile);
    // A folder that not even root may write to.
    ExpectRefused("/proc/a.bin", ExitStatus::localFile);
    ExpectRefused("/dev/null", ExitStatus::localFile);
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(PartFileTest, PartThatIsNoFile_IsRefusedAndLeftAlone) {
    folder.Write("target", "precious");
    std::filesystem::create_symlink(folder.Path("target"), folder.Path(kPart));
    ExpectRefused(Local(), ExitStatus::localFile);
    EXPECT_EQ(folder.Read("target"), "precious");
    EXPECT_TRUE(folder.Has(kPart));

    std::filesystem::remove(folder.Path(kPart));
    std::filesystem::create_directory(folder.Path(kPart));
    ExpectRefused(Local(), ExitStatus::localFile);
    EXPECT_TRUE(folder.Has(kPart));
    EXPECT_FALSE(folder.Has(kLockFile));
}

TEST_F(PartFileTest, SymbolicLinkAtLocal_IsReplacedAndItsTargetUntouched) {
    folder.Write("target", "precious");
    std::filesystem::create_symlink(folder.Path("target"), Local());
    PartFile file(Local(), false);
    folder.Write(kPart, "new");
    file.Commit();

    EXPECT_EQ(folder.Read("target"), "precious");
    EXPECT_FALSE(std::filesystem::is_symlink(Local()));
    EXPECT_EQ(folder.Read("a.bin"), "new");
}

TEST_F(PartFileTest, SecondDownloadOfTheSameFile_IsRefused) {
    const PartFile first(Local(), false);
    folder.Write(kPart, "in use");
    ExpectRefused(Local(), ExitStatus::localFile);
    EXPECT_EQ(folder.Read(kPart), "in use");
}

TEST_F(PartFileTest, LocalBecomesAFolderMeanwhile_CommitFails) {
    PartFile file(Local(), false);
    folder.Write(kPart, "new");
    std::filesystem::create_directory(Local());

    EXPECT_THROW(file.Commit(), CommandError);
    EXPECT_TRUE(std::filesystem::is_directory(Local()));
}

TEST_F(PartFileTest, Digest_IsThatOfThePart) {
    const PartFile file(Local(), false);
    folder.Write(kPart, "abc");
    EXPECT_EQ(file.Digest(), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(PartFileTest, Head_IsTheBeginOrAllOfThePart) {
    PartFile file(Local(), false);
    folder.Write(kPart, "the new one");

    EXPECT_EQ(file.Head(3), "the");
    EXPECT_EQ(file.Head(11), "the new one");
    EXPECT_EQ(file.Head(100), "the new one");
    EXPECT_EQ(file.Head(0), "");
}

TEST_F(PartFileTest, Abandon_LeavesLocalAlone) {
    folder.Write("a.bin", "old");
    PartFile file(Local(), false);
    folder.Write(kPart, "new");

    file.Abandon();

    EXPECT_EQ(folder.Read("a.bin"), "old");
    EXPECT_FALSE(folder.Has(kPart));
    EXPECT_FALSE(folder.Has(kLockFile));
}

TEST_F(PartFileTest, UnusableName_IsToldWithTheArgumentsName) {
    try {
        const PartFile file("", false, "RESPONSE");
        ADD_FAILURE() << "accepted";
    } catch (const CommandError& error) {
        EXPECT_EQ(std::string(error.what()).rfind("RESPONSE: ", 0), 0U) << error.what();
    }
}

}  // namespace voinet_command
