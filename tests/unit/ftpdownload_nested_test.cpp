#include "support/choices.h"
#include "support/curlsetupmodel.h"
#include "support/ftpfixture.h"
#include "voinet/HTTPConnection.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

// FTP downloads share their proxy flags, so one that runs inside another (from the sink, for
// instance) fails while the outer one is in its fall-back, and takes the flags with it. That is
// intended; these tests hold the library to the rules there too.

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;

namespace {

constexpr std::size_t kDepth = 4;
/// One that ends a pass, and one that leads into the fall-back and leaves data to drop.
const std::vector<FtpAnswer> kAnswers{FtpAnswer::sent226, FtpAnswer::connectionBroken};
constexpr std::size_t kPartialSize = 3000;

class NestedFtpDownloads : public FtpFixture {
  protected:
    /// Plays a sequence to library and model, with a whole download inside the request `nestedIn`.
    void compare(Choices& choices) {
        offset = static_cast<long>(choices.pick(2)) * 1000;
        connection.m_bAllowUserToConfigureProxy = choices.pick(2);
        m_innerOffset = static_cast<long>(choices.pick(2)) * 500;
        const auto nestedIn = static_cast<int>(1 + choices.pick(kDepth));
        const long startOffset = offset;
        const int result = runLibrary(choices, nestedIn);
        const auto partial = serverFile().substr(0, kPartialSize);
        FtpWorld world;
        FtpDownloadModel inner(world, connection, "inner", partial);
        FtpDownloadModel outer(world, connection, "file.zip", partial);
        std::size_t position = 0;
        const auto next = [&] { return m_given.at(position++); };
        outer.inside(nestedIn, [&] { inner.run(m_innerOffset, next); });
        ASSERT_EQ(result, outer.run(startOffset, next));
        ASSERT_EQ(position, m_given.size());
        ASSERT_EQ(offset, outer.offset());
        ASSERT_EQ(local(), outer.local());
        ASSERT_EQ(scratch.read("inner"), inner.local());
        ASSERT_EQ(withoutManager(curlDouble().trace()), world.trace);
        ASSERT_EQ(logLines(), world.log);
    }

    voInetError downloadInner(CFtpConnection& inner, long start = 0) {
        bool notRead = false;
        return inner.DownloadFileWithConnSpec(connMethodFqdn, scratch.wideFile("inner"), L"inner",
                                              nullptr, &start, notRead, true);
    }

    /// A second object with the first one's server.
    static void configure(CNetConnection& other) {
        other.SetOption(voInetOptionSite, std::wstring(L"site"));
        other.SetOption(voInetOptionUser, std::wstring(L"user"));
        other.SetOption(voInetOptionHostFqdn, std::wstring(L"server.corp:2121"));
        other.ApplyHostInformation(connMethodFqdn);
    }

  private:
    int runLibrary(Choices& choices, int nestedIn) {
        havePartialFile(kPartialSize);
        have("inner", serverFile().substr(0, kPartialSize));
        curlDouble().clearTrace();
        clearLog();
        m_given.clear();
        int outerRequests = 0;
        bool inside = false;
        curlDouble().serve([&](const Request& request) {
            m_given.push_back(m_given.size() < kDepth ? choices.of(kAnswers)
                                                      : FtpAnswer::notLoggedIn530);
            auto reply = replyOf(m_given.back(), request.text(CURLOPT_RANGE));
            if (!inside && ++outerRequests == nestedIn) {
                reply.before([&] {
                    inside = true;
                    downloadInner(connection, m_innerOffset);
                    inside = false;
                });
            }
            return reply;
        });
        return download();
    }

    long m_innerOffset = 0;
    std::vector<FtpAnswer> m_given;
};

}  // namespace

TEST_F(NestedFtpDownloads, EverySequenceOfAnswers_FollowsTheRulesOfTheSharedFlags) {
    const auto runs = Choices::forAll([this](Choices& choices) {
        if (!HasFatalFailure()) {
            compare(choices);
        }
    });
    EXPECT_GT(runs, 100U);
}

TEST_F(NestedFtpDownloads, InsideTheFirstRequest_FindsTheFlagsClearAndLeavesThemClear) {
    connection.m_bAllowUserToConfigureProxy = true;
    CFtpConnection other;
    configure(other);
    curlDouble().play(failure(CURLE_COULDNT_CONNECT).before([&] {
        EXPECT_EQ(downloadInner(other), voInetErrorSuccess);
    }));
    curlDouble().play(answer(226).body("inner"));
    curlDouble().play(answer(226).body("outer"));
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(local(), "outer");
    EXPECT_EQ(scratch.read("inner"), "inner");
}

TEST_F(NestedFtpDownloads, AnotherObjectInsideTheFallback_HasNoHandleAndFails) {
    connection.m_bAllowUserToConfigureProxy = true;
    CFtpConnection other;
    configure(other);
    curlDouble().play(failure(CURLE_COULDNT_CONNECT));
    curlDouble().play(answer(226)
                          .before([&] {
                              curlDouble().clearTrace();
                              EXPECT_EQ(downloadInner(other), voInetErrorTransferFailed);
                              EXPECT_EQ(curlDouble().trace(),
                                        std::vector<std::string>{"perform null"});
                          })
                          .body("outer"));
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(local(), "outer");
    EXPECT_EQ(scratch.read("inner"), "(missing)");
}

TEST_F(NestedFtpDownloads, InsideTheFallback_ClearsTheFlagSoThatTheOuterFallsBackAgain) {
    connection.m_bAllowUserToConfigureProxy = true;
    curlDouble().play(failure(CURLE_COULDNT_CONNECT));
    curlDouble().play(failure(CURLE_COULDNT_CONNECT).before([&] {
        EXPECT_EQ(downloadInner(connection), voInetErrorTransferFailed);
    }));
    curlDouble().play(answer(226).body("outer"));
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(local(), "outer");
    EXPECT_EQ(curlDouble().handlesMade(), 1);
    EXPECT_EQ(curlDouble().requests().size(), 4U);  // three on the handle, one on none
}

TEST_F(NestedFtpDownloads, SecondOneInsideTheFallback_GetsAHandleOfItsOwn) {
    connection.m_bAllowUserToConfigureProxy = true;
    curlDouble().play(failure(CURLE_COULDNT_CONNECT));
    curlDouble().play(answer(226)
                          .before([&] {
                              EXPECT_EQ(downloadInner(connection), voInetErrorTransferFailed);
                              EXPECT_EQ(downloadInner(connection), voInetErrorSuccess);
                          })
                          .body("outer"));
    curlDouble().play(answer(226).body("inner"));
    EXPECT_EQ(download(), voInetErrorSuccess);
    EXPECT_EQ(local(), "outer");
    EXPECT_EQ(scratch.read("inner"), "inner");
    EXPECT_EQ(curlDouble().handlesMade(), 2);
}

TEST_F(NestedFtpDownloads, HttpDownloadInsideTheFallback_HasFlagsOfItsOwn) {
    connection.m_bAllowUserToConfigureProxy = true;
    CHttpConnection http;
    configure(http);
    bool notRead = false;
    long start = 0;
    curlDouble().play(failure(CURLE_COULDNT_CONNECT));
    curlDouble().play(failure(CURLE_COULDNT_CONNECT).before([&] {
        EXPECT_EQ(http.DownloadFileWithConnSpec(connMethodFqdn, scratch.wideFile("inner"), L"inner",
                                                nullptr, &start, notRead, true),
                  voInetErrorSuccess);
    }));
    curlDouble().play(answer(200).body("inner"));
    EXPECT_EQ(download(), voInetErrorTransferFailed);
    EXPECT_EQ(scratch.read("inner"), "inner");
}

TEST_F(NestedFtpDownloads, InsideAnHttpFallback_HasFlagsOfItsOwn) {
    CHttpConnection http;
    configure(http);
    http.m_bAllowUserToConfigureProxy = true;
    bool notRead = false;
    long start = 0;
    curlDouble().play(answer(200)
                          .before([&] { EXPECT_EQ(downloadInner(connection), voInetErrorSuccess); })
                          .body("outer"));
    curlDouble().play(answer(226).body("inner"));
    EXPECT_EQ(http.DownloadFileWithConnSpec(connMethodFqdn, scratch.wideFile("local"), L"f",
                                            nullptr, &start, notRead, true),
              voInetErrorSuccess);
    EXPECT_EQ(local(), "outer");
    EXPECT_EQ(scratch.read("inner"), "inner");
}
