// SPDX-License-Identifier: BSD-2-Clause
// What the streams of the other tests do not have in them.
#include "m4vdec/m4v_vlc.h"

#include <gtest/gtest.h>

#include <bitset>
#include <set>
#include <tuple>

#include "tests/support/bit_packer.h"

template <typename Reader>
static void start(Reader* bits, const std::string& data) {
    bits->start(reinterpret_cast<const uint8_t*>(data.data()), data.size());
}

template <typename Word>
static void expect_bits_as_written() {
    const std::string data = "\x01\x23\x45\x67\x89\xab\xcd\xef\xfe\xdc\xba\x98\x76";
    for (size_t length = 0; length < data.size(); ++length) {
        M4vBitsT<Word> bits;
        const std::string part = data.substr(0, length);
        start(&bits, part);
        for (size_t at = 0, n = 1; at < 8 * length + 70; at += n, n = n % bits.kMaxRead + 1) {
            ASSERT_EQ(bits.overrun(), at > 8 * length);
            unsigned want = 0;
            for (size_t i = at; i < at + n; ++i) {
                want = want << 1 | (i < 8 * length ? data[i / 8] >> (7 - i % 8) & 1u : 0);
            }
            ASSERT_EQ(bits.read(static_cast<unsigned>(n)), want) << length << ", bit " << at;
        }
    }
}

TEST(Bits, ReadsBothWordsAndZerosBehindTheEnd) {
    expect_bits_as_written<uint64_t>();
    expect_bits_as_written<uint32_t>();
}

static TcoefEvent read_event(const TcoefTable& table, const std::string& digits,
                             size_t* length = nullptr) {
    const std::string data = BitPacker(digits).str();
    M4vBits bits;
    start(&bits, data);
    bits.refill();
    TcoefEntry entry = table.primary[bits.peek(kTcoefPrimaryBits)];
    if (entry.step == kTcoefLong) entry = m4v_long_event(bits, table, entry);
    if (length) *length = entry.length;
    TcoefEvent event = {entry.level, entry.step % kTcoefLast, entry.step >= kTcoefLast};
    if (entry.step < kTcoefLong) return event;
    return m4v_read_escaped_event(&bits, table, entry, &event) ? TcoefEvent{} : event;
}

TEST(Tcoef, RefusesWhatIsNotACode) {
    static const struct {
        const TcoefTable* table;
        const char* digits;
    } kCases[] = {
        {&kTcoefIntra, "0000 0000 000"},
        {&kTcoefIntra, "0000 0000 011"},
        {&kTcoefIntra, "0000 011 0 0000 011"},                    // escape in an escape
        {&kTcoefIntra, "0000 011 10 0000 0000 0000"},             // no code behind it
        {&kTcoefIntra, "0000 011 11 0 000000 1 000000000000 1"},  // level 0
        {&kTcoefIntra, "0000 011 11 0 000000 0 000000000001 1"},  // markers
        {&kTcoefIntra, "0000 011 11 0 000000 1 000000000001 0"},
        {&kTcoefReversible, "00000 0 000000 1 00000000001 1 0000 0"},
        {&kTcoefReversible, "00001 0 000000 1 00000000000 1 0000 0"},
        {&kTcoefReversible, "00001 0 000000 0 00000000001 1 0000 0"},
        {&kTcoefReversible, "00001 0 000000 1 00000000001 0 0000 0"},
        {&kTcoefReversible, "00001 0 000000 1 00000000001 1 0001 0"},
        {&kTcoefReversible, "0111 1111 0111 100 0"},  // behind the last code
        {&kTcoefH263, "0000 011 0 000000 00000000"},
        {&kTcoefH263, "0000 011 0 000000 10000000 00001 000000"},
        {&kTcoefH263Extended, "0000 011 0 000000 10000000 00000 000000"},
    };
    for (const auto& c : kCases) {
        EXPECT_EQ(read_event(*c.table, c.digits).level, 0) << c.digits;
    }
}

// The streams take the codes from the table that reads them; these are the printed ones. No code
// is the end of another, which is what makes them decodable from the other end.
TEST(Tcoef, ReadsReversibleCodes) {
    static const struct {
        const char* digits;  // with the sign
        bool last;
        unsigned run;
        int level;
    } kCases[] = {
        {"110 0", false, 0, 1},
        {"0001 1", false, 1, -1},
        {"1011 0", true, 0, 1},
        {"0110 1101 0", false, 1, 5},
        {"0011 1111 1111 100 0", false, 0, 27},
        {"0111 1110 1111 101 1", true, 44, -1},
    };
    for (const auto& c : kCases) {
        const TcoefEvent event = read_event(kTcoefReversible, c.digits);
        EXPECT_EQ(std::tie(event.last, event.level), std::tie(c.last, c.level)) << c.digits;
        EXPECT_EQ(event.step, c.run + 1) << c.digits;
    }
    std::set<std::string> words;  // without the sign
    for (unsigned window = 0; window < 1u << 16; ++window) {
        const std::string digits = std::bitset<16>(window).to_string();
        size_t length = 0;
        const TcoefEvent event = read_event(kTcoefReversible, digits, &length);
        if (event.level != 0 && !digits.starts_with("0000"))
            words.insert(digits.substr(0, length - 1));
    }
    EXPECT_EQ(words.size(), 169u);
    for (const std::string& a : words) {
        for (const std::string& b : words) EXPECT_TRUE(a == b || !b.ends_with(a)) << a << " " << b;
    }
}

TEST(DcDifference, RefusesLongCodesAndSizesWithoutTheirMarker) {
    for (const char* digits :
         {"0000 0000 0000 0000", "0000 0000 0001 1111 1111 1111 0", "0000 0000 1 1 0000 0000 0"}) {
        const std::string data = BitPacker(digits).str();
        for (const bool is_chroma : {false, true}) {
            M4vBits bits;
            start(&bits, data);
            int got;
            EXPECT_EQ(m4v_read_dc_difference(&bits, is_chroma, &got), 1) << digits;
        }
    }
}
