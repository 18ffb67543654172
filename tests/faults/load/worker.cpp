// One process of many that download at the same moment:
//   voinet_load_worker HOST:PORT FOLDER GATE
// downloads every file of the repository into FOLDER, each second one resumed, and compares all
// bytes. It begins when somebody writes to the FIFO GATE, after it has said that it is ready.
#include "manyfiles.h"
#include "voinet/voinet.h"

#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

namespace voinettest {

namespace {

namespace voInet = tessaro_com::pkm::voInet;

struct Destroyer {
    void operator()(voInet::TransferItf* transfer) const {
        voInet::VoInetItfFactory().DestroyInterface(transfer);
    }
};

void require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

void write(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary);
    file << content;
    require(static_cast<bool>(file.flush()), path + " cannot be written");
}

std::string read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    require(static_cast<bool>(file), path + " cannot be read");
    return {std::istreambuf_iterator<char>(file), {}};
}

void download(voInet::TransferItf& transfer, const std::string& folder, std::size_t number) {
    const std::string content = manyFilesContent(number);
    const std::string local = folder + "/" + manyFilesName(number);
    std::string expected = content;
    long offset = 0;
    if (isResumed(number)) {
        // What is not fetched again stays as it is, so that it shows when it is.
        const std::size_t kept = content.size() / 2;
        constexpr std::size_t kCompared = 1024;
        expected.replace(0, kept, kept, 'x');
        write(local, expected.substr(0, kept + kCompared));
        offset = static_cast<long>(kept);
    }
    bool resume = offset > 0;
    const voInet::voInetError result = transfer.DownloadFile(
        voInet::utf8_to_unicode(local), voInet::utf8_to_unicode(manyFilesName(number)), nullptr,
        &offset, resume, true);
    require(result == voInet::voInetErrorSuccess,
            manyFilesName(number) + ": result " + std::to_string(result));
    require(read(local) == expected, local + " differs from what the server has");
}

void awaitGate(const std::string& gate) {
    std::puts("ready");
    std::fflush(stdout);
    const std::ifstream opened(gate);
    require(static_cast<bool>(opened), gate + " cannot be opened");
}

void work(const std::string& host, const std::string& folder, const std::string& gate) {
    const std::unique_ptr<voInet::TransferItf, Destroyer> transfer(
        voInet::VoInetItfFactory().CreateInterface(voInet::voInetProtocolHttp));
    transfer->SetOption(voInet::voInetOptionSite, std::wstring(L"default"));
    transfer->SetOption(voInet::voInetOptionHostNetBios, voInet::utf8_to_unicode(host));
    awaitGate(gate);
    require(transfer->Logon(false, 0) == voInet::voInetErrorSuccess, "the logon failed");
    for (std::size_t number = 0; number < kManyFilesCount; ++number) {
        download(*transfer, folder, number);
    }
}

}  // namespace

}  // namespace voinettest

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fputs("usage: voinet_load_worker HOST:PORT FOLDER GATE\n", stderr);
        return 2;
    }
    try {
        voinettest::work(argv[1], argv[2], argv[3]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
