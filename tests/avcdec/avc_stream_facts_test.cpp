// SPDX-License-Identifier: BSD-2-Clause
// What is told of streams, decodable or not.
#include "avcdec/avc_stream_facts.h"

#include <gtest/gtest.h>

#include <vector>

#include "runtime/accounted_memory.h"
#include "tests/support/avc_builder.h"

static AvcStreamFacts facts_of(const std::string& run) {
    const std::vector<uint8_t> block(run.begin(), run.end());
    upnp_memory_init();
    const AvcStreamFacts facts =
        avc_look_at_sets(block.data(), static_cast<uint32_t>(block.size()));
    EXPECT_EQ(g_memUsed, 0);
    upnp_memory_exit();
    EXPECT_EQ(block, std::vector<uint8_t>(run.begin(), run.end()));
    return facts;
}

static std::string set(const std::string& nal) { return with_length(nal, 2); }

TEST(AvcStreamFacts, AreReadBehindWhatIsRefused) {
    // Every list of 4:4:4 but the last is default.
    std::string lists;
    for (int i = 0; i < 11; ++i) lists += "1 000010001";
    // The size is 4 x 6 macroblocks less the crop.
    const std::vector<uint32_t> crop = {1, 2, 3, 4}, wide = {65534, 65534, 0, 0};
    const SpsSpec monochrome = {.profile_idc = 100, .chroma_format_idc = 0, .crop = crop};
    const SpsSpec high_422 = {
        .profile_idc = 122, .chroma_format_idc = 2, .bit_depth_luma_minus8 = 2, .crop = crop};
    const SpsSpec high_444 = {
        .profile_idc = 244, .chroma_format_idc = 3, .scaling = lists + "0", .crop = crop};
    const auto check = [](SpsSpec sps, AvcRefusal reason, uint32_t width, uint32_t height,
                          uint32_t depth, int line = __builtin_LINE()) {
        SCOPED_TRACE(line);
        sps.width_mbs = 4;
        sps.height_mbs = 6;
        const AvcStreamFacts facts = facts_of(set(sps_nal(sps)) + set(sps_nal({.id = 1})));
        EXPECT_TRUE(facts.has_sequence_set);
        EXPECT_EQ(facts.refused.reason, reason);
        EXPECT_EQ(facts.width, width);
        EXPECT_EQ(facts.height, height);
        EXPECT_EQ(facts.bit_depth_luma, depth);
        EXPECT_EQ(facts.profile_idc, sps.profile_idc);
    };
    check({.crop = crop}, AvcRefusal::kNone, 58, 82, 8);
    check(monochrome, AvcRefusal::kNone, 61, 89, 8);
    check(high_422, AvcRefusal::kChromaFormat, 58, 89, 10);
    check(high_444, AvcRefusal::kChromaFormat, 61, 89, 8);
    check({.frame_mbs_only_flag = 0, .crop = crop}, AvcRefusal::kInterlaced, 58, 164, 8);
    check({.crop = wide}, AvcRefusal::kNone, 0, 96, 8);
    const AvcStreamFacts large = facts_of(set(sps_nal({.width_mbs = 4096, .height_mbs = 4096})));
    EXPECT_EQ(large.refused.reason, AvcRefusal::kTooManyMacroblocks);
    EXPECT_EQ(large.width, 65536U);
    EXPECT_EQ(
        facts_of(set(sps_nal({})) + set(pps_nal({.num_slice_groups_minus1 = 1}))).refused.reason,
        AvcRefusal::kSliceGroups);
}

TEST(AvcStreamFacts, EndWhereTheRunDoes) {
    const std::string run = set(sps_nal({})) + set(pps_nal({}));
    const size_t whole = run.find(pps_nal({})) - 2;
    for (size_t length = 0; length <= run.size(); ++length) {
        EXPECT_EQ(facts_of(run.substr(0, length)).has_sequence_set, length >= whole) << length;
    }
    EXPECT_FALSE(facts_of(set(sps_nal({}).substr(0, 4))).has_sequence_set);
}
