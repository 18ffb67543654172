#include "support/choices.h"
#include "support/curlsetupmodel.h"
#include "support/ftpfixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>
#include <vector>

// Every sequence of answers that an FTP download can meet, for every combination of settings that
// its fall-back depends on, against a model of the rules. Each sequence is followed by a download
// that must find the process-wide flags as they are at the start.

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;

namespace {

constexpr std::size_t kPartialSize = 3000;
constexpr long kOffset = 1000;
/// Two passes of two requests each.
constexpr std::size_t kMostRequests = 4;

/// Resume offset, user-configured proxy, alternate credentials.
using Settings = std::tuple<long, bool, bool>;

class FtpDownloadSequences : public FtpFixture, public testing::WithParamInterface<Settings> {
  protected:
    FtpDownloadSequences() {
        std::tie(startOffset, connection.m_bAllowUserToConfigureProxy,
                 connection.m_bAltUseProxyAuthentication) = GetParam();
    }

    /// Plays the sequence that the choices make to library and model, and compares the two.
    void compare(Choices& choices) {
        std::vector<FtpAnswer> given;
        reset();
        curlDouble().serve([&](const Request& request) {
            given.push_back(choices.of(allFtpAnswers()));
            return replyOf(given.back(), request.text(CURLOPT_RANGE));
        });
        const int result = download();
        FtpWorld world;
        FtpDownloadModel model(world, connection, "file.zip", serverFile().substr(0, kPartialSize));
        std::size_t position = 0;
        const int expected = model.run(startOffset, [&] { return given.at(position++); });
        ASSERT_EQ(result, expected);
        ASSERT_EQ(position, given.size());
        ASSERT_LE(given.size(), kMostRequests);
        ASSERT_EQ(offset, model.offset());
        ASSERT_EQ(local(), model.local());
        ASSERT_EQ(withoutManager(curlDouble().trace()), world.trace);
        ASSERT_EQ(logLines(), world.log);
        longest = std::max(longest, given.size());
    }

    /// A download makes its own handle exactly when the flag of the alternate proxy is clear.
    void expectStartState() {
        CFtpConnection fresh;
        fresh.m_strSite = fresh.m_strHost = fresh.m_strUser = L"set";
        bool notRead = false;
        long fromStart = 0;
        curlDouble().clearTrace();
        curlDouble().serve([](const Request&) { return answer(530); });
        ASSERT_EQ(fresh.DownloadFileWithConnSpec(connMethodFqdn, scratch.wideFile("canary"), L"f",
                                                 nullptr, &fromStart, notRead, true),
                  voInetErrorFailed);
        ASSERT_EQ(curlDouble().requests().size(), 1U);
        ASSERT_NE(curlDouble().requests().front().handle, 0);
    }

    long startOffset = 0;
    std::size_t longest = 0;

  private:
    void reset() {
        havePartialFile(kPartialSize);
        offset = startOffset;
        curlDouble().clearTrace();
        clearLog();
    }
};

std::string nameOf(const testing::TestParamInfo<Settings>& test) {
    const auto [offset, allow, alternate] = test.param;
    return std::string(offset ? "Resumed" : "Whole") + (allow ? "_UserProxy" : "") +
           (alternate ? "_AltCredentials" : "");
}

INSTANTIATE_TEST_SUITE_P(AllSettings, FtpDownloadSequences,
                         testing::Combine(testing::Values(0L, kOffset), testing::Bool(),
                                          testing::Bool()),
                         nameOf);

}  // namespace

TEST_P(FtpDownloadSequences, EverySequenceOfAnswers_FollowsTheRules) {
    const auto runs = Choices::forAll([this](Choices& choices) {
        if (HasFatalFailure()) {
            return;
        }
        compare(choices);
        expectStartState();
    });
    EXPECT_GE(runs, allFtpAnswers().size());
    const std::size_t passes = startOffset > 0 ? 2 : 1;
    EXPECT_EQ(longest, connection.m_bAllowUserToConfigureProxy ? 2 * passes : passes);
}
