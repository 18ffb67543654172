// Transfers against failing networks and hostile servers: case by case what the rules promise, and
// what the library does.

#include "allocations.h"
#include "figures.h"
#include "kvecomn/hostlog.h"
#include "runner.h"
#include "scenario.h"
#include "support/leakguard.h"
#include "virtualtime.h"
#include "watchdog.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>

namespace tessaro_com::pkm::voInet::faults {

namespace {

constexpr std::chrono::seconds kLongestCase{60};

struct Options {
    std::size_t cases = 2000;
    std::uint64_t seed = 1;
    std::size_t shard = 1;
    std::size_t shards = 1;
    /// Cases that must have been run at least.
    std::size_t expected = 1;
    std::string id;
    std::string table;
};

/// What the environment says must not decide over a case.
void forgetProxyEnvironment() {
    for (const char* name : {"http_proxy", "https_proxy", "ftp_proxy", "all_proxy", "no_proxy",
                             "HTTPS_PROXY", "FTP_PROXY", "ALL_PROXY", "NO_PROXY"}) {
        ::unsetenv(name);
    }
}

/// Runs a case and adds to its problems what it has left behind.
Verdict runWatched(const Scenario& scenario) {
    const wire::LeakGuard guard;
    Verdict verdict;
    try {
        verdict = run(scenario);
    } catch (const std::exception& failure) {
        verdict.problem = std::string("exception: ") + failure.what() + "; ";
    }
    for (const auto& leftover : guard.leftovers()) {
        verdict.problem += "left behind: " + leftover + "; ";
    }
    return verdict;
}

/// Pieces of memory that the case keeps each time: what is made once for all has been made after
/// the first run.
long leakedPieces(const Scenario& scenario, Verdict& verdict) {
    long before = liveAllocations();
    verdict = runWatched(scenario);
    long leaked = liveAllocations() - before;
    for (int again = 0; again < 2 && leaked > 0 && verdict.problem.empty(); ++again) {
        before = liveAllocations();
        runWatched(scenario);
        leaked = liveAllocations() - before;
    }
    return verdict.problem.empty() ? leaked : 0;
}

Verdict runMeasured(const Scenario& scenario, Watchdog& watchdog, Figures& figures) {
    const std::string id = idOf(scenario);
    watchdog.begin(id);
    Verdict verdict;
    const auto begin = VirtualTime::realNow();
    const long leaked = leakedPieces(scenario, verdict);
    if (leaked > 0) {
        verdict.problem += std::to_string(leaked) + " pieces of memory are not given back; ";
    }
    figures.add(scenario, verdict, VirtualTime::realNow() - begin);
    if (!verdict.problem.empty()) {
        std::printf("FAILED %s: %s\n", id.c_str(), verdict.problem.c_str());
        std::fflush(stdout);
    }
    return verdict;
}

std::vector<Scenario> chosen(const Options& options) {
    if (!options.id.empty()) {
        const auto scenario = scenarioOf(options.id);
        return scenario ? std::vector<Scenario>{*scenario} : std::vector<Scenario>{};
    }
    std::vector<Scenario> shard;
    const auto all = makeScenarios(options.cases, options.seed);
    for (std::size_t i = options.shard - 1; i < all.size(); i += options.shards) {
        shard.push_back(all[i]);
    }
    return shard;
}

const char* outcomeName(Verdict::Outcome outcome) {
    switch (outcome) {
        case Verdict::Outcome::rightBytes:
            return "the right bytes are in place";
        case Verdict::Outcome::oldUntouched:
            return "the old file is untouched";
        default:
            return "as documented: ";
    }
}

void tellOutcome(const Verdict& verdict) {
    std::printf("%s%s\n", outcomeName(verdict.outcome),
                verdict.oddity == nullptr ? "" : verdict.oddity);
}

int runAll(const Options& options) {
    forgetProxyEnvironment();
    hostLogSetHandler([](HostLogLevel, const wchar_t*, const wchar_t*) {});
    countAllocationsOfCurl();
    VirtualTime::adoptThisThread();
    const auto scenarios = chosen(options);
    Figures figures;
    {
        Watchdog watchdog(kLongestCase);
        for (const auto& scenario : scenarios) {
            const Verdict verdict = runMeasured(scenario, watchdog, figures);
            if (!options.id.empty()) {
                tellOutcome(verdict);
            }
        }
    }
    if (!options.table.empty()) {
        std::ofstream(options.table) << [&] {
            std::ostringstream text;
            figures.write(text);
            return text.str();
        }();
    }
    std::printf("%zu cases, seed %llu, %zu failures\n", figures.cases(),
                static_cast<unsigned long long>(options.seed), figures.failures());
    const bool isEnough = figures.cases() >= options.expected;
    return isEnough && figures.failures() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

void defineOptions(CLI::App& app, Options& options, std::string& shard) {
    app.add_option("--cases", options.cases, "Number of cases")->check(CLI::PositiveNumber);
    app.add_option("--seed", options.seed, "Decides over the cases behind the fixed ones");
    app.add_option("--shard", shard, "I/N: the I-th of N parts of the cases");
    app.add_option("--expect", options.expected, "Fails when fewer cases were run");
    app.add_option("--case", options.id, "One case, as its failure names it");
    app.add_option("--table", options.table, "File for the figures");
}

bool parseShard(const std::string& shard, Options& options) {
    if (shard.empty()) {
        return true;
    }
    std::istringstream text(shard);
    char slash = '\0';
    return text >> options.shard >> slash >> options.shards && slash == '/' && text.eof() &&
           options.shard >= 1 && options.shard <= options.shards;
}

}  // namespace

}  // namespace tessaro_com::pkm::voInet::faults

int main(int argc, char** argv) {
    namespace faults = tessaro_com::pkm::voInet::faults;
    faults::Options options;
    std::string shard;
    CLI::App app("Transfers against failing networks and hostile servers");
    faults::defineOptions(app, options, shard);
    CLI11_PARSE(app, argc, argv);
    if (!faults::parseShard(shard, options)) {
        std::cerr << "--shard wants I/N\n";
        return EXIT_FAILURE;
    }
    return faults::runAll(options);
}
