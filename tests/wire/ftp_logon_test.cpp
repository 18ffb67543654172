// The logon of FTP objects: who logs in, what counts as reached, which host form is used.

#include "support/ftp.h"
#include "voinet/FTPConnection.h"

#include <string>
#include <utility>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::SizeIs;

class FtpLogon : public FtpTest {
  protected:
    /// The commands of a logon with these credentials.
    std::vector<std::string> commandsFor(const std::wstring& user, const std::wstring& password) {
        TransferSettings withUser = settings();
        withUser.user = user;
        withUser.password = password;
        applySettings(transfer(), withUser);
        server().session({});
        EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
        EXPECT_TRUE(server().control().awaitPlayed());
        return server().commands();
    }

    voInetError logonRefused(const std::string& word, const std::string& reply) {
        applySettings(transfer(), settings());
        FtpSession session;
        session.replies = {{word, reply}};
        server().session(session);
        return transfer().Logon(false, 0);
    }

    TransferSettings without(std::wstring TransferSettings::*member) const {
        TransferSettings incomplete = settings();
        (incomplete.*member).clear();
        return incomplete;
    }
};

TEST_F(FtpLogon, Factory_MakesAnFtpObjectWithItsPort) {
    EXPECT_EQ(transfer().GetProtocol(), voInetProtocolFtp);
    EXPECT_EQ(transfer().m_nPort, 21);
    EXPECT_NE(dynamic_cast<CFtpConnection*>(&transfer()), nullptr);
    EXPECT_EQ(log().count(HostLogLevel::info, L"FTP Session initialized"), 1U);
    EXPECT_EQ(log().count(HostLogLevel::info, L"FTP Session closed"), 0U);

    makeTransfer(voInetProtocolHttp);

    EXPECT_EQ(log().count(HostLogLevel::info, L"FTP Session closed"), 1U);
}

TEST_F(FtpLogon, CheckOptions_SaysNothingBeforeIt) {
    applySettings(transfer(), settings());
    EXPECT_FALSE(transfer().CheckOptions()) << "neither host nor user are there yet";
    server().session({});

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_TRUE(transfer().CheckOptions());
}

TEST_F(FtpLogon, WithoutAUser_IsAnonymous) {
    EXPECT_THAT(commandsFor(L"", L""),
                ElementsAre("USER anonymous", "PASS anonymous@example.com", "PWD"));
    EXPECT_EQ(transfer().m_strUser, L"anonymous");
    EXPECT_EQ(transfer().m_strPassword_utf8_rep, "anonymous@example.com");
    EXPECT_TRUE(transfer().m_bUseAuthentication);
}

TEST_F(FtpLogon, AnonymousInAnyLetterCase_GetsTheFixedPassword) {
    EXPECT_THAT(commandsFor(L"Anonymous", L""),
                ElementsAre("USER Anonymous", "PASS anonymous@example.com", "PWD"));
}

TEST_F(FtpLogon, AnonymousWithAPassword_KeepsIt) {
    EXPECT_THAT(commandsFor(L"anonymous", L"me@here.example"),
                ElementsAre("USER anonymous", "PASS me@here.example", "PWD"));
}

TEST_F(FtpLogon, PasswordWithoutAUser_GoesWithAnonymous) {
    EXPECT_THAT(commandsFor(L"", L"secret"), ElementsAre("USER anonymous", "PASS secret", "PWD"));
}

TEST_F(FtpLogon, GivenUser_IsSentAsItIs) {
    EXPECT_THAT(commandsFor(L"us@er 1%", L"pa:ss \u00e4"),
                ElementsAre("USER us@er 1%", "PASS pa:ss \u00e4", "PWD"));
}

TEST_F(FtpLogon, UserWithoutAPassword_SendsAnEmptyOne) {
    EXPECT_THAT(commandsFor(L"user", L""), ElementsAre("USER user", "PASS ", "PWD"));
    EXPECT_EQ(transfer().m_strPassword, L"");
}

TEST_F(FtpLogon, ServerThatWantsNoPassword_IsNotSentOne) {
    FtpSession open;
    open.replies = {{"USER", "230 Come in"}};
    applySettings(transfer(), settings());
    server().session(open);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_THAT(server().commands(), ElementsAre("USER anonymous", "PWD"));
}

TEST_F(FtpLogon, SecondLogon_GoesWithTheSameDefaults) {
    commandsFor(L"", L"");
    server().forgetCommands();

    EXPECT_THAT(commandsFor(L"", L""),
                ElementsAre("USER anonymous", "PASS anonymous@example.com", "PWD"));
}

TEST_F(FtpLogon, IncompleteSettings_AreBadOptionsWithoutNetwork) {
    const auto expectBadOptions = [this](const TransferSettings& incomplete) {
        makeTransfer(voInetProtocolFtp);
        applySettings(transfer(), incomplete);
        EXPECT_EQ(transfer().Logon(false, 0), voInetErrorBadOptions);
    };
    expectBadOptions(without(&TransferSettings::site));
    for (const std::wstring port : {L"0", L"-1", L"", L"x"}) {
        TransferSettings portless = settings();
        portless.hostNetBios = L"127.0.0.1:" + port;
        expectBadOptions(portless);
    }
    EXPECT_EQ(server().sessionCount(), 0U);
}

TEST_F(FtpLogon, IncompleteSettings_StillGetTheAnonymousDefaults) {
    applySettings(transfer(), without(&TransferSettings::site));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorBadOptions);

    EXPECT_EQ(transfer().m_strUser, L"anonymous");
    EXPECT_EQ(transfer().m_strPassword, L"anonymous@example.com");
}

TEST_F(FtpLogon, NoHostFormAtAll_IsSuccessWithoutTrying) {
    applySettings(transfer(), without(&TransferSettings::hostNetBios));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_EQ(transfer().m_strUser, L"");
}

TEST_F(FtpLogon, WrongPassword_IsATransferFailure) {
    EXPECT_EQ(logonRefused("PASS", "530 Login incorrect"), voInetErrorTransferFailed);

    EXPECT_EQ(log().count(HostLogLevel::info, L"Unable to connect to 127.0.0.1 on port " +
                                                  std::to_wstring(server().port()) + L"."),
              1U);
}

TEST_F(FtpLogon, LoginRefusedInAnyWay_IsATransferFailure) {
    for (const char* word : {"USER", "PASS"}) {
        for (const char* reply : {"", "400 No", "430 No", "500 No", "530 No", "550 No"}) {
            EXPECT_EQ(logonRefused(word, reply), voInetErrorTransferFailed) << word << reply;
        }
    }
}

TEST_F(FtpLogon, DirectoryRefused_DependsOnTheReply) {
    // Curl goes on without an answer to PWD, so the reply itself decides. The numbers of HTTP's
    // authentication failures count as reached, intended for proxies.
    const std::vector<std::pair<const char*, voInetError>> replies = {
        {"400 No", voInetErrorSuccess}, {"401 No", voInetErrorSuccess},
        {"402 No", voInetErrorFailed},  {"403 No", voInetErrorSuccess},
        {"407 No", voInetErrorSuccess}, {"502 No", voInetErrorFailed},
        {"550 No", voInetErrorFailed},  {"", voInetErrorTransferFailed},
    };
    for (const auto& [reply, result] : replies) {
        EXPECT_EQ(logonRefused("PWD", reply), result) << reply;
    }
}

TEST_F(FtpLogon, GreetingsThatAreNone_AreTransferFailures) {
    applySettings(transfer(), settings());
    for (const char* greeting :
         {"", "nonsense\r\n", "120 Wait\r\n", "220-Never ends\r\n", "500 No\r\n", "550 No\r\n"}) {
        FtpSession session;
        session.greeting = greeting;
        session.closesAfterGreeting = true;
        server().session(session);
        EXPECT_EQ(transfer().Logon(false, 0), voInetErrorTransferFailed) << greeting;
    }
}

TEST_F(FtpLogon, GreetingOfSeveralLines_IsRead) {
    FtpSession session;
    session.greeting = "220-Welcome\r\n220-to\r\n  this\r\n220 server\r\n";
    applySettings(transfer(), settings());
    server().session(session);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
}

TEST_F(FtpLogon, WithATimeout_OnlyConnectsFromThenOn) {
    applySettings(transfer(), settings());
    makeLocalFile("old");
    server().session({});
    ASSERT_EQ(transfer().Logon(true, 5), voInetErrorSuccess);
    server().session({});

    // It logs in and ends there, with success and without a byte: the way to empty a file. Such an
    // object is for asking whether a server is there, and not for downloads.
    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("");
    EXPECT_THAT(server().commands(), SizeIs(6));
}

TEST_F(FtpLogon, WithATimeoutAndAServerThatIsNotThere_IsATransferFailure) {
    const RefusingPort dead;
    TransferSettings settings;
    settings.hostNetBios = dead.hostAndPort();
    applySettings(transfer(), settings);

    EXPECT_EQ(transfer().Logon(true, 5), voInetErrorTransferFailed);
}

// Host forms.

TEST_F(FtpLogon, AddressDead_UsesTheName) {
    const RefusingPort dead;
    TransferSettings forms;
    forms.hostIp = dead.hostAndPort();
    forms.hostFqdn = L"localhost:" + std::to_wstring(server().port());
    applySettings(transfer(), forms);
    server().session({});
    server().session(sending("new"));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
    EXPECT_EQ(transfer().m_strHost, L"localhost");
}

TEST_F(FtpLogon, LoginRefusedAtTheAddress_TriesTheName) {
    FtpServer address;
    FtpSession refusing;
    refusing.replies = {{"PASS", "530 No"}};
    address.session(refusing);
    TransferSettings forms = settings();
    forms.hostIp = address.hostAndPort();
    applySettings(transfer(), forms);
    server().session({});

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
}

TEST_F(FtpLogon, FileNotFoundAtTheAddress_GoesNowhereElse) {
    FtpServer address;
    FtpSession missing;
    missing.replies = {{"RETR", "550 No such file"}};
    address.session({});
    address.session(missing);
    TransferSettings forms = settings();
    forms.hostIp = address.hostAndPort();
    applySettings(transfer(), forms);
    ASSERT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_EQ(download().result, voInetErrorFileNotFound);

    EXPECT_EQ(server().sessionCount(), 0U);
}

TEST_F(FtpLogon, DownloadRefusedAtTheAddress_LogsOnToTheNextFormAndDownloadsThere) {
    FtpServer address;
    FtpSession busy;
    busy.replies = {{"RETR", "450 Busy"}};
    address.session({});
    address.session(busy);
    TransferSettings forms;
    forms.hostIp = address.hostAndPort();
    forms.hostFqdn = server().hostAndPort();
    applySettings(transfer(), forms);
    ASSERT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    server().session({});
    server().session(sending("new"));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile("new");
    EXPECT_EQ(server().sessionCount(), 2U);
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
