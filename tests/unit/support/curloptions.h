#ifndef VOINET_TESTS_UNIT_SUPPORT_CURLOPTIONS_H
#define VOINET_TESTS_UNIT_SUPPORT_CURLOPTIONS_H

#include <curl/curl.h>

#include <string>

namespace voinet_test {

enum class OptionType { number, text, list, pointer, function, offset };

/// The type of the argument that libcurl reads for the option.
OptionType optionType(CURLoption id);

/// "CURLOPT_URL"; the number for an option without an entry in the table.
std::string optionName(CURLoption id);

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_CURLOPTIONS_H
