// Texts between the wide and the UTF-8 form.

#include "kvecomn/astring.h"
#include "kvecomn/telmcomn.h"
#include "support/fuzztarget.h"
#include "support/input.h"
#include "support/utf8model.h"
#include "voinet/INetUtils.h"

#include <algorithm>
#include <cwchar>

namespace voinet_fuzz {

namespace {

namespace voInet = tessaro_com::pkm::voInet;

constexpr wchar_t kReplacement = 0xFFFD;

bool isCharacterWide(wchar_t unit) {
    return isCharacter(static_cast<char32_t>(unit));
}

void checkToWide(const std::string& narrow) {
    const std::wstring wide = telmcomn_ansi_to_wide(narrow);
    require(std::all_of(wide.begin(), wide.end(), isCharacterWide), "wide texts hold characters");
    require(wide.size() <= narrow.size(), "no byte gives two characters");
    require(voInet::utf8_to_unicode(narrow) == wide, "both libraries convert alike");
    if (const auto characters = charactersOf(narrow)) {
        require(std::equal(wide.begin(), wide.end(), characters->begin(), characters->end(),
                           [](wchar_t a, char32_t b) { return static_cast<char32_t>(a) == b; }),
                "well-formed text keeps its characters");
        require(telmcomn_wide_to_ansi(wide) == narrow, "well-formed text survives both ways");
    } else {
        require(wide.find(kReplacement) != std::wstring::npos, "what is ill-formed is marked");
        require(telmcomn_wide_to_ansi(wide) != narrow, "ill-formed text does not survive");
    }
    const AString text(narrow.c_str());
    require(telmcomn_ansi_to_wide(upToZero(narrow)) == static_cast<const wchar_t*>(text),
            "log texts are converted alike");
}

void checkToNarrow(const std::wstring& wide) {
    const std::string narrow = telmcomn_wide_to_ansi(wide);
    require(charactersOf(narrow).has_value(), "narrow texts are well-formed");
    require(voInet::unicode_to_utf8(wide) == narrow, "both libraries convert alike");
    std::wstring expected = wide;
    std::replace_if(
        expected.begin(), expected.end(), [](wchar_t unit) { return !isCharacterWide(unit); },
        kReplacement);
    require(telmcomn_ansi_to_wide(narrow) == expected,
            "all characters come back, and U+FFFD for everything else");
}

/// A cut between two well-formed texts, or in front of an ASCII character, changes nothing.
void checkConcatenation(const std::string& first, const std::string& second) {
    require(telmcomn_ansi_to_wide(first + "." + second) ==
                telmcomn_ansi_to_wide(first) + L"." + telmcomn_ansi_to_wide(second),
            "what is ill-formed ends at an ASCII character");
}

std::wstring unitsOf(const std::string& bytes) {
    Input input(bytes);
    std::wstring units;
    while (!input.empty()) {
        // Three bytes reach every character and what lies beyond; every other unit has four.
        units += static_cast<wchar_t>(input.number(units.size() % 2 == 0 ? 3 : 4));
    }
    return units;
}

}  // namespace

void tryInput(const std::string& bytes) {
    checkToWide(bytes);
    checkToNarrow(unitsOf(bytes));
    checkConcatenation(bytes.substr(0, bytes.size() / 2), bytes.substr(bytes.size() / 2));
}

}  // namespace voinet_fuzz
