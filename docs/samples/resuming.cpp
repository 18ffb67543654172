// A host process that loses nothing: it resumes a partial file, keeps what arrived before a cut,
// names the cause of a failure, and ends with what it has on SIGINT and SIGTERM.
#include <voinet/voinet.h>

#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

using namespace tessaro_com::pkm::voInet;

namespace {

volatile std::sig_atomic_t stopAsked = 0;

extern "C" void askToStop(int /*signal*/) {
    stopAsked = 1;
}

/// What went wrong with a request, by libcurl's result and the answer's status; empty for nothing.
std::string causeOf(const RequestRecord& request) {
    const std::string peer = request.proxy.empty() ? "the server" : "the proxy";
    switch (request.curlResult) {
        case 0:
            break;
        case 5:
        case 6:
            return "the name of " + peer + " does not resolve";
        case 7:
            return peer + " takes no connection";
        case 23:
            return "the local file cannot be written";
        case 42:
            return "stopped";
        default:
            return request.received > 0 ? "the answer was cut" : "there was no answer";
    }
    // 407 and the statuses of gateways: a proxy speaks for itself.
    const bool isOfPeer = request.status == 407 || request.status >= 502;
    const std::string answers = (isOfPeer ? peer : "the server") + " answers ";
    return request.status < 400 ? "" : answers + std::to_string(request.status);
}

struct Monitor : TransferMonitor {
    void OnRequestEnded(const RequestRecord& request) override {
        const std::string cause = causeOf(request);
        // A check that fails is no failure: the download then begins at the start.
        if (!cause.empty() && request.purpose != requestPrefixCheck) {
            std::fprintf(stderr, "%s: %s (%s)\n", request.url.c_str(), cause.c_str(),
                         request.reason.c_str());
        } else if (request.purpose == requestDownload && request.announced >= 0) {
            sizeAtServer = request.rangeStart + request.announced;
        }
    }
    bool GoesOn() override { return stopAsked == 0; }
    bool KeepsWhatArrived(const RequestRecord& /*request*/) override { return true; }

    std::int64_t sizeAtServer = -1;
};

struct Progress : CNetSessionSink {
    void OnTransferProgress(unsigned long* done, long* total, int*, const wchar_t*, const wchar_t*,
                            const wchar_t*, bool*) override {
        if (*done / kStep != shown / kStep) {
            shown = *done;
            std::printf("%lu of %ld bytes\n", *done, *total);  // of the rest, in a resume
            std::fflush(stdout);
        }
    }
    static constexpr unsigned long kStep = 65'536;
    unsigned long shown = 0;
};

std::int64_t sizeOf(const std::string& file) {
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    return error ? 0 : static_cast<std::int64_t>(size);
}

voInetError download(TransferItf& transfer, const char* remoteFile, const std::string& part) {
    constexpr std::int64_t kCompared = 1024;  // the last bytes of the part, with the server's
    const std::int64_t start = sizeOf(part) - kCompared;
    long resumeOffset = start > 0 && start <= LONG_MAX ? static_cast<long>(start) : 0;
    Progress progress;
    bool resume = false;
    const voInetError result = transfer.Logon(false, 0);
    return result != voInetErrorSuccess
               ? result
               : transfer.DownloadFile(utf8_to_unicode(part), utf8_to_unicode(remoteFile),
                                       &progress, &resumeOffset, resume, true);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4 && argc != 6) {
        std::fputs("usage: resuming HOST:PORT REMOTE-FILE LOCAL-FILE [PROXY PORT]\n", stderr);
        return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGINT, askToStop);
    std::signal(SIGTERM, askToStop);
    VoInetItfFactory factory;
    TransferItf* transfer = factory.CreateInterface(voInetProtocolHttp);
    transfer->SetOption(voInetOptionSite, utf8_to_unicode("default"));
    // The last form: no other one follows a failure, so the result is the failure's own.
    transfer->SetOption(voInetOptionHostNetBios, utf8_to_unicode(argv[1]));
    if (CProxyParams proxy; argc == 6) {
        proxy.m_strProxyHost = utf8_to_unicode(argv[4]);
        proxy.m_nHttpProxyPort = static_cast<int>(std::strtol(argv[5], nullptr, 10));
        transfer->SetOption(voInetOptionSite, &proxy);
    }
    const std::string part = std::string(argv[3]) + ".part";
    Monitor monitor;
    setTransferMonitor(&monitor);
    voInetError result = download(*transfer, argv[2], part);
    setTransferMonitor(nullptr);
    factory.DestroyInterface(transfer);
    std::printf("%s: %s\n", voInetErrorName(result), voInetErrorMeaning(result));
    if (result != voInetErrorSuccess) {
        return 1;
    }
    // Success does not say that all of it is in place; a digest from elsewhere says more.
    if (monitor.sizeAtServer >= 0 && sizeOf(part) != monitor.sizeAtServer) {
        std::fprintf(stderr, "%s has another size than the server's\n", part.c_str());
        std::remove(part.c_str());
        return 1;
    }
    return std::rename(part.c_str(), argv[3]) == 0 ? 0 : 1;
}
