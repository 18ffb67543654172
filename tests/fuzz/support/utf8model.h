#ifndef VOINET_TESTS_FUZZ_SUPPORT_UTF8MODEL_H
#define VOINET_TESTS_FUZZ_SUPPORT_UTF8MODEL_H

#include <optional>
#include <string>

namespace voinet_fuzz {

/// The characters of a UTF-8 text; null when it is ill-formed. Written apart from the product: a
/// sequence is well-formed when its character, encoded anew in the shortest form, gives it back.
std::optional<std::u32string> charactersOf(const std::string& utf8);

/// A Unicode character that is no surrogate.
bool isCharacter(char32_t value);

}  // namespace voinet_fuzz

#endif  // VOINET_TESTS_FUZZ_SUPPORT_UTF8MODEL_H
