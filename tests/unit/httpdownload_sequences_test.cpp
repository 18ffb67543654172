#include "support/choices.h"
#include "support/curldouble.h"
#include "support/curlsetupmodel.h"
#include "support/downloadfixture.h"
#include "support/downloadmodel.h"
#include "support/logcapture.h"
#include "voinet/cbmgr.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

// Every sequence of answers that a download can meet, for every combination of settings that its
// retries depend on, against a model of the rules. Each sequence is followed by a download that
// must find the process-wide state as it is at the start.

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;

namespace {

/// Requests beyond this number are answered 500. One more than a pass can make; where every pass of
/// a resumed download can go on with credentials that would be a hundred thousand sequences.
constexpr std::size_t kDepth = 5;
constexpr std::size_t kDepthOfManyPasses = 4;
constexpr std::size_t kPartialSize = 3000;
constexpr long kOffset = 1000;

/// Resume offset, authentication, proxy authentication, user-configured proxy, alternate
/// credentials.
using Settings = std::tuple<long, bool, bool, bool, bool>;

class DownloadSequences : public DownloadFixture, public testing::WithParamInterface<Settings> {
  protected:
    DownloadSequences() {
        bool& alternate = connection.m_bAltUseProxyAuthentication;
        std::tie(startOffset, connection.m_bUseAuthentication, connection.m_bUseProxyAuthentication,
                 connection.m_bAllowUserToConfigureProxy, alternate) = GetParam();
    }

    /// Plays the sequence that the choices make to library and model, and compares the two.
    void compare(Choices& choices) {
        std::vector<Answer> given;
        reset();
        curlDouble().serve([&](const Request& request) {
            given.push_back(given.size() < depth() ? choices.of(allAnswers())
                                                   : Answer::serverError500);
            return replyOf(given.back(), request.text(CURLOPT_RANGE));
        });
        const int result = download();
        DownloadWorld world;
        DownloadModel model(world, connection, kUrl, useCache,
                            serverFile().substr(0, kPartialSize));
        std::size_t position = 0;
        const int expected = model.run(startOffset, [&] { return given.at(position++); });
        ASSERT_EQ(result, expected);
        ASSERT_EQ(position, given.size());
        ASSERT_EQ(offset, model.offset());
        ASSERT_EQ(local(), model.local());
        ASSERT_EQ(withoutManager(curlDouble().trace()), world.trace);
        ASSERT_EQ(logLines(), world.log);
    }

    /// A download that is refused until it gives up: it makes another number of requests when the
    /// one before it left its count, and uses no handle when that one left its flags.
    void expectStartState() {
        CHttpConnection fresh;
        fresh.m_bUseAuthentication = true;
        // The kind of the manager makes no difference to the requests; this one needs no file.
        CallbackManager manager(CallbackManager::TransferUpload, scratch.wideFile("none"), L"", L"",
                                L"http://h/", 0, false);
        curlDouble().clearTrace();
        curlDouble().serve([](const Request&) { return answer(401); });
        int status = 0;
        ASSERT_EQ(fresh.DoHttpDownload(&manager, true, &status, nullptr), voInetErrorMaxRetries);
        ASSERT_EQ(curlDouble().requests().size(), 4U);
        ASSERT_NE(curlDouble().requests().front().handle, 0);
    }

    long startOffset = 0;

  private:
    std::size_t depth() const {
        const bool goesOn = connection.m_bUseAuthentication || connection.m_bUseProxyAuthentication;
        return startOffset > 0 && goesOn ? kDepthOfManyPasses : kDepth;
    }

    void reset() {
        havePartialFile(kPartialSize);
        offset = startOffset;
        curlDouble().clearTrace();
        clearLog();
    }
};

std::string nameOf(const testing::TestParamInfo<Settings>& test) {
    const auto [offset, authentication, proxyAuthentication, allow, alternate] = test.param;
    return std::string(offset ? "Resumed" : "Whole") + (authentication ? "_Authentication" : "") +
           (proxyAuthentication ? "_ProxyAuthentication" : "") + (allow ? "_UserProxy" : "") +
           (alternate ? "_AltCredentials" : "");
}

INSTANTIATE_TEST_SUITE_P(AllSettings, DownloadSequences,
                         testing::Combine(testing::Values(0L, kOffset), testing::Bool(),
                                          testing::Bool(), testing::Bool(), testing::Bool()),
                         nameOf);

}  // namespace

TEST_P(DownloadSequences, EverySequenceOfAnswers_FollowsTheRules) {
    const auto runs = Choices::forAll([this](Choices& choices) {
        if (HasFatalFailure()) {
            return;
        }
        compare(choices);
        expectStartState();
    });
    EXPECT_GE(runs, allAnswers().size());
}
