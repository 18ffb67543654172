#ifndef VOINET_BENCH_LOCALFILES_H
#define VOINET_BENCH_LOCALFILES_H

#include <cstdlib>
#include <string>
#include <utility>

/// How often a program downloads and where to, from its last arguments: [COUNT] [MODE]. Without
/// them it is one download; the mode is "same" then, which replaces one file again and again.
class LocalFiles {
  public:
    LocalFiles(std::string name, char** firstOption, char** end) : m_name(std::move(name)) {
        if (firstOption < end) {
            constexpr int kDecimal = 10;
            m_count = std::strtol(firstOption[0], nullptr, kDecimal);
        }
        if (firstOption + 1 < end) {
            m_mode = firstOption[1];
        }
    }

    long count() const { return m_count; }
    bool resumes() const { return m_mode == "resume"; }

    /// In the mode "numbered" each download makes a file of its own.
    std::string name(long number) const {
        return m_mode == "numbered" ? m_name + std::to_string(number) : m_name;
    }

  private:
    std::string m_name;
    long m_count = 1;
    std::string m_mode = "same";
};

#endif  // VOINET_BENCH_LOCALFILES_H
