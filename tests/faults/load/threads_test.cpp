#include "support/leakguard.h"
#include "support/logcapture.h"
#include "support/temporarydirectory.h"
#include "transfers.h"
#include "voinet/voinet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// What a host with several threads gets that lets one download at a time go on.

namespace tessaro_com::pkm::voInet::load {
namespace {

using testing::IsEmpty;

constexpr std::size_t kThreads = 8;
constexpr std::size_t kDownloads = 24;

/// Runs `work` on every thread; what it throws is collected.
std::vector<std::string> onThreads(std::size_t count,
                                   const std::function<void(std::size_t thread)>& work) {
    std::mutex mutex;
    std::vector<std::string> failures;
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < count; ++number) {
        threads.emplace_back([&, number] {
            try {
                work(number);
            } catch (const std::exception& error) {
                const std::lock_guard<std::mutex> lock(mutex);
                failures.emplace_back(error.what());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return failures;
}

class SerialisingHost : public testing::Test {
  protected:
    SerialisingHost() {
        // The first factory of a process is made before there is a second thread.
        VoInetItfFactory factory;
        preferMemory();
    }

    void TearDown() override { EXPECT_THAT(leaks.leftovers(), IsEmpty()); }

    const LoopbackServer server;
    const wire::LeakGuard leaks;
    // Lines of all threads go through the one handler of the process.
    const wire::LogCapture log;
    /// One transfer at a time.
    std::mutex transfers;
};

}  // namespace

TEST_F(SerialisingHost, ObjectOfEachThread_MadeAndFilledBesideTransfers_DownloadsItsOwnFiles) {
    const wire::TemporaryDirectory directory;

    const auto failures = onThreads(kThreads, [&](std::size_t thread) {
        const std::string local = directory.path(std::to_string(thread));
        for (std::size_t number = 0; number < kDownloads; ++number) {
            const std::string repository = "thread-" + std::to_string(thread);
            const std::string name = "file-" + std::to_string(number);
            const auto transfer =
                makeObject(voInetProtocolHttp, server.httpHost(), wire::widened(repository));
            const std::string content =
                contentOf(std::string("/").append(repository).append("/").append(name));
            const std::lock_guard<std::mutex> lock(transfers);
            downloadWhole(*transfer, local, name, content);
        }
    });

    EXPECT_THAT(failures, IsEmpty());
    EXPECT_EQ(directory.entries().size(), kThreads);
    EXPECT_EQ(log.count(HostLogLevel::info, L"Open URL: "), kThreads * kDownloads);
}

TEST_F(SerialisingHost, HttpAndFtpWithEveryEnding_AreAllRight) {
    const wire::TemporaryDirectory directory;

    const auto failures = onThreads(kThreads, [&](std::size_t thread) {
        const bool isFtp = thread % 2 == 1;
        DownloadSeries series(isFtp ? voInetProtocolFtp : voInetProtocolHttp,
                              isFtp ? server.ftpHost() : server.httpHost(),
                              directory.path(std::to_string(thread)));
        for (std::size_t number = 0; number < kDownloads; ++number) {
            const std::lock_guard<std::mutex> lock(transfers);
            series.run(number);
        }
    });

    EXPECT_THAT(failures, IsEmpty());
    EXPECT_EQ(directory.entries().size(), kThreads);
}

// An object may be handed from thread to thread, and copies and exchanges share nothing with
// downloads.
TEST_F(SerialisingHost, CopiesAndExchangesBesideDownloads_AreAllRight) {
    const wire::TemporaryDirectory directory;
    const wire::TemporaryDirectory sources;
    // Made here, used and destroyed there.
    DownloadSeries downloads(voInetProtocolHttp, server.httpHost(), directory.path("download"));
    CopySeries copies(sources.path(), directory.path("copy"));
    ExchangeSeries exchanges(server.httpHost(), sources.path("request"),
                             directory.path("response"));
    downloads.run(0);
    copies.run(0);
    exchanges.run(0);
    const std::vector<std::reference_wrapper<Series>> all = {downloads, copies, exchanges};

    const auto failures = onThreads(all.size(), [&](std::size_t thread) {
        for (std::size_t number = 1; number < 2 * kDownloads; ++number) {
            all[thread].get().run(number);
        }
    });

    EXPECT_THAT(failures, IsEmpty());
}

}  // namespace tessaro_com::pkm::voInet::load
