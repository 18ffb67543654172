#ifndef VOINET_TESTS_FUZZ_SUPPORT_FUZZTARGET_H
#define VOINET_TESTS_FUZZ_SUPPORT_FUZZTARGET_H

#include <string>

namespace voinet_fuzz {

/// Tries one input; every target defines its own. It returns when all properties hold, and ends the
/// process otherwise. No state lives on from one input to the next.
void tryInput(const std::string& bytes);

/// Ends the process when a property of the product does not hold, and says which one.
///
/// @param values  what was compared, for the person who reads the report.
void require(bool holds, const char* property, const std::string& values = {});

}  // namespace voinet_fuzz

#endif  // VOINET_TESTS_FUZZ_SUPPORT_FUZZTARGET_H
