// Transfers through squid: HTTP from nginx, FTP from vsftpd.

#include "nginxserver.h"
#include "servertest.h"
#include "squidproxy.h"
#include "vsftpdserver.h"

#include <string>

namespace tessaro_com::pkm::voInet {

namespace {

using testing::HasSubstr;
using testing::Not;
using voinettest::kLargeSize;
using voinettest::kMediumSize;
using voinettest::NginxServer;
using voinettest::ReservedPort;
using voinettest::servedText;
using voinettest::SquidProxy;
using voinettest::VsftpdServer;

const SquidProxy& squid() {
    return voinettest::shared<SquidProxy>();
}

const NginxServer& nginx() {
    return voinettest::shared<NginxServer>();
}

const VsftpdServer& vsftpd() {
    static const voinettest::SharedServer<VsftpdServer> kServer(voinettest::kLoopbackIpv4);
    return kServer.get();
}

CProxyParams recordOf(const ReservedPort& port) {
    return wire::proxyAt(port.number());
}

/// Base of the tests: a transfer through the proxy, of either protocol.
class SquidTest : public voinettest::ServerTest {
  protected:
    void useProxy(const CProxyParams& record) {
        ASSERT_EQ(transfer().SetOption(voInetOptionSite, &record), voInetErrorSuccess);
    }

    void downloads(std::wstring_view remoteName, std::size_t size) {
        EXPECT_EQ(download(remoteName).result, voInetErrorSuccess);

        expectLocalText(servedText(size));
    }

    void failsWith(voInetError result, std::wstring_view remoteName) {
        makeLocalFile("old");

        EXPECT_EQ(download(remoteName).result, result);

        expectLocalFile("old");
    }
};

class HttpThroughSquid : private voinettest::Needs<nginx, squid>, public SquidTest {
  protected:
    void SetUp() override { makeTransfer(voInetProtocolHttp); }

    static TransferSettings settings() { return settingsFor(nginx().port()); }

    static std::string url(const std::string& path) {
        return "http://127.0.0.1:" + nginx().port().text() + path;
    }

    void logOnThrough(const CProxyParams& record) {
        useProxy(record);
        ASSERT_EQ(logOn(settings()), voInetErrorSuccess);
    }

    static CProxyParams withCredentials(const std::string& user, const std::string& password) {
        CProxyParams record = recordOf(squid().portAuthenticated());
        record.m_bHttpProxyAuthentication = true;
        record.m_strHttpProxyUser = wide(user);
        record.m_strHttpProxyPassword = wide(password);
        return record;
    }

    static CProxyParams withAlternate(CProxyParams record, const std::string& user,
                                      const std::string& password) {
        record.m_bAllowUserToConfigureProxy = true;
        record.m_bHttpAltCredentials = true;
        record.m_strHttpAltUser = wide(user);
        record.m_strHttpAltPassword = wide(password);
        return record;
    }
};

TEST_F(HttpThroughSquid, LogonAndDownload_GoThroughIt) {
    logOnThrough(recordOf(squid().port()));

    downloads(L"medium.bin", kMediumSize);

    const std::string log = squid().accessLog();
    EXPECT_THAT(log, HasSubstr("HEAD " + url("/SiteStat.xml")));
    EXPECT_THAT(log, HasSubstr("GET " + url("/medium.bin")));
}

TEST_F(HttpThroughSquid, HundredMebibytes_Arrive) {
    logOnThrough(recordOf(squid().port()));

    downloads(L"large.bin", kLargeSize);
}

TEST_F(HttpThroughSquid, Resume_FetchesTheRest) {
    logOnThrough(recordOf(squid().port()));
    makeHalf();

    EXPECT_EQ(download(L"medium.bin", {static_cast<long>(kResumeOffset)}).result,
              voInetErrorSuccess);

    expectResumed();
}

TEST_F(HttpThroughSquid, AbsentFile_IsNotFound) {
    logOnThrough(recordOf(squid().port()));

    failsWith(voInetErrorFileNotFound, L"absent.bin");
}

TEST_F(HttpThroughSquid, RepositoryThatIsDown_FailsTheLogon) {
    const ReservedPort nobody;
    useProxy(recordOf(squid().port()));

    EXPECT_EQ(logOn(settingsFor(nobody)), voInetErrorFailed);
}

TEST_F(HttpThroughSquid, ListedHost_IsReachedDirectly) {
    CProxyParams record = recordOf(squid().port());
    record.m_strExclusionList = L"192.0.2.1;127.0.0.1";
    record.m_nExclusionListSize = 2;
    logOnThrough(record);

    downloads(L"closing/one.bin", 1);

    EXPECT_THAT(squid().accessLog(), Not(HasSubstr(url("/closing/one.bin"))));
}

TEST_F(HttpThroughSquid, ListedOtherHost_IsReachedThroughIt) {
    CProxyParams record = recordOf(squid().port());
    record.m_strExclusionList = L"192.0.2.1";
    record.m_nExclusionListSize = 1;
    logOnThrough(record);

    downloads(L"rangeless/one.bin", 1);

    EXPECT_THAT(squid().accessLog(), HasSubstr(url("/rangeless/one.bin")));
}

TEST_F(HttpThroughSquid, RightCredentials_Arrive) {
    logOnThrough(withCredentials(SquidProxy::kUser, SquidProxy::kPassword));

    downloads(L"medium.bin", kMediumSize);
}

TEST_F(HttpThroughSquid, NoCredentials_AreAskedFor) {
    logOnThrough(recordOf(squid().portAuthenticated()));

    failsWith(voInetErrorProxyAuthRequired, L"medium.bin");
}

TEST_F(HttpThroughSquid, WrongCredentials_GiveUp) {
    logOnThrough(withCredentials(SquidProxy::kUser, "wrong"));

    failsWith(voInetErrorMaxRetries, L"medium.bin");
}

TEST_F(HttpThroughSquid, WrongFirstAndRightAlternateCredentials_Arrive) {
    logOnThrough(withAlternate(withCredentials(SquidProxy::kUser, "wrong"),
                               SquidProxy::kAlternateUser, SquidProxy::kAlternatePassword));

    downloads(L"medium.bin", kMediumSize);
}

TEST_F(HttpThroughSquid, RightAlternateCredentialsAlone_Arrive) {
    logOnThrough(withAlternate(recordOf(squid().portAuthenticated()), SquidProxy::kAlternateUser,
                               SquidProxy::kAlternatePassword));

    downloads(L"medium.bin", kMediumSize);
}

TEST_F(HttpThroughSquid, WrongFirstAndWrongAlternateCredentials_GiveUp) {
    logOnThrough(withAlternate(withCredentials(SquidProxy::kUser, "wrong"),
                               SquidProxy::kAlternateUser, "wrong"));

    failsWith(voInetErrorMaxRetries, L"medium.bin");
}

TEST_F(HttpThroughSquid, WrongAlternateCredentialsAlone_AreAskedFor) {
    logOnThrough(
        withAlternate(recordOf(squid().portAuthenticated()), SquidProxy::kAlternateUser, "wrong"));

    failsWith(voInetErrorProxyAuthRequired, L"medium.bin");
}

// The alternate credentials are used from the first request on, and each retry sets them again.
TEST_F(HttpThroughSquid, RightFirstAndWrongAlternateCredentials_GiveUp) {
    logOnThrough(withAlternate(withCredentials(SquidProxy::kUser, SquidProxy::kPassword),
                               SquidProxy::kAlternateUser, "wrong"));

    failsWith(voInetErrorMaxRetries, L"medium.bin");
}

class FtpThroughSquid : private voinettest::Needs<vsftpd, squid>, public SquidTest {
  protected:
    void SetUp() override { makeTransfer(voInetProtocolFtp); }

    static TransferSettings settings() { return settingsFor(vsftpd().port()); }

    /// As the proxy's log has it: without credentials.
    static std::string url(const std::string& path) {
        return "127.0.0.1:" + vsftpd().port().text() + path;
    }

    void logOnThrough(const CProxyParams& record) {
        useProxy(record);
        ASSERT_EQ(logOn(settings()), voInetErrorSuccess);
    }

    static TransferSettings settingsOf(const std::string& user, const std::string& password) {
        vsftpd().requireUsers();
        TransferSettings settings = FtpThroughSquid::settings();
        settings.user = wide(user);
        settings.password = wide(password);
        return settings;
    }

    static CProxyParams withCredentials(const std::string& user, const std::string& password) {
        CProxyParams record = recordOf(squid().portAuthenticated());
        record.m_bFtpProxyAuthentication = true;
        record.m_strFtpProxyUser = wide(user);
        record.m_strFtpProxyPassword = wide(password);
        return record;
    }

    static CProxyParams withAlternate(CProxyParams record, const std::string& user,
                                      const std::string& password) {
        record.m_bAllowUserToConfigureProxy = true;
        record.m_bFtpAltCredentials = true;
        record.m_strFtpAltUser = wide(user);
        record.m_strFtpAltPassword = wide(password);
        return record;
    }
};

TEST_F(FtpThroughSquid, LogonAndDownload_GoThroughIt) {
    logOnThrough(recordOf(squid().port()));

    downloads(L"medium.bin", kMediumSize);

    EXPECT_THAT(squid().accessLog(), HasSubstr(url("/medium.bin")));
}

TEST_F(FtpThroughSquid, HundredMebibytes_Arrive) {
    logOnThrough(recordOf(squid().port()));

    downloads(L"large.bin", kLargeSize);
}

TEST_F(FtpThroughSquid, User_Arrives) {
    useProxy(recordOf(squid().port()));
    ASSERT_EQ(logOn(settingsOf(VsftpdServer::kPlainUser, VsftpdServer::kPlainPassword)),
              voInetErrorSuccess);

    downloads(L"medium.bin", kMediumSize);
}

// They are sent encoded, and squid decodes them before it logs on.
TEST_F(FtpThroughSquid, UserWithSpecialCharacters_Arrives) {
    useProxy(recordOf(squid().port()));
    ASSERT_EQ(logOn(settingsOf(VsftpdServer::kSpecialUser, VsftpdServer::kSpecialPassword)),
              voInetErrorSuccess);

    downloads(L"medium.bin", kMediumSize);

    vsftpd().directory().awaitText("vsftpd.log",
                                   std::string("[") + VsftpdServer::kSpecialUser + "] OK DOWNLOAD");
}

TEST_F(FtpThroughSquid, WrongPassword_Fails) {
    useProxy(recordOf(squid().port()));
    EXPECT_EQ(logOn(settingsOf(VsftpdServer::kPlainUser, "wrong")), voInetErrorSuccess)
        << "being asked for a password is no refusal";

    failsWith(voInetErrorFailed, L"medium.bin");
}

// The proxy's page comes with 404, where the server itself says 550.
TEST_F(FtpThroughSquid, AbsentFile_Fails) {
    logOnThrough(recordOf(squid().port()));

    failsWith(voInetErrorFailed, L"absent.bin");
}

TEST_F(FtpThroughSquid, RepositoryThatIsDown_FailsTheLogon) {
    const ReservedPort nobody;
    useProxy(recordOf(squid().port()));

    EXPECT_EQ(logOn(settingsFor(nobody)), voInetErrorFailed);
}

// A status of exactly 400 is no failure here: what the proxy explains it with is taken for the
// file. A host has to check what it has downloaded.
TEST_F(FtpThroughSquid, AnswerOf400_IsTakenForTheFile) {
    TransferSettings badName = settings();
    badName.hostNetBios = L"no..name:21";
    useProxy(recordOf(squid().port()));
    ASSERT_EQ(logOn(badName), voInetErrorSuccess);
    makeLocalFile("old");

    EXPECT_EQ(download(L"medium.bin").result, voInetErrorSuccess);

    EXPECT_THAT(wire::readFile(localFile()), HasSubstr("Invalid URL"));
}

TEST_F(FtpThroughSquid, ListedHost_IsReachedDirectly) {
    CProxyParams record = recordOf(squid().port());
    record.m_strExclusionList = L"127.0.0.1";
    record.m_nExclusionListSize = 1;
    logOnThrough(record);

    downloads(L"one.bin", 1);

    EXPECT_THAT(squid().accessLog(), Not(HasSubstr(url("/one.bin"))));
}

// What the server does not have is asked for once more, through the proxy after all.
TEST_F(FtpThroughSquid, ListedHostWithAnAlternate_IsAskedThroughItInTheEnd) {
    CProxyParams record = recordOf(squid().port());
    record.m_strExclusionList = L"127.0.0.1";
    record.m_nExclusionListSize = 1;
    record.m_bAllowUserToConfigureProxy = true;
    logOnThrough(record);

    failsWith(voInetErrorFailed, L"nowhere.bin");

    EXPECT_THAT(squid().accessLog(), HasSubstr(url("/nowhere.bin")));
}

TEST_F(FtpThroughSquid, RightCredentials_Arrive) {
    logOnThrough(withCredentials(SquidProxy::kUser, SquidProxy::kPassword));

    downloads(L"medium.bin", kMediumSize);
}

TEST_F(FtpThroughSquid, NoCredentials_Fail) {
    logOnThrough(recordOf(squid().portAuthenticated()));

    failsWith(voInetErrorFailed, L"medium.bin");
}

TEST_F(FtpThroughSquid, WrongCredentials_Fail) {
    logOnThrough(withCredentials(SquidProxy::kUser, "wrong"));

    failsWith(voInetErrorFailed, L"medium.bin");
}

TEST_F(FtpThroughSquid, WrongFirstAndRightAlternateCredentials_Arrive) {
    logOnThrough(withAlternate(withCredentials(SquidProxy::kUser, "wrong"),
                               SquidProxy::kAlternateUser, SquidProxy::kAlternatePassword));

    downloads(L"medium.bin", kMediumSize);
}

TEST_F(FtpThroughSquid, RightFirstAndWrongAlternateCredentials_Arrive) {
    logOnThrough(withAlternate(withCredentials(SquidProxy::kUser, SquidProxy::kPassword),
                               SquidProxy::kAlternateUser, "wrong"));

    downloads(L"medium.bin", kMediumSize);
}

TEST_F(FtpThroughSquid, WrongFirstAndWrongAlternateCredentials_Fail) {
    logOnThrough(withAlternate(withCredentials(SquidProxy::kUser, "wrong"),
                               SquidProxy::kAlternateUser, "wrong"));

    failsWith(voInetErrorFailed, L"medium.bin");
}

// For FTP squid takes no notice of a range.
TEST_F(FtpThroughSquid, Resume_StartsOver) {
    logOnThrough(recordOf(squid().port()));
    makeHalf();

    const auto outcome = download(L"medium.bin", {static_cast<long>(kResumeOffset)});

    EXPECT_EQ(outcome.result, voInetErrorSuccess);
    EXPECT_EQ(outcome.offset, 0);
    expectLocalText(servedText(kMediumSize));
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet
