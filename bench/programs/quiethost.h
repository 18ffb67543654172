#ifndef VOINET_BENCH_COUNTINGSINK_H
#define VOINET_BENCH_COUNTINGSINK_H

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

#endif  // VOINET_BENCH_COUNTINGSINK_H
