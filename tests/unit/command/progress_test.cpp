#include "progress.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace voinet_command {

namespace {

using Clock = ProgressMeter::Clock;
using std::chrono::milliseconds;

struct RecordingView : ProgressView {
    void Show(const ProgressState& state) override { shown.push_back(state); }
    void End(const ProgressState& state) override { ended.push_back(state); }

    std::vector<ProgressState> shown;
    std::vector<ProgressState> ended;
};

/// Reports to the sink as the library does. False when the sink stopped the transfer.
bool report(ProgressSink& sink, unsigned long done, long total, int status = 3) {
    bool goOn = true;
    sink.OnTransferProgress(&done, &total, &status, L"default", L"host", L"url", &goOn);
    return goOn;
}

}  // namespace

TEST(ProgressMeter, SteadyTransfer_GivesRateAndRemainingTime) {
    const Clock::time_point start{};
    ProgressMeter meter(start);
    const ProgressState state = meter.Update(start + milliseconds(1000), 1000, 4000, 0);

    EXPECT_DOUBLE_EQ(state.bytesPerSecond, 1000);
    EXPECT_EQ(state.remaining, 3U);
}

TEST(ProgressMeter, ShortSample_GivesNoRateYet) {
    const Clock::time_point start{};
    const ProgressState state = ProgressMeter(start).Update(start + milliseconds(10), 500, 900, 0);

    EXPECT_DOUBLE_EQ(state.bytesPerSecond, 0);
    EXPECT_EQ(state.remaining, std::nullopt);
}

TEST(ProgressMeter, ResumedTransfer_CountsFromTheBeginButRatesOnlyTheRest) {
    const Clock::time_point start{};
    ProgressMeter meter(start);
    const ProgressState state = meter.Update(start + milliseconds(1000), 100, 300, 5000);

    EXPECT_EQ(state.done, 5100U);
    EXPECT_EQ(state.total, 5300U);
    EXPECT_DOUBLE_EQ(state.bytesPerSecond, 100);
    EXPECT_EQ(state.remaining, 2U);
}

TEST(ProgressMeter, TransferStartsOver_RateDoesNotGoNegative) {
    const Clock::time_point start{};
    ProgressMeter meter(start);
    meter.Update(start + milliseconds(1000), 10000, 20000, 0);
    meter.Update(start + milliseconds(1100), 10, 20000, 0);
    const ProgressState state = meter.Update(start + milliseconds(2100), 1010, 20000, 0);

    EXPECT_GT(state.bytesPerSecond, 0);
    EXPECT_LT(state.bytesPerSecond, 10001);
}

TEST(ProgressSink, UnknownTotal_IsUnset) {
    const long offset = 0;
    ProgressSink sink(&offset, nullptr);
    EXPECT_EQ(sink.Moved(), std::nullopt);
    EXPECT_TRUE(report(sink, 10, 0));

    EXPECT_EQ(sink.Moved(), 10U);
    EXPECT_EQ(sink.Announced(), std::nullopt);
}

TEST(ProgressSink, FiguresAtTheirLimit_AreNotTrusted) {
    const long offset = 0;
    ProgressSink sink(&offset, nullptr);
    report(sink, std::numeric_limits<unsigned long>::max(), std::numeric_limits<long>::max());

    EXPECT_EQ(sink.Moved(), std::nullopt);
    EXPECT_EQ(sink.Announced(), std::nullopt);
}

TEST(ProgressSink, OffsetIsReadAtEachReport) {
    long offset = 1000;
    RecordingView view;
    ProgressSink sink(&offset, &view);
    report(sink, 10, 20);
    offset = 0;
    report(sink, 30, 1020);
    sink.End();

    ASSERT_EQ(view.shown.size(), 2U);
    EXPECT_EQ(view.shown[0].done, 1010U);
    EXPECT_EQ(view.shown[1].done, 30U);
    EXPECT_EQ(view.shown[1].total, 1020U);
    ASSERT_EQ(view.ended.size(), 1U);
    EXPECT_EQ(view.ended[0].done, 30U);
}

}  // namespace voinet_command
