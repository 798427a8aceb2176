// SPDX-License-Identifier: BSD-2-Clause
// Whole key frames: which runs of NAL units give a picture, and what is in it.
#include "avcdec/decode_key_frame_avc.h"

#include <gtest/gtest.h>

#include <vector>

#include "runtime/accounted_memory.h"
#include "tests/support/avc_builder.h"
#include "tests/support/failing_malloc.h"

namespace {

struct Decoded {
    int result;
    bool has_failed_allocation;
    DecodedPicture picture;
    std::string planes;  // of the picture; empty after a failure
};

// Decodes from blocks of the exact size and checks that nothing is left behind. The decoder's n-th
// allocation fails.
Decoded decode(const std::string& sets, const std::string& sample, int length_size = 4,
               int failing_allocation = 0) {
    std::vector<uint8_t> set_block(sets.begin(), sets.end());
    std::vector<uint8_t> sample_block(sample.begin(), sample.end());
    AvcFrameRequest request = {};
    request.parameter_sets = set_block.data();
    request.parameter_sets_length = static_cast<uint32_t>(sets.size());
    request.sample = sample_block.data();
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

std::string run_of(const std::vector<std::string>& nals, int length_size = 4) {
    std::string run;
    for (const std::string& nal : nals) run += with_length(nal, length_size);
    return run;
}

std::string sets_of(const SpsSpec& sps, const PpsSpec& pps = {}) {
    return run_of({sps_nal(sps), pps_nal(pps)}, 2);
}

std::string nal(int type) { return nal_unit(0, type, BitPacker("10101010")); }

const std::string kPcmA(384, 'a'), kPcmB(384, 'b');
const std::string kSets = sets_of({.width_mbs = 2});
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
    static const std::string ab = planes_of('a', 'b'), a = planes_of('a', '\x80');
    static const std::string sps = run_of({sps_nal({.width_mbs = 2})}, 2);
    static const std::string start = run_of({kFirst}), whole = run_of({kWhole});
    static const std::string larger = run_of({sps_nal({.width_mbs = 2, .height_mbs = 9})}, 2);
    static const struct {
        const char* what;
        std::string sets, sample;
        std::string want;  // planes; empty: the decode fails
    } kCases[] = {
        {"two slices", kSets, run_of({nal(9), nal(6), nal(12), kFirst, nal(31), kSecond}), ab},
        {"what follows the picture", kSets, whole + "\xff\xff\xff\xff", ab},
        {"a stray byte behind the sets", kSets + "x", whole, ""},
        {"a set of length 0", kSets + std::string(2, 0), whole, ""},
        {"a set in the sample", sps, run_of({pps_nal({}), kWhole}), ab},
        {"picture in the sets", kSets + with_length(kWhole, 2), "", ab},
        {"length 0", kSets, start + std::string(4, 0) + run_of({kSecond}), ""},
        {"length 1", kSets, start + run_of({"\x06", kSecond}), ""},
        {"length past the end", kSets, start + with_length(kSecond + "y", 4).erase(4, 1), ""},
        {"a cut length", kSets, start + std::string(3, 0), ""},
        {"length 2^32 - 1", kSets, std::string(4, '\xff') + kWhole, ""},
        {"first slice only", kSets, start, ""},
        {"first slice twice", kSets, run_of({kFirst, kFirst, kSecond}), ""},
        {"slices in reverse", kSets, run_of({kSecond, kFirst}), planes_of('\x80', 'b')},
        {"end of sequence in the picture", kSets, run_of({kFirst, nal(10), kSecond}), a},
        {"type 14 in the picture", kSets, run_of({nal(10), kFirst, nal(14)}), a},
        {"set replaced by a larger one", kSets + larger, whole, ""},
        {"samples missing", kSets, run_of({kWhole.substr(0, kWhole.size() - 2)}), ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        const Decoded d = decode(c.sets, c.sample);
        EXPECT_EQ(d.result, c.want.empty() ? 1 : 0);
        EXPECT_TRUE(d.planes == c.want);
    }
}

// An Intra 16x16 macroblock without residual, predicted from the mean of what is there, whose luma
// DC block is coded without coefficients.
TEST(DecodeKeyFrameAvc, PredictsOnlyWithinTheSlice) {
    // Behind I_PCM, which counts as 16 coefficients, nC is 16.
    const auto add_flat = [](BitPacker p, const char* coeff_token) {
        return p.ue(3).ue(0).se(0).text(coeff_token);
    };
    const BitPacker pcm = slice_header({}).ue(25).align().bytes(kPcmA);
    const std::string joined = slice_nal({}, add_flat(pcm, "000011").trailing());
    EXPECT_TRUE(decode(kSets, run_of({joined})).planes == planes_of('a', 'a'));
    const std::string apart =
        slice_nal({}, add_flat(slice_header({.first_mb = 1}), "1").trailing());
    EXPECT_TRUE(decode(kSets, run_of({kFirst, apart})).planes == planes_of('a', '\x80'));
    const BitPacker left = add_flat(slice_header({}), "1");
    for (const int size : {1, 2}) {
        const std::string run = run_of({slice_nal({}, add_flat(left, "1").trailing())}, size);
        EXPECT_TRUE(decode(kSets, run, size).planes == planes_of('\x80', '\x80')) << size;
    }
}

TEST(DecodeKeyFrameAvc, TakesPcmInEveryForm) {
    BitPacker cavlc = slice_header({});  // mb_type above 25 counts as I_PCM
    cavlc.ue(26).align().bytes(kPcmB).ue(60000).align().bytes(kPcmA);
    EXPECT_TRUE(decode(kSets, run_of({slice_nal({}, cavlc.trailing())})).planes ==
                planes_of('b', 'a'));

    BitPacker cabac = slice_header({}).align(1);  // the engine starts anew behind each macroblock
    cabac.text("1111111011111").align().bytes(kPcmA);
    cabac.text("1111110111").align().bytes(kPcmB).text("111111101").align();
    EXPECT_TRUE(decode(sets_of({.profile_idc = 77, .width_mbs = 2}, {.cabac = 1}),
                       run_of({slice_nal({}, cabac)}))
                    .planes == planes_of('a', 'b'));

    // Monochrome has luma only.
    const std::string sets =
        sets_of({.profile_idc = 100, .chroma_format_idc = 0, .width_mbs = 2, .crop = {1, 2, 3, 4}});
    const std::string luma(256, 'm');
    const Decoded d = decode(sets, run_of({pcm_slice_nal({}, {luma, luma})}));
    EXPECT_TRUE(d.planes == luma + luma + std::string(256, '\x80'));
    EXPECT_EQ(d.picture.crop_left, 1U);  // in luma samples as coded
}

TEST(DecodeKeyFrameAvc, ReportsTheCropOfTheFirstSet) {
    const std::string again = sps_nal({.width_mbs = 2, .crop = {1, 1, 1, 1}});
    const Decoded d =
        decode(sets_of({.width_mbs = 2, .crop = {0, 4, 0, 2}}), run_of({again, kWhole}));
    const DecodedPicture& p = d.picture;
    EXPECT_EQ(
        (std::vector<uint32_t>{p.cropped, p.crop_left, p.crop_right, p.crop_top, p.crop_bottom}),
        (std::vector<uint32_t>{1, 0, 8, 0, 4}));
}

TEST(DecodeKeyFrameAvc, SucceedsWithTheFirstAllocationThatDoesNotFail) {
    int n = 0;
    Decoded d;
    do {
        d = decode(kSets, run_of({kWhole}), 4, ++n);
        ASSERT_EQ(d.result, d.has_failed_allocation ? 1 : 0) << n;
    } while (d.result != 0);
    EXPECT_GE(n, 5);  // the instance, two sets, the picture and the working arrays
}

}  // namespace
