// Servers that send what no server should: a monitor changes nothing in what comes of it, and its
// records stay bounded and well-formed.

#include "kvecomn/telmcomn.h"
#include "support/recordingmonitor.h"
#include "support/wiretest.h"

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ValuesIn;
using testing::WithParamInterface;

constexpr std::size_t kMostHeaderBytes = std::size_t{64} * 1024;

struct OddAnswer {
    const char* name;
    std::string bytes;
};

std::ostream& operator<<(std::ostream& stream, const OddAnswer& odd) {
    return stream << odd.name;
}

Headers manyHeaders(std::size_t count) {
    Headers headers;
    headers.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        headers.push_back("X-" + std::to_string(i) + ": v");
    }
    return headers;
}

std::string withLine(const std::string& line) {
    return reply(200, "new", {"X-Before: 1", line, "X-Behind: 2"});
}

std::vector<OddAnswer> oddAnswers() {
    const std::string zero(1, '\0');
    return {
        {"LineOf90Kilobytes", withLine("X-Long: " + std::string(90'000, 'x'))},
        {"LineOf100Kilobytes", withLine("X-Long: " + std::string(102'400, 'x'))},
        {"LineOfAMegabyte", withLine("X-Long: " + std::string(1'048'576, 'x'))},
        {"NameOf90Kilobytes", withLine(std::string(90'000, 'x') + ": value")},
        {"ManyLines", reply(200, "new", manyHeaders(10'000))},
        {"LineWithoutAColon", withLine("no colon at all")},
        {"LineOfAColonOnly", withLine(":")},
        {"LineWithoutAName", withLine(": value")},
        {"LineWithoutAValue", withLine("X-Empty:")},
        {"LineOfColons", withLine("X:::::")},
        {"ZeroInAValue", withLine("X-Zero: a" + zero + "b")},
        {"ZeroInAName", withLine("X" + zero + "Zero: a")},
        {"FoldedLine", withLine("X-Folded: a\r\n b")},
        {"FoldedFirstLine", "HTTP/1.1 200 OK\r\n folded\r\n\r\nnew"},
        {"ControlCharacters", withLine("X-Control: \x01\x02\x7f")},
        {"NoUtf8", withLine("X-Latin: caf\xe9 \xff\xfe")},
        {"LineFeedsOnly", "HTTP/1.1 200 OK\nX-Kind: feeds\n\nnew"},
        {"NoReason", "HTTP/1.1 200\r\n\r\nnew"},
        {"HugeStatus", "HTTP/1.1 99999999999 OK\r\n\r\nnew"},
        {"NegativeStatus", "HTTP/1.1 -200 OK\r\n\r\nnew"},
        {"NoStatus", "HTTP/1.1 OK\r\n\r\nnew"},
        {"UnknownVersion", "HTTP/7.0 200 OK\r\n\r\nnew"},
        {"NoHttp", "SSH-2.0-server\r\n\r\n"},
        {"HugeLength", "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\nnew"},
        {"NegativeLength", "HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\nnew"},
        {"LengthOfLetters", "HTTP/1.1 200 OK\r\nContent-Length: abc\r\n\r\nnew"},
        {"TwoLengths", "HTTP/1.1 200 OK\r\nContent-Length: 3\r\nContent-Length: 4\r\n\r\nnew"},
        {"ManyInterimAnswers",
         [] {
             std::string bytes;
             for (int i = 0; i < 500; ++i) {
                 bytes += replyHead(103, {"X-Interim: " + std::to_string(i)});
             }
             return bytes + reply(200, "new");
         }()},
        {"NothingAtAll", ""},
    };
}

class MonitoredOddAnswer : public Monitored<HttpTest>, public WithParamInterface<OddAnswer> {
  protected:
    /// What a download ends with, and the file behind it.
    std::pair<voInetError, std::string> outcome() {
        makeLocalFile("old");
        server().connection({receiveRequest(), sendUntilClosed(GetParam().bytes)});
        const auto result = download().result;
        return {result, readFile(localFile())};
    }
};

bool isUtf8(const std::string& text) {
    // What is no UTF-8 does not survive the way to wide text and back.
    return telmcomn_wide_to_ansi(telmcomn_ansi_to_wide(text)) == text;
}

TEST_P(MonitoredOddAnswer, EndsAsWithoutAMonitor) {
    logOn();
    const auto without = outcome();
    watch();

    EXPECT_EQ(outcome(), without);

    EXPECT_EQ(monitor().count(MonitorCall::started), 1U);
    EXPECT_EQ(monitor().count(MonitorCall::ended), 1U);
    EXPECT_LE(monitor().count(MonitorCall::headers), 1U);
    EXPECT_EQ(ended().reason.empty(), ended().curlResult == 0);
}

TEST_P(MonitoredOddAnswer, LeavesTheRecordsBoundedAndWellFormed) {
    logOn();
    watch();

    outcome();

    for (const auto& record : monitor().records()) {
        std::size_t size = 0;
        for (const auto& header : record.headers) {
            size += header.name.size() + header.value.size();
        }
        EXPECT_LE(size, kMostHeaderBytes);
        for (const auto& text : textsOf(record)) {
            EXPECT_TRUE(isUtf8(text));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Answers, MonitoredOddAnswer, ValuesIn(oddAnswers()),
                         [](const auto& given) { return std::string(given.param.name); });

class MonitoredOddHeads : public Monitored<HttpTest> {
  protected:
    void SetUp() override {
        makeLocalFile("old");
        logOn();
        watch();
    }

    RequestRecord recordFor(const std::string& bytes) {
        server().connection({receiveRequest(), sendUntilClosed(bytes)});
        EXPECT_EQ(download().result, voInetErrorSuccess);
        return ended();
    }
};

TEST_F(MonitoredOddHeads, ManyLines_AreKeptFromTheFirstOn) {
    const RequestRecord record = recordFor(reply(200, "new", manyHeaders(10'000)));

    ASSERT_GT(record.headers.size(), 1000U);
    for (std::size_t i = 0; i < 1000; ++i) {
        ASSERT_EQ(record.headers[i].name, "X-" + std::to_string(i));
        ASSERT_EQ(record.headers[i].value, "v");
    }
}

TEST_F(MonitoredOddHeads, OtherEncodings_BecomeReplacementCharacters) {
    const RequestRecord record = recordFor(reply(200, "new", {"X-Latin: caf\xe9."}));

    EXPECT_EQ(headerOf(record, "X-Latin"), "caf\xef\xbf\xbd.");
}

TEST_F(MonitoredOddHeads, Utf8_StaysAsItIs) {
    const RequestRecord record = recordFor(reply(200, "new", {"X-Utf8: caf\xc3\xa9"}));

    EXPECT_EQ(headerOf(record, "X-Utf8"), "caf\xc3\xa9");
}

TEST_F(MonitoredOddHeads, EmptyValue_IsEmpty) {
    const RequestRecord record = recordFor(reply(200, "new", {"X-Empty:"}));

    EXPECT_EQ(headerOf(record, "X-Empty"), "");
}

TEST_F(MonitoredOddHeads, LineThatComesTwice_IsThereTwice) {
    const RequestRecord record = recordFor(reply(200, "new", {"X-Twice: a", "X-Twice: b"}));

    ASSERT_GE(record.headers.size(), 2U);
    EXPECT_EQ(record.headers[0].value, "a");
    EXPECT_EQ(record.headers[1].value, "b");
}

class MonitoredRedirects : public MonitoredOddHeads {
  protected:
    /// A chain of redirects over these statuses that ends with the file.
    void serve(const std::vector<int>& statuses) {
        for (std::size_t hop = 0; hop < statuses.size(); ++hop) {
            server().connection(
                answer(reply(statuses[hop], "page", {"Location: /" + std::to_string(hop)})));
        }
    }

    std::string url(const std::string& path) {
        return "http://127.0.0.1:" + std::to_string(server().port()) + path;
    }
};

TEST_F(MonitoredRedirects, MixedChainOfFive_IsFollowed) {
    const std::vector<std::vector<int>> chains = {
        {301, 302, 303, 307, 302}, {307, 303, 302, 301, 301}, {303, 303, 307, 307, 302}};
    for (std::size_t chain = 0; chain < chains.size(); ++chain) {
        serve(chains[chain]);
        server().connection(answer(reply(200, "new")));

        EXPECT_EQ(download().result, voInetErrorSuccess);

        EXPECT_EQ(ended(chain).redirects, 5);
        EXPECT_EQ(ended(chain).effectiveUrl, url("/4"));
        EXPECT_EQ(ended(chain).status, 200);
        EXPECT_EQ(recordOf(MonitorCall::headers, chain).status, 200);
        expectLocalFile("new");
    }
    EXPECT_EQ(monitor().count(MonitorCall::headers), chains.size());
}

TEST_F(MonitoredRedirects, ChainOfSix_IsAFailure) {
    serve({301, 302, 303, 307, 302, 301});

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    EXPECT_NE(ended().curlResult, 0);
    EXPECT_NE(ended().reason, "");
    EXPECT_EQ(ended().redirects, 5);
    expectLocalFile("old");
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
