#ifndef KVECOMN_FILELOG_H
#define KVECOMN_FILELOG_H

#include <string>

namespace kvecomn {

// The error lines of the file functions. When memory lacks to form a line, a fixed text takes its
// place.

void logOpenError(const std::string& path, const char* reason) noexcept;
/// What was written may be lost.
void logCloseError(const std::string& path, const char* reason) noexcept;
void logCopyError(const std::string& from, const std::string& to, const char* reason) noexcept;
/// The copy has landed, but may be gone after a loss of power.
void logUnsafeCopy(const std::string& from, const std::string& to, const char* reason) noexcept;

}  // namespace kvecomn

#endif  // KVECOMN_FILELOG_H
