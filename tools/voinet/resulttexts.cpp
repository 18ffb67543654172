#include "resulttexts.h"

#include "voinet/texts.h"

#include <algorithm>
#include <cstring>

namespace voinet_command {

namespace voInet = tessaro_com::pkm::voInet;
using voInet::voInetError;

namespace {

/// Outcomes and failures have small numbers.
constexpr int kGreatestOutcome = 127;
constexpr int kLeastFailure = -128;

void appendIfKnown(std::vector<ResultText>& texts, int number) {
    const auto result = static_cast<voInetError>(number);
    const char* name = voInet::voInetErrorName(result);
    const char* nameOfNone = voInet::voInetErrorName(static_cast<voInetError>(kLeastFailure - 1));
    if (std::strcmp(name, nameOfNone) != 0) {
        texts.push_back({result, name, voInet::voInetErrorMeaning(result)});
    }
}

std::vector<ResultText> allResultTexts() {
    std::vector<ResultText> texts;
    for (int number = 0; number <= kGreatestOutcome; ++number) {
        appendIfKnown(texts, number);
    }
    for (int number = -1; number >= kLeastFailure; --number) {
        appendIfKnown(texts, number);
    }
    return texts;
}

}  // namespace

const std::vector<ResultText>& resultTexts() {
    static const std::vector<ResultText> kTexts = allResultTexts();
    return kTexts;
}

const ResultText* findResultText(voInetError result) {
    const auto& texts = resultTexts();
    const auto row = std::find_if(texts.begin(), texts.end(), [result](const ResultText& each) {
        return each.result == result;
    });
    return row == texts.end() ? nullptr : &*row;
}

std::string nameWithNumber(voInetError result) {
    const ResultText* text = findResultText(result);
    const std::string name = text == nullptr ? "unknown result" : text->name;
    return name + " (" + std::to_string(static_cast<int>(result)) + ")";
}

}  // namespace voinet_command
