#ifndef VOINET_TESTS_UNIT_SUPPORT_RECORDINGSINK_H
#define VOINET_TESTS_UNIT_SUPPORT_RECORDINGSINK_H

#include "voinet/netsessionsink.h"

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace voinet_test {

/// One call of a sink.
struct Progress {
    unsigned long done = 0;
    long total = 0;
    int status = 0;

    bool operator==(const Progress& other) const {
        return done == other.done && total == other.total && status == other.status;
    }
    friend std::ostream& operator<<(std::ostream& stream, const Progress& progress) {
        return stream << progress.done << " of " << progress.total << ", status "
                      << progress.status;
    }
};

/// Writes down what it is told, and stops the transfer at a chosen call.
class RecordingSink : public tessaro_com::pkm::voInet::CNetSessionSink {
  public:
    /// Clears the continue flag at the call with this number, counted from 1.
    RecordingSink& stopAt(std::size_t call) {
        m_stopAt = call;
        return *this;
    }
    /// Called with each report, after it was written down; may throw.
    RecordingSink& then(std::function<void(const Progress&)> hook) {
        m_hook = std::move(hook);
        return *this;
    }

    void OnTransferProgress(unsigned long* bytesDone, long* bytesTotal, int* status,
                            const wchar_t* siteText1, const wchar_t* siteText2,
                            const wchar_t* remoteUrl, bool* goOn) override {
        reports.push_back({*bytesDone, *bytesTotal, *status});
        texts = {siteText1, siteText2, remoteUrl};
        allStartedTrue = allStartedTrue && *goOn;
        if (reports.size() == m_stopAt) {
            *goOn = false;
        }
        if (m_hook) {
            m_hook(reports.back());
        }
    }

    std::vector<Progress> reports;
    /// Site texts and URL of the latest report.
    std::vector<std::wstring> texts;
    bool allStartedTrue = true;

  private:
    std::size_t m_stopAt = 0;
    std::function<void(const Progress&)> m_hook;
};

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_RECORDINGSINK_H
