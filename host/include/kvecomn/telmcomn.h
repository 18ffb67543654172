#ifndef KVECOMN_TELMCOMN_H
#define KVECOMN_TELMCOMN_H

#include "kvecomn/kvecomn_export.h"

#include <string>

/// @{
/// Conversion between wide texts (one Unicode character per wchar_t) and UTF-8. Characters of value
/// 0 are kept. What is ill-formed (an overlong or cut sequence, a surrogate, a value above
/// U+10FFFF) becomes U+FFFD, one for each maximal ill-formed part. Any thread may call them.
KVECOMN_API std::string telmcomn_wide_to_ansi(const std::wstring& wide);
KVECOMN_API std::wstring telmcomn_ansi_to_wide(const std::string& utf8);
/// @}

#endif  // KVECOMN_TELMCOMN_H
