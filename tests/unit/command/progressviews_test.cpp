#include "progressviews.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace voinet_command {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

ProgressState halfWay() {
    ProgressState state;
    state.done = 5 * 1024;
    state.total = 10 * 1024;
    state.bytesPerSecond = 1024;
    state.remaining = 5;
    return state;
}

}  // namespace

TEST(ProgressBar, HalfWay_ShowsShareRateAndRemainingTime) {
    EXPECT_EQ(formatBar("a.bin", halfWay(), 80),
              "a.bin [=========          ]  50% 5.0 KiB of 10.0 KiB, 1.0 KiB/s, 0:05 left");
}

TEST(ProgressBar, AnyWidth_FitsTheLine) {
    for (int width = 1; width < 300; ++width) {
        const std::string line = formatBar(std::string(100, 'n'), halfWay(), width);
        EXPECT_LE(line.size(), static_cast<std::size_t>(std::max(width - 1, 1))) << width;
    }
}

TEST(ProgressBar, NoRoom_ShowsTheFiguresOnly) {
    EXPECT_THAT(formatBar("a.bin", halfWay(), 60),
                AllOf(HasSubstr("5.0 KiB of 10.0 KiB"), Not(HasSubstr("["))));
}

TEST(ProgressBar, UnknownSize_ShowsBytesAndRate) {
    ProgressState state = halfWay();
    state.total.reset();
    state.remaining.reset();
    EXPECT_EQ(formatBar("a.bin", state, 80), "a.bin 5.0 KiB, 1.0 KiB/s");
}

TEST(ProgressLine, TellsShareAndFigures) {
    EXPECT_EQ(formatProgressLine("a.bin", halfWay()),
              "a.bin: 50% (5.0 KiB of 10.0 KiB, 1.0 KiB/s, 0:05 left)");
}

TEST(ProgressLine, MoreThanAnnounced_StaysAtAHundredPercent) {
    ProgressState state = halfWay();
    state.done = 20 * 1024;
    EXPECT_THAT(formatProgressLine("a.bin", state), HasSubstr("100%"));
}

}  // namespace voinet_command
