// Whole downloads: what goes out, what lands, and what a failure leaves.

#include "support/wiretest.h"

#include <algorithm>
#include <string>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr std::size_t kSize = 200'000;
constexpr const char* kBasicChallenge = "WWW-Authenticate: Basic realm=\"r\"";

class Download : public HttpTest {
  protected:
    void SetUp() override { makeLocalFile(m_old); }

    const std::string& body() const { return m_body; }

    /// The server answers the only request with these bytes.
    voInetError downloadAnswered(const std::string& bytes) {
        server().connection(answer(bytes));
        return download().result;
    }

    /// The target of the request for this remote name with this relative path.
    std::string target(const std::wstring& remoteName, const std::wstring& relativePath = L"") {
        auto withPath = settings();
        withPath.relativePath = relativePath;
        logOn(withPath);
        server().connection(answer(reply(200, "new")));
        EXPECT_EQ(download(remoteName).result, voInetErrorSuccess);
        expectLocalFile("new");
        const auto made = requests();
        return made.size() == 1 ? made.front().target : std::string("no single request");
    }

    void expectOldLocalFile() const { expectLocalFile(m_old); }

  private:
    std::string m_body = makeBody(kSize);
    std::string m_old = makeBody(5000, 77);
};

/// Redirects over /1, /2, ... up to the number of hops.
void redirect(ScriptedServer& server, int hops) {
    for (int hop = 1; hop <= hops; ++hop) {
        server.connection(answer(reply(302, "moved", {"Location: /" + std::to_string(hop)})));
    }
}

TEST_F(Download, Answered200_StoresTheBody) {
    logOn();

    EXPECT_EQ(downloadAnswered(reply(200, body())), voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, Request_CarriesWhatEveryRequestCarries) {
    logOn();

    EXPECT_EQ(downloadAnswered(reply(200, body())), voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(1));
    const Request request = requests().front();
    EXPECT_EQ(request.method, "GET");
    EXPECT_EQ(request.target, "/file.zip");
    EXPECT_EQ(request.version, "HTTP/1.1");
    EXPECT_EQ(request.header("Host"), "127.0.0.1:" + std::to_string(server().port()));
    EXPECT_EQ(request.header("User-Agent"), "Tessaro Agent");
    EXPECT_EQ(request.body, "");
    for (const char* absent : {"Range", "UpdateToken", "Pragma", "Authorization",
                               "Proxy-Authorization", "Accept-Encoding", "Cookie"}) {
        EXPECT_EQ(request.header(absent), std::nullopt) << absent;
    }
}

TEST_F(Download, UserAgentOption_ChangesNothingOnTheWire) {
    transfer().SetOption(voInetOptionUserAgent, std::wstring(L"Other Agent"));
    logOn();

    EXPECT_EQ(downloadAnswered(reply(200, body())), voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(1));
    EXPECT_EQ(requests().front().header("User-Agent"), "Tessaro Agent");
}

TEST_F(Download, Url_IsLogged) {
    logOn();

    EXPECT_EQ(downloadAnswered(reply(200, body())), voInetErrorSuccess);

    EXPECT_THAT(log().messages(HostLogLevel::info, L"Open URL"),
                ElementsAre(L"Open URL: http://" + server().hostAndPort() + L"/file.zip"));
}

TEST_F(Download, NoLocalFileYet_IsMade) {
    logOn();
    std::remove(localFile().c_str());

    EXPECT_EQ(downloadAnswered(reply(200, body())), voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, LongerOldFile_LeavesNoTail) {
    logOn();
    makeLocalFile(makeBody(2 * kSize, 5));

    EXPECT_EQ(downloadAnswered(reply(200, body())), voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, MissingDirectories_AreMade) {
    logOn();
    server().connection(answer(reply(200, body())));
    const std::string nested = directory().path("one/two/three.zip");
    long offset = 0;
    bool resume = false;

    EXPECT_EQ(transfer().DownloadFile(widened(nested), L"file.zip", &sink(), &offset, resume, true),
              voInetErrorSuccess);

    EXPECT_EQ(readFile(nested), body());
}

TEST_F(Download, EveryKindOfSize_Lands) {
    logOn();
    for (const std::size_t size : {1U, 2U, 511U, 512U, 513U, 1023U, 1024U, 1025U, 16'383U, 16'384U,
                                   16'385U, 65'536U, 1'000'003U}) {
        const std::string sized = makeBody(size, size);
        EXPECT_EQ(downloadAnswered(reply(200, sized)), voInetErrorSuccess) << size;
        expectLocalFile(sized);
    }
}

TEST_F(Download, EmptyBody_GivesAnEmptyFile) {
    logOn();

    EXPECT_EQ(downloadAnswered(reply(200)), voInetErrorSuccess);

    expectLocalFile("");
}

TEST_F(Download, BodyInPieces_IsPutTogether) {
    logOn();
    server().connection({receiveRequest(), sendInPieces(reply(200, body()), 1009)});

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, ChunkedBody_IsPutTogether) {
    logOn();

    EXPECT_EQ(downloadAnswered(replyHead(200, {"Transfer-Encoding: chunked", "Connection: close"}) +
                               chunked(body(), 4093)),
              voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, BodyWithoutLength_EndsWithTheConnection) {
    logOn();

    EXPECT_EQ(downloadAnswered(replyHead(200, {"Connection: close"}) + body()), voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, InterimAnswers_ArePassedOver) {
    logOn();

    EXPECT_EQ(downloadAnswered("HTTP/1.1 100 Continue\r\n\r\n"
                               "HTTP/1.1 103 Early Hints\r\nLink: </x>\r\n\r\n" +
                               reply(200, body())),
              voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, CompressedBody_IsStoredAsItIs) {
    logOn();
    const std::string compressed = "\x1f\x8b\x08" + body();

    EXPECT_EQ(downloadAnswered(reply(200, compressed, {"Content-Encoding: gzip"})),
              voInetErrorSuccess);

    expectLocalFile(compressed);
}

TEST_F(Download, Answered206WithoutARange_StoresTheBody) {
    logOn();

    EXPECT_EQ(downloadAnswered(reply(206, body())), voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, Http10Answer_IsUnderstood) {
    logOn();

    EXPECT_EQ(downloadAnswered("HTTP/1.0 200 OK\r\n\r\n" + body()), voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, LengthShorterThanTheBody_EndsThere) {
    logOn();

    EXPECT_EQ(downloadAnswered(replyHead(200, {"Content-Length: 1000", "Connection: close"}) +
                               body().substr(0, 1500)),
              voInetErrorSuccess);

    expectLocalFile(body().substr(0, 1000));
}

TEST_F(Download, TwoInARow_AreIndependent) {
    logOn();
    EXPECT_EQ(downloadAnswered(reply(200, body())), voInetErrorSuccess);
    const std::string second = makeBody(3000, 9);

    EXPECT_EQ(downloadAnswered(reply(200, second)), voInetErrorSuccess);

    expectLocalFile(second);
}

TEST_F(Download, Sink_IsToldSiteHostUrlAndBytes) {
    logOn();

    EXPECT_EQ(downloadAnswered(reply(200, body())), voInetErrorSuccess);

    ASSERT_THAT(sink().notifications(), Not(IsEmpty()));
    const Notification last = sink().notifications().back();
    EXPECT_EQ(last.done, kSize);
    EXPECT_EQ(last.total, static_cast<long>(kSize));
    EXPECT_EQ(last.siteText1, L"default");
    EXPECT_EQ(last.siteText2, L"127.0.0.1");
    EXPECT_EQ(last.remoteUrl, L"http://" + server().hostAndPort() + L"/file.zip");
    unsigned long before = 0;
    for (const auto& notification : sink().notifications()) {
        EXPECT_EQ(notification.status, 3);
        EXPECT_TRUE(notification.goOn);
        EXPECT_GE(notification.done, before);
        before = notification.done;
    }
}

TEST_F(Download, NullSinkAndNullOffset_DownloadTheWholeFile) {
    logOn();
    server().connection(answer(reply(200, body())));
    bool resume = true;

    EXPECT_EQ(
        transfer().DownloadFile(widened(localFile()), L"file.zip", nullptr, nullptr, resume, true),
        voInetErrorSuccess);

    expectLocalFile(body());
    EXPECT_TRUE(resume) << "not touched";
}

TEST_F(Download, UpdateToken_IsSent) {
    auto withToken = settings();
    withToken.updateToken = L"t0ken-\u00e4";
    logOn(withToken);

    EXPECT_EQ(downloadAnswered(reply(200, body())), voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(1));
    EXPECT_EQ(requests().front().header("UpdateToken"), "t0ken-\xc3\xa4");
    EXPECT_EQ(requests().front().header("Pragma"), std::nullopt);
}

TEST_F(Download, WithoutCache_AsksCachesNotToAnswer) {
    logOn();
    server().connection(answer(reply(200, body())));
    DownloadArguments noCache;
    noCache.useCache = false;

    EXPECT_EQ(download(L"file.zip", noCache).result, voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(1));
    EXPECT_EQ(requests().front().header("pragma"), "no-cache");
    EXPECT_THAT(requests().front().head, testing::HasSubstr("pragma:no-cache\r\n"));
    EXPECT_EQ(log().count(HostLogLevel::detail, L"Using proxy setting:pragma:no-cache"), 1U);
}

TEST_F(Download, TokenAndNoCache_AreBothSent) {
    auto withToken = settings();
    withToken.updateToken = L"t";
    logOn(withToken);
    server().connection(answer(reply(200, body())));
    DownloadArguments noCache;
    noCache.useCache = false;

    EXPECT_EQ(download(L"file.zip", noCache).result, voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(1));
    EXPECT_THAT(requests().front().head,
                testing::HasSubstr("UpdateToken: t\r\npragma:no-cache\r\n"));
}

TEST_F(Download, RemoteNameWithoutRelativePath_StandsBehindThePort) {
    EXPECT_EQ(target(L"file.zip"), "/file.zip");
}

TEST_F(Download, RemoteNameWithSlash_GetsNoSecondOne) {
    EXPECT_EQ(target(L"/sub/file.zip"), "/sub/file.zip");
}

TEST_F(Download, RelativePath_StandsBeforeTheName) {
    EXPECT_EQ(target(L"file.zip", L"pkg/new"), "/pkg/new/file.zip");
}

TEST_F(Download, RelativePathWithSlash_IsDoubled) {
    EXPECT_EQ(target(L"file.zip", L"/pkg"), "//pkg/file.zip");
}

TEST_F(Download, BlankInTheName_EndsTheUrlThere) {
    EXPECT_EQ(target(L"my file.zip"), "/my");
}

TEST_F(Download, BlankInTheRelativePath_EndsTheUrlThere) {
    EXPECT_EQ(target(L"file.zip", L"my pkg"), "/my");
}

TEST_F(Download, LineBreakInTheName_CannotAddToTheRequest) {
    EXPECT_EQ(target(L"file.zip\r\nX-Added: 1"), "/file.zip");
    EXPECT_EQ(requests().front().header("X-Added"), std::nullopt);
}

TEST_F(Download, BackslashesInTheName_AreSentAsTheyAre) {
    EXPECT_EQ(target(L"sub\\file.zip", L"a\\b"), "/a\\b/sub\\file.zip");
}

TEST_F(Download, NameBeyondAscii_ReachesTheServerAsUtf8) {
    EXPECT_EQ(percentDecoded(target(L"gr\u00fc\u00df\u20ac.zip")),
              "/gr\xc3\xbc\xc3\x9f\xe2\x82\xac.zip");
}

TEST_F(Download, UnpairedSurrogateInTheName_IsReplaced) {
    EXPECT_EQ(percentDecoded(target(std::wstring(L"a") + static_cast<wchar_t>(0xd800) + L"b")),
              "/a\xef\xbf\xbd"
              "b");
}

TEST_F(Download, Answered404_IsNotFound) {
    logOn();

    EXPECT_EQ(downloadAnswered(reply(404, "no such page")), voInetErrorFileNotFound);

    expectOldLocalFile();
}

TEST_F(Download, AnyOtherStatus_IsATransferFailure) {
    logOn();
    for (const int status :
         {201, 202, 203, 204, 300, 302, 304, 400, 402, 403, 405, 410, 500, 503}) {
        EXPECT_EQ(downloadAnswered(reply(status)), voInetErrorTransferFailed) << status;
        expectOldLocalFile();
    }
}

TEST_F(Download, BodyCutByClose_FailsAndLeavesTheOldFile) {
    logOn();
    for (const std::size_t kept : {std::size_t{0}, std::size_t{1}, kSize / 2, kSize - 1}) {
        const std::string whole = reply(200, body());
        EXPECT_EQ(downloadAnswered(whole.substr(0, whole.size() - kSize + kept)),
                  voInetErrorTransferFailed)
            << kept;
        expectOldLocalFile();
    }
}

TEST_F(Download, BodyCutByReset_FailsAndLeavesTheOldFile) {
    logOn();
    server().connection({receiveRequest(), send(reply(200, body()).substr(0, kSize / 2)), reset()});

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    expectOldLocalFile();
}

TEST_F(Download, ChunkedBodyCut_FailsAndLeavesTheOldFile) {
    logOn();
    const std::string chunks = chunked(body(), 4096);

    EXPECT_EQ(downloadAnswered(replyHead(200, {"Transfer-Encoding: chunked"}) +
                               chunks.substr(0, chunks.size() - 5)),
              voInetErrorTransferFailed);

    expectOldLocalFile();
}

TEST_F(Download, BrokenChunkSize_FailsAndLeavesTheOldFile) {
    logOn();

    EXPECT_EQ(downloadAnswered(replyHead(200, {"Transfer-Encoding: chunked"}) +
                               "10\r\n0123456789abcdef\r\nno size\r\n"),
              voInetErrorTransferFailed);

    expectOldLocalFile();
}

TEST_F(Download, LengthLongerThanTheBody_FailsAndLeavesTheOldFile) {
    logOn();

    EXPECT_EQ(downloadAnswered(replyHead(200, {"Content-Length: 200001"}) + body()),
              voInetErrorTransferFailed);

    expectOldLocalFile();
}

TEST_F(Download, AnswerThatIsNoHttp_FailsAndLeavesTheOldFile) {
    logOn();

    EXPECT_EQ(downloadAnswered("SSH-2.0-Something\r\n"), voInetErrorTransferFailed);

    expectOldLocalFile();
}

TEST_F(Download, NoAnswerAtAll_FailsAndLeavesTheOldFile) {
    logOn();
    server().connection({receiveRequest()});

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    expectOldLocalFile();
}

TEST_F(Download, HeadCut_FailsAndLeavesTheOldFile) {
    logOn();
    server().connection({receiveRequest(), send("HTTP/1.1 200 OK\r\nContent-Le"), reset()});

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    expectOldLocalFile();
}

TEST_F(Download, RedirectToHttp_IsFollowed) {
    ScriptedServer other;
    other.connection(answer(reply(200, body())));
    logOn();
    server().connection(
        answer(reply(301, "moved",
                     {"Location: http://127.0.0.1:" + std::to_string(other.port()) + "/new.zip"})));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
    ASSERT_THAT(other.requests(), SizeIs(1));
    EXPECT_EQ(other.requests().front().method, "GET");
    EXPECT_EQ(other.requests().front().target, "/new.zip");
}

TEST_F(Download, RedirectToAnotherHost_DoesNotTakeTheCredentialsAlong) {
    ScriptedServer other;
    other.connection(answer(reply(200, body())));
    auto withUser = settings();
    withUser.user = L"user";
    withUser.password = L"password";
    logOn(withUser);
    const std::string location =
        "Location: http://127.0.0.1:" + std::to_string(other.port()) + "/new.zip";
    server().connection(
        answers({keepAliveReply(401, {}, {kBasicChallenge}), reply(302, {}, {location})}));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    ASSERT_THAT(other.requests(), SizeIs(1));
    EXPECT_EQ(other.requests().front().header("Authorization"), std::nullopt);
}

TEST_F(Download, FiveRedirects_AreFollowed) {
    logOn();
    redirect(server(), 5);
    server().connection(answer(reply(200, body())));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
    EXPECT_THAT(requests(), SizeIs(6));
}

TEST_F(Download, SixRedirects_AreTooMany) {
    logOn();
    redirect(server(), 6);

    EXPECT_EQ(download().result, voInetErrorTransferFailed);

    expectOldLocalFile();
    EXPECT_THAT(requests(), SizeIs(6));
}

TEST_F(Download, RedirectToAnythingButHttp_IsRefused) {
    logOn();
    const ScriptedServer never;
    const std::string host = "127.0.0.1:" + std::to_string(never.port());
    for (const std::string& location :
         {"https://" + host + "/f", "ftp://" + host + "/f", "file://" + localFile(),
          "gopher://" + host + "/f", "dict://" + host + "/d:x"}) {
        EXPECT_EQ(downloadAnswered(reply(302, "moved", {"Location: " + location})),
                  voInetErrorTransferFailed)
            << location;
        expectOldLocalFile();
    }
    EXPECT_EQ(never.connectionCount(), 0U);
}

TEST_F(Download, Answered401WithoutCredentials_IsALoginFailure) {
    logOn();

    EXPECT_EQ(downloadAnswered(reply(401, "who are you", {kBasicChallenge})),
              voInetErrorLoginIncorrect);

    expectOldLocalFile();
    EXPECT_THAT(requests(), SizeIs(1));
}

TEST_F(Download, BasicChallenge_IsAnsweredWithTheCredentials) {
    auto withUser = settings();
    withUser.user = L"us@er";
    withUser.password = L"p%:\u00e4 x";
    logOn(withUser);
    server().connection(
        answers({keepAliveReply(401, "who are you", {kBasicChallenge}), reply(200, body())}));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
    ASSERT_THAT(requests(), SizeIs(2));
    EXPECT_EQ(requests()[0].header("Authorization"), std::nullopt);
    EXPECT_EQ(requests()[1].header("Authorization"), basicCredentials("us@er:p%:\xc3\xa4 x"));
}

TEST_F(Download, DigestChallenge_IsPreferredToBasic) {
    auto withUser = settings();
    withUser.user = L"user";
    withUser.password = L"password";
    logOn(withUser);
    server().connection(answers(
        {keepAliveReply(
             401, {},
             {kBasicChallenge, "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\""}),
         reply(200, body())}));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    ASSERT_THAT(requests(), SizeIs(2));
    EXPECT_THAT(requests()[1].header("Authorization").value_or(""),
                testing::StartsWith("Digest username=\"user\""));
}

TEST_F(Download, Answered401WithoutAChallengeEachTime_GivesUpAfterFourRequests) {
    auto withUser = settings();
    withUser.user = L"user";
    withUser.password = L"password";
    logOn(withUser);
    for (int request = 0; request < 4; ++request) {
        server().connection(answer(reply(401, "no")));
    }

    EXPECT_EQ(download().result, voInetErrorMaxRetries);

    expectOldLocalFile();
    EXPECT_THAT(requests(), SizeIs(4));
    EXPECT_EQ(log().count(HostLogLevel::info, L"DoHttpDownload max retries reached."), 1U);
}

TEST_F(Download, CredentialsRefusedEachTime_GivesUpAfterFourAttempts) {
    auto withUser = settings();
    withUser.user = L"user";
    withUser.password = L"wrong";
    logOn(withUser);
    server().otherwise(answer(reply(401, "no", {kBasicChallenge})));

    EXPECT_EQ(download().result, voInetErrorMaxRetries);

    expectOldLocalFile();
    EXPECT_EQ(log().count(HostLogLevel::detail, L"curl_easy_perform returned value: 0"), 4U);
}

TEST_F(Download, AfterGivingUp_TheNextOneStartsAfresh) {
    auto withUser = settings();
    withUser.user = L"user";
    withUser.password = L"password";
    logOn(withUser);
    for (int request = 0; request < 4; ++request) {
        server().connection(answer(reply(401, "no")));
    }
    ASSERT_EQ(download().result, voInetErrorMaxRetries);
    for (int request = 0; request < 3; ++request) {
        server().connection(answer(reply(401, "no")));
    }
    server().connection(answer(reply(200, body())));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, BodiesOfRefusedAttempts_AreNotInTheFile) {
    auto withUser = settings();
    withUser.user = L"user";
    withUser.password = L"password";
    logOn(withUser);
    server().connection(answer(reply(401, makeBody(2 * kSize, 3))));
    server().connection(answer(reply(200, body())));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, CancelledAtTheFirstProgress_LeavesTheOldFile) {
    logOn();
    sink().stopAt(0);
    // The client may be gone before or after it has sent its request.
    server().otherwise({[](Conversation& client) { client.receiveAll(); }});

    EXPECT_EQ(download().result, voInetErrorCancelled);

    expectOldLocalFile();
    EXPECT_THAT(sink().notifications(), SizeIs(1));
}

TEST_F(Download, CancelledInTheMiddle_CommitsWhatArrived) {
    logOn();
    sink().stopAt(kSize / 2);
    server().connection(
        {receiveRequest(), send(reply(200, body()).substr(0, kSize * 3 / 4)), awaitClose()});

    EXPECT_EQ(download().result, voInetErrorCancelled);

    EXPECT_GE(sink().bytesDone(), kSize / 2);
    expectLocalFile(body().substr(0, sink().bytesDone()));
}

TEST_F(Download, CancelledInTheMiddleOfAnotherStatus_LeavesTheOldFile) {
    logOn();
    sink().stopAt(kSize / 2);
    server().connection(
        {receiveRequest(), send(reply(500, body()).substr(0, kSize * 3 / 4)), awaitClose()});

    EXPECT_EQ(download().result, voInetErrorCancelled);

    expectOldLocalFile();
}

TEST_F(Download, CancelledOnceEverythingArrived_CommitsTheWholeFile) {
    logOn();
    sink().stopAt(kSize);
    server().connection({receiveRequest(), sendUntilClosed(reply(200, body()))});

    EXPECT_EQ(download().result, voInetErrorCancelled);

    expectLocalFile(body());
}

TEST_F(Download, SinkThatThrows_StopsTheTransferLikeACancel) {
    logOn();
    sink().throwWhen([](const Notification& now) { return now.done >= kSize / 2; });
    server().connection(
        {receiveRequest(), send(reply(200, body()).substr(0, kSize * 3 / 4)), awaitClose()});

    EXPECT_EQ(download().result, voInetErrorCancelled);

    expectLocalFile(body().substr(0, sink().bytesDone()));
}

TEST_F(Download, AfterACancel_TheNextOneWorks) {
    logOn();
    sink().stopAt(1);
    server().connection(
        {receiveRequest(), send(reply(200, body()).substr(0, kSize / 2)), awaitClose()});
    ASSERT_EQ(download().result, voInetErrorCancelled);
    sink().stopWhen(nullptr);

    EXPECT_EQ(downloadAnswered(reply(200, body())), voInetErrorSuccess);

    expectLocalFile(body());
}

TEST_F(Download, PlainUpload_IsNotSupported) {
    logOn();

    EXPECT_EQ(transfer().UploadFile(widened(localFile()), L"file.zip", &sink()),
              voInetErrorNotSupported);

    expectOldLocalFile();
}

TEST_F(Download, WithoutLogon_IsRefusedWithoutNetworkActivity) {
    applySettings(transfer(), settings());

    EXPECT_EQ(download().result, voInetErrorBadOptions);

    expectOldLocalFile();
    EXPECT_EQ(server().connectionCount(), 0U);
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
