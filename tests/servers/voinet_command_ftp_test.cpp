#include "commandsite.h"
#include "ftpserver.h"
#include "scriptedserver.h"

#include <gmock/gmock.h>

// The built command against FTP.

namespace voinettest {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class VoinetFtp : public CommandSite {
  protected:
    Words ftp(std::uint16_t port, const std::string& remote, const Words& more = {}) const {
        Words words = get(port, remote, {"--protocol", "ftp"});
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
    static Words probe(std::uint16_t port, const Words& more = {}) {
        Words words = {"probe", "--protocol", "ftp", "--host", address(port)};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
};

}  // namespace

TEST_F(VoinetFtp, Get_WithoutUser_LogsOnAnonymously) {
    const std::string content = pattern(300'000);
    const FtpServer server(FtpSite{{{"pub/pkg/a.bin", content}}});

    const auto result = run(ftp(server.port(), "pkg/a.bin", {"--repository", "pub"}));

    EXPECT_EQ(result.status, statusOk) << result.standardError;
    EXPECT_EQ(downloads.read("a.bin"), content);
    EXPECT_THAT(landed(), ElementsAre("a.bin"));
    EXPECT_THAT(server.commands(), Contains("USER anonymous"));
    EXPECT_THAT(server.commands(), Contains("PASS anonymous@example.com"));
    EXPECT_THAT(result.standardError, AllOf(HasSubstr("100%"), Not(HasSubstr("warning"))));
}

TEST_F(VoinetFtp, Get_Credentials_AreNeededAndNeverShown) {
    const FtpServer server(FtpSite{{{"a.bin", "abc"}}, "joe", "open-sesame"});
    const std::string good = repository.write("good", "open-sesame\n");
    const std::string bad = repository.write("bad", "wrong-guess\n");
    const Words detail = {"--log-level", "detail", "--user", "joe", "--password-file"};
    const auto with = [&](const std::string& file) {
        Words more = detail;
        more.push_back(file);
        return run(ftp(server.port(), "a.bin", more));
    };

    const auto anonymous = run(ftp(server.port(), "a.bin"));
    const auto wrong = with(bad);
    const auto right = with(good);

    EXPECT_EQ(anonymous.status, statusRefused) << anonymous.standardError;
    EXPECT_EQ(wrong.status, statusRefused);
    EXPECT_THAT(wrong.standardError, AllOf(HasSubstr("FTP 530"), HasSubstr("try:")));
    EXPECT_EQ(right.status, statusOk) << right.standardError;
    EXPECT_EQ(downloads.read("a.bin"), "abc");
    EXPECT_THAT(right.standardError, HasSubstr("PASS ***")) << "the trace is there";
    for (const char* secret : {"open-sesame", "wrong-guess"}) {
        EXPECT_THAT(wrong.standardError + right.standardError, Not(HasSubstr(secret)));
    }
}

TEST_F(VoinetFtp, Get_MissingFile_IsNotFoundWithItsReply) {
    downloads.write("a.bin", "old");
    const FtpServer server(FtpSite{{}});

    const auto result = run(ftp(server.port(), "none"));
    const auto json = run(ftp(server.port(), "none", {"--json"}));

    EXPECT_EQ(result.status, statusNotFound);
    EXPECT_THAT(result.standardError,
                AllOf(HasSubstr("download at IP address " + address(server.port())),
                      HasSubstr("FTP 550"), HasSubstr("voInetErrorFileNotFound (-5)")));
    EXPECT_EQ(downloads.read("a.bin"), "old");
    EXPECT_THAT(landed(), ElementsAre("a.bin"));
    EXPECT_EQ(events(json.standardOutput).at(2).at("reply"), 550);
}

TEST_F(VoinetFtp, Get_ServerTooBusy_IsAServerError) {
    const FtpServer server(
        FtpSite{{}, "", "", FtpSite().stallAfter, {{"", "421 too many of you"}}});

    const auto result = run(ftp(server.port(), "a.bin"));

    EXPECT_EQ(result.status, statusServerError);
    EXPECT_THAT(result.standardError, HasSubstr("FTP 421"));
}

TEST_F(VoinetFtp, Get_ServerThatTalksNonsense_IsUnreachable) {
    const FtpServer server(FtpSite{{}, "", "", FtpSite().stallAfter, {{"", "199 nonsense"}}});

    EXPECT_NE(run(ftp(server.port(), "a.bin")).status, statusOk);
    EXPECT_THAT(landed(), IsEmpty());
}

TEST_F(VoinetFtp, Get_StoppedBySignal_IsResumedWithOnlyTheRest) {
    const std::string content = pattern(3'000'000);
    {
        FtpSite site{{{"a.bin", content}}};
        site.stallAfter = 2'000'000;
        const FtpServer server(site);
        runAndStop(ftp(server.port(), "a.bin", {"--json"}), SIGINT);
    }
    ASSERT_THAT(landed(), ElementsAre("a.bin.part"));
    const auto kept = std::filesystem::file_size(local("a.bin.part"));
    ASSERT_GT(kept, 1024U);

    const FtpServer server(FtpSite{{{"a.bin", content}}});
    const auto result = run(ftp(server.port(), "a.bin", {"--json", "--resume"}));

    EXPECT_EQ(result.status, statusOk) << result.standardOutput;
    EXPECT_EQ(downloads.read("a.bin"), content);
    EXPECT_EQ(lastOf(result.standardOutput).at("resumedFrom"), kept - 1024);
    EXPECT_THAT(server.commands(), Contains("REST " + std::to_string(kept - 1024)));
    EXPECT_THAT(landed(), ElementsAre("a.bin"));
}

TEST_F(VoinetFtp, Get_ResumeOfAnotherFile_StartsOver) {
    const std::string content = pattern(50'000);
    downloads.write("a.bin.part", pattern(20'000, 99));
    const FtpServer server(FtpSite{{{"a.bin", content}}});

    const auto result = run(ftp(server.port(), "a.bin", {"--json", "--resume"}));

    EXPECT_EQ(result.status, statusOk) << result.standardOutput;
    EXPECT_EQ(downloads.read("a.bin"), content);
    EXPECT_EQ(lastOf(result.standardOutput).at("resumedFrom"), 0);
}

TEST_F(VoinetFtp, Get_ThroughAProxy_WarnsUnlessTheDigestIsKnown) {
    constexpr const char* kDigestOfAbc =
        "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    const ScriptedServer proxy("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc");
    const Words through = {"--protocol", "ftp", "--proxy", address(proxy.port())};
    const auto getWith = [&](const Words& more) {
        Words words = {"get", "--host", "ftp.invalid", "a.bin", local()};
        words.insert(words.end(), through.begin(), through.end());
        words.insert(words.end(), more.begin(), more.end());
        return words;
    };

    const auto warned = run(getWith({}));
    const auto json = run(getWith({"--json"}));
    const auto sure = run(getWith({"--sha256", kDigestOfAbc}));

    EXPECT_EQ(warned.status, statusOk) << warned.standardError;
    EXPECT_EQ(downloads.read("a.bin"), "abc");
    EXPECT_THAT(warned.standardError, AllOf(HasSubstr("warning"), HasSubstr("--sha256")));
    EXPECT_FALSE(lastOf(json.standardOutput).at("warning").is_null());
    EXPECT_EQ(sure.status, statusOk);
    EXPECT_THAT(sure.standardError, Not(HasSubstr("warning")));
    ASSERT_FALSE(proxy.requests().empty());
    EXPECT_THAT(proxy.requests().back(), HasSubstr("@ftp.invalid/a.bin HTTP/1.1"));
}

// The library takes an answer of exactly 400 for a file.
TEST_F(VoinetFtp, Get_ErrorPageOfAProxy_DoesNotLand) {
    downloads.write("a.bin", "old");
    // The logon is answered with it as well.
    for (const char* status : {"400 Bad Request", "302 Found"}) {
        const ScriptedServer proxy(std::string("HTTP/1.1 ") + status +
                                   "\r\nContent-Length: 5\r\nConnection: close\r\n\r\nsorry");

        const auto result = run({"get", "--protocol", "ftp", "--host", "ftp.invalid", "--proxy",
                                 address(proxy.port()), "a.bin", local()});

        EXPECT_EQ(result.status, statusServerError) << result.standardError;
        EXPECT_THAT(result.standardError,
                    HasSubstr("answered HTTP " + std::string(status).substr(0, 3)));
        EXPECT_EQ(downloads.read("a.bin"), "old");
        EXPECT_THAT(landed(), ElementsAre("a.bin"));
    }
}

TEST_F(VoinetFtp, NoProxyOfTheEnvironment_DoesNotSwitchTheProxyOff) {
    const ScriptedServer proxy("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc");

    for (const char* protocol : {"ftp", "http"}) {
        const auto result =
            runToEnd(makeCommand({"get", "--protocol", protocol, "--host", "host.invalid",
                                  "--proxy", address(proxy.port()), "a.bin", local()},
                                 {{"no_proxy", "*"}, {"NO_PROXY", "*"}}));
        EXPECT_EQ(result.status, statusOk) << result.standardError;
    }
    EXPECT_GE(proxy.requests().size(), 4U) << "logon and download of each";
}

TEST_F(VoinetFtp, Get_FirstFormDead_SecondOneServes) {
    const FtpServer server(FtpSite{{{"a.bin", "abc"}}});
    const ClosedPort closed;

    const auto result =
        run({"get", "--protocol", "ftp", "--json", "--host-ip", address(closed.port()),
             "--host-fqdn", "localhost:" + std::to_string(server.port()), "a.bin", local()});

    EXPECT_EQ(result.status, statusOk) << result.standardOutput;
    EXPECT_EQ(downloads.read("a.bin"), "abc");
}

TEST_F(VoinetFtp, Probe_TellsWhetherTheServerLetsUsIn) {
    const FtpServer open(FtpSite{{}});
    const FtpServer guarded(FtpSite{{}, "joe", "open-sesame"});
    const ClosedPort closed;
    const std::string password = repository.write("password", "open-sesame");

    const auto there = run(probe(open.port()));
    EXPECT_EQ(there.status, statusOk) << there.standardError;
    EXPECT_THAT(there.standardOutput, AllOf(HasSubstr("FTP 2"), HasSubstr("ok")));
    EXPECT_EQ(run(probe(open.port(), {"--timeout", "30"})).status, statusOk);
    const auto refused = run(probe(guarded.port()));
    EXPECT_EQ(refused.status, statusRefused);
    EXPECT_THAT(refused.standardError, AllOf(HasSubstr("FTP 530"), HasSubstr("--user")));
    EXPECT_EQ(run(probe(guarded.port(), {"--user", "joe", "--password-file", password})).status,
              statusOk);
    const auto dead = run(probe(closed.port()));
    EXPECT_EQ(dead.status, statusUnreachable);
    EXPECT_THAT(dead.standardError, HasSubstr(address(closed.port())));
}

TEST_F(VoinetFtp, DefaultPort_Is21) {
    // Nothing is sent: the site's name alone tells the port in the attempt.
    const auto result = run({"probe", "--protocol", "ftp", "--json", "--host", "ftp.invalid"});

    EXPECT_EQ(result.status, statusUnreachable);
    EXPECT_EQ(events(result.standardOutput).at(1).at("port"), 21);
}

}  // namespace voinettest
