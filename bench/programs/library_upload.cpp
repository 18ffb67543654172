// An exchange with the library: library_upload HOST:PORT REQUEST-FILE RESPONSE-FILE
#include "quiethost.h"

#include <cstdio>

using namespace tessaro_com::pkm::voInet;

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: library_upload HOST:PORT REQUEST-FILE RESPONSE-FILE\n");
        return 2;
    }
    dropLogLines();
    VoInetItfFactory factory;
    TransferItf* transfer = factory.CreateInterface(voInetProtocolHttp);
    transfer->SetOption(voInetOptionSite, utf8_to_unicode("bench"));
    transfer->SetOption(voInetOptionHostIP, utf8_to_unicode(argv[1]));
    const voInetError result = transfer->UploadFileResponse(
        utf8_to_unicode(argv[2]), utf8_to_unicode("/sink"), utf8_to_unicode(argv[3]), nullptr);
    factory.DestroyInterface(transfer);
    std::printf("result %d\n", result);
    return result == voInetErrorPackageReceived ? 0 : 1;
}
