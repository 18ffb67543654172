#ifndef VOINET_TESTS_FAULTS_NETWORK_RUNNER_H
#define VOINET_TESTS_FAULTS_NETWORK_RUNNER_H

#include "scenario.h"

#include <string>

namespace tessaro_com::pkm::voInet::faults {

/// What came of a case.
struct Verdict {
    enum class Outcome { rightBytes, oldUntouched, asDocumented };

    Outcome outcome = Outcome::oldUntouched;
    /// Name of what the rules say, for asDocumented.
    const char* oddity = nullptr;
    /// Expectation and observation of what is not as the rules say; empty when all is.
    std::string problem = {};
};

/// The name of the fault's kind in the figures.
std::string kindOf(const Scenario& scenario);

Verdict runDownload(const Scenario& scenario);
Verdict runExchange(const Scenario& scenario);
Verdict runLocalCopy(const Scenario& scenario);

/// Any of them.
Verdict run(const Scenario& scenario);

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_RUNNER_H
