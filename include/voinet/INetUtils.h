#ifndef VOINET_INETUTILS_H
#define VOINET_INETUTILS_H

#include "voinet/voinet_export.h"

#include <string>

namespace tessaro_com::pkm::voInet {

// Paths, URLs, credentials and strings. The functions keep no state, except that the first
// temporary name of the process seeds random(); any thread may call them.

/// @{
/// Percent-encodes "@", "%" and ":" (lower-case hexadecimal) and nothing else, so that a user name
/// and a password can be joined by ":".
VOINET_API std::string fixCredentialWithSpecialCharacters(const std::string& credential);
VOINET_API std::wstring fixCredentialWithSpecialCharacters(const std::wstring& credential);
/// @}

/// @{
/// Stores a path in the temporary directory that no file has at the moment: "/tmp/Cbmgr" and a
/// decimal number. The file is not made. Null does nothing with the name.
VOINET_API void CreateTempFileName(std::string* out);
VOINET_API void CreateTempFileName(std::wstring* out);
/// @}

/// Makes the directories that `path` names up to its last "/", mode 0700, as
/// CallbackManager::MakeRecursiveDir does.
///
/// @return true when the last directory could *not* be made (it exists already, for instance);
///         false when it was made, when none had to be, and for null. The opposite of
///         CallbackManager::MakeRecursiveDir; intended.
VOINET_API bool MakeLocalRecursiveDirectory(const char* path);

/// @{
/// Replaces every backslash by "/", in place. False only for null.
VOINET_API bool ConvertMSPathtoUnixPath(char* path);
VOINET_API bool ConvertMSPathtoUnixPath(std::string& path);
/// @}

/// @{
/// Conversion by the host library: UTF-8 on the narrow side, one character per wchar_t on the wide
/// side. Ill-formed input becomes U+FFFD.
VOINET_API std::string unicode_to_utf8(const std::wstring& wide);
VOINET_API std::wstring utf8_to_unicode(const std::string& utf8);
/// @}

/// The host of a URL: without scheme, path and port. An IPv6 address loses its brackets, but only
/// with a port behind them: without one the last group goes instead; intended.
VOINET_API std::string canonicalize(const std::string& url);

/// @{
/// Position of the scheme separator: "://[" when `bracketAware` and there is one, else "://".
/// `length` receives the separator's length. npos, with `length` untouched, when there is none.
VOINET_API std::string::size_type findPrefixInUrl(const std::string& url, int& length,
                                                  bool bracketAware);
VOINET_API std::wstring::size_type findPrefixInUrl(const std::wstring& url, int& length,
                                                   bool bracketAware);
/// @}

/// @{
/// Position of the port separator, searched from the end: "]:" when `bracketAware` and there is
/// one, else ":". `length` and npos as above.
VOINET_API std::string::size_type findPortInUrl(const std::string& url, int& length,
                                                bool bracketAware);
VOINET_API std::wstring::size_type findPortInUrl(const std::wstring& url, int& length,
                                                 bool bracketAware);
/// @}

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_INETUTILS_H
