#ifndef VOINET_TESTS_FAULTS_NETWORK_FIGURES_H
#define VOINET_TESTS_FAULTS_NETWORK_FIGURES_H

#include "runner.h"
#include "scenario.h"

#include <chrono>
#include <cstddef>
#include <iosfwd>
#include <map>
#include <string>
#include <utility>

namespace tessaro_com::pkm::voInet::faults {

/// Counts how cases end, by protocol and kind of fault.
class Figures {
  public:
    void add(const Scenario& scenario, const Verdict& verdict, std::chrono::nanoseconds duration);

    std::size_t cases() const;
    std::size_t failures() const;

    /// Markdown: a table of the figures and one of the documented oddities.
    void write(std::ostream& out) const;

  private:
    struct Row {
        std::size_t cases = 0;
        std::size_t right = 0;
        std::size_t untouched = 0;
        std::size_t documented = 0;
        std::size_t failures = 0;
        std::chrono::nanoseconds longest{0};

        void add(const Row& other);
    };

    static void writeRow(std::ostream& out, const std::string& protocol, const std::string& kind,
                         const Row& row);
    Row total() const;

    std::map<std::pair<int, std::string>, Row> m_rows;
    std::map<std::string, std::size_t> m_oddities;
};

}  // namespace tessaro_com::pkm::voInet::faults

#endif  // VOINET_TESTS_FAULTS_NETWORK_FIGURES_H
