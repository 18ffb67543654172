// A download with the library: library_download http|ftp HOST:PORT REMOTE-FILE LOCAL-FILE
#include "countingsink.h"
#include "voinet/voinet.h"

#include <cstdio>
#include <cstring>

using namespace tessaro_com::pkm::voInet;

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: library_download http|ftp HOST:PORT REMOTE-FILE LOCAL-FILE\n");
        return 2;
    }
    VoInetItfFactory factory;
    TransferItf* transfer = factory.CreateInterface(
        std::strcmp(argv[1], "ftp") == 0 ? voInetProtocolFtp : voInetProtocolHttp);
    transfer->SetOption(voInetOptionSite, utf8_to_unicode("bench"));
    transfer->SetOption(voInetOptionHostIP, utf8_to_unicode(argv[2]));
    CountingSink sink;
    bool resume = false;
    voInetError result = transfer->Logon(false, 0);
    if (result == voInetErrorSuccess) {
        result = transfer->DownloadFile(utf8_to_unicode(argv[4]), utf8_to_unicode(argv[3]), &sink,
                                        nullptr, resume, true);
    }
    factory.DestroyInterface(transfer);
    std::printf("result %d, %lu notifications\n", result, sink.calls);
    return result == voInetErrorSuccess ? 0 : 1;
}
