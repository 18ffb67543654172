#ifndef KVECOMN_ASTRING_H
#define KVECOMN_ASTRING_H

#include "kvecomn/kvecomn_export.h"

#include <string>

/// A number with a prefix, to be appended to an AString: AFormat(10, "0x", 2) gives "0x0a".
struct AFormat {
    /// @param value   written in lower-case hexadecimal.
    /// @param prefix  written before the digits; not owned, must outlive the AFormat.
    /// @param width   least number of digits; zeros fill up.
    AFormat(unsigned long value, const char* prefix, int width)
        : m_value(value), m_prefix(prefix), m_width(width) {}

    unsigned long m_value;
    const char* m_prefix;
    int m_width;
};

/// Builds a wide text out of narrow texts (UTF-8) and numbers, for the log functions.
class KVECOMN_API AString {
  public:
    AString() = default;
    // Implicit, as the log functions are called with texts and take AStrings as wide texts.
    // NOLINTBEGIN(google-explicit-constructor)
    /// Null counts as an empty text.
    AString(const char* text);
    AString(const std::string& text);
    // NOLINTEND(google-explicit-constructor)

    AString& operator+=(const char* text);
    AString& operator+=(const std::string& text);
    AString& operator+=(char character);
    AString& operator+=(unsigned long number);
    AString& operator+=(int number);
    AString& operator+=(const AFormat& number);
    /// An address: "0x" and hexadecimal digits.
    AString& operator+=(const void* pointer);

    /// Valid until the text changes or goes.
    operator const wchar_t*() const;  // NOLINT(google-explicit-constructor)

  private:
    std::wstring m_text;
};

#endif  // KVECOMN_ASTRING_H
