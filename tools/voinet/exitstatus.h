#ifndef VOINET_COMMAND_EXITSTATUS_H
#define VOINET_COMMAND_EXITSTATUS_H

#include "voinet/voineterror.h"

#include <optional>
#include <vector>

namespace voinet_command {

/// Exit statuses of the command; scripts rely on the numbers.
enum class ExitStatus : int {
    success = 0,
    failed = 1,
    usage = 2,
    notFound = 3,
    refused = 4,
    unreachable = 5,
    serverError = 6,
    localFile = 7,
    tls = 8,
    integrity = 9,
    updateKeys = 10,
    newIdentity = 11,
    /// The library's own numbers of these two outcomes.
    busy = 12,
    noPackage = 13,
    invalidRequest = 14,
    /// What a shell shows for a process that SIGINT ended, so both ways of stopping look the same.
    cancelled = 130,
};

struct ExitStatusRow {
    ExitStatus status;
    const char* name;
    const char* meaning;
};

/// Every status once, by number.
const std::vector<ExitStatusRow>& exitStatusTable();

const char* exitStatusName(ExitStatus status);
const char* exitStatusMeaning(ExitStatus status);

/// The kind of a result. `replyStatus` is the HTTP status or FTP reply of a request that was
/// answered; without one a transfer that failed means that the network did.
ExitStatus exitStatusOf(tessaro_com::pkm::voInet::voInetError result,
                        std::optional<int> replyStatus);

}  // namespace voinet_command

#endif  // VOINET_COMMAND_EXITSTATUS_H
