// SPDX-License-Identifier: BSD-2-Clause
#include "wording/printable.h"

#include <stdint.h>

#include <algorithm>
#include <iterator>

struct CharacterRange {
    uint32_t first, last;
};

// clang-format off
static constexpr CharacterRange kUnseen[] = {
    {0x0000, 0x001f}, {0x007f, 0x009f},  // control characters
    {0x00ad, 0x00ad},                    // soft hyphen
    {0x034f, 0x034f},                    // grapheme joiner
    {0x061c, 0x061c},                    // Arabic letter mark
    {0x115f, 0x1160},                    // Hangul fillers
    {0x17b4, 0x17b5},                    // Khmer inherent vowels
    {0x180b, 0x180f},                    // Mongolian selectors
    {0x200b, 0x200f},                    // zero width, direction
    {0x2028, 0x202e},                    // line and paragraph, direction
    {0x2060, 0x206f},                    // joiners, direction
    {0x3164, 0x3164},                    // Hangul filler
    {0xd800, 0xf8ff},                    // surrogates, private use
    {0xfdd0, 0xfdef},                    // no characters
    {0xfe00, 0xfe0f},                    // variation selectors
    {0xfeff, 0xfeff},                    // byte order mark
    {0xffa0, 0xffa0},                    // Hangul filler
    {0xfff0, 0xffff},                    // annotation, replacement, no characters
    {0x1bca0, 0x1bca3},                  // shorthand format
    {0x1d173, 0x1d17a},                  // musical format
    {0x1fffe, 0x1ffff}, {0x2fffe, 0x2ffff},  // no characters
    {0x3fffe, 0x10ffff},                 // tags, unassigned and private planes
};
// clang-format on

static bool is_seen(uint32_t character) {
    return std::none_of(std::begin(kUnseen), std::end(kUnseen), [&](const CharacterRange& range) {
        return character >= range.first && character <= range.last;
    });
}

static uint8_t byte_at(std::string_view text, size_t i) { return static_cast<uint8_t>(text[i]); }

// Unicode 3.9, Table 3-7: the length of the character at the start of the text, or 0 where there is
// none.
static size_t read_character(std::string_view text, uint32_t* character) {
    const uint8_t first = byte_at(text, 0);
    if (first < 0x80) {
        *character = first;
        return 1;
    }
    const size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    static constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (first < 0xc0 || first > 0xf4 || length > text.size()) return 0;
    *character = first & (0x7fu >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((byte_at(text, i) & 0xc0) != 0x80) return 0;
        *character = *character << 6 | (byte_at(text, i) & 0x3f);
    }
    return *character >= kSmallest[length] && *character <= 0x10ffff ? length : 0;
}

static void append_escaped(std::string_view bytes, std::string* out) {
    static constexpr char kDigits[] = "0123456789abcdef";
    for (const char c : bytes) {
        const uint8_t byte = static_cast<uint8_t>(c);
        *out += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
}

std::string printable(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        uint32_t character = 0;
        const size_t length = read_character(text, &character);
        const std::string_view bytes = text.substr(0, std::max<size_t>(length, 1));
        if (length == 0 || !is_seen(character)) {
            append_escaped(bytes, &out);
        } else {
            out += bytes;
            if (character == '\\') out += '\\';
        }
        text.remove_prefix(bytes.size());
    }
    return out;
}
