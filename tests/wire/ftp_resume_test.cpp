// Resumed FTP downloads: the comparison before it, the offset, and starting over.

#include "support/ftp.h"

#include <cstdio>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;

constexpr std::size_t kSize = 50'000;
constexpr std::size_t kPartial = 20'000;
constexpr std::size_t kPrefix = 1024;
constexpr std::size_t kOffset = kPartial - kPrefix;

class FtpResume : public FtpTest {
  protected:
    void SetUp() override {
        makeLocalFile(partial());
        logOn();
    }

    const std::string& body() const { return m_body; }
    std::string partial() const { return m_body.substr(0, kPartial); }

    DownloadOutcome resumeAt(std::size_t offset) {
        DownloadArguments arguments;
        arguments.offset = static_cast<long>(offset);
        return download(L"file.zip", arguments);
    }
    DownloadOutcome resume() { return resumeAt(kOffset); }

    FtpSession whole() const { return sending(body()); }
    FtpSession rest() const { return sending(body(), kOffset); }

    /// REST and RETR of all sessions.
    std::vector<std::string> retrievals() {
        std::vector<std::string> found;
        for (const auto& command : server().commands()) {
            if (command.rfind("REST", 0) == 0 || command.rfind("RETR", 0) == 0) {
                found.push_back(command);
            }
        }
        return found;
    }

    void expectRestarted(const DownloadOutcome& outcome) {
        EXPECT_EQ(outcome.result, voInetErrorSuccess);
        EXPECT_EQ(outcome.offset, 0);
        expectLocalFile(body());
    }

  private:
    std::string m_body = makeBody(kSize);
};

TEST_F(FtpResume, MatchingPrefix_FetchesOnlyTheRest) {
    server().session(rest());
    server().session(rest());

    const auto outcome = resume();

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, static_cast<long>(kOffset));
    expectLocalFile(body());
    EXPECT_THAT(retrievals(),
                ElementsAre("REST 18976", "RETR file.zip", "REST 18976", "RETR file.zip"));
}

TEST_F(FtpResume, Sink_CountsOnlyTheRest) {
    server().session(rest());
    server().session(rest());

    EXPECT_EQ(resume().result, voInetErrorSuccess);

    EXPECT_EQ(sink().bytesDone(), kSize - kOffset);
}

TEST_F(FtpResume, RepliesToACheckThatIsBrokenOff_DoNotMatter) {
    // The check has what it wants after 1,024 bytes and leaves; servers call that names.
    for (const char* reply : {"426 Failure writing", "451 Gone", "550 Gone", "226 Done", ""}) {
        makeLocalFile(partial());
        FtpSession check = rest();
        check.afterData = reply;
        server().session(check);
        server().session(rest());

        const auto outcome = resume();

        EXPECT_EQ(outcome.result, voInetErrorSuccess) << reply;
        EXPECT_EQ(outcome.offset, static_cast<long>(kOffset)) << reply;
        expectLocalFile(body());
    }
}

TEST_F(FtpResume, CheckInSmallPieces_Matches) {
    FtpSession check = rest();
    check.data = {sendInPieces(body().substr(kOffset, kPrefix), 100)};
    server().session(check);
    server().session(rest());

    EXPECT_EQ(resume().offset, static_cast<long>(kOffset));

    expectLocalFile(body());
}

TEST_F(FtpResume, PrefixThatDiffersInItsLastByte_StartsOver) {
    std::string other = body();
    other[kPartial - 1] = static_cast<char>(other[kPartial - 1] ^ 1);
    server().session(sending(other, kOffset));
    server().session(whole());

    expectRestarted(resume());

    EXPECT_THAT(retrievals(), ElementsAre("REST 18976", "RETR file.zip", "RETR file.zip"));
}

TEST_F(FtpResume, PrefixThatDiffersBehindTheCompared_IsNotSeen) {
    std::string other = body();
    other[kPartial] = static_cast<char>(other[kPartial] ^ 1);
    server().session(sending(other, kOffset));
    server().session(rest());

    EXPECT_EQ(resume().offset, static_cast<long>(kOffset));

    expectLocalFile(body());
}

TEST_F(FtpResume, PrefixShiftedByOneByte_StartsOver) {
    server().session(sending(body(), kOffset + 1));
    server().session(whole());

    expectRestarted(resume());
}

TEST_F(FtpResume, OffsetTooCloseToTheEnd_StartsOver) {
    server().session(sending(body(), kOffset + 1));
    server().session(whole());

    expectRestarted(resumeAt(kOffset + 1));
}

TEST_F(FtpResume, NoLocalFile_StartsOver) {
    std::remove(localFile().c_str());
    server().session(rest());
    server().session(whole());

    expectRestarted(resume());
}

TEST_F(FtpResume, CheckThatFailsAtAnyCommand_StartsOver) {
    for (const char* word : {"USER", "PASS", "TYPE", "REST", "RETR"}) {
        for (const char* reply : {"502 No", "550 No", ""}) {
            makeLocalFile(partial());
            FtpSession check;
            check.size = kSize;
            check.replies = {{word, reply}};
            server().session(check);
            server().session(whole());

            expectRestarted(resume());
        }
    }
}

TEST_F(FtpResume, ServerThatIgnoresTheOffset_StartsOver) {
    FtpSession check = whole();
    server().session(check);
    server().session(whole());

    expectRestarted(resume());
}

TEST_F(FtpResume, ServersFileShorterThanTheOffset_StartsOver) {
    const std::string shorter = makeBody(kPrefix, 5);
    FtpSession check;
    check.size = shorter.size();
    server().session(check);
    server().session(sending(shorter));

    const auto outcome = resume();

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile(shorter);
}

TEST_F(FtpResume, RestRefusedAfterTheCheck_IsAFailureAndKeepsThePartialFile) {
    FtpSession refusing;
    refusing.size = kSize;
    refusing.replies = {{"REST", "502 No"}};
    server().session(rest());
    server().session(refusing);

    EXPECT_EQ(resume().result, voInetErrorFailed);

    expectLocalFile(partial());
}

TEST_F(FtpResume, RestThatIsCut_IsATransferFailureAndKeepsThePartialFile) {
    FtpSession cut = rest();
    cut.data = {send(body().substr(kOffset, 10'000))};
    server().session(rest());
    server().session(cut);

    EXPECT_EQ(resume().result, voInetErrorTransferFailed);

    expectLocalFile(partial());
}

TEST_F(FtpResume, WholeFileThatIsCutAfterAMismatch_KeepsThePartialFile) {
    FtpSession cut = whole();
    cut.data = {send(body().substr(0, 40'000))};
    server().session(sending(makeBody(kSize, 1), kOffset));
    server().session(cut);

    const auto outcome = resume();

    EXPECT_EQ(outcome.result, voInetErrorTransferFailed);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile(partial());
}

TEST_F(FtpResume, FileRemovedAfterTheCheck_IsNotFoundAndKeepsThePartialFile) {
    FtpSession gone;
    gone.replies = {{"RETR", "550 No such file"}};
    server().session(rest());
    server().session(gone);

    EXPECT_EQ(resume().result, voInetErrorFileNotFound);

    expectLocalFile(partial());
}

TEST_F(FtpResume, Cancelled_CommitsThePartialFileWithWhatHasArrived) {
    constexpr std::size_t kArrived = 10'000;
    FtpSession cut = rest();
    cut.data = {send(body().substr(kOffset, kArrived)), awaitClose()};
    sink().stopAt(kArrived);
    server().session(rest());
    server().session(cut);

    EXPECT_EQ(resume().result, voInetErrorCancelled);

    expectLocalFile(body().substr(0, kOffset + kArrived));
}

TEST_F(FtpResume, CancelledAndResumed_GivesTheWholeFile) {
    std::remove(localFile().c_str());
    FtpSession cut = whole();
    cut.data = {send(body().substr(0, 30'000)), awaitClose()};
    sink().stopAt(30'000);
    ASSERT_EQ(downloadIn(cut), voInetErrorCancelled);
    sink().stopWhen(nullptr);
    constexpr std::size_t kSecondOffset = 30'000 - kPrefix;
    server().session(sending(body(), kSecondOffset));
    server().session(sending(body(), kSecondOffset));

    EXPECT_EQ(resumeAt(kSecondOffset).offset, static_cast<long>(kSecondOffset));

    expectLocalFile(body());
}

TEST_F(FtpResume, OffsetsBelowOne_AskForTheWholeFile) {
    for (const long offset : {0L, -1L}) {
        server().session(whole());
        DownloadArguments arguments;
        arguments.offset = offset;
        EXPECT_EQ(download(L"file.zip", arguments).result, voInetErrorSuccess) << offset;
        expectLocalFile(body());
    }
    EXPECT_THAT(server().commands(), Not(Contains(testing::StartsWith("REST"))));
}

TEST_F(FtpResume, OffsetAtTheEndOfBothFiles_HasNothingToFetch) {
    // Neither side has a byte there, and nothing is equal to nothing.
    makeLocalFile(body());
    FtpSession complete;
    complete.size = kSize;
    server().session(complete);
    server().session(complete);

    const auto outcome = resumeAt(kSize);

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, static_cast<long>(kSize));
    expectLocalFile(body());
    EXPECT_THAT(retrievals(), ElementsAre());
}

TEST_F(FtpResume, ResumeFlag_IsNotTouched) {
    for (const bool flag : {false, true}) {
        makeLocalFile(partial());
        server().session(rest());
        server().session(rest());
        DownloadArguments arguments;
        arguments.offset = static_cast<long>(kOffset);
        arguments.resume = flag;
        EXPECT_EQ(download(L"file.zip", arguments).resume, flag);
    }
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
