// What arrived before a transfer broke: kept when the monitor wants it, and only then.

#include "support/ftp.h"
#include "support/recordingmonitor.h"
#include "support/wiretest.h"

#include <string>

namespace tessaro_com::pkm::voInet::wire {

namespace {

constexpr std::size_t kSize = 60'000;
constexpr std::size_t kOffset = 20'000;
constexpr std::size_t kPrefix = 1024;
constexpr std::size_t kArrived = 30'000;
constexpr auto kKeeps = MonitorCall::keeps;

class KeptHttp : public Monitored<HttpTest> {
  protected:
    void SetUp() override {
        makeLocalFile("old");
        logOn();
        watch();
    }

    const std::string& body() const { return m_body; }

    /// An answer that announces `size` bytes and brings fewer.
    static std::string cutReply(int status, std::size_t size, const std::string& arriving,
                                Headers headers = {}) {
        headers.push_back("Content-Length: " + std::to_string(size));
        return replyHead(status, headers) + arriving;
    }

    voInetError downloadCut(int status = 200) {
        server().connection(answer(cutReply(status, kSize, m_body.substr(0, kArrived))));
        return download().result;
    }

    DownloadOutcome resumeCut(const Headers& headers) {
        makeLocalFile(m_body.substr(0, kOffset + kPrefix));
        server().connection(answer(reply(206, m_body.substr(kOffset, kPrefix))));
        server().connection(
            answer(cutReply(206, kSize - kOffset, m_body.substr(kOffset, kArrived), headers)));
        DownloadArguments arguments;
        arguments.offset = static_cast<long>(kOffset);
        return download(L"file.zip", arguments);
    }

  private:
    std::string m_body = makeBody(kSize);
};

TEST_F(KeptHttp, BodyCutAfter200_IsKeptOnRequest) {
    monitor().keepWhatArrived();

    EXPECT_EQ(downloadCut(), voInetErrorTransferFailed);

    expectLocalFile(body().substr(0, kArrived));
}

TEST_F(KeptHttp, BodyCutAfter200_IsDroppedOtherwise) {
    EXPECT_EQ(downloadCut(), voInetErrorTransferFailed);

    EXPECT_EQ(monitor().count(kKeeps), 1U) << "it was asked";
    expectLocalFile("old");
}

TEST_F(KeptHttp, Question_ComesAfterTheRequestWithItsFacts) {
    EXPECT_EQ(downloadCut(), voInetErrorTransferFailed);

    EXPECT_THAT(monitor().calls(), testing::ElementsAre(MonitorCall::started, MonitorCall::headers,
                                                        MonitorCall::ended, kKeeps));
    EXPECT_EQ(recordOf(kKeeps).status, 200);
    EXPECT_EQ(recordOf(kKeeps).received, static_cast<std::int64_t>(kArrived));
    EXPECT_EQ(recordOf(kKeeps).announced, static_cast<std::int64_t>(kSize));
    EXPECT_EQ(recordOf(kKeeps).purpose, requestDownload);
    EXPECT_NE(recordOf(kKeeps).reason, "");
}

TEST_F(KeptHttp, ConnectionReset_IsKeptOnRequestAsFarAsItCame) {
    monitor().keepWhatArrived();
    Event arrived;
    sink().stopWhen([&](const Notification& now) {
        if (now.done >= kArrived) {
            arrived.set();
        }
        return false;
    });
    server().connection({receiveRequest(), send(cutReply(200, kSize, body().substr(0, kArrived))),
                         await(arrived), reset()});

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    expectLocalFile(body().substr(0, kArrived));
}

TEST_F(KeptHttp, RestCutInAResume_IsKeptBehindWhatWasThere) {
    monitor().keepWhatArrived();

    const auto outcome = resumeCut({});

    EXPECT_EQ(outcome.result, voInetErrorTransferFailed);
    EXPECT_EQ(outcome.offset, static_cast<long>(kOffset));
    expectLocalFile(body().substr(0, kOffset + kArrived));
}

TEST_F(KeptHttp, RightPartCutInAResume_IsKeptBehindWhatWasThere) {
    monitor().keepWhatArrived();

    EXPECT_EQ(resumeCut({"Content-Range: bytes 20000-59999/60000"}).result,
              voInetErrorTransferFailed);

    expectLocalFile(body().substr(0, kOffset + kArrived));
}

TEST_F(KeptHttp, RestCutInAResume_IsDroppedOtherwise) {
    EXPECT_EQ(resumeCut({}).result, voInetErrorTransferFailed);

    EXPECT_EQ(monitor().count(kKeeps), 1U);
    expectLocalFile(body().substr(0, kOffset + kPrefix));
}

TEST_F(KeptHttp, WrongPartCutInAResume_IsNeverKept) {
    monitor().keepWhatArrived();
    // Whether the download starts over or not, nothing else comes.
    server().otherwise(answer(reply(404)));

    EXPECT_LT(resumeCut({"Content-Range: bytes 20001-59999/60000"}).result, 0);

    expectLocalFile(body().substr(0, kOffset + kPrefix));
}

TEST_F(KeptHttp, RestartCut_IsKeptOnRequestInPlaceOfThePartialFile) {
    monitor().keepWhatArrived();
    makeLocalFile(body().substr(0, kOffset + kPrefix));
    server().connection(answer(reply(206, body().substr(kOffset, kPrefix))));
    server().connection(answer(reply(416)));
    server().connection(answer(cutReply(200, kSize, body().substr(0, 5000))));
    DownloadArguments arguments;
    arguments.offset = static_cast<long>(kOffset);

    EXPECT_EQ(download(L"file.zip", arguments).result, voInetErrorTransferFailed);

    EXPECT_EQ(recordOf(kKeeps).rangeStart, 0);
    expectLocalFile(body().substr(0, 5000));
}

TEST_F(KeptHttp, KeptFile_CanBeResumed) {
    monitor().keepWhatArrived();
    ASSERT_EQ(downloadCut(), voInetErrorTransferFailed);
    constexpr std::size_t kNext = kArrived - kPrefix;
    server().connection(answer(reply(206, body().substr(kNext, kPrefix))));
    server().connection(answer(reply(206, body().substr(kNext))));
    DownloadArguments arguments;
    arguments.offset = static_cast<long>(kNext);

    EXPECT_EQ(download(L"file.zip", arguments).result, voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(KeptHttp, PageOfA404_IsNotAskedFor) {
    monitor().keepWhatArrived();

    EXPECT_LT(downloadCut(404), 0);

    EXPECT_EQ(monitor().count(kKeeps), 0U);
    expectLocalFile("old");
}

TEST_F(KeptHttp, NothingArrived_IsNotAskedFor) {
    monitor().keepWhatArrived();
    server().connection(answer(cutReply(200, kSize, "")));

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    EXPECT_EQ(monitor().count(kKeeps), 0U);
    expectLocalFile("old");
}

TEST_F(KeptHttp, HeadThatIsCut_IsNotAskedFor) {
    monitor().keepWhatArrived();
    server().connection(answer("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n"));

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    EXPECT_EQ(monitor().count(kKeeps), 0U);
    expectLocalFile("old");
}

TEST_F(KeptHttp, WholeFile_IsNotAskedFor) {
    monitor().keepWhatArrived();
    server().connection(answer(reply(200, body())));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(monitor().count(kKeeps), 0U);
    expectLocalFile(body());
}

TEST_F(KeptHttp, StopOfTheSink_CommitsWithoutAQuestion) {
    sink().stopAt(kArrived);
    server().connection(
        {receiveRequest(), send(cutReply(200, kSize, body().substr(0, kArrived))), awaitClose()});

    EXPECT_EQ(download().result, voInetErrorCancelled);

    EXPECT_EQ(monitor().count(kKeeps), 0U);
    expectLocalFile(body().substr(0, kArrived));
}

TEST_F(KeptHttp, CheckThatIsCut_IsNotAskedFor) {
    monitor().keepWhatArrived();
    makeLocalFile(body().substr(0, kOffset + kPrefix));
    server().connection(answer(cutReply(206, kPrefix, body().substr(kOffset, 500))));
    server().connection(answer(reply(404)));
    DownloadArguments arguments;
    arguments.offset = static_cast<long>(kOffset);

    EXPECT_EQ(download(L"file.zip", arguments).result, voInetErrorFileNotFound);

    EXPECT_EQ(monitor().count(kKeeps), 0U);
    expectLocalFile(body().substr(0, kOffset + kPrefix));
}

TEST_F(KeptHttp, ExceptionInTheQuestion_CountsAsNo) {
    monitor().keepWhatArrived();
    monitor().throwIn(kKeeps);

    EXPECT_EQ(downloadCut(), voInetErrorTransferFailed);

    EXPECT_EQ(monitor().count(kKeeps), 1U);
    expectLocalFile("old");
}

class KeptFtp : public Monitored<FtpTest> {
  protected:
    void SetUp() override {
        makeLocalFile("old");
        logOn();
        watch();
    }

    const std::string& body() const { return m_body; }

    FtpSession cut(std::size_t from) const {
        FtpSession session = sending(m_body, from);
        session.data = {send(m_body.substr(from, kArrived))};
        return session;
    }

  private:
    std::string m_body = makeBody(kSize);
};

TEST_F(KeptFtp, DataCut_IsKeptOnRequest) {
    monitor().keepWhatArrived();

    EXPECT_EQ(downloadIn(cut(0)), voInetErrorTransferFailed);

    expectLocalFile(body().substr(0, kArrived));
}

TEST_F(KeptFtp, DataCut_IsDroppedOtherwise) {
    EXPECT_EQ(downloadIn(cut(0)), voInetErrorTransferFailed);

    EXPECT_EQ(monitor().count(kKeeps), 1U);
    expectLocalFile("old");
}

TEST_F(KeptFtp, RestCutInAResume_IsKeptBehindWhatWasThere) {
    monitor().keepWhatArrived();
    makeLocalFile(body().substr(0, kOffset + kPrefix));
    server().session(sending(body(), kOffset));
    server().session(cut(kOffset));
    DownloadArguments arguments;
    arguments.offset = static_cast<long>(kOffset);

    EXPECT_EQ(download(L"file.zip", arguments).result, voInetErrorTransferFailed);

    expectLocalFile(body().substr(0, kOffset + kArrived));
}

TEST_F(KeptFtp, MissingFile_IsNotAskedFor) {
    monitor().keepWhatArrived();
    FtpSession missing;
    missing.replies = {{"RETR", "550 No such file"}};

    EXPECT_EQ(downloadIn(missing), voInetErrorFileNotFound);

    EXPECT_EQ(monitor().count(kKeeps), 0U);
    expectLocalFile("old");
}

TEST_F(KeptFtp, NoData_IsNotAskedFor) {
    monitor().keepWhatArrived();
    FtpSession empty = sending(body());
    empty.data = {send("")};

    EXPECT_EQ(downloadIn(empty), voInetErrorTransferFailed);

    EXPECT_EQ(monitor().count(kKeeps), 0U);
    expectLocalFile("old");
}

TEST_F(KeptFtp, WholeFile_IsNotAskedFor) {
    monitor().keepWhatArrived();

    EXPECT_EQ(downloadIn(sending(body())), voInetErrorSuccess);

    EXPECT_EQ(monitor().count(kKeeps), 0U);
    expectLocalFile(body());
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
