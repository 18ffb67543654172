#include "kvecomn/astring.h"

#include "kvecomn/telmcomn.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace {

std::wstring wideOrEmpty(const char* text) {
    return text == nullptr ? std::wstring() : telmcomn_ansi_to_wide(text);
}

std::wstring hexadecimal(std::uintmax_t value) {
    constexpr wchar_t kDigits[] = L"0123456789abcdef";
    constexpr unsigned kBitsPerDigit = 4;
    constexpr unsigned kDigitMask = 0xF;
    std::wstring text;
    do {
        text.insert(text.begin(), kDigits[value & kDigitMask]);
        value >>= kBitsPerDigit;
    } while (value != 0);
    return text;
}

}  // namespace

AString::AString(const char* text) : m_text(wideOrEmpty(text)) {}

AString::AString(const std::string& text) : m_text(telmcomn_ansi_to_wide(text)) {}

AString& AString::operator+=(const char* text) {
    m_text += wideOrEmpty(text);
    return *this;
}

AString& AString::operator+=(const std::string& text) {
    m_text += telmcomn_ansi_to_wide(text);
    return *this;
}

AString& AString::operator+=(char character) {
    return *this += std::string(1, character);
}

AString& AString::operator+=(unsigned long number) {
    m_text += std::to_wstring(number);
    return *this;
}

AString& AString::operator+=(int number) {
    m_text += std::to_wstring(number);
    return *this;
}

AString& AString::operator+=(const AFormat& number) {
    const std::wstring digits = hexadecimal(number.m_value);
    const std::size_t width = number.m_width > 0 ? static_cast<std::size_t>(number.m_width) : 0;
    m_text += wideOrEmpty(number.m_prefix);
    if (digits.size() < width) {
        m_text.append(width - digits.size(), L'0');
    }
    m_text += digits;
    return *this;
}

AString& AString::operator+=(const void* pointer) {
    m_text += L"0x";
    m_text += hexadecimal(reinterpret_cast<std::uintptr_t>(pointer));
    return *this;
}

AString::operator const wchar_t*() const {
    return m_text.c_str();
}
