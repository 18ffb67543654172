// How the development server starts, what it says, and how it stops.

#include "process.h"
#include "serversite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace voinettest {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Optional;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

ProcessResult run(const std::vector<std::string>& arguments,
                  const std::map<std::string, std::string>& environment = {}) {
    Command command{{kProgram}, environment};
    command.words.insert(command.words.end(), arguments.begin(), arguments.end());
    return runToEnd(command);
}

// Waits until a file is renamed to a name in a directory.
class RenameWatch {
  public:
    explicit RenameWatch(const fs::path& directory) : queue_(::inotify_init1(IN_CLOEXEC)) {
        require(::inotify_add_watch(queue_.get(), directory.c_str(), IN_MOVED_TO) >= 0,
                "watching a directory");
    }

    std::string nextName() const {
        alignas(inotify_event) std::array<char, 4096> buffer{};
        require(::read(queue_.get(), buffer.data(), buffer.size()) > 0, "reading an event");
        return buffer.data() + sizeof(inotify_event);
    }

  private:
    Descriptor queue_;
};

TEST(ServerStart, Listening_PrintsOneLineForScripts) {
    const Site site;
    DevelopmentServer server = serve(site);

    EXPECT_EQ(server.listeningLine(),
              "voinet-server: listening on http://127.0.0.1:" + std::to_string(server.port()) +
                  "/ (for development, not for production)");
    EXPECT_THAT(server.process().stop(), Optional(0));
    EXPECT_EQ(server.process().standardOutput(), server.listeningLine() + '\n');
    EXPECT_THAT(server.process().standardError(), IsEmpty());
}

TEST(ServerStart, PortFile_AppearsCompleteAndGoesWithTheServer) {
    const Site site;
    const RenameWatch watch(site.outside());
    DevelopmentServer server = serve(site, {"--port-file", (site.outside() / "port.txt").string()});

    EXPECT_EQ(watch.nextName(), "port.txt");
    EXPECT_EQ(site.readOutside("port.txt"), std::to_string(server.port()) + '\n');
    server.process().stop();
    std::vector<std::string> left;
    for (const auto& entry : fs::directory_iterator(site.outside())) {
        left.push_back(entry.path().filename().string());
    }
    EXPECT_THAT(left, UnorderedElementsAre("repository", "secret.txt"));
}

TEST(ServerStart, Quiet_PrintsNothingAndServes) {
    const Site site;
    const RenameWatch watch(site.outside());
    Process process({{kProgram, "--quiet", "--port", "0", "--port-file",
                      (site.outside() / "port.txt").string(), site.root().string()}});
    ASSERT_EQ(watch.nextName(), "port.txt");
    const auto port = static_cast<std::uint16_t>(std::stoi(site.readOutside("port.txt")));

    EXPECT_EQ(exchange(port, "GET", "/file.bin").status, 200);
    EXPECT_THAT(process.stop(), Optional(0));
    EXPECT_THAT(process.standardOutput(), IsEmpty());
    EXPECT_THAT(process.standardError(), IsEmpty());
}

TEST(ServerStart, Ipv6Loopback_ServesWithoutWarning) {
    const Site site;
    DevelopmentServer server = serve(site, {"--bind", "::1"});
    RawConnection connection(server.port(), "::1");
    connection.send(rawRequest("GET", "/file.bin"));

    EXPECT_EQ(connection.readReply().body, fileData());
    EXPECT_THAT(server.listeningLine(), HasSubstr("http://[::1]:"));
    server.process().stop();
    EXPECT_THAT(server.process().standardError(), IsEmpty());
}

TEST(ServerStart, AddressBeyondLoopback_IsWarnedOfEvenWhenQuiet) {
    const Site site;
    for (const std::string address : {"0.0.0.0", "::"}) {
        DevelopmentServer server = serve(site, {"--bind", address});
        server.process().stop();
        EXPECT_THAT(server.process().standardError(), HasSubstr("warning")) << address;
        EXPECT_TRUE(isOneLine(server.process().standardError())) << address;
    }
    const std::string portFile = (site.outside() / "port.txt").string();
    const RenameWatch watch(site.outside());
    Process quiet({{kProgram, "--quiet", "--bind", "0.0.0.0", "--port", "0", "--port-file",
                    portFile, site.root().string()}});
    watch.nextName();
    quiet.stop();
    EXPECT_THAT(quiet.standardError(), HasSubstr("warning"));
}

TEST(ServerStart, PortInUse_IsSaidInOneSentence) {
    const Site site;
    const DevelopmentServer first = serve(site);

    const ProcessResult second =
        run({"--port", std::to_string(first.port()), site.root().string()});

    EXPECT_EQ(second.status, 1);
    EXPECT_TRUE(isOneLine(second.standardError)) << second.standardError;
    EXPECT_THAT(second.standardError, HasSubstr(std::to_string(first.port())));
    EXPECT_THAT(second.standardError, HasSubstr("in use"));
    EXPECT_THAT(second.standardOutput, IsEmpty());
    EXPECT_EQ(get(first, "/file.bin").status, 200);
}

TEST(ServerStart, WhatCannotBeOpened_IsNamedInOneSentence) {
    const Site site;
    const std::string root = site.root().string();
    const std::string missing = (site.outside() / "missing" / "name").string();
    const std::string emptyFile = site.writeOutside("empty", "");
    struct Case {
        std::vector<std::string> arguments;
        std::string named;
    };
    const std::vector<Case> cases = {
        {{missing}, missing},
        {{root + "/file.bin"}, "file.bin is not a directory"},
        {{"--user", "a", "--password-file", missing, root}, missing},
        {{"--user", "a", "--password-file", emptyFile, root}, emptyFile},
        {{"--access-log", missing, root}, missing},
        {{"--port-file", missing, root}, missing},
        {{"--exchange", "/x", "--exchange-answers", missing, root}, missing},
        {{"--exchange", "/x", "--exchange-answers", emptyFile, root}, emptyFile},
        {{"--exchange", "/x", "--exchange-requests", emptyFile, root}, emptyFile},
        {{"--exchange", "/x", "--exchange-requests", emptyFile + "/a", root}, emptyFile},
        {{"--tls", emptyFile, root}, emptyFile},
        {{"--tls", emptyFile + "/a", root}, emptyFile},
        // An address of the documentation network is never this machine's.
        {{"--bind", "192.0.2.1", root}, "192.0.2.1"},
    };
    for (const Case& test : cases) {
        std::vector<std::string> arguments = {"--port", "0"};
        arguments.insert(arguments.end(), test.arguments.begin(), test.arguments.end());

        const ProcessResult result = run(arguments);

        EXPECT_EQ(result.status, 1) << test.named;
        EXPECT_THAT(result.standardError, HasSubstr(test.named));
        EXPECT_THAT(result.standardOutput, IsEmpty()) << test.named;
    }
}

TEST(ServerStart, WrongCommandLine_EndsWithStatusTwoAndOneSentence) {
    const Site site;
    const std::string root = site.root().string();
    const std::vector<std::vector<std::string>> commandLines = {
        {},
        {root, root},
        {"--unknown", root},
        {"--port", "x", root},
        {"--port", "-1", root},
        {"--port", "65536", root},
        {"--bind", "localhost", root},
        {"--bind", "", root},
        {"--bind", "1.2.3", root},
        {"--user", "a", root},
        {"--user", "", "--password-file", "/dev/null", root},
        {"--user", "a:b", "--password-file", "/dev/null", root},
        {"--password-file", "/dev/null", root},
        {"--status", "/a", root},
        {"--status", "a=404", root},
        {"--status", "/a=", root},
        {"--status", "/a=404,", root},
        {"--status", "/a=,404", root},
        {"--status", "/a=x", root},
        {"--status", "/a=100", root},
        {"--status", "/a=199", root},
        {"--status", "/a=600", root},
        {"--status", "/a=-404", root},
        {"--status", "=404", root},
        {"--cut", "x", root},
        {"--cut", "", root},
        {"--cut", "-1", root},
        {"--cut", "K", root},
        {"--cut", "1T", root},
        {"--cut", "a=1", root},
        {"--cut", "/a=", root},
        {"--cut", "18446744073709551616", root},
        {"--cut", "18014398509481984K", root},
        {"--rate", "0", root},
        {"--rate", "0K", root},
        {"--rate", "fast", root},
        {"--rate", "1.5M", root},
        {"--exchange", "", root},
        {"--exchange", "exchange", root},
        {"--exchange-status", "200", root},
        {"--exchange-answers", ".", root},
        {"--exchange-requests", ".", root},
        {"--exchange", "/a", "--exchange-answers", "", root},
        {"--exchange", "/a", "--exchange-requests", "", root},
        {"--exchange", "/a", "--exchange-status", "", root},
        {"--exchange", "/a", "--exchange-status", "200,", root},
        {"--exchange", "/a", "--exchange-status", "0", root},
        {"--exchange", "/a", "--exchange-status", "199", root},
        {"--exchange", "/a", "--exchange-status", "600", root},
        {"--exchange", "/a", "--exchange-status", "404-keys", root},
        {"--exchange", "/a", "--exchange-status", "file", root},
        {"--exchange", "/a", "--exchange-status", "/a=404", root},
        {"--tls", "", root},
        {"--tls-port", "0", root},
        {"--tls", ".", "--tls-port", "65536", root},
    };
    for (const auto& arguments : commandLines) {
        SCOPED_TRACE(::testing::PrintToString(arguments));

        const ProcessResult result = run(arguments);

        EXPECT_EQ(result.status, 2);
        EXPECT_TRUE(isOneLine(result.standardError)) << result.standardError;
        EXPECT_THAT(result.standardError, StartsWith("voinet-server: "));
        EXPECT_THAT(result.standardOutput, IsEmpty());
    }
}

TEST(ServerStart, Help_ShowsEveryOptionAndExamples) {
    const ProcessResult result = run({"--help"});

    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.standardError, IsEmpty());
    for (const char* text : {"for development",
                             "never for production",
                             "Examples:",
                             "DIRECTORY",
                             "--port",
                             "--bind",
                             "--port-file",
                             "--user",
                             "--password-file",
                             "VOINET_SERVER_PASSWORD",
                             "--ignore-ranges",
                             "--status",
                             "--cut",
                             "--rate",
                             "--access-log",
                             "--quiet",
                             "--exchange PATH",
                             "--exchange-answers",
                             "--exchange-requests",
                             "--exchange-status",
                             "403-keys",
                             "--tls DIR",
                             "--tls-port",
                             "ca.pem"}) {
        EXPECT_THAT(result.standardOutput, HasSubstr(text));
    }
}

TEST(ServerStop, EitherSignal_EndsWithStatusZero) {
    const Site site;
    for (const int number : {SIGINT, SIGTERM}) {
        DevelopmentServer server = serve(site);
        get(server, "/file.bin");
        server.process().signal(number);
        EXPECT_THAT(server.process().wait(), Optional(0)) << number;
    }
}

TEST(ServerStop, SlowReplyRunning_IsBrokenOffAndLogged) {
    const Site site;
    DevelopmentServer server = serve(site, {"--rate", "1", "--access-log", "-"});
    RawConnection connection(server.port());
    connection.send(rawRequest("GET", "/file.bin"));
    ASSERT_EQ(connection.readHead().status, 200);
    ASSERT_EQ(connection.readBytes(1), fileData().substr(0, 1));

    EXPECT_THAT(server.process().stop(), Optional(0));

    EXPECT_LT(connection.readBytes(fileData().size()).size(), fileData().size() - 1);
    EXPECT_THAT(server.process().readLine(),
                Optional(MatchesRegex("[^ ]* GET /file.bin - 200 [1-9][0-9]?[0-9]?")));
}

TEST(ServerStop, IdleConnection_DoesNotKeepIt) {
    const Site site;
    DevelopmentServer server = serve(site);
    RawConnection connection(server.port());
    connection.send(rawRequest("GET", "/file.bin"));
    ASSERT_TRUE(connection.readReply().complete);

    // Half of the time for which the connection may idle.
    EXPECT_THAT(server.process().stop(Deadline::in(std::chrono::seconds(15))), Optional(0));
    EXPECT_TRUE(connection.readsEnd());
}

TEST(ServerStop, ClientThatDoesNotRead_DoesNotKeepIt) {
    const Site site;
    fs::resize_file(site.write("large.bin", ""), 64 << 20);
    DevelopmentServer server = serve(site);
    RawConnection connection(server.port(), "127.0.0.1", 4096);
    connection.send(rawRequest("GET", "/large.bin"));
    ASSERT_EQ(connection.readHead().status, 200);
    // While all of it goes over another connection, this one's buffers fill and its sender waits.
    ASSERT_TRUE(get(server, "/large.bin").complete);

    EXPECT_THAT(server.process().stop(), Optional(0));
}

}  // namespace
}  // namespace voinettest
