// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/bit_reader.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "avcdec/nal_unit.h"
#include "tests/support/bit_packer.h"

// A block of exactly the given bytes, at an odd address if asked to, and a reader on it.
struct Reading {
    explicit Reading(std::string data, bool is_odd = false)
        : length(static_cast<uint32_t>(data.size())) {
        data.insert(0, is_odd, '\0');
        block.assign(data.begin(), data.end());
        bits_init(&reader, block.data() + is_odd, length);
    }
    // The bytes as nal_read_header leaves them.
    std::string unit() {
        uint8_t nal_ref_idc;
        nal_read_header(&reader, length, &nal_ref_idc, false);
        const uint8_t* const start = reader.start;
        return std::string(start, reader.end);
    }
    uint32_t length;
    std::vector<uint8_t> block;
    AvcBitReader reader;
};

static std::string bytes(std::initializer_list<int> values) {
    return std::string(values.begin(), values.end());
}

TEST(BitReader, ReadsCodesUpToTheirLimits) {
    const auto check = [&](const char* bits, uint32_t want) {
        Reading f(BitPacker(bits).str());
        EXPECT_EQ(bits_ue(&f.reader), want) << bits;
    };
    check("000000000000001 11111111111111", 32766);
    // All 15 zeros are taken, then 16 bits as they come.
    check("000000000000000 1000000000000000", 32767);
    check("000000000000000 0000000000000001", 0);
    check("000000000000000 0000000000000000", 0xffffffff);
    BitPacker packer;
    const int32_t values[] = {1, -1, 32766, 32767, -32767, 32768, 1 << 29, 0x7fffffff, -0x7fffffff};
    for (const int32_t v : values) packer.se(v);
    Reading f(packer.str());
    for (const int32_t v : values) EXPECT_EQ(bits_se_long(&f.reader), v);
}

TEST(BitReader, FindsTheEndOfTheData) {
    const auto check = [&](const char* bits, uint32_t position, int more, int overruns,
                           int trailing) {
        SCOPED_TRACE(std::string(bits) + " at " + std::to_string(position));
        Reading f(BitPacker(bits).str());
        bits_skip(&f.reader, position);
        int overrun = 0;
        EXPECT_EQ(bits_more_rbsp_data(&f.reader, &overrun), more);
        EXPECT_EQ(overrun, overruns);
        EXPECT_EQ(bits_trailing_check(&f.reader), trailing);
    };
    check("10110101 10000000", 8, 0, 0, 0);  // the stop bit in the last byte, nothing behind
    check("10110101 10000000", 7, 1, 0, 0);
    check("10110100", 6, 1, 0, 0);           // behind the stop bit: zeros are no stop bit
    check("10110100 00000000", 5, 1, 0, 1);  // zero bytes count as data
    check("1000 0000 00000000 00000000 00000000 00000001", 0, 1, 0, 1);  // three are looked at
    check("1000 0000 00000000 00000000 00000001", 0, 1, 0, 0);
    check("10110100", 8, 0, 1, 0);
}

TEST(NalUnit, RemovesEmulationPreventionAtBothAlignments) {
    const std::string in =
        bytes({0x67, 0, 0, 3, 7, 9});  // the first bytes are taken as they stand,
    EXPECT_EQ(Reading(in, false).unit(), bytes({0x67, 0, 0, 3, 9}));  // four at an even address
    EXPECT_EQ(Reading(in, true).unit(), bytes({0x67, 0, 0, 7, 9}));   // and three at an odd one
    std::mt19937 rng(2);
    for (int round = 0; round < 300; ++round) {
        std::string payload = bytes({0x65, 1, 2, 3});
        for (unsigned n = rng() % 60; n > 0; --n) payload.push_back(rng() % 3 ? 0 : rng() % 5);
        ASSERT_EQ(Reading(escaped(payload), round % 2).unit(), payload);
    }
}
