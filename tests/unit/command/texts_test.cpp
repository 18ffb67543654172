#include "texts.h"

#include <gtest/gtest.h>

namespace voinet_command {

TEST(Texts, IllFormedUtf8_IsTold) {
    for (const std::string good : {"", "a", "\xc3\xa4", "\xf0\x9f\x98\x80", "\xef\xbf\xbd"}) {
        EXPECT_TRUE(isUtf8(good)) << good;
    }
    for (const std::string bad : {"\xff", "\xc3", "\xc0\xaf", "\xed\xa0\x80", "a\x80"}) {
        EXPECT_FALSE(isUtf8(bad));
    }
}

TEST(Texts, Blanks_AreAllWhiteSpace) {
    for (const std::string text : {"a b", "a\tb", "a\nb", "a\rb", "a\vb", "a\fb"}) {
        EXPECT_TRUE(hasBlank(text));
    }
    EXPECT_FALSE(hasBlank("a%20b"));
}

TEST(Texts, ControlCharacters_BecomeQuestionMarks) {
    EXPECT_EQ(withoutControls("a\x1b[2Jb\x7f\xc3\xa4"), "a?[2Jb?\xc3\xa4");
}

TEST(Texts, Bytes_HaveTheUnitThatFits) {
    EXPECT_EQ(formatBytes(0), "0 B");
    EXPECT_EQ(formatBytes(1023), "1023 B");
    EXPECT_EQ(formatBytes(1536), "1.5 KiB");
    EXPECT_EQ(formatBytes(20ULL << 20), "20.0 MiB");
    EXPECT_EQ(formatBytes(5ULL << 30), "5.0 GiB");
    EXPECT_EQ(formatBytes(~0ULL), "16384.0 PiB");
}

TEST(Texts, Durations) {
    EXPECT_EQ(formatDuration(7), "0:07");
    EXPECT_EQ(formatDuration(725), "12:05");
    EXPECT_EQ(formatDuration(3723), "1:02:03");
}

TEST(Texts, HostAndPort_BracketsBareIpv6Only) {
    EXPECT_EQ(joinHostPort("a", 1), "a:1");
    EXPECT_EQ(joinHostPort("::1", 1), "[::1]:1");
    EXPECT_EQ(joinHostPort("[::1]", 1), "[::1]:1");
}

}  // namespace voinet_command
