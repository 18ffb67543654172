#include "voinet/cbmgr.h"

#include "kvecomn/telmcomn.h"
#include "support/logcapture.h"
#include "support/temporaryfiles.h"
#include "voinet/INetUtils.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kPrefix = 1024;
using Type = CallbackManager::TransferType;

/// While set, no file seems to exist: the moment before another process has made it.
bool accessIsBlind = false;

/// Managers for the local file "local" of a scratch directory.
class Manager : public testing::Test {
  protected:
    CallbackManager& make(Type type, long start = 0, bool prefixCheck = false) {
        manager =
            std::make_unique<CallbackManager>(type, scratch.wideFile(localName), L"site", L"host",
                                              L"http://h/\u00E4", start, prefixCheck);
        noteTemporaryFiles();
        return *manager;
    }
    CallbackManager& makeDownload(long start = 0) {
        return make(CallbackManager::TransferDownload, start);
    }
    CallbackManager& makePrefixCheck(long start) {
        return make(CallbackManager::TransferDownload, start, true);
    }

    unsigned long write(std::string bytes) {
        return manager->WriteData(bytes.data(), bytes.size());
    }

    /// The one temporary file that is open.
    static std::string temporaryFile() {
        const auto files = openTemporaryFiles();
        EXPECT_EQ(files.size(), 1U);
        return files.empty() ? std::string() : *files.begin();
    }

    std::string local() const { return scratch.read(localName); }

    ScratchDirectory scratch;
    std::string localName = "local";
    std::unique_ptr<CallbackManager> manager;
};

std::string content(std::size_t size) {
    return positionDependentBytes(size);
}

}  // namespace

extern "C" int access(const char* path, int mode) noexcept {
    using Function = int (*)(const char*, int);
    static const auto kReal = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "access"));
    if (accessIsBlind) {
        errno = ENOENT;
        return -1;
    }
    return kReal(path, mode);
}

TEST_F(Manager, TransferTypes_HaveTheNumbersOfTheInterface) {
    EXPECT_EQ(static_cast<int>(CallbackManager::TransferUpload), 0);
    EXPECT_EQ(static_cast<int>(CallbackManager::TransferDownload), 1);
    EXPECT_EQ(static_cast<int>(CallbackManager::TransferDownloadSilent), 2);
}

TEST_F(Manager, PositionsAndUrl_AreThoseOfTheTransfer) {
    EXPECT_EQ(makeDownload(0).GetStartPosition(), 0);
    EXPECT_EQ(manager->GetEndPosition(), -1);
    EXPECT_STREQ(manager->GetRemoteUrl(), "http://h/\xC3\xA4");
    EXPECT_EQ(makeDownload(77).GetStartPosition(), 77);
    EXPECT_EQ(manager->GetEndPosition(), -1);
    EXPECT_EQ(makePrefixCheck(5000).GetStartPosition(), 5000);
    EXPECT_EQ(manager->GetEndPosition(), 6023);
    EXPECT_EQ(makePrefixCheck(0).GetEndPosition(), 1023);
}

TEST_F(Manager, Download_WritesIntoATemporaryFileOnly) {
    scratch.write("local", "old");
    makeDownload();
    const auto bytes = content(3000);
    EXPECT_EQ(write(bytes.substr(0, 1000)), 1000U);
    EXPECT_EQ(write(bytes.substr(1000)), 2000U);
    EXPECT_EQ(readFile(temporaryFile()), bytes);
    EXPECT_EQ(local(), "old");
}

TEST_F(Manager, DownloadFromTheStart_EmptiesTheTemporaryCopy) {
    scratch.write("local", "old content");
    for (const long start : {0L, -1L, -5000L}) {
        makeDownload(start);
        EXPECT_EQ(readFile(temporaryFile()), "") << start;
    }
}

TEST_F(Manager, ResumedDownload_WritesBehindACopyOfTheLocalFile) {
    scratch.write("local", content(2000));
    for (const long start : {1L, 1500L, 2000L}) {
        makeDownload(start);
        write("NEW");
        const auto expected = content(2000).replace(static_cast<std::size_t>(start), 3, "NEW");
        EXPECT_EQ(readFile(temporaryFile()), expected) << start;
    }
}

TEST_F(Manager, ResumedDownloadWithoutALocalFile_TakesNothing) {
    makeDownload(100);
    EXPECT_EQ(write("bytes"), 0U);
    EXPECT_THAT(openTemporaryFiles(), IsEmpty());
}

TEST_F(Manager, TemporaryFile_IsPrivate) {
    makeDownload();
    struct stat status {};
    ASSERT_EQ(stat(temporaryFile().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(Manager, TemporaryNameThatIsTheLocalPath_IsPassedOver) {
    std::string seeded;
    CreateTempFileName(&seeded);
    srandom(99);
    const auto first = "/tmp/Cbmgr" + std::to_string(random());
    srandom(99);
    manager = std::make_unique<CallbackManager>(
        CallbackManager::TransferDownload, telmcomn_ansi_to_wide(first), L"", L"", L"", 0, false);
    noteTemporaryFiles();
    EXPECT_NE(temporaryFile(), first);
    EXPECT_FALSE(fs::exists(first));
}

// Processes that start within the same second draw the same names. Both looked before either had
// made its file, and then both wrote into the same one.
TEST_F(Manager, TemporaryNameThatAnotherProcessTakesFirst_IsNotShared) {
    std::string taken;
    CreateTempFileName(&taken);
    srandom(99);
    CreateTempFileName(&taken);
    std::ofstream(taken) << "the neighbour's";
    srandom(99);
    accessIsBlind = true;
    makeDownload();
    accessIsBlind = false;
    write("mine");
    EXPECT_EQ(readFile(taken), "the neighbour's");
    EXPECT_NE(temporaryFile(), taken);
    fs::remove(taken);
}

TEST_F(Manager, FullDisk_ShowsAsAShortCount) {
    makeDownload();
    const FileSizeLimit limit(1000);
    EXPECT_EQ(write(content(800)), 800U);
    EXPECT_EQ(write(content(800)), 200U);
    EXPECT_EQ(write(content(800)), 0U);
}

TEST_F(Manager, Destruction_RemovesTheTemporaryFile) {
    makeDownload();
    write("partial");
    const auto file = temporaryFile();
    manager.reset();
    EXPECT_FALSE(fs::exists(file));
    EXPECT_FALSE(fs::exists(scratch.file("local")));
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(Manager, FinishTransfer_PutsTheReceivedBytesInPlace) {
    scratch.write("local", "old and longer than the new one");
    makeDownload();
    write("new");
    EXPECT_TRUE(manager->FinishTransfer());
    EXPECT_EQ(local(), "new");
}

TEST_F(Manager, FinishTransferOfAResume_KeepsTheHeadOfTheLocalFile) {
    scratch.write("local", content(1000));
    makeDownload(1000);
    write(positionDependentBytes(500, 1000));
    EXPECT_TRUE(manager->FinishTransfer());
    EXPECT_EQ(local(), content(1500));
}

TEST_F(Manager, FinishTransfer_LeavesTheTemporaryFileUntilDestruction) {
    makeDownload();
    write("new");
    manager->FinishTransfer();
    const auto file = temporaryFile();
    EXPECT_EQ(readFile(file), "") << "from position 0 the file is made anew";
    manager.reset();
    EXPECT_FALSE(fs::exists(file));
}

TEST_F(Manager, FinishTransferOfAResume_GoesBackToTheStartPosition) {
    scratch.write("local", content(1000));
    makeDownload(600);
    write("first");
    manager->FinishTransfer();
    write("again");
    EXPECT_EQ(readFile(temporaryFile()), content(1000).replace(600, 5, "again"));
}

TEST_F(Manager, FinishTransfer_MakesEveryMissingDirectoryAndNotTheFileAsADirectory) {
    localName = "one/two/three/local";
    makeDownload();
    write("deep");
    EXPECT_TRUE(manager->FinishTransfer());
    EXPECT_EQ(local(), "deep");
    EXPECT_TRUE(fs::is_regular_file(scratch.file("one/two/three/local")));
}

TEST_F(Manager, FinishTransferBelowAMissingShortDirectory_LeavesItMissing) {
    const auto before = fs::current_path();
    fs::current_path(scratch.path());
    manager = std::make_unique<CallbackManager>(CallbackManager::TransferDownload, L"abc/local",
                                                L"", L"", L"", 0, false);
    write("nowhere");
    EXPECT_TRUE(manager->FinishTransfer());
    fs::current_path(before);
    EXPECT_FALSE(fs::exists(scratch.file("abc")));
}

TEST_F(Manager, FinishTransferBeyond260Characters_StillMakesTheDirectories) {
    localName = std::string(150, 'a') + "/" + std::string(150, 'b') + "/" + std::string(150, 'c') +
                "/local";
    makeDownload();
    write("deep");
    EXPECT_TRUE(manager->FinishTransfer());
    EXPECT_EQ(local(), "deep");
}

TEST_F(Manager, FinishTransferThatCannotReplace_AnswersTrueAndLeavesOneErrorLine) {
    fs::create_directory(scratch.file("local"));
    makeDownload();
    write("new");
    clearLog();
    EXPECT_TRUE(manager->FinishTransfer());
    EXPECT_TRUE(fs::is_directory(scratch.file("local")));
    EXPECT_EQ(logLines("error").size(), 1U);
}

TEST_F(Manager, FinishTransferOfAPrefixCheck_LeavesTheLocalFile) {
    scratch.write("local", content(3000));
    makePrefixCheck(1000);
    write(std::string(1024, 'x'));
    EXPECT_TRUE(manager->FinishTransfer());
    EXPECT_EQ(local(), content(3000));
}

TEST_F(Manager, Flush_DropsWhatArrivedAndStartsOver) {
    scratch.write("local", content(1000));
    for (const long start : {0L, 400L}) {
        makeDownload(start);
        write(std::string(2000, 'x'));
        EXPECT_TRUE(manager->Flush());
        write("kept");
        auto expected = start ? content(1000).replace(400, 4, "kept") : std::string("kept");
        EXPECT_EQ(readFile(temporaryFile()), expected) << start;
    }
}

TEST_F(Manager, Flush_TakesTheLocalFileAsItIsNow) {
    scratch.write("local", content(1000));
    makeDownload(10);
    scratch.write("local", std::string(20, 'n'));
    EXPECT_TRUE(manager->Flush());
    EXPECT_EQ(readFile(temporaryFile()), std::string(20, 'n'));
}

TEST_F(Manager, PrefixCheckWithTheLocalBytes_Matches) {
    scratch.write("local", content(8000));
    makePrefixCheck(5000);
    for (std::size_t sent = 0; sent < kPrefix; sent += 256) {
        EXPECT_FALSE(manager->IsPrefixMatched());
        EXPECT_EQ(write(content(8000).substr(5000 + sent, 256)), 256U);
    }
    EXPECT_TRUE(manager->IsPrefixMatched());
}

TEST_F(Manager, PrefixCheckWithOneWrongByteAnywhere_DoesNotMatch) {
    scratch.write("local", content(2000));
    for (std::size_t wrong = 0; wrong < kPrefix; ++wrong) {
        makePrefixCheck(500);
        auto bytes = content(2000).substr(500, kPrefix);
        bytes[wrong] = static_cast<char>(bytes[wrong] ^ 1);
        write(bytes);
        ASSERT_FALSE(manager->IsPrefixMatched()) << wrong;
    }
}

TEST_F(Manager, PrefixCheckWith1500Bytes_KeepsTheFirst1024AndTakesAll) {
    scratch.write("local", content(8000));
    makePrefixCheck(5000);
    EXPECT_EQ(write(content(8000).substr(5000, 1500)), 1500U);
    EXPECT_TRUE(manager->IsPrefixMatched());
    EXPECT_EQ(write("more"), 4U);
    EXPECT_TRUE(manager->IsPrefixMatched());
}

TEST_F(Manager, PrefixBlockThatStraddlesTheMark_IsKeptUpToIt) {
    scratch.write("local", content(8000));
    for (const std::size_t first : {1U, 1000U, 1023U, 1024U}) {
        makePrefixCheck(5000);
        write(content(8000).substr(5000, first));
        EXPECT_EQ(write(content(8000).substr(5000 + first, 1024 - first) + "beyond"),
                  1024 - first + 6);
        EXPECT_TRUE(manager->IsPrefixMatched()) << first;
    }
}

TEST_F(Manager, PrefixCheck_WritesNothingAndHasNoTemporaryFile) {
    scratch.write("local", content(3000));
    makePrefixCheck(1000);
    write(std::string(2000, 'x'));
    EXPECT_TRUE(manager->FinishTransfer());
    EXPECT_TRUE(openTemporaryFiles().empty());
    EXPECT_EQ(readFile(scratch.file("local")), content(3000));
}

TEST_F(Manager, ShortAnswer_MatchesOnlyZeros) {
    scratch.write("local", content(1000) + "tail" + std::string(2000, '\0'));
    makePrefixCheck(1000);
    EXPECT_FALSE(manager->IsPrefixMatched());
    write("tail");
    EXPECT_TRUE(manager->IsPrefixMatched());
    makePrefixCheck(900);
    write(content(1000).substr(900, 50));
    EXPECT_FALSE(manager->IsPrefixMatched());
}

TEST_F(Manager, PrefixCheckAtTheFilesEnd_ComparesWithZerosBehindIt) {
    scratch.write("local", content(2000));
    makePrefixCheck(1500);
    write(content(2000).substr(1500));
    EXPECT_TRUE(manager->IsPrefixMatched());
    makePrefixCheck(1500);
    write(content(2600).substr(1500, 1024));
    EXPECT_FALSE(manager->IsPrefixMatched());
}

TEST_F(Manager, PrefixCheckBeyondTheFilesEndOrWithoutAFile_MatchesAnEmptyAnswerOnly) {
    for (const bool exists : {true, false}) {
        localName = exists ? "short" : "missing";
        if (exists) {
            scratch.write("short", "abc");
        }
        makePrefixCheck(5000);
        EXPECT_TRUE(manager->IsPrefixMatched());
        write("bytes");
        EXPECT_FALSE(manager->IsPrefixMatched());
    }
}

TEST_F(Manager, FlushOfAPrefixCheck_ForgetsTheReceivedPrefix) {
    scratch.write("local", content(3000));
    makePrefixCheck(1000);
    write(std::string(700, 'x'));
    EXPECT_TRUE(manager->Flush());
    write(content(3000).substr(1000, 1024));
    EXPECT_TRUE(manager->IsPrefixMatched());
}

TEST_F(Manager, ShortAnswerAfterAFlush_IsFollowedByZerosAndNotByEarlierBytes) {
    scratch.write("local", content(1000) + "tail" + std::string(2000, '\0'));
    makePrefixCheck(1000);
    write(std::string(1024, 'x'));
    manager->Flush();
    write("tail");
    EXPECT_TRUE(manager->IsPrefixMatched());
}

TEST_F(Manager, FlushOfAPrefixCheck_ReadsTheLocalPrefixAnew) {
    scratch.write("local", content(3000));
    makePrefixCheck(1000);
    scratch.write("local", std::string(3000, 'n'));
    EXPECT_TRUE(manager->Flush());
    write(std::string(1024, 'n'));
    EXPECT_TRUE(manager->IsPrefixMatched());
}

TEST_F(Manager, PlainDownload_NeverMatchesByWhatItReceives) {
    scratch.write("local", content(3000));
    makeDownload(1000);
    write(content(3000).substr(1000, 1024));
    EXPECT_TRUE(manager->IsPrefixMatched()) << "both prefixes are empty outside of a check";
}

TEST_F(Manager, Upload_ReadsTheLocalFileInPieces) {
    scratch.write("local", content(2500));
    make(CallbackManager::TransferUpload);
    std::string sent;
    std::string buffer(1000, '\0');
    std::vector<unsigned long> counts;
    while (const auto count = manager->ReadData(buffer.data(), buffer.size())) {
        counts.push_back(count);
        sent.append(buffer, 0, count);
    }
    EXPECT_EQ(sent, content(2500));
    EXPECT_THAT(counts, ElementsAre(1000U, 1000U, 500U));
}

TEST_F(Manager, UploadOfAMissingOrEmptyFile_SendsNothing) {
    char buffer[16];
    make(CallbackManager::TransferUpload);
    EXPECT_EQ(manager->ReadData(buffer, sizeof buffer), 0U);
    scratch.write("local", "");
    make(CallbackManager::TransferUpload);
    EXPECT_EQ(manager->ReadData(buffer, sizeof buffer), 0U);
    EXPECT_THAT(logLines(), IsEmpty());
}

TEST_F(Manager, Upload_SwallowsTheAnswerAndCannotBeFlushedOrFinished) {
    scratch.write("local", "source");
    make(CallbackManager::TransferUpload);
    EXPECT_EQ(write("answer"), 6U);
    EXPECT_FALSE(manager->Flush());
    EXPECT_FALSE(manager->FinishTransfer());
    EXPECT_EQ(local(), "source");
}

TEST_F(Manager, DestroyingAnUpload_DeletesNoFileAndMakesNone) {
    scratch.write("local", "source");
    make(CallbackManager::TransferUpload);
    EXPECT_THAT(openTemporaryFiles(), IsEmpty());
    manager.reset();
    EXPECT_THAT(scratch.names(), ElementsAre("local"));
}

TEST_F(Manager, ReadDataOfADownload_TakesTheSizeAndLeavesTheBuffer) {
    makeDownload();
    std::string buffer = "untouched";
    EXPECT_EQ(manager->ReadData(buffer.data(), buffer.size()), 9U);
    EXPECT_EQ(buffer, "untouched");
}

TEST_F(Manager, MakeRecursiveDir_MakesOnlyWhatLiesPastTheFourthCharacter) {
    const auto before = fs::current_path();
    fs::current_path(scratch.path());
    makeDownload();
    EXPECT_TRUE(manager->MakeRecursiveDir("abc/file"));
    EXPECT_TRUE(manager->MakeRecursiveDir("abcd/file"));
    fs::current_path(before);
    EXPECT_THAT(scratch.names(), ElementsAre("abcd"));
}

TEST_F(Manager, MakeRecursiveDir_LeavesAFirstDirectoryOfOneLetterAlone) {
    // "/a/" ends at index 2; were it made, the two below it would be made as well.
    makeDownload();
    EXPECT_FALSE(manager->MakeRecursiveDir("/a/b/c/file"));
    EXPECT_FALSE(fs::exists("/a"));
}

TEST_F(Manager, MakeRecursiveDir_AnswersWhetherTheLastDirectoryWasMade) {
    makeDownload();
    EXPECT_TRUE(manager->MakeRecursiveDir(scratch.file("x/y/file").c_str()));
    EXPECT_FALSE(manager->MakeRecursiveDir(scratch.file("x/y/file").c_str()));
    EXPECT_TRUE(manager->MakeRecursiveDir(scratch.file("x/y/z/file").c_str()));
    struct stat status {};
    ASSERT_EQ(stat(scratch.file("x/y/z").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0700U);
}

TEST_F(Manager, MakeRecursiveDirOfNullAndOfNothingToMake_IsTrue) {
    makeDownload();
    for (const char* path : {static_cast<const char*>(nullptr), "", "file", "/", "/tmp"}) {
        EXPECT_TRUE(manager->MakeRecursiveDir(path));
    }
}
