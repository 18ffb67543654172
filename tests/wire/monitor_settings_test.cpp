// Whose transfers a monitor sees, and the limits that it sets.

#include "support/exchange.h"
#include "support/recordingmonitor.h"
#include "support/wiretest.h"

#include <cstdint>
#include <limits>
#include <string>
#include <thread>

namespace tessaro_com::pkm::voInet::wire {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Far below any time-out of the library, far above what the loopback interface takes.
constexpr std::int64_t kShortMs = 200;

class MonitorOfAThread : public Monitored<HttpTest> {
  protected:
    void serve(std::size_t count) {
        applySettings(transfer(), settings());
        for (std::size_t i = 0; i < count; ++i) {
            server().connection(answer(reply(200)));
        }
    }
};

TEST_F(MonitorOfAThread, OtherThreads_AreNotSeen) {
    serve(1);
    watch();

    std::thread([this] { EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess); }).join();

    EXPECT_THAT(monitor().calls(), IsEmpty());
    EXPECT_THAT(monitor().threads(), IsEmpty());
}

TEST_F(MonitorOfAThread, EachThread_HasItsOwn) {
    serve(2);
    watch();
    RecordingMonitor other;
    std::thread([&] {
        const MonitorScope scope(other);
        EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    }).join();
    ASSERT_EQ(other.count(MonitorCall::ended), 1U);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_EQ(monitor().count(MonitorCall::ended), 1U);
    EXPECT_EQ(other.count(MonitorCall::ended), 1U);
}

TEST_F(MonitorOfAThread, EveryObjectOfTheThread_IsSeen) {
    serve(2);
    watch();
    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    makeTransfer(voInetProtocolHttp);
    applySettings(transfer(), settings());

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_EQ(monitor().count(MonitorCall::ended), 2U);
}

TEST_F(MonitorOfAThread, MonitorThatWasReplaced_HearsNothingMore) {
    serve(2);
    RecordingMonitor first;
    RecordingMonitor second;
    {
        const MonitorScope outer(first);
        EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
        const MonitorScope inner(second);
        EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);
    }

    EXPECT_EQ(first.count(MonitorCall::ended), 1U);
    EXPECT_EQ(second.count(MonitorCall::ended), 1U);
}

TEST_F(MonitorOfAThread, RemovedMonitor_HearsNothingMore) {
    serve(1);
    { const MonitorScope scope(monitor()); }

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorSuccess);

    EXPECT_THAT(monitor().calls(), IsEmpty());
}

TEST_F(MonitorOfAThread, TransferUnderWay_KeepsItsMonitor) {
    logOn();
    watch();
    RecordingMonitor later;
    const std::string body = makeBody(100'000);
    sink().stopWhen([&](const Notification&) {
        setTransferMonitor(&later);
        return false;
    });
    server().connection(answer(reply(200, body)));

    EXPECT_EQ(download().result, voInetErrorSuccess);

    EXPECT_EQ(setTransferMonitor(&monitor()), &later);
    EXPECT_THAT(later.calls(), IsEmpty());
    EXPECT_THAT(monitor().calls(),
                ElementsAre(MonitorCall::started, MonitorCall::headers, MonitorCall::ended));
}

/// The monitor that a host gets who overrides nothing.
TEST_F(MonitorOfAThread, MonitorWithoutOverrides_ChangesNothing) {
    TransferMonitor silent;
    const MonitorScope scope(silent);
    logOn();
    const std::string body = makeBody(100'000);
    server().connection(answer(reply(200, body)));
    server().connection(answer(reply(200, body).substr(0, 50'000)));

    EXPECT_EQ(download().result, voInetErrorSuccess);
    expectLocalFile(body);
    EXPECT_EQ(download().result, voInetErrorTransferFailed);
    expectLocalFile(body);
}

class MonitorLimits : public Monitored<ExchangeTest> {
  protected:
    void limit(std::int64_t connectTimeoutMs, std::int64_t bytesPerSecond = 0) {
        TransferLimits limits;
        limits.connectTimeoutMs = connectTimeoutMs;
        limits.maxReceiveBytesPerSecond = bytesPerSecond;
        monitor().limit(limits);
        watch();
    }

    TransferSettings lastForm(const std::wstring& hostAndPort) {
        TransferSettings settings;
        settings.hostNetBios = hostAndPort;
        return settings;
    }
};

TEST_F(MonitorLimits, ConnectionOfALogonThatTakesTooLong_IsATimeout) {
    const SilentPort silent;
    makeTransfer(voInetProtocolHttp);
    applySettings(transfer(), lastForm(silent.hostAndPort()));
    limit(kShortMs);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorTimeout);

    EXPECT_NE(ended().reason, "");
    EXPECT_EQ(ended().remoteAddress, "");
}

TEST_F(MonitorLimits, LogonWithATimeoutOfItsOwn_TakesThatOfTheMonitor) {
    const SilentPort silent;
    makeTransfer(voInetProtocolHttp);
    applySettings(transfer(), lastForm(silent.hostAndPort()));
    limit(kShortMs);

    EXPECT_EQ(transfer().Logon(true, 600), voInetErrorTimeout);
}

TEST_F(MonitorLimits, ConnectionOfAnExchangeThatTakesTooLong_IsATimeout) {
    const SilentPort silent;
    applySettings(transfer(), addressOnly(silent.hostAndPort()));
    limit(kShortMs);

    EXPECT_EQ(post(), voInetErrorTimeout);
}

TEST_F(MonitorLimits, ConnectionOfAnFtpLogonThatTakesTooLong_IsATimeout) {
    const SilentPort silent;
    makeTransfer(voInetProtocolFtp);
    applySettings(transfer(), lastForm(silent.hostAndPort()));
    limit(kShortMs);

    EXPECT_EQ(transfer().Logon(false, 0), voInetErrorTimeout);
}

TEST_F(MonitorLimits, LimitsThatAreNotReached_ChangeNothing) {
    limit(60'000, 1'000'000'000);

    EXPECT_EQ(postAnswered(reply(200, "package")), voInetErrorPackageReceived);

    expectResponse("package");
}

TEST_F(MonitorLimits, NegativeLimits_CountAsNone) {
    limit(-1, -1);

    EXPECT_EQ(postAnswered(reply(200, "package")), voInetErrorPackageReceived);

    expectResponse("package");
}

TEST_F(MonitorLimits, LargestLimits_AreTaken) {
    limit(std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::max());

    EXPECT_EQ(postAnswered(reply(200, "package")), voInetErrorPackageReceived);

    expectResponse("package");
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::wire
