#include "answertext.h"

#include <gtest/gtest.h>

namespace voinet_command {

TEST(AnswerText, ShortText_BecomesOneLine) {
    EXPECT_EQ(answerText("no such agent"), "no such agent");
    EXPECT_EQ(answerText("  down\r\n\tuntil noon\n"), "down until noon");
    EXPECT_EQ(answerText("caf\xc3\xa9"), "caf\xc3\xa9");
    EXPECT_EQ(answerText(std::string(kMaxAnswerText, 'a')), std::string(kMaxAnswerText, 'a'));
}

TEST(AnswerText, EverythingElse_IsDropped) {
    EXPECT_EQ(answerText(""), "");
    EXPECT_EQ(answerText(" \r\n"), "");
    EXPECT_EQ(answerText(std::string(kMaxAnswerText + 1, 'a')), "");
    EXPECT_EQ(answerText("a\x1b[31m"), "");
    EXPECT_EQ(answerText(std::string("a\0b", 3)), "");
    EXPECT_EQ(answerText("a\x7f"), "");
    EXPECT_EQ(answerText("\xff"), "");
}

}  // namespace voinet_command
