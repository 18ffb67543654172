#include "exchangeoutcome.h"

#include "exitstatus.h"
#include "resulttexts.h"

#include <gtest/gtest.h>

#include <set>

namespace voinet_command {

namespace voInet = tessaro_com::pkm::voInet;

TEST(ExchangeOutcome, EachAnswer_HasItsOwnName) {
    std::set<std::string> names;
    std::set<voInet::voInetError> results;
    for (const ExchangeOutcome& outcome : exchangeOutcomes()) {
        names.insert(outcome.name);
        results.insert(outcome.result);
        EXPECT_EQ(findExchangeOutcome(outcome.result), &outcome);
    }
    EXPECT_EQ(names.size(), exchangeOutcomes().size());
    EXPECT_EQ(results, (std::set<voInet::voInetError>{
                           voInet::voInetErrorPackageReceived, voInet::voInetErrorNoPackage,
                           voInet::voInetErrorServerBusy, voInet::voInetErrorKeysOutdated,
                           voInet::voInetErrorGuidExists, voInet::voInetErrorInvalidRequest,
                           voInet::voInetErrorAccessDenied, voInet::voInetErrorFileNotFound,
                           voInet::voInetErrorSuccess}));
}

TEST(ExchangeOutcome, ResultsWithoutAnAnswer_AreNone) {
    for (const ResultText& text : resultTexts()) {
        const ExitStatus status = exitStatusOf(text.result, std::nullopt);
        if (status == ExitStatus::unreachable || status == ExitStatus::tls ||
            status == ExitStatus::localFile || status == ExitStatus::cancelled) {
            EXPECT_EQ(findExchangeOutcome(text.result), nullptr) << text.name;
        }
    }
}

TEST(ExchangeOutcome, AnswersThatTheLibraryTellsApart_HaveExitStatusesOfTheirOwn) {
    std::set<ExitStatus> statuses;
    for (const ExchangeOutcome& outcome : exchangeOutcomes()) {
        if (outcome.result != voInet::voInetErrorSuccess) {
            statuses.insert(exitStatusOf(outcome.result, std::nullopt));
        }
    }
    EXPECT_EQ(statuses.size(), exchangeOutcomes().size() - 1);
}

}  // namespace voinet_command
