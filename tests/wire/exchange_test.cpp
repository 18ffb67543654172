// The exchange with a management server: what goes out, what each answer means, what is stored.

#include "support/exchange.h"

#include <string>
#include <utility>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::Pair;
using testing::SizeIs;
using testing::UnorderedElementsAre;

constexpr const char* kMarker = "ORB-WHY-FORBIDDEN: UpgradeKey";

class Exchange : public ExchangeTest {
  protected:
    /// What the server received for a request file with this content.
    Request posted(std::string_view content) {
        makeRequestFile(content);
        server().forgetRecords();
        EXPECT_EQ(postAnswered(reply(202)), voInetErrorNoPackage);
        const auto made = requests();
        EXPECT_THAT(made, SizeIs(1));
        return made.empty() ? Request() : made.front();
    }

    std::string targetOf(const std::wstring& serverPath) {
        server().connection(answer(reply(202)));
        EXPECT_EQ(post(serverPath), voInetErrorNoPackage);
        const auto made = requests();
        return made.size() == 1 ? made.front().target : std::string("no single request");
    }

    /// A server path of which curl makes no URL.
    void expectNoUrl(const std::wstring& serverPath) {
        EXPECT_EQ(post(serverPath), voInetErrorTransferFailed);
        EXPECT_EQ(server().connectionCount(), 0U);
    }
};

TEST_F(Exchange, Request_IsThePostWithExactlyTheseHeaders) {
    const Request request = posted("a request of 19 byt");

    EXPECT_EQ(request.head.substr(0, request.head.find('\n') + 1), "POST /path HTTP/1.1\r\n");
    EXPECT_THAT(
        request.headers,
        UnorderedElementsAre(
            Pair("Host", "127.0.0.1"),
            Pair("User-Agent", "Mozilla/4.0 (compatible; KESTL/3.0; Windows)"),
            Pair("Accept", "application/octet-stream"), Pair("Accept-Language", "en-us"),
            Pair("Content-Type", "application/octet-stream"), Pair("Content-Length", "19")));
    EXPECT_EQ(request.body, "a request of 19 byt");
}

TEST_F(Exchange, Framing_IsOneLengthAndThePlainBodyForEverySize) {
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, std::size_t{19}, std::size_t{16'384}, std::size_t{65'536},
          std::size_t{65'537}, std::size_t{5} * 1024 * 1024}) {
        const std::string content = makeBody(size, size);

        const Request request = posted(content);

        EXPECT_EQ(request.headerCount("Content-Length"), 1U) << size;
        EXPECT_EQ(request.header("Content-Length"), std::to_string(size));
        EXPECT_EQ(request.header("Transfer-Encoding"), std::nullopt) << size;
        EXPECT_EQ(request.header("Expect"), std::nullopt) << size;
        EXPECT_TRUE(request.body == content) << size;
    }
}

TEST_F(Exchange, Request_IsFollowedByNothing) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{19}, std::size_t{300'000}}) {
        makeRequestFile(makeBody(size));
        // Waiting for the end fails when anything else comes.
        EXPECT_EQ(postDuring({receiveRequest(), send(reply(202)), awaitClose()}),
                  voInetErrorNoPackage)
            << size;
    }
}

TEST_F(Exchange, HeaderOfTheHost_NamesNoPort) {
    ScriptedServer ipv6(AddressFamily::ipv6);
    applySettings(transfer(), addressOnly(ipv6.hostAndPort()));
    ipv6.connection(answer(reply(202)));

    EXPECT_EQ(post(), voInetErrorNoPackage);

    ASSERT_THAT(ipv6.requests(), SizeIs(1));
    EXPECT_EQ(ipv6.requests().front().header("Host"), "[::1]");
}

TEST_F(Exchange, SettingsOfDownloads_ChangeNothingInTheRequest) {
    TransferSettings settings = addressOnly(server().hostAndPort());
    settings.relativePath = L"repository";
    settings.user = L"user";
    settings.password = L"password";
    settings.updateToken = L"token";
    const auto plain = posted("request").headers;
    applySettings(transfer(), settings);
    transfer().SetOption(voInetOptionUserAgent, std::wstring(L"Other Agent"));

    const Request request = posted("request");

    EXPECT_EQ(request.target, "/path");
    EXPECT_EQ(request.headers, plain);
}

TEST_F(Exchange, Proxy_IsNotUsed) {
    const ScriptedServer proxy;
    CProxyParams record = proxyAt(proxy.port());
    record.m_bAllowUserToConfigureProxy = true;
    transfer().SetOption(voInetOptionSite, &record);

    EXPECT_EQ(posted("request").target, "/path");

    EXPECT_EQ(proxy.connectionCount(), 0U);
}

TEST_F(Exchange, StatusesOfTheTable_GiveTheirResults) {
    const std::vector<std::pair<int, voInetError>> table = {
        {200, voInetErrorPackageReceived}, {201, voInetErrorServerBusy},
        {202, voInetErrorNoPackage},       {400, voInetErrorInvalidRequest},
        {403, voInetErrorAccessDenied},    {404, voInetErrorFileNotFound},
        {503, voInetErrorServerBusy},      {506, voInetErrorGuidExists},
    };
    for (const auto& [status, result] : table) {
        const std::string body = "body of " + std::to_string(status);
        EXPECT_EQ(postAnswered(reply(status, body)), result) << status;
        expectResponse(body);
    }
}

TEST_F(Exchange, AnyOtherStatus_CountsAsSuccess) {
    for (const int status : {203, 204, 206, 207, 299, 300, 304, 399, 401, 402, 405, 407, 409,
                             410, 413, 416, 417, 429, 500, 501, 502, 504, 505, 507, 599, 999}) {
        EXPECT_EQ(postAnswered(reply(status)), voInetErrorSuccess) << status;
    }
}

TEST_F(Exchange, Redirect_IsNotFollowed) {
    for (const int status : {301, 302, 303, 307, 308}) {
        EXPECT_EQ(postAnswered(reply(status, "moved", {"Location: /elsewhere"})),
                  voInetErrorSuccess);
        expectResponse("moved");
    }
    EXPECT_THAT(requests(), SizeIs(5));
}

TEST_F(Exchange, ChallengeForCredentials_IsNotAnswered) {
    TransferSettings settings = addressOnly(server().hostAndPort());
    settings.user = L"user";
    settings.password = L"password";
    applySettings(transfer(), settings);

    EXPECT_EQ(postAnswered(keepAliveReply(401, {}, {"WWW-Authenticate: Basic realm=\"r\""})),
              voInetErrorSuccess);

    EXPECT_THAT(requests(), SizeIs(1));
}

/// Answers of 403, with and without the marker for outdated keys.
class ForbiddenExchange : public ExchangeTest {
  protected:
    voInetError postForbidden(const Headers& headers) {
        return postAnswered(reply(403, "body", headers));
    }
};

TEST_F(ForbiddenExchange, MarkerInOneLine_MeansOutdatedKeys) {
    const std::vector<Headers> marked = {
        {kMarker},
        {"ORB-WHY-FORBIDDEN:UpgradeKey"},
        {"ORB-WHY-FORBIDDEN: because; UpgradeKey=1; more"},
        {"X-ORB-WHY-FORBIDDEN-X: xUpgradeKeyx"},
        {"X-Reason: UpgradeKey, ORB-WHY-FORBIDDEN"},
        {"X-First: 1", "ORB-WHY-FORBIDDEN: Other", kMarker, "X-Last: 1"},
        {kMarker, "ORB-WHY-FORBIDDEN: Other"},
        {"X-Long: " + std::string(50'000, 'x'), kMarker},
    };
    for (const auto& headers : marked) {
        EXPECT_EQ(postForbidden(headers), voInetErrorKeysOutdated) << headers.front();
        expectResponse("body");
    }
}

TEST_F(ForbiddenExchange, NoMarkerInOneLine_MeansAccessDenied) {
    const std::vector<Headers> unmarked = {
        {"X-Nothing: here"},
        {"ORB-WHY-FORBIDDEN: Other"},
        {"X-Reason: UpgradeKey"},
        {"ORB-WHY-FORBIDDEN: Other", "X-Reason: UpgradeKey"},
        {"X-Reason: UpgradeKey", "ORB-WHY-FORBIDDEN: Other"},
        {"ORB-WHY-FORBIDDEN: a\r\n UpgradeKey"},
        {"orb-why-forbidden: UpgradeKey"},
        {"ORB-WHY-FORBIDDEN: upgradekey"},
        {"ORB-WHY-FORBIDDEN: UPGRADEKEY"},
        {"ORB-WHY-FORBIDDEN: Upgrade Key"},
        {"ORB-WHY-FORBIDDEN: Upgrade\tKey"},
        {"ORB_WHY_FORBIDDEN: UpgradeKey"},
    };
    for (const auto& headers : unmarked) {
        EXPECT_EQ(postForbidden(headers), voInetErrorAccessDenied) << headers.front();
        expectResponse("body");
    }
}

TEST_F(ForbiddenExchange, MarkerInTheBody_DoesNotCount) {
    EXPECT_EQ(postAnswered(reply(403, std::string(kMarker) + "\r\n")), voInetErrorAccessDenied);
}

TEST_F(ForbiddenExchange, MarkerOfAnInterimAnswer_Counts) {
    EXPECT_EQ(postAnswered(replyHead(103, {kMarker}) + reply(403)), voInetErrorKeysOutdated);
}

TEST_F(ForbiddenExchange, MarkerOfTheExchangeBefore_IsForgotten) {
    ASSERT_EQ(postForbidden({kMarker}), voInetErrorKeysOutdated);

    EXPECT_EQ(postForbidden({}), voInetErrorAccessDenied);
}

TEST_F(ForbiddenExchange, MarkerWithAnotherStatus_ChangesNothing) {
    EXPECT_EQ(postAnswered(reply(200, "package", {kMarker})), voInetErrorPackageReceived);
    EXPECT_EQ(postAnswered(reply(404, "", {kMarker})), voInetErrorFileNotFound);
    EXPECT_EQ(postAnswered(reply(500, "", {kMarker})), voInetErrorSuccess);
}

TEST_F(Exchange, AnswerWithoutHeaders_EndsWithTheConnection) {
    EXPECT_EQ(postAnswered("HTTP/1.1 200 OK\r\n\r\npackage"), voInetErrorPackageReceived);

    expectResponse("package");
}

TEST_F(Exchange, AnswerOfHttp10_IsTaken) {
    EXPECT_EQ(postAnswered("HTTP/1.0 200\r\n\r\npackage"), voInetErrorPackageReceived);

    expectResponse("package");
}

TEST_F(Exchange, LinesThatEndWithoutCarriageReturn_AreTaken) {
    EXPECT_EQ(postAnswered(std::string("HTTP/1.1 403 No\n") + kMarker + "\n\nbody"),
              voInetErrorKeysOutdated);

    expectResponse("body");
}

TEST_F(Exchange, LargePackage_IsStoredWhole) {
    const std::string package = makeBody(std::size_t{5} * 1024 * 1024, 3);

    EXPECT_EQ(postAnswered(reply(200, package)), voInetErrorPackageReceived);

    expectResponse(package);
}

TEST_F(Exchange, PackageOfEveryByteInPieces_IsStoredWhole) {
    const std::string package = makeBody(10'000, 7);

    EXPECT_EQ(postDuring({receiveRequest(), sendInPieces(reply(200, package), 97)}),
              voInetErrorPackageReceived);

    expectResponse(package);
}

TEST_F(Exchange, AnswerByteByByte_IsTaken) {
    EXPECT_EQ(postDuring({receiveRequest(), sendInPieces(reply(403, "body", {kMarker}), 1)}),
              voInetErrorKeysOutdated);

    expectResponse("body");
}

TEST_F(Exchange, ChunkedPackage_IsPutTogether) {
    const std::string package = makeBody(100'000, 7);

    EXPECT_EQ(postAnswered(replyHead(200, {"Transfer-Encoding: chunked"}) + chunked(package, 4093)),
              voInetErrorPackageReceived);

    expectResponse(package);
}

TEST_F(Exchange, InterimAnswers_ArePassedOver) {
    EXPECT_EQ(postAnswered(replyHead(100) + replyHead(103, {"Link: </x>"}) + replyHead(102) +
                           reply(200, "package")),
              voInetErrorPackageReceived);

    expectResponse("package");
}

TEST_F(Exchange, BodyLongerThanAnnounced_IsStoredAsAnnounced) {
    EXPECT_EQ(postAnswered(reply(200, "package") + "and more"), voInetErrorPackageReceived);

    expectResponse("package");
}

TEST_F(Exchange, SecondAnswerBehindTheFirst_IsNotLookedAt) {
    EXPECT_EQ(postAnswered(keepAliveReply(202) + keepAliveReply(506)), voInetErrorNoPackage);
}

TEST_F(Exchange, AnswerToAnEmptyRequest_IsTaken) {
    makeRequestFile("");

    EXPECT_EQ(postAnswered(reply(200, "package")), voInetErrorPackageReceived);

    expectResponse("package");
}

TEST_F(Exchange, OlderResponseFile_IsReplaced) {
    directory().makeFile("response", std::string(1000, 'o'));

    EXPECT_EQ(postAnswered(reply(200, "package")), voInetErrorPackageReceived);

    expectResponse("package");
}

TEST_F(Exchange, OlderResponseFile_IsEmptiedByAnAnswerWithoutABody) {
    directory().makeFile("response", "older");

    EXPECT_EQ(postAnswered(reply(202)), voInetErrorNoPackage);

    expectResponse("");
}

TEST_F(Exchange, RequestFile_StaysAsItWas) {
    makeRequestFile("request");

    EXPECT_EQ(postAnswered(reply(200, "package")), voInetErrorPackageReceived);

    EXPECT_EQ(readFile(requestFile()), "request");
    EXPECT_THAT(directory().entries(), ElementsAre("request", "response"));
}

TEST_F(Exchange, SeveralInARow_AreIndependent) {
    EXPECT_EQ(postAnswered(reply(506)), voInetErrorGuidExists);
    EXPECT_EQ(postAnswered(reply(200, "package")), voInetErrorPackageReceived);
    EXPECT_EQ(postAnswered(reply(202)), voInetErrorNoPackage);

    EXPECT_THAT(requests(), SizeIs(3));
    EXPECT_EQ(server().connectionCount(), 3U);
}

TEST_F(Exchange, ServerPath_IsSentAsItIs) {
    EXPECT_EQ(targetOf(L"/a/b.srv?x=1&y=%20z"), "/a/b.srv?x=1&y=%20z");
}

TEST_F(Exchange, ServerPathWithFragment_IsSentWithoutIt) {
    EXPECT_EQ(targetOf(L"/a#b"), "/a");
}

TEST_F(Exchange, ServerPathThatIsAQuery_AsksTheRoot) {
    EXPECT_EQ(targetOf(L"?x=1"), "/?x=1");
}

TEST_F(Exchange, NonAsciiServerPath_IsSentInUtf8) {
    EXPECT_EQ(percentDecoded(targetOf(L"/p\u00e4ck/\u4e2d.srv")), "/p\u00e4ck/\u4e2d.srv");
}

TEST_F(Exchange, ServerPathWithoutASlash_MakesNoUrl) {
    expectNoUrl(L"path");
}

TEST_F(Exchange, BlankInTheServerPath_MakesNoUrl) {
    // Unlike a download's name it is not cut there.
    expectNoUrl(L"/a b");
    expectNoUrl(L" /a");
}

TEST_F(Exchange, ControlCharactersInTheServerPath_MakeNoUrl) {
    expectNoUrl(L"/a\r\nX-Injected: 1");
    expectNoUrl(L"/a\x01");
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
