// SPDX-License-Identifier: BSD-2-Clause
// Whole key frames: which runs of NAL units give a picture, and what is in it.
#include "avcdec/decode_key_frame_avc.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "runtime/accounted_memory.h"
#include "tests/support/avc_builder.h"
#include "tests/support/cabac_packer.h"
#include "tests/support/failing_malloc.h"

namespace {

struct Decoded {
    int result;
    bool has_failed_allocation;
    DecodedPicture picture;
    std::string planes;  // of the picture; empty after a failure
};

std::unique_ptr<uint8_t[]> copy_of(const std::string& bytes) {
    std::unique_ptr<uint8_t[]> block(new uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), block.get());
    return block;
}

// Decodes from blocks of the exact size and checks that nothing is left behind. The decoder's n-th
// allocation fails.
Decoded decode(const std::string& sets, const std::string& sample, int length_size = 4,
               int failing_allocation = 0) {
    const std::unique_ptr<uint8_t[]> set_block = copy_of(sets);
    const std::unique_ptr<uint8_t[]> sample_block = copy_of(sample);
    AvcFrameRequest request = {};
    request.parameter_sets = set_block.get();
    request.parameter_sets_length = static_cast<uint32_t>(sets.size());
    request.sample = sample_block.get();
    request.sample_length = static_cast<uint32_t>(sample.size());
    request.nal_length_size = length_size;
    Decoded d = {};
    upnp_memory_init();
    fail_allocation(failing_allocation);
    d.result = DecodeKeyFrameAvc(&request, &d.picture);
    d.has_failed_allocation = has_allocation_failed();
    fail_allocation(0);
    if (d.result == 0) {
        const char* const planes = reinterpret_cast<const char*>(d.picture.planes);
        d.planes.assign(planes, d.picture.width * d.picture.height * 3 / 2);
    }
    if (d.picture.planes) upnp_free(d.picture.planes);
    EXPECT_EQ(g_memUsed, 0);
    upnp_memory_exit();
    return d;
}

std::string sample_of(const std::vector<std::string>& nals, int length_size = 4) {
    std::string sample;
    for (const std::string& nal : nals) sample += with_length(nal, length_size);
    return sample;
}

std::string nal(int type, const char* payload = "abc") {
    return nal_unit(0, type, BitPacker().bytes(payload));
}

const std::string kPcmA(384, 'a');
const std::string kPcmB(384, 'b');
const std::string kSets = parameter_set_run({sps_nal({.width_mbs = 2}), pps_nal({})});
const std::string kWhole = pcm_slice_nal({}, {kPcmA, kPcmB});
const std::string kFirst = pcm_slice_nal({}, {kPcmA});
const std::string kSecond = pcm_slice_nal({.first_mb = 1}, {kPcmB});

// The planes of two macroblocks beside each other.
std::string planes_of(char left, char right) {
    std::string planes;
    for (int i = 0; i < 16; ++i) planes += std::string(16, left) + std::string(16, right);
    for (int i = 0; i < 16; ++i) planes += std::string(8, left) + std::string(8, right);
    return planes;
}

TEST(DecodeKeyFrameAvc, FollowsTheRunOfNalUnits) {
    static const char kGrey = '\x80';
    static const std::string start = sample_of({kFirst});
    static const struct {
        const char* what;
        std::string sets, sample;
        std::string want;  // planes; empty: the decode fails
    } kCases[] = {
        {"one slice", kSets, sample_of({kWhole}), planes_of('a', 'b')},
        {"two slices", kSets, sample_of({kFirst, kSecond}), planes_of('a', 'b')},
        {"units that are passed over", kSets,
         sample_of({nal(9), nal(6), nal(12), kFirst, nal(0), nal(31), nal(13), nal(4), kSecond}),
         planes_of('a', 'b')},
        {"what follows the picture", kSets, sample_of({kWhole}) + "\xff\xff\xff\xff",
         planes_of('a', 'b')},
        {"a stray byte behind the sets", kSets + "x", sample_of({kWhole}), ""},
        {"sets that are cut", kSets.substr(0, kSets.size() - 1), sample_of({kWhole}), ""},
        {"a set of length 0", kSets + std::string(2, 0), sample_of({kWhole}), ""},
        {"sets in the sample", parameter_set_run({sps_nal({.width_mbs = 2})}),
         sample_of({pps_nal({}), kWhole}), planes_of('a', 'b')},
        {"no picture set", parameter_set_run({sps_nal({.width_mbs = 2})}), sample_of({kWhole}), ""},
        {"picture in the sets", kSets + with_length(kWhole, 2), "", planes_of('a', 'b')},
        {"no sample", kSets, "", ""},
        {"length 0", kSets, start + std::string(4, 0) + sample_of({kSecond}), ""},
        {"length 1", kSets, start + with_length("\x06", 4) + sample_of({kSecond}), ""},
        {"length past the end", kSets,
         sample_of({kFirst, kSecond + "y"}).substr(0, 2 * start.size()), ""},
        {"a cut length", kSets, start + std::string(3, 0), ""},
        {"length 2^32 - 1", kSets, std::string(4, '\xff') + kWhole, ""},
        {"first slice only", kSets, start, ""},
        {"first slice twice", kSets, sample_of({kFirst, kFirst, kSecond}), ""},
        {"slices in reverse", kSets, sample_of({kSecond, kFirst}), planes_of(kGrey, 'b')},
        {"end of sequence in the picture", kSets, sample_of({kFirst, nal(10), kSecond}),
         planes_of('a', kGrey)},
        {"end of stream in the picture", kSets, sample_of({kFirst, nal(11)}),
         planes_of('a', kGrey)},
        {"type 14 in the picture", kSets, sample_of({kFirst, nal(14)}), planes_of('a', kGrey)},
        {"end of sequence in front", kSets, sample_of({nal(10), nal(14), kWhole}),
         planes_of('a', 'b')},
        {"second set active",
         kSets + parameter_set_run(
                     {sps_nal({.id = 1, .width_mbs = 2}), pps_nal({.id = 1, .sps_id = 1})}),
         sample_of({pcm_slice_nal({.pps_id = 1}, {kPcmA, kPcmB})}), ""},
        {"set replaced by a larger one",
         kSets + parameter_set_run({sps_nal({.width_mbs = 2, .height_mbs = 9})}),
         sample_of({kWhole}), ""},
        {"samples missing", kSets, sample_of({kWhole.substr(0, kWhole.size() - 2)}), ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        const Decoded d = decode(c.sets, c.sample);
        EXPECT_EQ(d.result, c.want.empty() ? 1 : 0);
        EXPECT_TRUE(d.planes == c.want);
    }
}

// An Intra 16x16 macroblock without residual, predicted from the mean of what is there. Its luma DC
// block is coded, with no coefficients.
void add_flat_macroblock(BitPacker* p, const char* coeff_token = "1") {
    p->ue(3).ue(0).se(0).text(coeff_token);
}

TEST(DecodeKeyFrameAvc, ReadsLengthsOfOneByteAndPredictsGrey) {
    BitPacker data = slice_header({});
    for (int i = 0; i < 2; ++i) add_flat_macroblock(&data);
    const std::string slice = slice_nal({}, data.trailing());
    for (const int length_size : {1, 2, 4}) {
        const Decoded d = decode(kSets, sample_of({nal(6), slice}, length_size), length_size);
        EXPECT_TRUE(d.planes == planes_of('\x80', '\x80')) << length_size;
    }
}

TEST(DecodeKeyFrameAvc, PredictsOnlyWithinTheSlice) {
    BitPacker joined = slice_header({});
    add_pcm(&joined, kPcmA);
    add_flat_macroblock(&joined, "000011");  // I_PCM counts as 16 coefficients: nC is 16
    BitPacker apart = slice_header({.first_mb = 1});
    add_flat_macroblock(&apart);
    EXPECT_TRUE(decode(kSets, sample_of({slice_nal({}, joined.trailing())})).planes ==
                planes_of('a', 'a'));
    const std::string second = slice_nal({}, apart.trailing());
    EXPECT_TRUE(decode(kSets, sample_of({kFirst, second})).planes == planes_of('a', '\x80'));
}

TEST(DecodeKeyFrameAvc, MbTypesAbove25CountAsPcm) {
    BitPacker data = slice_header({});
    data.ue(26).align().bytes(kPcmB).ue(60000).align().bytes(kPcmA);
    EXPECT_TRUE(decode(kSets, sample_of({slice_nal({}, data.trailing())})).planes ==
                planes_of('b', 'a'));
}

TEST(DecodeKeyFrameAvc, MonochromePcmHasLumaOnly) {
    const std::string sets = parameter_set_run(
        {sps_nal(
             {.profile_idc = 100, .chroma_format_idc = 0, .width_mbs = 2, .crop = {1, 2, 3, 4}}),
         pps_nal({})});
    const std::string slice = pcm_slice_nal({}, {std::string(256, 'm'), std::string(256, 'm')});
    const Decoded d = decode(sets, sample_of({slice}));
    EXPECT_TRUE(d.planes == std::string(512, 'm') + std::string(256, '\x80'));
    EXPECT_EQ(d.picture.crop_left, 1U);  // in luma samples as coded
    EXPECT_EQ(d.picture.crop_bottom, 4U);
}

TEST(DecodeKeyFrameAvc, PcmInCabacRestartsTheEngine) {
    BitPacker data = slice_header({});
    CabacPacker packer(&data);
    uint8_t contexts[] = {cabac_initial_context(20, -15, 26), cabac_initial_context(2, 54, 26)};
    packer.decision(&contexts[0], 1);  // mb_type: not I_NxN, with no neighbour of that kind
    packer.terminate(1);               // I_PCM
    data.align().bytes(kPcmA);
    packer.start();
    packer.terminate(0);               // the slice goes on
    packer.decision(&contexts[1], 1);  // the neighbour to the left is not I_NxN
    packer.terminate(1);
    data.align().bytes(kPcmB);
    packer.start();
    packer.terminate(1);
    const std::string sets =
        parameter_set_run({sps_nal({.profile_idc = 77, .width_mbs = 2}), pps_nal({.cabac = 1})});
    EXPECT_TRUE(decode(sets, sample_of({slice_nal({}, data.align())})).planes ==
                planes_of('a', 'b'));
}

TEST(DecodeKeyFrameAvc, ReportsTheCropOfTheFirstSet) {
    const std::string sets =
        parameter_set_run({sps_nal({.width_mbs = 2, .crop = {0, 4, 0, 2}}), pps_nal({})});
    const std::string again = sps_nal({.width_mbs = 2, .crop = {1, 1, 1, 1}});
    const Decoded d = decode(sets, sample_of({again, kWhole}));
    EXPECT_EQ(d.picture.width, 32U);
    EXPECT_EQ(d.picture.height, 16U);
    EXPECT_EQ(d.picture.stride, 32U);
    EXPECT_EQ(d.picture.u_offset, 512U);
    EXPECT_EQ(d.picture.v_offset, 640U);
    EXPECT_EQ(d.picture.cropped, 1U);
    EXPECT_EQ(d.picture.crop_left, 0U);
    EXPECT_EQ(d.picture.crop_right, 8U);
    EXPECT_EQ(d.picture.crop_top, 0U);
    EXPECT_EQ(d.picture.crop_bottom, 4U);
}

TEST(DecodeKeyFrameAvc, SucceedsWithTheFirstAllocationThatDoesNotFail) {
    int n = 0;
    Decoded d;
    do {
        d = decode(kSets, sample_of({kWhole}), 4, ++n);
        ASSERT_EQ(d.result, d.has_failed_allocation ? 1 : 0) << n;
    } while (d.result != 0);
    EXPECT_GE(n, 5);  // the instance, two sets, the picture and the working arrays
    EXPECT_TRUE(d.planes == planes_of('a', 'b'));
}

TEST(DecodeKeyFrameAvc, AnySliceDataEndsTheSameWayTwice) {
    std::mt19937 rng(8);
    int pictures = 0;
    for (int round = 0; round < 1500; ++round) {
        const SpsSpec sps = {.profile_idc = 100,
                             .chroma_format_idc = round & 1U,
                             .width_mbs = static_cast<uint32_t>(1 + rng() % 4),
                             .height_mbs = static_cast<uint32_t>(1 + rng() % 4)};
        const PpsSpec pps = {.cabac = round >> 1 & 1U,
                             .deblocking_control = 0,
                             .extension = round & 4 ? "10 1" : "00 1"};
        BitPacker data = slice_header({.slice_qp_delta = static_cast<int32_t>(rng() % 60) - 30});
        if (pps.cabac) data.align(1);
        // Runs of equal bits get further than even ones in places.
        const unsigned odds = 2 + rng() % 6;
        for (unsigned i = rng() % 6000; i > 0; --i) data.u(1, rng() % odds == 0);
        const std::string sets = parameter_set_run({sps_nal(sps), pps_nal(pps)});
        const std::string sample = sample_of({slice_nal({}, data.trailing())});
        const Decoded first = decode(sets, sample);
        const Decoded second = decode(sets, sample);
        ASSERT_EQ(first.result, second.result);
        ASSERT_TRUE(first.planes == second.planes);
        pictures += first.result == 0;
    }
    EXPECT_GT(pictures, 50);  // some get through to the last macroblock
}

}  // namespace
