#include "voinet/texts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <regex>
#include <set>
#include <string>

using namespace tessaro_com::pkm::voInet;
using testing::HasSubstr;
using testing::Not;

namespace {

/// The enumerators of the public header with their numbers.
std::map<std::string, int> headerResults() {
    std::ifstream file(VOINET_ERROR_HEADER);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::regex enumerator(R"(\n\s+(voInetError\w+) = (-?\d+),)");
    std::map<std::string, int> results;
    for (std::sregex_iterator match(text.begin(), text.end(), enumerator), end; match != end;
         ++match) {
        results[(*match)[1]] = std::stoi((*match)[2]);
    }
    return results;
}

std::set<int> headerNumbers() {
    std::set<int> numbers;
    for (const auto& [name, number] : headerResults()) {
        numbers.insert(number);
    }
    return numbers;
}

/// ASCII is UTF-8 for sure, and can be read in every log.
bool isPlainText(const std::string& text) {
    for (const char each : text) {
        if (std::isprint(static_cast<unsigned char>(each)) == 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

TEST(Texts, Header_IsRead) {
    EXPECT_GT(headerResults().size(), 35U);
    EXPECT_EQ(headerResults().at("voInetErrorKeysOutdated"), -96);
}

TEST(Texts, EveryResult_HasTheNameOfItsEnumerator) {
    for (const auto& [name, number] : headerResults()) {
        EXPECT_EQ(voInetErrorName(static_cast<voInetError>(number)), name);
    }
}

TEST(Texts, EveryResult_HasAMeaningInASentenceWithoutAFullStop) {
    for (const auto& [name, number] : headerResults()) {
        const std::string meaning = voInetErrorMeaning(static_cast<voInetError>(number));
        EXPECT_GE(meaning.size(), 5U) << name;
        EXPECT_NE(meaning, "unknown result") << name;
        EXPECT_THAT(meaning, Not(HasSubstr("."))) << name;
        EXPECT_TRUE(isPlainText(meaning)) << name;
    }
}

TEST(Texts, EveryOtherNumber_IsUnknown) {
    const auto known = headerNumbers();
    for (int number = -200; number <= 200; ++number) {
        const auto result = static_cast<voInetError>(number);
        const bool isUnknown = known.count(number) == 0;
        EXPECT_EQ(voInetErrorName(result) == std::string("voInetError?"), isUnknown) << number;
        EXPECT_EQ(voInetErrorMeaning(result) == std::string("unknown result"), isUnknown) << number;
    }
}

TEST(Texts, NumbersAtTheEnds_AreUnknown) {
    for (const int number :
         {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
        EXPECT_STREQ(voInetErrorName(static_cast<voInetError>(number)), "voInetError?");
        EXPECT_STREQ(voInetErrorMeaning(static_cast<voInetError>(number)), "unknown result");
    }
}

TEST(Texts, Version_IsThatOfTheProject) {
    EXPECT_STREQ(voInetVersion(), VOINET_PROJECT_VERSION);
}

TEST(Texts, Texts_AreStatic) {
    EXPECT_EQ(voInetErrorName(voInetErrorTimeout), voInetErrorName(voInetErrorTimeout));
    EXPECT_EQ(voInetErrorMeaning(voInetErrorTimeout), voInetErrorMeaning(voInetErrorTimeout));
    EXPECT_EQ(voInetVersion(), voInetVersion());
}
