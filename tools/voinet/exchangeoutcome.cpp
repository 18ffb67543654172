#include "exchangeoutcome.h"

#include <algorithm>

namespace voinet_command {

namespace voInet = tessaro_com::pkm::voInet;

const std::vector<ExchangeOutcome>& exchangeOutcomes() {
    static const std::vector<ExchangeOutcome> kOutcomes = {
        {voInet::voInetErrorPackageReceived, "package", "the server has a package for you", ""},
        {voInet::voInetErrorNoPackage, "no-package", "the server has nothing for you", ""},
        {voInet::voInetErrorServerBusy, "busy", "the server is busy", "try again later"},
        {voInet::voInetErrorKeysOutdated, "update-keys", "the server wants you to update your keys",
         "update the agent's keys and post again"},
        {voInet::voInetErrorGuidExists, "new-identity",
         "the server wants a new identity: this one is taken",
         "make a new identity for the agent and post again"},
        {voInet::voInetErrorInvalidRequest, "invalid-request",
         "the server calls the request invalid", "check the request package and SERVER-PATH"},
        {voInet::voInetErrorAccessDenied, "access-denied", "the server denies access",
         "ask the server's administrator whether this agent is allowed"},
        {voInet::voInetErrorFileNotFound, "not-found", "the server does not know the path",
         "check SERVER-PATH"},
        // The library's success.
        {voInet::voInetErrorSuccess, "unknown-answer",
         "the server answered something that is no outcome of an exchange",
         "look into the server's log"},
    };
    return kOutcomes;
}

const ExchangeOutcome* findExchangeOutcome(voInet::voInetError result) {
    const auto& outcomes = exchangeOutcomes();
    const auto row =
        std::find_if(outcomes.begin(), outcomes.end(),
                     [result](const ExchangeOutcome& each) { return each.result == result; });
    return row == outcomes.end() ? nullptr : &*row;
}

}  // namespace voinet_command
