// How the development server plays the management server.

#include "serversite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <fstream>
#include <future>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace voinettest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Optional;
using ::testing::UnorderedElementsAre;

constexpr const char* kPackage = "a package of an agent";

/// A site with directories for answers and for requests.
class ExchangeSite : public Site {
  public:
    ExchangeSite() { fs::create_directory(answers()); }

    fs::path answers() const { return outside() / "answers"; }
    fs::path requests() const { return outside() / "requests"; }
    void addAnswer(const std::string& name, const std::string& data) const {
        writeOutside("answers/" + name, data);
    }
    std::string stored(const std::string& name) const { return readOutside("requests/" + name); }
    std::set<std::string> storedNames() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(requests())) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    DevelopmentServer start(const std::vector<std::string>& options = {}) const {
        std::vector<std::string> all = {"--exchange",          "/exchange",
                                        "--exchange-answers",  answers().string(),
                                        "--exchange-requests", requests().string()};
        all.insert(all.end(), options.begin(), options.end());
        return serve(*this, all);
    }
};

RawReply sendAndRead(const DevelopmentServer& server, const std::string& request) {
    RawConnection connection(server.port());
    connection.send(request);
    return connection.readReply();
}

RawReply post(const DevelopmentServer& server, const std::string& body = kPackage) {
    return sendAndRead(server, agentRequest(body));
}

std::vector<int> statusesOfPosts(const DevelopmentServer& server, std::size_t count) {
    std::vector<int> statuses;
    statuses.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        statuses.push_back(post(server).status);
    }
    return statuses;
}

std::vector<std::string> headersWithLength(const std::string& body = kPackage) {
    std::vector<std::string> headers = agentHeaders();
    headers.push_back("Content-Length: " + std::to_string(body.size()));
    return headers;
}

// The headers of an agent without those of a name, and with another one.
std::vector<std::string> changed(const std::string& without, const std::string& with = "") {
    std::vector<std::string> headers;
    for (const std::string& header : headersWithLength()) {
        if (without.empty() || header.compare(0, without.size() + 1, without + ':') != 0) {
            headers.push_back(header);
        }
    }
    if (!with.empty()) {
        headers.push_back(with);
    }
    return headers;
}

void expectRefused(const RawReply& reply, const std::string& reason) {
    EXPECT_EQ(reply.status, 400);
    EXPECT_TRUE(isOneLine(reply.body)) << reply.body;
    EXPECT_THAT(reply.body, HasSubstr(reason));
}

// --- What a request must look like ---------------------------------------------------------------

TEST(ServerExchangeRules, RequestOfAnAgent_IsTaken) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start();

    EXPECT_EQ(post(server).status, 202);
    EXPECT_EQ(site.stored("000001.bin"), kPackage);
}

TEST(ServerExchangeRules, HarmlessVariation_IsTaken) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start();
    const std::vector<std::string> inOrder = headersWithLength();
    const std::vector<std::vector<std::string>> variations = {
        changed("", "X-Unknown: anything"),
        changed("", "Connection: keep-alive"),
        changed("Accept", "accept: application/octet-stream"),
        changed("User-Agent", "USER-AGENT: Mozilla/4.0 (compatible; KESTL/3.0; Windows)"),
        changed("Accept-Language", "Accept-Language:en-us"),
        changed("Accept-Language", "Accept-Language:   en-us  "),
        changed("Host", "Host: 127.0.0.1:8080"),
        changed("Host", "Host: [::1]"),
        changed("Content-Length", "Content-Length: 000021"),
        {inOrder.rbegin(), inOrder.rend()},
    };
    ASSERT_EQ(std::string(kPackage).size(), 21U);
    for (const auto& headers : variations) {
        EXPECT_EQ(sendAndRead(server, postHead("/exchange", headers) + kPackage).status, 202)
            << headers.back();
    }
}

struct WrongHeaders {
    std::vector<std::string> headers;
    std::string reason;
};

std::vector<WrongHeaders> wrongHeaders() {
    std::vector<WrongHeaders> cases;
    for (const std::string& header : agentHeaders()) {
        const std::string name = header.substr(0, header.find(':'));
        const std::string reason = '\'' + name;
        cases.push_back({changed(name), reason});
        cases.push_back({changed("", header), reason});
        cases.push_back({changed(name, name + ':'), reason});
        if (name != "Host") {
            cases.push_back({changed(name, header + "x"), reason});
            cases.push_back({changed(name, name + ": x"), reason});
        }
    }
    const std::vector<WrongHeaders> others = {
        {changed("Host", "Host: a\r\nHost: b"), "'Host'"},
        {changed("Accept", "Accept: */*"), "'Accept: application/octet-stream'"},
        {changed("Accept", "Accept: APPLICATION/OCTET-STREAM"), "'Accept:"},
        {changed("Accept-Language", "Accept-Language: en-US"), "'Accept-Language: en-us'"},
        {changed("Accept-Language", "Accept-Language: en"), "'Accept-Language: en-us'"},
        {changed("Content-Type", "Content-Type: application/x-www-form-urlencoded"),
         "'Content-Type: application/octet-stream'"},
        {changed("User-Agent", "User-Agent: Mozilla/4.0 (compatible; KESTL/3.1; Windows)"),
         "'User-Agent: Mozilla/4.0 (compatible; KESTL/3.0; Windows)'"},
        {changed("", "Content-Encoding: gzip"), "'Content-Encoding'"},
        {changed("", "Content-Encoding: identity"), "'Content-Encoding'"},
        {changed("", "Range: bytes=0-1"), "'Range'"},
        {changed("", "Range: bytes=0-1,3-4"), "'Range'"},
    };
    cases.insert(cases.end(), others.begin(), others.end());
    return cases;
}

TEST(ServerExchangeRules, WrongHeader_IsRefusedByNameAndWithoutEffect) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start({"--exchange-status", "503,404"});
    for (const auto& [headers, reason] : wrongHeaders()) {
        SCOPED_TRACE(postHead("", headers));
        expectRefused(sendAndRead(server, postHead("/exchange", headers) + kPackage), reason);
    }
    EXPECT_THAT(site.storedNames(), IsEmpty());
    EXPECT_THAT(statusesOfPosts(server, 2), ElementsAre(503, 404));
}

TEST(ServerExchangeRules, RefusedBody_DoesNotDisturbTheConnection) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start();
    RawConnection connection(server.port());
    const std::string body = positionDependent(100'000);
    const std::vector<std::string> requests = {
        agentRequest(body, "/exchange", {"Accept: x"}),
        postHead("/exchange", agentHeaders()),
        postHead("/exchange", changed("Content-Length", "Transfer-Encoding: chunked")) +
            "5\r\nhello\r\n0\r\n\r\n",
        // As a client that announces a length and sends chunks all the same.
        postHead("/exchange", changed("", "Transfer-Encoding: chunked")) + "15\r\n" + kPackage +
            "\r\n0\r\n\r\n",
    };
    for (const std::string& request : requests) {
        connection.send(request);
        EXPECT_EQ(connection.readReply().status, 400) << request.substr(0, 300);
    }
    connection.send(agentRequest(body));
    EXPECT_EQ(connection.readReply().status, 202);
    EXPECT_EQ(site.stored("000001.bin"), body);
}

TEST(ServerExchangeRules, WrongLength_IsRefused) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start();
    const std::vector<std::string> lengths = {
        "",
        "x",
        "-1",
        "+21",
        "0x15",
        "21.0",
        "21x",
        "2 1",
        "21,21",
        "1e1",
        "21;",
        "18446744073709551616",
        "99999999999999999999999999",
    };
    for (const std::string& length : lengths) {
        SCOPED_TRACE(length);
        expectRefused(
            sendAndRead(server, postHead("/exchange",
                                         changed("Content-Length", "Content-Length: " + length)) +
                                    kPackage),
            "'Content-Length'");
    }
    EXPECT_THAT(site.storedNames(), IsEmpty());
}

TEST(ServerExchangeRules, UnclearFraming_ClosesTheConnection) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start();
    const std::vector<WrongHeaders> cases = {
        {changed("", "Content-Length: 21"), "'Content-Length'"},
        {changed("", "Content-Length: 5"), "'Content-Length'"},
        {changed("Content-Length", "Content-Length: x"), "'Content-Length'"},
        {changed("", "Transfer-Encoding: gzip"), "'Transfer-Encoding'"},
        {changed("", "Transfer-Encoding: gzip, chunked"), "'Transfer-Encoding'"},
        {changed("Content-Length", "Transfer-Encoding: identity"), "'Transfer-Encoding'"},
        {changed("", "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked"),
         "'Transfer-Encoding'"},
    };
    for (const auto& [headers, reason] : cases) {
        SCOPED_TRACE(postHead("", headers));
        RawConnection connection(server.port());
        connection.send(postHead("/exchange", headers) + kPackage);
        const RawReply reply = connection.readReply();
        expectRefused(reply, reason);
        EXPECT_THAT(reply.header("Connection"), Optional(std::string("close")));
        EXPECT_TRUE(connection.readsEnd());
    }
}

TEST(ServerExchangeRules, Expectation_IsRefusedInsteadOfMet) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start();
    for (const std::string value : {"100-continue", "100-Continue", "something"}) {
        SCOPED_TRACE(value);
        RawConnection connection(server.port());
        // The body is held back, as a client does that waits to be told to go on.
        connection.send(postHead("/exchange", changed("Content-Length", "Expect: " + value)));
        expectRefused(connection.readReply(), "'Expect'");
    }
    RawConnection waiting(server.port());
    waiting.send(postHead("/exchange", changed("", "Expect: 100-continue")));
    expectRefused(waiting.readReply(), "'Expect'");
    EXPECT_TRUE(waiting.readsEnd());
}

TEST(ServerExchangeRules, ExpectationElsewhere_IsStillMet) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start();
    RawConnection connection(server.port());
    connection.send(rawRequest("POST", "/x", {"Expect: 100-continue", "Content-Length: 5"}));

    EXPECT_EQ(connection.readHead().status, 100);
    connection.send("hello");
    EXPECT_EQ(connection.readReply().status, 405);
}

TEST(ServerExchangeRules, BodyThatEndsEarly_IsRefusedAndNotKept) {
    const ExchangeSite site;
    DevelopmentServer server = site.start({"--exchange-status", "503,404", "--access-log", "-"});
    const std::string request = agentRequest(positionDependent(100'000));
    const std::size_t headSize = request.find("\r\n\r\n") + 4;
    for (const std::size_t sent : {headSize, headSize + 1, request.size() - 1}) {
        SCOPED_TRACE(sent);
        RawConnection connection(server.port());
        connection.send(request.substr(0, sent));
        connection.finishSending();
        // Nobody is left to read the reply, so only the log has it.
        EXPECT_TRUE(connection.readsEnd());
        EXPECT_THAT(server.process().readLine(),
                    Optional(MatchesRegex("[^ ]+ POST /exchange - 400 0")));
    }
    EXPECT_THAT(site.storedNames(), IsEmpty());
    EXPECT_EQ(post(server).status, 503);
}

TEST(ServerExchangeRules, BytesBehindTheBody_AreNotPartOfIt) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start();
    RawConnection connection(server.port());
    connection.send(agentRequest(kPackage) + "too much\r\n\r\n");

    EXPECT_EQ(connection.readReply().status, 202);
    EXPECT_EQ(site.stored("000001.bin"), kPackage);
}

TEST(ServerExchangeRules, MalformedRange_IsRefused) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start();

    RawConnection connection(server.port());
    connection.send(agentRequest(kPackage, "/exchange", {"Range: nonsense"}));

    EXPECT_EQ(connection.readReply().status, 400);
    EXPECT_TRUE(connection.readsEnd());
}

// --- Where it is ---------------------------------------------------------------------------------

TEST(ServerExchangePath, OtherPathsAndMethods_AreNoExchange) {
    const ExchangeSite site;
    const DevelopmentServer server = serve(site, {"--exchange", "/a.b+(c)/d"});

    EXPECT_EQ(sendAndRead(server, agentRequest(kPackage, "/a.b+(c)/d")).status, 202);
    EXPECT_EQ(sendAndRead(server, agentRequest(kPackage, "/a%2Eb+(c)/d?query")).status, 202);
    for (const std::string path :
         {"/", "/exchange", "/aXb+(c)/d", "/a.b+(c)/d/", "/a.b+(c)/dd", "/x/a.b+(c)/d"}) {
        EXPECT_EQ(sendAndRead(server, agentRequest(kPackage, path)).status, 405) << path;
    }
    EXPECT_EQ(get(server, "/a.b+(c)/d").status, 404);
    EXPECT_EQ(exchange(server.port(), "PUT", "/a.b+(c)/d").status, 405);
    EXPECT_EQ(get(server, "/file.bin").body, fileData());
}

TEST(ServerExchangePath, NoExchange_PostIsRefused) {
    const Site site;
    const DevelopmentServer server = serve(site);

    EXPECT_EQ(sendAndRead(server, agentRequest(kPackage)).status, 405);
}

// --- Statuses ------------------------------------------------------------------------------------

TEST(ServerExchangeStatus, EveryOutcome_IsRehearsedInTurn) {
    const ExchangeSite site;
    site.addAnswer("1", "answer");
    const DevelopmentServer server =
        site.start({"--exchange-status", "200,201,202,400,403,403-keys,404,503,506,500"});
    struct Case {
        int status;
        bool hasReason;
        std::optional<std::string> marker;
    };
    const std::vector<Case> cases = {
        {200, false, {}}, {201, false, {}},          {202, false, {}}, {400, true, {}},
        {403, true, {}},  {403, true, "UpgradeKey"}, {404, true, {}},  {503, true, {}},
        {506, true, {}},  {500, true, {}},           {500, true, {}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.status);
        const RawReply reply = post(server);
        EXPECT_EQ(reply.status, test.status);
        EXPECT_TRUE(reply.complete);
        EXPECT_EQ(reply.header("ORB-WHY-FORBIDDEN"), test.marker);
        EXPECT_EQ(isOneLine(reply.body), test.hasReason) << reply.body;
        EXPECT_THAT(reply.body, test.hasReason ? HasSubstr("--exchange-status")
                                               : HasSubstr(test.status == 200 ? "answer" : ""));
    }
    EXPECT_EQ(site.storedNames().size(), cases.size());
}

TEST(ServerExchangeStatus, EveryNumber_IsAnsweredWithItsFraming) {
    const ExchangeSite site;
    std::string script = "200";
    for (int status = 201; status <= 599; ++status) {
        script += ',' + std::to_string(status);
    }
    const DevelopmentServer server = site.start({"--exchange-status", script});
    std::optional<RawConnection> connection;
    for (int status = 200; status <= 599; ++status) {
        if (status % 50 == 0) {
            connection.emplace(server.port());
        }
        connection->send(agentRequest(kPackage));
        const RawReply reply = connection->readReply();
        EXPECT_EQ(reply.status, status);
        EXPECT_TRUE(reply.complete) << status;
        EXPECT_EQ(isOneLine(reply.body), status >= 300 && status != 304) << status;
        EXPECT_EQ(reply.header("WWW-Authenticate").has_value(), status == 401) << status;
        EXPECT_FALSE(reply.header("ORB-WHY-FORBIDDEN")) << status;
    }
}

TEST(ServerExchangeStatus, AnswerStep_PlaysTheDefault) {
    const ExchangeSite site;
    site.addAnswer("1", "first");
    site.addAnswer("2", "second");
    const DevelopmentServer server = site.start({"--exchange-status", "answer,503,answer"});

    EXPECT_EQ(post(server).body, "first");
    EXPECT_EQ(post(server).status, 503);
    EXPECT_EQ(post(server).body, "second");
    EXPECT_THAT(statusesOfPosts(server, 2), ElementsAre(202, 202));
}

// --- Answers -------------------------------------------------------------------------------------

TEST(ServerExchangeAnswers, Packages_AreHandedOutOnceByName) {
    const ExchangeSite site;
    const std::string large = positionDependent(5 << 20);
    site.addAnswer("c", "last");
    site.addAnswer("a", large);
    site.addAnswer("b", "");
    site.addAnswer("10", "before 9");
    site.addAnswer("9", "after 10");
    site.addAnswer(".hidden", "not complete yet");
    site.addAnswer("aa/inner", "in a directory");
    const DevelopmentServer server = site.start();
    for (const std::string& expected : {std::string("before 9"), std::string("after 10"), large,
                                        std::string(), std::string("last")}) {
        const RawReply reply = post(server);
        EXPECT_EQ(reply.status, 200);
        EXPECT_EQ(reply.header("Content-Type"), "application/octet-stream");
        EXPECT_TRUE(reply.body == expected) << expected.substr(0, 20);
    }
    EXPECT_THAT(statusesOfPosts(server, 2), ElementsAre(202, 202));
}

TEST(ServerExchangeAnswers, NoneLeft_IsAnEmptyBody) {
    const ExchangeSite site;
    site.addAnswer("1", "only");
    const DevelopmentServer server = site.start({"--exchange-status", "200"});
    EXPECT_EQ(post(server).body, "only");
    for (int i = 0; i < 2; ++i) {
        const RawReply reply = post(server);
        EXPECT_EQ(reply.status, 200);
        EXPECT_THAT(reply.body, IsEmpty());
        EXPECT_EQ(reply.header("Content-Length"), "0");
    }
}

TEST(ServerExchangeAnswers, NoDirectory_HasNoAnswers) {
    const Site site;
    const DevelopmentServer server =
        serve(site, {"--exchange", "/exchange", "--exchange-status", "answer,200"});

    EXPECT_EQ(post(server).status, 202);
    EXPECT_EQ(post(server).status, 200);
}

TEST(ServerExchangeAnswers, AddedWhileRunning_AreHandedOut) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start();
    EXPECT_EQ(post(server).status, 202);

    site.addAnswer("b", "second");
    EXPECT_EQ(post(server).body, "second");
    // Earlier in the order of names, but not handed out before.
    site.addAnswer("a", "third");
    EXPECT_EQ(post(server).body, "third");
    EXPECT_EQ(post(server).status, 202);
}

TEST(ServerExchangeAnswers, UnreadableDirectory_IsTheServersOwnFailure) {
    const ExchangeSite site;
    DevelopmentServer server = site.start();
    fs::remove_all(site.answers());

    const RawReply reply = post(server);
    EXPECT_EQ(reply.status, 500);
    EXPECT_TRUE(isOneLine(reply.body)) << reply.body;
    server.process().stop();
    EXPECT_TRUE(isOneLine(server.process().standardError()));
    EXPECT_THAT(server.process().standardError(), HasSubstr(site.answers().string()));
}

// --- Stored requests -----------------------------------------------------------------------------

TEST(ServerExchangeRequests, Bodies_AreStoredUnchangedAndNumbered) {
    const ExchangeSite site;
    const DevelopmentServer server = site.start();
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        bytes += static_cast<char>(i);
    }
    const std::vector<std::string> bodies = {"", positionDependent(19), bytes,
                                             positionDependent(5 << 20), "\r\n\r\n"};
    for (std::size_t i = 0; i < bodies.size(); ++i) {
        post(server, bodies[i]);
        EXPECT_TRUE(site.stored("00000" + std::to_string(i + 1) + ".bin") == bodies[i]) << i;
    }
    EXPECT_THAT(site.storedNames(), UnorderedElementsAre("000001.bin", "000002.bin", "000003.bin",
                                                         "000004.bin", "000005.bin"));
}

TEST(ServerExchangeRequests, EarlierOnes_AreKept) {
    const ExchangeSite site;
    site.writeOutside("requests/000007.bin", "earlier");
    site.writeOutside("requests/000041.part", "broken off");
    site.writeOutside("requests/notes.txt", "mine");
    const DevelopmentServer server = site.start();

    post(server);

    EXPECT_THAT(site.storedNames(),
                UnorderedElementsAre("000007.bin", "000041.part", "000042.bin", "notes.txt"));
    EXPECT_EQ(site.stored("000007.bin"), "earlier");
}

TEST(ServerExchangeRequests, RequestThatCannotBeStored_IsTheServersOwnFailure) {
    const ExchangeSite site;
    DevelopmentServer server = site.start({"--exchange-status", "503"});
    fs::remove_all(site.requests());
    RawConnection connection(server.port());
    connection.send(agentRequest(kPackage));

    EXPECT_EQ(connection.readReply().status, 500);
    EXPECT_TRUE(connection.readsEnd());
    fs::create_directory(site.requests());
    EXPECT_EQ(post(server).status, 503);
    server.process().stop();
    EXPECT_THAT(server.process().standardError(), HasSubstr("000001.part cannot be made"));
}

TEST(ServerExchangeRequests, AgentsAtTheSameTime_AreKeptApart) {
    constexpr std::size_t kAgentCount = 8;
    const ExchangeSite site;
    std::multiset<std::string> sent;
    std::multiset<std::string> answers;
    for (std::size_t i = 0; i < kAgentCount; ++i) {
        answers.insert(std::to_string(i) + fileData());
        sent.insert(std::to_string(i) + positionDependent(300'000));
        site.addAnswer(std::to_string(i), std::to_string(i) + fileData());
    }
    const DevelopmentServer server = site.start();
    std::vector<std::future<RawReply>> replies;
    replies.reserve(kAgentCount);
    for (const std::string& body : sent) {
        replies.push_back(std::async(std::launch::async, [&] { return post(server, body); }));
    }

    std::multiset<std::string> received;
    for (auto& reply : replies) {
        received.insert(reply.get().body);
    }
    EXPECT_TRUE(received == answers);
    std::multiset<std::string> stored;
    for (const std::string& name : site.storedNames()) {
        stored.insert(site.stored(name));
    }
    EXPECT_TRUE(stored == sent);
}

// The most memory that the process has had, in KiB.
std::size_t peakMemory(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        std::size_t size = 0;
        if (word == "VmHWM:" && status >> size) {
            return size;
        }
    }
    return 0;
}

TEST(ServerExchangeRequests, LargeBody_IsNotHeldInMemory) {
    constexpr std::size_t kPieceSize = 1 << 20;
    constexpr std::size_t kPieceCount = 256;
    const Site site;
    DevelopmentServer server = serve(site, {"--exchange", "/exchange"});
    post(server);
    const std::size_t before = peakMemory(server.process().id());
    ASSERT_GT(before, 0U);
    std::vector<std::string> headers = agentHeaders();
    headers.push_back("Content-Length: " + std::to_string(kPieceSize * kPieceCount));
    RawConnection connection(server.port());
    connection.send(postHead("/exchange", headers));
    const std::string piece(kPieceSize, 'x');
    for (std::size_t i = 0; i < kPieceCount; ++i) {
        connection.send(piece);
    }

    EXPECT_EQ(connection.readReply().status, 202);
    EXPECT_LT(peakMemory(server.process().id()) - before, 16'384U);
}

// --- With the other options ----------------------------------------------------------------------

TEST(ServerExchangeFaults, Cut_BreaksAnswersOff) {
    const ExchangeSite site;
    site.addAnswer("1", fileData());
    site.addAnswer("2", fileData());
    const DevelopmentServer server = site.start({"--cut", "/exchange=10", "--cut", "500"});
    for (int i = 0; i < 2; ++i) {
        RawConnection connection(server.port());
        connection.send(agentRequest(kPackage));
        const RawReply reply = connection.readReply();
        EXPECT_EQ(reply.header("Content-Length"), "1000");
        EXPECT_EQ(reply.body, fileData().substr(0, 10));
        EXPECT_TRUE(connection.readsEnd());
    }
}

TEST(ServerExchangeFaults, Rate_SlowsAnswersDown) {
    const ExchangeSite site;
    site.addAnswer("1", fileData());
    DevelopmentServer server = site.start({"--rate", "10"});
    RawConnection connection(server.port());
    connection.send(agentRequest(kPackage));
    connection.readHead();

    EXPECT_EQ(connection.readBytes(2), fileData().substr(0, 2));
    server.process().stop();
    EXPECT_LT(connection.readBytes(fileData().size()).size(), fileData().size() - 2);
}

TEST(ServerExchangeFaults, StatusAndUser_DoNotConcernIt) {
    const ExchangeSite site;
    const std::string password = site.writeOutside("password", "word\n");
    const DevelopmentServer server =
        site.start({"--status", "/exchange=503", "--user", "user", "--password-file", password});

    EXPECT_EQ(post(server).status, 202);
    EXPECT_EQ(get(server, "/exchange").status, 401);
}

TEST(ServerExchangeFaults, AccessLog_HasItsLines) {
    const ExchangeSite site;
    site.addAnswer("1", fileData());
    DevelopmentServer server = site.start({"--access-log", "-"});
    struct Case {
        std::string request;
        std::string line;
    };
    const std::vector<Case> cases = {
        {agentRequest(kPackage), "POST /exchange - 200 1000"},
        {agentRequest(kPackage), "POST /exchange - 202 0"},
        {postHead("/exchange", {}), "POST /exchange - 400 [0-9]+"},
    };
    for (const Case& test : cases) {
        EXPECT_TRUE(sendAndRead(server, test.request).complete);
        EXPECT_THAT(server.process().readLine(), Optional(MatchesRegex("[^ ]+ " + test.line)));
    }
}

TEST(ServerExchangeStop, RequestThatIsArriving_DoesNotKeepIt) {
    const ExchangeSite site;
    DevelopmentServer server = site.start();
    RawConnection connection(server.port());
    connection.send(agentRequest(positionDependent(1000)).substr(0, 500));
    // Other connections are served meanwhile.
    EXPECT_EQ(post(server).status, 202);

    EXPECT_THAT(server.process().stop(Deadline::in(std::chrono::seconds(15))), Optional(0));
    EXPECT_TRUE(connection.readsEnd());
}

}  // namespace
}  // namespace voinettest
