#ifndef VOINET_BENCH_QUIETHOST_H
#define VOINET_BENCH_QUIETHOST_H

#include <kvecomn/hostlog.h>
#include <voinet/voinet.h>

/// Counts the notifications and never stops a transfer.
struct CountingSink : tessaro_com::pkm::voInet::CNetSessionSink {
    unsigned long calls = 0;

    void OnTransferProgress(unsigned long* /*done*/, long* /*total*/, int* /*status*/,
                            const wchar_t* /*site*/, const wchar_t* /*host*/,
                            const wchar_t* /*url*/, bool* /*goOn*/) override {
        ++calls;
    }
};

/// Drops all log lines: a real host keeps a log of its own, which is not what is measured.
inline void dropLogLines() {
    hostLogSetHandler([](HostLogLevel, const wchar_t*, const wchar_t*) {});
}

#endif  // VOINET_BENCH_QUIETHOST_H
