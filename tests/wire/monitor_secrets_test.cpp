// No record holds a password, a token or a cookie, wherever it comes from.

#include "support/exchange.h"
#include "support/ftp.h"
#include "support/recordingmonitor.h"
#include "support/wiretest.h"

#include <map>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kPassword = "pass-of-the-server";
constexpr const char* kProxyPassword = "pass-of-the-proxy";
constexpr const char* kAlternatePassword = "pass-of-the-alternate";
constexpr const char* kToken = "token-of-the-update";
constexpr const char* kUrlPassword = "pass-in-the-url";
constexpr const char* kChallenge = "WWW-Authenticate: Basic realm=\"r\"";
constexpr const char* kProxyChallenge = "Proxy-Authenticate: Basic realm=\"p\"";

/// What basic authentication sends, without the scheme.
std::string encoded(const std::string& user, const std::string& password) {
    return basicCredentials(user + ":" + password).substr(std::string("Basic ").size());
}

std::vector<std::string> secrets() {
    return {kPassword,
            kProxyPassword,
            kAlternatePassword,
            kToken,
            kUrlPassword,
            encoded("user", kPassword),
            encoded("proxyuser", kProxyPassword),
            encoded("alternate", kAlternatePassword),
            encoded("name", kUrlPassword)};
}

/// No text of any record holds any of the secrets.
void expectNoSecrets(const RecordingMonitor& monitor) {
    EXPECT_GT(monitor.count(MonitorCall::ended), 0U);
    for (const auto& record : monitor.records()) {
        for (const auto& secret : secrets()) {
            EXPECT_THAT(textsOf(record), Not(Contains(HasSubstr(secret))));
        }
    }
}

/// Header lines of a server that sends back whatever it knows.
Headers tellingHeaders() {
    Headers headers = {"X-Kind: telling"};
    for (const auto& secret : secrets()) {
        headers.push_back("X-Echo: " + secret);
        headers.push_back(
            std::string("X-Echo: before").append(secret).append("behind, and ").append(secret));
    }
    return headers;
}

CProxyParams withCredentials(CProxyParams proxy) {
    proxy.m_bHttpProxyAuthentication = proxy.m_bFtpProxyAuthentication = true;
    proxy.m_strHttpProxyUser = proxy.m_strFtpProxyUser = L"proxyuser";
    proxy.m_strHttpProxyPassword = proxy.m_strFtpProxyPassword = widened(kProxyPassword);
    return proxy;
}

CProxyParams withAlternate(CProxyParams proxy) {
    proxy.m_bAllowUserToConfigureProxy = true;
    proxy.m_bHttpAltCredentials = proxy.m_bFtpAltCredentials = true;
    proxy.m_strHttpAltUser = proxy.m_strFtpAltUser = L"alternate";
    proxy.m_strHttpAltPassword = proxy.m_strFtpAltPassword = widened(kAlternatePassword);
    return proxy;
}

TransferSettings withSecrets(TransferSettings settings) {
    settings.user = L"user";
    settings.password = widened(kPassword);
    settings.updateToken = widened(kToken);
    return settings;
}

class MonitorSecrets : public Monitored<HttpTest> {
  protected:
    std::string host() { return "127.0.0.1:" + std::to_string(server().port()); }

    void logOnWithSecrets() {
        logOn(withSecrets(settings()));
        watch();
    }

    /// The value of a header line that the server sends.
    std::string recordedValue(const std::string& name, const std::string& value) {
        server().connection(answer(reply(200, "new", {name + ": " + value})));
        EXPECT_EQ(download().result, voInetErrorSuccess);
        const auto records = monitor().records(MonitorCall::ended);
        return records.empty() ? "no record" : headerOf(records.back(), name).value_or("no line");
    }
};

TEST_F(MonitorSecrets, CredentialsAndToken_AreInNoRecord) {
    logOnWithSecrets();
    server().connection(
        answers({keepAliveReply(401, "page", {kChallenge}), reply(200, "new", tellingHeaders())}));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    // They have gone over the wire all the same.
    ASSERT_THAT(requests(), testing::SizeIs(2));
    EXPECT_EQ(requests()[1].header("Authorization"), "Basic " + encoded("user", kPassword));
    EXPECT_EQ(requests()[1].header("UpdateToken"), kToken);
    EXPECT_EQ(headerOf(ended(), "X-Kind"), "telling");
}

TEST_F(MonitorSecrets, ServerThatRepeatsThem_IsMasked) {
    logOnWithSecrets();
    const Headers echoes = {std::string("X-Echo-Password: <") + kPassword + ">",
                            std::string("X-Echo-Token: <") + kToken + ">",
                            "X-Echo-Basic: <" + encoded("user", kPassword) + ">",
                            std::string("X-") + kPassword + ": name"};
    server().connection(
        answers({keepAliveReply(401, "page", {kChallenge}), reply(200, "new", echoes)}));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(headerOf(ended(), "X-Echo-Password"), "<***>");
    EXPECT_EQ(headerOf(ended(), "X-Echo-Token"), "<***>");
    ASSERT_TRUE(headerOf(ended(), "X-Echo-Basic").has_value());
    expectNoSecrets(monitor());
}

TEST_F(MonitorSecrets, LinesThatCarryCredentials_HaveStarsForValues) {
    logOnWithSecrets();

    for (const char* name :
         {"Authorization", "Proxy-Authorization", "Cookie", "Set-Cookie", "UpdateToken",
          "authorization", "PROXY-AUTHORIZATION", "set-cookie", "updatetoken"}) {
        EXPECT_EQ(recordedValue(name, "whatever it may be"), "***") << name;
    }
}

TEST_F(MonitorSecrets, LinesThatOnlyLookLikeIt_AreAsTheServerSentThem) {
    logOnWithSecrets();

    for (const char* name : {"X-Cookies", "Set-Cookies", "Authorized", "X-Token", "Server"}) {
        EXPECT_EQ(recordedValue(name, "whatever it may be"), "whatever it may be") << name;
    }
}

TEST_F(MonitorSecrets, PasswordOfThreeCharacters_MasksNothing) {
    auto shortOne = settings();
    shortOne.user = L"user";
    shortOne.password = L"abc";
    logOn(shortOne);
    watch();

    EXPECT_EQ(recordedValue("X-Letters", "abcdef"), "abcdef");
}

TEST_F(MonitorSecrets, PasswordOfFourCharacters_IsMasked) {
    auto shortOne = settings();
    shortOne.user = L"user";
    shortOne.password = L"abcd";
    logOn(shortOne);
    watch();

    EXPECT_EQ(recordedValue("X-Letters", "abcdef"), "***ef");
}

TEST_F(MonitorSecrets, NonAsciiPassword_IsMaskedInUtf8) {
    auto umlauts = settings();
    umlauts.user = L"user";
    umlauts.password = L"p\u00e4ssw\u00f6rter";
    logOn(umlauts);
    watch();

    EXPECT_EQ(recordedValue("X-Echo", "<p\xc3\xa4ssw\xc3\xb6rter>"), "<***>");
}

TEST_F(MonitorSecrets, RedirectWithUserInformationAndToken_IsFollowedAndMasked) {
    logOnWithSecrets();
    const std::string target = "http://name:" + std::string(kUrlPassword) + "@" + host() +
                               "/x?token=" + kToken + "&pass=" + kPassword;
    server().connection(answer(reply(302, "", {"Location: " + target})));
    server().connection(answer(reply(200, "new")));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    ASSERT_THAT(requests(), testing::SizeIs(2));
    EXPECT_THAT(requests()[1].target, HasSubstr(kToken));
    EXPECT_THAT(ended().effectiveUrl, testing::StartsWith("http://" + host() + "/x?token="));
    expectNoSecrets(monitor());
}

TEST_F(MonitorSecrets, RedirectThatIsNotFollowed_IsMaskedToo) {
    logOnWithSecrets();
    for (const char* scheme : {"https", "ftp", "gopher", "nonsense"}) {
        const std::string target = std::string(scheme) + "://name:" + kUrlPassword + "@" + host() +
                                   "/" + kToken + "/" + kPassword;
        server().connection(answer(reply(302, "page", {"Location: " + target})));

        EXPECT_NE(download().result, voInetErrorSuccess) << scheme;
    }
    expectNoSecrets(monitor());
}

TEST_F(MonitorSecrets, UserInformationInTheHostSetting_IsCutOut) {
    auto withUser = settings();
    withUser.hostNetBios = L"name:" + widened(kUrlPassword) + L"@" + server().hostAndPort();
    applySettings(transfer(), withUser);
    watch();
    server().connection(answer(reply(200)));
    server().connection(answer(reply(200, "new")));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(ended(0).url, "http://" + host() + "/SiteStat.xml");
    EXPECT_EQ(ended(0).effectiveUrl, ended(0).url);
    EXPECT_EQ(ended(1).url, "http://" + host() + "/file.zip");
    expectNoSecrets(monitor());
}

TEST_F(MonitorSecrets, UserInformationInAHostThatDoesNotAnswer_IsCutOut) {
    const RefusingPort dead;
    auto withUser = settings();
    withUser.hostIp = L"name:" + widened(kUrlPassword) + L"@" + dead.hostAndPort();
    withUser.hostNetBios =
        L"name:" + widened(kUrlPassword) + L"@" + std::wstring(64, L'x') + L":80";
    applySettings(transfer(), withUser);
    watch();

    EXPECT_LT(transfer().Logon(false, 0), 0);

    EXPECT_NE(ended().reason, "");
    expectNoSecrets(monitor());
}

TEST_F(MonitorSecrets, ProxyCredentials_AreInNoRecord) {
    logOnThroughProxy(withAlternate(withCredentials({})));
    watch();
    server().connection(answers(
        {keepAliveReply(407, "page", {kProxyChallenge}), reply(200, "new", tellingHeaders())}));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(requests().back().header("Proxy-Authorization"),
              "Basic " + encoded("alternate", kAlternatePassword));
    EXPECT_EQ(started().proxy, host());
    const Headers alternate = {std::string("X-Echo: ") + kProxyPassword + " " + kAlternatePassword};
    server().connection(answer(reply(200, "new", alternate)));
    EXPECT_EQ(download().result, voInetErrorSuccess);
    EXPECT_EQ(headerOf(ended(1), "X-Echo"), "*** ***");
}

TEST_F(MonitorSecrets, EverythingAtOnce_IsMaskedEverywhere) {
    applySettings(transfer(), withSecrets({}));
    logOnThroughProxy(withAlternate(withCredentials({})));
    watch();
    const Headers headers = tellingHeaders();
    for (const auto& bytes :
         {reply(200, "new", headers), reply(404, "page", headers), reply(401, "page", headers),
          reply(206, "part", headers), replyHead(103, headers) + reply(500, "page", headers)}) {
        server().otherwise(answer(bytes));
        download();
    }
    for (const auto& secret : secrets()) {
        const std::string location = std::string("Location: http://name:")
                                         .append(secret)
                                         .append("@127.0.0.1/")
                                         .append(secret);
        server().otherwise(answer(reply(302, "page", {location, "Set-Cookie: " + secret})));
        download();
    }

    // What the settings do not know can be masked in URLs and credential lines only.
    for (const auto& record : monitor().records()) {
        for (const char* secret : {kPassword, kProxyPassword, kAlternatePassword, kToken}) {
            EXPECT_THAT(textsOf(record), Not(Contains(HasSubstr(secret))));
        }
        EXPECT_THAT(record.effectiveUrl, Not(HasSubstr("@")));
    }
    EXPECT_GT(monitor().count(MonitorCall::headers), 0U);
}

class ExchangeSecrets : public Monitored<ExchangeTest> {};

TEST_F(ExchangeSecrets, ServerThatRepeatsThem_IsMasked) {
    applySettings(transfer(), withSecrets(addressOnly(server().hostAndPort())));
    watch();
    server().connection(answer(
        reply(202, "", {std::string("X-Echo: ") + kPassword + " " + kToken, "Set-Cookie: id=1"})));

    EXPECT_EQ(post(widened(std::string("/path?token=") + kToken)), voInetErrorNoPackage);

    EXPECT_EQ(headerOf(ended(), "X-Echo"), "*** ***");
    EXPECT_EQ(headerOf(ended(), "Set-Cookie"), "***");
    expectNoSecrets(monitor());
}

class FtpSecrets : public Monitored<FtpTest> {};

TEST_F(FtpSecrets, ServerThatRepeatsThem_IsMasked) {
    applySettings(transfer(), withSecrets(settings()));
    watch();
    const std::string echo = std::string(" ") + kPassword + " " + kToken + " No";
    for (const auto& [word, code] :
         std::map<std::string, std::string>{{"USER", "530"}, {"PASS", "530"}, {"PWD", "550"}}) {
        FtpSession telling;
        telling.replies = {{word, code + echo}};
        server().session(telling);
        transfer().Logon(false, 0);
    }

    expectNoSecrets(monitor());
}

TEST_F(FtpSecrets, ThroughAProxy_UrlAndRecordsHoldNone) {
    ScriptedServer proxy;
    const CProxyParams record = withAlternate(withCredentials(proxyAt(proxy.port())));
    transfer().SetOption(voInetOptionSite, &record);
    applySettings(transfer(), withSecrets(settings()));
    watch();
    proxy.connection(answer(reply(200)));
    proxy.connection(answers({keepAliveReply(407, "page", {kProxyChallenge}),
                              reply(200, "new", {std::string("X-Echo: ") + kPassword})}));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(ended(1).url, "ftp://127.0.0.1:" + std::to_string(server().port()) + "/file.zip");
    EXPECT_THAT(ended(1).effectiveUrl, Not(HasSubstr("@")));
    expectNoSecrets(monitor());
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
