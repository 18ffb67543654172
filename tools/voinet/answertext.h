#ifndef VOINET_COMMAND_ANSWERTEXT_H
#define VOINET_COMMAND_ANSWERTEXT_H

#include <cstddef>
#include <string>

namespace voinet_command {

/// The size up to which an answer is shown to a person.
inline constexpr std::size_t kMaxAnswerText = 400;

/// What a server wrote, as one line; empty when it is long, no text, or blank.
std::string answerText(const std::string& bytes);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_ANSWERTEXT_H
