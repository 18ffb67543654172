#ifndef VOINET_TESTS_WIRE_SUPPORT_RECORDINGSINK_H
#define VOINET_TESTS_WIRE_SUPPORT_RECORDINGSINK_H

#include "voinet/netsessionsink.h"

#include <functional>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

/// What a sink was told.
struct Notification {
    unsigned long done = 0;
    long total = 0;
    int status = 0;
    std::wstring siteText1;
    std::wstring siteText2;
    std::wstring remoteUrl;
    /// The continue flag as the library handed it over.
    bool goOn = false;
};

/// Records all notifications, and stops the transfer or throws when it is asked to.
class RecordingSink : public CNetSessionSink {
  public:
    /// When to do something: looks at the notification that has just been recorded.
    using Condition = std::function<bool(const Notification&)>;

    void stopWhen(Condition condition) { m_stop = std::move(condition); }
    void stopAt(unsigned long bytesDone) {
        stopWhen([bytesDone](const Notification& now) { return now.done >= bytesDone; });
    }
    void throwWhen(Condition condition) { m_throw = std::move(condition); }

    const std::vector<Notification>& notifications() const { return m_notifications; }
    std::vector<int> statuses() const;
    /// Of the latest notification, 0 when there was none.
    unsigned long bytesDone() const;

    void OnTransferProgress(unsigned long* bytesDone, long* bytesTotal, int* status,
                            const wchar_t* siteText1, const wchar_t* siteText2,
                            const wchar_t* remoteUrl, bool* goOn) override;

  private:
    std::vector<Notification> m_notifications;
    Condition m_stop;
    Condition m_throw;
};

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_RECORDINGSINK_H
