// The sample host that resumes, names causes and stops on signals: docs/samples/resuming.cpp.

#include "commandsite.h"
#include "scriptedserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <string>

namespace voinettest {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr std::size_t kCut = 100'000;
constexpr const char* kSlow = "128K";

class SampleResuming : public CommandSite {
  protected:
    Words words(std::uint16_t port) const { return {address(port), "a.bin", local()}; }
    Words throughProxy(std::uint16_t proxy) const {
        return {"server.invalid:80", "a.bin", local(), "127.0.0.1", std::to_string(proxy)};
    }
    DevelopmentServer serve(const Words& options = {}) const {
        return {VOINET_SERVER_PROGRAM, repository.path().string(), options};
    }
    std::string part() const { return downloads.read("a.bin.part"); }
};

TEST_F(SampleResuming, WholeFile_LandsUnderItsName) {
    const std::string content = pattern(300'000);
    repository.write("a.bin", content);
    const DevelopmentServer server = serve();

    const auto result = run(words(server.port()));

    EXPECT_EQ(result.status, 0) << result.standardError;
    EXPECT_THAT(result.standardOutput, HasSubstr("voInetErrorSuccess: success\n"));
    EXPECT_THAT(result.standardError,
                Not(HasSubstr("http://127.0.0.1:" + std::to_string(server.port()) + "/a.bin: ")));
    EXPECT_EQ(downloads.read("a.bin"), content);
    EXPECT_THAT(landed(), ElementsAre("a.bin"));
}

TEST_F(SampleResuming, DownloadCutByTheServer_KeepsWhatArrivedAndIsResumed) {
    const std::string content = pattern(300'000);
    repository.write("a.bin", content);
    downloads.write("a.bin", "old");
    {
        const DevelopmentServer cutting = serve({"--cut", "/a.bin=" + std::to_string(kCut)});

        const auto cut = run(words(cutting.port()));

        EXPECT_EQ(cut.status, 1);
        EXPECT_THAT(cut.standardError, HasSubstr("/a.bin: the answer was cut ("));
        EXPECT_THAT(cut.standardOutput,
                    HasSubstr("voInetErrorTransferFailed: the transfer failed\n"));
    }
    EXPECT_EQ(downloads.read("a.bin"), "old");
    EXPECT_EQ(part(), content.substr(0, kCut));
    // Whoever starts over does not get through.
    const DevelopmentServer server = serve({"--cut", "/a.bin=" + std::to_string(250'000)});

    const auto resumed = run(words(server.port()));

    EXPECT_EQ(resumed.status, 0) << resumed.standardError;
    EXPECT_EQ(downloads.read("a.bin"), content);
    EXPECT_THAT(landed(), ElementsAre("a.bin"));
}

TEST_F(SampleResuming, PartOfAnotherFile_IsDownloadedAnew) {
    const std::string content = pattern(300'000);
    repository.write("a.bin", content);
    downloads.write("a.bin.part", pattern(200'000, 7));
    const DevelopmentServer server = serve();

    EXPECT_EQ(run(words(server.port())).status, 0);

    EXPECT_EQ(downloads.read("a.bin"), content);
}

TEST_F(SampleResuming, PartWithATailOfZeros_IsNotTakenForTheFile) {
    const std::string content = pattern(4000);
    repository.write("a.bin", content);
    // What the server has not counts as zeros in the check, so this matches and its tail stays.
    downloads.write("a.bin.part", content + std::string(500, '\0'));
    const DevelopmentServer server = serve();

    const auto result = run(words(server.port()));

    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.standardOutput, HasSubstr("voInetErrorSuccess: "));
    EXPECT_THAT(result.standardError, HasSubstr("a.bin.part has another size than the server's\n"));
    EXPECT_THAT(landed(), IsEmpty()) << "the next run starts over";
}

TEST_F(SampleResuming, Signal_EndsItInTimeWithThePartKept) {
    for (const int signal : {SIGINT, SIGTERM}) {
        const std::string content = pattern(4'000'000, static_cast<unsigned>(signal));
        repository.write("a.bin", content);
        const DevelopmentServer server = serve({"--rate", kSlow});
        Process process(makeCommand(words(server.port())));
        ASSERT_TRUE(process.readLine().has_value()) << "no progress";

        process.signal(signal);

        // The whole file would take half a minute.
        ASSERT_EQ(process.wait(Deadline::in(std::chrono::seconds(20))), 1);
        EXPECT_THAT(process.standardOutput(), HasSubstr("voInetErrorCancelled: "));
        EXPECT_THAT(landed(), ElementsAre("a.bin.part"));
        EXPECT_GE(part().size(), 65'536U);
        EXPECT_LT(part().size(), content.size());
        EXPECT_EQ(part(), content.substr(0, part().size()));
        std::filesystem::remove(local("a.bin.part"));
    }
}

TEST_F(SampleResuming, SignalWhileTheServerIsSilent_EndsTheLogon) {
    const ScriptedServer silent("", AfterAnswer::hold);
    Process process(makeCommand(words(silent.port())));
    ASSERT_TRUE(silent.awaitRequest());

    process.signal(SIGTERM);

    ASSERT_EQ(process.wait(), 1);
    EXPECT_THAT(process.standardOutput(), HasSubstr("voInetErrorCancelled: "));
    EXPECT_THAT(process.standardError(), HasSubstr("/SiteStat.xml: stopped ("));
    EXPECT_THAT(landed(), IsEmpty());
}

TEST_F(SampleResuming, NameThatDoesNotResolve_IsTheCause) {
    const auto result = run({"server.invalid:80", "a.bin", local()});

    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.standardError, HasSubstr(": the name of the server does not resolve ("));
    EXPECT_THAT(result.standardOutput, HasSubstr("voInetErrorHostNotResolved: "));
}

TEST_F(SampleResuming, ServerThatIsNotThere_IsTheCause) {
    const ClosedPort closed;

    const auto result = run(words(closed.port()));

    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.standardError, HasSubstr(": the server takes no connection ("));
}

TEST_F(SampleResuming, ServersStatus_IsTheCause) {
    const DevelopmentServer server = serve();

    const auto result = run(words(server.port()));

    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.standardError, HasSubstr("/a.bin: the server answers 404 ("));
    EXPECT_THAT(result.standardOutput, HasSubstr("voInetErrorFileNotFound: "));
    EXPECT_THAT(landed(), IsEmpty());
}

TEST_F(SampleResuming, ProxyThatIsNotThere_IsTheCause) {
    const ClosedPort closed;

    const auto result = run(throughProxy(closed.port()));

    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.standardError, HasSubstr(": the proxy takes no connection ("));
}

TEST_F(SampleResuming, ProxyThatDoesNotGetThrough_IsTheCause) {
    const ScriptedServer proxy("HTTP/1.1 504 Gateway Timeout\r\nContent-Length: 0\r\n\r\n");

    const auto result = run(throughProxy(proxy.port()));

    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.standardError, HasSubstr(": the proxy answers 504 ("));
    EXPECT_THAT(result.standardError, Not(HasSubstr("the server answers")));
}

}  // namespace
}  // namespace voinettest
