// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/bit_reader.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "avcdec/nal_unit.h"
#include "tests/support/bit_packer.h"

namespace {

// A block of exactly the given bytes and a reader on it. At an odd start the bytes lie at an odd
// address.
struct Reading {
    explicit Reading(const std::string& data, bool is_odd = false)
        : block(data.size() + is_odd), length(static_cast<uint32_t>(data.size())) {
        std::copy(data.begin(), data.end(), block.begin() + is_odd);
        bits_init(&reader, block.data() + is_odd, length);
    }
    // The bytes as nal_read_header has left them.
    std::string unit() const {
        const uint8_t* const start = reader.start;
        return std::string(start, reader.end);
    }
    std::vector<uint8_t> block;
    uint32_t length;
    AvcBitReader reader;
};

Reading text(const char* bits) { return Reading(BitPacker(bits).str()); }

std::string bytes(std::initializer_list<int> values) {
    return std::string(values.begin(), values.end());
}

TEST(BitReader, ReadsWhatWasPackedAcrossEveryRefill) {
    std::mt19937 rng(1);
    BitPacker packer;
    std::vector<std::pair<int, uint32_t>> fields;
    for (int i = 0; i < 2000; ++i) {
        const int n = static_cast<int>(rng() % 33);
        fields.emplace_back(n, n == 0 ? 0 : static_cast<uint32_t>(rng()) >> (32 - n));
        packer.u(n, fields.back().second);
    }
    Reading f(packer.str());
    size_t position = 0;
    for (const auto& [n, value] : fields) {
        if (n <= 16) {
            ASSERT_EQ(bits_peek(&f.reader, n), value);
            ASSERT_EQ(bits_read(&f.reader, n), value);
        } else {
            ASSERT_EQ(bits_read_long(&f.reader, n), value);
        }
        position += static_cast<size_t>(n);
        ASSERT_EQ(bits_position(&f.reader), position);
    }
    EXPECT_FALSE(bits_overrun(&f.reader));
}

TEST(BitReader, ReadsZerosBehindTheEndAndCountsThem) {
    for (uint32_t length = 0; length < 12; ++length) {
        SCOPED_TRACE(length);
        Reading f(std::string(length, '\xff'));
        for (uint32_t i = 0; i < length; ++i) EXPECT_EQ(bits_read(&f.reader, 8), 0xffU);
        EXPECT_FALSE(bits_overrun(&f.reader));
        EXPECT_EQ(bits_read_1(&f.reader), 0U);
        EXPECT_TRUE(bits_overrun(&f.reader));
        bits_skip(&f.reader, 1000);
        EXPECT_EQ(bits_position(&f.reader), length * 8 + 1001);
        bits_seek(&f.reader, length * 8);
        EXPECT_FALSE(bits_overrun(&f.reader));
    }
}

TEST(BitReader, UeReadsEachCodeWordLength) {
    static const struct {
        const char* bits;
        uint32_t want;
        size_t used;
    } kCases[] = {
        {"1", 0, 1},
        {"010", 1, 3},
        {"011", 2, 3},
        {"00100", 3, 5},
        {"00000001 0000000", 127, 15},
        {"000000001 00000000", 255, 17},
        {"000000000000001 11111111111111", 32766, 29},
        // All 15 zeros are taken, then 16 bits as they come.
        {"000000000000000 1000000000000000", 32767, 31},
        {"000000000000000 1111111111111111", 65534, 31},
        {"000000000000000 0000000000000001", 0, 31},
        {"000000000000000 0000000000000000", 0xffffffff, 31},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.bits);
        Reading f = text(c.bits);
        EXPECT_EQ(bits_ue(&f.reader), c.want);
        EXPECT_EQ(bits_position(&f.reader), c.used);
    }
}

TEST(BitReader, SignedCodesReadBackInBothForms) {
    std::vector<int32_t> values;
    for (int32_t i = 0; i < 32767; i += i < 40 ? 1 : 97) values.insert(values.end(), {i, -i});
    const std::vector<int32_t> large = {32767,   -32767,     32768,      -32768,
                                        1 << 29, -(1 << 29), 0x7fffffff, -0x7fffffff};
    BitPacker packer;
    for (const int32_t v : values) packer.se(v).se(v);
    for (const int32_t v : large) packer.se(v);
    Reading f(packer.str());
    for (const int32_t v : values) {
        ASSERT_EQ(bits_se(&f.reader), v);
        ASSERT_EQ(bits_se_long(&f.reader), v);
    }
    for (const int32_t v : large) EXPECT_EQ(bits_se_long(&f.reader), v);
    EXPECT_FALSE(bits_overrun(&f.reader));
}

TEST(BitReader, AlignStaysAndTrailingMovesOnAByteBoundary) {
    for (size_t from = 0; from < 24; ++from) {
        SCOPED_TRACE(from);
        Reading f(std::string(4, '\x55'));
        bits_skip(&f.reader, static_cast<uint32_t>(from));
        bits_align(&f.reader);
        EXPECT_EQ(bits_position(&f.reader), (from + 7) / 8 * 8);
        bits_seek(&f.reader, from);
        bits_skip_trailing(&f.reader);
        EXPECT_EQ(bits_position(&f.reader), from / 8 * 8 + 8);
    }
}

TEST(BitReader, FindsTheEndOfTheData) {
    static const struct {
        const char* bits;
        uint32_t position;
        int more, overrun;
        int trailing;  // bits_trailing_check
    } kCases[] = {
        {"10110101 10000000", 8, 0, 0, 0},  // the stop bit in the last byte, nothing behind
        {"10110101 10000000", 7, 1, 0, 0},
        {"10110100", 5, 0, 0, 0},
        {"10110100", 4, 1, 0, 0},
        {"10110100", 6, 1, 0, 0},           // behind the stop bit: zeros are no stop bit
        {"10110100 00000000", 5, 1, 0, 1},  // zero bytes count as data ...
        {"10110100 00000000", 8, 1, 0, 0},
        {"10110110 00000000", 5, 1, 0, 0},
        {"10110100 00000001", 5, 1, 0, 0},
        {"1000 0000 00000000 00000000 00000000 00000001", 0, 1, 0, 1},  // three are looked at
        {"1000 0000 00000000 00000000 00000001", 0, 1, 0, 0},
        {"10110100", 8, 0, 1, 0},
        {"10110100", 20, 0, 1, 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(std::string(c.bits) + " at " + std::to_string(c.position));
        Reading f = text(c.bits);
        bits_skip(&f.reader, c.position);
        int overrun = 0;
        EXPECT_EQ(bits_more_rbsp_data(&f.reader, &overrun), c.more);
        EXPECT_EQ(overrun, c.overrun);
        EXPECT_EQ(bits_trailing_check(&f.reader), c.trailing);
    }
}

TEST(NalUnit, RemovesEmulationPrevention) {
    static const struct {
        std::string in, out;
    } kCases[] = {
        {bytes({0, 0, 3, 0}), bytes({0, 0, 0})},
        {bytes({0, 0, 3, 3}), bytes({0, 0, 3})},  // the count starts anew behind a dropped byte
        {bytes({0, 0, 3, 0, 0, 3, 1}), bytes({0, 0, 0, 0, 1})},
        {bytes({0, 0, 0, 3, 5}), bytes({0, 0, 0, 5})},
        {bytes({0, 0, 3}), bytes({0, 0})},  // cabac_zero_words end so
        {bytes({0, 3, 0, 3, 3}), bytes({0, 3, 0, 3, 3})},
        {bytes({0, 0, 4, 0, 0, 2}), bytes({0, 0, 4, 0, 0, 2})},
    };
    for (const auto& c : kCases) {
        for (const bool is_odd : {false, true}) {
            SCOPED_TRACE(testing::PrintToString(c.in) + (is_odd ? " at an odd address" : ""));
            const std::string head = bytes({0x65, 0x41, 0x42, 0x43});
            Reading f(head + c.in, is_odd);
            uint8_t nal_ref_idc = 0;
            EXPECT_EQ(nal_read_header(&f.reader, f.length, &nal_ref_idc, false), 5);
            EXPECT_EQ(nal_ref_idc, 3);
            EXPECT_EQ(f.unit(), head + c.out);
        }
    }
}

TEST(NalUnit, EscapedPayloadsReadBackAtBothAlignments) {
    std::mt19937 rng(2);
    for (int round = 0; round < 300; ++round) {
        std::string payload = bytes({0x65, 1, 2, 3});
        for (unsigned n = rng() % 60; n > 0; --n) payload.push_back(rng() % 3 ? 0 : rng() % 5);
        Reading f(escaped(payload), round % 2);
        uint8_t nal_ref_idc;
        nal_read_header(&f.reader, f.length, &nal_ref_idc, false);
        ASSERT_EQ(f.unit(), payload);
    }
}

// The first bytes are taken before the removal: three at an odd address, four at an even one.
TEST(NalUnit, TakesTheFirstBytesAsTheyStand) {
    static const struct {
        bool is_odd;
        std::string want;
    } kCases[] = {{false, bytes({0x67, 0, 0, 3, 9})}, {true, bytes({0x67, 0, 0, 7, 9})}};
    for (const auto& c : kCases) {
        Reading f(bytes({0x67, 0, 0, 3, 7, 9}), c.is_odd);
        uint8_t nal_ref_idc;
        EXPECT_EQ(nal_read_header(&f.reader, f.length, &nal_ref_idc, false), 7);
        EXPECT_EQ(f.unit(), c.want);
    }
}

TEST(NalUnit, FindsTheStartCodeWhenThereIsOne) {
    static const struct {
        std::string data;
        int type;
    } kCases[] = {
        {bytes({0, 0, 1, 0x68, 5}), kNalPps},
        {bytes({0, 0, 0, 0, 1, 0x41, 5}), kNalSlice},
        {bytes({0, 1, 0x68, 5}), kNalBadStartCode},
        {bytes({0, 0, 2, 0x68, 5}), kNalBadStartCode},
        {bytes({0, 0, 0, 0}), kNalBadStartCode},
        {bytes({0, 0, 1}), kNalBadStartCode},  // the end directly behind it
        {"", kNalPrefix},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(testing::PrintToString(c.data));
        Reading f(c.data);
        uint8_t nal_ref_idc = 0;
        EXPECT_EQ(nal_read_header(&f.reader, f.length, &nal_ref_idc, true), c.type);
    }
}

}  // namespace
