#include "scenario.h"

#include "ftpfaults.h"
#include "httpfaults.h"
#include "localfaults.h"

#include <algorithm>
#include <iterator>
#include <random>
#include <sstream>
#include <stdexcept>
#include <unordered_set>

namespace tessaro_com::pkm::voInet::faults {

namespace {

constexpr const char* kProtocolNames[] = {"http", "ftp", "ftp-proxy", "exchange", "local"};
constexpr const char* kPhaseNames[] = {"every", "first", "later"};
constexpr const char* kStartNames[] = {"missing",      "old",      "prefix",
                                       "wrong-prefix", "complete", "longer"};
constexpr const char* kOffsetNames[] = {"whole", "marker", "end", "one", "beyond"};
constexpr const char* kSinkNames[] = {"no-sink", "watching", "stop-at-once", "stop-inside",
                                      "stop-at-end"};
constexpr const char* kFormsNames[] = {"last", "only", "two", "three"};
constexpr const char* kRouteNames[] = {"direct", "proxy", "alternate"};

constexpr long kCompared = 1024;

std::size_t faultCount(Protocol protocol) {
    switch (protocol) {
        case ftp:
            return ftpFaults().size();
        case local:
            return localFaults().size();
        default:
            return httpFaults().size();
    }
}

std::string faultName(Protocol protocol, std::size_t fault) {
    switch (protocol) {
        case ftp:
            return ftpFaults().at(fault).name;
        case local:
            return localFaults().at(fault).name;
        default:
            return httpFaults().at(fault).name;
    }
}

bool stops(Sink sink) {
    return sink >= stopAtOnce;
}

/// Combinations that no two different files or answers stand behind.
bool isPointless(const Scenario& s) {
    const std::size_t size = s.fileSize();
    if ((s.start == prefix || s.start == wrongPrefix) && size < 2) {
        return true;
    }
    const std::size_t before = localSize(s);
    const bool sameAsNone = s.offset != noOffset && resumeOffset(s) == 0;
    const bool sameAsMarker = s.offset == one && before == 1;
    return sameAsNone || sameAsMarker ||
           ((s.sink == stopInside || s.sink == stopAtEnd) && size < 2);
}

bool isPlain(const Scenario& s) {
    return s.phase == everyAnswer && s.offset == noOffset && s.forms == lastForm &&
           s.route == direct;
}

/// A cancel and a comparison need to know how much arrives.
bool isCertain(const Scenario& s, bool isUncertain) {
    return !isUncertain || (!stops(s.sink) && s.offset == noOffset);
}

bool isSensiblePhase(const Scenario& s, bool isHere, bool retries) {
    if (s.phase == everyAnswer) {
        return true;
    }
    return isHere && (s.offset != noOffset || retries) && s.forms != onlyFirst;
}

bool isSensibleStop(const Scenario& s, bool isHere) {
    // What cannot be continued fails before it can be stopped.
    return !stops(s.sink) || (isHere && !(s.start == missing && s.offset != noOffset));
}

bool isSensibleHttp(const Scenario& s, const HttpFault& fault) {
    const bool isHere = fault.whereabouts == Whereabouts::here;
    const bool retries = fault.has(httpflag::kUser | httpflag::kProxyUser);
    const bool isProxied = s.route != direct;
    if (isProxied && (s.forms != lastForm || fault.has(httpflag::kDirectOnly))) {
        return false;
    }
    if (fault.has(httpflag::kProxyUser) && !isProxied) {
        return false;
    }
    const bool isUncertain =
        fault.has(httpflag::kUncertain) ||
        (stops(s.sink) && fault.has(httpflag::kManySteps | httpflag::kMayBeSeen));
    return isCertain(s, isUncertain) && isSensiblePhase(s, isHere, retries) &&
           isSensibleStop(s, isHere) &&
           !(fault.has(httpflag::kManySteps) && s.phase != everyAnswer);
}

bool isSensibleFtp(const Scenario& s, const FtpFault& fault) {
    const bool isHere = fault.whereabouts == Whereabouts::here;
    return s.route == direct && isCertain(s, fault.isUncertain) &&
           isSensiblePhase(s, isHere, false) && isSensibleStop(s, isHere) &&
           !(s.forms == onlyFirst && fault.beforeTransfer && isHere);
}

bool isSensibleExchange(const Scenario& s, const HttpFault& fault) {
    constexpr unsigned kOtherwise =
        httpflag::kUser | httpflag::kProxyUser | httpflag::kDownloadOnly;
    return s.phase == everyAnswer && s.offset == noOffset && s.route == direct &&
           s.sink == noSink && s.start <= old && s.forms != lastForm && !fault.has(kOtherwise);
}

bool isSensible(const Scenario& s) {
    if (isPointless(s)) {
        return false;
    }
    switch (s.protocol) {
        case http:
            return isSensibleHttp(s, httpFaults().at(s.fault));
        case ftpProxy:
            return s.route != direct && isSensibleHttp(s, httpFaults().at(s.fault)) &&
                   !httpFaults().at(s.fault).has(httpflag::kDownloadOnly);
        case ftp:
            return isSensibleFtp(s, ftpFaults().at(s.fault));
        case exchange:
            return isSensibleExchange(s, httpFaults().at(s.fault));
        default:
            return isPlain(s);
    }
}

/// Collects cases, each once.
class Collection {
  public:
    explicit Collection(std::size_t limit) : m_limit(limit) {}

    bool isFull() const { return m_scenarios.size() >= m_limit; }

    void add(const Scenario& scenario) {
        if (!isFull() && isSensible(scenario) && m_ids.insert(idOf(scenario)).second) {
            m_scenarios.push_back(scenario);
        }
    }

    std::vector<Scenario> take() { return std::move(m_scenarios); }

  private:
    std::size_t m_limit;
    std::vector<Scenario> m_scenarios;
    std::unordered_set<std::string> m_ids;
};

template <class Change>
void forEveryFault(Protocol protocol, Change change) {
    for (std::size_t fault = 0; fault < faultCount(protocol); ++fault) {
        Scenario scenario;
        scenario.protocol = protocol;
        scenario.fault = fault;
        // Somewhere inside, and not at the same place for every fault.
        scenario.place = static_cast<std::uint32_t>(fault * 37 + 11);
        scenario.route = protocol == ftpProxy ? throughProxy : direct;
        scenario.forms = protocol == exchange ? onlyFirst : lastForm;
        change(scenario);
    }
}

template <class Value>
std::vector<Value> allOf(Value count) {
    std::vector<Value> values;
    values.reserve(static_cast<std::size_t>(count));
    for (int value = 0; value < static_cast<int>(count); ++value) {
        values.push_back(static_cast<Value>(value));
    }
    return values;
}

/// Every fault of a protocol with everything else as simple as can be, then with each other value
/// of one dimension.
void addFaults(Collection& all, Protocol protocol) {
    forEveryFault(protocol, [&all](Scenario s) {
        all.add(s);
        const Scenario simple = s;
        for (const Start start : allOf(startCount)) {
            s = simple;
            s.start = start;
            all.add(s);
        }
        for (const Forms forms : allOf(formsCount)) {
            s = simple;
            s.forms = forms;
            all.add(s);
        }
        for (const Route route : allOf(routeCount)) {
            s = simple;
            s.route = route;
            all.add(s);
        }
        for (const Phase phase : allOf(phaseCount)) {
            s = simple;
            s.phase = phase;
            s.start = prefix;
            s.offset = marker;
            all.add(s);
        }
        s = simple;
        s.sink = stopInside;
        all.add(s);
        s.phase = laterAnswers;
        s.start = prefix;
        s.offset = one;
        all.add(s);
    });
}

/// A server that is well, with files of every size and every local file.
void addSizes(Collection& all, Protocol protocol) {
    for (std::size_t size = 0; size < kSizes.size(); ++size) {
        for (const Start start : allOf(startCount)) {
            for (const Offset offset : allOf(offsetCount)) {
                Scenario s;
                s.protocol = protocol;
                s.size = size;
                s.start = start;
                s.offset = offset;
                s.sink = watching;
                s.route = protocol == ftpProxy ? throughProxy : direct;
                s.forms = protocol == exchange ? onlyFirst : lastForm;
                all.add(s);
            }
        }
    }
}

/// Of the protocols by weight, and everything else by lot.
class Lottery {
  public:
    explicit Lottery(std::uint64_t seed) : m_random(seed) {}

    Scenario draw() {
        constexpr Protocol kProtocols[] = {http, http, http,     http,     ftp,
                                           ftp,  ftp,  ftpProxy, exchange, local};
        Scenario s;
        s.protocol = kProtocols[below(std::size(kProtocols))];
        s.fault = below(faultCount(s.protocol));
        s.start = static_cast<Start>(below(startCount));
        s.size = below(kSizes.size());
        s.place = static_cast<std::uint32_t>(below(1U << 20U));
        s.phase = static_cast<Phase>(below(phaseCount));
        s.offset = static_cast<Offset>(below(offsetCount));
        s.sink = static_cast<Sink>(below(sinkCount));
        s.forms = static_cast<Forms>(below(formsCount));
        s.route = static_cast<Route>(below(routeCount));
        return s;
    }

  private:
    /// The same on every platform, unlike the distributions of the C++ library.
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(m_random() % limit); }

    std::mt19937_64 m_random;
};

template <std::size_t count>
std::optional<std::size_t> indexOf(const std::string& text, const char* const (&names)[count]) {
    const auto* found = std::find(std::begin(names), std::end(names), text);
    return found == std::end(names)
               ? std::nullopt
               : std::optional<std::size_t>(static_cast<std::size_t>(found - std::begin(names)));
}

/// The value that a name stands for; throws when there is none.
template <class Value, std::size_t count>
Value valueOf(const std::string& text, const char* const (&names)[count]) {
    const auto index = indexOf(text, names);
    if (!index) {
        throw std::invalid_argument(text);
    }
    return static_cast<Value>(*index);
}

std::size_t faultOf(Protocol protocol, const std::string& name) {
    for (std::size_t fault = 0; fault < faultCount(protocol); ++fault) {
        if (faultName(protocol, fault) == name) {
            return fault;
        }
    }
    throw std::invalid_argument(name);
}

Scenario parse(const std::string& id) {
    std::istringstream stream(id);
    std::vector<std::string> parts;
    for (std::string part; std::getline(stream, part, '/');) {
        parts.push_back(part);
    }
    Scenario s;
    s.protocol = valueOf<Protocol>(parts.at(0), kProtocolNames);
    s.fault = faultOf(s.protocol, parts.at(1));
    s.phase = valueOf<Phase>(parts.at(2), kPhaseNames);
    s.start = valueOf<Start>(parts.at(3), kStartNames);
    const auto size = std::find(kSizes.begin(), kSizes.end(), std::stoul(parts.at(4)));
    s.size = static_cast<std::size_t>(size - kSizes.begin());
    s.offset = valueOf<Offset>(parts.at(5), kOffsetNames);
    s.sink = valueOf<Sink>(parts.at(6), kSinkNames);
    s.forms = valueOf<Forms>(parts.at(7), kFormsNames);
    s.route = valueOf<Route>(parts.at(8), kRouteNames);
    s.place = static_cast<std::uint32_t>(std::stoul(parts.at(9)));
    return s;
}

}  // namespace

std::size_t localSize(const Scenario& s) {
    const std::size_t size = s.fileSize();
    switch (s.start) {
        case missing:
            return 0;
        case old:
            return kOldSize;
        case prefix:
        case wrongPrefix:
            return size * 3 / 4;
        case complete:
            return size;
        default:
            return size + kLongerBy;
    }
}

long resumeOffset(const Scenario& s) {
    const auto size = static_cast<long>(localSize(s));
    switch (s.offset) {
        case marker:
            return std::max(0L, size - kCompared);
        case end:
            return size;
        case one:
            return 1;
        case beyond:
            return size + 100;
        default:
            return 0;
    }
}

std::string idOf(const Scenario& s) {
    return std::string(kProtocolNames[s.protocol]) + "/" + faultName(s.protocol, s.fault) + "/" +
           kPhaseNames[s.phase] + "/" + kStartNames[s.start] + "/" + std::to_string(s.fileSize()) +
           "/" + kOffsetNames[s.offset] + "/" + kSinkNames[s.sink] + "/" + kFormsNames[s.forms] +
           "/" + kRouteNames[s.route] + "/" + std::to_string(s.place);
}

std::optional<Scenario> scenarioOf(const std::string& id) {
    try {
        const Scenario scenario = parse(id);
        return isSensible(scenario) ? std::optional<Scenario>(scenario) : std::nullopt;
    } catch (const std::logic_error&) {
        return std::nullopt;
    }
}

const char* nameOf(Protocol protocol) {
    return kProtocolNames[protocol];
}

std::vector<Scenario> makeScenarios(std::size_t count, std::uint64_t seed) {
    Collection all(count);
    for (const Protocol protocol : allOf(protocolCount)) {
        addFaults(all, protocol);
        addSizes(all, protocol);
    }
    Lottery lottery(seed);
    while (!all.isFull()) {
        all.add(lottery.draw());
    }
    return all.take();
}

}  // namespace tessaro_com::pkm::voInet::faults
