#ifndef VOINET_TESTS_TORTURE_SUPPORT_REPLACEMENT_H
#define VOINET_TESTS_TORTURE_SUPPORT_REPLACEMENT_H

namespace tessaro_com::pkm::voInet::torture {

/// What became of a copy that the library asked the host library for.
enum class Copy {
    none,
    made,
    /// Refused, and memory ran out on the way.
    failedShort,
    /// Refused for another reason.
    failed,
};

/// The latest copy since forgetCopies(). The last one of a successful download is that of the
/// temporary file into the place of the local one.
Copy latestCopy();
void forgetCopies();

}  // namespace tessaro_com::pkm::voInet::torture

#endif  // VOINET_TESTS_TORTURE_SUPPORT_REPLACEMENT_H
