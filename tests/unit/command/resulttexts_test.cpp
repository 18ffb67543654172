#include "resulttexts.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <regex>

namespace voinet_command {

using tessaro_com::pkm::voInet::voInetError;
using tessaro_com::pkm::voInet::voInetErrorFileNotFound;

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

}  // namespace

TEST(ResultTexts, Table_HoldsExactlyTheResultsOfTheHeader) {
    std::map<std::string, int> table;
    for (const ResultText& text : resultTexts()) {
        EXPECT_TRUE(table.emplace(text.name, static_cast<int>(text.result)).second) << text.name;
    }
    EXPECT_GT(table.size(), 30U);
    EXPECT_EQ(table, headerResults());
}

TEST(ResultTexts, EveryResult_HasAMeaning) {
    for (const ResultText& text : resultTexts()) {
        EXPECT_GT(std::string(text.meaning).size(), 5U) << text.name;
    }
}

TEST(ResultTexts, NameWithNumber_AlsoForUnknownNumbers) {
    EXPECT_EQ(nameWithNumber(voInetErrorFileNotFound), "voInetErrorFileNotFound (-5)");
    EXPECT_EQ(nameWithNumber(static_cast<voInetError>(4711)), "unknown result (4711)");
    EXPECT_EQ(findResultText(static_cast<voInetError>(4711)), nullptr);
}

}  // namespace voinet_command
