// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/m4v_vlc.h"

#include <ctype.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "tests/m4vdec/m4v_writer.h"

template <typename Word>
static void expect_bits_as_written() {
    std::mt19937 random(3);
    for (size_t length = 0; length < 40; ++length) {
        std::vector<uint8_t> data(length);
        for (uint8_t& byte : data) byte = static_cast<uint8_t>(random());
        M4vBitsT<Word> bits;
        bits.start(data.data(), data.size());
        for (size_t at = 0; at < 8 * length + 70;) {
            ASSERT_EQ(bits.overrun(), at > 8 * length);
            const unsigned n = 1 + static_cast<unsigned>(random() % M4vBitsT<Word>::kMaxRead);
            unsigned want = 0;
            for (size_t i = at; i < at + n; ++i) {
                want = want << 1 | (i < 8 * length ? data[i / 8] >> (7 - i % 8) & 1u : 0);
            }
            ASSERT_EQ(bits.read(n), want) << length << " bytes, bit " << at;
            at += n;
            ASSERT_EQ(bits.bits_to_alignment(), (8 - at % 8) % 8);
            ASSERT_TRUE(at >= 8 * length || bits.position() == data.data() + at / 8);
        }
    }
}

TEST(Bits, ReadsBothWordsAndZerosBehindTheEnd) {
    expect_bits_as_written<uint64_t>();
    expect_bits_as_written<uint32_t>();
}

// The event whose code, sign included, the digits begin with.
static TcoefEvent read_event(const TcoefTable& table, const char* digits, unsigned* length) {
    BitPacker packer;
    packer.put(digits);
    M4vBits bits;
    bits.start(packer.bytes.data(), packer.bytes.size());
    bits.refill();
    TcoefEntry entry = table.primary[bits.peek(kTcoefPrimaryBits)];
    if (entry.step == kTcoefLong) entry = m4v_long_event(bits, table, entry);
    TcoefEvent event = {entry.level, entry.step % kTcoefLast, entry.step >= kTcoefLast};
    if (entry.step < kTcoefLong) {
        bits.skip(entry.length);
    } else if (m4v_read_escaped_event(&bits, table, entry, &event)) {
        return {0, 0, false};
    }
    *length =
        static_cast<unsigned>(bits.next - packer.bytes.data()) * 8 + bits.padding - bits.count;
    return event;
}

// From the printed tables, among them the ends of each.
TEST(Tcoef, ReadsCodesOfTheStandards) {
    static const struct {
        const TcoefTable* table;
        const char* digits;  // with the sign, and of an escape with what follows
        unsigned last, run;
        int level;
    } kCases[] = {
        {&kTcoefH263, "100", 0, 0, 1},
        {&kTcoefH263, "0000 0101 0111 1", 0, 26, -1},
        {&kTcoefH263, "0000 0000 101 0", 1, 0, 3},
        {&kTcoefH263, "0000 0101 1111 0", 1, 40, 1},
        {&kTcoefIntra, "110 1", 0, 0, -2},
        {&kTcoefIntra, "0000 0101 0010 0", 0, 0, 27},
        {&kTcoefIntra, "0000 0101 1001 1", 1, 0, -8},
        {&kTcoefIntra, "0000 0101 1111 0", 1, 20, 1},
        {&kTcoefAic, "0000 0101 0011 0", 0, 0, 25},
        {&kTcoefAic, "0000 0101 1010 1", 1, 23, -1},
        {&kTcoefReversible, "110 0", 0, 0, 1},
        {&kTcoefReversible, "0001 1", 0, 1, -1},
        {&kTcoefReversible, "1011 0", 1, 0, 1},
        {&kTcoefReversible, "0110 1101 0", 0, 1, 5},
        {&kTcoefReversible, "0011 1111 1111 100 0", 0, 0, 27},
        {&kTcoefReversible, "0111 1110 1111 101 1", 1, 44, -1},
        // Escapes: level offset, run offset, fixed length, and the limits of those.
        {&kTcoefIntra, "0000 011 0 10 0", 0, 0, 28},
        {&kTcoefIntra, "0000 011 10 0111 1", 1, 21, -1},
        {&kTcoefIntra, "0000 011 11 1 111111 1 011111111111 1", 1, 63, 2047},
        {&kTcoefIntra, "0000 011 11 0 000000 1 100000000000 1", 0, 0, -2048},
        {&kTcoefReversible, "00001 1 111111 1 11111111111 1 0000 1", 1, 63, -2047},
        {&kTcoefH263, "0000 011 1 000011 10000001", 1, 3, -127},
        {&kTcoefH263Extended, "0000 011 0 000000 10000000 00001 000000", 0, 0, 1},
        {&kTcoefH263Extended, "0000 011 0 000000 10000000 11111 011111", 0, 0, 1023},
        {&kTcoefAicExtended, "0000 011 0 000000 10000000 00000 100000", 0, 0, -1024},
    };
    for (const auto& c : kCases) {
        unsigned length = 0;
        const TcoefEvent event = read_event(*c.table, c.digits, &length);
        const std::string digits = c.digits;
        EXPECT_EQ(event.level, c.level) << digits;
        EXPECT_EQ(event.step, c.run + 1) << digits;
        EXPECT_EQ(event.last, c.last == 1) << digits;
        EXPECT_EQ(length, std::count_if(digits.begin(), digits.end(), isdigit)) << digits;
    }
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
        unsigned length;
        EXPECT_EQ(read_event(*c.table, c.digits, &length).level, 0) << c.digits;
    }
}

// Which is what makes them decodable from the other end.
TEST(Tcoef, ReversibleCodesAreSuffixFree) {
    std::set<std::string> words;  // without the sign
    for (unsigned window = 0; window < 1u << 16; ++window) {
        std::string digits;
        for (unsigned i = 16; i-- > 0;) digits += window >> i & 1 ? '1' : '0';
        unsigned length = 0;
        const TcoefEvent event = read_event(kTcoefReversible, digits.c_str(), &length);
        if (event.level != 0 && length <= 16) words.insert(digits.substr(0, length - 1));
    }
    EXPECT_EQ(words.size(), 169u);
    for (const std::string& word : words) {
        for (const std::string& other : words) {
            EXPECT_TRUE(word == other || !other.ends_with(word)) << word << " " << other;
        }
    }
}

TEST(DcDifference, ReadsEverySizeAndRefusesMore) {
    for (const bool is_chroma : {false, true}) {
        for (int difference = -4095; difference <= 4095; ++difference) {
            unsigned size = 0;
            while (abs(difference) >> size) ++size;
            // Sizes 0 to 3 have codes of their own, the others lead with zeros.
            static const char* const kShort[2][4] = {{"011", "11", "10", "010"},
                                                     {"11", "10", "01", "001"}};
            BitPacker packer;
            if (size < 4) {
                packer.put(kShort[is_chroma][size]);
            } else {
                packer.put(1, is_chroma ? size : size - 1);
            }
            packer.put(static_cast<uint32_t>(difference + (difference < 0 ? (1 << size) - 1 : 0)),
                       size);
            if (size > 8) packer.put("1");
            packer.put("10");
            M4vBits bits;
            bits.start(packer.bytes.data(), packer.bytes.size());
            int got = 9999;
            ASSERT_EQ(m4v_read_dc_difference(&bits, is_chroma, &got), 0) << difference;
            ASSERT_EQ(got, difference);
            ASSERT_EQ(bits.read(2), 2u);
        }
        // No code, sizes without the marker behind them.
        for (const char* digits : {"0000 0000 0000 0000", "0000 0000 0001 1111 1111 1111 0",
                                   "0000 0000 1 1 0000 0000 0"}) {
            BitPacker packer;
            packer.put(digits);
            M4vBits bits;
            bits.start(packer.bytes.data(), packer.bytes.size());
            int got;
            EXPECT_EQ(m4v_read_dc_difference(&bits, is_chroma, &got), 1) << digits;
        }
    }
}
