#include "voinet/lnxLocalConnection.h"

#include "kvecomn/telmcomn.h"
#include "support/curldouble.h"
#include "support/logcapture.h"
#include "support/nothrownew.h"
#include "support/recordingsink.h"
#include "support/temporaryfiles.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::size_t kChunk = 512;
/// What is read and written at once.
constexpr std::size_t kStepsPerBlock = 96;
constexpr std::size_t kBlock = kStepsPerBlock * kChunk;

/// The error with which the next stream is closed; 0: none.
int g_closeError = 0;

/// A repository directory, a target beside it, and a connection between the two.
class LocalConnection : public testing::Test {
  protected:
    LocalConnection() {
        std::filesystem::create_directory(scratch.file("repository"));
        connection.SetOption(voInetOptionSite, std::wstring(L"site"));
        connection.SetOption(voInetOptionRelativePath, scratch.wideFile("repository"));
    }

    void putSource(const std::string& content) { scratch.write("repository/source", content); }

    voInetError download(const std::wstring& remote = L"source") {
        return connection.DownloadFile(target, remote, &sink, nullptr, resume, true);
    }

    ScratchDirectory scratch;
    CLocalConnection connection;
    RecordingSink sink;
    /// The source with this name, then the target, must be what they were, and nobody notified.
    void expectRefused(const std::wstring& source) {
        resume = true;
        EXPECT_EQ(download(source), voInetErrorInvalidArgument);
        EXPECT_FALSE(resume);
        EXPECT_THAT(sink.reports, IsEmpty());
        EXPECT_EQ(scratch.read("repository/source"), "content");
    }

    bool resume = false;
    std::wstring target = scratch.wideFile("target");
};

/// The reports of a whole copy: the start, one for each read (the last of which meets the end of
/// the file), the end.
std::vector<Progress> reportsOfACopy(std::size_t size) {
    const auto total = static_cast<long>(size);
    std::vector<Progress> reports{{0, total, 2}};
    for (std::size_t done = kChunk; done <= size; done += kChunk) {
        reports.push_back({done, total, 3});
    }
    reports.push_back({size, total, 3});
    reports.push_back({size, total, 4});
    return reports;
}

/// Bytes copied when the sink gets report number `stop`, counted from 1.
std::size_t copiedAt(std::size_t stop, std::size_t size) {
    return std::min(size, (stop - 1) * kChunk);
}

}  // namespace

/// Takes the place of the C library's for the whole program: closes a stream, and tells the error
/// that a test has chosen.
extern "C" int fclose(std::FILE* stream) {
    using Close = int (*)(std::FILE*);
    static const auto kClose = reinterpret_cast<Close>(::dlsym(RTLD_NEXT, "fclose"));
    const int result = kClose(stream);
    if (g_closeError == 0) {
        return result;
    }
    errno = std::exchange(g_closeError, 0);
    return EOF;
}

TEST_F(LocalConnection, EmptySource_GivesOneReportOfEachKindAndAnEmptyTarget) {
    putSource("");
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_THAT(sink.reports, ElementsAre(Progress{0, 0, 2}, Progress{0, 0, 3}, Progress{0, 0, 4}));
    EXPECT_EQ(scratch.read("target"), "");
}

TEST_F(LocalConnection, SourcesOfAllSizesAroundTheChunk_AreCopiedAndReported) {
    for (const std::size_t size :
         {std::size_t{1}, std::size_t{2}, kChunk - 1, kChunk, kChunk + 1, 2 * kChunk - 1,
          2 * kChunk, 2 * kChunk + 1, std::size_t{5000}, kBlock - kChunk, kBlock - 1, kBlock,
          kBlock + 1, kBlock + kChunk, 3 * kBlock - 1, 3 * kBlock, 3 * kBlock + 1}) {
        putSource(positionDependentBytes(size));
        sink.reports.clear();
        EXPECT_EQ(download(), voInetErrorSuccess);
        EXPECT_EQ(sink.reports, reportsOfACopy(size)) << size;
        EXPECT_EQ(scratch.read("target"), positionDependentBytes(size)) << size;
    }
}

TEST_F(LocalConnection, SourceOfAWholeNumberOfChunks_GetsOneMoreReportWithTheSameCount) {
    putSource(positionDependentBytes(2 * kChunk));
    download();
    EXPECT_THAT(sink.reports,
                ElementsAre(Progress{0, 1024, 2}, Progress{512, 1024, 3}, Progress{1024, 1024, 3},
                            Progress{1024, 1024, 3}, Progress{1024, 1024, 4}));
}

TEST_F(LocalConnection, Reports_NameTheSiteTheLoopbackAddressAndTheRelativeName) {
    std::filesystem::create_directory(scratch.file("repository/sub"));
    scratch.write("repository/sub/file", "x");
    EXPECT_EQ(download(L"sub/file"), voInetErrorSuccess);
    EXPECT_THAT(sink.texts, ElementsAre(L"site", L"127.0.0.1", L"sub/file"));
    EXPECT_TRUE(sink.allStartedTrue);
}

TEST_F(LocalConnection, SinkThatStopsAtAChunk_EndsTheCopyThereWithSuccess) {
    putSource(positionDependentBytes(5000));
    sink.stopAt(3);
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_THAT(sink.reports, ElementsAre(Progress{0, 5000, 2}, Progress{512, 5000, 3},
                                          Progress{1024, 5000, 3}, Progress{1024, 5000, 15}));
    EXPECT_EQ(scratch.read("target"), positionDependentBytes(1024));
}

TEST_F(LocalConnection, SinkThatStopsAtTheStart_CopiesNothing) {
    putSource("content");
    scratch.write("target", "old");
    sink.stopAt(1);
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_THAT(sink.reports, ElementsAre(Progress{0, 7, 2}, Progress{0, 7, 15}));
    EXPECT_EQ(scratch.read("target"), "");
}

TEST_F(LocalConnection, SinkThatStopsAtTheLastChunk_IsReportedAsStopped) {
    putSource("content");
    sink.stopAt(2);
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_THAT(sink.reports,
                ElementsAre(Progress{0, 7, 2}, Progress{7, 7, 3}, Progress{7, 7, 15}));
    EXPECT_EQ(scratch.read("target"), "content");
}

TEST_F(LocalConnection, SinkThatStopsAnywhere_LeavesExactlyWhatItWasToldOf) {
    const std::size_t size = 2 * kBlock + kChunk + 7;
    const std::string content = positionDependentBytes(size);
    putSource(content);
    constexpr std::size_t kSecond = 2 * kStepsPerBlock;
    for (const std::size_t stop :
         {std::size_t{2}, std::size_t{3}, kStepsPerBlock - 1, kStepsPerBlock, kStepsPerBlock + 1,
          kStepsPerBlock + 2, kStepsPerBlock + 3, kSecond, kSecond + 1, kSecond + 2, kSecond + 3}) {
        sink.reports.clear();
        sink.stopAt(stop);
        EXPECT_EQ(download(), voInetErrorSuccess);
        EXPECT_EQ(scratch.read("target"), content.substr(0, copiedAt(stop, size))) << stop;
        EXPECT_EQ(sink.reports.size(), stop + 1);
        EXPECT_EQ(sink.reports.back(),
                  (Progress{copiedAt(stop, size), static_cast<long>(size), 15}));
    }
}

TEST_F(LocalConnection, TargetOfAStoppedCopy_IsCompleteWhenTheStopIsReported) {
    putSource(positionDependentBytes(5000));
    std::string seen;
    sink.stopAt(3).then([&](const Progress& progress) {
        if (progress.status == 15) {
            seen = scratch.read("target");
        }
    });
    download();
    EXPECT_EQ(seen, positionDependentBytes(2 * kChunk));
}

TEST_F(LocalConnection, SinkThatThrows_EndsTheCopyWithWhatItWasToldOf) {
    const std::size_t size = kBlock + 5000;
    putSource(positionDependentBytes(size));
    for (const std::size_t call : {std::size_t{1}, std::size_t{2}, std::size_t{12}, kStepsPerBlock,
                                   kStepsPerBlock + 1, kStepsPerBlock + 2, kStepsPerBlock + 6}) {
        sink.reports.clear();
        sink.then([&](const Progress&) {
            if (sink.reports.size() == call) {
                throw std::runtime_error("sink");
            }
        });
        EXPECT_EQ(download(), voInetErrorFailed) << "thrown at call " << call;
        EXPECT_EQ(scratch.read("target"), positionDependentBytes(copiedAt(call, size))) << call;
    }
}

TEST_F(LocalConnection, SinkThatThrowsForLackOfMemory_EndsTheCopyAsOutOfMemory) {
    putSource("content");
    sink.then([](const Progress&) { throw std::bad_alloc(); });
    EXPECT_EQ(download(), voInetErrorOutOfMemory);
}

TEST_F(LocalConnection, NoSink_CopiesEverything) {
    putSource(positionDependentBytes(kBlock + 700));
    EXPECT_EQ(connection.DownloadFile(target, L"source", nullptr, nullptr, resume, true),
              voInetErrorSuccess);
    EXPECT_EQ(scratch.read("target"), positionDependentBytes(kBlock + 700));
}

TEST_F(LocalConnection, SourceAsItsOwnTarget_IsRefusedAndStaysAsItWas) {
    putSource("content");
    target = scratch.wideFile("repository/source");
    expectRefused(L"source");
    target = scratch.wideFile("repository/../repository//source");
    expectRefused(L"source");
}

TEST_F(LocalConnection, EmptySourceAsItsOwnTarget_IsRefusedToo) {
    putSource("");
    target = scratch.wideFile("repository/source");
    EXPECT_EQ(download(), voInetErrorInvalidArgument);
    EXPECT_THAT(sink.reports, IsEmpty());
}

TEST_F(LocalConnection, LinksToTheSourceAsTarget_AreRefused) {
    putSource("content");
    std::filesystem::create_symlink(scratch.file("repository/source"), scratch.file("symbolic"));
    std::filesystem::create_hard_link(scratch.file("repository/source"), scratch.file("hard"));
    for (const char* const name : {"symbolic", "hard"}) {
        target = scratch.wideFile(name);
        expectRefused(L"source");
    }
}

TEST_F(LocalConnection, TargetAsALinkInTheRepository_IsRefused) {
    putSource("content");
    std::filesystem::create_symlink("source", scratch.file("repository/link"));
    target = scratch.wideFile("repository/source");
    expectRefused(L"link");
}

TEST_F(LocalConnection, AnotherFileWithTheSameContent_IsCopiedToThroughALink) {
    putSource("content");
    scratch.write("other", "content");
    std::filesystem::create_symlink(scratch.file("other"), scratch.file("target"));
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(sink.reports.back(), (Progress{7, 7, 4}));
    EXPECT_TRUE(std::filesystem::is_symlink(scratch.file("target")));
}

TEST_F(LocalConnection, DeviceAsItsOwnTarget_IsCopiedLikeAnyOther) {
    connection.SetOption(voInetOptionRelativePath, std::wstring(L"/dev"));
    target = L"/dev/null";
    EXPECT_EQ(download(L"null"), voInetErrorSuccess);
    EXPECT_THAT(sink.reports, ElementsAre(Progress{0, 0, 2}, Progress{0, 0, 3}, Progress{0, 0, 4}));
}

TEST_F(LocalConnection, DeviceAsSource_IsPassedOnAtEachStep) {
    connection.SetOption(voInetOptionRelativePath, std::wstring(L"/dev"));
    sink.stopAt(100).then([&](const Progress& progress) {
        EXPECT_EQ(std::filesystem::file_size(scratch.file("target")), progress.done);
    });
    EXPECT_EQ(download(L"zero"), voInetErrorSuccess);
    EXPECT_EQ(sink.reports.back(), (Progress{99 * kChunk, 0, 15}));
    EXPECT_EQ(scratch.read("target"), std::string(99 * kChunk, '\0'));
}

TEST_F(LocalConnection, PipeAsSource_CannotBePositionedAndFails) {
    const std::string pipe = scratch.file("repository/source");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const int otherEnd = ::open(pipe.c_str(), O_RDWR);
    EXPECT_EQ(download(), voInetErrorFailed);
    ::close(otherEnd);
    EXPECT_THAT(sink.reports, IsEmpty());
    EXPECT_EQ(scratch.read("target"), "");
}

TEST_F(LocalConnection, SourceThatGrowsMeanwhile_IsCopiedToItsEndWithTheFirstTotal) {
    putSource(positionDependentBytes(kBlock));
    sink.then([&](const Progress& progress) {
        if (progress.status == 2) {
            std::ofstream(scratch.file("repository/source"), std::ios::app)
                << positionDependentBytes(kBlock, kBlock);
        }
    });
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(sink.reports.back(), (Progress{2 * kBlock, static_cast<long>(kBlock), 4}));
    EXPECT_EQ(scratch.read("target"), positionDependentBytes(2 * kBlock));
}

TEST_F(LocalConnection, ResumeFlagSet_ComesBackClearedAndTheTargetIsWrittenAnew) {
    putSource(positionDependentBytes(4000));
    scratch.write("target", positionDependentBytes(2000, 7));
    resume = true;
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_FALSE(resume);
    EXPECT_EQ(scratch.read("target"), positionDependentBytes(4000));
    EXPECT_EQ(sink.reports.front(), (Progress{0, 4000, 2}));
}

TEST_F(LocalConnection, LongerTarget_IsTruncated) {
    putSource("new");
    scratch.write("target", std::string(3000, 'o'));
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(scratch.read("target"), "new");
}

TEST_F(LocalConnection, ResumeOffsetAndCacheFlag_AreNotUsed) {
    putSource("content");
    long offset = 3;
    EXPECT_EQ(connection.DownloadFile(target, L"source", &sink, &offset, resume, false),
              voInetErrorSuccess);
    EXPECT_EQ(offset, 3);
    EXPECT_EQ(scratch.read("target"), "content");
}

TEST_F(LocalConnection, MissingSource_AnswersFileNotFoundAndLeavesAnEmptyTarget) {
    scratch.write("target", "old");
    EXPECT_EQ(download(), voInetErrorFileNotFound);
    EXPECT_EQ(scratch.read("target"), "");
    EXPECT_THAT(sink.reports, IsEmpty());
}

TEST_F(LocalConnection, MissingSourceAndMissingTargetDirectory_AnswersFileNotFound) {
    target = scratch.wideFile("nowhere/target");
    EXPECT_EQ(download(), voInetErrorFileNotFound);
}

TEST_F(LocalConnection, MissingTargetDirectory_AnswersLocalFileOpenAndIsNotMade) {
    putSource("content");
    target = scratch.wideFile("nowhere/target");
    EXPECT_EQ(download(), voInetErrorLocalFileOpen);
    EXPECT_FALSE(std::filesystem::exists(scratch.file("nowhere")));
    EXPECT_THAT(sink.reports, IsEmpty());
}

TEST_F(LocalConnection, DirectoryAsTarget_AnswersLocalFileOpen) {
    putSource("content");
    target = scratch.wideFile("repository");
    EXPECT_EQ(download(), voInetErrorLocalFileOpen);
}

TEST_F(LocalConnection, DirectoryAsSource_EndsAsAReadErrorWithSuccess) {
    EXPECT_EQ(download(L"."), voInetErrorSuccess);
    ASSERT_FALSE(sink.reports.empty());
    EXPECT_EQ(sink.reports.front().status, 2);
    EXPECT_EQ(sink.reports.back().status, 4);
    EXPECT_EQ(scratch.read("target"), "");
}

TEST_F(LocalConnection, EmptyArguments_AnswerFileNotFound) {
    putSource("content");
    target.clear();
    EXPECT_EQ(connection.DownloadFile(L"", L"missing", &sink, nullptr, resume, true),
              voInetErrorFileNotFound);
    EXPECT_EQ(download(), voInetErrorLocalFileOpen);
}

TEST_F(LocalConnection, FullDevice_ReportsTheWriteErrorAndFails) {
    putSource("0123456789");
    target = L"/dev/full";
    EXPECT_EQ(download(), voInetErrorWriteFailed);
    EXPECT_THAT(sink.reports, ElementsAre(Progress{0, 10, 2}, Progress{10, 10, 11}));
}

TEST_F(LocalConnection, StoppedCopyOnAFullDevice_IsReportedAsStoppedWithSuccess) {
    putSource(positionDependentBytes(5000));
    target = L"/dev/full";
    sink.stopAt(2);
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_THAT(sink.reports,
                ElementsAre(Progress{0, 5000, 2}, Progress{512, 5000, 3}, Progress{512, 5000, 15}));
}

TEST_F(LocalConnection, StoppedCopyWhoseCloseFails_IsReportedAsStoppedWithSuccess) {
    putSource(positionDependentBytes(5000));
    sink.stopAt(2).then([](const Progress& progress) {
        if (progress.status != 15) {
            g_closeError = ENOSPC;
            return;
        }
        EXPECT_EQ(g_closeError, 0) << "the target was not closed before the last report";
    });
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(sink.reports.back(), (Progress{512, 5000, 15}));
}

TEST_F(LocalConnection, WholeCopyWhoseCloseFails_IsAWriteError) {
    putSource(positionDependentBytes(5000));
    for (const int error : {ENOSPC, EDQUOT, EIO}) {
        sink.reports.clear();
        sink.then(
            [&](const Progress& progress) { g_closeError = progress.status == 11 ? 0 : error; });
        EXPECT_EQ(download(), voInetErrorWriteFailed);
        EXPECT_EQ(sink.reports.size(), reportsOfACopy(5000).size());
        EXPECT_EQ(sink.reports.back(), (Progress{5000, 5000, 11}));
    }
}

TEST_F(LocalConnection, WholeCopyWhoseCloseIsInterrupted_LosesNothingAndSucceeds) {
    putSource("content");
    sink.then([](const Progress& progress) { g_closeError = progress.status == 4 ? 0 : EINTR; });
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(sink.reports, reportsOfACopy(7));
    EXPECT_EQ(scratch.read("target"), "content");
}

TEST_F(LocalConnection, FullDeviceAndALongSource_FailsToo) {
    putSource(positionDependentBytes(100000));
    target = L"/dev/full";
    EXPECT_EQ(download(), voInetErrorWriteFailed);
    EXPECT_EQ(sink.reports.back().status, 11);
    EXPECT_EQ(sink.reports.back().total, 100000);
}

TEST_F(LocalConnection, DiskThatFillsUp_LeavesWhatWasWritten) {
    putSource(positionDependentBytes(300000));
    {
        const FileSizeLimit limit(200000);
        EXPECT_EQ(download(), voInetErrorWriteFailed);
    }
    EXPECT_EQ(sink.reports.back().status, 11);
    EXPECT_EQ(scratch.read("target"), positionDependentBytes(200000));
}

TEST_F(LocalConnection, DiskThatFillsUpAtTheLastByte_FailsBeforeTheLastStepIsReported) {
    putSource(positionDependentBytes(kBlock + 1));
    {
        const FileSizeLimit limit(kBlock);
        EXPECT_EQ(download(), voInetErrorWriteFailed);
    }
    auto expected = reportsOfACopy(kBlock + 1);
    expected.pop_back();
    expected.back().status = 11;
    EXPECT_EQ(sink.reports, expected);
    EXPECT_EQ(scratch.read("target"), positionDependentBytes(kBlock));
}

TEST_F(LocalConnection, SourcePath_IsPlainConcatenationWithoutConversions) {
    scratch.write("repository/back\\slash", "literal");
    EXPECT_EQ(download(L"/back\\slash"), voInetErrorSuccess);
    EXPECT_EQ(scratch.read("target"), "literal");
}

TEST_F(LocalConnection, NamesOutsideAscii_AreUtf8OnDisk) {
    scratch.write("repository/gr\xC3\xBC\xC3\x9F", "greeting");
    EXPECT_EQ(download(L"gr\u00FC\u00DF"), voInetErrorSuccess);
    EXPECT_EQ(scratch.read("target"), "greeting");
}

TEST_F(LocalConnection, NoRelativePath_LooksInTheRoot) {
    CLocalConnection bare;
    const auto source = scratch.write("source", "rooted");
    EXPECT_EQ(
        bare.DownloadFile(target, telmcomn_ansi_to_wide(source), &sink, nullptr, resume, true),
        voInetErrorSuccess);
    EXPECT_EQ(scratch.read("target"), "rooted");
}

TEST_F(LocalConnection, AbsurdlyLongAndIllFormedNames_AnswerFileNotFound) {
    EXPECT_EQ(download(std::wstring(1 << 20, L'x')), voInetErrorFileNotFound);
    EXPECT_EQ(download(std::wstring(1, static_cast<wchar_t>(0xD800))), voInetErrorFileNotFound);
}

TEST_F(LocalConnection, LogonAndLogOut_AlwaysSucceed) {
    EXPECT_EQ(connection.Logon(true, 9), voInetErrorSuccess);
    EXPECT_EQ(connection.Logon(false, 0), voInetErrorSuccess);
    EXPECT_EQ(connection.LogOut(), voInetErrorSuccess);
}

TEST_F(LocalConnection, Uploads_AreNotImplemented) {
    EXPECT_EQ(connection.UploadFile(L"a", L"b", &sink), voInetErrorNotImplemented);
    EXPECT_EQ(connection.UploadFileResponse(L"a", L"b", L"c", nullptr), voInetErrorNotImplemented);
    EXPECT_THAT(sink.reports, IsEmpty());
}

TEST_F(LocalConnection, CheckOptions_IsFalseEvenWithEverySettingFilled) {
    connection.SetOption(voInetOptionHostIP, std::wstring(L"10.0.0.1:80"));
    connection.SetOption(voInetOptionUser, std::wstring(L"user"));
    connection.m_strHost = L"10.0.0.1";
    connection.m_nPort = 80;
    EXPECT_FALSE(connection.CheckOptions());
}

TEST_F(LocalConnection, NoOperation_LogsOrTouchesCurl) {
    putSource("content");
    download();
    download(L"missing");
    EXPECT_THAT(logLines(), IsEmpty());
    EXPECT_THAT(curlDouble().trace(), IsEmpty());
}

TEST_F(LocalConnection, Source_IsNeverChanged) {
    putSource(positionDependentBytes(3000));
    download();
    EXPECT_EQ(scratch.read("repository/source"), positionDependentBytes(3000));
}

TEST_F(LocalConnection, GetFileSize_GivesTheSizeAndLeavesItUntouchedOnFailure) {
    unsigned long size = 99;
    EXPECT_FALSE(getFileSize(scratch.file("missing"), size));
    EXPECT_FALSE(getFileSize("", size));
    EXPECT_EQ(size, 99U);
    EXPECT_TRUE(getFileSize(scratch.write("four", "1234"), size));
    EXPECT_EQ(size, 4U);
}

TEST_F(LocalConnection, IsResumable_DependsOnTheSizesAlone) {
    struct Case {
        std::size_t target;
        std::size_t source;
        bool resumable;
    };
    const std::vector<Case> cases{{1024, 1024, true},  {1023, 5000, false}, {1023, 1023, false},
                                  {1024, 1023, false}, {1025, 1025, true},  {1025, 1024, false},
                                  {5000, 9000, true},  {0, 0, false},       {9000, 5000, false}};
    for (const auto& each : cases) {
        unsigned long offset = 7;
        // Contents differ on purpose: the source's is not looked at.
        const auto targetFile = scratch.write("t", positionDependentBytes(each.target));
        const auto sourceFile = scratch.write("s", std::string(each.source, 's'));
        EXPECT_EQ(isResumable(targetFile, sourceFile, offset), each.resumable);
        EXPECT_EQ(offset, each.resumable ? each.target : 7U) << each.target;
    }
}

TEST_F(LocalConnection, IsResumable_IsFalseForMissingFiles) {
    const auto file = scratch.write("t", positionDependentBytes(2000));
    unsigned long offset = 7;
    EXPECT_FALSE(isResumable(scratch.file("missing"), file, offset));
    EXPECT_FALSE(isResumable(file, scratch.file("missing"), offset));
    EXPECT_EQ(offset, 7U);
}

TEST_F(LocalConnection, NoMemoryForTheCopy_AnswersOutOfMemory) {
    putSource("content");
    failNothrowNew(512);
    EXPECT_EQ(download(), voInetErrorOutOfMemory);
    EXPECT_THAT(sink.reports, IsEmpty());
}
