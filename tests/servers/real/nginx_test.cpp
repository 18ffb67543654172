// Logons and downloads against nginx.

#include "nginxserver.h"
#include "servertest.h"

#include <string>

namespace tessaro_com::pkm::voInet {

namespace {

using testing::ElementsAre;
using voinettest::kLargeSize;
using voinettest::kMediumSize;
using voinettest::NginxServer;
using voinettest::servedText;

class NginxDownload : private voinettest::Needs<voinettest::shared<NginxServer>>,
                      public voinettest::ServerTest {
  protected:
    static const NginxServer& server() { return voinettest::shared<NginxServer>(); }

    void SetUp() override { makeTransfer(voInetProtocolHttp); }

    static TransferSettings settings() { return settingsFor(server().port()); }

    /// With the folder that asks for a password.
    static TransferSettings privateSettings(const std::string& user, const std::string& password) {
        TransferSettings settings = NginxDownload::settings();
        settings.relativePath = L"private";
        settings.user = wide(user);
        settings.password = wide(password);
        return settings;
    }

    void downloads(std::wstring_view remoteName, std::size_t size) {
        ASSERT_EQ(logOn(settings()), voInetErrorSuccess);

        EXPECT_EQ(download(remoteName).result, voInetErrorSuccess);

        expectLocalText(servedText(size));
    }

    void failsWith(voInetError result, std::wstring_view remoteName) {
        ASSERT_EQ(logOn(settings()), voInetErrorSuccess);
        makeLocalFile("old");

        EXPECT_EQ(download(remoteName).result, result);

        expectLocalFile("old");
    }
};

TEST_F(NginxDownload, Logon_FindsTheProbeFile) {
    EXPECT_EQ(logOn(settings()), voInetErrorSuccess);
}

TEST_F(NginxDownload, LogonWithoutTheProbeFile_Fails) {
    TransferSettings elsewhere = settings();
    elsewhere.relativePath = L"absent";

    EXPECT_EQ(logOn(elsewhere), voInetErrorFailed);
}

TEST_F(NginxDownload, LogonThatIsAskedForAPassword_Succeeds) {
    EXPECT_EQ(logOn(privateSettings("", "")), voInetErrorSuccess);
}

TEST_F(NginxDownload, LogonOverIpv6_Succeeds) {
    EXPECT_EQ(logOn(settingsFor(server().portIpv6())), voInetErrorSuccess);
}

TEST_F(NginxDownload, EmptyFile_Arrives) {
    downloads(L"empty.bin", 0);
}

TEST_F(NginxDownload, OneByte_Arrives) {
    downloads(L"one.bin", 1);
}

TEST_F(NginxDownload, FiveMebibytes_Arrive) {
    downloads(L"medium.bin", kMediumSize);
}

TEST_F(NginxDownload, HundredMebibytes_Arrive) {
    downloads(L"large.bin", kLargeSize);
}

TEST_F(NginxDownload, Ipv6_Arrives) {
    ASSERT_EQ(logOn(settingsFor(server().portIpv6())), voInetErrorSuccess);

    EXPECT_EQ(download(L"medium.bin").result, voInetErrorSuccess);

    expectLocalText(servedText(kMediumSize));
}

TEST_F(NginxDownload, ServerThatClosesEachConnection_Arrives) {
    downloads(L"closing/medium.bin", kMediumSize);
}

TEST_F(NginxDownload, EncodedBlankInTheName_IsABlank) {
    downloads(L"with%20blank.bin", 1000);
}

TEST_F(NginxDownload, BlankInTheName_EndsTheName) {
    failsWith(voInetErrorFileNotFound, L"with blank.bin");
}

TEST_F(NginxDownload, AbsentFile_IsNotFound) {
    failsWith(voInetErrorFileNotFound, L"absent.bin");
}

TEST_F(NginxDownload, Resume_FetchesTheRest) {
    ASSERT_EQ(logOn(settings()), voInetErrorSuccess);
    makeHalf();

    const auto outcome = download(L"medium.bin", {static_cast<long>(kResumeOffset)});

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, static_cast<long>(kResumeOffset));
    expectResumed();
}

TEST_F(NginxDownload, ResumeOfAnotherFile_StartsOver) {
    ASSERT_EQ(logOn(settings()), voInetErrorSuccess);
    makeLocalFile(std::string(kHalfSize, 'x'));

    const auto outcome = download(L"medium.bin", {static_cast<long>(kResumeOffset)});

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalText(servedText(kMediumSize));
}

TEST_F(NginxDownload, ResumeWhereRangesAreIgnored_StartsOver) {
    ASSERT_EQ(logOn(settings()), voInetErrorSuccess);
    makeHalf();

    const auto outcome = download(L"rangeless/medium.bin", {static_cast<long>(kResumeOffset)});

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalText(servedText(kMediumSize));
}

TEST_F(NginxDownload, ResumeBehindTheEnd_StartsOver) {
    ASSERT_EQ(logOn(settings()), voInetErrorSuccess);
    makeLocalFile(std::string(servedText(kMediumSize)) + std::string(1024, 'x'));

    const auto outcome = download(L"medium.bin", {static_cast<long>(kMediumSize)});

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalText(servedText(kMediumSize));
}

// The comparison finds no difference here: the local file holds zeros behind the server's end,
// which stand for no bytes, and no bytes come. So the range is asked for once more, and only the
// status tells that it cannot be had.
TEST_F(NginxDownload, ResumeBehindTheEndWithNothingToCompare_StartsOver) {
    ASSERT_EQ(logOn(settings()), voInetErrorSuccess);
    makeLocalFile(std::string(servedText(kMediumSize)) + std::string(1024, '\0'));

    const auto outcome = download(L"terse/medium.bin", {static_cast<long>(kMediumSize)});

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalText(servedText(kMediumSize));
    EXPECT_THAT(server().statusesOf("GET /terse/medium.bin", 3), ElementsAre(416, 416, 200));
}

TEST_F(NginxDownload, RightPassword_Arrives) {
    ASSERT_EQ(logOn(privateSettings(NginxServer::kUser, NginxServer::kPassword)),
              voInetErrorSuccess);

    EXPECT_EQ(download(L"medium.bin").result, voInetErrorSuccess);

    expectLocalText(servedText(kMediumSize));
}

TEST_F(NginxDownload, WrongPassword_GivesUp) {
    ASSERT_EQ(logOn(privateSettings(NginxServer::kUser, "wrong")), voInetErrorSuccess);
    makeLocalFile("old");

    EXPECT_EQ(download(L"medium.bin").result, voInetErrorMaxRetries);

    expectLocalFile("old");
}

TEST_F(NginxDownload, NoPassword_IsAskedFor) {
    ASSERT_EQ(logOn(privateSettings("", "")), voInetErrorSuccess);
    makeLocalFile("old");

    EXPECT_EQ(download(L"medium.bin").result, voInetErrorLoginIncorrect);

    expectLocalFile("old");
}

TEST_F(NginxDownload, Redirect_IsFollowed) {
    downloads(L"moved.bin", kMediumSize);
}

TEST_F(NginxDownload, RedirectToTls_IsNotFollowed) {
    failsWith(voInetErrorTransferFailed, L"moved-to-tls.bin");
}

TEST_F(NginxDownload, RedirectWithoutEnd_Fails) {
    failsWith(voInetErrorTransferFailed, L"moved-to-itself.bin");
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet
