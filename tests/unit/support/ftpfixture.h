#ifndef VOINET_TESTS_UNIT_SUPPORT_FTPFIXTURE_H
#define VOINET_TESTS_UNIT_SUPPORT_FTPFIXTURE_H

#include "curldouble.h"
#include "downloadmodel.h"
#include "ftpdownloadmodel.h"
#include "logcapture.h"
#include "recordingsink.h"
#include "temporaryfiles.h"
#include "voinet/FTPConnection.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace voinet_test {

/// An FTP connection that is ready to download ftp://server.corp:2121/pkg/file.zip, which is
/// serverFile() there, into the file "local" of a scratch directory.
class FtpFixture : public testing::Test {
  protected:
    FtpFixture() {
        using namespace tessaro_com::pkm::voInet;
        connection.SetOption(voInetOptionSite, std::wstring(L"the site"));
        connection.SetOption(voInetOptionHostFqdn, std::wstring(L"server.corp:2121"));
        connection.SetOption(voInetOptionRelativePath, std::wstring(L"pkg"));
        connection.ApplyHostInformation(connMethodFqdn);
        connection.m_strUser = L"us@er";
        connection.m_strUser_utf8_rep = "us@er";
        connection.m_strPassword = L"50%:x y";
        connection.m_strPassword_utf8_rep = "50%:x y";
        connection.m_strProxy = L"proxy.corp";
        connection.m_strProxy_utf8_rep = "proxy.corp";
        connection.m_nProxyPort = 3128;
        connection.m_strProxyUserPwd_utf8_rep = "proxy:secret";
        connection.m_strAltProxyUserPwd_utf8_rep = "alt:secret";
        clearLog();
    }

    /// Puts the first `size` bytes of the server's file into the local file.
    void havePartialFile(std::size_t size) { have("local", serverFile().substr(0, size)); }

    /// A file with this content. It is made anew: some file systems write a file that was cut to
    /// nothing to the disk at once, which takes most of the time of thousands of downloads.
    void have(const std::string& name, const std::string& content) {
        if (scratch.read(name) != content) {
            std::filesystem::remove(scratch.file(name));
            scratch.write(name, content);
        }
    }

    tessaro_com::pkm::voInet::voInetError download(const std::wstring& remote = L"file.zip") {
        bool notRead = false;
        return connection.DownloadFileWithConnSpec(tessaro_com::pkm::voInet::connMethodFqdn,
                                                   scratch.wideFile("local"), remote, sink, &offset,
                                                   notRead, true);
    }

    std::string local() const { return scratch.read("local"); }

    static constexpr auto* kUrl = "ftp://server.corp:2121/pkg/file.zip";

    ScratchDirectory scratch;
    tessaro_com::pkm::voInet::CFtpConnection connection;
    RecordingSink recordingSink;
    tessaro_com::pkm::voInet::CNetSessionSink* sink = &recordingSink;
    long offset = 0;
};

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_FTPFIXTURE_H
