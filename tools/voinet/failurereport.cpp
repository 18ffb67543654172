#include "failurereport.h"

#include "exchangeoutcome.h"
#include "resulttexts.h"
#include "texts.h"

#include <fmt/format.h>

namespace voinet_command {

using tessaro_com::pkm::voInet::voInetError;
using tessaro_com::pkm::voInet::voInetErrorFailed;
using tessaro_com::pkm::voInet::voInetErrorSuccess;
using tessaro_com::pkm::voInet::voInetErrorTimeout;
using tessaro_com::pkm::voInet::voInetErrorTransferFailed;

namespace {

std::string meaningOf(voInetError result) {
    const ResultText* text = findResultText(result);
    return text == nullptr ? "an unknown result" : text->meaning;
}

std::string replyText(const Attempt& attempt, int reply) {
    return fmt::format("{} {}", attempt.replyIsFtp ? "FTP" : "HTTP", reply);
}

/// Whether the answer says more than the result. Curl calls FTP's 421 (too many users, or going
/// down) a time-out.
bool isAnswerDecisive(const Attempt& attempt, voInetError result) {
    return result == voInetErrorFailed || result == voInetErrorTransferFailed ||
           (result == voInetErrorTimeout && attempt.replyIsFtp && attempt.Answer());
}

/// What happened in an attempt that failed: the reply, or curl's reason, or else the meaning.
std::string whatHappened(const Attempt& attempt) {
    const voInetError result = attempt.result.value_or(voInetErrorFailed);
    if (const auto reply = attempt.Answer()) {
        const std::string status = replyText(attempt, *reply);
        return isAnswerDecisive(attempt, result)
                   ? "the server answered " + status
                   : fmt::format("{} ({})", meaningOf(result), status);
    }
    return attempt.reason.empty() ? meaningOf(result)
                                  : fmt::format("{} ({})", meaningOf(result), attempt.reason);
}

/// The outcome that an answered exchange came to; null for every other attempt.
const ExchangeOutcome* outcomeOf(const Attempt& attempt) {
    const bool answered = attempt.stage == Stage::exchange && attempt.Answer() && attempt.result;
    return answered ? findExchangeOutcome(*attempt.result) : nullptr;
}

const char* beginOfSentence(Stage stage) {
    switch (stage) {
        case Stage::logon:
            return "logon at";
        case Stage::download:
            return "download from";
        case Stage::exchange:
            break;
    }
    return "exchange with";
}

std::string causeSentence(const Attempt& attempt) {
    if (const ExchangeOutcome* outcome = outcomeOf(attempt)) {
        return fmt::format("{} ({})", outcome->sentence, replyText(attempt, *attempt.Answer()));
    }
    const std::string what =
        attempt.RequestBroke()
            ? "the request file became shorter or could not be read while it was being sent"
            : whatHappened(attempt);
    return fmt::format("{} {} failed: {}", beginOfSentence(attempt.stage),
                       joinHostPort(attempt.target.endpoint.host, attempt.target.endpoint.port),
                       what);
}

ExitStatus statusOf(const Attempt& attempt) {
    const voInetError result = attempt.result.value_or(voInetErrorFailed);
    if (attempt.RequestBroke()) {
        return ExitStatus::localFile;
    }
    if (attempt.TlsFailed()) {
        return ExitStatus::tls;
    }
    if (attempt.stage == Stage::exchange && result == voInetErrorSuccess) {
        // The library's success is an answer that it does not know.
        return exitStatusOf(voInetErrorFailed, attempt.Answer());
    }
    return exitStatusOf(
        isAnswerDecisive(attempt, result) && attempt.Answer() ? voInetErrorFailed : result,
        attempt.Answer());
}

std::string resultText(const Attempt& attempt) {
    const bool plain = attempt.stage != Stage::exchange && !attempt.Failed();
    return plain ? "ok" : nameWithNumber(attempt.result.value_or(voInetErrorFailed));
}

/// The library uses a name in the place of an address as it is.
const char* hostText(const ActiveTarget& target) {
    const bool isName =
        target.form == HostForm::ip && hostFormOf(target.endpoint.host) != HostForm::ip;
    return isName ? "server" : hostFormText(target.form);
}

std::string hintForRefusal(std::optional<int> reply) {
    if (reply == 407) {
        return "give the proxy's credentials with --proxy-user and --proxy-password-file";
    }
    if (reply == 403) {
        return "the server knows the file but does not let you have it: ask its administrator";
    }
    return "check --user and the password (--password-file, --password-env, --ask-password)";
}

std::string hintFor(ExitStatus status, std::optional<int> reply, std::optional<Stage> stage) {
    switch (status) {
        case ExitStatus::notFound:
            return stage == Stage::logon
                       ? "check --repository: a repository has a file SiteStat.xml at its top"
                       : "check the name of the file and --repository";
        case ExitStatus::refused:
            return hintForRefusal(reply);
        case ExitStatus::unreachable:
            return stage == Stage::exchange
                       ? "check host and port, that the server runs, and whether it wants --ssl"
                       : "check host, port and proxy, and that the server runs: voinet probe "
                         "--timeout 5";
        case ExitStatus::serverError:
            return "try again later, or look into the server's log";
        case ExitStatus::localFile:
            return "check the free space, in the temporary folder too, and your permissions";
        case ExitStatus::tls:
            return "check that the file of --ca has the certificate of the server's CA";
        case ExitStatus::usage:
            return "check the options: voinet --help";
        default:
            return "--log-level detail shows the whole exchange";
    }
}

}  // namespace

FailureReport reportOf(const CommandError& error) {
    FailureReport report;
    report.status = error.Status();
    report.sentence = error.what();
    report.hint = error.Hint();
    return report;
}

FailureReport reportOf(const AttemptLog& attempts, voInetError result) {
    FailureReport report;
    const Attempt* cause = attempts.Cause();
    const auto reply = cause == nullptr ? std::nullopt : cause->Answer();
    report.attempts = attempts.All();
    report.ending = result;
    report.cause = cause == nullptr ? result : cause->result;
    report.status = cause == nullptr ? exitStatusOf(result, reply) : statusOf(*cause);
    report.sentence = cause == nullptr ? meaningOf(result) : causeSentence(*cause);
    const ExchangeOutcome* outcome = cause == nullptr ? nullptr : outcomeOf(*cause);
    const auto stage = cause == nullptr ? std::nullopt : std::optional<Stage>(cause->stage);
    report.hint = outcome == nullptr ? hintFor(report.status, reply, stage) : outcome->hint;
    if (*report.cause == voInetErrorSuccess) {
        report.difference = "the library calls an answer that it does not know a success";
    } else if (*report.cause != result && attempts.MovedOnToMissingForm()) {
        report.difference = "the library then went on to a host form that is not configured";
    } else if (*report.cause != result) {
        report.difference = "the library then went on to the next host form";
    }
    return report;
}

std::string attemptLine(const Attempt& attempt) {
    std::string line =
        fmt::format("{} at {} {}", stageName(attempt.stage), hostText(attempt.target),
                    joinHostPort(attempt.target.endpoint.host, attempt.target.endpoint.port));
    if (!attempt.target.proxy.empty()) {
        line += fmt::format(" through proxy {}{}", attempt.target.proxy,
                            attempt.alternateCredentials ? " (alternate credentials)" : "");
    }
    line += ": ";
    if (const auto reply = attempt.Answer()) {
        line += replyText(attempt, *reply) + ", ";
    }
    line += resultText(attempt);
    if (attempt.Failed() && !attempt.Answer() && !attempt.reason.empty()) {
        line += ": " + attempt.reason;
    }
    return line;
}

std::vector<std::string> reportLines(const FailureReport& report) {
    std::vector<std::string> lines = {"voinet: " + report.sentence};
    for (const Attempt& attempt : report.attempts) {
        lines.push_back("  tried:  " + attemptLine(attempt));
    }
    if (report.cause && *report.cause != voInetErrorSuccess) {
        lines.push_back("  cause:  " + nameWithNumber(*report.cause));
    }
    if (!report.difference.empty()) {
        lines.push_back(
            fmt::format("  result: {}; {}", nameWithNumber(*report.ending), report.difference));
    }
    if (!report.serverText.empty()) {
        lines.push_back("  server: " + report.serverText);
    }
    if (!report.hint.empty()) {
        lines.push_back("  try:    " + report.hint);
    }
    return lines;
}

EventStream::Object reportFields(const FailureReport& report) {
    EventStream::Object fields;
    fields["exitStatus"] = static_cast<int>(report.status);
    fields["exitName"] = exitStatusName(report.status);
    fields["message"] = report.sentence;
    fields["hint"] = report.hint;
    for (const auto& [name, result] :
         {std::pair("result", report.cause), std::pair("finalResult", report.ending)}) {
        fields[name] = nullptr;
        if (result) {
            fields[name] = static_cast<int>(*result);
        }
    }
    return fields;
}

}  // namespace voinet_command
