#include "support/choices.h"
#include "support/curldouble.h"
#include "support/curlsetupmodel.h"
#include "support/downloadfixture.h"
#include "support/downloadmodel.h"
#include "support/logcapture.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

// Downloads share their request counter and proxy flags, so one that runs inside another (from the
// sink, for instance) changes what the outer one does next. That is intended; these tests hold the
// library to the rules there too.

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;

namespace {

#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t kDepth = 3;  // a fifth of the sequences: each takes several times as long
#else
constexpr std::size_t kDepth = 4;
#endif
/// Those that the shared state makes a difference to, and two that end a pass.
const std::vector<Answer> kAnswers{Answer::unauthorized401, Answer::proxyAuthentication407,
                                   Answer::connectionBroken, Answer::part206, Answer::whole200};
constexpr std::size_t kPartialSize = 3000;
constexpr auto* kInnerUrl = "http://server.corp:8080/pkg/inner";

class NestedDownloads : public DownloadFixture {
  protected:
    /// Plays a sequence to library and model, with a whole download inside the request `nestedIn`.
    void compare(Choices& choices) {
        offset = static_cast<long>(choices.pick(2)) * 1000;
        connection.m_bUseAuthentication = choices.pick(2);
        connection.m_bUseProxyAuthentication = choices.pick(2);
        connection.m_bAllowUserToConfigureProxy = choices.pick(2);
        const auto nestedIn = static_cast<int>(1 + choices.pick(kDepth));
        const long startOffset = offset;
        const int result = runLibrary(choices, nestedIn);
        DownloadWorld world;
        DownloadModel inner(world, connection, kInnerUrl, true, "");
        DownloadModel outer(world, connection, kUrl, true, serverFile().substr(0, kPartialSize));
        std::size_t position = 0;
        const auto next = [&] { return m_given.at(position++); };
        outer.inside(nestedIn, [&] { inner.run(0, next); });
        ASSERT_EQ(result, outer.run(startOffset, next));
        ASSERT_EQ(position, m_given.size());
        ASSERT_EQ(offset, outer.offset());
        ASSERT_EQ(local(), outer.local());
        ASSERT_EQ(scratch.read("inner"), inner.local().empty() ? "(missing)" : inner.local());
        ASSERT_EQ(withoutManager(curlDouble().trace()), world.trace);
        ASSERT_EQ(logLines(), world.log);
    }

  private:
    int runLibrary(Choices& choices, int nestedIn) {
        havePartialFile(kPartialSize);
        std::filesystem::remove(scratch.file("inner"));
        curlDouble().clearTrace();
        clearLog();
        m_given.clear();
        int outerRequests = 0;
        bool inside = false;
        curlDouble().serve([&](const Request& request) {
            m_given.push_back(m_given.size() < kDepth ? choices.of(kAnswers)
                                                      : Answer::serverError500);
            auto reply = replyOf(m_given.back(), request.text(CURLOPT_RANGE));
            if (!inside && ++outerRequests == nestedIn) {
                reply.before([&] {
                    inside = true;
                    runInner();
                    inside = false;
                });
            }
            return reply;
        });
        return download();
    }

    void runInner() {
        bool notRead = false;
        long fromStart = 0;
        connection.DownloadFileWithConnSpec(connMethodFqdn, scratch.wideFile("inner"), L"inner",
                                            nullptr, &fromStart, notRead, true);
    }

    std::vector<Answer> m_given;
};

}  // namespace

TEST_F(NestedDownloads, EverySequenceOfAnswers_FollowsTheRulesOfTheSharedState) {
    const auto runs = Choices::forAll([this](Choices& choices) {
        if (!HasFatalFailure()) {
            compare(choices);
        }
    });
    EXPECT_GT(runs, 1000U);
}

TEST_F(NestedDownloads, DownloadFromTheSink_LeavesBothFilesRight) {
    bool nested = false;
    recordingSink.then([&](const Progress&) {
        if (!nested) {
            nested = true;
            bool notRead = false;
            long fromStart = 0;
            EXPECT_EQ(connection.DownloadFileWithConnSpec(connMethodFqdn, scratch.wideFile("inner"),
                                                          L"inner", &recordingSink, &fromStart,
                                                          notRead, true),
                      voInetErrorSuccess);
        }
    });
    curlDouble().play(answer(200).body("outer ").progress(10, 6).body("file"));
    curlDouble().play(answer(200).body("inner file").progress(10, 10));
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(local(), "outer file");
    EXPECT_EQ(scratch.read("inner"), "inner file");
}
