#ifndef VOINET_TESTS_UNIT_SUPPORT_DOWNLOADFIXTURE_H
#define VOINET_TESTS_UNIT_SUPPORT_DOWNLOADFIXTURE_H

#include "downloadmodel.h"
#include "logcapture.h"
#include "recordingsink.h"
#include "temporaryfiles.h"
#include "voinet/HTTPConnection.h"

#include <gtest/gtest.h>

#include <string>

namespace voinet_test {

/// An HTTP connection that is ready to download http://server.corp:8080/pkg/file.zip, which is
/// serverFile() there, into the file "local" of a scratch directory.
class DownloadFixture : public testing::Test {
  protected:
    DownloadFixture() {
        using namespace tessaro_com::pkm::voInet;
        connection.SetOption(voInetOptionSite, std::wstring(L"the site"));
        connection.SetOption(voInetOptionHostFqdn, std::wstring(L"server.corp:8080"));
        connection.SetOption(voInetOptionRelativePath, std::wstring(L"pkg"));
        connection.ApplyHostInformation(connMethodFqdn);
        connection.m_strProxy = L"proxy.corp";
        connection.m_strProxy_utf8_rep = "proxy.corp";
        connection.m_nProxyPort = 3128;
        connection.m_strProxyUserPwd_utf8_rep = "proxy:secret";
        connection.m_strAltProxyUserPwd_utf8_rep = "alt:secret";
        connection.m_strUser_utf8_rep = "user";
        connection.m_strPassword_utf8_rep = "password";
        clearLog();
    }

    /// Puts the first `size` bytes of the server's file into the local file.
    void havePartialFile(std::size_t size) {
        const auto content = serverFile().substr(0, size);
        if (local() != content) {
            scratch.write("local", content);
        }
    }

    tessaro_com::pkm::voInet::voInetError download(const std::wstring& remote = L"file.zip") {
        bool notRead = false;
        return connection.DownloadFileWithConnSpec(tessaro_com::pkm::voInet::connMethodFqdn,
                                                   scratch.wideFile("local"), remote, sink, &offset,
                                                   notRead, useCache);
    }

    std::string local() const { return scratch.read("local"); }

    static constexpr auto* kUrl = "http://server.corp:8080/pkg/file.zip";

    ScratchDirectory scratch;
    tessaro_com::pkm::voInet::CHttpConnection connection;
    RecordingSink recordingSink;
    tessaro_com::pkm::voInet::CNetSessionSink* sink = &recordingSink;
    long offset = 0;
    bool useCache = true;
};

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_DOWNLOADFIXTURE_H
