#ifndef VOINET_TESTS_UNIT_SUPPORT_LOGCAPTURE_H
#define VOINET_TESTS_UNIT_SUPPORT_LOGCAPTURE_H

#include <string>
#include <vector>

namespace voinet_test {

/// @{
/// A log line as log() shows it: level, module and text.
std::string errorLine(const std::string& text, const std::string& module = "voInet");
std::string infoLine(const std::string& text, const std::string& module = "voInet");
std::string debugLine(const std::string& text, const std::string& module = "voInet");
/// @}

/// The lines that reached the host's log since the start of the test or the last clearLog().
const std::vector<std::string>& logLines();
/// Those of one level: "info", "detail" or "error".
std::vector<std::string> logLines(const std::string& level);
void clearLog();

/// Sends the host's log to logLines(); the listener of the test executable calls it.
void startLogCapture();

}  // namespace voinet_test

#endif  // VOINET_TESTS_UNIT_SUPPORT_LOGCAPTURE_H
