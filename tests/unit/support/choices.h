#ifndef VOINET_TESTS_UNIT_SUPPORT_CHOICES_H
#define VOINET_TESTS_UNIT_SUPPORT_CHOICES_H

#include <cstddef>
#include <functional>
#include <vector>

namespace voinet_test {

/// Runs a piece of code once for every sequence of choices that it can make. The code asks for
/// each choice when it needs it, so only sequences that make a difference are run.
class Choices {
  public:
    /// A number below `count`, another one in each run.
    std::size_t pick(std::size_t count) {
        if (m_position == m_made.size()) {
            m_made.push_back({0, count});
        }
        return m_made[m_position++].choice;
    }

    template <class Value>
    const Value& of(const std::vector<Value>& values) {
        return values[pick(values.size())];
    }

    /// How many choices this run has made so far.
    std::size_t made() const { return m_position; }

    /// Returns the number of runs.
    static std::size_t forAll(const std::function<void(Choices&)>& code) {
        Choices choices;
        std::size_t runs = 0;
        do {
            choices.m_position = 0;
            code(choices);
            ++runs;
        } while (choices.advance());
        return runs;
    }

  private:
    struct Made {
        std::size_t choice;
        std::size_t count;
    };

    /// The next sequence in counting order, the last choice first.
    bool advance() {
        m_made.resize(m_position);
        while (!m_made.empty() && m_made.back().choice + 1 == m_made.back().count) {
            m_made.pop_back();
        }
        if (m_made.empty()) {
            return false;
        }
        ++m_made.back().choice;
        return true;
    }

    std::vector<Made> m_made;
    std::size_t m_position = 0;
};

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_CHOICES_H
