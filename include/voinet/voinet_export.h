#ifndef VOINET_VOINET_EXPORT_H
#define VOINET_VOINET_EXPORT_H

// VOINET_API marks what libvoinet.so.4 exports. The library is compiled with hidden visibility, so
// whatever does not carry the mark stays inside.
#if defined(__GNUC__)
#define VOINET_API __attribute__((visibility("default")))
#define VOINET_PRINTF_CHECK(formatIndex, firstArgument) \
    __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define VOINET_API
#define VOINET_PRINTF_CHECK(formatIndex, firstArgument)
#endif

#endif  // VOINET_VOINET_EXPORT_H
