#include "attempts.h"

#include <gtest/gtest.h>

#include <tuple>

namespace voinet_command {

using tessaro_com::pkm::voInet::voInetErrorAccessDenied;
using tessaro_com::pkm::voInet::voInetErrorBadOptions;
using tessaro_com::pkm::voInet::voInetErrorFailed;
using tessaro_com::pkm::voInet::voInetErrorFileNotFound;
using tessaro_com::pkm::voInet::voInetErrorHostNotResolved;
using tessaro_com::pkm::voInet::voInetErrorInvalidArgument;
using tessaro_com::pkm::voInet::voInetErrorInvalidRequest;
using tessaro_com::pkm::voInet::voInetErrorPackageReceived;
using tessaro_com::pkm::voInet::voInetErrorSslConnect;
using tessaro_com::pkm::voInet::voInetErrorSuccess;
using tessaro_com::pkm::voInet::voInetErrorTimeout;
using tessaro_com::pkm::voInet::voInetErrorTransferFailed;
using tessaro_com::pkm::voInet::voInetErrorUploadSetup;

namespace {

constexpr const char* kLibrary = "voInet";
constexpr const char* kCurl = "curl";

ActiveTarget target(HostForm form, const std::string& host, bool configured = true) {
    ActiveTarget result;
    result.form = form;
    result.configured = configured;
    result.endpoint = {host, 8080};
    result.alternateProxy = "proxy:3128";
    return result;
}

/// An attempt log whose active target a test sets.
struct Fixture {
    ActiveTarget active = target(HostForm::ip, "192.0.2.7");
    AttemptLog log{[this] { return active; }};

    void Logon() { log.Add(kLibrary, "Trying to connect.."); }
    void LogonFails() { log.Add(kLibrary, "Unable to connect to 192.0.2.7 on port 8080."); }
    void Download() { log.Add(kLibrary, "Open URL: http://192.0.2.7:8080/a"); }
    void Exchange() { log.Add(kLibrary, "Calling upload file response"); }
    void CurlReturned(int code) { log.Add(kLibrary, "curl returned " + std::to_string(code)); }
    void Head(const std::string& line) {
        log.Add(kCurl, "0x55d0 rcv head " + std::to_string(line.size()) + " " + line);
    }
    void Info(const std::string& line) {
        log.Add(kCurl, "0x55d0 info " + std::to_string(line.size()) + " " + line);
    }
};

}  // namespace

TEST(AttemptLog, SuccessfulLogonAndDownload_TwoAttemptsWithoutCause) {
    Fixture fixture;
    fixture.Logon();
    fixture.Head("HTTP/1.1 200 OK`0x0d`0x0a");
    fixture.log.Finish(Stage::logon, voInetErrorSuccess);
    fixture.Download();
    fixture.log.Add(kLibrary, "curl_easy_perform returned value: 0");
    fixture.log.Add(kLibrary, "Server response code value: 200 ");
    fixture.log.Finish(Stage::download, voInetErrorSuccess);

    ASSERT_EQ(fixture.log.All().size(), 2U);
    EXPECT_EQ(fixture.log.All()[0].stage, Stage::logon);
    EXPECT_EQ(fixture.log.All()[0].Answer(), 200);
    EXPECT_EQ(fixture.log.All()[1].stage, Stage::download);
    EXPECT_EQ(fixture.log.All()[1].target.endpoint.host, "192.0.2.7");
    EXPECT_EQ(fixture.log.Cause(), nullptr);
}

TEST(AttemptLog, DownloadMovesOnToMissingForm_CauseIsTheDownload) {
    Fixture fixture;
    fixture.Logon();
    fixture.log.Finish(Stage::logon, voInetErrorSuccess);
    fixture.Download();
    fixture.log.Add(kLibrary, "curl_easy_perform returned value: 0");
    fixture.log.Add(kLibrary, "Server response code value: 503 ");
    fixture.active = target(HostForm::fqdn, "192.0.2.7", false);
    fixture.Logon();
    fixture.Head("HTTP/1.1 200 OK`0x0d`0x0a");
    fixture.log.Finish(Stage::download, voInetErrorBadOptions);

    ASSERT_EQ(fixture.log.All().size(), 2U);
    ASSERT_NE(fixture.log.Cause(), nullptr);
    EXPECT_EQ(fixture.log.Cause()->result, voInetErrorTransferFailed);
    EXPECT_EQ(fixture.log.Cause()->Answer(), 503);
    EXPECT_TRUE(fixture.log.MovedOnToMissingForm());
}

TEST(AttemptLog, LogonsFailOneAfterAnother_FirstIsTheCauseAndTheLastHasTheResult) {
    Fixture fixture;
    fixture.Logon();
    fixture.Info("Could not resolve host: first`0x0a");
    fixture.Info("Closing connection 0`0x0a");
    fixture.LogonFails();
    fixture.active = target(HostForm::fqdn, "second");
    fixture.Logon();
    fixture.Head("HTTP/1.1 404 Not Found`0x0d`0x0a");
    fixture.LogonFails();
    fixture.log.Finish(Stage::logon, voInetErrorFailed);

    ASSERT_EQ(fixture.log.All().size(), 2U);
    EXPECT_EQ(fixture.log.All()[0].result, voInetErrorHostNotResolved);
    EXPECT_EQ(fixture.log.All()[0].reason, "Could not resolve host: first");
    EXPECT_EQ(fixture.log.All()[0].Answer(), std::nullopt);
    EXPECT_EQ(fixture.log.All()[1].result, voInetErrorFailed);
    EXPECT_EQ(fixture.log.All()[1].Answer(), 404);
    EXPECT_EQ(fixture.log.Cause(), &fixture.log.All()[0]);
}

TEST(AttemptLog, EarlierLogonMadeGoodByAnotherForm_IsNoCause) {
    Fixture fixture;
    fixture.Logon();
    fixture.LogonFails();
    fixture.active = target(HostForm::netbios, "depot");
    fixture.Logon();
    fixture.log.Finish(Stage::logon, voInetErrorSuccess);
    fixture.Download();
    fixture.log.Add(kLibrary, "Server response code value: 404 ");
    fixture.log.Finish(Stage::download, voInetErrorFileNotFound);

    ASSERT_EQ(fixture.log.All().size(), 3U);
    EXPECT_TRUE(fixture.log.All()[0].Failed());
    ASSERT_NE(fixture.log.Cause(), nullptr);
    EXPECT_EQ(fixture.log.Cause()->result, voInetErrorFileNotFound);
}

TEST(AttemptLog, BrokenDownloadThenFailedLogons_KeepsEachResult) {
    Fixture fixture;
    fixture.Download();
    fixture.Head("HTTP/1.1 200 OK`0x0d`0x0a");
    fixture.log.Add(kLibrary, "curl_easy_perform returned value: 28");
    fixture.active = target(HostForm::fqdn, "second");
    fixture.Logon();
    fixture.Info("Could not resolve host: second`0x0a");
    fixture.LogonFails();
    fixture.log.Finish(Stage::download, voInetErrorTimeout);

    ASSERT_EQ(fixture.log.All().size(), 2U);
    EXPECT_EQ(fixture.log.All()[0].result, voInetErrorTimeout);
    EXPECT_EQ(fixture.log.All()[0].Answer(), std::nullopt) << "the reply was cut off";
    EXPECT_EQ(fixture.log.All()[1].result, voInetErrorHostNotResolved);
}

TEST(AttemptLog, AlternateCredentials_AreNotedWithTheProxy) {
    Fixture fixture;
    fixture.Download();
    fixture.log.Add(kLibrary, "Using alternate proxy server: proxy ");

    EXPECT_TRUE(fixture.log.All()[0].alternateCredentials);
    EXPECT_EQ(fixture.log.All()[0].target.proxy, "proxy:3128");
}

TEST(AttemptLog, FtpReplies_GiveTheResultOfASupersededDownload) {
    for (const auto& [reply, expected] :
         {std::pair("550 No such file`0x0d`0x0a", voInetErrorFileNotFound),
          std::pair("530 Login incorrect`0x0d`0x0a", voInetErrorFailed)}) {
        Fixture fixture;
        fixture.active.ftp = true;
        fixture.Download();
        fixture.Head("220 ready`0x0d`0x0a");
        fixture.Head(reply);
        fixture.Logon();

        EXPECT_EQ(fixture.log.All()[0].result, expected) << reply;
    }
}

TEST(AttemptLog, FtpReplyThatIsNoRefusal_ExplainsNoFailure) {
    Fixture fixture;
    fixture.active.ftp = true;
    fixture.Download();
    fixture.Head("150 here it comes`0x0d`0x0a");
    fixture.Info("Operation too slow, timed out`0x0a");
    fixture.Logon();

    EXPECT_EQ(fixture.log.All()[0].Answer(), std::nullopt);
    EXPECT_EQ(fixture.log.All()[0].result, voInetErrorTimeout);
}

TEST(AttemptLog, FtpRefusalsAtLogon_AreAnswers) {
    for (const auto& [reply, info, expected] :
         {std::tuple("530 Login incorrect", "Access denied: 530", voInetErrorTransferFailed),
          std::tuple("421 too many", "We got a 421 - timeout", voInetErrorTimeout),
          std::tuple("550 no", "Closing connection 0", voInetErrorFailed)}) {
        Fixture fixture;
        fixture.active.ftp = true;
        fixture.Logon();
        fixture.Head(std::string(reply) + "`0x0d`0x0a");
        fixture.Info(info);
        fixture.LogonFails();
        fixture.Logon();

        EXPECT_EQ(fixture.log.All()[0].Answer(), std::stoi(reply));
        EXPECT_EQ(fixture.log.All()[0].result, expected) << reply;
    }
}

TEST(AttemptLog, ProxyInFrontOfFtp_AnswersInHttp) {
    Fixture fixture;
    fixture.active.ftp = true;
    fixture.Download();
    fixture.Head("HTTP/1.1 407 Proxy Authentication Required`0x0d`0x0a");

    EXPECT_FALSE(fixture.log.All()[0].replyIsFtp);
    fixture.Head("220 ready`0x0d`0x0a");
    EXPECT_TRUE(fixture.log.All()[0].replyIsFtp);
}

TEST(AttemptLog, ExchangeWithUnknownStatus_FailedThoughTheLibrarySaysSuccess) {
    Fixture fixture;
    fixture.Exchange();
    fixture.CurlReturned(0);
    fixture.log.Add(kLibrary, "Received response 500 from server");
    fixture.log.Finish(Stage::exchange, voInetErrorSuccess);

    ASSERT_EQ(fixture.log.All().size(), 1U);
    EXPECT_TRUE(fixture.log.All()[0].Failed());
    EXPECT_EQ(fixture.log.All()[0].Answer(), 500);
    EXPECT_EQ(fixture.log.Cause(), &fixture.log.All()[0]);
}

TEST(AttemptLog, ExchangeThatBringsAPackage_IsNoFailure) {
    Fixture fixture;
    fixture.Exchange();
    fixture.Head("HTTP/1.1 200 OK`0x0d`0x0a");
    fixture.CurlReturned(0);
    fixture.log.Finish(Stage::exchange, voInetErrorPackageReceived);

    EXPECT_FALSE(fixture.log.All()[0].Failed());
    EXPECT_EQ(fixture.log.All()[0].Answer(), 200);
    EXPECT_EQ(fixture.log.Cause(), nullptr);
}

TEST(AttemptLog, SupersededExchange_HasTheResultThatMovedTheLibraryOn) {
    for (const auto& [reply, expected] : {std::pair("HTTP/1.1 400 x", voInetErrorInvalidRequest),
                                          std::pair("HTTP/1.1 403 x", voInetErrorAccessDenied),
                                          std::pair("HTTP/1.1 404 x", voInetErrorFileNotFound)}) {
        Fixture fixture;
        fixture.Exchange();
        fixture.Head(reply);
        fixture.CurlReturned(0);
        fixture.Exchange();

        EXPECT_EQ(fixture.log.All()[0].result, expected) << reply;
    }
    for (const auto& [code, expected] :
         {std::pair(6, voInetErrorHostNotResolved), std::pair(35, voInetErrorSslConnect),
          std::pair(42, voInetErrorTransferFailed), std::pair(77, voInetErrorTransferFailed)}) {
        Fixture fixture;
        fixture.Exchange();
        fixture.CurlReturned(code);
        fixture.Exchange();

        EXPECT_EQ(fixture.log.All()[0].result, expected) << code;
        EXPECT_EQ(fixture.log.All()[0].TlsFailed(), code == 35 || code == 77) << code;
        EXPECT_EQ(fixture.log.All()[0].RequestBroke(), code == 42) << code;
    }
    Fixture unopened;
    unopened.Exchange();
    unopened.Exchange();
    EXPECT_EQ(unopened.log.All()[0].result, voInetErrorUploadSetup);
}

TEST(AttemptLog, AnsweredExchange_IsTheCauseWhateverBecameOfOthers) {
    Fixture fixture;
    fixture.Exchange();
    fixture.CurlReturned(7);
    fixture.Exchange();
    fixture.Head("HTTP/1.1 400 x`0x0d`0x0a");
    fixture.CurlReturned(0);
    fixture.Exchange();
    fixture.CurlReturned(7);
    fixture.log.Finish(Stage::exchange, voInetErrorTransferFailed);

    EXPECT_EQ(fixture.log.Cause(), &fixture.log.All()[1]);
}

TEST(AttemptLog, ExchangesWithoutAnyAnswer_TheFirstIsTheCause) {
    Fixture fixture;
    fixture.Exchange();
    fixture.CurlReturned(6);
    fixture.Exchange();
    fixture.CurlReturned(7);
    fixture.log.Finish(Stage::exchange, voInetErrorTransferFailed);

    EXPECT_EQ(fixture.log.Cause(), &fixture.log.All()[0]);
}

TEST(AttemptLog, LinesOutsideAnAttempt_AreIgnored) {
    Fixture fixture;
    fixture.Head("HTTP/1.1 200 OK`0x0d`0x0a");
    fixture.log.Add(kLibrary, "Server response code value: 200 ");
    fixture.log.Finish(Stage::download, voInetErrorInvalidArgument);

    EXPECT_TRUE(fixture.log.All().empty());
    EXPECT_EQ(fixture.log.Cause(), nullptr);
}

}  // namespace voinet_command
