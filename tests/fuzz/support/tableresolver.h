#ifndef VOINET_TESTS_FUZZ_SUPPORT_TABLERESOLVER_H
#define VOINET_TESTS_FUZZ_SUPPORT_TABLERESOLVER_H

#include <string>
#include <vector>

namespace voinet_fuzz {

/// What the host library's look-ups answer in a program that is linked with tableresolver.cpp,
/// which defines the members of ANetworkUtil itself: nobody is asked, and a name's letters alone
/// decide about its addresses.
struct LookUp {
    /// 0, or a failure; addresses may have been found before it.
    int result = 0;
    std::vector<std::string> addresses;
};

LookUp lookUp(const std::string& host);

}  // namespace voinet_fuzz

#endif  // VOINET_TESTS_FUZZ_SUPPORT_TABLERESOLVER_H
