#include "kvecomn/telmcomn.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace {

// One wchar_t is one character throughout the libraries.
static_assert(sizeof(wchar_t) == sizeof(char32_t), "wchar_t must hold any Unicode character");

constexpr char32_t kReplacementCharacter = 0xFFFD;
constexpr char32_t kLastCharacter = 0x10FFFF;
constexpr char32_t kFirstSurrogate = 0xD800;
constexpr char32_t kLastSurrogate = 0xDFFF;

constexpr char32_t kLeastOfTwoBytes = 0x80;
constexpr char32_t kLeastOfThreeBytes = 0x800;
constexpr char32_t kLeastOfFourBytes = 0x10000;

constexpr unsigned kBitsPerContinuation = 6;
constexpr std::uint8_t kContinuationMask = 0x3F;
constexpr std::uint8_t kContinuationMark = 0x80;

/// The well-formed sequences by their first byte. Overlong forms, surrogates and values that are
/// too high differ from well-formed ones in the range of the second byte; every further byte may be
/// any continuation.
struct SequenceForm {
    std::uint8_t firstLeast;
    std::uint8_t firstMost;
    std::uint8_t secondLeast;
    std::uint8_t secondMost;
    std::uint8_t continuations;
    std::uint8_t firstMask;
};

constexpr SequenceForm kSequenceForms[] = {
    {0x00, 0x7F, 0x00, 0x00, 0, 0x7F}, {0xC2, 0xDF, 0x80, 0xBF, 1, 0x1F},
    {0xE0, 0xE0, 0xA0, 0xBF, 2, 0x0F}, {0xE1, 0xEC, 0x80, 0xBF, 2, 0x0F},
    {0xED, 0xED, 0x80, 0x9F, 2, 0x0F}, {0xEE, 0xEF, 0x80, 0xBF, 2, 0x0F},
    {0xF0, 0xF0, 0x90, 0xBF, 3, 0x07}, {0xF1, 0xF3, 0x80, 0xBF, 3, 0x07},
    {0xF4, 0xF4, 0x80, 0x8F, 3, 0x07},
};

const SequenceForm* findSequenceForm(std::uint8_t first) {
    for (const SequenceForm& form : kSequenceForms) {
        if (first >= form.firstLeast && first <= form.firstMost) {
            return &form;
        }
    }
    return nullptr;
}

std::uint8_t byteAt(const std::string& text, std::size_t position) {
    // `char` is signed on some targets.
    return static_cast<std::uint8_t>(text[position]);
}

/// Decodes the character at `position` and moves `position` behind it, or behind the longest start
/// of a well-formed sequence when it breaks off.
char32_t decodeNext(const std::string& text, std::size_t& position) {
    const std::uint8_t first = byteAt(text, position++);
    const SequenceForm* form = findSequenceForm(first);
    if (form == nullptr) {
        return kReplacementCharacter;
    }
    char32_t character = first & form->firstMask;
    std::uint8_t least = form->secondLeast;
    std::uint8_t most = form->secondMost;
    for (int i = 0; i < form->continuations; ++i) {
        if (position == text.size() || byteAt(text, position) < least ||
            byteAt(text, position) > most) {
            return kReplacementCharacter;
        }
        character =
            (character << kBitsPerContinuation) | (byteAt(text, position) & kContinuationMask);
        ++position;
        least = kContinuationMark;
        most = kContinuationMark | kContinuationMask;
    }
    return character;
}

bool isCharacter(char32_t value) {
    return value <= kLastCharacter && (value < kFirstSurrogate || value > kLastSurrogate);
}

void appendByte(std::string& text, char32_t byte) {
    text.push_back(static_cast<char>(static_cast<std::uint8_t>(byte)));
}

void appendContinuations(std::string& text, char32_t character, unsigned count) {
    while (count > 0) {
        --count;
        const char32_t bits = (character >> (count * kBitsPerContinuation)) & kContinuationMask;
        appendByte(text, kContinuationMark | bits);
    }
}

void appendCharacter(std::string& text, char32_t character) {
    if (character < kLeastOfTwoBytes) {
        appendByte(text, character);
    } else if (character < kLeastOfThreeBytes) {
        appendByte(text, 0xC0U | (character >> kBitsPerContinuation));
        appendContinuations(text, character, 1);
    } else if (character < kLeastOfFourBytes) {
        appendByte(text, 0xE0U | (character >> (2 * kBitsPerContinuation)));
        appendContinuations(text, character, 2);
    } else {
        appendByte(text, 0xF0U | (character >> (3 * kBitsPerContinuation)));
        appendContinuations(text, character, 3);
    }
}

/// Whether a text is nothing but ASCII. Most texts are, and those are copied.
template <class Text>
bool isAscii(const Text& text) {
    char32_t bits = 0;
    for (const auto unit : text) {
        bits |= static_cast<char32_t>(unit);
    }
    return bits < kLeastOfTwoBytes;
}

}  // namespace

std::string telmcomn_wide_to_ansi(const std::wstring& wide) {
    std::string utf8;
    if (isAscii(wide)) {
        utf8.resize(wide.size());
        std::transform(wide.begin(), wide.end(), utf8.begin(),
                       [](wchar_t unit) { return static_cast<char>(unit); });
        return utf8;
    }
    utf8.reserve(wide.size());
    for (const wchar_t unit : wide) {
        const auto value = static_cast<char32_t>(unit);
        appendCharacter(utf8, isCharacter(value) ? value : kReplacementCharacter);
    }
    return utf8;
}

std::wstring telmcomn_ansi_to_wide(const std::string& utf8) {
    if (isAscii(utf8)) {
        return std::wstring(utf8.begin(), utf8.end());
    }
    std::wstring wide;
    wide.reserve(utf8.size());
    std::size_t position = 0;
    while (position < utf8.size()) {
        wide.push_back(static_cast<wchar_t>(decodeNext(utf8, position)));
    }
    return wide;
}
