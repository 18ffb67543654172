#include "support/utf8model.h"

namespace voinet_fuzz {

namespace {

std::string encoded(char32_t character) {
    const auto byte = [](char32_t value) { return static_cast<char>(value & 0xFFU); };
    const auto tail = [&](unsigned shift) { return byte(0x80U | ((character >> shift) & 0x3FU)); };
    if (character < 0x80) {
        return {byte(character)};
    }
    if (character < 0x800) {
        return {byte(0xC0U | (character >> 6)), tail(0)};
    }
    if (character < 0x10000) {
        return {byte(0xE0U | (character >> 12)), tail(6), tail(0)};
    }
    return {byte(0xF0U | (character >> 18)), tail(12), tail(6), tail(0)};
}

/// By the number of ones that the first byte begins with.
std::size_t announcedLength(unsigned char first) {
    if (first < 0x80) {
        return 1;
    }
    return first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

}  // namespace

bool isCharacter(char32_t value) {
    return value < 0xD800 || (value > 0xDFFF && value < 0x110000);
}

std::optional<std::u32string> charactersOf(const std::string& utf8) {
    std::u32string characters;
    for (std::size_t position = 0; position < utf8.size();) {
        const auto first = static_cast<unsigned char>(utf8[position]);
        const std::string sequence = utf8.substr(position, announcedLength(first));
        char32_t character = sequence.size() == 1 ? first : first & (0x7FU >> sequence.size());
        for (std::size_t i = 1; i < sequence.size(); ++i) {
            character = (character << 6) | (static_cast<unsigned char>(sequence[i]) & 0x3FU);
        }
        if (!isCharacter(character) || encoded(character) != sequence) {
            return std::nullopt;
        }
        characters += character;
        position += sequence.size();
    }
    return characters;
}

}  // namespace voinet_fuzz
