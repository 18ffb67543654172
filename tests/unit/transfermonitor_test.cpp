#include "voinet/transfermonitor.h"

#include "support/curldouble.h"
#include "support/curloptions.h"
#include "support/curlsetupmodel.h"
#include "support/downloadfixture.h"
#include "support/ftpfixture.h"
#include "support/temporaryfiles.h"
#include "voinet/FTPConnection.h"
#include "voinet/HTTPConnection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

using namespace tessaro_com::pkm::voInet;
using namespace voinet_test;
using testing::Each;
using testing::ElementsAreArray;
using testing::SizeIs;

namespace {

using Texts = std::vector<std::string>;

/// Answers its limits and counts how often they are asked for.
class LimitingMonitor : public TransferMonitor {
  public:
    explicit LimitingMonitor(std::int64_t connectTimeoutMs = 0, std::int64_t bytesPerSecond = 0) {
        m_limits.connectTimeoutMs = connectTimeoutMs;
        m_limits.maxReceiveBytesPerSecond = bytesPerSecond;
    }

    TransferLimits Limits() override {
        ++asked;
        return m_limits;
    }

    int asked = 0;

  private:
    TransferLimits m_limits;
};

class MonitorScope {
  public:
    explicit MonitorScope(TransferMonitor& monitor) : m_former(setTransferMonitor(&monitor)) {}
    ~MonitorScope() { setTransferMonitor(m_former); }
    MonitorScope(const MonitorScope&) = delete;
    MonitorScope& operator=(const MonitorScope&) = delete;

  private:
    TransferMonitor* m_former;
};

/// Options with an address for a value, which a test cannot know, have "*" instead; so has the size
/// of the buffer.
Texts withoutAddresses(Texts trace) {
    for (auto& entry : trace) {
        const auto value = entry.find('=') + 1;
        const bool isAddress = entry.compare(value, 1, "@") == 0;
        if (isAddress || entry.rfind(optionName(CURLOPT_BUFFERSIZE) + "=", 0) == 0) {
            entry.replace(value, std::string::npos, "*");
        }
    }
    return trace;
}

Texts plus(Texts texts, const Texts& others) {
    texts.insert(texts.end(), others.begin(), others.end());
    return texts;
}

/// The options of a set-up; callbacks' user data are there or not.
Texts setupOptions(const CNetConnection& connection, bool hasManager) {
    Texts options;
    for (const auto& each : expectedSetup(connection, nullptr, false)) {
        if (each.rfind("CURLOPT", 0) == 0) {
            options.push_back(each);
        }
    }
    for (auto& each : options) {
        for (const auto id : {CURLOPT_WRITEDATA, CURLOPT_PROGRESSDATA, CURLOPT_READDATA}) {
            if (hasManager && each == optionName(id) + "=null") {
                each = optionName(id) + "=*";
            }
        }
    }
    return withoutAddresses(options);
}

/// What a download has behind everything else, whether or not there is a monitor.
Texts headerOptions() {
    return {optionName(CURLOPT_BUFFERSIZE) + "=*", optionName(CURLOPT_HEADERFUNCTION) + "=*",
            optionName(CURLOPT_HEADERDATA) + "=*"};
}

Texts recordedOptions() {
    return withoutAddresses(curlDouble().options());
}

class MonitoredHttpHandles : public DownloadFixture {
  protected:
    voInetError logon() { return connection.LogonWithConnSpec(connMethodFqdn, false, 0); }

    voInetError exchange() {
        connection.SetOption(voInetOptionHostIP, std::wstring(L"10.1.2.3:8443"));
        connection.ApplyHostInformation(connMethodIP);
        scratch.write("request", "the request");
        return connection.UploadFileResponseWithConnSpec(connMethodIP, scratch.wideFile("request"),
                                                         L"/agent", scratch.wideFile("response"),
                                                         nullptr);
    }

    /// One handle of each kind: a logon's, a download's, an exchange's.
    void useEachHandle() {
        curlDouble().play(answer(200));
        EXPECT_EQ(logon(), voInetErrorSuccess);
        curlDouble().play(answer(200).body(serverFile()));
        EXPECT_EQ(download(), voInetErrorSuccess);
        curlDouble().play(answer(202));
        EXPECT_EQ(exchange(), voInetErrorNoPackage);
        ASSERT_THAT(curlDouble().requests(), SizeIs(3));
    }

    void expectOnEachHandle(CURLoption id, long number) {
        for (const auto& request : curlDouble().requests()) {
            EXPECT_TRUE(request.has(id)) << request.text(CURLOPT_URL);
            EXPECT_EQ(request.number(id), number) << request.text(CURLOPT_URL);
        }
    }

    void expectOnNoHandle(CURLoption id) {
        for (const auto& request : curlDouble().requests()) {
            EXPECT_FALSE(request.has(id)) << request.text(CURLOPT_URL);
        }
    }
};

class MonitoredFtpHandles : public FtpFixture {};

}  // namespace

TEST(TransferMonitor, Setting_AnswersTheFormerOne) {
    TransferMonitor first;
    TransferMonitor second;

    EXPECT_EQ(setTransferMonitor(&first), nullptr);
    EXPECT_EQ(setTransferMonitor(&second), &first);
    EXPECT_EQ(setTransferMonitor(&second), &second);
    EXPECT_EQ(setTransferMonitor(nullptr), &second);
    EXPECT_EQ(setTransferMonitor(nullptr), nullptr);
}

TEST(TransferMonitor, EachThread_HasItsOwn) {
    TransferMonitor mine;
    TransferMonitor other;
    const MonitorScope scope(mine);

    std::thread([&] {
        EXPECT_EQ(setTransferMonitor(&other), nullptr);
        EXPECT_EQ(setTransferMonitor(nullptr), &other);
    }).join();

    EXPECT_EQ(setTransferMonitor(&mine), &mine);
}

TEST(TransferMonitor, OperationsThatAreNotOverridden_ChangeNothing) {
    TransferMonitor monitor;
    const RequestRecord record;

    monitor.OnRequestStarted(record);
    monitor.OnHeaders(record);
    monitor.OnRequestEnded(record);

    EXPECT_TRUE(monitor.GoesOn());
    EXPECT_FALSE(monitor.KeepsWhatArrived(record));
    EXPECT_EQ(monitor.Limits().connectTimeoutMs, 0);
    EXPECT_EQ(monitor.Limits().maxReceiveBytesPerSecond, 0);
}

TEST(TransferMonitor, Numbers_AreFixed) {
    EXPECT_EQ(requestLogon, 0);
    EXPECT_EQ(requestPrefixCheck, 1);
    EXPECT_EQ(requestDownload, 2);
    EXPECT_EQ(requestExchange, 3);
}

TEST_F(MonitoredHttpHandles, LogonWithoutAMonitor_HasTheUsualOptionsOnly) {
    curlDouble().play(answer(200));
    EXPECT_EQ(logon(), voInetErrorSuccess);

    EXPECT_THAT(
        recordedOptions(),
        ElementsAreArray(plus(setupOptions(connection, false),
                              {option(CURLOPT_URL, "http://server.corp:8080/pkg/SiteStat.xml"),
                               option(CURLOPT_NOBODY, 1L)})));
}

TEST_F(MonitoredHttpHandles, DownloadWithoutAMonitor_ReceivesHeadersToo) {
    curlDouble().play(answer(200).body(serverFile()));
    EXPECT_EQ(download(), voInetErrorSuccess);

    EXPECT_THAT(
        recordedOptions(),
        ElementsAreArray(plus(plus(setupOptions(connection, true), {option(CURLOPT_URL, kUrl)}),
                              headerOptions())));
}

TEST_F(MonitoredHttpHandles, ExchangeWithoutAMonitor_HasTheUsualOptionsOnly) {
    curlDouble().play(answer(202));
    EXPECT_EQ(exchange(), voInetErrorNoPackage);

    const Texts headers{"Accept: application/octet-stream",
                        "Accept-Language: en-us",
                        "Expect:",
                        "Host: 10.1.2.3",
                        "Content-Type: application/octet-stream",
                        "Content-Length: 11"};
    EXPECT_THAT(
        recordedOptions(),
        ElementsAreArray(Texts{"CURLOPT_PROXY=\"\"",
                               option(CURLOPT_URL, "http://10.1.2.3:8443/agent"),
                               "CURLOPT_WRITEFUNCTION=*",
                               "CURLOPT_WRITEDATA=*",
                               "CURLOPT_HEADERFUNCTION=*",
                               "CURLOPT_WRITEHEADER=*",
                               "CURLOPT_READFUNCTION=*",
                               "CURLOPT_READDATA=*",
                               "CURLOPT_USERAGENT=\"Mozilla/4.0 (compatible; KESTL/3.0; Windows)\"",
                               "CURLOPT_POST=1",
                               "CURLOPT_POSTFIELDSIZE_LARGE=11",
                               option(CURLOPT_HTTPHEADER, headers),
                               "CURLOPT_LOW_SPEED_LIMIT=1",
                               "CURLOPT_LOW_SPEED_TIME=600",
                               "CURLOPT_NOSIGNAL=1",
                               "CURLOPT_CONNECTTIMEOUT=180",
                               "CURLOPT_SSL_VERIFYPEER=1",
                               "CURLOPT_SSL_VERIFYHOST=0",
                               "CURLOPT_CAINFO=\"\"",
                               "CURLOPT_SSLVERSION=1"}));
}

TEST_F(MonitoredFtpHandles, LogonWithoutAMonitor_HasTheUsualOptionsOnly) {
    curlDouble().play(answer(200));
    EXPECT_EQ(connection.LogonWithConnSpec(connMethodFqdn, false, 0), voInetErrorSuccess);

    EXPECT_THAT(recordedOptions(),
                ElementsAreArray(plus(
                    setupOptions(connection, false),
                    {option(CURLOPT_URL, "ftp://server.corp:2121"), option(CURLOPT_NOBODY, 1L)})));
}

TEST_F(MonitoredFtpHandles, DownloadWithoutAMonitor_ReceivesHeadersToo) {
    curlDouble().play(answer(226).body(serverFile()));
    EXPECT_EQ(download(), voInetErrorSuccess);

    EXPECT_THAT(
        recordedOptions(),
        ElementsAreArray(plus(plus(setupOptions(connection, true), {option(CURLOPT_URL, kUrl)}),
                              headerOptions())));
}

TEST_F(MonitoredHttpHandles, WithoutAMonitor_NothingOfAMonitorIsSet) {
    useEachHandle();

    expectOnNoHandle(CURLOPT_ERRORBUFFER);
    expectOnNoHandle(CURLOPT_CONNECTTIMEOUT_MS);
    expectOnNoHandle(CURLOPT_MAX_RECV_SPEED_LARGE);
}

TEST_F(MonitoredHttpHandles, WithAMonitor_CurlTellsItsReasons) {
    LimitingMonitor monitor;
    const MonitorScope scope(monitor);

    useEachHandle();

    for (const auto& request : curlDouble().requests()) {
        ASSERT_TRUE(request.has(CURLOPT_ERRORBUFFER)) << request.text(CURLOPT_URL);
        EXPECT_NE(request.options.at(CURLOPT_ERRORBUFFER), "null");
    }
    expectOnNoHandle(CURLOPT_CONNECTTIMEOUT_MS);
    expectOnNoHandle(CURLOPT_MAX_RECV_SPEED_LARGE);
}

TEST_F(MonitoredHttpHandles, Limits_AreSetOnEachHandle) {
    LimitingMonitor monitor(1500, 20'000);
    const MonitorScope scope(monitor);

    useEachHandle();

    expectOnEachHandle(CURLOPT_CONNECTTIMEOUT_MS, 1500);
    expectOnEachHandle(CURLOPT_MAX_RECV_SPEED_LARGE, 20'000);
}

TEST_F(MonitoredHttpHandles, EachLimit_StandsAlone) {
    {
        LimitingMonitor monitor(1, 0);
        const MonitorScope scope(monitor);
        useEachHandle();
        expectOnEachHandle(CURLOPT_CONNECTTIMEOUT_MS, 1);
        expectOnNoHandle(CURLOPT_MAX_RECV_SPEED_LARGE);
    }
    connection.ApplyHostInformation(connMethodFqdn);
    curlDouble().clearTrace();
    LimitingMonitor monitor(0, 1);
    const MonitorScope scope(monitor);
    useEachHandle();
    expectOnNoHandle(CURLOPT_CONNECTTIMEOUT_MS);
    expectOnEachHandle(CURLOPT_MAX_RECV_SPEED_LARGE, 1);
}

TEST_F(MonitoredHttpHandles, NegativeLimits_AreNotSet) {
    LimitingMonitor monitor(-1, std::int64_t{-5'000'000'000});
    const MonitorScope scope(monitor);

    useEachHandle();

    expectOnNoHandle(CURLOPT_CONNECTTIMEOUT_MS);
    expectOnNoHandle(CURLOPT_MAX_RECV_SPEED_LARGE);
}

TEST_F(MonitoredHttpHandles, ConnectTimeout_WinsOverThoseOfLogonsAndExchanges) {
    LimitingMonitor monitor(1500);
    const MonitorScope scope(monitor);
    curlDouble().play(answer(200));
    EXPECT_EQ(connection.LogonWithConnSpec(connMethodFqdn, true, 30), voInetErrorSuccess);
    curlDouble().play(answer(202));
    EXPECT_EQ(exchange(), voInetErrorNoPackage);

    // Curl keeps the one that is set last. Each handle begins with its proxy.
    std::string last;
    Texts lastOfEachHandle;
    for (const auto& each : curlDouble().trace()) {
        if (each.rfind(optionName(CURLOPT_CONNECTTIMEOUT) + "=", 0) == 0 ||
            each.rfind(optionName(CURLOPT_CONNECTTIMEOUT_MS) + "=", 0) == 0) {
            last = each;
        }
        if (each == "perform") {
            lastOfEachHandle.push_back(last);
            last.clear();
        }
    }
    ASSERT_THAT(lastOfEachHandle, SizeIs(2));
    EXPECT_THAT(lastOfEachHandle, Each(option(CURLOPT_CONNECTTIMEOUT_MS, 1500L)));
}

TEST_F(MonitoredHttpHandles, Limits_AreAskedForOncePerHandle) {
    LimitingMonitor monitor;
    const MonitorScope scope(monitor);
    connection.m_bUseAuthentication = true;
    for (int i = 0; i < 4; ++i) {
        curlDouble().play(answer(401));
    }

    EXPECT_EQ(download(), voInetErrorMaxRetries);

    EXPECT_EQ(curlDouble().requests().size(), 4U);
    EXPECT_EQ(monitor.asked, 1);
}

TEST_F(MonitoredHttpHandles, MonitorThatIsRemoved_LeavesNothingOnTheNextHandles) {
    {
        LimitingMonitor monitor(1500, 20'000);
        const MonitorScope scope(monitor);
    }

    useEachHandle();

    expectOnNoHandle(CURLOPT_ERRORBUFFER);
    expectOnNoHandle(CURLOPT_CONNECTTIMEOUT_MS);
    expectOnNoHandle(CURLOPT_MAX_RECV_SPEED_LARGE);
}
