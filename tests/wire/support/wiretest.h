#ifndef VOINET_TESTS_WIRE_SUPPORT_WIRETEST_H
#define VOINET_TESTS_WIRE_SUPPORT_WIRETEST_H

#include "support/body.h"
#include "support/http.h"
#include "support/leakguard.h"
#include "support/logcapture.h"
#include "support/recordingsink.h"
#include "support/scriptedserver.h"
#include "support/temporarydirectory.h"
#include "support/transfer.h"
#include "voinet/netsessionsink.h"
#include "voinet/transferitf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace tessaro_com::pkm::voInet::wire {

/// What a download answered, with the arguments that it may have changed.
struct DownloadOutcome {
    voInetError result;
    long offset;
    bool resume;
};

struct DownloadArguments {
    long offset = 0;
    bool resume = false;
    bool useCache = true;
};

/// Base of all wire tests: a transfer object, a sink, a directory with the local file, the log. At
/// the end nothing may be left behind: no descriptor, no temporary file, nothing beside the local
/// file.
class WireTest : public testing::Test {
  public:
    ~WireTest() override;

  protected:
    WireTest();

    void TearDown() override;

    /// Makes the transfer object of the test.
    TransferItf& makeTransfer(voInetProtocol protocol);
    TransferItf& transfer() { return *m_transfer; }

    RecordingSink& sink() { return m_sink; }
    const LogCapture& log() const { return *m_log; }
    const TemporaryDirectory& directory() const { return *m_directory; }

    /// The file that downloads go to; it does not exist at the start.
    std::string localFile() const { return m_directory->path(kLocalName); }
    void makeLocalFile(std::string_view content) const;
    bool localFileExists() const;

    /// Downloads into the local file.
    DownloadOutcome download(std::wstring_view remoteName = L"file.zip",
                             const DownloadArguments& arguments = {});

    /// The local file must have this content; a difference is reported by its place.
    void expectLocalFile(std::string_view content) const;

    static constexpr const char* kLocalName = "local.zip";

  private:
    // Torn down in the opposite order: whatever holds descriptors or files goes before the check.
    LeakGuard m_leaks;
    std::optional<TemporaryDirectory> m_directory;
    std::optional<LogCapture> m_log;
    RecordingSink m_sink;
    TransferPtr m_transfer;
};

/// Base of the HTTP tests: a server on the loopback interface and a transfer object that knows it.
class HttpTest : public WireTest {
  public:
    ~HttpTest() override;

  protected:
    HttpTest();

    void TearDown() override;

    ScriptedServer& server() { return *m_server; }
    /// Other than those of a logon that logOn() made.
    std::vector<Request> requests() const { return m_server->requests(); }

    /// The settings with which the server is known under the last host form only, so that a result
    /// comes back as the attempt gave it.
    TransferSettings settings() const;

    /// Logs on with these settings; the server answers the probe.
    void logOn(const TransferSettings& settings);
    void logOn() { logOn(settings()); }
    /// The same with the server as a proxy; the record needs no host and port. What does not go
    /// through the proxy is refused.
    void logOnThroughProxy(CProxyParams proxy);
    /// The server behind the proxy as a URL names it.
    std::string originUrl() const;

  private:
    std::optional<ScriptedServer> m_server;
    std::optional<RefusingPort> m_origin;
};

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_WIRETEST_H
