#include "support/download.h"

#include "kvecomn/hostlog.h"
#include "kvecomn/telmcomn.h"
#include "support/fuzztarget.h"
#include "support/input.h"
#include "support/scratch.h"
#include "voinet/voinet.h"

#include <algorithm>
#include <cstdlib>

namespace voinet_fuzz {

namespace voInet = tessaro_com::pkm::voInet;

namespace {

constexpr std::size_t kOldSize = 3000;
constexpr long kOffset = 1500;
constexpr unsigned long kEnough = 20;

class Sink : public voInet::CNetSessionSink {
  public:
    explicit Sink(bool cancels) : m_cancels(cancels) {}

    void OnTransferProgress(unsigned long* bytesDone, long* bytesTotal, int* status,
                            const wchar_t* siteText1, const wchar_t* siteText2,
                            const wchar_t* remoteUrl, bool* goOn) override {
        require(*status == 3 && *goOn, "a download is reported as one");
        require(*bytesTotal >= 0, "a size is none or not known");
        require(siteText1 != nullptr && siteText2 != nullptr && remoteUrl != nullptr, "texts");
        *goOn = !m_cancels || *bytesDone < kEnough;
    }

  private:
    bool m_cancels;
};

void setProxy(voInet::TransferItf& transfer, const ClientSettings& settings,
              const std::string& port) {
    voInet::CProxyParams proxy;
    proxy.m_strProxyHost = L"127.0.0.1";
    proxy.m_nHttpProxyPort = proxy.m_nFtpProxyPort = std::stoi(port);
    proxy.m_bAllowUserToConfigureProxy = settings.mayUseAlternate;
    proxy.m_bHttpProxyAuthentication = proxy.m_bFtpProxyAuthentication = settings.hasProxyUser;
    proxy.m_bHttpAltCredentials = proxy.m_bFtpAltCredentials = settings.mayUseAlternate;
    proxy.m_strHttpProxyUser = proxy.m_strFtpProxyUser = L"proxy user";
    proxy.m_strHttpProxyPassword = proxy.m_strFtpProxyPassword = L"proxy password";
    proxy.m_strHttpAltUser = proxy.m_strFtpAltUser = L"other user";
    proxy.m_strHttpAltPassword = proxy.m_strFtpAltPassword = L"other password";
    transfer.SetOption(voInet::voInetOptionHostIP, &proxy);
}

/// Nothing of this machine's configuration takes part.
void clearEnvironment() {
    for (const char* name : {"no_proxy", "NO_PROXY", "NETRC", "HOME"}) {
        ::unsetenv(name);
    }
    ::setenv("KRB5_CONFIG", "/dev/null", 1);
    ::setenv("KRB5CCNAME", "MEMORY:none", 1);
}

bool isPieceOf(const std::string& piece, const std::vector<ScriptedServer::Record>& records) {
    return std::any_of(records.begin(), records.end(), [&piece](const auto& record) {
        return record.sent.find(piece) != std::string::npos;
    });
}

/// What landed is old bytes, a piece of what was sent, and where that ends early, old bytes again.
void checkLanded(const std::string& landed, const std::string& old, std::size_t start,
                 const std::vector<ScriptedServer::Record>& records) {
    require(landed.compare(0, start, old, 0, start) == 0, "the head of a partial file stays");
    std::size_t end = landed.size();
    if (start > 0 && landed.size() == old.size()) {
        while (end > start && landed[end - 1] == old[end - 1]) {
            --end;
        }
    }
    require(landed.size() >= start, "a resumed file does not become shorter");
    const std::string piece = landed.substr(start, end - start);
    require(isCoded(records) || isPieceOf(piece, records), "what landed was sent in one piece",
            piece);
}

}  // namespace

void DestroyTransfer::operator()(voInet::TransferItf* transfer) const {
    voInet::VoInetItfFactory().DestroyInterface(transfer);
}

Transfer makeTransfer(voInet::voInetProtocol protocol, const ClientSettings& settings) {
    Transfer transfer(voInet::VoInetItfFactory().CreateInterface(protocol));
    const std::string port = std::to_string(server().port());
    const auto set = [&transfer](voInet::voInetOption option, const std::string& value) {
        transfer->SetOption(option, telmcomn_ansi_to_wide(value));
    };
    set(voInet::voInetOptionSite, "site");
    set(voInet::voInetOptionHostIP, "127.0.0.1:" + port);
    if (settings.hasUser) {
        set(voInet::voInetOptionUser, "user");
        set(voInet::voInetOptionPassword, "password");
    }
    if (!settings.isPlain) {
        set(voInet::voInetOptionUpdateToken, "token");
    }
    if (settings.hasProxy) {
        setProxy(*transfer, settings, port);
    }
    return transfer;
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char each) {
        return each >= 'A' && each <= 'Z' ? static_cast<char>(each - 'A' + 'a') : each;
    });
    return text;
}

bool isCoded(const std::vector<ScriptedServer::Record>& records) {
    return std::any_of(records.begin(), records.end(), [](const auto& record) {
        return lowerCase(record.sent).find("chunked") != std::string::npos;
    });
}

bool isNetworkResult(voInet::voInetError result) {
    static constexpr voInet::voInetError kResults[] = {
        voInet::voInetErrorSuccess,           voInet::voInetErrorLoginIncorrect,
        voInet::voInetErrorProxyAuthRequired, voInet::voInetErrorRangeNotSatisfiable,
        voInet::voInetErrorRangeIgnored,      voInet::voInetErrorCancelled,
        voInet::voInetErrorPackageReceived,   voInet::voInetErrorServerBusy,
        voInet::voInetErrorNoPackage,         voInet::voInetErrorFailed,
        voInet::voInetErrorMaxRetries,        voInet::voInetErrorFileNotFound,
        voInet::voInetErrorBadOptions,        voInet::voInetErrorProxyNotResolved,
        voInet::voInetErrorHostNotResolved,   voInet::voInetErrorWriteFailed,
        voInet::voInetErrorOutOfMemory,       voInet::voInetErrorRangeFailed,
        voInet::voInetErrorAccessDenied,      voInet::voInetErrorTimeout,
        voInet::voInetErrorTransferFailed,    voInet::voInetErrorInvalidRequest,
        voInet::voInetErrorGuidExists,        voInet::voInetErrorKeysOutdated,
    };
    return std::find(std::begin(kResults), std::end(kResults), result) != std::end(kResults);
}

void tryDownload(voInet::voInetProtocol protocol, const std::string& bytes,
                 bool serverSpeaksFirst) {
    clearEnvironment();
    const std::string local = scratchDirectory() + "/local";
    const std::string old = positionDependentBytes(kOldSize);
    writeFile(local, old);
    Input input(bytes);
    const ClientSettings settings(input.byte());
    hostLogSetDetailEnabled(settings.isTraced);
    server().play(Script(input.rest(), server().port(), serverSpeaksFirst));
    const std::size_t descriptors = openDescriptors();

    const Transfer transfer = makeTransfer(protocol, settings);
    const voInet::voInetError logon = transfer->Logon(false, 0);
    Sink sink(settings.cancels);
    long resumeOffset = settings.resumes ? kOffset : 0;
    bool resume = settings.resumes;
    const voInet::voInetError result = transfer->DownloadFile(
        telmcomn_ansi_to_wide(local), L"file", &sink, &resumeOffset, resume, settings.isPlain);
    const auto records = server().finish();

    require(!records.empty(), "the client reaches the server");
    require(logon != voInet::voInetErrorBadOptions, "the settings suffice for a logon");
    require(isNetworkResult(logon), "a logon has a result of the table", std::to_string(logon));
    require(isNetworkResult(result), "a download has a result of the table",
            std::to_string(result));
    require(hasNoMoreDescriptorsThan(descriptors), "every file and connection is closed");
    require(resumeOffset == 0 || resumeOffset == kOffset, "an offset stays or becomes 0");
    require(settings.resumes || resumeOffset == 0, "a whole file has no offset");
    const auto landed = readFile(local);
    require(landed.has_value(), "there is a local file");
    if (result != voInet::voInetErrorSuccess && result != voInet::voInetErrorCancelled) {
        require(landed == old, "a failed download leaves the old file");
    } else if (landed != old) {
        checkLanded(*landed, old, static_cast<std::size_t>(resumeOffset), records);
    }
}

}  // namespace voinet_fuzz
