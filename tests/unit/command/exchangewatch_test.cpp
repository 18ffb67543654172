#include "exchangewatch.h"

#include "interrupt.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <future>

namespace voinet_command {

namespace {

constexpr int kStatusOfStop = 42;

/// Ends the process, which is a child of the test, by way of the watch.
[[noreturn]] void stopBySignal(bool isBefore, int signal) {
    installInterruptHandlers();
    if (isBefore) {
        ::raise(signal);
    }
    const ExchangeWatch watch({}, [] { ::_exit(kStatusOfStop); });
    if (!isBefore) {
        ::raise(signal);
    }
    while (true) {
        ::pause();
    }
}

}  // namespace

TEST(ExchangeWatchDeathTest, SignalBeforeOrMeanwhile_CallsStop) {
    for (const int signal : {SIGINT, SIGTERM}) {
        EXPECT_EXIT(stopBySignal(true, signal), testing::ExitedWithCode(kStatusOfStop), "");
        EXPECT_EXIT(stopBySignal(false, signal), testing::ExitedWithCode(kStatusOfStop), "");
    }
}

TEST(ExchangeWatch, WithoutAStop_TicksUntilItGoes) {
    std::promise<std::chrono::seconds> third;
    int ticks = 0;
    bool isStopped = false;
    {
        const ExchangeWatch watch(
            [&](std::chrono::seconds elapsed) {
                if (++ticks == 3) {
                    third.set_value(elapsed);
                }
            },
            [&] { isStopped = true; }, std::chrono::milliseconds(1));
        EXPECT_GE(third.get_future().get().count(), 0);
    }
    EXPECT_GE(ticks, 3);
    EXPECT_FALSE(isStopped);
}

TEST(ExchangeWatch, NothingHappens_NeitherIsCalled) {
    bool isStopped = false;
    {
        const ExchangeWatch watch({}, [&] { isStopped = true; });
    }
    EXPECT_FALSE(isStopped);
}

}  // namespace voinet_command
