#ifndef VOINET_TESTS_FAULTS_NETWORK_SCENARIO_H
#define VOINET_TESTS_FAULTS_NETWORK_SCENARIO_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::faults {

// The dimensions of a case. The names in scenario.cpp stand in the same order.

enum Protocol { http, ftp, ftpProxy, exchange, local, protocolCount };

/// Which of a server's answers to downloads are bad. The logon's are good.
enum Phase { everyAnswer, firstAnswer, laterAnswers, phaseCount };

/// The local file before the transfer.
enum Start { missing, old, prefix, wrongPrefix, complete, longer, startCount };

/// The resume offset: none, 1,024 bytes before the end of the local file, at its end, 1, beyond it.
enum Offset { noOffset, marker, end, one, beyond, offsetCount };

enum Sink { noSink, watching, stopAtOnce, stopInside, stopAtEnd, sinkCount };

/// Which host forms are configured: the last one only; the first only; the first and the second,
/// which is well; all three, of which the third is well.
enum Forms { lastForm, onlyFirst, firstOfTwo, firstOfThree, formsCount };

enum Route { direct, throughProxy, throughAlternate, routeCount };

/// Sizes of the server's file: none, small, round the 1,024 bytes that are compared and round
/// libcurl's 16 KiB.
inline constexpr std::array<std::size_t, 14> kSizes = {
    0, 1, 100, 1023, 1024, 1025, 2047, 2048, 2049, 5000, 16383, 16384, 16385, 40000};

struct Scenario {
    Protocol protocol = http;
    /// Row of the protocol's table of faults.
    std::size_t fault = 0;
    Phase phase = everyAnswer;
    Start start = old;
    std::size_t size = 9;  // index in kSizes
    Offset offset = noOffset;
    Sink sink = noSink;
    Forms forms = lastForm;
    Route route = direct;
    /// Decides where exactly the fault happens.
    std::uint32_t place = 0;

    std::size_t fileSize() const { return kSizes.at(size); }
};

inline constexpr std::size_t kOldSize = 3000;
inline constexpr std::size_t kLongerBy = 500;

/// Of the local file before the transfer.
std::size_t localSize(const Scenario& scenario);
/// That the caller hands over.
long resumeOffset(const Scenario& scenario);

/// A text that names the case completely, such as
/// "http/cut-in-body/every/prefix/16385/marker/watching/two/direct/7".
std::string idOf(const Scenario& scenario);
std::optional<Scenario> scenarioOf(const std::string& id);

const char* nameOf(Protocol protocol);

/// The first `count` cases of a run: the small spaces whole, then seeded combinations. No case
/// comes twice.
std::vector<Scenario> makeScenarios(std::size_t count, std::uint64_t seed);

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_SCENARIO_H
