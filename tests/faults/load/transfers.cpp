#include "transfers.h"

#include "voinet/netsessionsink.h"
#include "voinet/voinet.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace tessaro_com::pkm::voInet::load {

namespace {

constexpr std::size_t kObjectLife = 10;
constexpr std::size_t kNames = 50;
/// Compared before a resume.
constexpr std::size_t kCompared = 1024;

enum class Ending { whole, resumed, moved, cancelled, cut, missing };

struct Kind {
    const char* prefix;
    Ending ending;
    voInetError result;
};

constexpr Kind kHttpKinds[] = {
    {"", Ending::whole, voInetErrorSuccess},
    {"", Ending::resumed, voInetErrorSuccess},
    {"moved-", Ending::moved, voInetErrorSuccess},
    {"", Ending::cancelled, voInetErrorCancelled},
    {"cut-", Ending::cut, voInetErrorTransferFailed},
    {"missing-", Ending::missing, voInetErrorFileNotFound},
};

// There are no redirects.
constexpr Kind kFtpKinds[] = {
    {"", Ending::whole, voInetErrorSuccess},
    {"", Ending::resumed, voInetErrorSuccess},
    {"", Ending::cancelled, voInetErrorCancelled},
    {"cut-", Ending::cut, voInetErrorTransferFailed},
    {"missing-", Ending::missing, voInetErrorFileNotFound},
};

const Kind& kindOf(voInetProtocol protocol, std::size_t number) {
    return protocol == voInetProtocolFtp ? kFtpKinds[number % std::size(kFtpKinds)]
                                         : kHttpKinds[number % std::size(kHttpKinds)];
}

void require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

void requireResult(voInetError result, voInetError expected, const std::string& what) {
    require(result == expected, what + ": the result is " + std::to_string(result) + " and not " +
                                    std::to_string(expected));
}

void write(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary);
    file << content;
    require(static_cast<bool>(file.flush()), path + " cannot be written");
}

void set(TransferItf& transfer, voInetOption option, const std::wstring& text) {
    requireResult(transfer.SetOption(option, text), voInetErrorSuccess, "SetOption");
}

class StoppingSink final : public CNetSessionSink {
  public:
    void OnTransferProgress(unsigned long* done, long* /*total*/, int* /*status*/,
                            const wchar_t* /*site1*/, const wchar_t* /*site2*/,
                            const wchar_t* /*url*/, bool* goOn) override {
        *goOn = *done == 0;
    }
};

std::string nameOf(std::size_t number) {
    return "file-" + std::to_string(number % kNames) + ".bin";
}

bool isPrefix(const std::string& part, const std::string& content) {
    return part.size() <= content.size() && std::equal(part.begin(), part.end(), content.begin());
}

/// What is in the local file before a transfer: bytes that show when they are left or lost.
std::string before(Ending ending, const std::string& content) {
    if (ending != Ending::resumed) {
        return "old";
    }
    const std::size_t half = content.size() / 2;
    return std::string(half - kCompared, 'x') + content.substr(half - kCompared, kCompared);
}

/// Whether the local file is right after a transfer.
bool isRight(Ending ending, const std::string& local, const std::string& content) {
    const std::size_t kept = content.size() / 2 - kCompared;
    switch (ending) {
        case Ending::whole:
        case Ending::moved:
            return local == content;
        case Ending::resumed:
            // The first bytes were not fetched again.
            return local == std::string(kept, 'x') + content.substr(kept);
        case Ending::cancelled:
            return isPrefix(local, content);
        case Ending::cut:
        case Ending::missing:
            return local == "old";
    }
    return false;
}

}  // namespace

void preferMemory() {
    constexpr const char* kMemory = "/dev/shm";
    constexpr int kEep = 0;
    if (::access(kMemory, W_OK | X_OK) == 0) {
        ::setenv("TMPDIR", kMemory, kEep);
    }
}

wire::TransferPtr makeObject(voInetProtocol protocol, const std::wstring& hostAndPort,
                             const std::wstring& repository) {
    wire::TransferPtr transfer = wire::makeTransfer(protocol);
    set(*transfer, voInetOptionSite, L"default");
    set(*transfer, voInetOptionHostNetBios, hostAndPort);
    set(*transfer, voInetOptionRelativePath, repository);
    return transfer;
}

std::string contentOfFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    require(static_cast<bool>(file), path + " cannot be read");
    return {std::istreambuf_iterator<char>(file), {}};
}

void downloadWhole(TransferItf& transfer, const std::string& localFile, const std::string& name,
                   const std::string& content) {
    requireResult(transfer.Logon(false, 0), voInetErrorSuccess, "the logon for " + name);
    long offset = 0;
    bool resume = false;
    requireResult(transfer.DownloadFile(utf8_to_unicode(localFile), utf8_to_unicode(name), nullptr,
                                        &offset, resume, true),
                  voInetErrorSuccess, name);
    require(contentOfFile(localFile) == content, localFile + " is not the server's " + name);
}

DownloadSeries::DownloadSeries(voInetProtocol protocol, std::wstring host, std::string localFile)
    : m_protocol(protocol), m_host(std::move(host)), m_localFile(std::move(localFile)) {}

void DownloadSeries::run(std::size_t number) {
    if (number % kObjectLife == 0 || !m_transfer) {
        m_transfer = makeObject(m_protocol, m_host, L"repository");
        requireResult(m_transfer->Logon(false, 0), voInetErrorSuccess, "the logon");
    }
    const Kind& kind = kindOf(m_protocol, number);
    const std::string content = contentOf("/repository/" + nameOf(number));
    write(m_localFile, before(kind.ending, content));
    long offset =
        kind.ending == Ending::resumed ? static_cast<long>(content.size() / 2 - kCompared) : 0;
    bool resume = offset > 0;
    StoppingSink stopping;
    const std::string name = kind.prefix + nameOf(number);
    const voInetError result = m_transfer->DownloadFile(
        utf8_to_unicode(m_localFile), utf8_to_unicode(name),
        kind.ending == Ending::cancelled ? &stopping : nullptr, &offset, resume, true);
    requireResult(result, kind.result, name);
    require(isRight(kind.ending, contentOfFile(m_localFile), content),
            m_localFile + " is not right after " + name);
}

CopySeries::CopySeries(std::string folder, std::string localFile)
    : m_folder(std::move(folder)), m_localFile(std::move(localFile)) {
    for (std::size_t number = 0; number < kNames; ++number) {
        write(m_folder + "/" + nameOf(number), contentOf(nameOf(number)));
    }
}

void CopySeries::run(std::size_t number) {
    if (number % kObjectLife == 0 || !m_transfer) {
        m_transfer = wire::makeTransfer(voInetProtocolLocal);
        set(*m_transfer, voInetOptionRelativePath, utf8_to_unicode(m_folder));
    }
    constexpr Ending kEndings[] = {Ending::whole, Ending::cancelled, Ending::missing};
    const Ending ending = kEndings[number % std::size(kEndings)];
    const std::string name = (ending == Ending::missing ? "missing-" : "") + nameOf(number);
    StoppingSink stopping;
    bool resume = false;
    const voInetError result = m_transfer->DownloadFile(
        utf8_to_unicode(m_localFile), utf8_to_unicode(name),
        ending == Ending::cancelled ? &stopping : nullptr, nullptr, resume, true);
    requireResult(result, ending == Ending::missing ? voInetErrorFileNotFound : voInetErrorSuccess,
                  name);
    const std::string content = ending == Ending::missing ? "" : contentOf(nameOf(number));
    const std::string local = contentOfFile(m_localFile);
    require(
        ending == Ending::cancelled ? !local.empty() && isPrefix(local, content) : local == content,
        m_localFile + " is not right after " + name);
}

ExchangeSeries::ExchangeSeries(const std::wstring& host, std::string requestFile,
                               std::string responseFile)
    : m_host(host), m_requestFile(std::move(requestFile)), m_responseFile(std::move(responseFile)) {
    write(m_requestFile, contentOf("request"));
}

void ExchangeSeries::run(std::size_t number) {
    if (number % kObjectLife == 0 || !m_transfer) {
        m_transfer = wire::makeTransfer(voInetProtocolHttp);
        set(*m_transfer, voInetOptionSite, L"default");
        set(*m_transfer, voInetOptionHostIP, m_host);
    }
    struct Outcome {
        const char* prefix;
        voInetError result;
    };
    constexpr Outcome kOutcomes[] = {{"/", voInetErrorPackageReceived},
                                     {"/busy-", voInetErrorServerBusy},
                                     {"/missing-", voInetErrorFileNotFound}};
    const Outcome& outcome = kOutcomes[number % std::size(kOutcomes)];
    const std::string path = outcome.prefix + nameOf(number);
    const voInetError result =
        m_transfer->UploadFileResponse(utf8_to_unicode(m_requestFile), utf8_to_unicode(path),
                                       utf8_to_unicode(m_responseFile), nullptr);
    requireResult(result, outcome.result, path);
    require(contentOfFile(m_responseFile) ==
                (outcome.result == voInetErrorPackageReceived ? contentOf(path) : ""),
            m_responseFile + " is not right after " + path);
}

}  // namespace tessaro_com::pkm::voInet::load
