#ifndef VOINET_TEXTS_H
#define VOINET_TEXTS_H

#include "voinet/voinet_export.h"
#include "voinet/voineterror.h"

namespace tessaro_com::pkm::voInet {

// Texts for people and logs. All are static, in UTF-8 and never null; any thread may ask for them.

/// The name of a result as the source code has it, such as "voInetErrorTimeout"; "voInetError?" for
/// a number that is none.
VOINET_API const char* voInetErrorName(voInetError error);

/// What a result means, one English sentence without a full stop; "unknown result" for a number
/// that is none.
VOINET_API const char* voInetErrorMeaning(voInetError error);

/// The version of the library that is loaded, such as "4.0.0".
VOINET_API const char* voInetVersion();

}  // namespace tessaro_com::pkm::voInet

#endif  // VOINET_TEXTS_H
