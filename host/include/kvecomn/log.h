#ifndef KVECOMN_LOG_H
#define KVECOMN_LOG_H

#include "kvecomn/kvecomn_export.h"

// The log that libraries write to. Where the lines go is the host process's business (hostlog.h).
// Any thread may call these functions. A null module or message counts as an empty text.

extern "C" {

/// @{
/// Write one line: what happened, what helps to trace it, what went wrong.
KVECOMN_API void logInfo(const wchar_t* module, const wchar_t* message);
KVECOMN_API void logDetail(const wchar_t* module, const wchar_t* message);
KVECOMN_API void logError(const wchar_t* module, const wchar_t* message);
/// @}

/// Whether the host wants detail from everything.
KVECOMN_API bool isDetailLoggingEnabled();

/// Whether the host wants detail from the named thing (a module, or "curl" for curl's trace), even
/// when isDetailLoggingEnabled() is false. Upper and lower case differ. Null is in no list.
KVECOMN_API bool logDetailListContains(char* name);
}

#endif  // KVECOMN_LOG_H
