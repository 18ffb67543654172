#ifndef VOINET_TESTS_TORTURE_SUPPORT_OBSERVERS_H
#define VOINET_TESTS_TORTURE_SUPPORT_OBSERVERS_H

#include "voinet/netsessionsink.h"
#include "voinet/transfermonitor.h"

// A host's ends of a transfer. They take no memory, so that all that fails is the library's.

namespace tessaro_com::pkm::voInet::torture {

/// Lets every transfer go on.
class PatientSink : public CNetSessionSink {
  public:
    void OnTransferProgress(unsigned long* /*bytesDone*/, long* /*bytesTotal*/, int* /*status*/,
                            const wchar_t* /*siteText1*/, const wchar_t* /*siteText2*/,
                            const wchar_t* /*remoteUrl*/, bool* /*goOn*/) override {}
};

/// The monitor of the thread for as long as it lives; counts its calls.
class CountingMonitor : public TransferMonitor {
  public:
    CountingMonitor() : m_former(setTransferMonitor(this)) {}
    ~CountingMonitor() override { setTransferMonitor(m_former); }

    CountingMonitor(const CountingMonitor&) = delete;
    CountingMonitor& operator=(const CountingMonitor&) = delete;

    void OnRequestStarted(const RequestRecord& /*request*/) override { ++m_started; }
    void OnHeaders(const RequestRecord& /*request*/) override { ++m_headers; }
    void OnRequestEnded(const RequestRecord& /*request*/) override { ++m_ended; }

    int started() const { return m_started; }
    int headers() const { return m_headers; }
    int ended() const { return m_ended; }

  private:
    TransferMonitor* m_former;
    int m_started = 0;
    int m_headers = 0;
    int m_ended = 0;
};

}  // namespace tessaro_com::pkm::voInet::torture

#endif  // VOINET_TESTS_TORTURE_SUPPORT_OBSERVERS_H
