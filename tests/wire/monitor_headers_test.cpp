// Which answers a monitor is told of when their heads are complete, and when.

#include "support/exchange.h"
#include "support/recordingmonitor.h"
#include "support/wiretest.h"

#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kChallenge = "WWW-Authenticate: Basic realm=\"r\"";
constexpr const char* kProxyChallenge = "Proxy-Authenticate: Basic realm=\"p\"";

class MonitoredHeads : public Monitored<HttpTest> {
  protected:
    void SetUp() override { makeLocalFile("old"); }

    TransferSettings withUser() const {
        auto settings = HttpTest::settings();
        settings.user = L"user";
        settings.password = L"password";
        return settings;
    }

    std::vector<int> reported() {
        std::vector<int> statuses;
        for (const auto& record : monitor().records(MonitorCall::headers)) {
            statuses.push_back(record.status);
        }
        return statuses;
    }

    /// The statuses that are reported when a download gets these bytes as its answer.
    std::vector<int> reportedFor(std::string bytes) {
        logOn();
        watch();
        server().connection(answer(std::move(bytes)));
        download();
        EXPECT_THAT(monitor().calls(), testing::Contains(MonitorCall::ended));
        return reported();
    }
};

TEST_F(MonitoredHeads, Head_IsReportedBeforeItsBody) {
    logOn();
    watch();
    bool isEarly = false;
    sink().stopWhen([&](const Notification& now) {
        isEarly = isEarly || (now.done > 0 && monitor().count(MonitorCall::headers) == 0);
        return false;
    });
    const std::string body = makeBody(100'000);
    server().connection(
        {receiveRequest(), sendInPieces(reply(200, body, {"X-Kind: file"}), 10'007)});

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_FALSE(isEarly);
    ASSERT_THAT(reported(), ElementsAre(200));
    const RequestRecord record = recordOf(MonitorCall::headers);
    EXPECT_EQ(record.received, 0);
    EXPECT_EQ(headerOf(record, "X-Kind"), "file");
    EXPECT_EQ(record.purpose, requestDownload);
    EXPECT_EQ(record.remotePort, server().port());
}

TEST_F(MonitoredHeads, HeadAlone_IsReportedWhileTheBodyIsDue) {
    Event reportedEvent;
    logOn();
    watch();
    monitor().goOnWhile([&] {
        if (monitor().count(MonitorCall::headers) > 0) {
            reportedEvent.set();
        }
        return true;
    });
    server().connection({receiveRequest(),
                         send(replyHead(200, {"Content-Length: 3", "Connection: close"})),
                         await(reportedEvent), send("new")});

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(reported(), ElementsAre(200));
}

TEST_F(MonitoredHeads, Status206_IsReported) {
    logOn();
    watch();
    const std::string body = makeBody(5000);
    makeLocalFile(body.substr(0, 2024));
    server().connection(answer(reply(206, body.substr(1000, 1024))));
    server().connection(answer(reply(206, body.substr(1000))));
    DownloadArguments arguments;
    arguments.offset = 1000;

    EXPECT_EQ(download(L"file.zip", arguments).result, voInetErrorSuccess);

    EXPECT_THAT(reported(), ElementsAre(206, 206));
}

TEST_F(MonitoredHeads, Status404_IsReported) {
    EXPECT_THAT(reportedFor(reply(404, "page")), ElementsAre(404));
}

TEST_F(MonitoredHeads, EmptyBody_IsReportedAsWell) {
    EXPECT_THAT(reportedFor(reply(200)), ElementsAre(200));
}

TEST_F(MonitoredHeads, Http10_IsReported) {
    EXPECT_THAT(reportedFor("HTTP/1.0 200 OK\r\nX-Kind: old\r\n\r\nnew"), ElementsAre(200));
}

TEST_F(MonitoredHeads, HeadByteByByte_IsReportedOnce) {
    logOn();
    watch();
    server().connection({receiveRequest(), sendInPieces(reply(200, "new"), 1)});

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(reported(), ElementsAre(200));
}

TEST_F(MonitoredHeads, HeadThatIsCut_IsNotReported) {
    EXPECT_THAT(reportedFor("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n"), IsEmpty());
}

TEST_F(MonitoredHeads, InterimAnswers_AreNotReported) {
    EXPECT_THAT(reportedFor(replyHead(100, {"X-Interim: 1"}) + replyHead(103, {"X-Interim: 2"}) +
                            reply(200, "new", {"X-Final: 3"})),
                ElementsAre(200));

    for (const auto call : {MonitorCall::headers, MonitorCall::ended}) {
        EXPECT_EQ(headerOf(recordOf(call), "X-Interim"), std::nullopt) << call;
        EXPECT_EQ(headerOf(recordOf(call), "X-Final"), "3") << call;
    }
}

TEST_F(MonitoredHeads, Probe_IsReported) {
    applySettings(transfer(), settings());
    watch();
    server().connection(answer(replyHead(200, {"Content-Length: 500", "Connection: close"})));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_THAT(reported(), ElementsAre(200));
}

TEST_F(MonitoredHeads, RedirectThatIsFollowed_IsNotReported) {
    logOn();
    watch();
    for (const char* page : {"", "moved"}) {
        server().connection(answer(reply(302, page, {"Location: /1"})));
        server().connection(answer(reply(200, "new")));

        EXPECT_EQ(download().result, voInetErrorSuccess);
    }

    EXPECT_THAT(reported(), ElementsAre(200, 200));
}

TEST_F(MonitoredHeads, RedirectsOfALogon_AreNotReported) {
    applySettings(transfer(), settings());
    watch();
    server().connection(answer(reply(307, "", {"Location: /1"})));
    server().connection(answer(reply(404)));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorFailed);

    EXPECT_THAT(reported(), ElementsAre(404));
}

TEST_F(MonitoredHeads, RedirectWithoutATarget_IsReported) {
    EXPECT_THAT(reportedFor(reply(302, "nowhere")), ElementsAre(302));
    EXPECT_THAT(monitor().calls(),
                ElementsAre(MonitorCall::started, MonitorCall::headers, MonitorCall::ended));
}

TEST_F(MonitoredHeads, RedirectWithoutATargetAndABody_IsReportedAtTheEnd) {
    EXPECT_THAT(reportedFor(reply(304)), ElementsAre(304));
    EXPECT_THAT(monitor().calls(),
                ElementsAre(MonitorCall::started, MonitorCall::headers, MonitorCall::ended));
}

TEST_F(MonitoredHeads, Challenge_ThatCurlMeetsIsNotReported) {
    logOn(withUser());
    watch();
    server().connection(answers({keepAliveReply(401, "page", {kChallenge, "X-Kind: challenge"}),
                                 reply(200, "new", {"X-Kind: file"})}));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(reported(), ElementsAre(200));
    EXPECT_EQ(headerOf(recordOf(MonitorCall::headers), "X-Kind"), "file");
}

TEST_F(MonitoredHeads, Challenge_ThatStaysIsReported) {
    EXPECT_THAT(reportedFor(reply(401, "page", {kChallenge})), ElementsAre(401));
}

TEST_F(MonitoredHeads, Challenge_ThatStaysWithoutABodyIsReported) {
    EXPECT_THAT(reportedFor(reply(401, "", {kChallenge})), ElementsAre(401));
}

TEST_F(MonitoredHeads, ChallengeToTheProbe_IsReported) {
    applySettings(transfer(), settings());
    watch();
    server().connection(answer(reply(401, "", {kChallenge})));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_THAT(reported(), ElementsAre(401));
}

TEST_F(MonitoredHeads, ChallengeOfAProxy_ThatCurlMeetsIsNotReported) {
    CProxyParams proxy;
    proxy.m_bHttpProxyAuthentication = true;
    proxy.m_strHttpProxyUser = L"proxy user";
    proxy.m_strHttpProxyPassword = L"secret";
    logOnThroughProxy(proxy);
    watch();
    server().connection(
        answers({keepAliveReply(407, "page", {kProxyChallenge}), reply(200, "new")}));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_THAT(reported(), ElementsAre(200));
}

TEST_F(MonitoredHeads, ChallengeOfAProxy_ThatStaysIsReported) {
    logOnThroughProxy({});
    watch();
    server().connection(answer(reply(407, "page", {kProxyChallenge})));

    EXPECT_EQ(download().result, voInetErrorProxyAuthRequired);

    EXPECT_THAT(reported(), ElementsAre(407));
}

class MonitoredExchangeHeads : public Monitored<ExchangeTest> {};

TEST_F(MonitoredExchangeHeads, EveryFinalAnswer_IsReportedOnce) {
    watch();
    std::vector<int> statuses;
    // An exchange follows no redirect and answers no challenge.
    for (const int status : {200, 202, 302, 401, 403, 407, 503}) {
        postAnswered(replyHead(103) + reply(status, "body", {"Location: /1", kChallenge}));
    }
    for (const auto& record : monitor().records(MonitorCall::headers)) {
        statuses.push_back(record.status);
    }

    EXPECT_THAT(statuses, ElementsAre(200, 202, 302, 401, 403, 407, 503));
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
