#include "voinet/transfermonitor.h"

#include "monitoredrequest.h"

#include <utility>

namespace tessaro_com::pkm::voInet {

namespace {

thread_local TransferMonitor* monitorOfThread = nullptr;

}  // namespace

TransferMonitor::~TransferMonitor() = default;

void TransferMonitor::OnRequestStarted(const RequestRecord& /*request*/) {}

void TransferMonitor::OnHeaders(const RequestRecord& /*request*/) {}

void TransferMonitor::OnRequestEnded(const RequestRecord& /*request*/) {}

bool TransferMonitor::GoesOn() {
    return true;
}

bool TransferMonitor::KeepsWhatArrived(const RequestRecord& /*request*/) {
    return false;
}

TransferLimits TransferMonitor::Limits() {
    return {};
}

TransferMonitor* setTransferMonitor(TransferMonitor* monitor) {
    return std::exchange(monitorOfThread, monitor);
}

TransferMonitor* currentMonitor() {
    return monitorOfThread;
}

}  // namespace tessaro_com::pkm::voInet
