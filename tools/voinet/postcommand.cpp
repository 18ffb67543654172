#include "postcommand.h"

#include "answertext.h"
#include "commanderror.h"
#include "exchangeoutcome.h"
#include "exchangewatch.h"
#include "failurereport.h"
#include "interrupt.h"
#include "kvecomn/telmcomn.h"
#include "partfile.h"
#include "requestfile.h"
#include "texts.h"
#include "voinet/HTTPConnection.h"

#include <fmt/format.h>
#include <unistd.h>

#include <chrono>

namespace voinet_command {

namespace voInet = tessaro_com::pkm::voInet;
using voInet::voInetError;

namespace {

using Clock = std::chrono::steady_clock;

void checkServerPath(const std::string& path) {
    if (!isUtf8(path) || withoutControls(path) != path) {
        throw CommandError(ExitStatus::usage, "SERVER-PATH: the path is no plain text in UTF-8");
    }
    if (path.empty() || path.front() != '/') {
        // The library puts it behind the port as it is.
        throw CommandError(ExitStatus::usage, "SERVER-PATH: the path does not begin with a slash");
    }
    if (hasBlank(path)) {
        throw CommandError(ExitStatus::usage, "SERVER-PATH: a URL has no blanks",
                           "write %20 for a blank");
    }
}

/// The library begins with the address form, and without one it would send nothing and call that a
/// success.
void checkHosts(const ConnectionOptions& options) {
    if (options.host.empty() && options.hostIp.empty()) {
        throw CommandError(ExitStatus::usage,
                           "no server is named that an exchange could begin with",
                           "give --host HOST[:PORT], or --host-ip, where a name will do as well");
    }
}

/// A plain host, also a name, takes the place of the address.
ConnectionOptions exchangeConnection(const ConnectionOptions& options) {
    ConnectionOptions connection = options;
    connection.hostForm = HostForm::ip;
    return connection;
}

/// One run of `voinet post`, after its arguments are known to be usable.
class Post {
  public:
    Post(const Options& options, const CommandContext& context, std::uint64_t requestSize)
        : m_options(options),
          m_context(context),
          m_requestSize(requestSize),
          m_session(exchangeConnection(options.connection), context),
          m_part(options.post.response, false, "RESPONSE") {}

    ExitStatus Run();

  private:
    void Announce() const;
    voInetError Exchange();
    void ShowTime(std::chrono::seconds elapsed) const;
    [[noreturn]] void Stop();
    void Store();
    ExitStatus Report(voInetError result);
    ExitStatus ReportFailure(voInetError result);
    std::string TakeServerText();
    std::string WhatWasStored() const;
    const Attempt* LatestAnswered() const;
    void Show(const FailureReport& report) const;
    EventStream::Object Fields(const FailureReport& report, const Attempt* decisive) const;
    double Seconds() const;

    const Options& m_options;
    CommandContext m_context;
    std::uint64_t m_requestSize;
    Session m_session;
    PartFile m_part;
    std::optional<std::uint64_t> m_stored;
    Clock::time_point m_start = Clock::now();
};

ExitStatus Post::Run() {
    Announce();
    throwIfInterrupted();
    const voInetError result = Exchange();
    if (result == voInet::voInetErrorPackageReceived) {
        Store();
    }
    return Report(result);
}

void Post::Announce() const {
    const PostOptions& post = m_options.post;
    m_context.events.Write("start", {{"command", "post"},
                                     {"request", post.request},
                                     {"bytes", m_requestSize},
                                     {"serverPath", post.serverPath},
                                     {"response", post.response}});
    const ConnectionOptions& hosts = m_options.connection;
    if (!hosts.hostNetbios.empty() && hosts.hostFqdn.empty()) {
        m_context.console.Line(
            "voinet: warning: without --host-fqdn an exchange never comes to the NetBIOS name");
    }
    m_context.console.Line(fmt::format("voinet: sending {} ({}) to {}", post.request,
                                       formatBytes(m_requestSize), post.serverPath));
}

voInetError Post::Exchange() {
    const bool isTimeShown =
        m_context.console.IsTerminal() && !m_options.output.quiet && !m_options.output.json;
    voInetError result = voInet::voInetErrorShutdown;
    {
        const ExchangeWatch watch(isTimeShown
                                      ? [this](std::chrono::seconds elapsed) { ShowTime(elapsed); }
                                      : ExchangeWatch::Tick(),
                                  [this] { Stop(); });
        // From here on only the watch can stop it.
        voInet::CHttpConnection::m_bShutdown = interrupted();
        result = m_session.Transfer().UploadFileResponse(
            telmcomn_ansi_to_wide(m_options.post.request),
            telmcomn_ansi_to_wide(m_options.post.serverPath),
            telmcomn_ansi_to_wide(m_part.PartPath()), nullptr);
    }
    m_session.Finish(Stage::exchange, result);
    return result;
}

/// Time is all that can be told: the library reports no progress of an exchange.
void Post::ShowTime(std::chrono::seconds elapsed) const {
    m_context.console.Bar(fmt::format("waiting for the exchange to end, {}",
                                      formatDuration(static_cast<std::uint64_t>(elapsed.count()))));
}

/// Ends the process beside the exchange that goes on.
void Post::Stop() {
    m_part.Abandon();
    const FailureReport report = reportOf(
        CommandError(ExitStatus::cancelled, "stopped; the server may have the request all the same",
                     fmt::format("{} is as it was; run the command again", m_part.LocalPath())));
    Show(report);
    m_context.events.Write("result", reportFields(report));
    ::_exit(static_cast<int>(report.status));
}

void Post::Store() {
    if (!m_part.Arrived()) {
        throw CommandError(ExitStatus::localFile,
                           fmt::format("the package is not in {}", m_part.PartPath()),
                           "let nothing else work on this file");
    }
    m_stored = m_part.Size();
    try {
        m_part.Commit();
    } catch (const CommandError& error) {
        // The server may not send it twice.
        throw CommandError(error.Status(), error.what(),
                           fmt::format("the package is in {}: move it from there before you post "
                                       "again",
                                       m_part.PartPath()));
    }
}

const Attempt* Post::LatestAnswered() const {
    const auto& all = m_session.Attempts().All();
    return !all.empty() && all.back().Answer() ? &all.back() : nullptr;
}

/// What the server wrote beside an answer that brings no package; it is nothing to keep.
std::string Post::TakeServerText() {
    std::string text;
    if (LatestAnswered() != nullptr && m_part.Size() <= kMaxAnswerText && m_part.Size() > 0) {
        text = m_context.masker.Mask("voinet", answerText(m_part.Head(kMaxAnswerText)));
    }
    m_part.Discard();
    return text;
}

std::string Post::WhatWasStored() const {
    return m_stored ? fmt::format(": {} in {}, after {:.1f} s", formatBytes(*m_stored),
                                  m_part.LocalPath(), Seconds())
                    : std::string();
}

double Post::Seconds() const {
    return std::chrono::duration<double>(Clock::now() - m_start).count();
}

ExitStatus Post::Report(voInetError result) {
    const Attempt* answered = LatestAnswered();
    const ExchangeOutcome* outcome = findExchangeOutcome(result);
    if (outcome == nullptr || answered == nullptr || answered->Failed()) {
        return ReportFailure(result);
    }
    FailureReport report;
    report.status = exitStatusOf(result, std::nullopt);
    report.sentence =
        fmt::format("{} (HTTP {}){}", outcome->sentence, *answered->Answer(), WhatWasStored());
    report.hint = outcome->hint;
    report.serverText = m_stored ? std::string() : TakeServerText();
    Show(report);
    // Shown in words already.
    report.cause = result;
    report.ending = result;
    m_context.events.Write("result", Fields(report, answered));
    return report.status;
}

ExitStatus Post::ReportFailure(voInetError result) {
    FailureReport report = reportOf(m_session.Attempts(), result);
    const Attempt* cause = m_session.Attempts().Cause();
    const bool isLatest = cause != nullptr && cause == LatestAnswered();
    const std::string text = TakeServerText();
    report.serverText = isLatest ? text : std::string();
    if (report.status == ExitStatus::tls && m_options.connection.caFile.empty()) {
        report.hint = "give the certificate of the server's CA with --ca FILE";
    }
    Show(report);
    m_context.events.Write("result", Fields(report, cause));
    return report.status;
}

void Post::Show(const FailureReport& report) const {
    for (const std::string& line : reportLines(report)) {
        m_context.console.Line(line);
    }
}

EventStream::Object Post::Fields(const FailureReport& report, const Attempt* decisive) const {
    EventStream::Object fields = reportFields(report);
    for (const char* name : {"outcome", "httpStatus", "response", "bytes"}) {
        fields[name] = nullptr;
    }
    if (decisive != nullptr && decisive->Answer()) {
        fields["httpStatus"] = *decisive->Answer();
        if (const ExchangeOutcome* outcome = findExchangeOutcome(*decisive->result)) {
            fields["outcome"] = outcome->name;
        }
    }
    if (m_stored) {
        fields["response"] = m_part.LocalPath();
        fields["bytes"] = *m_stored;
    }
    fields["serverText"] = report.serverText;
    fields["seconds"] = Seconds();
    return fields;
}

}  // namespace

ExitStatus runPost(const Options& options, const CommandContext& context) {
    checkHosts(options.connection);
    checkServerPath(options.post.serverPath);
    const std::uint64_t size = checkRequestFile(options.post.request, options.post.response);
    return Post(options, context, size).Run();
}

}  // namespace voinet_command
