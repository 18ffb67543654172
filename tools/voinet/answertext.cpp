#include "answertext.h"

#include "texts.h"

#include <sstream>

namespace voinet_command {

std::string answerText(const std::string& bytes) {
    if (bytes.size() > kMaxAnswerText || !isUtf8(bytes)) {
        return {};
    }
    std::istringstream words(bytes);
    std::string line;
    for (std::string word; words >> word;) {
        line += (line.empty() ? "" : " ") + word;
    }
    return withoutControls(line) == line ? line : std::string();
}

}  // namespace voinet_command
