// A host process: downloads one file over HTTP and shows the progress.
#include <voinet/voinet.h>

#include <cstdio>

using namespace tessaro_com::pkm::voInet;

struct Progress : CNetSessionSink {
    void OnTransferProgress(unsigned long* done, long* total, int*, const wchar_t*, const wchar_t*,
                            const wchar_t*, bool* goOn) override {
        std::printf("\r%lu of %ld bytes", *done, *total);
        *goOn = true;  // false stops the transfer
    }
};

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: host HOST:PORT REMOTE-FILE LOCAL-FILE\n");
        return 2;
    }
    VoInetItfFactory factory;
    TransferItf* transfer = factory.CreateInterface(voInetProtocolHttp);
    transfer->SetOption(voInetOptionSite, utf8_to_unicode("default"));
    transfer->SetOption(voInetOptionHostFqdn, utf8_to_unicode(argv[1]));
    voInetError result = transfer->Logon(false, 0);
    if (result == voInetErrorSuccess) {
        Progress progress;
        long resumeOffset = 0;
        bool resume = false;
        result = transfer->DownloadFile(utf8_to_unicode(argv[3]), utf8_to_unicode(argv[2]),
                                        &progress, &resumeOffset, resume, true);
    }
    transfer->LogOut();
    factory.DestroyInterface(transfer);
    std::printf("\nresult: %d\n", result);
    return result == voInetErrorSuccess ? 0 : 1;
}
