#include "transfers.h"

#include "kvecomn/hostlog.h"
#include "kvecomn/telmcomn.h"
#include "voinet/voinet.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

namespace voinettest {
namespace {

namespace voInet = tessaro_com::pkm::voInet;

constexpr char kTemporaryPrefix[] = "/tmp/Cbmgr";
constexpr char kSiblingPrefix[] = "/tmp/.kvecomn-";
constexpr char kPartSuffix[] = ".part";
constexpr std::size_t kFileSize = 60000;
constexpr std::size_t kOldSize = 9001;
constexpr std::size_t kPartialSize = 25000;
/// What the library compares before a resume.
constexpr std::size_t kComparedSize = 1024;

std::atomic<std::size_t> drawnNumbers{0};

/// The process that the names belong to: the one that the test began in, also in its children.
pid_t owner() {
    static const pid_t kProcess = ::getpid();
    return kProcess;
}

struct Sink : voInet::CNetSessionSink {
    void OnTransferProgress(unsigned long*, long*, int*, const wchar_t*, const wchar_t*,
                            const wchar_t*, bool*) override {}
};

struct Destroyer {
    void operator()(voInet::TransferItf* transfer) const {
        voInet::VoInetItfFactory().DestroyInterface(transfer);
    }
};

std::unique_ptr<voInet::TransferItf, Destroyer> makeTransfer(int protocol) {
    return std::unique_ptr<voInet::TransferItf, Destroyer>(
        voInet::VoInetItfFactory().CreateInterface(static_cast<voInet::voInetProtocol>(protocol)));
}

std::wstring wide(const std::string& text) {
    return telmcomn_ansi_to_wide(text);
}

int openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<int>(std::distance(begin(all), end(all)));
}

}  // namespace

std::string numberedText(std::size_t size, char separator) {
    std::string text;
    for (std::size_t number = 0; text.size() < size; ++number) {
        text += std::to_string(number) + separator;
    }
    text.resize(size);
    return text;
}

std::optional<std::string> contentOf(const std::string& path) {
    std::ifstream input(path, std::ios::binary);
    if (!input) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(input), {});
}

long TemporaryNames::numberAt(std::size_t index) {
    // Process ids have 22 bits at most, random numbers 31.
    constexpr int kBitsOfIndex = 9;
    return static_cast<long>(owner()) << kBitsOfIndex | static_cast<long>(index);
}

std::string TemporaryNames::at(std::size_t index) {
    return kTemporaryPrefix + std::to_string(numberAt(index));
}

void TemporaryNames::startOver() {
    drawnNumbers = 0;
}

std::vector<std::string> TemporaryNames::existing() {
    std::vector<std::string> found;
    for (std::size_t i = 0; i < kCount; ++i) {
        if (std::filesystem::symlink_status(at(i)).type() !=
            std::filesystem::file_type::not_found) {
            found.push_back(at(i));
        }
    }
    return found;
}

void TemporaryNames::removeAll() {
    for (const std::string& name : existing()) {
        std::filesystem::remove_all(name);
    }
}

/// Lives in memory that a child process shares with its parent.
struct Site::SharedReport {
    static constexpr std::size_t kMostText = 8192;

    bool isComplete;
    int result;
    int descriptorsLeft;
    std::size_t textSize;
    char text[kMostText];  // error lines, each with its end

    void addLine(const std::string& line) {
        const std::size_t size = std::min(line.size(), kMostText - textSize - 1);
        std::memcpy(text + textSize, line.data(), size);
        textSize += size;
        text[textSize++] = '\n';
    }
};

Site::Site()
    : file_(numberedText(kFileSize, ',')),
      old_(numberedText(kOldSize, ';')),
      http_(file_),
      ftp_(FtpSite{{{"file", file_}}}),
      report_(
          static_cast<SharedReport*>(::mmap(nullptr, sizeof(SharedReport), PROT_READ | PROT_WRITE,
                                            MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
    require(report_ != MAP_FAILED, "sharing memory");
    directory_.write("repository/file", file_);
    directory_.write("request", numberedText(kOldSize, '.'));
    TemporaryNames::removeAll();
    // Here once, and not in every child process.
    curl_global_init(CURL_GLOBAL_DEFAULT);
}

Site::~Site() {
    removeLeftovers();
    ::munmap(report_, sizeof *report_);
}

Site::Transfer Site::library(const std::string& name, std::optional<std::string> before,
                             std::function<int(const Site&)> work) {
    Transfer transfer{name, std::move(before), file_, {}};
    transfer.work = [this, work = std::move(work)] {
        runInChild(work);
        return 0;
    };
    return transfer;
}

Site::Transfer Site::command(const std::string& name, std::vector<std::string> words) {
    Transfer transfer{name, old_, file_, {}, true};
    transfer.work = [this, words = std::move(words)] { return runCommand(words); };
    return transfer;
}

Site::Transfer Site::httpFresh() {
    return library("http fresh", std::nullopt, [](const Site& site) {
        return site.download(voInet::voInetProtocolHttp, site.http_.hostAndPort(), 0);
    });
}

Site::Transfer Site::httpReplacing() {
    return library("http replacing", old_, [](const Site& site) {
        return site.download(voInet::voInetProtocolHttp, site.http_.hostAndPort(), 0);
    });
}

Site::Transfer Site::httpResumed() {
    return library("http resumed", file_.substr(0, kPartialSize), [](const Site& site) {
        return site.download(voInet::voInetProtocolHttp, site.http_.hostAndPort(),
                             kPartialSize - kComparedSize);
    });
}

Site::Transfer Site::ftpReplacing() {
    return library("ftp replacing", old_, [](const Site& site) {
        return site.download(voInet::voInetProtocolFtp,
                             "127.0.0.1:" + std::to_string(site.ftp_.port()), 0);
    });
}

Site::Transfer Site::ftpResumed() {
    return library("ftp resumed", file_.substr(0, kPartialSize), [](const Site& site) {
        return site.download(voInet::voInetProtocolFtp,
                             "127.0.0.1:" + std::to_string(site.ftp_.port()),
                             kPartialSize - kComparedSize);
    });
}

Site::Transfer Site::localCopy() {
    Transfer transfer =
        library("local copy", old_, [](const Site& site) { return site.copyLocally(); });
    transfer.isInPlace = true;
    return transfer;
}

Site::Transfer Site::exchange() {
    Transfer transfer = library("exchange", old_, [](const Site& site) { return site.post(); });
    transfer.isInPlace = true;
    return transfer;
}

Site::Transfer Site::commandHttp() {
    return command("get over http", {"get", "--host", http_.hostAndPort(), "file", destination()});
}

Site::Transfer Site::commandHttpResumed() {
    Transfer transfer =
        command("get over http resumed",
                {"get", "--resume", "--host", http_.hostAndPort(), "file", destination()});
    transfer.isResumed = true;
    return transfer;
}

Site::Transfer Site::commandLocal() {
    return command("get from a folder", {"get", "--protocol", "local", "--repository",
                                         path("repository"), "file", destination()});
}

Site::Transfer Site::commandExchange() {
    return command(
        "post", {"post", "--host", http_.hostAndPort(), path("request"), "/agent", destination()});
}

void Site::prepare(const Transfer& transfer) {
    removeLeftovers();
    prepareDestination(transfer);
}

void Site::removeLeftovers() {
    for (const std::string& name : leftovers()) {
        std::filesystem::remove_all(name);
    }
    temporarySiblings_.clear();
}

void Site::prepareDestination(const Transfer& transfer) {
    std::filesystem::remove(destination());
    if (transfer.before) {
        directory_.write("destination", *transfer.before);
    }
    if (transfer.isResumed) {
        directory_.write(std::string("destination") + kPartSuffix, file_.substr(0, kPartialSize));
    }
    *report_ = SharedReport{};
    TemporaryNames::startOver();
}

TransferReport Site::report() const {
    TransferReport result{report_->isComplete, report_->result, {}, report_->descriptorsLeft};
    const std::string text(report_->text, report_->textSize);
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin);
        result.errorLines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return result;
}

std::vector<std::string> Site::roots() const {
    return {directory_.path().string() + "/", kTemporaryPrefix, kSiblingPrefix};
}

void Site::noteWritten(const std::string& path) {
    if (path.find(kSiblingPrefix) == 0) {
        temporarySiblings_.insert(path);
    }
}

std::vector<std::string> Site::leftovers() const {
    std::vector<std::string> found = TemporaryNames::existing();
    std::copy_if(temporarySiblings_.begin(), temporarySiblings_.end(), std::back_inserter(found),
                 [](const std::string& path) { return std::filesystem::exists(path); });
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
        const std::string name = entry.path().filename().string();
        if (name != "repository" && name != "request" && name != "destination") {
            found.push_back(entry.path().string());
        }
    }
    return found;
}

void Site::runInChild(const std::function<int(const Site&)>& work) {
    hostLogSetHandler([this](HostLogLevel level, const wchar_t*, const wchar_t* message) {
        if (level == HostLogLevel::error) {
            report_->addLine(telmcomn_wide_to_ansi(message));
        }
    });
    const int before = openDescriptors();
    report_->result = work(*this);
    report_->descriptorsLeft = openDescriptors() - before;
    report_->isComplete = true;
}

int Site::runCommand(const std::vector<std::string>& words) const {
    std::vector<std::string> all = {VOINET_PROGRAM};
    all.insert(all.end(), words.begin(), words.end());
    std::vector<char*> pointers;
    std::transform(all.begin(), all.end(), std::back_inserter(pointers),
                   [](std::string& word) { return word.data(); });
    pointers.push_back(nullptr);
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    ::dup2(nowhere, STDOUT_FILENO);
    ::dup2(nowhere, STDERR_FILENO);
    ::setenv("LD_PRELOAD", VOINET_COMMAND_NAMES, 1);
    ::setenv("VOINET_TEST_FIRST_NUMBER", std::to_string(TemporaryNames::numberAt(0)).c_str(), 1);
    ::execv(pointers.front(), pointers.data());
    constexpr int kNotFound = 127;
    return kNotFound;
}

int Site::download(int protocol, const std::string& hostAndPort, long offset) const {
    const auto transfer = makeTransfer(protocol);
    transfer->SetOption(voInet::voInetOptionSite, std::wstring(L"default"));
    // The last form: a result comes back as the attempt gave it.
    transfer->SetOption(voInet::voInetOptionHostNetBios, wide(hostAndPort));
    const voInet::voInetError logon = transfer->Logon(false, 0);
    if (logon != voInet::voInetErrorSuccess) {
        return logon;
    }
    Sink sink;
    bool resume = offset > 0;
    return transfer->DownloadFile(wide(destination()), L"file", &sink, &offset, resume, true);
}

int Site::copyLocally() const {
    const auto transfer = makeTransfer(voInet::voInetProtocolLocal);
    transfer->SetOption(voInet::voInetOptionRelativePath, wide(path("repository")));
    Sink sink;
    long offset = 0;
    bool resume = false;
    return transfer->DownloadFile(wide(destination()), L"file", &sink, &offset, resume, true);
}

int Site::post() const {
    const auto transfer = makeTransfer(voInet::voInetProtocolHttp);
    transfer->SetOption(voInet::voInetOptionSite, std::wstring(L"default"));
    transfer->SetOption(voInet::voInetOptionHostIP, wide(http_.hostAndPort()));
    return transfer->UploadFileResponse(wide(path("request")), L"/agent", wide(destination()),
                                        nullptr);
}

}  // namespace voinettest

// Takes the place of the C library's for the whole program; see TemporaryNames.
extern "C" long random() noexcept {
    using voinettest::TemporaryNames;
    return TemporaryNames::numberAt(voinettest::drawnNumbers++ % TemporaryNames::kCount);
}

// The system's declarations have reserved names for their parameters.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

// In the place of the C library's as well: the servers send at once. Otherwise their second answer
// in a row would wait for the client's delayed acknowledgement of the first, many thousand times.
extern "C" int listen(int socket, int backlog) noexcept {
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return static_cast<int>(::syscall(SYS_listen, socket, backlog));
}

// The same: after the reply to EPSV libcurl waits 200 milliseconds for nothing. It looks again
// whenever a wait ends.
extern "C" int poll(pollfd* descriptors, nfds_t count, int timeout) {
    constexpr int kLongestWait = 2;
    const int wait = timeout < 0 ? kLongestWait : std::min(timeout, kLongestWait);
    const timespec time = {0, wait * 1'000'000L};
    return static_cast<int>(::syscall(SYS_ppoll, descriptors, count, &time, nullptr, 0));
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
