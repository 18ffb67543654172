// Resumed downloads: the comparison before it, the range, and starting over.

#include "support/wiretest.h"

#include <string>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::SizeIs;

constexpr std::size_t kSize = 100'000;
constexpr std::size_t kPartial = 40'000;
constexpr std::size_t kPrefix = 1024;
constexpr long kOffset = kPartial - kPrefix;
constexpr const char* kCheckedRange = "bytes=38976-39999";
constexpr const char* kRestRange = "bytes=38976-";

class Resume : public HttpTest {
  protected:
    void SetUp() override {
        makeLocalFile(partial());
        logOn();
    }

    const std::string& body() const { return m_body; }
    std::string partial() const { return m_body.substr(0, kPartial); }
    std::string checked() const { return m_body.substr(kOffset, kPrefix); }
    std::string rest() const { return m_body.substr(kOffset); }

    DownloadOutcome resumeAt(long offset) {
        DownloadArguments arguments;
        arguments.offset = offset;
        return download(L"file.zip", arguments);
    }

    /// The ranges of all requests; "none" for a request without one.
    std::vector<std::string> ranges() const {
        std::vector<std::string> ranges;
        for (const auto& request : requests()) {
            ranges.push_back(request.header("Range").value_or("none"));
        }
        return ranges;
    }

    /// The server answers the requests in order, each over a connection of its own.
    void serve(const std::vector<std::string>& replies) {
        for (const auto& bytes : replies) {
            server().connection(answer(bytes));
        }
    }

  private:
    std::string m_body = makeBody(kSize);
};

using testing::ElementsAre;

TEST_F(Resume, MatchingPrefix_FetchesOnlyTheRest) {
    serve({reply(206, checked()), reply(206, rest())});

    const auto outcome = resumeAt(kOffset);

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, kOffset);
    expectLocalFile(body());
    EXPECT_THAT(ranges(), ElementsAre(kCheckedRange, kRestRange));
}

TEST_F(Resume, Sink_CountsOnlyTheRestAndHearsNothingOfTheCheck) {
    serve({reply(206, checked()), reply(206, rest())});

    EXPECT_EQ(resumeAt(kOffset).result, voInetErrorSuccess);

    EXPECT_EQ(sink().bytesDone(), rest().size());
    EXPECT_EQ(sink().notifications().back().total, static_cast<long>(rest().size()));
}

TEST_F(Resume, Headers_GoWithTheCheckAndTheRest) {
    transfer().SetOption(voInetOptionUpdateToken, std::wstring(L"token"));
    serve({reply(206, checked()), reply(206, rest())});

    EXPECT_EQ(resumeAt(kOffset).result, voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(2));
    EXPECT_EQ(requests()[0].header("UpdateToken"), "token");
    EXPECT_EQ(requests()[1].header("UpdateToken"), "token");
}

TEST_F(Resume, PrefixThatDiffersInItsLastByte_StartsOver) {
    std::string other = checked();
    other.back() = static_cast<char>(other.back() ^ 1);
    serve({reply(206, other), reply(200, body())});

    const auto outcome = resumeAt(kOffset);

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile(body());
    EXPECT_THAT(ranges(), ElementsAre(kCheckedRange, "none"));
}

TEST_F(Resume, PrefixShiftedByOneByte_StartsOver) {
    serve({reply(206, body().substr(kOffset + 1, kPrefix)), reply(200, body())});

    EXPECT_EQ(resumeAt(kOffset).offset, 0);

    expectLocalFile(body());
}

TEST_F(Resume, PrefixWithMoreBehindIt_MatchesByItsFirst1024Bytes) {
    // The block straddles the mark: what lies beyond is dropped.
    serve({reply(206, rest()), reply(206, rest())});

    const auto outcome = resumeAt(kOffset);

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, kOffset);
    expectLocalFile(body());
}

TEST_F(Resume, PrefixInSmallPieces_Matches) {
    server().connection({receiveRequest(), sendInPieces(reply(206, checked()), 100)});
    serve({reply(206, rest())});

    EXPECT_EQ(resumeAt(kOffset).offset, kOffset);

    expectLocalFile(body());
}

TEST_F(Resume, OffsetTooCloseToTheEnd_CannotMatchAndStartsOver) {
    const long offset = kOffset + 1;
    serve({reply(206, body().substr(kOffset + 1, kPrefix)), reply(200, body())});

    const auto outcome = resumeAt(offset);

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile(body());
}

TEST_F(Resume, NoLocalFile_StartsOver) {
    std::remove(localFile().c_str());
    serve({reply(206, checked()), reply(200, body())});

    EXPECT_EQ(resumeAt(kOffset).offset, 0);

    expectLocalFile(body());
}

TEST_F(Resume, CheckAnswered200_StartsOver) {
    serve({reply(200, body()), reply(200, body())});

    const auto outcome = resumeAt(kOffset);

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile(body());
    EXPECT_THAT(ranges(), ElementsAre(kCheckedRange, "none"));
}

TEST_F(Resume, CheckAnswered416_StartsOver) {
    serve({reply(416, "not satisfiable"), reply(200, body())});

    EXPECT_EQ(resumeAt(kOffset).offset, 0);

    expectLocalFile(body());
}

TEST_F(Resume, CheckThatFails_StartsOver) {
    server().connection({receiveRequest(), reset()});
    serve({reply(200, body())});

    const auto outcome = resumeAt(kOffset);

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile(body());
}

TEST_F(Resume, RangedRequestAnswered200_RestartsFromByteZero) {
    serve({reply(206, checked()), reply(200, body()), reply(200, body())});

    const auto outcome = resumeAt(kOffset);

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile(body());
    EXPECT_THAT(ranges(), ElementsAre(kCheckedRange, kRestRange, "none"));
}

TEST_F(Resume, RangedRequestAnswered416_RestartsFromByteZero) {
    serve({reply(206, checked()), reply(416, "not satisfiable"), reply(200, body())});

    const auto outcome = resumeAt(kOffset);

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile(body());
    EXPECT_THAT(ranges(), ElementsAre(kCheckedRange, kRestRange, "none"));
}

TEST_F(Resume, Restart_ReportsToTheSink) {
    serve({reply(206, checked()), reply(416), reply(200, body())});

    EXPECT_EQ(resumeAt(kOffset).result, voInetErrorSuccess);

    EXPECT_EQ(sink().bytesDone(), kSize);
}

TEST_F(Resume, RestartAnswered416Again_EndsWithThatAndLeavesTheOldFile) {
    serve({reply(206, checked()), reply(416), reply(416)});

    const auto outcome = resumeAt(kOffset);

    EXPECT_EQ(outcome.result, voInetErrorRangeNotSatisfiable);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile(partial());
}

TEST_F(Resume, RestartThatIsCut_FailsAndLeavesTheOldFile) {
    serve({reply(206, checked()), reply(416), reply(200, body()).substr(0, kSize / 2)});

    EXPECT_EQ(resumeAt(kOffset).result, voInetErrorTransferFailed);

    expectLocalFile(partial());
}

TEST_F(Resume, CancelledRestart_LeavesTheOldFile) {
    sink().stopAt(kSize / 2);
    serve({reply(206, checked()), reply(416)});
    server().connection({receiveRequest(), sendUntilClosed(reply(200, body()))});

    EXPECT_EQ(resumeAt(kOffset).result, voInetErrorCancelled);

    expectLocalFile(partial());
}

TEST_F(Resume, RestThatIsCut_FailsAndLeavesThePartialFile) {
    const std::string whole = reply(206, rest());
    serve({reply(206, checked()), whole.substr(0, whole.size() - 1)});

    EXPECT_EQ(resumeAt(kOffset).result, voInetErrorTransferFailed);

    expectLocalFile(partial());
}

TEST_F(Resume, Cancelled_CommitsThePartialFileWithWhatArrived) {
    constexpr std::size_t kArrived = 30'000;
    sink().stopAt(kArrived);
    serve({reply(206, checked())});
    const std::string whole = reply(206, rest());
    server().connection({receiveRequest(),
                         send(whole.substr(0, whole.size() - rest().size() + kArrived)),
                         awaitClose()});

    EXPECT_EQ(resumeAt(kOffset).result, voInetErrorCancelled);

    EXPECT_EQ(sink().bytesDone(), kArrived);
    expectLocalFile(body().substr(0, kOffset + kArrived));
}

TEST_F(Resume, CancelledAndResumed_GivesTheWholeFile) {
    std::remove(localFile().c_str());
    sink().stopAt(50'000);
    server().connection(
        {receiveRequest(), send(reply(200, body()).substr(0, 70'000)), awaitClose()});
    ASSERT_EQ(download().result, voInetErrorCancelled);
    sink().stopWhen(nullptr);
    const auto landed = readFile(localFile()).size();
    ASSERT_GT(landed, kPrefix);
    const auto offset = landed - kPrefix;
    serve({reply(206, body().substr(offset, kPrefix)), reply(206, body().substr(offset))});

    EXPECT_EQ(resumeAt(static_cast<long>(offset)).result, voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Resume, RestShorterThanThePartialFile_KeepsItsTail) {
    // Nobody cuts the temporary copy: a server whose file has shrunk shows in the size.
    serve({reply(206, checked()), reply(206, body().substr(kOffset, 100))});

    EXPECT_EQ(resumeAt(kOffset).result, voInetErrorSuccess);

    expectLocalFile(partial());
}

TEST_F(Resume, OffsetOne_IsARange) {
    serve({reply(206, body().substr(1, kPrefix)), reply(206, body().substr(1))});

    EXPECT_EQ(resumeAt(1).offset, 1);

    expectLocalFile(body());
    EXPECT_THAT(ranges(), ElementsAre("bytes=1-1024", "bytes=1-"));
}

TEST_F(Resume, NegativeOffset_CountsAsTheWholeFile) {
    serve({reply(200, body())});

    EXPECT_EQ(resumeAt(-1).result, voInetErrorSuccess);

    expectLocalFile(body());
    EXPECT_THAT(ranges(), ElementsAre("none"));
}

TEST_F(Resume, Answered401InTheCheck_ContinuesWithTheCredentials) {
    transfer().SetOption(voInetOptionUser, std::wstring(L"user"));
    transfer().SetOption(voInetOptionPassword, std::wstring(L"password"));
    const std::string challenge = "WWW-Authenticate: Basic realm=\"r\"";
    server().connection(answers({keepAliveReply(401, {}, {challenge}), reply(206, checked())}));
    server().connection(answers({keepAliveReply(401, {}, {challenge}), reply(206, rest())}));

    EXPECT_EQ(resumeAt(kOffset).offset, kOffset);

    expectLocalFile(body());
    EXPECT_THAT(ranges(), ElementsAre(kCheckedRange, kCheckedRange, kRestRange, kRestRange));
}

TEST_F(Resume, Answered401WithoutAChallenge_StartsTheComparisonAfresh) {
    transfer().SetOption(voInetOptionUser, std::wstring(L"user"));
    transfer().SetOption(voInetOptionPassword, std::wstring(L"password"));
    serve({reply(401, "not part of the prefix"), reply(206, checked()),
           reply(401, "nor of the rest"), reply(206, rest())});

    EXPECT_EQ(resumeAt(kOffset).offset, kOffset);

    expectLocalFile(body());
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
