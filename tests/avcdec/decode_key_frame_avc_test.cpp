// SPDX-License-Identifier: BSD-2-Clause
// Whole key frames: which runs of NAL units give a picture, and what is in it.
#include "avcdec/decode_key_frame_avc.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <tuple>
#include <vector>

#include "runtime/accounted_memory.h"
#include "tests/support/avc_builder.h"

struct Decoded {
    int result;
    AvcRefused refused;
    DecodedPicture picture;
    std::string planes;  // of the picture; empty after a failure
};

// Decodes from blocks of the exact size and checks that nothing is left behind.
static Decoded decode(const std::string& sets, const std::string& sample, int length_size = 4,
                      bool allows_more_formats = false) {
    std::vector<uint8_t> set_block(sets.begin(), sets.end());
    std::vector<uint8_t> sample_block(sample.begin(), sample.end());
    Decoded d = {};
    AvcFrameRequest request = {set_block.data(),
                               static_cast<uint32_t>(sets.size()),
                               sample_block.data(),
                               static_cast<uint32_t>(sample.size()),
                               length_size,
                               allows_more_formats,
                               false,
                               &d.refused};
    upnp_memory_init();
    d.result = DecodeKeyFrameAvc(&request, &d.picture);
    if (d.result == 0) {
        const char* const planes = reinterpret_cast<const char*>(d.picture.planes);
        d.planes.assign(planes, d.picture.width * d.picture.height * 3 / 2);
    }
    if (d.picture.planes) upnp_free(d.picture.planes);
    EXPECT_EQ(d.refused ? 1 : 0, d.result);
    EXPECT_EQ(g_memUsed, 0);
    upnp_memory_exit();
    return d;
}

static std::string run_of(const std::vector<std::string>& nals, int length_size = 4) {
    std::string run;
    for (const std::string& nal : nals) run += with_length(nal, length_size);
    return run;
}

static std::string sets_of(const SpsSpec& sps, const PpsSpec& pps = {}) {
    return run_of({sps_nal(sps), pps_nal(pps)}, 2);
}

static std::string ue(uint32_t value) { return BitPacker().ue(value).bits(); }

static std::string nal(int type) { return nal_unit(0, type, BitPacker("10101010")); }

const std::string kPcmA(384, 'a'), kPcmB(384, 'b');
const std::string kSets = sets_of({.width_mbs = 2});
const std::string kWhole = pcm_slice_nal({}, {kPcmA, kPcmB});
const std::string kFirst = pcm_slice_nal({}, {kPcmA});
const std::string kSecond = pcm_slice_nal({.first_mb = 1}, {kPcmB});

// The planes of two macroblocks beside each other.
static std::string planes_of(char left, char right) {
    std::string planes;
    for (int i = 0; i < 16; ++i) planes += std::string(16, left) + std::string(16, right);
    for (int i = 0; i < 16; ++i) planes += std::string(8, left) + std::string(8, right);
    return planes;
}

TEST(DecodeKeyFrameAvc, FollowsTheRunOfNalUnits) {
    static const std::string ab = planes_of('a', 'b'), a = planes_of('a', '\x80');
    static const std::string cut = ab.substr(0, ab.size() - 1) + '\0';
    static const std::string sps = run_of({sps_nal({.width_mbs = 2})}, 2);
    static const std::string start = run_of({kFirst}), whole = run_of({kWhole});
    // Unused sets that cannot be decoded, and one that could, but for its log2_max_frame_num.
    static const std::string odd =
        run_of({sps_nal({.id = 1, .width_mbs = 4096}), sps_nal({.id = 2, .height_mbs = 65535}),
                sps_nal({.id = 3, .pic_order_cnt_type = 0, .pic_order_cnt = "0001110"})},
               2);
    static const std::string long_number =
        run_of({sps_nal({.log2_max_frame_num_minus4 = 13, .width_mbs = 2})}, 2);
    static const std::string pps = run_of({pps_nal({})}, 2);
    const auto check = [&](const char* what, const std::string& sets, const std::string& sample,
                           const std::string& want) {
        SCOPED_TRACE(what);
        EXPECT_TRUE(decode(sets, sample).planes == want);
    };
    check("two slices", kSets, run_of({nal(9), nal(6), nal(12), kFirst, nal(31), kSecond}), ab);
    check("what follows the picture", kSets, whole + "\xff\xff\xff\xff", ab);
    check("a set in the sample", sps, run_of({pps_nal({}), kWhole}), ab);
    check("picture in the sets", kSets + with_length(kWhole, 2), "", ab);
    check("the last samples cut off", kSets, run_of({kWhole.substr(0, kWhole.size() - 2)}), cut);
    check("slices in reverse", kSets, run_of({kSecond, kFirst}), planes_of('\x80', 'b'));
    check("end of sequence in the picture", kSets, run_of({kFirst, nal(10), kSecond}), a);
    check("type 14 in the picture", kSets, run_of({nal(10), kFirst, nal(14)}), a);
    check("unused sets without sense", sps + odd + pps, whole, ab);
    check("a set with a long number, replaced", long_number + sps + pps, whole, ab);
}

TEST(DecodeKeyFrameAvc, RefusalsCarryTheirReason) {
    using enum AvcRefusal;
    static const std::string start = run_of({kFirst}), whole = run_of({kWhole});
    static const std::string pps = run_of({pps_nal({})}, 2);
    const auto sets = [](const SpsSpec& spec) { return sets_of(spec) + pps; };
    const auto slice = [](const SliceSpec& spec) { return run_of({pcm_slice_nal(spec, {kPcmA})}); };
    const std::string two_sets =
        kSets + run_of({sps_nal({.id = 1, .width_mbs = 2}), pps_nal({.id = 1, .sps_id = 1})}, 2);
    const std::string no_token =
        slice_nal({}, slice_header({}).text("00100 1 1 1 00100 1 1").u(17, 1).trailing());
    std::set<AvcRefusal> seen = {kNone, kNoMemory};
    // These are found in front of the decoder.
    seen.insert({kNoConfiguration, kNalLengthSize, kSampleTooShort});
    const auto refuse = [&](AvcRefusal reason, uint32_t value, const std::string& set_run,
                            const std::string& sample, int line = __builtin_LINE()) {
        SCOPED_TRACE(line);
        const Decoded d = decode(set_run, sample);
        EXPECT_EQ(d.refused.reason, reason);
        EXPECT_EQ(d.refused.value, value);
        seen.insert(reason);
    };
    refuse(kParameterSetRun, 0, kSets + "x", whole);
    refuse(kParameterSetRun, 0, kSets + std::string(2, 0), whole);
    refuse(kSampleRun, 0, kSets, start + std::string(4, 0) + run_of({kSecond}));
    refuse(kSampleRun, 0, kSets, start + run_of({"\x06", kSecond}));
    refuse(kSampleRun, 0, kSets, start + with_length(kSecond + "y", 4).erase(4, 1));
    refuse(kSampleRun, 0, kSets, start + std::string(3, 0));
    refuse(kSampleRun, 0, kSets, std::string(4, '\xff') + kWhole);
    refuse(kChromaFormat, 2, sets({.profile_idc = 122, .chroma_format_idc = 2}), whole);
    refuse(kChromaFormat, 3, sets({.profile_idc = 244, .chroma_format_idc = 3}), whole);
    refuse(kBitDepth, 10, sets({.profile_idc = 110, .bit_depth_luma_minus8 = 2}), whole);
    refuse(kBitDepth, 9, sets({.profile_idc = 110, .bit_depth_chroma_minus8 = 1}), whole);
    refuse(kLossless, 0, sets({.profile_idc = 244, .lossless = 1}), whole);
    refuse(kInterlaced, 0, sets({.frame_mbs_only_flag = 0}), whole);
    refuse(kTooManyMacroblocks, 0, sets({.width_mbs = 4098}), whole);
    refuse(kTooManyMacroblocks, 0, sets({.width_mbs = 256, .height_mbs = 256}), whole);
    refuse(kSlicesMissing, 0, sets({.width_mbs = 256, .height_mbs = 255}), start);
    refuse(kSequenceSet, 0, sets({.id = 32}), whole);
    refuse(kSequenceSet, 0, sets({.log2_max_frame_num_minus4 = 13}), whole);
    refuse(kSequenceSet, 0, sets({.pic_order_cnt_type = 0, .pic_order_cnt = ue(13)}), whole);
    refuse(kSliceGroups, 0, sets_of({}, {.num_slice_groups_minus1 = 1}), whole);
    refuse(kPictureSet, 0, sets_of({}, {.pic_init_qp_minus26 = 26}), whole);
    refuse(kNoSequenceSet, 0, pps, whole);
    refuse(kNoPictureSet, 9, kSets, slice({.pps_id = 9}));
    refuse(kOtherSequenceSet, 1, two_sets, slice({.pps_id = 1}));
    refuse(kPictureSize, 0, kSets + sets({.width_mbs = 2, .height_mbs = 9}), whole);
    refuse(kPictureSize, 0, kSets, run_of({sps_nal({.width_mbs = 1}), kFirst}));
    refuse(kPredictedSlice, 0, kSets, slice({.slice_type = 5}));
    refuse(kPredictedSlice, 1, kSets, slice({.slice_type = 1}));
    refuse(kSwitchingSlice, 4, kSets, slice({.slice_type = 4}));
    refuse(kIdrWithoutReference, 0, kSets, slice({.nal_ref_idc = 0}));
    refuse(kRedundantSlice, 0, sets_of({}, {.redundant_pic_cnt_present = 1}),
           slice({.redundant = "010"}));
    refuse(kSliceHeader, 0, kSets, slice({.first_mb = 2}));
    refuse(kSliceOverlap, 0, kSets, run_of({kFirst, kFirst, kSecond}));
    refuse(kSliceData, 0, kSets, run_of({no_token}));
    refuse(kSliceCutOff, 0, kSets, run_of({kWhole.substr(0, 300)}));
    refuse(kNoSlice, 0, kSets, run_of({nal(6)}));
    refuse(kSlicesMissing, 0, kSets, start);
    EXPECT_EQ(seen.size(), static_cast<size_t>(kAvcLastRefusal) + 1);
}

// In the sample, in front of a picture that does not use it.
TEST(DecodeKeyFrameAvc, TakesOrRefusesASet) {
    const std::string cycle = "1" + ue(4) + ue(0) + ue(2) + ue(7) + ue(8);
    const std::string cycle_of_256 = "111" + ue(256) + std::string(256, '1');
    const auto check = [](bool is_taken, const std::string& set) {
        EXPECT_EQ(decode(kSets, run_of({set, kWhole})).result == 0, is_taken)
            << testing::PrintToString(set);
    };
    check(true, sps_nal({.id = 31}));
    check(false, sps_nal({.id = 32}));
    check(true, sps_nal({.profile_idc = 144, .id = 1, .chroma_format_idc = 0}));
    check(false, sps_nal({.profile_idc = 110, .id = 1, .bit_depth_chroma_minus8 = 2}));
    check(true, sps_nal({.id = 1, .log2_max_frame_num_minus4 = 65534}));
    check(true, sps_nal({.id = 1, .pic_order_cnt_type = 0, .pic_order_cnt = ue(65534)}));
    check(true, sps_nal({.id = 1, .pic_order_cnt_type = 1, .pic_order_cnt = cycle}));
    check(false, sps_nal({.id = 1, .pic_order_cnt_type = 1, .pic_order_cnt = cycle_of_256}));
    check(false, sps_nal({.id = 1, .pic_order_cnt_type = 3}));
    check(true, sps_nal({.id = 1, .width_mbs = 4096, .height_mbs = 65535}));
    check(true, pps_nal({.id = 255, .sps_id = 31}));
    check(false, pps_nal({.id = 256}));
    check(false, pps_nal({.id = 1, .sps_id = 32}));
    check(false, pps_nal({.id = 1, .refs_l0 = 16}));
    check(false, pps_nal({.id = 1, .weighted_bipred_idc = 3}));
    check(false, pps_nal({.id = 1, .pic_init_qp_minus26 = -27}));
    check(true, pps_nal({.id = 1, .chroma_qp_index_offset = -12}));
    check(false, pps_nal({.id = 1, .chroma_qp_index_offset = 13}));
    check(false, pps_nal({.id = 1, .sps_id = 9, .extension = "00" + ue(25)}));
}

TEST(DecodeKeyFrameAvc, TakesOrRefusesASliceHeader) {
    static const std::string operations =
        "1" + ue(1) + ue(3) + ue(3) + ue(1) + ue(7) + ue(5) + ue(4) + ue(0) + ue(0);
    const PpsSpec edges = {.deblocking_control = 1}, order = {.pic_order_present = 1};
    const auto check = [](bool is_taken, const SliceSpec& slice, const PpsSpec& pps = {},
                          const SpsSpec& sps = {}, int line = __builtin_LINE()) {
        const Decoded d = decode(sets_of(sps, pps), run_of({pcm_slice_nal(slice, {kPcmA})}));
        EXPECT_EQ(d.planes, is_taken ? kPcmA : "") << line;
    };
    check(true, {.slice_type = 2, .slice_qp_delta = 100});
    check(false, {.slice_type = 12});  // I and 10
    check(false, {.redundant = ue(1)}, {.redundant_pic_cnt_present = 1});
    check(true, {.is_idr = false, .marking = operations});
    check(false, {.is_idr = false, .marking = "1" + ue(7)});
    check(false, {.is_idr = false, .marking = "1" + std::string(34 * 5, '0')});  // 34 operations
    check(false, {.deblocking = ue(3) + "11"}, edges);
    check(true, {.deblocking = "1" + ue(12) + ue(11)}, edges);  // -6 and 6
    check(false, {.deblocking = "1" + ue(13) + "1"}, edges);
    check(false, {.deblocking = "1 1" + ue(14)}, edges);
    check(false, {.deblocking = "1 1" + ue(13)}, edges);
    check(true, {.frame_num_bits = 16}, {}, {.log2_max_frame_num_minus4 = 12});
    check(true, {.pic_order_cnt = std::string(16, '1')}, {},
          {.pic_order_cnt_type = 0, .pic_order_cnt = ue(12)});
    check(true, {.pic_order_cnt = "1010101" + ue(70000)}, order,
          {.pic_order_cnt_type = 0, .pic_order_cnt = ue(3)});
    check(true, {.pic_order_cnt = ue(100000) + ue(3)}, order,
          {.pic_order_cnt_type = 1, .pic_order_cnt = "0111"});
}

TEST(DecodeKeyFrameAvc, HandsOutWhatTheStreamSaysOfShowingIt) {
    const std::string rest = "0 0 0 0 0 0";  // chroma location to bitstream restriction
    const auto check = [](const std::string& vui, const StreamPresentation& want) {
        const Decoded d = decode(sets_of({.vui = vui}), run_of({kFirst}));
        EXPECT_EQ(memcmp(&d.picture.presentation, &want, sizeof want), 0) << vui;
    };
    check("", {0, 0, 0, 0});
    check("0 0 0 " + rest, {0, 0, 0, 0});
    check("1 00001110 0 0 " + rest, {4, 3, 0, 0});
    check("1 00010001 0 0 " + rest, {0, 0, 0, 0});
    check("1 11111111 0000000100000000 0000000000000011 1 1 0 " + rest, {256, 3, 0, 0});
    check("0 0 1 101 1 0 " + rest, {0, 0, 0, 1});
    check("0 0 1 101 0 1 00000001 00000001 00001001 " + rest, {0, 0, 9, 0});
}

TEST(DecodeKeyFrameAvc, TakesFramesOfInterlacedStreamsIfAllowed) {
    const SpsSpec interlaced = {.frame_mbs_only_flag = 0, .crop = {0, 1, 1, 2}};
    const std::string frame = run_of({pcm_slice_nal({.field = "0"}, {kPcmA, kPcmB})});
    const Decoded d = decode(sets_of(interlaced), frame, 4, true);
    EXPECT_EQ(d.planes, std::string(256, 'a') + std::string(256, 'b') + std::string(64, 'a') +
                            std::string(64, 'b') + std::string(64, 'a') + std::string(64, 'b'));
    EXPECT_EQ(d.picture.crop_top, 4u);
    EXPECT_EQ(d.picture.crop_bottom, 8u);
    EXPECT_EQ(d.picture.crop_right, 2u);
    const SpsSpec pairs = {.frame_mbs_only_flag = 0, .mb_adaptive = 1};
    EXPECT_EQ(decode(sets_of(pairs), frame, 4, true).refused.reason, AvcRefusal::kInterlaced);
}

TEST(DecodeKeyFrameAvc, FillsTheLinesBetweenThoseOfAField) {
    const SpsSpec interlaced = {.frame_mbs_only_flag = 0, .mb_adaptive = 1};
    std::string pcm;  // line y of luma is 10 * y, that of chroma 20 * y
    for (int y = 0; y < 16; ++y) pcm += std::string(16, static_cast<char>(10 * y));
    for (int y = 0; y < 16; ++y) pcm += std::string(8, static_cast<char>(20 * (y % 8)));
    const auto decode_field = [&](const std::vector<std::string>& slices) {
        return decode(sets_of(interlaced), run_of(slices), 4, true);
    };
    for (int is_bottom = 0; is_bottom < 2; ++is_bottom) {
        std::string expected;
        for (const auto& [height, step] : {std::pair(32, 5), {16, 10}, {16, 10}}) {
            for (int y = 0; y < height; ++y) {
                const int value = std::clamp(y - is_bottom, 0, height - 2) * step;
                expected += std::string(static_cast<size_t>(height / 2), static_cast<char>(value));
            }
        }
        const char* const field = is_bottom ? "11" : "10";
        EXPECT_EQ(decode_field({pcm_slice_nal({.field = field}, {pcm})}).planes, expected);
        const std::string behind = pcm_slice_nal({.first_mb = 1, .field = field}, {pcm});
        EXPECT_EQ(decode_field({behind}).refused.reason, AvcRefusal::kSliceHeader);
    }
}

TEST(DecodeKeyFrameAvc, RefusesSlicesOfTheOtherFieldOrTheFrameInAField) {
    const std::string sets = sets_of({.width_mbs = 2, .frame_mbs_only_flag = 0});
    for (const char* other : {"11", "0"}) {
        const std::string second = pcm_slice_nal({.first_mb = 1, .field = other}, {kPcmA});
        const std::string run = run_of({pcm_slice_nal({.field = "10"}, {kPcmA}), second});
        EXPECT_EQ(decode(sets, run, 4, true).refused.reason, AvcRefusal::kSliceOverlap);
    }
}

// Adds an Intra 16x16 macroblock, predicted from the mean of what is there. Its luma DC block is
// coded without coefficients, or with one that adds 14 to all samples at QP 51.
static BitPacker& add_flat(BitPacker&& data, const char* luma_dc) {
    return data.ue(3).ue(0).se(0).text(luma_dc);
}
const char kNone[] = "1", kNoneBehindPcm[] = "000011", kPlus14[] = "01 0 1";

static std::string flat_slice(const SliceSpec& spec, const std::vector<const char*>& macroblocks) {
    BitPacker data = slice_header(spec);
    for (const char* const luma_dc : macroblocks) add_flat(std::move(data), luma_dc);
    return slice_nal(spec, data.trailing());
}

TEST(DecodeKeyFrameAvc, PredictsOnlyWithinTheSlice) {
    // I_PCM counts as 16 coefficients.
    BitPacker data = slice_header({}).ue(25).align().bytes(kPcmA);
    const std::string joined = slice_nal({}, add_flat(std::move(data), kNoneBehindPcm).trailing());
    EXPECT_TRUE(decode(kSets, run_of({joined})).planes == planes_of('a', 'a'));
    const std::string apart = flat_slice({.first_mb = 1}, {kNone});
    EXPECT_TRUE(decode(kSets, run_of({kFirst, apart})).planes == planes_of('a', '\x80'));
    for (const int size : {1, 2}) {
        const std::string run = run_of({flat_slice({}, {kNone, kNone})}, size);
        EXPECT_TRUE(decode(kSets, run, size).planes == planes_of('\x80', '\x80')) << size;
    }
}

TEST(DecodeKeyFrameAvc, FiltersEdgesAsTheSliceSays) {
    // disable_deblocking_filter_idc and the offsets behind it, whether each of the two macroblocks
    // is a slice, and whether the edge between them is filtered.
    static const std::tuple<const char*, bool, bool> kCases[] = {
        {"1 11", false, true}, {"010", false, false}, {"011 11", false, true},
        {"1 11", true, true},  {"010", true, false},  {"011 11", true, false}};
    for (const auto& [deblocking, is_apart, is_filtered] : kCases) {
        for (const uint32_t width : {1, 2}) {
            SCOPED_TRACE(testing::Message() << deblocking << is_apart << width);
            SliceSpec spec = {.slice_qp_delta = 25, .deblocking = deblocking};
            std::string run = run_of({flat_slice(spec, {kPlus14, kPlus14})});
            if (is_apart) run = run_of({flat_slice(spec, {kPlus14})});
            spec.first_mb = 1;
            if (is_apart) run += run_of({flat_slice(spec, {kNone})});
            const SpsSpec sps = {.width_mbs = width, .height_mbs = 3 - width};
            const Decoded d = decode(sets_of(sps, {.deblocking_control = 1}), run);
            ASSERT_EQ(d.result, 0);
            EXPECT_EQ(d.planes[width == 1 ? 15 * 16 : 15] != '\x8e', is_filtered);
        }
    }
}

TEST(DecodeKeyFrameAvc, SlicesScaleByTheirOwnParameterSets) {
    // The second set doubles all luma weights.
    const std::string doubled = "0 1  1 00000110000" + std::string(15, '1') + " 00000  1";
    const SpsSpec sps = {.profile_idc = 100, .width_mbs = 3};
    const std::string sets =
        run_of({sps_nal(sps), pps_nal({}), pps_nal({.id = 1, .extension = doubled})}, 2);
    std::string run;
    for (const uint32_t mb : {0, 1, 2}) {
        const SliceSpec spec = {.first_mb = mb, .pps_id = mb % 2, .slice_qp_delta = 25};
        run += run_of({flat_slice(spec, {kPlus14})});
    }
    const Decoded d = decode(sets, run);
    ASSERT_EQ(d.result, 0);
    EXPECT_EQ((std::string{d.planes[8], d.planes[24], d.planes[40]}), "\x8e\x9c\x8e");
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

    // codIOffset 511, with which no stream begins: a slice that was overwritten with ones.
    const BitPacker ones = slice_header({}).align(1).bytes(std::string(400, '\xff'));
    const PpsSpec at_qp_20 = {.cabac = 1, .pic_init_qp_minus26 = -6};
    EXPECT_TRUE(
        decode(sets_of({.profile_idc = 77}, at_qp_20), run_of({slice_nal({}, ones)})).planes ==
        std::string(384, '\xff'));

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
