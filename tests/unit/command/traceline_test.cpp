#include "traceline.h"

#include <gtest/gtest.h>

namespace voinet_command {

TEST(TraceLine, EveryKind_IsTakenApart) {
    for (const std::string kind :
         {"info", "rcv head", "snd head", "rcv data", "snd data", "rcv SSL data", "snd SSL data"}) {
        const auto line = parseTraceLine("0x7f00 " + kind + " 12 the bytes");
        ASSERT_TRUE(line.has_value()) << kind;
        EXPECT_EQ(line->kind, kind);
        EXPECT_EQ(line->escaped, "the bytes");
    }
}

TEST(TraceLine, OtherLines_AreNone) {
    for (const std::string text : {"", "x", "0x7f00 ", "0x7f00 info", "0x7f00 info x y",
                                   "Unknown trace: 9 12", "Trying to connect.."}) {
        EXPECT_FALSE(parseTraceLine(text).has_value()) << text;
    }
}

TEST(TraceLine, Escapes_AreUndone) {
    EXPECT_EQ(unescapeTrace("a``b`0x0d`0x0a`0xff"), "a`b\r\n\xff");
    EXPECT_EQ(unescapeTrace("`0x0"), "`0x0");
    EXPECT_EQ(unescapeTrace("`"), "`");
    EXPECT_EQ(unescapeTrace("``0x41"), "`0x41");
}

TEST(TraceLine, Bytes_AreEscapedAsTheLibraryDoes) {
    EXPECT_EQ(escapeTrace("a`b\r\n\xff\x7f ~"), "a``b`0x0d`0x0a`0xff`0x7f ~");
    EXPECT_EQ(escapeTrace(""), "");
    for (int value = 0; value < 256; ++value) {
        const std::string byte(1, static_cast<char>(value));
        EXPECT_EQ(unescapeTrace(escapeTrace(byte)), byte) << value;
    }
}

TEST(ReplyStatus, HttpAndFtpLines) {
    EXPECT_EQ(replyStatusOf("HTTP/1.1 404 Not Found"), 404);
    EXPECT_EQ(replyStatusOf("HTTP/1.0 200"), 200);
    EXPECT_EQ(replyStatusOf("550 No such file"), 550);
    EXPECT_EQ(replyStatusOf("230-Welcome"), 230);
    for (const std::string text :
         {"", "HTTP/1.1", "HTTP/1.1 ", "Content-Length: 200", "20", "2000 x", "HTTP/1.1 abc"}) {
        EXPECT_EQ(replyStatusOf(text), std::nullopt) << text;
    }
}

}  // namespace voinet_command
