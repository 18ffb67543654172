#include "kvecomn/astring.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <sstream>
#include <string>

namespace {

std::wstring textOf(const AString& text) {
    return std::wstring(text);
}

TEST(AString, NarrowText_BecomesWideByUtf8) {
    EXPECT_EQ(textOf(AString("gr\xC3\xBC\xC3\x9F")), L"gr\u00FC\u00DF");
    EXPECT_EQ(textOf(AString(std::string("\xF0\x9F\x98\x80"))), L"\U0001F600");
}

TEST(AString, NullText_CountsAsEmpty) {
    AString text(static_cast<const char*>(nullptr));
    text += static_cast<const char*>(nullptr);

    EXPECT_EQ(textOf(text), L"");
    EXPECT_EQ(textOf(AString()), L"");
}

TEST(AString, Appends_ComeOneAfterTheOther) {
    AString text("a");
    text += 'b';
    text += "c\xC3\xA4";
    text += std::string("d");
    (text += 7UL) += -8;

    EXPECT_EQ(textOf(text), L"abc\u00E4d7-8");
}

TEST(AString, NumbersAtTheirLimits_AreDecimal) {
    AString text;
    text += ULONG_MAX;
    text += ' ';
    text += INT_MIN;
    text += ' ';
    text += 0UL;

    EXPECT_EQ(textOf(text), std::to_wstring(ULONG_MAX) + L" " + std::to_wstring(INT_MIN) + L" 0");
}

TEST(AString, Format_FillsUpToWidthInLowerCase) {
    AString text;
    text += AFormat(10, "0x", 2);
    text += AFormat(0, "|", 2);
    text += AFormat(0xABCDEF, "|#", 8);

    EXPECT_EQ(textOf(text), L"0x0a|00|#00abcdef");
}

TEST(AString, FormatWiderThanItsWidth_KeepsAllDigits) {
    AString text;
    text += AFormat(0x1234, "", 2);
    text += AFormat(0, nullptr, 0);
    text += AFormat(15, "-", -4);

    EXPECT_EQ(textOf(text), L"12340-f");
}

TEST(AString, EveryByte_HasTwoHexadecimalDigits) {
    constexpr wchar_t kDigits[] = L"0123456789abcdef";
    for (unsigned long byte = 0; byte <= 0xFF; ++byte) {
        AString text;
        text += AFormat(byte, "0x", 2);
        EXPECT_EQ(textOf(text), (std::wstring{L'0', L'x', kDigits[byte / 16], kDigits[byte % 16]}));
    }
}

TEST(AString, Pointer_IsHexadecimalWithMark) {
    const int object = 0;
    AString text;
    text += static_cast<const void*>(&object);
    text += ' ';
    text += static_cast<const void*>(nullptr);

    std::wostringstream expected;
    expected << L"0x" << std::hex << reinterpret_cast<std::uintptr_t>(&object) << L" 0x0";
    EXPECT_EQ(textOf(text), expected.str());
}

TEST(AString, LoneByteOfUtf8_BecomesReplacement) {
    AString text;
    text += '\xC3';

    EXPECT_EQ(textOf(text), L"\uFFFD");
}

}  // namespace
