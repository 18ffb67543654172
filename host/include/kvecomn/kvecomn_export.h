#ifndef KVECOMN_KVECOMN_EXPORT_H
#define KVECOMN_KVECOMN_EXPORT_H

// KVECOMN_API marks what libkvecomn.so.4 exports; the library is compiled with hidden visibility.
#if defined(__GNUC__)
#define KVECOMN_API __attribute__((visibility("default")))
#else
#define KVECOMN_API
#endif

#endif  // KVECOMN_KVECOMN_EXPORT_H
