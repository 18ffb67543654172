#ifndef VOINET_TESTS_WIRE_SUPPORT_LEAKGUARD_H
#define VOINET_TESTS_WIRE_SUPPORT_LEAKGUARD_H

#include <set>
#include <string>
#include <vector>

namespace tessaro_com::pkm::voInet::wire {

/// Finds what a test leaves behind: open descriptors that were not open when the guard was made,
/// and temporary files of the library.
///
/// Tests of other processes make temporary files of the same kind at the same time. To tell its own
/// from theirs, a program with this guard has a random() that counts within a range of numbers that
/// belongs to its process id, and the library makes temporary names from random(). So names of two
/// programs never meet either, which they otherwise do when both start in the same second.
class LeakGuard {
  public:
    LeakGuard();

    /// One text for each thing left behind.
    std::vector<std::string> leftovers() const;

  private:
    std::set<int> m_before;
};

/// The temporary files of this process that exist now, including those made next to one for its
/// replacement.
std::vector<std::string> ownTemporaryFiles();

}  // namespace tessaro_com::pkm::voInet::wire

#endif  // VOINET_TESTS_WIRE_SUPPORT_LEAKGUARD_H
