#ifndef VOINET_COMMAND_EXCHANGEOUTCOME_H
#define VOINET_COMMAND_EXCHANGEOUTCOME_H

#include "voinet/voineterror.h"

#include <vector>

namespace voinet_command {

/// What the management server's answer to a posted package means.
struct ExchangeOutcome {
    tessaro_com::pkm::voInet::voInetError result;
    /// A word for scripts.
    const char* name;
    /// A sentence without capital and full stop.
    const char* sentence;
    /// What to try; may be empty.
    const char* hint;
};

/// Every answer that the library tells apart, and the one that it does not know (success).
const std::vector<ExchangeOutcome>& exchangeOutcomes();

/// The outcome of an answer; null for a result that is none.
const ExchangeOutcome* findExchangeOutcome(tessaro_com::pkm::voInet::voInetError result);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_EXCHANGEOUTCOME_H
