#include "support/wiretest.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace tessaro_com::pkm::voInet::wire {

namespace {

/// curl looks at these by itself: a desk's settings must not decide over a test.
void forgetProxyEnvironment() {
    for (const char* name : {"http_proxy", "https_proxy", "ftp_proxy", "all_proxy", "no_proxy",
                             "HTTPS_PROXY", "FTP_PROXY", "ALL_PROXY", "NO_PROXY"}) {
        ::unsetenv(name);
    }
}

}  // namespace

WireTest::WireTest() {
    forgetProxyEnvironment();
    m_directory.emplace();
    m_log.emplace();
}

WireTest::~WireTest() = default;

void WireTest::TearDown() {
    m_transfer.reset();
    m_log.reset();
    for (const auto& name : m_directory->entries()) {
        EXPECT_FALSE(name.find("local") != std::string::npos && name != kLocalName)
            << name << " was left beside the local file";
    }
    m_directory.reset();
    EXPECT_THAT(m_leaks.leftovers(), testing::IsEmpty());
}

TransferItf& WireTest::makeTransfer(voInetProtocol protocol) {
    m_transfer = wire::makeTransfer(protocol);
    return *m_transfer;
}

void WireTest::makeLocalFile(std::string_view content) const {
    m_directory->makeFile(kLocalName, content);
}

bool WireTest::localFileExists() const {
    return ::access(localFile().c_str(), F_OK) == 0;
}

DownloadOutcome WireTest::download(std::wstring_view remoteName,
                                   const DownloadArguments& arguments) {
    DownloadOutcome outcome{voInetErrorSuccess, arguments.offset, arguments.resume};
    outcome.result =
        m_transfer->DownloadFile(widened(localFile()), std::wstring(remoteName), &m_sink,
                                 &outcome.offset, outcome.resume, arguments.useCache);
    return outcome;
}

void WireTest::expectLocalFile(std::string_view content) const {
    const std::string local = readFile(localFile());
    const auto common = std::min(local.size(), content.size());
    const auto difference =
        std::mismatch(local.begin(), local.begin() + static_cast<std::ptrdiff_t>(common),
                      content.begin())
            .first;
    EXPECT_EQ(difference - local.begin(), static_cast<std::ptrdiff_t>(common))
        << "the local file differs there";
    EXPECT_EQ(local.size(), content.size());
}

HttpTest::HttpTest() {
    m_server.emplace();
    m_origin.emplace();
    makeTransfer(voInetProtocolHttp);
}

HttpTest::~HttpTest() = default;

void HttpTest::TearDown() {
    m_server.reset();
    m_origin.reset();
    WireTest::TearDown();
}

TransferSettings HttpTest::settings() const {
    TransferSettings settings;
    settings.hostNetBios = m_server->hostAndPort();
    return settings;
}

void HttpTest::logOn(const TransferSettings& settings) {
    applySettings(transfer(), settings);
    m_server->connection(answer(reply(200)));
    ASSERT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    ASSERT_TRUE(m_server->awaitPlayed());
    m_server->forgetRecords();
}

void HttpTest::logOnThroughProxy(CProxyParams proxy) {
    proxy.m_strProxyHost = L"127.0.0.1";
    proxy.m_nHttpProxyPort = m_server->port();
    ASSERT_EQ(transfer().SetOption(voInetOptionSite, &proxy), voInetErrorSuccess);
    TransferSettings behindProxy;
    behindProxy.hostNetBios = m_origin->hostAndPort();
    logOn(behindProxy);
}

std::string HttpTest::originUrl() const {
    return "http://127.0.0.1:" + std::to_string(m_origin->port());
}

}  // namespace tessaro_com::pkm::voInet::wire
