#ifndef VOINET_COMMAND_RESULTTEXTS_H
#define VOINET_COMMAND_RESULTTEXTS_H

#include "voinet/voineterror.h"

#include <string>
#include <vector>

namespace voinet_command {

struct ResultText {
    tessaro_com::pkm::voInet::voInetError result;
    const char* name;
    /// A sentence without capital and full stop.
    const char* meaning;
};

/// Every result of the library once: success, outcomes, failures, as `voinet errors` shows them.
const std::vector<ResultText>& resultTexts();

/// The row of a result; null for a number that is none.
const ResultText* findResultText(tessaro_com::pkm::voInet::voInetError result);

/// Name and number, such as "voInetErrorFileNotFound (-5)".
std::string nameWithNumber(tessaro_com::pkm::voInet::voInetError result);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_RESULTTEXTS_H
