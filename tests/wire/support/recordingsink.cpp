#include "support/recordingsink.h"

#include <stdexcept>

namespace tessaro_com::pkm::voInet::wire {

std::vector<int> RecordingSink::statuses() const {
    std::vector<int> statuses;
    statuses.reserve(m_notifications.size());
    for (const auto& notification : m_notifications) {
        statuses.push_back(notification.status);
    }
    return statuses;
}

unsigned long RecordingSink::bytesDone() const {
    return m_notifications.empty() ? 0 : m_notifications.back().done;
}

void RecordingSink::OnTransferProgress(unsigned long* bytesDone, long* bytesTotal, int* status,
                                       const wchar_t* siteText1, const wchar_t* siteText2,
                                       const wchar_t* remoteUrl, bool* goOn) {
    m_notifications.push_back(
        {*bytesDone, *bytesTotal, *status, siteText1, siteText2, remoteUrl, *goOn});
    if (m_stop && m_stop(m_notifications.back())) {
        *goOn = false;
    }
    if (m_throw && m_throw(m_notifications.back())) {
        throw std::runtime_error("thrown by the sink");
    }
}

}  // namespace tessaro_com::pkm::voInet::wire
