#ifndef VOINET_LOG_H
#define VOINET_LOG_H

#include "voinet/voinet_export.h"

namespace tessaro_com::pkm::voInet {

/// @{
/// Write one line to the host's log: a module tag and a printf format with its arguments, UTF-8.
/// A message of more than 511 bytes is cut there. Filtering by level is the host's business. No
/// state: as thread-safe as the host's logging.
VOINET_API void voinet_Loginfo(const char* module, const char* format, ...)
    VOINET_PRINTF_CHECK(2, 3);
/// At detail level.
VOINET_API void voinet_LoginfoDebug(const char* module, const char* format, ...)
    VOINET_PRINTF_CHECK(2, 3);
/// At information level: the host's log has no warnings.
VOINET_API void voinet_LogWarn(const char* module, const char* format, ...)
    VOINET_PRINTF_CHECK(2, 3);
VOINET_API void voinet_LogError(const char* module, const char* format, ...)
    VOINET_PRINTF_CHECK(2, 3);
/// @}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_LOG_H
