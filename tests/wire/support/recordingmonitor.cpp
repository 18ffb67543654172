#include "support/recordingmonitor.h"

namespace tessaro_com::pkm::voInet::wire {

namespace {

/// Derived from nothing: a host may throw what it likes.
struct ThrownByTheMonitor {};

}  // namespace

std::ostream& operator<<(std::ostream& stream, MonitorCall call) {
    switch (call) {
        case MonitorCall::started:
            return stream << "OnRequestStarted";
        case MonitorCall::headers:
            return stream << "OnHeaders";
        case MonitorCall::ended:
            return stream << "OnRequestEnded";
        case MonitorCall::keeps:
            return stream << "KeepsWhatArrived";
        case MonitorCall::goesOn:
            return stream << "GoesOn";
        case MonitorCall::limits:
            return stream << "Limits";
    }
    return stream;
}

std::vector<MonitorCall> RecordingMonitor::calls() const {
    std::vector<MonitorCall> calls;
    calls.reserve(m_entries.size());
    for (const auto& entry : m_entries) {
        calls.push_back(entry.call);
    }
    return calls;
}

std::vector<RequestRecord> RecordingMonitor::records(MonitorCall call) const {
    std::vector<RequestRecord> found;
    for (const auto& entry : m_entries) {
        if (entry.call == call) {
            found.push_back(entry.record);
        }
    }
    return found;
}

std::vector<RequestRecord> RecordingMonitor::records() const {
    std::vector<RequestRecord> all;
    all.reserve(m_entries.size());
    for (const auto& entry : m_entries) {
        all.push_back(entry.record);
    }
    return all;
}

void RecordingMonitor::OnRequestStarted(const RequestRecord& request) {
    record(MonitorCall::started, request);
}

void RecordingMonitor::OnHeaders(const RequestRecord& request) {
    record(MonitorCall::headers, request);
}

void RecordingMonitor::OnRequestEnded(const RequestRecord& request) {
    record(MonitorCall::ended, request);
}

bool RecordingMonitor::GoesOn() {
    enter(MonitorCall::goesOn);
    return m_goesOn();
}

bool RecordingMonitor::KeepsWhatArrived(const RequestRecord& request) {
    record(MonitorCall::keeps, request);
    return m_keeps;
}

TransferLimits RecordingMonitor::Limits() {
    enter(MonitorCall::limits);
    return m_limits;
}

void RecordingMonitor::record(MonitorCall call, const RequestRecord& request) {
    m_entries.push_back({call, request});
    enter(call);
}

void RecordingMonitor::enter(MonitorCall call) {
    m_threads.insert(std::this_thread::get_id());
    if (m_throwing == call) {
        throw ThrownByTheMonitor();
    }
}

std::vector<std::string> textsOf(const RequestRecord& record) {
    std::vector<std::string> texts = {record.url, record.effectiveUrl, record.proxy,
                                      record.remoteAddress, record.reason};
    for (const auto& header : record.headers) {
        texts.push_back(header.name);
        texts.push_back(header.value);
    }
    return texts;
}

std::optional<std::string> headerOf(const RequestRecord& record, const std::string& name) {
    for (const auto& header : record.headers) {
        if (header.name == name) {
            return header.value;
        }
    }
    return std::nullopt;
}

}  // namespace tessaro_com::pkm::voInet::wire
