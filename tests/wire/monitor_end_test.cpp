// A monitor that ends what is under way, by its answer or by an exception.

#include "support/exchange.h"
#include "support/ftp.h"
#include "support/recordingmonitor.h"
#include "support/wiretest.h"

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::Combine;
using testing::Values;
using testing::WithParamInterface;

constexpr std::size_t kSize = 60'000;
constexpr std::size_t kArrived = 30'000;

/// Ends what is under way as soon as the server has come to this event.
std::function<bool()> until(const Event& event) {
    return [&event] { return !event.isSet(); };
}

/// Takes a request and never answers; the client must leave by itself.
Script silent(Event& asked) {
    return {receiveRequest(), signal(asked), awaitClose()};
}

/// A client may come, ask or leave as it likes.
Script tolerant(const std::string& bytes) {
    return {[bytes](Conversation& client) {
        try {
            client.receiveRequest();
            client.send(bytes);
        } catch (const ConnectionLost&) {
            // It had no more interest.
        }
    }};
}

class MonitorEnds : public Monitored<HttpTest> {
  protected:
    void SetUp() override {
        makeLocalFile("old");
        m_other.emplace();
    }

    void TearDown() override {
        EXPECT_EQ(m_other->connectionCount(), 0U) << "no other host form is tried";
        m_other.reset();
        Monitored<HttpTest>::TearDown();
    }

    /// The settings with another server behind the server.
    TransferSettings twoForms() {
        TransferSettings settings;
        settings.hostIp = server().hostAndPort();
        settings.hostFqdn = m_other->hostAndPort();
        return settings;
    }

    void expectOneRequest() {
        EXPECT_EQ(monitor().count(MonitorCall::started), 1U);
        EXPECT_EQ(monitor().count(MonitorCall::ended), 1U);
        EXPECT_EQ(ended().curlResult, 42);
    }

    const std::string& body() const { return m_body; }

  private:
    std::optional<ScriptedServer> m_other;
    std::string m_body = makeBody(kSize);
};

TEST_F(MonitorEnds, LogonWithoutAnAnswer_IsCancelled) {
    Event asked;
    applySettings(transfer(), twoForms());
    watch();
    monitor().goOnWhile(until(asked));
    server().connection(silent(asked));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorCancelled);

    expectOneRequest();
}

TEST_F(MonitorEnds, LogonThatMayUseAnAlternateProxy_DoesNotTryIt) {
    Event asked;
    CProxyParams proxy = proxyAt(server().port());
    proxy.m_bAllowUserToConfigureProxy = true;
    transfer().SetOption(voInetOptionSite, &proxy);
    applySettings(transfer(), twoForms());
    watch();
    monitor().goOnWhile(until(asked));
    server().connection(silent(asked));

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorCancelled);

    expectOneRequest();
    EXPECT_EQ(server().connectionCount(), 1U);
}

TEST_F(MonitorEnds, DownloadInItsBody_IsCancelledAndCommitsWhatArrived) {
    logOn(twoForms());
    watch();
    monitor().goOnWhile([this] { return sink().bytesDone() < kArrived; });
    const std::string whole = reply(200, body());
    server().connection(
        {receiveRequest(), send(whole.substr(0, whole.size() - kSize + kArrived)), awaitClose()});

    EXPECT_EQ(download().result, voInetErrorCancelled);

    expectLocalFile(body().substr(0, kArrived));
    expectOneRequest();
}

TEST_F(MonitorEnds, DownloadWithoutASink_IsCancelledAsWell) {
    logOn(twoForms());
    watch();
    monitor().goOnWhile([this] { return monitor().count(MonitorCall::headers) == 0; });
    server().connection(
        {receiveRequest(), send(replyHead(200, {"Content-Length: 5"})), awaitClose()});
    bool resume = false;

    EXPECT_EQ(
        transfer().DownloadFile(widened(localFile()), L"file.zip", nullptr, nullptr, resume, true),
        voInetErrorCancelled);

    expectOneRequest();
}

TEST_F(MonitorEnds, DownloadWithoutAnAnswer_LeavesTheOldFile) {
    Event asked;
    logOn(twoForms());
    watch();
    monitor().goOnWhile(until(asked));
    server().connection(silent(asked));

    EXPECT_EQ(download().result, voInetErrorCancelled);

    expectLocalFile("old");
    expectOneRequest();
}

TEST_F(MonitorEnds, PageOfA404_IsNotCommitted) {
    logOn(twoForms());
    watch();
    monitor().goOnWhile([this] { return sink().bytesDone() < 4; });
    server().connection(
        {receiveRequest(), send(replyHead(404, {"Content-Length: 50"}) + "page"), awaitClose()});

    EXPECT_EQ(download().result, voInetErrorCancelled);

    expectLocalFile("old");
}

TEST_F(MonitorEnds, CheckOfAResume_EndsTheWholeDownload) {
    Event asked;
    logOn(twoForms());
    makeLocalFile(body().substr(0, 5000));
    watch();
    monitor().goOnWhile(until(asked));
    server().connection(silent(asked));
    DownloadArguments arguments;
    arguments.offset = 3000;

    EXPECT_EQ(download(L"file.zip", arguments).result, voInetErrorCancelled);

    EXPECT_EQ(ended().purpose, requestPrefixCheck);
    expectOneRequest();
    expectLocalFile(body().substr(0, 5000));
}

TEST_F(MonitorEnds, RestOfAResume_CommitsThePartialFileWithWhatArrived) {
    constexpr std::size_t kOffset = 3000;
    logOn(twoForms());
    makeLocalFile(body().substr(0, kOffset + 1024));
    watch();
    monitor().goOnWhile([this] { return sink().bytesDone() < kArrived; });
    server().connection(answer(reply(206, body().substr(kOffset, 1024))));
    server().connection(
        {receiveRequest(),
         send(replyHead(206, {"Content-Length: 57000"}) + body().substr(kOffset, kArrived)),
         awaitClose()});
    DownloadArguments arguments;
    arguments.offset = static_cast<long>(kOffset);

    EXPECT_EQ(download(L"file.zip", arguments).result, voInetErrorCancelled);

    expectLocalFile(body().substr(0, kOffset + kArrived));
}

TEST_F(MonitorEnds, ExchangeBeforeTheAnswer_IsCancelled) {
    Event asked;
    directory().makeFile("request", "a request");
    applySettings(transfer(), twoForms());
    watch();
    monitor().goOnWhile(until(asked));
    server().connection(silent(asked));

    EXPECT_EQ(transfer().UploadFileResponse(widened(directory().path("request")), L"/path",
                                            widened(directory().path("response")), &sink()),
              voInetErrorCancelled);

    expectOneRequest();
}

TEST_F(MonitorEnds, EndFromTheStart_AnswersCancelledEverywhere) {
    directory().makeFile("request", "a request");
    logOn(twoForms());
    watch();
    monitor().goOnWhile([] { return false; });
    server().otherwise(tolerant(reply(200, body())));

    EXPECT_EQ(download().result, voInetErrorCancelled);
    EXPECT_EQ(transfer().UploadFileResponse(widened(directory().path("request")), L"/path",
                                            widened(directory().path("response")), &sink()),
              voInetErrorCancelled);
    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorCancelled);

    EXPECT_EQ(monitor().count(MonitorCall::started), monitor().count(MonitorCall::ended));
}

TEST_F(MonitorEnds, NextTransfer_GoesOnAgain) {
    Event asked;
    logOn(twoForms());
    watch();
    monitor().goOnWhile(until(asked));
    server().connection(silent(asked));
    ASSERT_EQ(download().result, voInetErrorCancelled);
    monitor().goOnWhile([] { return true; });
    server().connection(answer(reply(200, body())));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    expectLocalFile(body());
}

class FtpMonitorEnds : public Monitored<FtpTest> {
  protected:
    void SetUp() override { makeLocalFile("old"); }

    /// The settings with a host form behind the server that must not be tried.
    TransferSettings twoForms() {
        TransferSettings settings;
        settings.hostIp = server().hostAndPort();
        settings.hostFqdn = server().hostAndPort();
        return settings;
    }
};

TEST_F(FtpMonitorEnds, LogonWithoutAGreeting_IsCancelled) {
    Event connected;
    applySettings(transfer(), twoForms());
    watch();
    monitor().goOnWhile(until(connected));
    server().control().connection({signal(connected), awaitClose()});

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorCancelled);

    EXPECT_EQ(server().sessionCount(), 1U);
    EXPECT_EQ(monitor().count(MonitorCall::ended), 1U);
}

TEST_F(FtpMonitorEnds, DownloadInItsData_IsCancelledAndCommitsWhatArrived) {
    const std::string body = makeBody(kSize);
    logOn(twoForms());
    watch();
    monitor().goOnWhile([this] { return sink().bytesDone() < kArrived; });
    FtpSession session = sending(body);
    session.data = {send(body.substr(0, kArrived)), awaitClose()};

    EXPECT_EQ(downloadIn(session), voInetErrorCancelled);

    expectLocalFile(body.substr(0, kArrived));
    EXPECT_EQ(server().sessionCount(), 2U);
}

TEST_F(FtpMonitorEnds, DownloadThatMayUseAnAlternateProxy_DoesNotTryIt) {
    // Unlike a sink, which is asked again through the alternate proxy.
    const std::string body = makeBody(kSize);
    const ScriptedServer proxy;
    CProxyParams params = proxyAt(proxy.port());
    params.m_bUseIEConfig = true;
    params.m_bAllowUserToConfigureProxy = true;
    transfer().SetOption(voInetOptionSite, &params);
    logOn();
    watch();
    monitor().goOnWhile([this] { return sink().bytesDone() < kArrived; });
    FtpSession session = sending(body);
    session.data = {send(body.substr(0, kArrived)), awaitClose()};

    EXPECT_EQ(downloadIn(session), voInetErrorCancelled);

    EXPECT_EQ(proxy.connectionCount(), 0U);
}

// Exceptions.

enum class Operation { logon, download, exchange };

std::ostream& operator<<(std::ostream& stream, Operation operation) {
    switch (operation) {
        case Operation::logon:
            return stream << "Logon";
        case Operation::download:
            return stream << "Download";
        case Operation::exchange:
            return stream << "Exchange";
    }
    return stream;
}

using ThrowingCase = std::tuple<MonitorCall, Operation>;

std::string nameOf(const testing::TestParamInfo<ThrowingCase>& info) {
    return testing::PrintToString(std::get<0>(info.param)) + "In" +
           testing::PrintToString(std::get<1>(info.param));
}

class ThrowingMonitor : public MonitorEnds, public WithParamInterface<ThrowingCase> {
  protected:
    voInetError perform() {
        switch (std::get<1>(GetParam())) {
            case Operation::logon:
                return transfer().Logon(false, 0);
            case Operation::download:
                return download().result;
            case Operation::exchange:
                return transfer().UploadFileResponse(
                    widened(directory().makeFile("request", "a request")), L"/path",
                    widened(directory().path("response")), &sink());
        }
        return voInetErrorFailed;
    }

    void prepare() {
        if (std::get<1>(GetParam()) == Operation::download) {
            logOn(twoForms());
        } else {
            applySettings(transfer(), twoForms());
        }
        // A monitor is sure to be asked whether to go on while nothing comes.
        const bool isAsked = std::get<0>(GetParam()) == MonitorCall::goesOn;
        server().otherwise(isAsked ? untilClosed() : tolerant(reply(200, "package")));
        watch();
        monitor().throwIn(std::get<0>(GetParam()));
    }

  private:
    static Script untilClosed() {
        return {[](Conversation& client) {
            try {
                client.receiveAll();
            } catch (const ConnectionLost&) {
                // The client has gone at once.
            }
        }};
    }
};

TEST_P(ThrowingMonitor, EndsTheOperationAsCancelled) {
    prepare();

    EXPECT_EQ(perform(), voInetErrorCancelled);

    EXPECT_EQ(monitor().count(MonitorCall::started), monitor().count(MonitorCall::ended));
    EXPECT_LE(monitor().count(MonitorCall::started), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, ThrowingMonitor,
    Combine(Values(MonitorCall::started, MonitorCall::headers, MonitorCall::ended,
                   MonitorCall::goesOn, MonitorCall::limits),
            Values(Operation::logon, Operation::download, Operation::exchange)),
    nameOf);

class ThrowingFtpMonitor : public Monitored<FtpTest>, public WithParamInterface<MonitorCall> {};

TEST_P(ThrowingFtpMonitor, EndsALogonAndADownloadAsCancelled) {
    logOn();
    watch();
    monitor().throwIn(GetParam());
    server().otherwise([](std::size_t) {
        FtpSession session = sending("new");
        session.dataMayStayUnused = true;
        return session;
    });

    EXPECT_EQ(download().result, voInetErrorCancelled);
    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorCancelled);

    EXPECT_EQ(monitor().count(MonitorCall::started), monitor().count(MonitorCall::ended));
}

INSTANTIATE_TEST_SUITE_P(Calls, ThrowingFtpMonitor,
                         Values(MonitorCall::started, MonitorCall::ended, MonitorCall::limits),
                         [](const auto& given) { return testing::PrintToString(given.param); });

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
