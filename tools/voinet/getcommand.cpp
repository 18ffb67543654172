#include "getcommand.h"

#include "commanderror.h"
#include "digest.h"
#include "failurereport.h"
#include "interrupt.h"
#include "kvecomn/telmcomn.h"
#include "partfile.h"
#include "progress.h"
#include "progressviews.h"
#include "texts.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <chrono>

namespace voinet_command {

using tessaro_com::pkm::voInet::voInetError;
using tessaro_com::pkm::voInet::voInetErrorCancelled;
using tessaro_com::pkm::voInet::voInetErrorSuccess;
using tessaro_com::pkm::voInet::voInetProtocolLocal;

namespace {

// The sink's status at the end of a local copy that it stopped; the result is success all the same.
constexpr int kStatusLocalCopyStopped = 15;
constexpr int kFirstStatusWithoutFile = 300;

void checkRemoteName(const Options& options) {
    const std::string& remote = options.get.remote;
    if (remote.empty() || !isUtf8(remote) || withoutControls(remote) != remote) {
        throw CommandError(ExitStatus::usage,
                           "REMOTE: the file name is empty or no plain text in UTF-8");
    }
    if (options.connection.protocol != voInetProtocolLocal && hasBlank(remote)) {
        // The library would end the URL there and fetch another file.
        throw CommandError(ExitStatus::usage, "REMOTE: a URL has no blanks",
                           "write %20 for a blank");
    }
}

/// A copy of a folder or a FIFO would end early or never.
void checkLocalSource(const Options& options) {
    if (options.connection.protocol != voInetProtocolLocal) {
        return;
    }
    const std::string source = options.connection.repository + "/" + options.get.remote;
    struct stat info {};
    if (::stat(source.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
        throw CommandError(ExitStatus::notFound, fmt::format("{} is no regular file", source),
                           "name a file of the repository");
    }
}

std::string baseName(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

/// One run of `voinet get`, after its arguments are known to be usable.
class Download {
  public:
    Download(const Options& options, const CommandContext& context)
        : m_options(options),
          m_context(context),
          m_session(options.connection, context),
          m_part(options.get.local, Resumes()),
          m_offset(m_part.ResumeOffset()),
          m_view(makeProgressView(options.output, context.console, context.events,
                                  baseName(options.get.remote))),
          m_sink(&m_offset, m_view.get()) {}

    ExitStatus Run();

  private:
    bool IsLocalCopy() const { return m_options.connection.protocol == voInetProtocolLocal; }
    /// A local copy always starts from the beginning.
    bool Resumes() const { return m_options.get.resume && !IsLocalCopy(); }

    voInetError Transfer();
    bool WasCancelled(voInetError result) const;
    [[noreturn]] void ThrowCancelled();
    ExitStatus Fail(voInetError result);
    void CheckArrival();
    void CheckProxyAnswer();
    void CheckSize();
    void CheckDigest();
    void PutInPlace();
    void Announce() const;
    void ReportSuccess() const;
    const Attempt* LatestAttempt() const;
    std::string Warning() const;

    const Options& m_options;
    CommandContext m_context;
    Session m_session;
    PartFile m_part;
    long m_offset;
    std::unique_ptr<ProgressView> m_view;
    ProgressSink m_sink;
    std::string m_digest;
    std::uint64_t m_size = 0;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

ExitStatus Download::Run() {
    Announce();
    if (const voInetError logon = m_session.Logon(std::nullopt); logon != voInetErrorSuccess) {
        throwIfInterrupted();
        return Fail(logon);
    }
    throwIfInterrupted();
    const voInetError result = Transfer();
    if (WasCancelled(result)) {
        ThrowCancelled();
    }
    if (result != voInetErrorSuccess) {
        return Fail(result);
    }
    PutInPlace();
    ReportSuccess();
    return ExitStatus::success;
}

void Download::Announce() const {
    EventStream::Object fields;
    fields["command"] = "get";
    // Somebody may have named a URL.
    fields["remote"] = m_context.masker.Mask("voinet", m_options.get.remote);
    fields["local"] = m_part.LocalPath();
    fields["resumeFrom"] = m_offset;
    m_context.events.Write("start", fields);
}

voInetError Download::Transfer() {
    const long askedOffset = m_offset;
    bool resume = m_offset > 0;
    const bool useCache = !m_options.get.noCache;
    const voInetError result = m_session.Transfer().DownloadFile(
        telmcomn_ansi_to_wide(m_part.PartPath()), telmcomn_ansi_to_wide(m_options.get.remote),
        &m_sink, &m_offset, resume, useCache);
    if (result == voInetErrorSuccess || WasCancelled(result)) {
        m_sink.End();
    }
    m_session.Finish(Stage::download, result);
    m_session.Transfer().LogOut();
    if (askedOffset > 0 && m_offset == 0) {
        m_context.log.Write(HostLogLevel::info,
                            "the partial file could not be continued; started over");
    }
    return result;
}

bool Download::WasCancelled(voInetError result) const {
    if (IsLocalCopy()) {
        return m_sink.LastStatus() == kStatusLocalCopyStopped;
    }
    return result == voInetErrorCancelled || (result != voInetErrorSuccess && interrupted());
}

void Download::ThrowCancelled() {
    m_part.DiscardIfEmpty();
    const std::uint64_t kept = m_part.Size();
    if (kept == 0) {
        throw CommandError(ExitStatus::cancelled, "stopped before anything had arrived");
    }
    throw CommandError(
        ExitStatus::cancelled,
        fmt::format("stopped; {} of the file are kept in {}", formatBytes(kept), m_part.PartPath()),
        IsLocalCopy() ? "run the command again" : "run the command again with --resume");
}

ExitStatus Download::Fail(voInetError result) {
    m_part.DiscardIfNew();
    FailureReport report = reportOf(m_session.Attempts(), result);
    if (report.status == ExitStatus::localFile && !m_context.log.LatestError().empty()) {
        report.sentence += ": " + m_context.log.LatestError();
    }
    for (const std::string& line : reportLines(report)) {
        m_context.console.Line(line);
    }
    m_context.events.Write("result", reportFields(report));
    return report.status;
}

void Download::PutInPlace() {
    CheckArrival();
    CheckProxyAnswer();
    CheckSize();
    CheckDigest();
    try {
        m_part.Commit();
    } catch (const CommandError&) {
        m_part.DiscardIfNew();
        throw;
    }
}

void Download::CheckArrival() {
    // The library's success does not cover the replacement of its local file.
    if (!m_part.Arrived()) {
        const std::string& reason = m_context.log.LatestError();
        throw CommandError(ExitStatus::localFile,
                           fmt::format("the download could not be stored in {}{}",
                                       m_part.PartPath(), reason.empty() ? "" : ": " + reason),
                           "check the free space and your permissions");
    }
    m_size = m_part.Size();
}

/// The library takes a proxy's answers up to 400 for a file from FTP.
void Download::CheckProxyAnswer() {
    const Attempt* attempt = LatestAttempt();
    if (attempt == nullptr || !attempt->target.ftp || attempt->replyIsFtp ||
        attempt->reply.value_or(0) < kFirstStatusWithoutFile) {
        return;
    }
    m_part.Discard();
    throw CommandError(ExitStatus::serverError,
                       fmt::format("the proxy {} answered HTTP {} in the place of the file",
                                   attempt->target.proxy, *attempt->reply),
                       "look into the proxy's log");
}

const Attempt* Download::LatestAttempt() const {
    const auto& all = m_session.Attempts().All();
    return all.empty() ? nullptr : &all.back();
}

/// Empty when there is nothing to warn of.
std::string Download::Warning() const {
    const Attempt* attempt = LatestAttempt();
    const bool isDoubtful = attempt != nullptr && attempt->target.ftp &&
                            !attempt->target.proxy.empty() && m_options.get.sha256.empty();
    return isDoubtful ? "the file came from FTP through a proxy, whose error page can look like a "
                        "file; give --sha256 to be sure"
                      : "";
}

void Download::CheckSize() {
    const auto moved = m_sink.Announced() ? m_sink.Announced() : m_sink.Moved();
    if (!m_sink.Announced() && m_size > 0) {
        m_context.log.Write(HostLogLevel::detail,
                            "the server announced no size; only what arrived was counted");
    }
    if (!moved) {
        return;
    }
    const std::uint64_t expected = *moved + static_cast<std::uint64_t>(m_offset);
    if (m_size != expected) {
        m_part.Discard();
        throw CommandError(ExitStatus::integrity,
                           fmt::format("the file has {} bytes and not the {} that were announced",
                                       m_size, expected),
                           "run the command again");
    }
}

void Download::CheckDigest() {
    if (m_options.get.sha256.empty()) {
        return;
    }
    m_digest = m_part.Digest();
    if (!sameDigest(m_digest, m_options.get.sha256)) {
        // A resume would only end in the same bytes.
        m_part.Discard();
        throw CommandError(ExitStatus::integrity,
                           fmt::format("the file's SHA-256 digest is {} and not {}", m_digest,
                                       m_options.get.sha256),
                           "check the digest; if it is right, the server has another file");
    }
}

void Download::ReportSuccess() const {
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - m_start;
    m_context.console.Line(fmt::format("voinet: {}: {} in {:.1f} s{}", m_part.LocalPath(),
                                       formatBytes(m_size), time.count(),
                                       m_digest.empty() ? "" : ", SHA-256 is right"));
    const std::string warning = Warning();
    if (!warning.empty()) {
        m_context.console.Line("voinet: warning: " + warning);
    }
    EventStream::Object fields;
    fields["exitStatus"] = static_cast<int>(ExitStatus::success);
    fields["exitName"] = exitStatusName(ExitStatus::success);
    fields["result"] = static_cast<int>(voInetErrorSuccess);
    fields["local"] = m_part.LocalPath();
    fields["bytes"] = m_size;
    fields["resumedFrom"] = m_offset;
    fields["sha256"] = nullptr;
    if (!m_digest.empty()) {
        fields["sha256"] = m_digest;
    }
    fields["seconds"] = time.count();
    fields["warning"] = nullptr;
    if (!warning.empty()) {
        fields["warning"] = warning;
    }
    m_context.events.Write("result", fields);
}

}  // namespace

ExitStatus runGet(const Options& options, const CommandContext& context) {
    checkRemoteName(options);
    checkLocalSource(options);
    return Download(options, context).Run();
}

}  // namespace voinet_command
