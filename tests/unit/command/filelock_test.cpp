#include "filelock.h"

#include "commanderror.h"
#include "temporaryfolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

namespace voinet_command {

TEST(FileLock, SecondHolder_IsRefusedUntilTheFirstIsGone) {
    const TemporaryFolder folder;
    {
        const FileLock first(folder.Path("a.lock"), "a");
        EXPECT_THROW(FileLock(folder.Path("a.lock"), "a"), CommandError);
        EXPECT_TRUE(folder.Has("a.lock"));
    }
    EXPECT_FALSE(folder.Has("a.lock"));
    EXPECT_NO_THROW(FileLock(folder.Path("a.lock"), "a"));
}

TEST(FileLock, FileOfADeadProcess_LocksNothing) {
    const TemporaryFolder folder;
    folder.Write("a.lock", "");

    EXPECT_NO_THROW(FileLock(folder.Path("a.lock"), "a"));
    EXPECT_FALSE(folder.Has("a.lock"));
}

TEST(FileLock, SymbolicLink_IsNotFollowed) {
    const TemporaryFolder folder;
    folder.Write("target", "precious");
    std::filesystem::create_symlink(folder.Path("target"), folder.Path("a.lock"));

    EXPECT_THROW(FileLock(folder.Path("a.lock"), "a"), CommandError);
    EXPECT_EQ(folder.Read("target"), "precious");
}

TEST(FileLock, MissingFolder_IsALocalFailure) {
    const TemporaryFolder folder;
    try {
        const FileLock lock(folder.Path("none/a.lock"), "a");
        FAIL() << "locked";
    } catch (const CommandError& error) {
        EXPECT_EQ(error.Status(), ExitStatus::localFile);
    }
}

}  // namespace voinet_command
