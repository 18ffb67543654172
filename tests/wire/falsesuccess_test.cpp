// What must not pass for a success: an answer that is cut in its head, a part that is not the part
// that was asked for, an exchange that would empty its own request. Each beside the good case that
// looks like it.

#include "support/exchange.h"
#include "support/ftp.h"
#include "support/wiretest.h"

#include <unistd.h>

#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::Combine;
using testing::ElementsAre;
using testing::SizeIs;
using testing::Values;
using testing::ValuesIn;
using testing::WithParamInterface;

// Answers that end before their heads do.

struct EmptyAnswer {
    const char* name;
    std::string head;
    std::string body;
};

const std::vector<EmptyAnswer>& emptyAnswers() {
    static const std::vector<EmptyAnswer> kAll = {
        {"Length", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n", ""},
        {"Chunked", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n",
         "0\r\n\r\n"},
        {"NoLength", "HTTP/1.1 200 OK\r\nX-Header: value\r\nConnection: close\r\n\r\n", ""},
        {"StatusLineOnly", "HTTP/1.1 200 OK\r\n\r\n", ""},
        {"Http10", "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\n", ""},
        {"Part", "HTTP/1.1 206 Part\r\nContent-Length: 0\r\nConnection: close\r\n\r\n", ""},
        {"After100", "HTTP/1.1 100 Go on\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", ""},
        {"After103",
         "HTTP/1.1 103 Hints\r\nLink: </x>\r\n\r\nHTTP/1.1 200 OK\r\nConnection: close\r\n\r\n",
         ""},
    };
    return kAll;
}

enum class Route { direct, proxy };

using HeadCase = std::tuple<EmptyAnswer, Route>;

std::string nameOf(const testing::TestParamInfo<HeadCase>& info) {
    return std::string(std::get<0>(info.param).name) +
           (std::get<1>(info.param) == Route::proxy ? "ThroughAProxy" : "Directly");
}

class HeadOfAnAnswer : public HttpTest, public WithParamInterface<HeadCase> {
  protected:
    void SetUp() override {
        makeLocalFile("old");
        if (std::get<1>(GetParam()) == Route::proxy) {
            logOnThroughProxy({});
        } else {
            logOn();
        }
    }

    static const EmptyAnswer& given() { return std::get<0>(GetParam()); }
};

TEST_P(HeadOfAnAnswer, CutAnywhere_IsATransferFailureAndLeavesTheOldFile) {
    for (std::size_t cut = 0; cut < given().head.size(); ++cut) {
        server().connection(answer(given().head.substr(0, cut)));

        EXPECT_EQ(download().result, voInetErrorTransferFailed) << "cut at " << cut;
    }
    expectLocalFile("old");
}

TEST_P(HeadOfAnAnswer, Whole_LandsAsAnEmptyFile) {
    server().connection(answer(given().head + given().body));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("");
}

INSTANTIATE_TEST_SUITE_P(EmptyAnswers, HeadOfAnAnswer,
                         Combine(ValuesIn(emptyAnswers()), Values(Route::direct, Route::proxy)),
                         nameOf);

constexpr const char* kEmptyHead =
    "HTTP/1.1 200 OK\r\nX-Header: value\r\nConnection: close\r\n\r\n";

class HeadBehindAnother : public HttpTest {
  protected:
    void SetUp() override { makeLocalFile("old"); }

    /// The download ends with this result and file when `first` is followed by `second`, over a
    /// connection of its own or over the same one.
    void expectAfter(const std::string& first, const std::string& second, bool sameConnection,
                     voInetError result, std::string_view file) {
        if (sameConnection) {
            server().connection(answers({first, second}));
        } else {
            server().connection(answer(first));
            server().connection(answer(second));
        }
        EXPECT_EQ(download().result, result) << "after " << second.size() << " bytes";
        expectLocalFile(file);
    }
};

TEST_F(HeadBehindAnother, TargetOfARedirectCut_IsATransferFailure) {
    logOn();
    const std::string redirect = reply(302, "", {"Location: /1"});
    const std::string head = kEmptyHead;
    for (std::size_t cut = 0; cut < head.size(); ++cut) {
        expectAfter(redirect, head.substr(0, cut), false, voInetErrorTransferFailed, "old");
    }
}

TEST_F(HeadBehindAnother, TargetOfARedirectWhole_Lands) {
    logOn();
    const std::string redirect = reply(302, "", {"Location: /1"});

    expectAfter(redirect, kEmptyHead, false, voInetErrorSuccess, "");
    expectAfter(redirect, reply(200, "new"), false, voInetErrorSuccess, "new");
}

TEST_F(HeadBehindAnother, AnswerToCredentialsCut_IsATransferFailure) {
    auto withUser = settings();
    withUser.user = L"user";
    withUser.password = L"password";
    logOn(withUser);
    const std::string challenge = keepAliveReply(401, "", {"WWW-Authenticate: Basic realm=\"r\""});
    const std::string head = kEmptyHead;
    // Without a line curl would ask again over another connection.
    for (std::size_t cut = head.find('\n') + 1; cut < head.size(); ++cut) {
        expectAfter(challenge, head.substr(0, cut), true, voInetErrorTransferFailed, "old");
    }
    expectAfter(challenge, head, true, voInetErrorSuccess, "");
}

// Parts that are not the part that was asked for.

constexpr std::size_t kSize = 5000;
constexpr std::size_t kOffset = 1000;
constexpr std::size_t kPrefix = 1024;
constexpr const char* kCheckedRange = "Content-Range: bytes 1000-2023/5000";
constexpr const char* kRightRange = "Content-Range: bytes 1000-4999/5000";

enum class Framing { length, chunks, close };

/// An answer of 206: header lines, and the bytes from a position of the server's file on.
struct Part {
    const char* name;
    Headers headers;
    std::size_t from = kOffset;
    std::size_t size = kSize - kOffset;
    Framing framing = Framing::length;
};

std::ostream& operator<<(std::ostream& stream, const Part& part) {
    return stream << part.name;
}

std::string nameOfPart(const testing::TestParamInfo<Part>& info) {
    return info.param.name;
}

/// What the header lines alone give away, whatever the bytes behind them.
std::vector<Part> partsWithWrongLines() {
    const auto line = [](const std::string& value) { return Headers{"Content-Range: " + value}; };
    return {
        {"StartTooLow", line("bytes 999-4999/5000"), 999, 4001},
        {"StartTooHigh", line("bytes 1001-4999/5000"), 1001, 3999},
        {"EndTooLow", line("bytes 1000-4998/5000"), 1000, 3999},
        {"EndAtTheTotal", line("bytes 1000-5000/5000"), 1000, 4001},
        {"LargerTotalThanTheCheck", line("bytes 1000-5999/6000"), 1000, 5000},
        {"SmallerTotalThanTheCheck", line("bytes 1000-2999/3000"), 1000, 2000},
        {"StarAsTotal", line("bytes 1000-4999/*")},
        {"StarAsRange", line("bytes */5000")},
        {"StarAsBoth", line("bytes */*")},
        {"PlusAtTheStart", line("bytes +1000-4999/5000")},
        {"MinusAtTheStart", line("bytes -1000-4999/5000")},
        {"PlusAtTheEnd", line("bytes 1000-+4999/5000")},
        {"MinusAtTheEnd", line("bytes 1000--4999/5000")},
        {"PlusAtTheTotal", line("bytes 1000-4999/+5000")},
        {"MinusAtTheTotal", line("bytes 1000-4999/-5000")},
        {"StartBeyond64Bits", line("bytes 18446744073709552616-4999/5000")},
        {"EndBeyond64Bits", line("bytes 1000-18446744073709556615/5000")},
        {"TotalBeyond64Bits", line("bytes 1000-4999/18446744073709556616")},
        {"AllBeyond64Bits",
         line("bytes 18446744073709552616-18446744073709556615/18446744073709556616")},
        {"AllBeyond32Bits", line("bytes 4294968296-4294972295/4294972296")},
        {"HugeNumber", line("bytes 1000-4999/" + std::string(1000, '9'))},
        {"OtherUnit", line("items 1000-4999/5000")},
        {"NoUnit", line("1000-4999/5000")},
        {"StartBehindTheEnd", line("bytes 4999-1000/5000")},
        {"NoTotal", line("bytes 1000-4999")},
        {"NoEnd", line("bytes 1000-/5000")},
        {"NoNumbers", line("bytes a-b/c")},
        {"UnitOnly", line("bytes")},
        {"TextBehindIt", line("bytes 1000-4999/5000x")},
        {"RightAndWrongLine", {kRightRange, "Content-Range: bytes 0-3999/5000"}},
        {"WrongAndRightLine", {"Content-Range: bytes 0-3999/5000", kRightRange}},
    };
}

/// What curl has no reason to call a failure, with lines that are right.
std::vector<Part> partsOfAnotherSize() {
    return {
        {"NothingInChunks", {kRightRange}, kOffset, 0, Framing::chunks},
        {"AByteLessInChunks", {kRightRange}, kOffset, 3999, Framing::chunks},
        {"AByteMoreInChunks", {kRightRange}, kOffset, 4001, Framing::chunks},
        {"NothingUntilTheEnd", {kRightRange}, kOffset, 0, Framing::close},
        {"AByteLessUntilTheEnd", {kRightRange}, kOffset, 3999, Framing::close},
        {"AByteMoreUntilTheEnd", {kRightRange}, kOffset, 4001, Framing::close},
        {"AByteLessByItsLength", {kRightRange}, kOffset, 3999, Framing::length},
    };
}

std::vector<Part> wrongParts() {
    auto parts = partsWithWrongLines();
    const auto others = partsOfAnotherSize();
    parts.insert(parts.end(), others.begin(), others.end());
    return parts;
}

/// One of each kind, where the kind of the fault makes no difference.
std::vector<Part> someWrongParts() {
    return {
        {"OtherStart", {"Content-Range: bytes 1001-4999/5000"}, 1001, 3999},
        {"OtherEnd", {"Content-Range: bytes 1000-4998/5000"}, 1000, 3999},
        {"OtherTotal", {"Content-Range: bytes 1000-5999/6000"}, 1000, 5000},
        {"StarAsTotal", {"Content-Range: bytes 1000-4999/*"}},
        {"TwoLines", {kRightRange, "Content-Range: bytes 0-3999/5000"}},
        {"AByteLessInChunks", {kRightRange}, kOffset, 3999, Framing::chunks},
        {"AByteLessUntilTheEnd", {kRightRange}, kOffset, 3999, Framing::close},
    };
}

/// Answers to a request without a range that are not the whole file.
std::vector<Part> partsOfAWholeFile() {
    const auto line = [](const std::string& value) { return Headers{"Content-Range: " + value}; };
    return {
        {"FromTheMiddle", {kRightRange}},
        {"FromTheSecondByte", line("bytes 1-4999/5000"), 1, 4999},
        {"NotToTheEnd", line("bytes 0-3999/5000"), 0, 4000},
        {"StarAsTotal", line("bytes 0-4999/*"), 0, 5000},
        {"StarAsRange", line("bytes */5000"), 0, 5000},
        {"MinusAtTheStart", line("bytes -0-4999/5000"), 0, 5000},
        {"MinusAtTheEndOfOneByte", line("bytes 0--0/1"), 0, 1},
        {"OtherUnit", line("items 0-4999/5000"), 0, 5000},
        {"EmptyLine", line(""), 0, 5000},
        {"TwoLines", {"Content-Range: bytes 0-4999/5000", kRightRange}, 0, 5000},
        {"AByteLessInChunks", line("bytes 0-4999/5000"), 0, 4999, Framing::chunks},
        {"AByteLessUntilTheEnd", line("bytes 0-4999/5000"), 0, 4999, Framing::close},
        {"AByteMoreUntilTheEnd", line("bytes 0-4999/5000"), 0, 5001, Framing::close},
    };
}

/// It is the right answer to a request without a range.
Part wholeFileAsPart() {
    return {"WholeFile", {"Content-Range: bytes 0-4999/5000"}, 0, kSize};
}

std::string headOf(const Part& part) {
    Headers headers = part.headers;
    headers.emplace_back("Connection: close");
    if (part.framing == Framing::length) {
        headers.push_back("Content-Length: " + std::to_string(part.size));
    } else if (part.framing == Framing::chunks) {
        headers.emplace_back("Transfer-Encoding: chunked");
    }
    return replyHead(206, headers);
}

std::string bodyOf(const Part& part) {
    // The server's file goes on behind its end here, for parts that are too long.
    return makeBody(part.size, part.from);
}

std::string replyOf(const Part& part) {
    const std::string body = bodyOf(part);
    return headOf(part) + (part.framing == Framing::chunks ? chunked(body, 1000) : body);
}

/// A file of 5,000 bytes on the server, of which 2,024 are there.
class PartTest : public HttpTest {
  protected:
    void SetUp() override {
        makeLocalFile(partial());
        logOn();
    }

    const std::string& body() const { return m_body; }
    std::string partial() const { return m_body.substr(0, kOffset + kPrefix); }

    DownloadOutcome resume() {
        DownloadArguments arguments;
        arguments.offset = static_cast<long>(kOffset);
        return download(L"file.zip", arguments);
    }

    void serve(const std::vector<std::string>& replies) {
        for (const auto& bytes : replies) {
            server().connection(answer(bytes));
        }
    }

    std::string goodCheck() const {
        return reply(206, m_body.substr(kOffset, kPrefix), {kCheckedRange});
    }

    std::vector<std::string> ranges() const {
        std::vector<std::string> ranges;
        for (const auto& request : requests()) {
            ranges.push_back(request.header("Range").value_or("none"));
        }
        return ranges;
    }

    void expectOutcome(const DownloadOutcome& outcome, voInetError result, long offset,
                       std::string_view file) {
        EXPECT_EQ(outcome.result, result);
        EXPECT_EQ(outcome.offset, offset);
        expectLocalFile(file);
    }

  private:
    std::string m_body = makeBody(kSize);
};

class WrongPart : public PartTest, public WithParamInterface<Part> {};

TEST_P(WrongPart, OfAResume_StartsOverFromByteZeroOnce) {
    serve({goodCheck(), replyOf(GetParam()), reply(200, body())});

    expectOutcome(resume(), voInetErrorSuccess, 0, body());

    EXPECT_THAT(ranges(), ElementsAre("bytes=1000-2023", "bytes=1000-", "none"));
}

INSTANTIATE_TEST_SUITE_P(ContentRanges, WrongPart, ValuesIn(wrongParts()), nameOfPart);

class RepeatedWrongPart : public PartTest, public WithParamInterface<Part> {};

TEST_P(RepeatedWrongPart, OfAResumeAndItsRestart_IsRangeIgnoredAndLeavesTheOldFile) {
    serve({goodCheck(), replyOf(GetParam()), replyOf(GetParam())});

    expectOutcome(resume(), voInetErrorRangeIgnored, 0, partial());

    EXPECT_THAT(ranges(), ElementsAre("bytes=1000-2023", "bytes=1000-", "none"));
}

INSTANTIATE_TEST_SUITE_P(ContentRanges, RepeatedWrongPart, ValuesIn(someWrongParts()), nameOfPart);

class PartOfAWholeFile : public PartTest, public WithParamInterface<Part> {};

TEST_P(PartOfAWholeFile, OnceAnswered_StartsOverOnce) {
    serve({replyOf(GetParam()), reply(200, body())});

    expectOutcome(download(), voInetErrorSuccess, 0, body());

    EXPECT_THAT(ranges(), ElementsAre("none", "none"));
}

TEST_P(PartOfAWholeFile, AnsweredTwice_IsRangeIgnoredAndLeavesTheOldFile) {
    serve({replyOf(GetParam()), replyOf(GetParam())});

    expectOutcome(download(), voInetErrorRangeIgnored, 0, partial());

    EXPECT_THAT(requests(), SizeIs(2));
}

INSTANTIATE_TEST_SUITE_P(ContentRanges, PartOfAWholeFile, ValuesIn(partsOfAWholeFile()),
                         nameOfPart);

class StoppedWrongPart : public PartTest, public WithParamInterface<Part> {
  protected:
    /// The part comes up to its middle, where the sink stops it. Its bytes are not those of the
    /// file, so that each one that is kept shows.
    void serveHalf() {
        const std::size_t half = GetParam().size / 2;
        sink().stopAt(half);
        server().connection(
            {receiveRequest(), send(headOf(GetParam()) + makeBody(half, 77'777)), awaitClose()});
    }
};

TEST_P(StoppedWrongPart, OfAResume_CommitsNothing) {
    serve({goodCheck()});
    serveHalf();

    EXPECT_EQ(resume().result, voInetErrorCancelled);

    expectLocalFile(partial());
    EXPECT_THAT(requests(), SizeIs(2));
}

INSTANTIATE_TEST_SUITE_P(ContentRanges, StoppedWrongPart, ValuesIn(partsWithWrongLines()),
                         nameOfPart);

TEST_F(PartTest, WholeFileAsPartOfAResume_StartsOverAndIsTakenThen) {
    serve({goodCheck(), replyOf(wholeFileAsPart()), replyOf(wholeFileAsPart())});

    expectOutcome(resume(), voInetErrorSuccess, 0, body());

    EXPECT_THAT(ranges(), ElementsAre("bytes=1000-2023", "bytes=1000-", "none"));
}

TEST_F(PartTest, WholeFileAsPartWithoutARange_IsTaken) {
    serve({replyOf(wholeFileAsPart())});

    expectOutcome(download(), voInetErrorSuccess, 0, body());
}

TEST_F(PartTest, StoppedPartOfADownloadWithoutARange_CommitsNothing) {
    const Part part{"", {kRightRange}};
    sink().stopAt(2000);
    server().connection(
        {receiveRequest(), send(headOf(part) + bodyOf(part).substr(0, 2000)), awaitClose()});

    EXPECT_EQ(download().result, voInetErrorCancelled);

    expectLocalFile(partial());
    EXPECT_THAT(requests(), SizeIs(1));
}

class RightPart : public PartTest, public WithParamInterface<Part> {};

TEST_P(RightPart, OfAResume_IsPutBehindWhatWasThere) {
    serve({goodCheck(), replyOf(GetParam())});

    expectOutcome(resume(), voInetErrorSuccess, kOffset, body());

    EXPECT_THAT(ranges(), ElementsAre("bytes=1000-2023", "bytes=1000-"));
}

TEST_P(RightPart, StoppedInAResume_IsCommittedAsFarAsItCame) {
    constexpr std::size_t kArrived = 1500;
    const std::string body = bodyOf(GetParam()).substr(0, kArrived);
    const bool isChunked = GetParam().framing == Framing::chunks;
    sink().stopAt(kArrived);
    serve({goodCheck()});
    server().connection({receiveRequest(),
                         send(headOf(GetParam()) + (isChunked ? "5dc\r\n" : "") + body),
                         awaitClose()});

    EXPECT_EQ(resume().result, voInetErrorCancelled);

    expectLocalFile(makeBody(kOffset + kArrived));
}

INSTANTIATE_TEST_SUITE_P(
    ContentRanges, RightPart,
    Values(Part{"Usual", {kRightRange}}, Part{"None", {}},
           Part{"LowerCaseName", {"content-range: bytes 1000-4999/5000"}},
           Part{"UpperCaseName", {"CONTENT-RANGE: bytes 1000-4999/5000"}},
           Part{"BlanksAround", {"Content-Range:   bytes 1000-4999/5000   "}},
           Part{"TabsAround", {"Content-Range:\tbytes 1000-4999/5000\t"}},
           Part{"NoBlank", {"Content-Range:bytes 1000-4999/5000"}},
           Part{"AmongOthers", {"X-Content-Range: bytes 0-1/2", kRightRange, "Range: bytes=0-1"}},
           Part{"Chunks", {kRightRange}, kOffset, kSize - kOffset, Framing::chunks},
           Part{"UntilTheEnd", {kRightRange}, kOffset, kSize - kOffset, Framing::close}),
    nameOfPart);

TEST_F(PartTest, CheckWithoutContentRange_LeavesTheTotalToTheRest) {
    serve({reply(206, body().substr(kOffset, kPrefix)), replyOf({"", {kRightRange}})});

    expectOutcome(resume(), voInetErrorSuccess, kOffset, body());
}

TEST_F(PartTest, RangesOfAnswersBeforeTheFinalOne_DoNotCount) {
    const std::string wrong = "Content-Range: bytes 0-3999/5000";
    serve({goodCheck(), reply(302, "", {"Location: /1", wrong}),
           replyHead(103, {wrong}) + replyOf({"", {kRightRange}})});

    expectOutcome(resume(), voInetErrorSuccess, kOffset, body());
}

TEST_F(PartTest, RangeOfA200_DoesNotCount) {
    serve({reply(200, body(), {"Content-Range: bytes 7-8/9"})});

    expectOutcome(download(), voInetErrorSuccess, 0, body());
}

TEST_F(PartTest, FileReplacedAfterTheCheck_IsDownloadedWhole) {
    const std::string newer = makeBody(6000, 777);
    serve({goodCheck(), reply(206, newer.substr(kOffset), {"Content-Range: bytes 1000-5999/6000"}),
           reply(200, newer)});

    expectOutcome(resume(), voInetErrorSuccess, 0, newer);
}

TEST_F(PartTest, CheckThatNamesAnotherStart_IsNoMatch) {
    for (const char* value : {"bytes 0-1023/5000", "bytes 999-2022/5000", "bytes 1001-2024/5000"}) {
        makeLocalFile(partial());
        server().forgetRecords();
        // The bytes match all the same.
        serve(
            {reply(206, body().substr(kOffset, kPrefix), {std::string("Content-Range: ") + value}),
             reply(200, body())});

        expectOutcome(resume(), voInetErrorSuccess, 0, body());

        EXPECT_THAT(ranges(), ElementsAre("bytes=1000-2023", "none")) << value;
    }
}

TEST_F(PartTest, CheckThatNamesMoreThanWasAskedFor_Matches) {
    serve({reply(206, body().substr(kOffset), {kRightRange}), replyOf({"", {kRightRange}})});

    expectOutcome(resume(), voInetErrorSuccess, kOffset, body());
}

// FTP through an HTTP proxy, whose answers have heads as well.

class FtpProxyPart : public FtpTest {
  protected:
    void SetUp() override {
        m_proxy.emplace();
        makeLocalFile(partial());
        const CProxyParams record = proxyAt(m_proxy->port());
        EXPECT_EQ(transfer().SetOption(voInetOptionSite, &record), voInetErrorSuccess);
        applySettings(transfer(), settings());
        serve({reply(200)});
        ASSERT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
        ASSERT_TRUE(m_proxy->awaitPlayed());
        m_proxy->forgetRecords();
    }

    void TearDown() override {
        m_proxy.reset();
        FtpTest::TearDown();
    }

    ScriptedServer& proxy() { return *m_proxy; }
    const std::string& body() const { return m_body; }
    std::string partial() const { return m_body.substr(0, kOffset + kPrefix); }

    void serve(const std::vector<std::string>& replies) {
        for (const auto& bytes : replies) {
            m_proxy->connection(answer(bytes));
        }
    }

    std::string goodCheck() const {
        return reply(206, m_body.substr(kOffset, kPrefix), {kCheckedRange});
    }

    DownloadOutcome resume() {
        DownloadArguments arguments;
        arguments.offset = static_cast<long>(kOffset);
        return download(L"file.zip", arguments);
    }

    void expectRestarted(const DownloadOutcome& outcome, std::string_view file) {
        EXPECT_EQ(outcome.result, voInetErrorSuccess);
        EXPECT_EQ(outcome.offset, 0);
        expectLocalFile(file);
        ASSERT_THAT(m_proxy->requests(), SizeIs(3));
        EXPECT_EQ(m_proxy->requests()[1].header("Range"), "bytes=1000-");
        EXPECT_EQ(m_proxy->requests()[2].header("Range"), std::nullopt);
    }

    void expectRangeIgnored(const DownloadOutcome& outcome) {
        EXPECT_EQ(outcome.result, voInetErrorRangeIgnored);
        EXPECT_EQ(outcome.offset, 0);
        expectLocalFile(partial());
        EXPECT_THAT(m_proxy->requests(), SizeIs(3));
    }

  private:
    std::string m_body = makeBody(kSize);
    std::optional<ScriptedServer> m_proxy;
};

TEST_F(FtpProxyPart, RangedRequestAnswered200_StartsOverOnce) {
    serve({goodCheck(), reply(200, body()), reply(200, body())});

    expectRestarted(resume(), body());
}

TEST_F(FtpProxyPart, RestartedTransfer_ReportsNoProgress) {
    const std::string newer = makeBody(3 * kSize, 777);
    serve({goodCheck(), reply(200, body()), reply(200, newer)});

    expectRestarted(resume(), newer);

    for (const auto& notification : sink().notifications()) {
        EXPECT_LE(notification.done, kSize);
        EXPECT_LE(notification.total, static_cast<long>(kSize));
    }
}

TEST_F(FtpProxyPart, RightPart_IsPutBehindWhatWasThere) {
    serve({goodCheck(), replyOf({"", {kRightRange}})});

    const auto outcome = resume();

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, static_cast<long>(kOffset));
    expectLocalFile(body());
}

TEST_F(FtpProxyPart, PartWithoutContentRange_IsPutBehindWhatWasThere) {
    serve({goodCheck(), replyOf({"", {}})});

    EXPECT_EQ(resume().result, voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(FtpProxyPart, CheckThatNamesAnotherStart_IsNoMatch) {
    serve({reply(206, body().substr(kOffset, kPrefix), {"Content-Range: bytes 0-1023/5000"}),
           reply(200, body())});

    const auto outcome = resume();

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalFile(body());
    ASSERT_THAT(proxy().requests(), SizeIs(2));
    EXPECT_EQ(proxy().requests()[1].header("Range"), std::nullopt);
}

TEST_F(FtpProxyPart, HeadCutAnywhere_IsATransferFailureAndLeavesTheOldFile) {
    const std::string head = kEmptyHead;
    for (std::size_t cut = 0; cut < head.size(); ++cut) {
        serve({head.substr(0, cut)});

        EXPECT_EQ(download().result, voInetErrorTransferFailed) << "cut at " << cut;
    }
    expectLocalFile(partial());
}

TEST_F(FtpProxyPart, HeadWithoutABody_LandsAsAnEmptyFile) {
    serve({kEmptyHead});

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("");
}

class FtpProxyWrongPart : public FtpProxyPart, public WithParamInterface<Part> {};

TEST_P(FtpProxyWrongPart, OfAResume_StartsOverOnce) {
    serve({goodCheck(), replyOf(GetParam()), reply(200, body())});

    expectRestarted(resume(), body());
}

TEST_P(FtpProxyWrongPart, OfAResumeAndItsRestart_IsRangeIgnoredAndLeavesTheOldFile) {
    serve({goodCheck(), replyOf(GetParam()), replyOf(GetParam())});

    expectRangeIgnored(resume());
}

INSTANTIATE_TEST_SUITE_P(ContentRanges, FtpProxyWrongPart, ValuesIn(someWrongParts()), nameOfPart);

TEST_F(FtpProxyPart, StoppedWrongPart_CommitsNothing) {
    const Part part{"", {"Content-Range: bytes 1001-4999/5000"}, 1001, 3999};
    sink().stopAt(2000);
    serve({goodCheck()});
    proxy().connection(
        {receiveRequest(), send(headOf(part) + bodyOf(part).substr(0, 2000)), awaitClose()});

    EXPECT_EQ(resume().result, voInetErrorCancelled);

    expectLocalFile(partial());
}

TEST_F(FtpProxyPart, StoppedAnswer200ToARange_CommitsNothing) {
    sink().stopAt(kSize / 2);
    serve({goodCheck()});
    const std::string whole = reply(200, body());
    proxy().connection(
        {receiveRequest(), send(whole.substr(0, whole.size() - kSize / 2)), awaitClose()});

    EXPECT_EQ(resume().result, voInetErrorCancelled);

    expectLocalFile(partial());
}

TEST_F(FtpProxyPart, StoppedRightPart_IsCommittedAsFarAsItCame) {
    constexpr std::size_t kArrived = 1500;
    const Part part{"", {kRightRange}};
    sink().stopAt(kArrived);
    serve({goodCheck()});
    proxy().connection(
        {receiveRequest(), send(headOf(part) + bodyOf(part).substr(0, kArrived)), awaitClose()});

    EXPECT_EQ(resume().result, voInetErrorCancelled);

    expectLocalFile(makeBody(kOffset + kArrived));
}

// An exchange whose response file is its request file.

class SameFileExchange : public ExchangeTest {
  protected:
    static constexpr const char* kRequest = "a request that must survive";

    void SetUp() override {
        ExchangeTest::SetUp();
        makeRequestFile(kRequest);
    }

    voInetError postTo(const std::string& response) {
        return transfer().UploadFileResponse(widened(requestFile()), L"/path", widened(response),
                                             &sink());
    }

    /// Refused without a connection, and nothing is lost.
    void expectRefused(const std::string& response) {
        EXPECT_LT(postTo(response), 0) << response;
        EXPECT_EQ(server().connectionCount(), 0U) << response;
        EXPECT_EQ(readFile(requestFile()), kRequest) << response;
    }
};

TEST_F(SameFileExchange, SameName_IsRefused) {
    expectRefused(requestFile());
}

TEST_F(SameFileExchange, OtherSpellingsOfTheName_AreRefused) {
    directory().makeFile("folder/file", "");

    for (const char* name :
         {"./request", "/request", "//request", "folder/../request", "./folder/.././request"}) {
        expectRefused(directory().path() + "/" + name);
    }
}

TEST_F(SameFileExchange, SymbolicLinks_AreRefused) {
    const std::string link = directory().path("link");
    const std::string linkToLink = directory().path("link2");
    ASSERT_EQ(::symlink(requestFile().c_str(), link.c_str()), 0);
    ASSERT_EQ(::symlink("link", linkToLink.c_str()), 0);

    expectRefused(link);
    expectRefused(linkToLink);
}

TEST_F(SameFileExchange, SymbolicLinkToItsFolder_IsRefused) {
    const std::string link = directory().path("folder");
    ASSERT_EQ(::symlink(directory().path().c_str(), link.c_str()), 0);

    expectRefused(link + "/request");
}

TEST_F(SameFileExchange, HardLink_IsRefused) {
    const std::string link = directory().path("link");
    ASSERT_EQ(::link(requestFile().c_str(), link.c_str()), 0);

    expectRefused(link);
}

TEST_F(SameFileExchange, EmptyFile_IsRefusedAsWell) {
    makeRequestFile("");

    EXPECT_LT(postTo(requestFile()), 0);

    EXPECT_EQ(server().connectionCount(), 0U);
}

TEST_F(SameFileExchange, OtherHostForms_AreNotTriedEither) {
    TransferSettings settings = addressOnly(server().hostAndPort());
    settings.hostFqdn = server().hostAndPort();
    settings.hostNetBios = server().hostAndPort();
    applySettings(transfer(), settings);

    expectRefused(requestFile());
}

TEST_F(SameFileExchange, OtherFileOfTheSameContent_IsReplaced) {
    directory().makeFile("response", kRequest);

    EXPECT_EQ(postAnswered(reply(200, "package")), voInetErrorPackageReceived);

    expectResponse("package");
    EXPECT_EQ(readFile(requestFile()), kRequest);
}

TEST_F(SameFileExchange, SameNameInAnotherFolder_IsReplaced) {
    const std::string other = directory().makeFile("folder/request", kRequest);
    server().connection(answer(reply(200, "package")));

    EXPECT_EQ(postTo(other), voInetErrorPackageReceived);

    EXPECT_EQ(readFile(other), "package");
    EXPECT_EQ(readFile(requestFile()), kRequest);
}

TEST_F(SameFileExchange, LinkToAnotherFile_IsFollowed) {
    const std::string link = directory().path("link");
    const std::string target = directory().makeFile("target", "older");
    ASSERT_EQ(::symlink(target.c_str(), link.c_str()), 0);
    server().connection(answer(reply(200, "package")));

    EXPECT_EQ(postTo(link), voInetErrorPackageReceived);

    EXPECT_EQ(readFile(target), "package");
    EXPECT_EQ(readFile(requestFile()), kRequest);
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
