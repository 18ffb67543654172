// A host process of another project: copies one file out of a local repository.
#include <kvecomn/hostlog.h>
#include <kvecomn/telmcomn.h>
#include <voinet/voinet.h>

#include <cstdio>

namespace net = tessaro_com::pkm::voInet;

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: consumer REPOSITORY REMOTE-FILE LOCAL-FILE\n");
        return 2;
    }
    hostLogSetHandler([](HostLogLevel level, const wchar_t*, const wchar_t* message) {
        if (level == HostLogLevel::error) {
            std::printf("error: %s\n", telmcomn_wide_to_ansi(message).c_str());
        }
    });
    net::VoInetItfFactory factory;
    net::TransferItf* transfer = factory.CreateInterface(net::voInetProtocolLocal);
    transfer->SetOption(net::voInetOptionRelativePath, net::utf8_to_unicode(argv[1]));
    long resumeOffset = 0;
    bool resume = false;
    const net::voInetError result =
        transfer->DownloadFile(net::utf8_to_unicode(argv[3]), net::utf8_to_unicode(argv[2]),
                               nullptr, &resumeOffset, resume, true);
    factory.DestroyInterface(transfer);
    std::printf("result: %d\n", result);
    return result == net::voInetErrorSuccess ? 0 : 1;
}
