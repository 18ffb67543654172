#ifndef VOINET_TESTS_FUZZ_SUPPORT_TRACELOG_H
#define VOINET_TESTS_FUZZ_SUPPORT_TRACELOG_H

#include <string>

namespace voinet_fuzz {

/// The line that the library logs for one block of curl's trace, in UTF-8.
///
/// @param kind  a curl_infotype, or any other number.
std::string tracedLine(int kind, const std::string& bytes);

}  // namespace voinet_fuzz

#endif  // VOINET_TESTS_FUZZ_SUPPORT_TRACELOG_H
