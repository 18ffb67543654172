#ifndef KVECOMN_HOSTLOG_H
#define KVECOMN_HOSTLOG_H

#include "kvecomn/kvecomn_export.h"

#include <functional>
#include <string>
#include <vector>

// For host processes: where log lines go, and how much detail the libraries produce. Any thread may
// call these functions at any time.

enum class HostLogLevel { error, info, detail };

/// The level's word in a log line: "error", "info", "detail".
KVECOMN_API const char* hostLogLevelName(HostLogLevel level);

/// Receives one log line. Neither text is null; both belong to the caller.
using HostLogHandler =
    std::function<void(HostLogLevel level, const wchar_t* module, const wchar_t* message)>;

/// Replaces the handler of log lines; an empty one restores the default. Calls of the handler come
/// one at a time, from whichever thread logs; it must not log itself (such a line is dropped), and
/// what it throws is dropped. When this function returns, the old handler is not called any more.
/// When memory lacks for the new one, the default takes its place.
///
/// A handler gets every line, detail included, and filters for itself. The default handler writes a
/// line of time (UTC), level word, module and message to standard error, and passes over detail
/// lines unless detail is enabled or their module is in the detail list. It shows control
/// characters as escapes ("\n", "\x1b"), so that a message is always one line.
KVECOMN_API void hostLogSetHandler(HostLogHandler handler);

/// What isDetailLoggingEnabled() answers; false at start.
KVECOMN_API void hostLogSetDetailEnabled(bool enabled);

/// What logDetailListContains() answers true to; empty at start.
KVECOMN_API void hostLogSetDetailList(std::vector<std::string> names);

#endif  // KVECOMN_HOSTLOG_H
