#include "voinet/callbacks.h"

#include "support/recordingsink.h"
#include "support/temporaryfiles.h"
#include "voinet/cbmgr.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <stdexcept>
#include <string>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr double kBeyondEveryInteger = 1e300;

class Callbacks : public testing::Test {
  protected:
    /// A manager of the given kind; the local file "local" exists.
    CallbackManager make(CallbackManager::TransferType type, bool prefixCheck = false) {
        scratch.write("local", "content");
        return {type,       scratch.wideFile("local"), L"the site", L"the host", L"http://h/f", 0,
                prefixCheck};
    }

    ScratchDirectory scratch;
    RecordingSink sink;
};

}  // namespace

TEST_F(Callbacks, NullUserData_IsHarmless) {
    char bytes[6] = "bytes";
    EXPECT_EQ(writeCallback(bytes, 2, 3, nullptr), 6U);
    EXPECT_EQ(readCallback(bytes, 2, 3, nullptr), 0U);
    EXPECT_EQ(progressCallback(nullptr, 1, 2, 3, 4), 0);
}

TEST_F(Callbacks, Write_HandsOnSizeTimesCount) {
    auto manager = make(CallbackManager::TransferDownload);
    std::string bytes = "abcdefghij";
    EXPECT_EQ(writeCallback(bytes.data(), 2, 3, &manager), 6U);
    EXPECT_EQ(writeCallback(bytes.data(), 1, 0, &manager), 0U);
    manager.FinishTransfer();
    EXPECT_EQ(scratch.read("local"), "abcdef");
}

TEST_F(Callbacks, WriteOnAFullDisk_AnswersTheShortCount) {
    auto manager = make(CallbackManager::TransferDownload);
    std::string bytes(100, 'b');
    const FileSizeLimit limit(30);
    EXPECT_EQ(writeCallback(bytes.data(), 1, 100, &manager), 30U);
}

TEST_F(Callbacks, Read_FillsSizeTimesCount) {
    auto manager = make(CallbackManager::TransferUpload);
    std::string buffer(6, '-');
    EXPECT_EQ(readCallback(buffer.data(), 2, 2, &manager), 4U);
    EXPECT_EQ(buffer, "cont--");
    EXPECT_EQ(readCallback(buffer.data(), 3, 2, &manager), 3U);
    EXPECT_EQ(readCallback(buffer.data(), 3, 2, &manager), 0U);
}

TEST_F(Callbacks, ProgressOfADownload_ReachesTheSinkTruncated) {
    auto manager = make(CallbackManager::TransferDownload);
    manager.InstallProgressSink(&sink);
    EXPECT_EQ(progressCallback(&manager, 1000.9, 10.7, 5, 6), 0);
    EXPECT_EQ(progressCallback(&manager, 0, 0, 0, 0), 0);
    EXPECT_THAT(sink.reports, ElementsAre(Progress{10, 1000, 3}, Progress{0, 0, 3}));
    EXPECT_THAT(sink.texts, ElementsAre(L"the site", L"the host", L"http://h/f"));
    EXPECT_TRUE(sink.allStartedTrue);
}

TEST_F(Callbacks, ProgressOfAnUpload_ReportsTheUploadsFigures) {
    auto manager = make(CallbackManager::TransferUpload);
    manager.InstallProgressSink(&sink);
    EXPECT_EQ(progressCallback(&manager, 5, 6, 1000, 10), 0);
    EXPECT_THAT(sink.reports, ElementsAre(Progress{10, 1000, 6}));
}

TEST_F(Callbacks, SinkThatClearsTheFlag_StopsAtThatCallAndNotBefore) {
    for (const auto type : {CallbackManager::TransferDownload, CallbackManager::TransferUpload}) {
        auto manager = make(type);
        sink = RecordingSink();
        sink.stopAt(2);
        manager.InstallProgressSink(&sink);
        EXPECT_EQ(progressCallback(&manager, 9, 1, 9, 1), 0);
        EXPECT_EQ(progressCallback(&manager, 9, 2, 9, 2), 1);
        EXPECT_EQ(progressCallback(&manager, 9, 3, 9, 3), 0) << "the flag is true at each entry";
        EXPECT_TRUE(sink.allStartedTrue);
    }
}

TEST_F(Callbacks, SilentTransferAndPrefixCheck_NeverCallTheSink) {
    sink.stopAt(1);
    auto silent = make(CallbackManager::TransferDownloadSilent);
    silent.InstallProgressSink(&sink);
    EXPECT_EQ(progressCallback(&silent, 9, 1, 9, 1), 0);
    auto check = make(CallbackManager::TransferDownload, true);
    check.InstallProgressSink(&sink);
    EXPECT_EQ(progressCallback(&check, 9, 1, 9, 1), 0);
    EXPECT_THAT(sink.reports, IsEmpty());
}

TEST_F(Callbacks, WithoutASink_ProgressGoesOn) {
    auto manager = make(CallbackManager::TransferDownload);
    EXPECT_EQ(progressCallback(&manager, 9, 1, 9, 1), 0);
    manager.InstallProgressSink(&sink);
    EXPECT_EQ(manager.UnInstallProgressSink(), &sink);
    EXPECT_EQ(manager.UnInstallProgressSink(), nullptr);
    EXPECT_EQ(progressCallback(&manager, 9, 1, 9, 1), 0);
    EXPECT_THAT(sink.reports, IsEmpty());
}

TEST_F(Callbacks, LatestSink_TakesThePlaceOfTheOneBefore) {
    auto manager = make(CallbackManager::TransferDownload);
    RecordingSink replaced;
    manager.InstallProgressSink(&replaced);
    manager.InstallProgressSink(&sink);
    progressCallback(&manager, 9, 1, 9, 1);
    EXPECT_THAT(replaced.reports, IsEmpty());
    EXPECT_EQ(sink.reports.size(), 1U);
}

TEST_F(Callbacks, FiguresBeyondTheRangeOfTheTypes_Saturate) {
    auto manager = make(CallbackManager::TransferDownload);
    manager.InstallProgressSink(&sink);
    progressCallback(&manager, kBeyondEveryInteger, kBeyondEveryInteger, 0, 0);
    const auto infinite = std::numeric_limits<double>::infinity();
    progressCallback(&manager, infinite, infinite, 0, 0);
    // The double nearest to the largest long lies one beyond it.
    progressCallback(&manager, static_cast<double>(LONG_MAX), static_cast<double>(ULONG_MAX), 0, 0);
    EXPECT_THAT(sink.reports, testing::Each(Progress{ULONG_MAX, LONG_MAX, 3}));
    EXPECT_EQ(sink.reports.size(), 3U);
}

TEST_F(Callbacks, FiguresBelowTheRangeOfTheTypes_SaturateToo) {
    auto manager = make(CallbackManager::TransferDownload);
    manager.InstallProgressSink(&sink);
    progressCallback(&manager, -kBeyondEveryInteger, -5, 0, 0);
    EXPECT_THAT(sink.reports, ElementsAre(Progress{0, LONG_MIN, 3}));
}

TEST_F(Callbacks, FigureThatIsNoNumber_IsReportedAndDoesNotStopTheTransfer) {
    auto manager = make(CallbackManager::TransferDownload);
    manager.InstallProgressSink(&sink);
    const auto noNumber = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(progressCallback(&manager, noNumber, noNumber, 0, 0), 0);
    EXPECT_THAT(sink.reports, ElementsAre(Progress{0, 0, 3}));
}

TEST_F(Callbacks, SinkThatThrows_StopsTheTransferAndTheExceptionStaysInside) {
    auto manager = make(CallbackManager::TransferDownload);
    sink.then([](const Progress&) { throw std::runtime_error("sink"); });
    manager.InstallProgressSink(&sink);
    int answer = -1;
    EXPECT_NO_THROW(answer = progressCallback(&manager, 9, 1, 0, 0));
    EXPECT_EQ(answer, 1);
}

TEST_F(Callbacks, SinkThatThrowsNoStandardException_StopsTheTransferToo) {
    auto manager = make(CallbackManager::TransferUpload);
    sink.then([](const Progress&) { throw 42; });
    manager.InstallProgressSink(&sink);
    int answer = -1;
    EXPECT_NO_THROW(answer = progressCallback(&manager, 0, 0, 9, 1));
    EXPECT_EQ(answer, 1);
}
