#include "failurereport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace voinet_command {

using tessaro_com::pkm::voInet::voInetError;
using tessaro_com::pkm::voInet::voInetErrorBadOptions;
using tessaro_com::pkm::voInet::voInetErrorInvalidRequest;
using tessaro_com::pkm::voInet::voInetErrorNotImplemented;
using tessaro_com::pkm::voInet::voInetErrorSuccess;
using tessaro_com::pkm::voInet::voInetErrorTimeout;
using tessaro_com::pkm::voInet::voInetErrorTransferFailed;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace {

ActiveTarget active() {
    ActiveTarget target;
    target.form = HostForm::ip;
    target.endpoint = {"::1", 8080};
    target.proxy = "proxy:3128";
    return target;
}

/// A download that was answered 503, after which the library went on to a form without a host.
FailureReport reportOf503() {
    bool configured = true;
    AttemptLog log([&configured] {
        ActiveTarget target = active();
        target.configured = configured;
        return target;
    });
    log.Add("voInet", "Open URL: http://[::1]:8080/a");
    log.Add("voInet", "curl_easy_perform returned value: 0");
    log.Add("voInet", "Server response code value: 503 ");
    configured = false;
    log.Add("voInet", "Trying to connect..");
    log.Finish(Stage::download, voInetErrorBadOptions);
    return reportOf(log, voInetErrorBadOptions);
}

/// An exchange that curl ended with `curlCode`, or the server with `status`.
FailureReport reportOfExchange(int curlCode, int status, voInetError result) {
    AttemptLog log([] {
        ActiveTarget target;
        target.endpoint = {"manage.example.com", 80};
        return target;
    });
    log.Add("voInet", "Calling upload file response");
    log.Add("voInet", "curl returned " + std::to_string(curlCode));
    if (curlCode == 0) {
        log.Add("voInet", "Received response " + std::to_string(status) + " from server");
    }
    log.Finish(Stage::exchange, result);
    return reportOf(log, result);
}

}  // namespace

TEST(FailureReport, FinalResultHidesTheCause_BothAreShownAndTheCauseCounts) {
    const FailureReport report = reportOf503();

    EXPECT_EQ(report.status, ExitStatus::serverError);
    const auto lines = reportLines(report);
    EXPECT_THAT(lines, Contains(AllOf(HasSubstr("tried:"), HasSubstr("IP address [::1]:8080"),
                                      HasSubstr("through proxy proxy:3128"), HasSubstr("HTTP 503"),
                                      HasSubstr("voInetErrorTransferFailed (-88)"))));
    EXPECT_THAT(lines,
                Contains(AllOf(HasSubstr("cause:"), HasSubstr("voInetErrorTransferFailed (-88)"))));
    EXPECT_THAT(lines, Contains(AllOf(HasSubstr("result:"), HasSubstr("voInetErrorBadOptions (-6)"),
                                      HasSubstr("not configured"))));
    EXPECT_THAT(lines, Contains(HasSubstr("try:")));
}

TEST(FailureReport, Fields_HoldCauseAndFinalResult) {
    const EventStream::Object fields = reportFields(reportOf503());

    EXPECT_EQ(fields.at("exitStatus"), 6);
    EXPECT_EQ(fields.at("exitName"), "server-error");
    EXPECT_EQ(fields.at("result"), -88);
    EXPECT_EQ(fields.at("finalResult"), -6);
}

TEST(FailureReport, CommandError_HasNeitherAttemptsNorResult) {
    const FailureReport report =
        reportOf(CommandError(ExitStatus::localFile, "cannot write", "make room"));

    EXPECT_EQ(reportLines(report),
              (std::vector<std::string>{"voinet: cannot write", "  try:    make room"}));
    EXPECT_TRUE(reportFields(report).at("result").is_null());
}

TEST(FailureReport, NoAttempt_GivesTheMeaningOfTheResult) {
    AttemptLog log(active);
    const FailureReport report = reportOf(log, voInetErrorNotImplemented);

    EXPECT_EQ(report.status, ExitStatus::failed);
    EXPECT_THAT(report.sentence, HasSubstr("does not have this operation"));
}

TEST(FailureReport, DeadConnection_TellsCurlsReason) {
    AttemptLog log(active);
    log.Add("voInet", "Trying to connect..");
    log.Add("curl", "0x1 info 18 Connection refused`0x0a");
    log.Add("voInet", "Unable to connect to ::1 on port 8080.");
    log.Finish(Stage::logon, voInetErrorTransferFailed);
    const FailureReport report = reportOf(log, voInetErrorTransferFailed);

    EXPECT_EQ(report.status, ExitStatus::unreachable);
    EXPECT_THAT(report.sentence, HasSubstr("Connection refused"));
    EXPECT_THAT(reportLines(report), Not(Contains(HasSubstr("result:"))));
}

TEST(FailureReport, UnknownAnswerToAnExchange_IsNeverASuccess) {
    for (const auto& [status, exitStatus] :
         {std::pair(500, ExitStatus::serverError), std::pair(204, ExitStatus::serverError),
          std::pair(0, ExitStatus::serverError), std::pair(401, ExitStatus::refused)}) {
        const FailureReport report = reportOfExchange(0, status, voInetErrorSuccess);

        EXPECT_EQ(report.status, exitStatus) << status;
        const auto lines = reportLines(report);
        EXPECT_THAT(lines, Contains(AllOf(HasSubstr("result:"), HasSubstr("does not know"))));
        EXPECT_THAT(lines, Not(Contains(HasSubstr("cause:"))));
    }
}

TEST(FailureReport, KnownAnswerToAnExchange_IsPutInWords) {
    FailureReport report = reportOfExchange(0, 400, voInetErrorInvalidRequest);
    report.serverText = "no such agent";

    EXPECT_EQ(report.status, ExitStatus::invalidRequest);
    EXPECT_EQ(report.sentence, "the server calls the request invalid (HTTP 400)");
    EXPECT_THAT(reportLines(report), Contains("  server: no such agent"));
    EXPECT_THAT(reportLines(report), Contains(HasSubstr("at server manage.example.com:80")))
        << "a name is no IP address";
}

TEST(FailureReport, CurlsOwnEndOfAnExchange_GivesItsKind) {
    EXPECT_EQ(reportOfExchange(42, 0, voInetErrorTransferFailed).status, ExitStatus::localFile);
    EXPECT_EQ(reportOfExchange(77, 0, voInetErrorTransferFailed).status, ExitStatus::tls);
    EXPECT_EQ(reportOfExchange(7, 0, voInetErrorTransferFailed).status, ExitStatus::unreachable);
}

TEST(FailureReport, FtpRefusalThatCurlCallsATimeout_IsTheServersError) {
    AttemptLog log([] {
        ActiveTarget target = active();
        target.ftp = true;
        return target;
    });
    log.Add("voInet", "Trying to connect..");
    log.Add("curl", "0x1 rcv head 14 421 too many`0x0d`0x0a");
    log.Add("voInet", "Unable to connect to ::1 on port 8080.");
    log.Finish(Stage::logon, voInetErrorTimeout);
    const FailureReport report = reportOf(log, voInetErrorTimeout);

    EXPECT_EQ(report.status, ExitStatus::serverError);
    EXPECT_THAT(report.sentence, HasSubstr("the server answered FTP 421"));
}

}  // namespace voinet_command
