#include "download.h"

#include <curl/curl.h>

#include <optional>

namespace tessaro_com::pkm::voInet {

namespace {

/// Larger than libcurl's own 16 KiB, which costs a fifth more CPU time; more than this saves
/// nothing further. A libcurl that refuses it keeps its own.
constexpr long kReceiveBufferSize = 64L * 1024;

/// Results that make a download start over from byte 0.
bool asksForRestart(voInetError result) {
    return result == voInetErrorRangeNotSatisfiable || result == voInetErrorRangeIgnored;
}

/// One download while it is made.
class Download {
  public:
    explicit Download(const DownloadJob& job)
        : m_job(job), m_offset(job.resumeOffset == nullptr ? m_fromStart : *job.resumeOffset) {}

    voInetError run() {
        if (m_offset > 0 && !checkPrefix()) {
            return voInetErrorCancelled;
        }
        const voInetError result = transfer();
        if (!asksForRestart(result)) {
            return result;
        }
        m_offset = 0;
        m_total.reset();
        m_isRestart = true;
        return transfer();
    }

  private:
    /// Begins at the start when the local file does not match. False when the monitor has stopped
    /// the check.
    bool checkPrefix() {
        CallbackManager manager = makeManager(true);
        RequestWatch watch(m_job.connection, requestPrefixCheck, manager.GetRemoteUrl(), m_offset);
        // Whatever it ends with, the comparison decides.
        m_job.makePass(manager);
        const AnswerHead& answer = watch.answer();
        const bool isPart = answer.status() == 206 && answer.hasContentRange();
        const bool isElsewhere =
            isPart && (!answer.contentRange() || answer.contentRange()->first != m_offset);
        if (watch.isStopped()) {
            return false;
        }
        if (isElsewhere || !manager.IsPrefixMatched()) {
            m_offset = 0;
        } else if (isPart) {
            m_total = answer.contentRange()->total;
        }
        return true;
    }

    voInetError transfer() {
        CallbackManager manager = makeManager(false);
        RequestWatch watch(m_job.connection, requestDownload, manager.GetRemoteUrl(), m_offset);
        watch.expectTotal(m_total);
        if (!m_isRestart || m_job.restartIsReported) {
            manager.InstallProgressSink(m_job.sink);
        }
        const PassOutcome outcome = m_job.makePass(manager);
        if (isPutInPlace(outcome, watch, manager)) {
            manager.FinishTransfer();
        }
        return outcome.result;
    }

    bool isPutInPlace(const PassOutcome& outcome, RequestWatch& watch,
                      const CallbackManager& manager) const {
        switch (outcome.result) {
            case voInetErrorSuccess:
                return outcome.hasFile;
            case voInetErrorCancelled:
                // What has arrived can be resumed later, but for one that had started over;
                // intended.
                return outcome.hasFile && !m_isRestart && answersRange(watch, manager, false);
            default:
                return !asksForRestart(outcome.result) && answersRange(watch, manager, false) &&
                       watch.keepsWhatArrived();
        }
    }

    CallbackManager makeManager(bool prefixCheck) const {
        return CallbackManager(CallbackManager::TransferDownload, m_job.localFile,
                               m_job.connection.m_strSite, m_job.connection.m_strHost, m_job.url,
                               m_offset, prefixCheck);
    }

    const DownloadJob& m_job;
    long m_fromStart = 0;
    long& m_offset;
    /// Size of the file at the server as the check saw it.
    std::optional<std::int64_t> m_total;
    bool m_isRestart = false;
};

}  // namespace

voInetError downloadResumably(const DownloadJob& job) {
    return Download(job).run();
}

RequestWatch& watchOfPass(std::unique_ptr<RequestWatch>& own, const CNetConnection& connection,
                          const CallbackManager& manager) {
    RequestWatch* const current = RequestWatch::current();
    if (current != nullptr) {
        return *current;
    }
    own = std::make_unique<RequestWatch>(connection, requestDownload, manager.GetRemoteUrl(),
                                         manager.GetStartPosition());
    return *own;
}

void addDownloadOptions(CURL* handle, RequestWatch& watch) {
    curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, kReceiveBufferSize);
    watch.receiveHeaders(handle);
    watch.addMonitorOptions(handle);
}

bool answersRange(const RequestWatch& watch, const CallbackManager& manager, bool isComplete) {
    const AnswerHead& answer = watch.answer();
    const std::int64_t start = manager.GetStartPosition();
    if (answer.status() == 200) {
        return start < 1;
    }
    if (answer.status() != 206 || !answer.hasContentRange()) {
        return true;
    }
    const auto range = answer.contentRange();
    const bool isAsked = range && range->first == (start < 1 ? 0 : start) &&
                         range->last == range->total - 1 &&
                         watch.expectedTotal().value_or(range->total) == range->total;
    return isAsked && (!isComplete || watch.received() == range->size());
}

std::string rangeOf(const CallbackManager& manager) {
    std::string range = std::to_string(manager.GetStartPosition()) + "-";
    if (manager.GetEndPosition() > 0) {
        range += std::to_string(manager.GetEndPosition());
    }
    return range;
}

}  // namespace tessaro_com::pkm::voInet
