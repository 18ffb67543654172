// What no caller should hand over, and places where nothing can be written: a result of the table,
// nothing left behind, the local file as it was.

#include "support/ftp.h"
#include "support/restrictions.h"
#include "support/wiretest.h"

#include <sys/stat.h>
#include <unistd.h>

#include <limits>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class BadInput : public HttpTest {
  protected:
    void SetUp() override { makeLocalFile("old"); }

    voInetError downloadTo(const std::wstring& target, const std::wstring& remoteName) {
        long offset = 0;
        bool resume = false;
        return transfer().DownloadFile(target, remoteName, &sink(), &offset, resume, true);
    }

    /// The download itself succeeds; putting it in place of the target does not, which is one error
    /// line of the host library.
    void expectFailedReplacement(const std::string& target) {
        server().connection(answer(reply(200, "new")));
        EXPECT_EQ(downloadTo(widened(target), L"file.zip"), voInetErrorSuccess);
        EXPECT_GE(log().count(HostLogLevel::error), 1U);
        EXPECT_GE(log().count(HostLogLevel::error, widened(target).substr(0, 300)), 1U);
    }
};

TEST_F(BadInput, EmptyNames_AreInvalidArguments) {
    logOn();

    EXPECT_EQ(downloadTo(L"", L"file.zip"), voInetErrorInvalidArgument);
    EXPECT_EQ(downloadTo(widened(localFile()), L""), voInetErrorInvalidArgument);
    EXPECT_EQ(downloadTo(L"", L""), voInetErrorInvalidArgument);

    EXPECT_THAT(requests(), IsEmpty());
    expectLocalFile("old");
}

TEST_F(BadInput, EmptyNamesBeforeALogon_AreInvalidArguments) {
    EXPECT_EQ(downloadTo(L"", L"file.zip"), voInetErrorInvalidArgument);
    EXPECT_EQ(downloadTo(widened(localFile()), L""), voInetErrorInvalidArgument);
}

TEST_F(BadInput, UploadWithNothing_IsNotSupported) {
    EXPECT_EQ(transfer().UploadFile(L"", L"", nullptr), voInetErrorNotSupported);
}

TEST_F(BadInput, RemoteNameOfBlanksOnly_AsksForTheRoot) {
    logOn();
    server().connection(answer(reply(404)));

    EXPECT_EQ(downloadTo(widened(localFile()), L"   "), voInetErrorFileNotFound);

    ASSERT_THAT(requests(), SizeIs(1));
    EXPECT_EQ(requests().front().target, "/");
}

TEST_F(BadInput, ControlCharacterInTheRemoteName_MakesNoUrl) {
    logOn();

    EXPECT_EQ(downloadTo(widened(localFile()), L"a\x01.zip"), voInetErrorTransferFailed);

    EXPECT_THAT(requests(), IsEmpty());
    expectLocalFile("old");
}

TEST_F(BadInput, RemoteNameOfAMillionCharacters_IsSent) {
    logOn();
    server().connection(answer(reply(404)));
    const std::wstring name(1'000'000, L'n');

    EXPECT_EQ(downloadTo(widened(localFile()), name), voInetErrorFileNotFound);

    ASSERT_THAT(requests(), SizeIs(1));
    EXPECT_EQ(requests().front().target.size(), name.size() + 1);
    expectLocalFile("old");
}

TEST_F(BadInput, RemoteNameBeyondWhatCurlTakes_IsATransferFailure) {
    logOn();
    std::wstring name;
    name.resize(9'000'000, L'n');

    EXPECT_EQ(downloadTo(widened(localFile()), name), voInetErrorTransferFailed);

    EXPECT_THAT(requests(), IsEmpty());
    expectLocalFile("old");
}

TEST_F(BadInput, HostOfAMillionCharacters_FailsTheLogon) {
    TransferSettings settings;
    settings.hostNetBios = std::wstring(1'000'000, L'h') + L":80";
    applySettings(transfer(), settings);

    EXPECT_THAT(transfer().Logon(false, 0),
                testing::AnyOf(voInetErrorHostNotResolved, voInetErrorTransferFailed));
}

TEST_F(BadInput, HostWithCharactersThatNoHostHas_FailsTheLogon) {
    for (const std::wstring characters :
         {L"a b", L"a/b", L"a?b", L"[", L"]", L"[::1", L"%", L"\x01", L"user@", L"\xd800"}) {
        TransferSettings settings;
        // Beyond the length of a label, so that no resolver asks the network for any of them.
        settings.hostNetBios = std::wstring(64, L'x') + characters + L":80";
        applySettings(transfer(), settings);

        EXPECT_LT(transfer().Logon(false, 0), 0);
    }
}

TEST_F(BadInput, PortsThatNoServerHas_FailTheLogon) {
    for (const std::wstring port :
         {L"0", L"-1", L"65536", L"2147483647", L"99999999999", L"", L"x"}) {
        TransferSettings settings;
        settings.hostNetBios = L"127.0.0.1:" + port;
        applySettings(transfer(), settings);

        EXPECT_LT(transfer().Logon(false, 0), 0);
    }
}

TEST_F(BadInput, LongestCredentialsAndToken_AreSentWhole) {
    auto absurd = settings();
    absurd.user = std::wstring(20'000, L'u');
    absurd.password = std::wstring(20'000, L'p');
    absurd.updateToken = std::wstring(20'000, L't');
    logOn(absurd);
    server().connection(answers(
        {keepAliveReply(401, {}, {"WWW-Authenticate: Basic realm=\"r\""}), reply(200, "new")}));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(2));
    EXPECT_EQ(requests()[1].header("Authorization"),
              basicCredentials(std::string(20'000, 'u') + ":" + std::string(20'000, 'p')));
    EXPECT_EQ(requests()[1].header("UpdateToken"), std::string(20'000, 't'));
}

TEST_F(BadInput, UnknownOptions_AreRefusedAndChangeNothing) {
    for (const int id : {-1, 10, 21, 1000, std::numeric_limits<int>::max()}) {
        const auto option = static_cast<voInetOption>(id);
        EXPECT_EQ(transfer().SetOption(option, 5), voInetErrorInvalidOption) << id;
        EXPECT_EQ(transfer().SetOption(option, 5L), voInetErrorInvalidOption) << id;
        EXPECT_EQ(transfer().SetOption(option, true), voInetErrorInvalidOption) << id;
        EXPECT_EQ(transfer().SetOption(option, std::wstring(L"x")), voInetErrorInvalidOption) << id;
        EXPECT_EQ(transfer().SetOption(option, std::wstring()), voInetErrorInvalidArgument) << id;
    }
}

TEST_F(BadInput, NullProxyRecord_IsAnInvalidArgument) {
    EXPECT_EQ(transfer().SetOption(voInetOptionSite, static_cast<const CProxyParams*>(nullptr)),
              voInetErrorInvalidArgument);
    EXPECT_FALSE(transfer().m_bUseProxy);
}

TEST_F(BadInput, EmptyProxyRecord_LeavesNoProxy) {
    const CProxyParams empty;
    EXPECT_EQ(transfer().SetOption(voInetOptionSite, &empty), voInetErrorSuccess);
    logOn();
    server().connection(answer(reply(200, "new")));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
}

TEST_F(BadInput, LogonTimeoutsBeyondWhatCurlTakes_StillConnect) {
    applySettings(transfer(), settings());
    for (const unsigned seconds : {0U, 2'147'483U, 2'147'484U, 4'294'967'295U}) {
        server().connection({awaitClose()});
        EXPECT_EQ(transfer().Logon(true, seconds), voInetErrorSuccess) << seconds;
    }
}

TEST_F(BadInput, DirectoryAsTarget_StaysADirectoryAndIsAnErrorLine) {
    logOn();

    expectFailedReplacement(directory().path());

    expectLocalFile("old");
}

TEST_F(BadInput, TargetBelowAFile_IsAnErrorLine) {
    logOn();

    expectFailedReplacement(localFile() + "/below");

    expectLocalFile("old");
}

TEST_F(BadInput, TargetNameTooLongForTheFileSystem_IsAnErrorLine) {
    logOn();

    expectFailedReplacement(directory().path(std::string(300, 'n')));
    expectFailedReplacement(directory().path(std::string(5000, 'n')));

    EXPECT_THAT(directory().entries(), ElementsAre("local.zip"));
}

TEST_F(BadInput, TargetInADirectoryWithoutWritePermission_StaysAsItWas) {
    logOn();
    const std::string target = directory().makeFile("closed/target", "old");
    ASSERT_EQ(::chmod(directory().path("closed").c_str(), 0500), 0);
    {
        const PermissionsCount permissionsCount;

        expectFailedReplacement(target);
    }

    ASSERT_EQ(::chmod(directory().path("closed").c_str(), 0700), 0);
    EXPECT_EQ(readFile(target), "old");
}

TEST_F(BadInput, UnreadableLocalFile_IsReplacedByTheWholeDownload) {
    logOn();
    ASSERT_EQ(::chmod(localFile().c_str(), 0), 0);
    server().connection(answer(reply(200, "new")));
    {
        const PermissionsCount permissionsCount;

        EXPECT_EQ(download().result, voInetErrorSuccess);
    }

    ASSERT_EQ(::chmod(localFile().c_str(), 0600), 0);
    expectLocalFile("new");
}

TEST_F(BadInput, SymbolicLinkAsTarget_StaysAndItsTargetIsReplaced) {
    logOn();
    const std::string link = directory().path("link");
    ASSERT_EQ(::symlink(localFile().c_str(), link.c_str()), 0);
    server().connection(answer(reply(200, "new")));

    EXPECT_EQ(downloadTo(widened(link), L"file.zip"), voInetErrorSuccess);

    struct stat status {};
    ASSERT_EQ(::lstat(link.c_str(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    expectLocalFile("new");
}

TEST_F(BadInput, ModeOfTheLocalFile_IsKept) {
    logOn();
    ASSERT_EQ(::chmod(localFile().c_str(), 0640), 0);
    server().connection(answer(reply(200, "new")));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    struct stat status {};
    ASSERT_EQ(::stat(localFile().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
}

TEST_F(BadInput, FullDisk_IsAWriteErrorAndLeavesTheOldFile) {
    logOn();
    server().connection({receiveRequest(), sendUntilClosed(reply(200, makeBody(500'000)))});
    {
        const FileSizeLimit limit(100'000);

        EXPECT_EQ(download().result, voInetErrorWriteFailed);
    }

    expectLocalFile("old");
}

TEST_F(BadInput, NamesOfTheLocalCopy_GiveItsResults) {
    TransferItf& local = makeTransfer(voInetProtocolLocal);
    directory().makeFile("repository/file.zip", "content");
    local.SetOption(voInetOptionRelativePath, widened(directory().path("repository")));
    long offset = 0;
    bool resume = false;
    const auto copy = [&](const std::wstring& target, const std::wstring& source) {
        return local.DownloadFile(target, source, &sink(), &offset, resume, true);
    };

    // The source is looked at first; without a name it is the repository itself, without content.
    EXPECT_EQ(copy(L"", L"file.zip"), voInetErrorLocalFileOpen);
    EXPECT_EQ(copy(L"", L"missing"), voInetErrorFileNotFound);
    EXPECT_EQ(copy(widened(directory().path("other")), std::wstring(100'000, L'n')),
              voInetErrorFileNotFound);
    EXPECT_EQ(copy(widened(directory().path(std::string(100'000, 'n'))), L"file.zip"),
              voInetErrorLocalFileOpen);
    EXPECT_EQ(local.DownloadFile(widened(directory().path("other")), L"file.zip", &sink(), nullptr,
                                 resume, true),
              voInetErrorSuccess);
    EXPECT_EQ(readFile(directory().path("other")), "content");
}

TEST_F(BadInput, NullSinkOfTheLocalCopy_CopiesSilently) {
    TransferItf& local = makeTransfer(voInetProtocolLocal);
    directory().makeFile("repository/file.zip", "content");
    local.SetOption(voInetOptionRelativePath, widened(directory().path("repository")));
    bool resume = true;

    EXPECT_EQ(local.DownloadFile(widened(localFile()), L"file.zip", nullptr, nullptr, resume, true),
              voInetErrorSuccess);

    EXPECT_FALSE(resume);
    expectLocalFile("content");
}

TEST_F(BadInput, ExchangeWithEmptyNames_IsAnInvalidArgumentAndSendsNothing) {
    TransferSettings settings;
    settings.hostIp = server().hostAndPort();
    applySettings(transfer(), settings);
    const std::wstring request = widened(localFile());
    const std::wstring response = widened(directory().path("response"));

    EXPECT_EQ(transfer().UploadFileResponse(L"", L"/path", response, nullptr),
              voInetErrorInvalidArgument);
    EXPECT_EQ(transfer().UploadFileResponse(request, L"", response, nullptr),
              voInetErrorInvalidArgument);
    EXPECT_EQ(transfer().UploadFileResponse(request, L"/path", L"", nullptr),
              voInetErrorUploadSetup);

    EXPECT_EQ(server().connectionCount(), 0U);
    EXPECT_THAT(directory().entries(), ElementsAre("local.zip"));
    expectLocalFile("old");
}

TEST_F(BadInput, ExchangeWithoutAnAddress_SendsNothingAndSucceeds) {
    applySettings(transfer(), settings());

    EXPECT_EQ(transfer().UploadFileResponse(L"", L"", L"", nullptr), voInetErrorSuccess);

    EXPECT_EQ(server().connectionCount(), 0U);
}

/// An FTP object that has logged on.
class FtpBadInput : public FtpTest {
  protected:
    void SetUp() override {
        makeLocalFile("old");
        logOn();
    }

    voInetError downloadTo(const std::wstring& target, const std::wstring& remoteName) {
        bool resume = false;
        return transfer().DownloadFile(target, remoteName, nullptr, nullptr, resume, true);
    }

    /// The logon's session stays the only one.
    void expectNoDownload() {
        EXPECT_EQ(server().sessionCount(), 1U);
        expectLocalFile("old");
    }

    /// The download itself succeeds; putting it in place of the target does not, which is one error
    /// line of the host library.
    void expectFailedReplacement(const std::string& target) {
        server().session(sending("new"));
        EXPECT_EQ(downloadTo(widened(target), L"file.zip"), voInetErrorSuccess);
        EXPECT_GE(log().count(HostLogLevel::error, widened(target).substr(0, 300)), 1U);
        expectLocalFile("old");
    }
};

TEST_F(FtpBadInput, EmptyNames_AreInvalidArguments) {
    EXPECT_EQ(downloadTo(L"", L"file.zip"), voInetErrorInvalidArgument);
    EXPECT_EQ(downloadTo(widened(localFile()), L""), voInetErrorInvalidArgument);
    EXPECT_EQ(downloadTo(L"", L""), voInetErrorInvalidArgument);

    expectNoDownload();
}

TEST_F(FtpBadInput, NullSinkAndNullOffset_DownloadSilently) {
    server().session(sending("new"));

    EXPECT_EQ(downloadTo(widened(localFile()), L"file.zip"), voInetErrorSuccess);

    expectLocalFile("new");
}

TEST_F(FtpBadInput, ControlCharacterInTheRemoteName_MakesNoUrl) {
    EXPECT_EQ(downloadTo(widened(localFile()), L"a\x01.zip"), voInetErrorTransferFailed);

    expectNoDownload();
}

TEST_F(FtpBadInput, RemoteNameBeyondWhatCurlTakes_IsATransferFailure) {
    std::wstring name;
    name.resize(9'000'000, L'n');

    EXPECT_EQ(downloadTo(widened(localFile()), name), voInetErrorTransferFailed);

    expectNoDownload();
}

TEST_F(FtpBadInput, UnpairedSurrogateInTheRemoteName_IsAReplacementCharacter) {
    server().session(sending("new"));

    EXPECT_EQ(downloadTo(widened(localFile()), L"a\xd800.zip"), voInetErrorSuccess);

    EXPECT_THAT(server().commands(), testing::Contains("RETR a\xef\xbf\xbd.zip"));
}

TEST_F(FtpBadInput, TargetsThatCannotBeReplaced_AreErrorLines) {
    expectFailedReplacement(directory().path());
    expectFailedReplacement(localFile() + "/below");
    expectFailedReplacement(directory().path(std::string(300, 'n')));
}

TEST_F(FtpBadInput, UploadsWithNothing_GiveTheirFixedResults) {
    EXPECT_EQ(transfer().UploadFile(L"", L"", nullptr), voInetErrorNotSupported);
    TransferSettings withAddress;
    withAddress.hostIp = server().hostAndPort();
    applySettings(transfer(), withAddress);
    EXPECT_EQ(transfer().UploadFileResponse(L"", L"", L"", nullptr), voInetErrorFailed);

    expectNoDownload();
}

TEST_F(FtpBadInput, OperationsBeforeALogon_EndWithoutNetwork) {
    makeTransfer(voInetProtocolFtp);

    EXPECT_EQ(downloadTo(L"", L""), voInetErrorInvalidArgument);
    EXPECT_EQ(downloadTo(widened(localFile()), L"file.zip"), voInetErrorBadOptions);
    EXPECT_EQ(transfer().UploadFile(L"", L"", nullptr), voInetErrorNotSupported);
    EXPECT_EQ(transfer().UploadFileResponse(L"", L"", L"", nullptr), voInetErrorSuccess);
    EXPECT_EQ(transfer().LogOut(), voInetErrorSuccess);

    expectNoDownload();
}

TEST_F(FtpBadInput, PortsThatNoServerHas_FailTheLogon) {
    for (const std::wstring port :
         {L"0", L"-1", L"65536", L"2147483647", L"99999999999", L"", L"x"}) {
        TransferSettings settings;
        settings.hostNetBios = L"127.0.0.1:" + port;
        applySettings(transfer(), settings);

        EXPECT_LT(transfer().Logon(false, 0), 0);
    }
}

TEST_F(FtpBadInput, HostOfAMillionCharacters_FailsTheLogon) {
    TransferSettings settings;
    settings.hostNetBios = std::wstring(1'000'000, L'h') + L":21";
    applySettings(transfer(), settings);

    EXPECT_THAT(transfer().Logon(false, 0),
                testing::AnyOf(voInetErrorHostNotResolved, voInetErrorTransferFailed));
}

TEST_F(FtpBadInput, NullProxyRecord_IsAnInvalidArgument) {
    EXPECT_EQ(transfer().SetOption(voInetOptionSite, static_cast<const CProxyParams*>(nullptr)),
              voInetErrorInvalidArgument);
    EXPECT_FALSE(transfer().m_bUseProxy);
}

TEST_F(BadInput, OperationsWithoutArguments_OfTheUncObject_AreNotImplemented) {
    TransferItf& unc = makeTransfer(voInetProtocolUnc);
    bool resume = false;

    EXPECT_EQ(unc.DownloadFile(L"", L"", nullptr, nullptr, resume, false),
              voInetErrorNotImplemented);
    EXPECT_EQ(unc.UploadFile(L"", L"", nullptr), voInetErrorNotImplemented);
    EXPECT_EQ(unc.UploadFileResponse(L"", L"", L"", nullptr), voInetErrorNotImplemented);
}

TEST_F(BadInput, UploadsWithoutArguments_OfTheLocalObject_AreNotImplemented) {
    TransferItf& local = makeTransfer(voInetProtocolLocal);

    EXPECT_EQ(local.UploadFile(L"", L"", nullptr), voInetErrorNotImplemented);
    EXPECT_EQ(local.UploadFileResponse(L"", L"", L"", nullptr), voInetErrorNotImplemented);
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
