// The probe of a logon: what it asks for, and what it makes of the answers.

#include "support/wiretest.h"
#include "voinet/HTTPConnection.h"

#include <chrono>
#include <string>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class Logon : public HttpTest {
  protected:
    /// A logon of a server that answers the probe with this status.
    voInetError logonAnswered(int status) {
        server().connection(answer(reply(status)));
        applySettings(transfer(), settings());
        return transfer().Logon(false, 0);
    }

    /// The target of the probe with this relative path.
    std::string probeTarget(const std::wstring& relativePath) {
        auto withPath = settings();
        withPath.relativePath = relativePath;
        applySettings(transfer(), withPath);
        server().connection(answer(reply(200)));
        EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
        const auto requests = server().requests();
        return requests.empty() ? std::string() : requests.back().target;
    }
};

TEST_F(Logon, CheckOptions_SaysNothingBeforeIt) {
    applySettings(transfer(), settings());
    EXPECT_FALSE(transfer().CheckOptions()) << "no host is active yet";

    EXPECT_EQ(logonAnswered(404), voInetErrorFailed);

    EXPECT_TRUE(transfer().CheckOptions()) << "failed or not";
}

TEST_F(Logon, EmptyRelativePath_AsksForTheHeadOfSiteStatRightBehindThePort) {
    EXPECT_EQ(logonAnswered(200), voInetErrorSuccess);

    ASSERT_THAT(server().requests(), SizeIs(1));
    const Request probe = server().requests().front();
    EXPECT_EQ(probe.method, "HEAD");
    EXPECT_EQ(probe.target, "/SiteStat.xml");
    EXPECT_EQ(probe.version, "HTTP/1.1");
    EXPECT_EQ(probe.header("Host"), "127.0.0.1:" + std::to_string(server().port()));
    EXPECT_EQ(probe.header("User-Agent"), "Tessaro Agent");
    EXPECT_EQ(probe.header("Authorization"), std::nullopt);
    EXPECT_EQ(probe.header("Accept-Encoding"), std::nullopt);
}

TEST_F(Logon, RelativePath_StandsBeforeSiteStat) {
    EXPECT_EQ(probeTarget(L"dir"), "/dir/SiteStat.xml");
    EXPECT_EQ(probeTarget(L"one/two"), "/one/two/SiteStat.xml");
}

TEST_F(Logon, RelativePathWithSlashInFront_IsDoubled) {
    EXPECT_EQ(probeTarget(L"/dir"), "//dir/SiteStat.xml");
}

TEST_F(Logon, RelativePathWithBlank_EndsTheUrlThere) {
    EXPECT_EQ(probeTarget(L"my dir"), "/my");
}

TEST_F(Logon, RelativePathWithBackslashes_IsSentAsItIs) {
    EXPECT_EQ(probeTarget(L"one\\two"), "/one\\two/SiteStat.xml");
}

TEST_F(Logon, RelativePathBeyondAscii_ReachesTheServerAsUtf8) {
    EXPECT_EQ(percentDecoded(probeTarget(L"gr\u00fc\u00df")), "/gr\xc3\xbc\xc3\x9f/SiteStat.xml");
}

TEST_F(Logon, Ipv6Literal_IsReachedAndNamedInBrackets) {
    ScriptedServer ipv6(AddressFamily::ipv6);
    ipv6.connection(answer(reply(200)));
    TransferSettings settings;
    settings.hostIp = ipv6.hostAndPort();
    applySettings(transfer(), settings);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    ASSERT_THAT(ipv6.requests(), SizeIs(1));
    EXPECT_EQ(ipv6.requests().front().target, "/SiteStat.xml");
    EXPECT_EQ(ipv6.requests().front().header("Host"), "[::1]:" + std::to_string(ipv6.port()));
}

TEST_F(Logon, Ipv6LiteralWithoutBrackets_IsBracketedInTheUrl) {
    ScriptedServer ipv6(AddressFamily::ipv6);
    ipv6.connection(answer(reply(200)));
    TransferSettings settings;
    // The last colon is the one before the port.
    settings.hostIp = L"::1:" + std::to_wstring(ipv6.port());
    applySettings(transfer(), settings);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    ASSERT_THAT(ipv6.requests(), SizeIs(1));
    EXPECT_EQ(ipv6.requests().front().header("Host"), "[::1]:" + std::to_string(ipv6.port()));
}

TEST_F(Logon, StatusUpTo400_Succeeds) {
    for (const int status : {200, 204, 301, 399, 400}) {
        EXPECT_EQ(logonAnswered(status), voInetErrorSuccess) << status;
    }
}

TEST_F(Logon, AuthenticationFailure_CountsAsReachable) {
    for (const int status : {401, 403, 407}) {
        EXPECT_EQ(logonAnswered(status), voInetErrorSuccess) << status;
    }
}

TEST_F(Logon, AnyOtherStatusAbove400_Fails) {
    for (const int status : {402, 404, 405, 406, 408, 500, 503}) {
        EXPECT_EQ(logonAnswered(status), voInetErrorFailed) << status;
    }
}

TEST_F(Logon, Refused_FailsAndNamesHostAndPort) {
    const RefusingPort refusing;
    TransferSettings settings;
    settings.hostNetBios = refusing.hostAndPort();
    applySettings(transfer(), settings);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorTransferFailed);

    EXPECT_THAT(log().messages(HostLogLevel::info, L"Unable"),
                ElementsAre(L"Unable to connect to 127.0.0.1 on port " +
                            std::to_wstring(refusing.port()) + L"."));
}

TEST_F(Logon, Failed_NamesHostAndPortOnlyThen) {
    EXPECT_EQ(logonAnswered(200), voInetErrorSuccess);
    EXPECT_EQ(log().count(HostLogLevel::info, L"Unable to connect"), 0U);

    EXPECT_EQ(logonAnswered(404), voInetErrorFailed);
    EXPECT_EQ(log().count(HostLogLevel::info, L"Unable to connect"), 1U);
}

TEST_F(Logon, ConnectionResetByTheServer_Fails) {
    server().connection({receiveRequest(), reset()});
    applySettings(transfer(), settings());

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorTransferFailed);
}

TEST_F(Logon, ServerThatClosesWithoutAnAnswer_Fails) {
    server().connection({receiveRequest()});
    applySettings(transfer(), settings());

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorTransferFailed);
}

TEST_F(Logon, UseSsl_StillProbesInPlainTextAtTheSslPort) {
    auto ssl = settings();
    ssl.hostNetBios = L"127.0.0.1:1";
    applySettings(transfer(), ssl);
    transfer().SetOption(voInetOptionUseSSL, true);
    transfer().SetOption(voInetOptionSslPort, static_cast<int>(server().port()));
    server().connection(answer(reply(200)));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    ASSERT_THAT(server().requests(), SizeIs(1));
    EXPECT_EQ(server().requests().front().method, "HEAD");
}

TEST_F(Logon, WithTimeout_OnlyConnects) {
    server().connection({awaitClose()});
    applySettings(transfer(), settings());

    EXPECT_EQ(transfer().Logon(true, 10), voInetErrorSuccess);

    EXPECT_TRUE(server().awaitPlayed());
    EXPECT_THAT(server().requests(), IsEmpty());
    EXPECT_EQ(log().count(HostLogLevel::detail, L"Connecting with timeout 10."), 1U);
}

TEST_F(Logon, WithTimeout_MakesLaterDownloadsOnlyConnect) {
    server().connection({awaitClose()});
    applySettings(transfer(), settings());
    ASSERT_EQ(transfer().Logon(true, 10), voInetErrorSuccess);
    server().connection({awaitClose()});
    makeLocalFile("old");

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    EXPECT_TRUE(server().awaitPlayed());
    EXPECT_THAT(server().requests(), IsEmpty());
    expectLocalFile("old");
}

TEST_F(Logon, WithTimeoutFollowedByOneWithout_SendsTheProbeAgain) {
    applySettings(transfer(), settings());
    server().connection({awaitClose()});
    ASSERT_EQ(transfer().Logon(true, 10), voInetErrorSuccess);

    EXPECT_EQ(logonAnswered(404), voInetErrorFailed);
}

TEST_F(Logon, ServerThatDoesNotAccept_TimesOutAfterTheGivenTime) {
    const SilentPort silent;
    TransferSettings settings;
    settings.hostNetBios = silent.hostAndPort();
    applySettings(transfer(), settings);
    const auto start = std::chrono::steady_clock::now();

    EXPECT_EQ(transfer().Logon(true, 1), voInetErrorTimeout);

    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(990));
}

TEST_F(Logon, ServerCredentials_AreSentWhenTheServerAsks) {
    auto withUser = settings();
    withUser.user = L"us@er";
    withUser.password = L"pa:ss";
    applySettings(transfer(), withUser);
    server().connection(
        answers({keepAliveReply(401, {}, {"WWW-Authenticate: Basic realm=\"r\""}), reply(200)}));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    ASSERT_THAT(server().requests(), SizeIs(2));
    EXPECT_EQ(server().requests()[0].header("Authorization"), std::nullopt);
    EXPECT_EQ(server().requests()[1].header("Authorization"), basicCredentials("us@er:pa:ss"));
}

TEST_F(Logon, WithoutSite_IsRefusedWithoutNetworkActivity) {
    auto noSite = settings();
    noSite.site.clear();
    applySettings(transfer(), noSite);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorBadOptions);

    EXPECT_EQ(server().connectionCount(), 0U);
}

TEST_F(Logon, WithoutAnyHost_SucceedsWithoutNetworkActivity) {
    TransferSettings noHost;
    applySettings(transfer(), noHost);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_EQ(server().connectionCount(), 0U);
}

TEST_F(Logon, PortTextThatIsNoNumber_IsRefusedWithoutNetworkActivity) {
    TransferSettings noNumber;
    noNumber.hostNetBios = L"127.0.0.1:http";
    applySettings(transfer(), noNumber);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorBadOptions);
}

TEST_F(Logon, HostWithScheme_IsReached) {
    TransferSettings withScheme;
    withScheme.hostNetBios = L"http://" + server().hostAndPort();
    server().connection(answer(reply(200)));
    applySettings(transfer(), withScheme);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
}

TEST_F(Logon, PortOfAnOptionOfItsOwn_IsUsed) {
    TransferSettings otherPort;
    otherPort.hostNetBios = L"127.0.0.1:1";
    applySettings(transfer(), otherPort);
    transfer().SetOption(voInetOptionPortNetbios, static_cast<long>(server().port()));
    server().connection(answer(reply(200)));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
}

TEST_F(Logon, HostNameThatNoResolverTakes_IsNotResolved) {
    TransferSettings tooLong;
    // A label has 63 characters at most, so no resolver asks the network for this one.
    tooLong.hostNetBios = std::wstring(64, L'x') + L":80";
    applySettings(transfer(), tooLong);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorHostNotResolved);
}

TEST_F(Logon, ProbeRedirectedToHttp_IsFollowed) {
    server().connection(answer(reply(302, {}, {"Location: /elsewhere"})));
    server().connection(answer(reply(200)));
    applySettings(transfer(), settings());

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    ASSERT_THAT(server().requests(), SizeIs(2));
    EXPECT_EQ(server().requests()[1].method, "HEAD");
    EXPECT_EQ(server().requests()[1].target, "/elsewhere");
}

TEST_F(Logon, LogOut_SucceedsAtAnyTime) {
    EXPECT_EQ(transfer().LogOut(), voInetErrorSuccess);

    EXPECT_EQ(logonAnswered(200), voInetErrorSuccess);

    EXPECT_EQ(transfer().LogOut(), voInetErrorSuccess);
    EXPECT_EQ(server().connectionCount(), 1U);
}

TEST_F(Logon, Object_ReportsItsProtocolAndItsLife) {
    EXPECT_EQ(transfer().GetProtocol(), voInetProtocolHttp);
    EXPECT_EQ(log().count(HostLogLevel::info, L"HTTP Session initialized"), 1U);

    makeTransfer(voInetProtocolHttp);

    EXPECT_EQ(log().count(HostLogLevel::info, L"HTTP Session closed"), 1U);
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
