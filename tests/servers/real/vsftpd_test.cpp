// FTP against vsftpd.

#include "servertest.h"
#include "vsftpdserver.h"

#include <ostream>
#include <string>

namespace tessaro_com::pkm::voInet {

namespace {

using voinettest::kLargeSize;
using voinettest::kMediumSize;
using voinettest::servedText;
using voinettest::SharedServer;
using voinettest::VsftpdServer;

const VsftpdServer& serverIpv4() {
    static const SharedServer<VsftpdServer> kServer(voinettest::kLoopbackIpv4);
    return kServer.get();
}

const VsftpdServer& serverIpv6() {
    static const SharedServer<VsftpdServer> kServer(voinettest::kLoopbackIpv6);
    return kServer.get();
}

/// Whom a test is, and where.
struct Visit {
    const char* name;
    const VsftpdServer& (*server)();
    const char* user;
    const char* password;
};

void PrintTo(const Visit& visit, std::ostream* stream) {
    *stream << visit.name;
}

class Vsftpd : private voinettest::Needs<serverIpv4, serverIpv6>, public voinettest::ServerTest {
  protected:
    void SetUp() override { makeTransfer(voInetProtocolFtp); }

    static TransferSettings settingsFor(const Visit& visit) {
        TransferSettings settings = ServerTest::settingsFor(visit.server().port());
        settings.user = wide(visit.user);
        settings.password = wide(visit.password);
        if (!settings.user.empty()) {
            visit.server().requireUsers();
        }
        return settings;
    }
};

class VsftpdVisit : public Vsftpd, public testing::WithParamInterface<Visit> {
  protected:
    void logOn() { ASSERT_EQ(ServerTest::logOn(settingsFor(GetParam())), voInetErrorSuccess); }

    void downloads(std::wstring_view remoteName, std::size_t size) {
        logOn();

        EXPECT_EQ(download(remoteName).result, voInetErrorSuccess);

        expectLocalText(servedText(size));
    }

    void failsWith(voInetError result, std::wstring_view remoteName) {
        logOn();
        makeLocalFile("old");

        EXPECT_EQ(download(remoteName).result, result);

        expectLocalFile("old");
    }
};

TEST_P(VsftpdVisit, EmptyFile_Arrives) {
    downloads(L"empty.bin", 0);
}

TEST_P(VsftpdVisit, OneByte_Arrives) {
    downloads(L"one.bin", 1);
}

TEST_P(VsftpdVisit, FiveMebibytes_Arrive) {
    downloads(L"medium.bin", kMediumSize);
}

TEST_P(VsftpdVisit, HundredMebibytes_Arrive) {
    downloads(L"large.bin", kLargeSize);
}

TEST_P(VsftpdVisit, Resume_FetchesTheRest) {
    logOn();
    makeHalf();

    const auto outcome = download(L"medium.bin", {static_cast<long>(kResumeOffset)});

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, static_cast<long>(kResumeOffset));
    expectResumed();
}

TEST_P(VsftpdVisit, ResumeOfAnotherFile_StartsOver) {
    logOn();
    makeLocalFile(std::string(kHalfSize, 'x'));

    const auto outcome = download(L"medium.bin", {static_cast<long>(kResumeOffset)});

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalText(servedText(kMediumSize));
}

TEST_P(VsftpdVisit, AbsentFile_IsNotFound) {
    failsWith(voInetErrorFileNotFound, L"absent.bin");
}

TEST_P(VsftpdVisit, UnreadableFile_IsNotFound) {
    failsWith(voInetErrorFileNotFound, L"secret.bin");
}

TEST_P(VsftpdVisit, SecondDownload_NeedsNoNewLogon) {
    downloads(L"one.bin", 1);

    EXPECT_EQ(download(L"medium.bin").result, voInetErrorSuccess);

    expectLocalText(servedText(kMediumSize));
}

INSTANTIATE_TEST_SUITE_P(All, VsftpdVisit,
                         testing::Values(Visit{"AnonymousIpv4", serverIpv4, "", ""},
                                         Visit{"AnonymousIpv6", serverIpv6, "", ""},
                                         Visit{"UserIpv4", serverIpv4, VsftpdServer::kPlainUser,
                                               VsftpdServer::kPlainPassword},
                                         Visit{"SpecialUserIpv6", serverIpv6,
                                               VsftpdServer::kSpecialUser,
                                               VsftpdServer::kSpecialPassword}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(Vsftpd, AnonymousLogon_SendsTheFixedPassword) {
    EXPECT_EQ(logOn(settingsFor({"", serverIpv4, "", ""})), voInetErrorSuccess);

    serverIpv4().directory().awaitText("vsftpd.log", "anon password \"anonymous@example.com\"");
}

TEST_F(Vsftpd, WrongPassword_FailsLogonAndDownload) {
    makeLocalFile("old");

    EXPECT_EQ(logOn(settingsFor({"", serverIpv4, VsftpdServer::kPlainUser, "wrong"})),
              voInetErrorTransferFailed);
    EXPECT_EQ(download(L"medium.bin").result, voInetErrorFailed);

    expectLocalFile("old");
}

TEST_F(Vsftpd, UnknownUser_FailsLogonAndDownload) {
    makeLocalFile("old");

    EXPECT_EQ(logOn(settingsFor({"", serverIpv4, "nobody", VsftpdServer::kPlainPassword})),
              voInetErrorTransferFailed);
    EXPECT_EQ(download(L"medium.bin").result, voInetErrorFailed);

    expectLocalFile("old");
}

TEST_F(Vsftpd, LogonWithoutASite_HasBadOptions) {
    TransferSettings settings = settingsFor({"", serverIpv4, "", ""});
    settings.site.clear();

    EXPECT_EQ(logOn(settings), voInetErrorBadOptions);
}

TEST_F(Vsftpd, DownloadWithoutALogon_HasBadOptions) {
    applySettings(transfer(), settingsFor({"", serverIpv4, "", ""}));
    makeLocalFile("old");

    EXPECT_EQ(download(L"medium.bin").result, voInetErrorBadOptions);

    expectLocalFile("old");
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet
