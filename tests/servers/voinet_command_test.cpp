#include "commandsite.h"
#include "scriptedserver.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

// The built command against the built server.

namespace voinettest {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Of "abc".
constexpr const char* kDigestOfAbc =
    "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr const char* kSlow = "64K";

class VoinetCommand : public CommandSite {};

}  // namespace

TEST_F(VoinetCommand, Get_File_LandsWholeAndAlone) {
    const std::string content = pattern(300'000);
    repository.write("pkg/a.bin", content);
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());

    const auto result = run(get(server.port(), "a.bin", {"--repository", "/pkg/"}));

    EXPECT_EQ(result.status, statusOk) << result.standardError;
    EXPECT_EQ(downloads.read("a.bin"), content);
    EXPECT_THAT(landed(), ElementsAre("a.bin"));
    EXPECT_THAT(result.standardOutput, IsEmpty());
    EXPECT_THAT(result.standardError, HasSubstr("100%"));
    EXPECT_THAT(result.standardError, Not(HasSubstr("\x1b"))) << "no bar without a terminal";
}

TEST_F(VoinetCommand, Get_EmptyFile_ReplacesTheOldOne) {
    repository.write("empty", "");
    downloads.write("a.bin", "old");
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());

    EXPECT_EQ(run(get(server.port(), "empty")).status, statusOk);
    EXPECT_EQ(downloads.read("a.bin"), "");
    EXPECT_THAT(landed(), ElementsAre("a.bin"));
}

TEST_F(VoinetCommand, Get_Digest_DecidesWhetherTheFileLands) {
    repository.write("abc", "abc");
    downloads.write("a.bin", "old");
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());

    const auto wrong = run(get(server.port(), "abc", {"--sha256", std::string(64, '0')}));
    EXPECT_EQ(wrong.status, statusIntegrity);
    EXPECT_THAT(wrong.standardError, HasSubstr(kDigestOfAbc));
    EXPECT_EQ(downloads.read("a.bin"), "old");
    EXPECT_THAT(landed(), ElementsAre("a.bin"));

    EXPECT_EQ(run(get(server.port(), "abc", {"--sha256", kDigestOfAbc})).status, statusOk);
    EXPECT_EQ(downloads.read("a.bin"), "abc");
}

TEST_F(VoinetCommand, Get_MissingFile_KeepsTheOldOneAndSaysWhy) {
    downloads.write("a.bin", "old");
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());

    const auto result = run(get(server.port(), "none"));

    EXPECT_EQ(result.status, statusNotFound);
    EXPECT_EQ(downloads.read("a.bin"), "old");
    EXPECT_THAT(landed(), ElementsAre("a.bin"));
    EXPECT_THAT(result.standardError,
                AllOf(HasSubstr("IP address " + address(server.port())), HasSubstr("HTTP 404"),
                      HasSubstr("voInetErrorFileNotFound (-5)"), HasSubstr("try:")));
}

TEST_F(VoinetCommand, Get_ServerError_CauseIsShownBesideTheFinalResult) {
    repository.write("a.bin", "abc");
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string(),
                                   {"--status", "/a.bin=503"});

    const auto result = run(get(server.port(), "a.bin"));

    EXPECT_EQ(result.status, statusServerError);
    EXPECT_THAT(result.standardError,
                AllOf(HasSubstr("HTTP 503"), HasSubstr("cause:  voInetErrorTransferFailed (-88)"),
                      HasSubstr("result: voInetErrorBadOptions (-6)")));
    EXPECT_THAT(landed(), IsEmpty());
}

TEST_F(VoinetCommand, Get_Credentials_AreNeededAndNeverShown) {
    repository.write("a.bin", "abc");
    const std::string good = downloads.write("secrets/good", "open-sesame\n");
    const std::string bad = downloads.write("secrets/bad", "wrong-guess\n");
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string(),
                                   {"--user", "joe", "--password-file", good});
    const Words detail = {"--log-level", "detail"};
    // "joe:open-sesame" and "joe:wrong-guess", as basic authentication sends them.
    const auto secrets = {"open-sesame", "wrong-guess", "am9lOm9wZW4tc2VzYW1l",
                          "am9lOndyb25nLWd1ZXNz"};

    const auto without = run(get(server.port(), "a.bin", detail));
    const auto wrong = run(get(server.port(), "a.bin",
                               {"--user", "joe", "--password-file", bad, "--log-level", "detail"}));
    const auto right =
        run(get(server.port(), "a.bin",
                {"--user", "joe", "--password-file", good, "--log-level", "detail"}));

    EXPECT_EQ(without.status, statusRefused);
    EXPECT_EQ(wrong.status, statusRefused);
    EXPECT_EQ(right.status, statusOk) << right.standardError;
    EXPECT_EQ(downloads.read("a.bin"), "abc");
    EXPECT_THAT(right.standardError, HasSubstr("Authorization: ***")) << "the trace is there";
    for (const auto& result : {without, wrong, right}) {
        for (const char* secret : secrets) {
            EXPECT_THAT(result.standardError, Not(HasSubstr(secret)));
            EXPECT_THAT(result.standardOutput, Not(HasSubstr(secret)));
        }
    }
}

TEST_F(VoinetCommand, Get_TokenAndNoCache_ReachTheServerButNotTheLog) {
    const ScriptedServer server("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc");
    const std::string token = downloads.write("secrets/token", "token-4711\n");

    const auto result = run(get(server.port(), "a.bin",
                                {"--update-token-file", token, "--no-cache", "--log-level",
                                 "detail", "--log-file", local("log")}));

    EXPECT_EQ(result.status, statusOk) << result.standardError;
    ASSERT_FALSE(server.requests().empty());
    EXPECT_THAT(server.requests().back(),
                AllOf(HasSubstr("UpdateToken: token-4711"), HasSubstr("pragma:no-cache")));
    EXPECT_THAT(downloads.read("log"),
                AllOf(HasSubstr("UpdateToken: ***"), Not(HasSubstr("token-4711"))));
}

TEST_F(VoinetCommand, Get_DeadPort_IsUnreachable) {
    const ClosedPort closed;

    const auto result = run(get(closed.port(), "a.bin"));

    EXPECT_EQ(result.status, statusUnreachable);
    EXPECT_THAT(result.standardError, HasSubstr(address(closed.port())));
    EXPECT_THAT(landed(), IsEmpty());
}

TEST_F(VoinetCommand, Get_FirstFormDead_SecondOneServes) {
    repository.write("a.bin", "abc");
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());
    const ClosedPort closed;

    const auto result = run({"get", "--json", "--host-ip", address(closed.port()), "--host-netbios",
                             "localhost:" + std::to_string(server.port()), "a.bin", local()});

    EXPECT_EQ(result.status, statusOk) << result.standardOutput;
    EXPECT_EQ(downloads.read("a.bin"), "abc");
    Words attempts;
    for (const Json& event : events(result.standardOutput)) {
        if (event.at("event") == "attempt") {
            attempts.push_back(event.at("stage").get<std::string>() + " " +
                               event.at("form").get<std::string>() + " " +
                               event.at("result").dump());
        }
    }
    EXPECT_THAT(attempts, ElementsAre("logon ip -88", "logon netbios 0", "download netbios 0"));
}

TEST_F(VoinetCommand, Get_ReplyCutShort_KeepsTheOldFile) {
    repository.write("a.bin", pattern(200'000));
    downloads.write("a.bin", "old");
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string(),
                                   {"--cut", "/a.bin=100000"});

    const auto result = run(get(server.port(), "a.bin"));

    EXPECT_EQ(result.status, statusUnreachable) << result.standardError;
    EXPECT_EQ(downloads.read("a.bin"), "old");
    EXPECT_THAT(landed(), ElementsAre("a.bin"));
}

TEST_F(VoinetCommand, Get_NoAnnouncedSize_LandsAndSaysSoInDetail) {
    const std::string content = pattern(50'000);
    const ScriptedServer server("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n" + content);

    const auto result = run(get(server.port(), "a.bin", {"--log-level", "detail"}));

    EXPECT_EQ(result.status, statusOk);
    EXPECT_EQ(downloads.read("a.bin"), content);
    EXPECT_THAT(result.standardError, HasSubstr("announced no size"));
}

TEST_F(VoinetCommand, Get_StoppedBySignal_IsResumedWithOnlyTheRest) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const std::string content = pattern(4'000'000, static_cast<unsigned>(signal));
        repository.write("a.bin", content);
        downloads.write("a.bin", "old");
        {
            const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string(),
                                           {"--rate", kSlow});
            runAndStop(get(server.port(), "a.bin", {"--json"}), signal);
        }
        EXPECT_EQ(downloads.read("a.bin"), "old");
        ASSERT_THAT(landed(), ElementsAre("a.bin", "a.bin.part"));
        const auto kept = std::filesystem::file_size(local("a.bin.part"));
        ASSERT_GT(kept, 1024U);
        ASSERT_LT(kept, content.size());

        const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());
        const auto result = run(get(server.port(), "a.bin", {"--json", "--resume"}));

        EXPECT_EQ(result.status, statusOk) << result.standardOutput;
        EXPECT_EQ(downloads.read("a.bin"), content);
        EXPECT_THAT(landed(), ElementsAre("a.bin"));
        const auto objects = events(result.standardOutput);
        EXPECT_EQ(objects.front().at("resumeFrom"), kept - 1024);
        EXPECT_EQ(lastOf(result.standardOutput).at("resumedFrom"), kept - 1024)
            << "it did not start over";
        EXPECT_EQ(lastOf(result.standardOutput).at("bytes"), content.size());
        for (const Json& event : objects) {
            // Until the reply has come the size is not known.
            if (event.at("event") == "progress" && !event.at("total").is_null()) {
                EXPECT_EQ(event.at("total"), content.size());
                EXPECT_GE(event.at("done"), kept - 1024);
            }
        }
        std::filesystem::remove(local());
    }
}

TEST_F(VoinetCommand, Get_ResumeOfAnotherFile_StartsOver) {
    const std::string content = pattern(100'000);
    repository.write("a.bin", content);
    for (const std::size_t size : {1U, 1023U, 1024U, 50'000U, 100'000U, 200'000U}) {
        downloads.write("a.bin.part", pattern(size, 99));
        const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());

        const auto result = run(get(server.port(), "a.bin", {"--json", "--resume"}));

        EXPECT_EQ(result.status, statusOk) << result.standardOutput;
        EXPECT_EQ(downloads.read("a.bin"), content) << size;
        EXPECT_EQ(lastOf(result.standardOutput).at("resumedFrom"), 0) << size;
        EXPECT_THAT(landed(), ElementsAre("a.bin"));
    }
}

TEST_F(VoinetCommand, Get_ResumeOfACompletePart_Lands) {
    const std::string content = pattern(100'000);
    repository.write("a.bin", content);
    downloads.write("a.bin.part", content);
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());

    EXPECT_EQ(run(get(server.port(), "a.bin", {"--resume"})).status, statusOk);
    EXPECT_EQ(downloads.read("a.bin"), content);
}

TEST_F(VoinetCommand, Get_ServerWithoutRanges_ResumeStartsOver) {
    const std::string content = pattern(100'000);
    repository.write("a.bin", content);
    downloads.write("a.bin.part", content.substr(0, 40'000));
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string(),
                                   {"--ignore-ranges"});

    EXPECT_EQ(run(get(server.port(), "a.bin", {"--resume"})).status, statusOk);
    EXPECT_EQ(downloads.read("a.bin"), content);
}

TEST_F(VoinetCommand, Get_FailureWhileResuming_KeepsThePart) {
    downloads.write("a.bin.part", pattern(5'000));
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());

    EXPECT_EQ(run(get(server.port(), "none", {"--resume"})).status, statusNotFound);
    EXPECT_EQ(downloads.read("a.bin.part"), pattern(5'000));

    EXPECT_EQ(run(get(server.port(), "none")).status, statusNotFound);
    EXPECT_THAT(landed(), IsEmpty()) << "without --resume an old part is discarded";
}

// The library's result does not tell that the replacement of its local file failed.
TEST_F(VoinetCommand, Get_ReplacementByTheLibraryFails_IsALocalFailure) {
    repository.write("a.bin", pattern(200'000));
    downloads.write("a.bin", "old");
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string(),
                                   {"--rate", kSlow});
    Process process(makeCommand(get(server.port(), "a.bin", {"--json"})));
    awaitProgress(process);
    std::filesystem::create_directory(local("a.bin.part"));

    EXPECT_EQ(process.wait(), statusLocalFile) << process.standardOutput();
    EXPECT_EQ(downloads.read("a.bin"), "old");
    EXPECT_THAT(lastOf(process.standardOutput()).at("message").get<std::string>(),
                HasSubstr("a.bin.part"));
}

TEST_F(VoinetCommand, Get_UnusableLocalNames_AreTold) {
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());
    repository.write("abc", "abc");
    const std::string host = address(server.port());
    downloads.write("folder/file", "");

    EXPECT_EQ(run({"get", "--host", host, "abc", local("folder")}).status, statusLocalFile);
    EXPECT_EQ(run({"get", "--host", host, "abc", local("none/a")}).status, statusLocalFile);
    EXPECT_EQ(run({"get", "--host", host, "abc", local("folder/file/a")}).status, statusLocalFile);
    EXPECT_EQ(run({"get", "--host", host, "abc", "/dev/null"}).status, statusLocalFile);
    EXPECT_EQ(run({"get", "--host", host, "abc", local("a\xff")}).status, statusUsage);
    EXPECT_EQ(run({"get", "--host", host, "abc", ""}).status, statusUsage);
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
    EXPECT_THAT(landed(), ElementsAre("folder"));
}

TEST_F(VoinetCommand, Get_SecondDownloadOfTheSameFile_IsRefusedWhileTheFirstGoesOn) {
    repository.write("a.bin", pattern(4'000'000));
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string(),
                                   {"--rate", kSlow});
    Process first(makeCommand(get(server.port(), "a.bin", {"--json"})));
    awaitProgress(first);

    const auto second = run(get(server.port(), "a.bin"));

    EXPECT_EQ(second.status, statusLocalFile);
    EXPECT_THAT(second.standardError, HasSubstr("another process"));
    first.signal(SIGINT);
    EXPECT_EQ(first.wait(), statusCancelled) << "the first one was not disturbed";
    EXPECT_THAT(landed(), ElementsAre("a.bin.part"));
}

TEST_F(VoinetCommand, Get_Json_IsOneObjectPerLineAndNothingElse) {
    repository.write("a.bin", "abc");
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());

    const auto good = run(
        get(server.port(), "a.bin", {"--json", "--log-level", "info", "--sha256", kDigestOfAbc}));
    const auto bad = run(get(server.port(), "none", {"--json"}));

    EXPECT_THAT(good.standardError, IsEmpty());
    EXPECT_THAT(bad.standardError, IsEmpty());
    const auto objects = events(good.standardOutput);
    std::set<std::string> kinds;
    for (const Json& event : objects) {
        kinds.insert(event.at("event").get<std::string>());
    }
    EXPECT_THAT(kinds, ElementsAre("attempt", "log", "progress", "result", "start"));
    EXPECT_EQ(lastOf(good.standardOutput).at("event"), "result");
    EXPECT_EQ(lastOf(good.standardOutput).at("sha256"), kDigestOfAbc);
    EXPECT_EQ(lastOf(good.standardOutput).at("bytes"), 3);
    const Json failure = lastOf(bad.standardOutput);
    EXPECT_EQ(events(bad.standardOutput).front().at("event"), "start");
    EXPECT_EQ(failure.at("exitStatus"), statusNotFound);
    EXPECT_EQ(failure.at("result"), -5);
    EXPECT_THAT(failure.at("message").get<std::string>(), HasSubstr("HTTP 404"));
}

TEST_F(VoinetCommand, Get_Quiet_PrintsNothingAtAll) {
    repository.write("a.bin", "abc");
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());

    for (const auto& [remote, status] :
         {std::pair("a.bin", statusOk), std::pair("none", statusNotFound)}) {
        const auto result = run(get(server.port(), remote, {"--quiet"}));
        EXPECT_EQ(result.status, status);
        EXPECT_THAT(result.standardOutput + result.standardError, IsEmpty());
    }
}

TEST_F(VoinetCommand, Get_LogFile_IsAppendedToAndPrivate) {
    repository.write("a.bin", "abc");
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());
    const Words logging = {"--log-level", "detail", "--log-file", local("log")};

    const auto result = run(get(server.port(), "a.bin", logging));
    const std::string once = downloads.read("log");
    run(get(server.port(), "a.bin", logging));

    EXPECT_EQ(result.status, statusOk);
    EXPECT_THAT(once, AllOf(HasSubstr("info voInet: Open URL: "), HasSubstr("detail curl: ")));
    EXPECT_THAT(result.standardError, Not(HasSubstr("Open URL")));
    EXPECT_EQ(downloads.read("log").substr(0, once.size()), once);
    EXPECT_GT(downloads.read("log").size(), once.size());
    struct stat info {};
    ASSERT_EQ(::stat(local("log").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(VoinetCommand, Get_WrongUse_IsToldBeforeAnythingHappens) {
    const ClosedPort closed;
    const std::string host = address(closed.port());

    EXPECT_EQ(run({"get", "a", local()}).status, statusUsage) << "no host";
    EXPECT_EQ(run({"get", "--host", host, "a b", local()}).status, statusUsage);
    EXPECT_EQ(run({"get", "--host", host, "a\xff", local()}).status, statusUsage);
    EXPECT_EQ(run({"get", "--host", host, "", local()}).status, statusUsage);
    EXPECT_EQ(run({"get", "--host", host, "--repository", "a b", "a", local()}).status,
              statusUsage);
    const auto password = run({"get", "--host", host, "--password", "geheim", "a", local()});
    EXPECT_EQ(password.status, statusUsage);
    EXPECT_THAT(password.standardError, Not(HasSubstr("geheim")));
    EXPECT_THAT(landed(), IsEmpty());
}

TEST_F(VoinetCommand, LocalCopy_FileWithBlanks_Lands) {
    const std::string content = pattern(10'000);
    repository.write("my pkg/a file", content);

    const auto result = run({"get", "--protocol", "local", "--repository",
                             repository.path().string(), "my pkg/a file", local()});

    EXPECT_EQ(result.status, statusOk) << result.standardError;
    EXPECT_EQ(downloads.read("a.bin"), content);
    EXPECT_THAT(landed(), ElementsAre("a.bin"));
}

TEST_F(VoinetCommand, LocalCopy_MissingOrUnusableSource_KeepsTheOldFile) {
    repository.write("folder/file", "");
    downloads.write("a.bin", "old");
    const std::string root = repository.path().string();

    for (const char* remote : {"none", "folder"}) {
        const auto result =
            run({"get", "--protocol", "local", "--repository", root, remote, local()});
        EXPECT_EQ(result.status, statusNotFound) << result.standardError;
        EXPECT_EQ(downloads.read("a.bin"), "old");
        EXPECT_THAT(landed(), ElementsAre("a.bin"));
    }
}

TEST_F(VoinetCommand, LocalCopy_StoppedBySignal_IsCancelledAlthoughTheLibrarySaysSuccess) {
    repository.write("huge", "");
    // Sparse, and so large that no machine copies it before the signal comes.
    std::filesystem::resize_file(repository.path() / "huge", std::uintmax_t{1} << 36);
    downloads.write("a.bin", "old");

    runAndStop({"get", "--json", "--protocol", "local", "--repository", repository.path().string(),
                "huge", local()},
               SIGINT);

    EXPECT_EQ(downloads.read("a.bin"), "old");
    EXPECT_THAT(landed(), ElementsAre("a.bin", "a.bin.part"));
}

TEST_F(VoinetCommand, UncProtocol_IsNotImplemented) {
    const auto result = run({"get", "--protocol", "unc", "a", local()});

    EXPECT_EQ(result.status, statusFailed);
    EXPECT_THAT(result.standardError, HasSubstr("(21)"));
}

TEST_F(VoinetCommand, Probe_TellsWhetherTheServerIsThere) {
    const DevelopmentServer server(VOINET_SERVER_PROGRAM, repository.path().string());
    const ClosedPort closed;

    const auto there = run({"probe", "--host", address(server.port())});
    EXPECT_EQ(there.status, statusOk) << there.standardError;
    EXPECT_THAT(there.standardOutput, AllOf(HasSubstr(address(server.port())), HasSubstr("ok")));
    EXPECT_EQ(run({"probe", "--timeout", "30", "--host", address(server.port())}).status, statusOk);
    EXPECT_EQ(run({"probe", "--host", address(closed.port())}).status, statusUnreachable);
    EXPECT_EQ(run({"probe", "--timeout", "30", "--host", address(closed.port())}).status,
              statusUnreachable);
    EXPECT_EQ(run({"probe"}).status, statusUsage);
}

TEST_F(VoinetCommand, Probe_ErrorStatusOfTheServer_Decides) {
    for (const auto& [reply, status] :
         {std::pair("404", statusNotFound), std::pair("500", statusServerError),
          std::pair("401", statusOk), std::pair("403", statusOk)}) {
        const ScriptedServer server(std::string("HTTP/1.1 ") + reply +
                                    " x\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
        EXPECT_EQ(run({"probe", "--host", address(server.port())}).status, status) << reply;
    }
}

TEST_F(VoinetCommand, Probe_LocalRepository_MustBeAFolder) {
    repository.write("file", "");
    const std::string root = repository.path().string();

    EXPECT_EQ(run({"probe", "--protocol", "local", "--repository", root}).status, statusOk);
    EXPECT_EQ(run({"probe", "--protocol", "local", "--repository", root + "/none"}).status,
              statusNotFound);
    EXPECT_EQ(run({"probe", "--protocol", "local", "--repository", root + "/file"}).status,
              statusNotFound);
}

TEST_F(VoinetCommand, Errors_ListResultsAndExitStatuses) {
    const auto text = run({"errors"});
    EXPECT_EQ(text.status, statusOk);
    EXPECT_THAT(text.standardOutput,
                AllOf(HasSubstr(" -5  voInetErrorFileNotFound"), HasSubstr("130  cancelled")));

    std::set<int> numbers;
    for (const Json& event : events(run({"errors", "--json"}).standardOutput)) {
        if (event.at("event") == "error") {
            numbers.insert(event.at("number").get<int>());
        }
    }
    EXPECT_EQ(numbers.count(-96), 1U);
    EXPECT_GT(numbers.size(), 30U);
}

}  // namespace voinettest
