#include "session.h"

#include "commanderror.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace voinet_command {

using tessaro_com::pkm::voInet::voInetProtocolLocal;
using tessaro_com::pkm::voInet::voInetProtocolUnc;

namespace {

class SessionTest : public testing::Test {
  protected:
    std::unique_ptr<Session> Make() {
        return std::make_unique<Session>(options, CommandContext{console, events, masker, log});
    }

    void ExpectUsageError(const std::string& why) {
        try {
            Make();
            ADD_FAILURE() << "accepted: " << why;
        } catch (const CommandError& error) {
            EXPECT_EQ(error.Status(), ExitStatus::usage) << why;
        }
    }

    ConnectionOptions options;
    OutputOptions output;
    Console console{true};
    EventStream events{false};
    Masker masker;
    LogOutput log{output, console, events, masker};
};

/// An environment variable for the life of the object.
class Variable {
  public:
    Variable(const char* name, const char* value) : m_name(name) { ::setenv(name, value, 1); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;
    ~Variable() { ::unsetenv(m_name); }

  private:
    const char* m_name;
};

}  // namespace

TEST_F(SessionTest, ThreeHostForms_ReachTheirSettings) {
    options.hostIp = "[::1]:81";
    options.hostFqdn = "repo.example.com:82";
    options.hostNetbios = "DEPOT";
    const auto session = Make();

    EXPECT_EQ(session->Transfer().m_strHostIP, L"[::1]");
    EXPECT_EQ(session->Transfer().m_nPortIP, 81);
    EXPECT_EQ(session->Transfer().m_strHostFqdn, L"repo.example.com");
    EXPECT_EQ(session->Transfer().m_nPortFqdn, 82);
    EXPECT_EQ(session->Transfer().m_strHostNetBios, L"DEPOT");
    EXPECT_EQ(session->Transfer().m_nPortNetbios, 80);
}

TEST_F(SessionTest, PlainHost_FillsTheFormThatFits) {
    options.host = "192.0.2.7:8080";
    EXPECT_EQ(Make()->Transfer().m_strHostIP, L"192.0.2.7");
    options.host = "repo.example.com";
    EXPECT_EQ(Make()->Transfer().m_strHostFqdn, L"repo.example.com");
    options.host = "depot";
    EXPECT_EQ(Make()->Transfer().m_strHostNetBios, L"depot");
}

TEST_F(SessionTest, PlainHostWithAFormGiven_FillsThatForm) {
    options.host = "manage.example.com:8080";
    options.hostForm = HostForm::ip;
    const auto session = Make();

    EXPECT_EQ(session->Transfer().m_strHostIP, L"manage.example.com");
    EXPECT_EQ(session->Transfer().m_nPortIP, 8080);
    EXPECT_TRUE(session->Transfer().m_strHostFqdn.empty());
}

TEST_F(SessionTest, NoHost_IsAUsageErrorForNetworkProtocolsOnly) {
    ExpectUsageError("http without a host");
    options.protocol = voInetProtocolLocal;
    ExpectUsageError("local without a repository");
    options.repository = "/";
    EXPECT_NO_THROW(Make());
    options.protocol = voInetProtocolUnc;
    EXPECT_NO_THROW(Make());
}

TEST_F(SessionTest, Repository_LosesItsOuterSlashesForTheNetworkOnly) {
    options.host = "depot";
    options.repository = "/a/b/";
    EXPECT_EQ(Make()->Transfer().m_strRelativePath, L"a/b");
    options.protocol = voInetProtocolLocal;
    EXPECT_EQ(Make()->Transfer().m_strRelativePath, L"/a/b/");
}

TEST_F(SessionTest, BadTexts_AreUsageErrors) {
    options.host = "depot";
    options.repository = "with blank";
    ExpectUsageError("a blank in a URL");
    options.repository = "\xff";
    ExpectUsageError("no UTF-8");
    options.repository.clear();
    options.site = "a\nb";
    ExpectUsageError("a line break");
}

TEST_F(SessionTest, Credentials_ReachTheSettingsAndAreMasked) {
    const Variable password("VOINET_TEST_PASSWORD", "geheim");
    const Variable token("VOINET_TEST_TOKEN", "token-1");
    options.host = "depot";
    options.user = "joe";
    options.password.environment = "VOINET_TEST_PASSWORD";
    options.updateToken.environment = "VOINET_TEST_TOKEN";
    const auto session = Make();

    EXPECT_TRUE(session->Transfer().m_bUseAuthentication);
    EXPECT_EQ(session->Transfer().m_strPassword, L"geheim");
    EXPECT_EQ(session->Transfer().m_strUpdateToken, L"token-1");
    EXPECT_EQ(masker.Mask("voInet", "geheim token-1"), "*** ***");
}

TEST_F(SessionTest, Proxy_ReachesTheSettings) {
    const Variable password("VOINET_TEST_PASSWORD", "geheim");
    options.host = "depot";
    options.proxy = "[::2]:3128";
    options.proxyUser = "joe";
    options.proxyPassword.environment = "VOINET_TEST_PASSWORD";
    options.bypass = "a, b;c";
    options.bypassLocal = true;
    const auto session = Make();

    EXPECT_EQ(session->Transfer().m_strProxy, L"::2");
    EXPECT_EQ(session->Transfer().m_nProxyPort, 3128);
    EXPECT_EQ(session->Transfer().m_strProxyUserPwd, L"joe:geheim");
    EXPECT_EQ(session->Transfer().m_nExclusionListSize, 3);
    EXPECT_TRUE(session->Transfer().m_bBypassLocal);
    EXPECT_FALSE(session->Transfer().m_bAllowUserToConfigureProxy);
    EXPECT_FALSE(session->Transfer().m_bAltUseProxyAuthentication);
}

TEST_F(SessionTest, AlternateProxyUser_AllowsTheUserToConfigureTheProxy) {
    const Variable password("VOINET_TEST_PASSWORD", "geheim");
    options.host = "depot";
    options.proxy = "proxy:3128";
    options.altProxyUser = "jim";
    options.altProxyPassword.environment = "VOINET_TEST_PASSWORD";
    const auto session = Make();

    EXPECT_TRUE(session->Transfer().m_bAllowUserToConfigureProxy);
    EXPECT_EQ(session->Transfer().m_strAltProxyUserPwd, L"jim:geheim");
    EXPECT_FALSE(session->Transfer().m_bUseProxyAuthentication);
}

}  // namespace voinet_command
