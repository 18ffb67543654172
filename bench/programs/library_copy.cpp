// A local copy with the library: library_copy DIRECTORY [FILE LOCAL-FILE]
// Without a file it only makes the transfer object.
#include "quiethost.h"

#include <cstdio>

using namespace tessaro_com::pkm::voInet;

int main(int argc, char** argv) {
    if (argc != 2 && argc != 4) {
        std::fprintf(stderr, "usage: library_copy DIRECTORY [FILE LOCAL-FILE]\n");
        return 2;
    }
    dropLogLines();
    VoInetItfFactory factory;
    TransferItf* transfer = factory.CreateInterface(voInetProtocolLocal);
    transfer->SetOption(voInetOptionRelativePath, utf8_to_unicode(argv[1]));
    CountingSink sink;
    voInetError result = voInetErrorSuccess;
    if (argc == 4) {
        bool resume = false;
        result = transfer->DownloadFile(utf8_to_unicode(argv[3]), utf8_to_unicode(argv[2]), &sink,
                                        nullptr, resume, true);
    }
    factory.DestroyInterface(transfer);
    std::printf("result %d, %lu notifications\n", result, sink.calls);
    return result == voInetErrorSuccess ? 0 : 1;
}
