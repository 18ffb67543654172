#ifndef VOINET_TESTS_WIRE_SUPPORT_RECORDINGMONITOR_H
#define VOINET_TESTS_WIRE_SUPPORT_RECORDINGMONITOR_H

#include "voinet/transfermonitor.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

/// The operations of a monitor.
enum class MonitorCall { started, headers, ended, keeps, goesOn, limits };

std::ostream& operator<<(std::ostream& stream, MonitorCall call);

/// Records what a monitor is told, and decides or throws as it is asked to. Unasked it changes
/// nothing.
class RecordingMonitor : public TransferMonitor {
  public:
    /// GoesOn answers false from the moment at which this does; it may look at the sink.
    void goOnWhile(std::function<bool()> condition) { m_goesOn = std::move(condition); }
    void keepWhatArrived() { m_keeps = true; }
    void limit(const TransferLimits& limits) { m_limits = limits; }
    void throwIn(MonitorCall call) { m_throwing = call; }

    /// The calls that bring a record, in order.
    std::vector<MonitorCall> calls() const;
    /// The records that one kind of call brought.
    std::vector<RequestRecord> records(MonitorCall call) const;
    /// All records.
    std::vector<RequestRecord> records() const;
    std::size_t count(MonitorCall call) const { return records(call).size(); }
    const std::set<std::thread::id>& threads() const { return m_threads; }

    void OnRequestStarted(const RequestRecord& request) override;
    void OnHeaders(const RequestRecord& request) override;
    void OnRequestEnded(const RequestRecord& request) override;
    bool GoesOn() override;
    bool KeepsWhatArrived(const RequestRecord& request) override;
    TransferLimits Limits() override;

  private:
    struct Entry {
        MonitorCall call;
        RequestRecord record;
    };

    void record(MonitorCall call, const RequestRecord& request);
    void enter(MonitorCall call);

    std::vector<Entry> m_entries;
    std::set<std::thread::id> m_threads;
    std::function<bool()> m_goesOn = [] { return true; };
    bool m_keeps = false;
    TransferLimits m_limits;
    std::optional<MonitorCall> m_throwing;
};

/// A monitor is that of the calling thread for as long as this lives.
class MonitorScope {
  public:
    explicit MonitorScope(TransferMonitor& monitor) : m_former(setTransferMonitor(&monitor)) {}
    ~MonitorScope() { setTransferMonitor(m_former); }

    MonitorScope(const MonitorScope&) = delete;
    MonitorScope& operator=(const MonitorScope&) = delete;

  private:
    TransferMonitor* m_former;
};

/// The fixture `Base` with a monitor, which watches from watch() on.
template <class Base>
class Monitored : public Base {
  protected:
    void TearDown() override {
        m_scope.reset();
        Base::TearDown();
    }

    RecordingMonitor& monitor() { return m_monitor; }
    void watch() { m_scope.emplace(m_monitor); }

    /// The record with this number of one kind of call; a missing one fails the test.
    RequestRecord recordOf(MonitorCall call, std::size_t number = 0) const {
        const auto records = m_monitor.records(call);
        EXPECT_LT(number, records.size()) << call << " was not called so often";
        return number < records.size() ? records[number] : RequestRecord();
    }
    RequestRecord started(std::size_t number = 0) const {
        return recordOf(MonitorCall::started, number);
    }
    RequestRecord ended(std::size_t number = 0) const {
        return recordOf(MonitorCall::ended, number);
    }

  private:
    RecordingMonitor m_monitor;
    std::optional<MonitorScope> m_scope;
};

/// Every text of a record.
std::vector<std::string> textsOf(const RequestRecord& record);

/// The value of the first header line of that name, spelled as the server did.
std::optional<std::string> headerOf(const RequestRecord& record, const std::string& name);

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_RECORDINGMONITOR_H
