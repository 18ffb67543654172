#include "figures.h"

#include <algorithm>
#include <ostream>

namespace tessaro_com::pkm::voInet::faults {

namespace {

long milliseconds(std::chrono::nanoseconds duration) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(duration).count());
}

}  // namespace

void Figures::Row::add(const Row& other) {
    cases += other.cases;
    right += other.right;
    untouched += other.untouched;
    documented += other.documented;
    failures += other.failures;
    longest = std::max(longest, other.longest);
}

void Figures::add(const Scenario& scenario, const Verdict& verdict,
                  std::chrono::nanoseconds duration) {
    using Outcome = Verdict::Outcome;
    const bool isRight = verdict.problem.empty();
    Row row;
    row.cases = 1;
    row.right = isRight && verdict.outcome == Outcome::rightBytes ? 1 : 0;
    row.untouched = isRight && verdict.outcome == Outcome::oldUntouched ? 1 : 0;
    row.documented = isRight && verdict.outcome == Outcome::asDocumented ? 1 : 0;
    row.failures = isRight ? 0 : 1;
    row.longest = duration;
    m_rows[{scenario.protocol, kindOf(scenario)}].add(row);
    if (row.documented > 0) {
        ++m_oddities[verdict.oddity];
    }
}

Figures::Row Figures::total() const {
    Row sum;
    for (const auto& entry : m_rows) {
        sum.add(entry.second);
    }
    return sum;
}

std::size_t Figures::cases() const {
    return total().cases;
}

std::size_t Figures::failures() const {
    return total().failures;
}

void Figures::writeRow(std::ostream& out, const std::string& protocol, const std::string& kind,
                       const Row& row) {
    out << "| " << protocol << " | " << kind << " | " << row.cases << " | " << row.right << " | "
        << row.untouched << " | " << row.documented << " | " << row.failures << " | "
        << milliseconds(row.longest) << " ms |\n";
}

void Figures::write(std::ostream& out) const {
    out << "| transfer | fault | cases | right bytes in place | old file untouched | documented "
           "oddity | failures | longest |\n"
           "|---|---|---:|---:|---:|---:|---:|---:|\n";
    for (const auto& [key, row] : m_rows) {
        writeRow(out, nameOf(static_cast<Protocol>(key.first)), key.second, row);
    }
    writeRow(out, "**all**", "", total());
    out << "\n| documented oddity | cases |\n|---|---:|\n";
    for (const auto& [name, cases] : m_oddities) {
        out << "| " << name << " | " << cases << " |\n";
    }
}

}  // namespace tessaro_com::pkm::voInet::faults
