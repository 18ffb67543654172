#include "kvecomn/telmcomn.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace {

constexpr wchar_t kReplacement = 0xFFFD;
constexpr char kReplacementUtf8[] = "\xEF\xBF\xBD";

bool isSurrogate(char32_t value) {
    return value >= 0xD800 && value <= 0xDFFF;
}

/// UTF-8 written down a second time, by arithmetic instead of by bits.
std::string expectedUtf8(char32_t value) {
    const auto byte = [](char32_t number) { return static_cast<char>(number); };
    if (value < 128) {
        return {byte(value)};
    }
    if (value < 2048) {
        return {byte(192 + value / 64), byte(128 + value % 64)};
    }
    if (value < 65536) {
        return {byte(224 + value / 4096), byte(128 + value / 64 % 64), byte(128 + value % 64)};
    }
    return {byte(240 + value / 262144), byte(128 + value / 4096 % 64), byte(128 + value / 64 % 64),
            byte(128 + value % 64)};
}

TEST(WideToNarrow, EveryCharacter_GivesItsUtf8) {
    for (char32_t value = 0; value <= 0x10FFFF; ++value) {
        if (!isSurrogate(value)) {
            const std::wstring wide(1, static_cast<wchar_t>(value));
            ASSERT_EQ(telmcomn_wide_to_ansi(wide), expectedUtf8(value)) << value;
        }
    }
}

TEST(NarrowToWide, Utf8OfEveryCharacter_GivesTheCharacter) {
    for (char32_t value = 0; value <= 0x10FFFF; ++value) {
        if (!isSurrogate(value)) {
            const std::wstring wide(1, static_cast<wchar_t>(value));
            ASSERT_EQ(telmcomn_ansi_to_wide(expectedUtf8(value)), wide) << value;
        }
    }
}

TEST(WideToNarrow, EverySurrogate_BecomesReplacement) {
    for (char32_t value = 0xD800; value <= 0xDFFF; ++value) {
        const std::wstring wide(1, static_cast<wchar_t>(value));
        ASSERT_EQ(telmcomn_wide_to_ansi(wide), kReplacementUtf8) << value;
    }
}

TEST(WideToNarrow, ValueAboveUnicode_BecomesReplacement) {
    for (const char32_t value : {0x110000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        const std::wstring wide{L'a', static_cast<wchar_t>(value), L'b'};
        EXPECT_EQ(telmcomn_wide_to_ansi(wide), std::string("a") + kReplacementUtf8 + "b");
    }
}

TEST(NarrowToWide, EveryPairOfBytes_IsOneCharacterOrOneReplacementEach) {
    for (unsigned first = 0x80; first <= 0xFF; ++first) {
        for (unsigned second = 0; second <= 0xFF; ++second) {
            const std::string narrow{static_cast<char>(first), static_cast<char>(second)};
            const bool isTwoByteForm =
                first >= 0xC2 && first <= 0xDF && second >= 0x80 && second <= 0xBF;
            const bool startsLongerForm =
                (first == 0xE0 && second >= 0xA0 && second <= 0xBF) ||
                (first == 0xED && second >= 0x80 && second <= 0x9F) ||
                (first >= 0xE1 && first <= 0xEF && first != 0xED && second >= 0x80 &&
                 second <= 0xBF) ||
                (first == 0xF0 && second >= 0x90 && second <= 0xBF) ||
                (first >= 0xF1 && first <= 0xF3 && second >= 0x80 && second <= 0xBF) ||
                (first == 0xF4 && second >= 0x80 && second <= 0x8F);
            std::wstring expected{kReplacement};
            if (isTwoByteForm) {
                expected = {static_cast<wchar_t>((first - 0xC0) * 64 + second - 0x80)};
            } else if (!startsLongerForm) {
                expected += second < 0x80 ? static_cast<wchar_t>(second) : kReplacement;
            }
            ASSERT_EQ(telmcomn_ansi_to_wide(narrow), expected) << first << ' ' << second;
        }
    }
}

struct IllFormed {
    const char* name;
    std::string narrow;
    std::size_t replacements;
};

class NarrowToWideIllFormed : public testing::TestWithParam<IllFormed> {};

TEST_P(NarrowToWideIllFormed, BetweenLetters_OneReplacementForEachMaximalPart) {
    const std::wstring wide = telmcomn_ansi_to_wide("a" + GetParam().narrow + "b");

    EXPECT_EQ(wide, L"a" + std::wstring(GetParam().replacements, kReplacement) + L"b");
}

TEST_P(NarrowToWideIllFormed, AtTheEnd_OneReplacementForEachMaximalPart) {
    const std::wstring wide = telmcomn_ansi_to_wide(GetParam().narrow);

    EXPECT_EQ(wide, std::wstring(GetParam().replacements, kReplacement));
}

INSTANTIATE_TEST_SUITE_P(Sequences, NarrowToWideIllFormed,
                         testing::Values(IllFormed{"LoneContinuation", "\x80", 1},
                                         IllFormed{"ThreeContinuations", "\x80\xBF\x80", 3},
                                         IllFormed{"CutTwoBytes", "\xC3", 1},
                                         IllFormed{"CutThreeBytes", "\xE2\x82", 1},
                                         IllFormed{"CutFourBytesAfterThree", "\xF0\x9F\x98", 1},
                                         IllFormed{"CutFourBytesAfterTwo", "\xF1\x80", 1},
                                         IllFormed{"TwoCutSequences", "\xE2\x82\xE2\x82", 2},
                                         IllFormed{"OverlongTwoBytes", "\xC0\xAF", 2},
                                         IllFormed{"OverlongThreeBytes", "\xE0\x80\xAF", 3},
                                         IllFormed{"OverlongFourBytes", "\xF0\x80\x80\xAF", 4},
                                         IllFormed{"FirstSurrogate", "\xED\xA0\x80", 3},
                                         IllFormed{"LastSurrogate", "\xED\xBF\xBF", 3},
                                         IllFormed{"AboveUnicode", "\xF4\x90\x80\x80", 4},
                                         IllFormed{"FarAboveUnicode", "\xF5\x80\x80\x80", 4},
                                         IllFormed{"FiveBytes", "\xF8\x88\x80\x80\x80", 5},
                                         IllFormed{"NeverUsedBytes", "\xFE\xFF", 2},
                                         IllFormed{"MixedParts", "\xF1\x80\x80\xE1\x80\xC2", 3}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(NarrowToWide, CharacterBehindCutSequence_IsKept) {
    EXPECT_EQ(telmcomn_ansi_to_wide("\xE2\x82\xC3\xA4"), (std::wstring{kReplacement, 0xE4}));
}

TEST(Conversion, ZeroCharacters_AreKeptBothWays) {
    const std::string narrow("a\0b\0", 4);
    const std::wstring wide(L"a\0b\0", 4);

    EXPECT_EQ(telmcomn_ansi_to_wide(narrow), wide);
    EXPECT_EQ(telmcomn_wide_to_ansi(wide), narrow);
}

TEST(Conversion, EmptyText_StaysEmpty) {
    EXPECT_EQ(telmcomn_ansi_to_wide(""), L"");
    EXPECT_EQ(telmcomn_wide_to_ansi(L""), "");
}

}  // namespace
