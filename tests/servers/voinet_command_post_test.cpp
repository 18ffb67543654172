#include "commandsite.h"
#include "scriptedserver.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

// The built command's exchange with a management server.

namespace voinettest {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

std::string httpReply(const std::string& status, const std::string& body,
                      const std::string& headers = "") {
    return "HTTP/1.1 " + status + "\r\n" + headers +
           "Content-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" +
           body;
}

class VoinetPost : public CommandSite {
  protected:
    VoinetPost() { downloads.write("answer.pkg", "old"); }

    std::string answer() const { return local("answer.pkg"); }
    /// `voinet post` of the request to a server, into answer.pkg.
    Words post(const std::string& host, const Words& more = {}) const {
        Words words = {"post", "--host", host, request, "/agent", answer()};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    void expectOldAnswer() const {
        EXPECT_EQ(downloads.read("answer.pkg"), "old");
        EXPECT_THAT(landed(), ElementsAre("answer.pkg"));
    }

    const std::string content = pattern(70'000);
    /// Not in the folder of the answer, so that what an exchange leaves there can be told.
    const std::string request = repository.write("request.pkg", content);
};

}  // namespace

TEST_F(VoinetPost, Package_IsSentWholeAndTheAnswerLandsAlone) {
    const std::string package = pattern(90'000, 7);
    const ScriptedServer server(httpReply("200 OK", package));

    const auto result = run(post(address(server.port())));

    EXPECT_EQ(result.status, statusOk) << result.standardError;
    EXPECT_EQ(downloads.read("answer.pkg"), package);
    EXPECT_THAT(landed(), ElementsAre("answer.pkg"));
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_THAT(server.requests()[0],
                AllOf(StartsWith("POST /agent HTTP/1.1\r\n"), EndsWith("\r\n\r\n" + content)));
    EXPECT_THAT(result.standardError,
                AllOf(HasSubstr("request.pkg (68.4 KiB)"),
                      HasSubstr("the server has a package for you (HTTP 200)"),
                      HasSubstr("87.9 KiB in " + answer())));
    EXPECT_THAT(result.standardOutput, IsEmpty());
    EXPECT_THAT(result.standardError, Not(HasSubstr("\x1b"))) << "no time without a terminal";
}

TEST_F(VoinetPost, EmptyPackage_IsAPackage) {
    const ScriptedServer server(httpReply("200 OK", ""));

    EXPECT_EQ(run(post(address(server.port()))).status, statusOk);
    EXPECT_EQ(downloads.read("answer.pkg"), "");
}

TEST_F(VoinetPost, EveryOutcome_HasItsWordsAndItsStatusAndKeepsTheOldAnswer) {
    struct Outcome {
        const char* reply;
        const char* headers;
        int status;
        const char* name;
        const char* words;
    };
    const std::vector<Outcome> outcomes = {
        {"201 Created", "", statusBusy, "busy", "the server is busy"},
        {"503 Service Unavailable", "", statusBusy, "busy", "the server is busy"},
        {"202 Accepted", "", statusNoPackage, "no-package", "the server has nothing for you"},
        {"400 Bad Request", "", statusInvalidRequest, "invalid-request", "request invalid"},
        {"403 Forbidden", "", statusRefused, "access-denied", "denies access"},
        {"403 Forbidden", "ORB-WHY-FORBIDDEN: UpgradeKey\r\n", statusUpdateKeys, "update-keys",
         "update your keys"},
        {"404 Not Found", "", statusNotFound, "not-found", "does not know the path"},
        {"506 Variant Also Negotiates", "", statusNewIdentity, "new-identity", "a new identity"},
        {"500 Internal Server Error", "", statusServerError, "unknown-answer", "no outcome"},
        {"204 No Content", "", statusServerError, "unknown-answer", "no outcome"},
        {"302 Found", "Location: /other\r\n", statusServerError, "unknown-answer", "no outcome"},
        {"401 Unauthorized", "", statusRefused, "unknown-answer", "no outcome"}};
    for (const Outcome& outcome : outcomes) {
        const ScriptedServer server(httpReply(outcome.reply, "", outcome.headers));

        const auto text = run(post(address(server.port())));
        const auto json = run(post(address(server.port()), {"--json"}));

        EXPECT_EQ(text.status, outcome.status) << outcome.reply;
        EXPECT_EQ(json.status, outcome.status) << outcome.reply;
        EXPECT_THAT(text.standardError,
                    AllOf(HasSubstr(outcome.words),
                          HasSubstr("HTTP " + std::string(outcome.reply).substr(0, 3))));
        const Json last = lastOf(json.standardOutput);
        EXPECT_EQ(last.at("outcome"), outcome.name) << outcome.reply;
        EXPECT_EQ(last.at("exitStatus"), outcome.status) << outcome.reply;
        EXPECT_TRUE(last.at("response").is_null());
        expectOldAnswer();
    }
}

TEST_F(VoinetPost, TextOfTheServer_IsShownWhenItIsShortAndPrintable) {
    const auto textOf = [this](const std::string& body) {
        const ScriptedServer server(httpReply("503 x", body));
        const auto result = run(post(address(server.port()), {"--json"}));
        expectOldAnswer();
        return lastOf(result.standardOutput).at("serverText").get<std::string>();
    };

    EXPECT_EQ(textOf("down until\r\n  noon\n"), "down until noon");
    EXPECT_EQ(textOf("\x1b[31mred"), "");
    EXPECT_EQ(textOf("\xff\xfe"), "");
    EXPECT_EQ(textOf(std::string(400, 'a')), std::string(400, 'a'));
    EXPECT_EQ(textOf(std::string(401, 'a')), "");
}

TEST_F(VoinetPost, Json_TellsStartAttemptAndResult) {
    const ScriptedServer server(httpReply("200 OK", "package"));

    const auto result = run(post(address(server.port()), {"--json"}));

    EXPECT_THAT(result.standardError, IsEmpty());
    const auto objects = events(result.standardOutput);
    ASSERT_EQ(objects.size(), 3U);
    EXPECT_EQ(objects[0].at("event"), "start");
    EXPECT_EQ(objects[0].at("command"), "post");
    EXPECT_EQ(objects[0].at("bytes"), content.size());
    EXPECT_EQ(objects[1].at("event"), "attempt");
    EXPECT_EQ(objects[1].at("stage"), "exchange");
    EXPECT_EQ(objects[1].at("result"), 8);
    EXPECT_EQ(objects[1].at("reply"), 200);
    EXPECT_EQ(objects[2].at("event"), "result");
    EXPECT_EQ(objects[2].at("outcome"), "package");
    EXPECT_EQ(objects[2].at("response"), answer());
    EXPECT_EQ(objects[2].at("bytes"), 7);
}

TEST_F(VoinetPost, Quiet_PrintsNothing) {
    const ScriptedServer server(httpReply("202 Accepted", ""));

    const auto result = run(post(address(server.port()), {"--quiet"}));

    EXPECT_EQ(result.status, statusNoPackage);
    EXPECT_THAT(result.standardOutput + result.standardError, IsEmpty());
}

TEST_F(VoinetPost, AnswerCutShort_KeepsTheOldOne) {
    const ScriptedServer server("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf");

    const auto result = run(post(address(server.port())));

    EXPECT_EQ(result.status, statusUnreachable) << result.standardError;
    EXPECT_THAT(result.standardError, Not(HasSubstr("half")));
    expectOldAnswer();
}

TEST_F(VoinetPost, FirstFormDead_TheNextOneServes) {
    const ScriptedServer server(httpReply("200 OK", "package"));
    const ClosedPort closed;

    const auto result =
        run({"post", "--json", "--host-ip", address(closed.port()), "--host-fqdn",
             "localhost:" + std::to_string(server.port()), request, "/agent", answer()});

    EXPECT_EQ(result.status, statusOk) << result.standardOutput;
    EXPECT_EQ(downloads.read("answer.pkg"), "package");
    const auto objects = events(result.standardOutput);
    ASSERT_EQ(objects.size(), 4U);
    EXPECT_EQ(objects[1].at("form"), "ip");
    EXPECT_EQ(objects[1].at("result"), -88);
    EXPECT_EQ(objects[2].at("form"), "fqdn");
    EXPECT_EQ(objects[2].at("result"), 8);
}

// The library tries the next form after a refusal, but that one says nothing about the request.
TEST_F(VoinetPost, RefusalThenDeadForm_TheRefusalDecides) {
    const ScriptedServer server(httpReply("400 Bad Request", "no such agent"));
    const ClosedPort closed;

    const auto result = run({"post", "--json", "--host-ip", address(server.port()), "--host-fqdn",
                             address(closed.port()), request, "/agent", answer()});

    EXPECT_EQ(result.status, statusInvalidRequest) << result.standardOutput;
    const Json last = lastOf(result.standardOutput);
    EXPECT_EQ(last.at("outcome"), "invalid-request");
    EXPECT_EQ(last.at("result"), -94);
    EXPECT_EQ(last.at("finalResult"), -88);
    expectOldAnswer();
}

TEST_F(VoinetPost, NameAsHost_TakesThePlaceOfTheAddress) {
    const ScriptedServer server(httpReply("202 Accepted", ""));

    const auto result = run(post("localhost:" + std::to_string(server.port())));

    EXPECT_EQ(result.status, statusNoPackage) << result.standardError;
    ASSERT_EQ(server.requests().size(), 1U);
    EXPECT_THAT(server.requests()[0], HasSubstr("\r\nHost: localhost\r\n"));
}

TEST_F(VoinetPost, NetbiosWithoutFullName_IsWarnedOf) {
    const ScriptedServer server(httpReply("202 Accepted", ""));

    const auto result = run({"post", "--host-ip", address(server.port()), "--host-netbios", "depot",
                             request, "/agent", answer()});

    EXPECT_EQ(result.status, statusNoPackage);
    EXPECT_THAT(result.standardError, HasSubstr("never comes to the NetBIOS name"));
}

TEST_F(VoinetPost, ProxyOfTheEnvironment_IsNotUsed) {
    const ScriptedServer server(httpReply("202 Accepted", ""));
    const ClosedPort closed;
    const std::string proxy = "http://" + address(closed.port());

    const auto result = runToEnd(
        makeCommand(post(address(server.port())), {{"http_proxy", proxy}, {"ALL_PROXY", proxy}}));

    EXPECT_EQ(result.status, statusNoPackage) << result.standardError;
}

TEST_F(VoinetPost, WrongUse_IsToldBeforeAnythingIsSent) {
    const ScriptedServer server(httpReply("200 OK", "package"));
    const std::string host = address(server.port());

    for (const Words& words :
         {Words{"post", request, "/agent", answer()},
          Words{"post", "--host-fqdn", host, request, "/agent", answer()},
          Words{"post", "--host-netbios", host, request, "/agent", answer()},
          Words{"post", "--host", host, request, "agent", answer()},
          Words{"post", "--host", host, request, "", answer()},
          Words{"post", "--host", host, request, "/a b", answer()},
          Words{"post", "--host", host, request, "/\xff", answer()},
          Words{"post", "--host", host, "", "/agent", answer()},
          Words{"post", "--host", host, request, "/agent", ""},
          Words{"post", "--host", host, request, "/agent", request},
          Words{"post", "--host", host, "--proxy", host, request, "/agent", answer()}}) {
        const auto result = run(words);
        EXPECT_EQ(result.status, statusUsage) << result.standardError;
    }
    EXPECT_THAT(server.requests(), IsEmpty());
    EXPECT_EQ(repository.read("request.pkg"), content);
    expectOldAnswer();
}

TEST_F(VoinetPost, RequestAtThePlaceOfThePart_IsRefusedAndKept) {
    const ClosedPort closed;
    const std::string part = downloads.write("answer.pkg.part", "precious");

    const auto result = run({"post", "--host", address(closed.port()), part, "/agent", answer()});

    EXPECT_EQ(result.status, statusUsage);
    EXPECT_EQ(downloads.read("answer.pkg.part"), "precious");
}

TEST_F(VoinetPost, UnusableFiles_AreToldBeforeAnythingIsSent) {
    const ScriptedServer server(httpReply("200 OK", "package"));
    const std::string host = address(server.port());
    repository.write("folder/file", "");
    const std::string fifo = (repository.path() / "fifo").string();
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);

    for (const std::string& bad :
         {(repository.path() / "none").string(), (repository.path() / "folder").string(),
          repository.write("empty", ""), fifo, std::string("/dev/null")}) {
        const auto result = run({"post", "--host", host, bad, "/agent", answer()});
        EXPECT_EQ(result.status, statusLocalFile) << bad;
        EXPECT_THAT(result.standardError, HasSubstr(bad));
    }
    for (const std::string& bad :
         {local("none/answer"), downloads.path().string(), std::string("/dev/null")}) {
        const auto result = run({"post", "--host", host, request, "/agent", bad});
        EXPECT_EQ(result.status, statusLocalFile) << bad;
        EXPECT_THAT(result.standardError, HasSubstr(bad));
    }
    EXPECT_THAT(server.requests(), IsEmpty());
    expectOldAnswer();
}

TEST_F(VoinetPost, HugeSparseRequestToADeadPort_FailsAtOnce) {
    const ClosedPort closed;
    std::filesystem::resize_file(request, std::uintmax_t{5} << 30);

    const auto result = run(post(address(closed.port())));

    EXPECT_EQ(result.status, statusUnreachable);
    EXPECT_THAT(result.standardError, HasSubstr("5.0 GiB"));
}

TEST_F(VoinetPost, StoppedBySignal_EndsAtOnceAndKeepsTheOldAnswer) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const ScriptedServer server("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhalf",
                                    AfterAnswer::hold);
        Process process(makeCommand(post(address(server.port()), {"--json"})));
        ASSERT_TRUE(server.awaitRequest());

        process.signal(signal);

        EXPECT_EQ(process.wait(), statusCancelled) << process.standardOutput();
        const Json last = lastOf(process.standardOutput());
        EXPECT_EQ(last.at("event"), "result");
        EXPECT_EQ(last.at("exitName"), "cancelled");
        expectOldAnswer();
    }
}

TEST_F(VoinetPost, SecondPostWithTheSameResponse_IsRefusedWhileTheFirstGoesOn) {
    const ScriptedServer server("", AfterAnswer::hold);
    Process first(makeCommand(post(address(server.port()))));
    ASSERT_TRUE(server.awaitRequest());

    const auto second = run(post(address(server.port())));

    EXPECT_EQ(second.status, statusLocalFile);
    EXPECT_THAT(second.standardError, HasSubstr("another process"));
    EXPECT_EQ(first.stop(), statusCancelled);
}

// A server may hand a package out only once.
TEST_F(VoinetPost, ResponseBecomesAFolderMeanwhile_ThePackageIsKeptAndNamed) {
    const ScriptedServer server(httpReply("200 OK", "package"), AfterAnswer::close, [this] {
        std::filesystem::remove(answer());
        std::filesystem::create_directory(answer());
    });

    const auto result = run(post(address(server.port())));

    EXPECT_EQ(result.status, statusLocalFile);
    EXPECT_THAT(result.standardError, HasSubstr("the package is in " + answer() + ".part"));
    EXPECT_EQ(downloads.read("answer.pkg.part"), "package");
}

TEST_F(VoinetPost, RequestBecomesShorterMeanwhile_IsALocalFailure) {
    // Much more than what can be on its way when the server has read no more than the head.
    std::filesystem::resize_file(request, std::uintmax_t{1} << 30);
    const ScriptedServer server(httpReply("200 OK", "package"), AfterAnswer::close,
                                [this] { std::filesystem::resize_file(request, 1); });

    const auto result = run(post(address(server.port())));

    EXPECT_EQ(result.status, statusLocalFile) << result.standardError;
    EXPECT_THAT(result.standardError, HasSubstr("became shorter"));
    expectOldAnswer();
}

TEST_F(VoinetPost, Tls_WithTheRightCaFileOnly) {
    const std::string package = pattern(20'000, 3);
    repository.write("answers/1", package);
    const std::string tls = (repository.path() / "tls").string();
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string(),
                                   {"--exchange", "/agent", "--exchange-answers",
                                    (repository.path() / "answers").string(), "--tls", tls});
    const std::string port = std::to_string(server.port());
    const DevelopmentServer other(VOINET_SERVER_PROGRAM, repository.path().string(),
                                  {"--tls", (repository.path() / "other").string()});

    const Words secure = {"--ssl", "--ssl-port", port};
    const auto with = [&](const Words& more) {
        Words all = secure;
        all.insert(all.end(), more.begin(), more.end());
        return run(post("localhost", all));
    };
    const auto without = with({});
    const auto wrong = with({"--ca", (repository.path() / "other/ca.pem").string()});
    const auto missing = with({"--ca", (repository.path() / "none.pem").string()});
    const auto plain = run(post("localhost:" + port));
    expectOldAnswer();
    const auto right = with({"--ca", tls + "/ca.pem"});

    for (const auto& bad : {without, wrong, missing}) {
        EXPECT_EQ(bad.status, statusTls) << bad.standardError;
        EXPECT_THAT(bad.standardError, HasSubstr("--ca"));
    }
    EXPECT_NE(plain.status, statusOk);
    EXPECT_EQ(right.status, statusOk) << right.standardError;
    EXPECT_EQ(downloads.read("answer.pkg"), package);
}

TEST_F(VoinetPost, DevelopmentServerChecksTheRequest_AndPlaysItsScript) {
    repository.write("answers/1", "package");
    const DevelopmentServer server(
        VOINET_SERVER_PROGRAM, repository.path().string(),
        {"--exchange", "/agent", "--exchange-answers", (repository.path() / "answers").string(),
         "--exchange-requests", (repository.path() / "requests").string(), "--exchange-status",
         "503,403-keys,answer"});
    const Words words = post(address(server.port()));

    EXPECT_EQ(run(words).status, statusBusy);
    EXPECT_EQ(run(words).status, statusUpdateKeys);
    EXPECT_EQ(run(words).status, statusOk);
    EXPECT_EQ(run(words).status, statusNoPackage);
    EXPECT_EQ(downloads.read("answer.pkg"), "package");
    EXPECT_EQ(repository.read("requests/000001.bin"), content);
}

}  // namespace voinettest
