// Downloads with the library, after one logon:
//   library_download http|ftp HOST:PORT REMOTE-FILE LOCAL-FILE [COUNT] [same|numbered|resume]
// "resume" continues the partial file that is there.
#include "localfiles.h"
#include "quiethost.h"

#include <cstdio>
#include <cstring>
#include <filesystem>

using namespace tessaro_com::pkm::voInet;

namespace {

/// What the library wants to be handed to continue a partial file.
long resumeOffset(const std::string& partialFile) {
    constexpr long kCompared = 1024;
    return static_cast<long>(std::filesystem::file_size(partialFile)) - kCompared;
}

voInetError downloadAll(TransferItf& transfer, const LocalFiles& files, const char* remoteFile) {
    CountingSink sink;
    voInetError result = transfer.Logon(false, 0);
    for (long number = 0; number < files.count() && result == voInetErrorSuccess; ++number) {
        const std::string name = files.name(number);
        bool resume = files.resumes();
        long offset = resume ? resumeOffset(name) : 0;
        result = transfer.DownloadFile(utf8_to_unicode(name), utf8_to_unicode(remoteFile), &sink,
                                       &offset, resume, true);
    }
    std::printf("result %d, %lu notifications\n", result, sink.calls);
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    constexpr int kFirstOption = 5;
    if (argc < kFirstOption) {
        std::fprintf(stderr,
                     "usage: library_download http|ftp HOST:PORT REMOTE-FILE LOCAL-FILE [COUNT] "
                     "[same|numbered|resume]\n");
        return 2;
    }
    dropLogLines();
    VoInetItfFactory factory;
    TransferItf* transfer = factory.CreateInterface(
        std::strcmp(argv[1], "ftp") == 0 ? voInetProtocolFtp : voInetProtocolHttp);
    transfer->SetOption(voInetOptionSite, utf8_to_unicode("bench"));
    transfer->SetOption(voInetOptionHostIP, utf8_to_unicode(argv[2]));
    const LocalFiles files(argv[4], argv + kFirstOption, argv + argc);
    const voInetError result = downloadAll(*transfer, files, argv[3]);
    factory.DestroyInterface(transfer);
    return result == voInetErrorSuccess ? 0 : 1;
}
