// SPDX-License-Identifier: BSD-2-Clause
// What the streams of the other tests do not have in them.
#include "m4vdec/m4v_vlc.h"

#include <gtest/gtest.h>

#include "tests/support/bit_packer.h"

TEST(Bits, AreAsWrittenAndZerosAfterTheEnd) {
    const std::string data = "\x01\x23\x45\x67\x89\xab\xcd\xef\xfe\xdc\xba\x98\x76";
    for (size_t length = 0; length < data.size(); ++length) {
        const std::string part = data.substr(0, length);
        const int bit_count = static_cast<int>(8 * length);
        const std::string digits = BitPacker().bytes(part).bits() + std::string(200, '0');
        BitReader bits = bits_start(reinterpret_cast<const uint8_t*>(part.data()), length);
        for (int at = 0, n = 1; at < bit_count + 70; at += n, n = n % kMostBitsRead + 1) {
            ASSERT_EQ(bits_overrun(&bits), at > bit_count);
            bits_refill(&bits);
            ASSERT_EQ(bits.cache, stoull(digits.substr(at, kBitWordSize), nullptr, 2));
            ASSERT_EQ(bits_read(&bits, n), stoul(digits.substr(at, n), nullptr, 2))
                << length << " " << at;
        }
    }
}

TEST(Tcoef, ReadsPrintedCodesAndRefusesOthers) {
    static const struct {
        const TcoefTable* table;
        const char* digits;  // with the sign
        int level = 0;       // 0: to be refused
        unsigned step = 0;   // run + 1
        bool last = false;
    } kCases[] = {
        {&kTcoefIntra, "0000 0101 1111 1", -1, 21, true},
        {&kTcoefIntra, "0000 011 0 10 0", 1 + 27, 1},  // 27 is the highest level of run 0
        {&kTcoefIntra, "0000 011 0 0111 1", -1 - 8, 1, true},
        {&kTcoefIntra, "0000 011 10 10 0", 1, 1 + 15},  // 14 is the highest run of level 1
        {&kTcoefIntra, "0000 011 10 110 0", 2, 1 + 10},
        {&kTcoefIntra, "0000 011 10 0111 0", 1, 1 + 21, true},
        {&kTcoefIntra, "0000 0000 000"},
        {&kTcoefIntra, "0000 0000 011"},
        {&kTcoefIntra, "0000 011 0 0000 011"},                    // escape in an escape
        {&kTcoefIntra, "0000 011 10 0000 0000 0000"},             // no code behind it
        {&kTcoefIntra, "0000 011 11 0 000000 1 000000000000 1"},  // level 0
        {&kTcoefIntra, "0000 011 11 0 000000 0 000000000001 1"},  // markers
        {&kTcoefIntra, "0000 011 11 0 000000 1 000000000001 0"},
        {&kTcoefReversible, "110 0", 1, 1},
        {&kTcoefReversible, "0001 1", -1, 2},
        {&kTcoefReversible, "1011 0", 1, 1, true},
        {&kTcoefReversible, "0110 1101 0", 5, 2},
        {&kTcoefReversible, "0011 1111 1111 100 0", 27, 1},
        {&kTcoefReversible, "0111 1110 1111 101 1", -1, 45, true},
        {&kTcoefReversible, "0111 1111 0111 100 0"},  // behind the last code
        {&kTcoefReversible, "00000 0 000000 1 00000000001 1 0000 0"},
        {&kTcoefReversible, "00001 0 000000 1 00000000000 1 0000 0"},
        {&kTcoefReversible, "00001 0 000000 0 00000000001 1 0000 0"},
        {&kTcoefReversible, "00001 0 000000 1 00000000001 0 0000 0"},
        {&kTcoefReversible, "00001 0 000000 1 00000000001 1 0001 0"},
        {&kTcoefH263, "0000 0101 1111 0", 1, 41, true},
        {&kTcoefH263, "0000 011 0 000000 00000000"},
        {&kTcoefH263, "0000 011 0 000000 10000000 00001 000000"},
        {&kTcoefH263Extended, "0000 011 0 000000 10000000 00000 000000"},
    };
    for (const auto& c : kCases) {
        const std::string data = BitPacker(c.digits).str();
        BitReader bits = bits_start(reinterpret_cast<const uint8_t*>(data.data()), data.size());
        bits_refill(&bits);
        TcoefEntry entry = c.table->primary[bits_cached(&bits, kTcoefPrimaryBits)];
        entry = m4v_whole_entry(bits.cache, *c.table, entry);
        if (entry.step() >= kTcoefLong) {
            bits_drop(&bits, entry.length());
            bits_refill(&bits);
            entry = m4v_escaped_event(bits.cache, *c.table, entry);
        }
        const unsigned step = c.level == 0 ? kTcoefInvalid : c.step + (c.last ? kTcoefLast : 0);
        EXPECT_EQ(entry.level(), c.level) << c.digits;
        EXPECT_EQ(entry.step(), step) << c.digits;
    }
}
