// Copies from a repository directory, and the protocol that this platform does not have.

#include "support/restrictions.h"
#include "support/wiretest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kStarts = 2;
constexpr int kCopying = 3;
constexpr int kComplete = 4;
constexpr int kWriteFailed = 11;
constexpr int kStopped = 15;

class LocalCopy : public WireTest {
  protected:
    void SetUp() override {
        makeTransfer(voInetProtocolLocal);
        TransferSettings settings;
        settings.relativePath = widened(directory().path("repository"));
        applySettings(transfer(), settings);
    }

    std::string makeSource(std::string_view content, const std::string& name = "file.zip") const {
        return directory().makeFile("repository/" + name, content);
    }

    voInetError copyTo(const std::string& target) {
        long offset = 0;
        bool resume = false;
        return transfer().DownloadFile(widened(target), L"file.zip", &sink(), &offset, resume,
                                       true);
    }
};

TEST_F(LocalCopy, EveryKindOfSize_LandsWithTheNotificationsOfEachChunk) {
    for (const std::size_t size :
         {1U, 511U, 512U, 513U, 1024U, 4095U, 4096U, 4097U, 65'536U, 300'001U}) {
        const std::string content = makeBody(size, size);
        makeSource(content);
        const auto before = sink().notifications().size();

        EXPECT_EQ(download().result, voInetErrorSuccess) << size;

        expectLocalFile(content);
        // A source whose size is a multiple of 512 gets one more, with nothing new in it.
        EXPECT_EQ(sink().notifications().size() - before, size / 512 + 3) << size;
        EXPECT_EQ(sink().bytesDone(), size);
    }
}

TEST_F(LocalCopy, Notifications_CountUpIn512Bytes) {
    makeSource(makeBody(1200));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(sink().statuses(), ElementsAre(kStarts, kCopying, kCopying, kCopying, kComplete));
    std::vector<unsigned long> done;
    for (const auto& notification : sink().notifications()) {
        done.push_back(notification.done);
        EXPECT_EQ(notification.total, 1200);
        EXPECT_EQ(notification.siteText1, L"default");
        EXPECT_EQ(notification.siteText2, L"127.0.0.1");
        EXPECT_EQ(notification.remoteUrl, L"file.zip");
        EXPECT_TRUE(notification.goOn);
    }
    EXPECT_THAT(done, ElementsAre(0U, 512U, 1024U, 1200U, 1200U));
}

TEST_F(LocalCopy, EmptySource_GivesAnEmptyFileAndThreeNotifications) {
    makeSource("");

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("");
    EXPECT_THAT(sink().statuses(), ElementsAre(kStarts, kCopying, kComplete));
}

TEST_F(LocalCopy, ResumeAsked_StartsFromTheBeginningAndClearsTheFlag) {
    const std::string content = makeBody(5000);
    makeSource(content);
    makeLocalFile(makeBody(3000, 99));
    DownloadArguments arguments;
    arguments.resume = true;
    arguments.offset = 1976;

    const auto outcome = download(L"file.zip", arguments);

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_FALSE(outcome.resume);
    EXPECT_EQ(outcome.offset, 1976) << "not used";
    expectLocalFile(content);
}

TEST_F(LocalCopy, SubdirectoryAndNamesBeyondAscii_AreFound) {
    makeSource("content", "sub dir/gr\xc3\xbc\xc3\x9f.zip");

    EXPECT_EQ(download(L"sub dir/gr\u00fc\u00df.zip").result, voInetErrorSuccess);

    expectLocalFile("content");
}

TEST_F(LocalCopy, BackslashesInTheName_AreNotSeparators) {
    makeSource("under a directory", "sub/file.zip");
    makeSource("with a backslash", "sub\\file.zip");

    EXPECT_EQ(download(L"sub\\file.zip").result, voInetErrorSuccess);

    expectLocalFile("with a backslash");
}

TEST_F(LocalCopy, MissingSource_IsNotFoundAndLeavesAnEmptyTarget) {
    makeLocalFile("old");

    EXPECT_EQ(download().result, voInetErrorFileNotFound);

    expectLocalFile("");
    EXPECT_THAT(sink().notifications(), IsEmpty());
}

TEST_F(LocalCopy, MissingSourceAndTargetDirectory_IsNotFound) {
    EXPECT_EQ(copyTo(directory().path("missing/target")), voInetErrorFileNotFound);
}

TEST_F(LocalCopy, UnreadableSource_IsNotFound) {
    const std::string source = makeSource("secret");
    ASSERT_EQ(::chmod(source.c_str(), 0), 0);
    const PermissionsCount permissionsCount;

    EXPECT_EQ(download().result, voInetErrorFileNotFound);

    expectLocalFile("");
}

TEST_F(LocalCopy, UnwritableTarget_CannotBeOpenedAndStaysAsItWas) {
    makeSource("new");
    makeLocalFile("old");
    ASSERT_EQ(::chmod(localFile().c_str(), 0400), 0);
    const PermissionsCount permissionsCount;

    EXPECT_EQ(download().result, voInetErrorLocalFileOpen);

    expectLocalFile("old");
}

TEST_F(LocalCopy, MissingTargetDirectory_IsNotMade) {
    makeSource("new");

    EXPECT_EQ(copyTo(directory().path("missing/target")), voInetErrorLocalFileOpen);

    EXPECT_THAT(directory().entries(), ElementsAre("repository"));
}

TEST_F(LocalCopy, DirectoryAsTarget_CannotBeOpened) {
    makeSource("new");

    EXPECT_EQ(copyTo(directory().path()), voInetErrorLocalFileOpen);
}

TEST_F(LocalCopy, DirectoryAsSource_EndsLikeAnyReadErrorWithAnEmptyTarget) {
    makeSource("content", "file.zip/inner");

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("");
    EXPECT_THAT(sink().statuses(), ElementsAre(kStarts, kCopying, kComplete));
    EXPECT_EQ(sink().bytesDone(), 0U);
}

TEST_F(LocalCopy, FullTargetThatShowsOnlyWhenBufferedDataReachesIt_IsAWriteError) {
    makeSource("ten bytes.");

    EXPECT_EQ(copyTo("/dev/full"), voInetErrorWriteFailed);

    EXPECT_EQ(sink().statuses().back(), kWriteFailed);
    EXPECT_THAT(sink().statuses(), testing::Not(testing::Contains(kComplete)));
}

TEST_F(LocalCopy, FullTargetInTheMiddle_IsAWriteErrorAndLeavesWhatWasWritten) {
    const std::string content = makeBody(300'000);
    makeSource(content);
    {
        const FileSizeLimit limit(100'000);

        EXPECT_EQ(download().result, voInetErrorWriteFailed);
    }

    EXPECT_EQ(sink().statuses().back(), kWriteFailed);
    EXPECT_TRUE(sink().notifications().back().goOn) << "nobody has stopped it";
    expectLocalFile(content.substr(0, 100'000));
}

TEST_F(LocalCopy, FullTargetOfAStoppedCopy_IsReportedAsStopped) {
    makeSource(makeBody(100'000));
    sink().stopAt(1000);

    EXPECT_EQ(copyTo("/dev/full"), voInetErrorSuccess);

    EXPECT_THAT(sink().statuses(), ElementsAre(kStarts, kCopying, kCopying, kStopped));
}

TEST_F(LocalCopy, FlagOfEachReport_IsClearedForThatOfTheStopAlone) {
    makeSource(makeBody(10'000));
    sink().stopAt(1000);

    EXPECT_EQ(download().result, voInetErrorSuccess);

    for (const Notification& now : sink().notifications()) {
        EXPECT_EQ(now.goOn, now.status != kStopped) << now.status;
    }
    EXPECT_EQ(sink().statuses().back(), kStopped);
}

TEST_F(LocalCopy, FifoAsTarget_CannotBePositionedAndFails) {
    makeSource("content");
    const std::string fifo = directory().path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    // Opening it for writing waits for its other end.
    const int otherEnd = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);

    EXPECT_EQ(copyTo(fifo), voInetErrorFailed);

    ::close(otherEnd);
    std::remove(fifo.c_str());
    EXPECT_THAT(sink().notifications(), IsEmpty());
}

TEST_F(LocalCopy, SourceAsItsOwnTarget_IsRefusedAndStaysAsItWas) {
    const std::string content = makeBody(70'000);
    const std::string source = makeSource(content);

    EXPECT_EQ(copyTo(source), voInetErrorInvalidArgument);

    EXPECT_THAT(sink().notifications(), IsEmpty());
    EXPECT_EQ(readFile(source), content);
}

TEST_F(LocalCopy, HardLinkToTheSourceAsTarget_IsRefusedAndStaysAsItWas) {
    const std::string content = makeBody(70'000);
    ASSERT_EQ(::link(makeSource(content).c_str(), localFile().c_str()), 0);

    EXPECT_EQ(download().result, voInetErrorInvalidArgument);

    EXPECT_THAT(sink().notifications(), IsEmpty());
    expectLocalFile(content);
}

TEST_F(LocalCopy, NullDeviceAsItsOwnTarget_IsCopied) {
    TransferSettings settings;
    settings.relativePath = L"/dev";
    applySettings(transfer(), settings);
    bool resume = false;

    EXPECT_EQ(transfer().DownloadFile(L"/dev/null", L"null", &sink(), nullptr, resume, true),
              voInetErrorSuccess);

    EXPECT_THAT(sink().statuses(), ElementsAre(kStarts, kCopying, kComplete));
}

TEST_F(LocalCopy, StoppedBySink_KeepsWhatWasCopiedAndSucceeds) {
    const std::string content = makeBody(10'000);
    makeSource(content);
    sink().stopWhen(
        [](const Notification& now) { return now.status == kCopying && now.done >= 1000; });

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(content.substr(0, 1024));
    EXPECT_THAT(sink().statuses(), ElementsAre(kStarts, kCopying, kCopying, kStopped));
    EXPECT_FALSE(sink().notifications().back().goOn);
}

TEST_F(LocalCopy, StoppedAtTheFirstNotification_CopiesNothing) {
    makeSource(makeBody(10'000));
    sink().stopAt(0);

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("");
    EXPECT_THAT(sink().statuses(), ElementsAre(kStarts, kStopped));
}

TEST_F(LocalCopy, SinkThatThrows_StopsTheCopyWithAFailure) {
    const std::string content = makeBody(10'000);
    makeSource(content);
    sink().throwWhen([](const Notification& now) { return now.done >= 512; });

    EXPECT_EQ(download().result, voInetErrorFailed);

    expectLocalFile(content.substr(0, 512));
}

TEST_F(LocalCopy, Uploads_AreNotImplemented) {
    EXPECT_EQ(transfer().UploadFile(L"a", L"b", &sink()), voInetErrorNotImplemented);
    EXPECT_EQ(transfer().UploadFileResponse(L"a", L"b", L"c", &sink()), voInetErrorNotImplemented);
    EXPECT_THAT(sink().notifications(), IsEmpty());
}

TEST_F(LocalCopy, Logon_SucceedsWithoutLookingAtAnything) {
    EXPECT_EQ(transfer().Logon(true, 1), voInetErrorSuccess);
    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    EXPECT_EQ(transfer().LogOut(), voInetErrorSuccess);
}

TEST_F(LocalCopy, CheckOptions_SaysNoWhateverIsSet) {
    EXPECT_FALSE(transfer().CheckOptions());
    EXPECT_EQ(transfer().GetProtocol(), voInetProtocolLocal);
}

class Unc : public WireTest {
  protected:
    void SetUp() override { makeTransfer(voInetProtocolUnc); }
};

TEST_F(Unc, EveryOperation_IsNotImplemented) {
    makeLocalFile("old");
    DownloadArguments arguments;
    arguments.resume = true;
    arguments.offset = 5;

    const auto outcome = download(L"file.zip", arguments);

    EXPECT_EQ(outcome.result, voInetErrorNotImplemented);
    EXPECT_TRUE(outcome.resume);
    EXPECT_EQ(outcome.offset, 5);
    EXPECT_EQ(transfer().UploadFile(L"a", L"b", &sink()), voInetErrorNotImplemented);
    EXPECT_EQ(transfer().UploadFileResponse(L"a", L"b", L"c", &sink()), voInetErrorNotImplemented);
    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorNotImplemented);
    EXPECT_EQ(transfer().LogOut(), voInetErrorNotImplemented);
    EXPECT_THAT(sink().notifications(), IsEmpty());
    EXPECT_THAT(log().lines(), IsEmpty());
    expectLocalFile("old");
}

TEST_F(Unc, Options_AreAcceptedAndSaidToSuffice) {
    TransferSettings settings;
    settings.hostIp = L"127.0.0.1:1";
    settings.user = L"user";
    applySettings(transfer(), settings);

    EXPECT_TRUE(transfer().CheckOptions());
    EXPECT_EQ(transfer().GetProtocol(), voInetProtocolNone);
}

TEST(Factory, UnknownProtocols_GiveNothing) {
    for (const int protocol : {-1, 4, 5, 1000}) {
        EXPECT_EQ(makeTransfer(static_cast<voInetProtocol>(protocol)), nullptr) << protocol;
    }
}

TEST(Factory, DestroyingNothing_Succeeds) {
    EXPECT_EQ(VoInetItfFactory().DestroyInterface(nullptr), 0);
}

TEST(Factory, TwoFactories_ShareTheCreator) {
    EXPECT_EQ(VoInetItfFactory::initialize(), VoInetItfFactory::initialize());
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
