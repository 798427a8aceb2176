// SPDX-License-Identifier: BSD-2-Clause
// Parameter sets and slice headers: what is taken, what is refused, and what is kept.
#include "avcdec/parameter_sets.h"

#include <gtest/gtest.h>

#include "tests/avcdec/decoder_fixture.h"
#include "tests/support/avc_builder.h"

namespace {

class ParameterSets : public DecoderFixture {};

std::string ue_text(uint32_t value) {
    const BitPacker p = BitPacker().ue(value);
    std::string text;
    for (size_t i = 0; i < p.size(); ++i) text += p.str()[i / 8] >> (7 - i % 8) & 1 ? '1' : '0';
    return text;
}

TEST_F(ParameterSets, TakesOrRefusesASequenceSet) {
    const std::string list16 = "1" + ue_text(0) + std::string(15, '1');  // flat 8
    const std::string refs = ue_text(256);
    static const struct {
        const char* what;
        SpsSpec spec;
        uint32_t error;
    } kCases[] = {
        {"baseline", {}, 0},
        {"highest id", {.id = 31}, 0},
        {"id too high", {.id = 32}, kAvcBadSps},
        {"monochrome", {.profile_idc = 100, .chroma_format_idc = 0}, 0},
        {"4:2:2", {.profile_idc = 122, .chroma_format_idc = 2}, kAvcBadSps},
        {"4:4:4", {.profile_idc = 244, .chroma_format_idc = 3}, kAvcBadSps},
        {"10 bits of luma", {.profile_idc = 110, .bit_depth_luma_minus8 = 2}, kAvcBadSps},
        {"10 bits of chroma", {.profile_idc = 110, .bit_depth_chroma_minus8 = 2}, kAvcBadSps},
        {"lossless", {.profile_idc = 244, .lossless = 1}, kAvcBadSps},
        {"scaling lists", {.profile_idc = 100, .scaling = list16 + "0000000"}, 0},
        {"highest frame number bits", {.log2_max_frame_num_minus4 = 12}, 0},
        {"too many frame number bits", {.log2_max_frame_num_minus4 = 13}, kAvcBadSps},
        {"order count type 0", {.pic_order_cnt_type = 0, .pic_order_cnt = ue_text(12)}, 0},
        {"too many order count bits",
         {.pic_order_cnt_type = 0, .pic_order_cnt = ue_text(13)},
         kAvcBadSps},
        {"order count type 1",
         {.pic_order_cnt_type = 1,
          .pic_order_cnt = "1" + ue_text(4) + ue_text(0) + ue_text(2) + ue_text(7) + ue_text(8)},
         0},
        {"order count cycle of 256",
         {.pic_order_cnt_type = 1, .pic_order_cnt = "111" + refs + std::string(256, '1')},
         kAvcBadSps},
        {"order count type 3", {.pic_order_cnt_type = 3}, kAvcBadSps},
        {"interlaced", {.frame_mbs_only_flag = 0}, kAvcBadSps},
        {"65520 samples wide", {.width_mbs = 4095}, 0},
        {"65536 samples wide", {.width_mbs = 4096}, kAvcBadSps},
        {"65536 samples high", {.height_mbs = 4096}, kAvcBadSps},
        {"4096x4080", {.width_mbs = 256, .height_mbs = 255}, 0},
        {"4096x4096", {.width_mbs = 256, .height_mbs = 256}, kAvcBadSps},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(feed(sps_nal(c.spec)), c.error);
        EXPECT_EQ(out.events, c.error ? 0U : kAvcEventSps);
        EXPECT_NE(out.consumed, 0U);
        if (c.error) continue;
        EXPECT_EQ(info().sps_id, c.spec.id);
        EXPECT_EQ(info().width, c.spec.width_mbs * 16);
        EXPECT_EQ(info().height, c.spec.height_mbs * 16);
        EXPECT_EQ(info().chroma_format, c.spec.chroma_format_idc);
    }
}

TEST_F(ParameterSets, KnowsTheProfilesThatCodeTheChromaFormat) {
    // The same bits: a chroma format of 0 and then 8 bits in two flags' places, or other fields.
    for (const uint32_t profile : {100, 110, 122, 244, 44, 83, 86, 118, 144}) {
        SCOPED_TRACE(profile);
        BitPacker p;
        p.u(8, profile).u(16, 30).ue(0).ue(0).ue(0).ue(0).u(2, 0);
        p.ue(0).ue(2).ue(1).u(1, 0).ue(4).ue(6).text("1100").trailing();
        EXPECT_EQ(feed(nal_unit(3, 7, p)), 0U);
        EXPECT_EQ(info().chroma_format, 0U);
        EXPECT_EQ(info().width, 80U);
    }
    for (const uint32_t profile : {66, 77, 88, 101, 128}) {
        SCOPED_TRACE(profile);
        BitPacker p;
        p.u(8, profile).u(16, 30).ue(0).ue(0).ue(2).ue(1).u(1, 0).ue(4).ue(6).text("1100");
        EXPECT_EQ(feed(nal_unit(3, 7, p.trailing())), 0U);
        EXPECT_EQ(info().chroma_format, 1U);
        EXPECT_EQ(info().width, 80U);
    }
}

TEST_F(ParameterSets, ReadsOverEveryOptionalVuiField) {
    const std::string hrd = ue_text(1) + "00010010" + ue_text(70000) + ue_text(0xfffffffe) + "1" +
                            ue_text(5) + ue_text(6) + "0" + std::string(20, '0');
    const std::string vui = "1 11111111" + std::string(32, '1') +  // extended aspect ratio
                            "11" + "1 010 1 1" + std::string(24, '0') + "1" + ue_text(2) +
                            ue_text(3) + "1" + std::string(65, '1') + "1" + hrd + "1" + hrd +
                            "0 1 1 1" + ue_text(1) + ue_text(2) + ue_text(16) + ue_text(16) +
                            ue_text(0);
    // The last field tells whether all before it were passed at their length: with it the unit
    // ends.
    BitPacker whole(vui.c_str());
    EXPECT_EQ(feed(sps_nal({.crop = {1, 2, 3, 4}, .vui = vui + ue_text(4)})), 0U);
    EXPECT_FALSE(bits_overrun(&decoder->bits));
    const AvcBitReader& r = decoder->bits;
    EXPECT_EQ(bits_position(&r), static_cast<size_t>(r.end - r.start) * 8);
    EXPECT_EQ(info().cropped, 1U);
    EXPECT_EQ(info().crop_left, 1U);
    EXPECT_EQ(info().crop_right, 2U);
    EXPECT_EQ(info().crop_top, 3U);
    EXPECT_EQ(info().crop_bottom, 4U);
}

TEST_F(ParameterSets, TakesOrRefusesAPictureSet) {
    static const struct {
        const char* what;
        PpsSpec spec;
        uint32_t error;
    } kCases[] = {
        {"plain", {}, 0},
        {"highest ids", {.id = 255, .sps_id = 31}, 0},
        {"id too high", {.id = 256}, kAvcBadPps},
        {"sequence id too high", {.sps_id = 32}, kAvcBadPps},
        {"slice groups", {.num_slice_groups_minus1 = 1}, kAvcBadPps},
        {"16 references", {.refs_l0 = 15, .refs_l1 = 15}, 0},
        {"17 references", {.refs_l0 = 16}, kAvcBadPps},
        {"17 references in list 1", {.refs_l1 = 16}, kAvcBadPps},
        {"weighting 3", {.weighted_bipred_idc = 3}, kAvcBadPps},
        {"QP 0", {.pic_init_qp_minus26 = -26}, 0},
        {"QP 51", {.pic_init_qp_minus26 = 25}, 0},
        {"QP 52", {.pic_init_qp_minus26 = 26}, kAvcBadPps},
        {"QP -1", {.pic_init_qp_minus26 = -27}, kAvcBadPps},
        {"chroma offset -12", {.chroma_qp_index_offset = -12}, 0},
        {"chroma offset 13", {.chroma_qp_index_offset = 13}, kAvcBadPps},
        {"chroma offset -13", {.chroma_qp_index_offset = -13}, kAvcBadPps},
        {"second offset 13", {.extension = "00" + ue_text(25)}, kAvcBadPps},
        {"second offset -12", {.extension = "00" + ue_text(24)}, 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(feed(pps_nal(c.spec)), c.error);
    }
}

TEST_F(ParameterSets, LooksForThePictureSetExtensionWhereItCanBe) {
    const std::string second = ue_text(9);  // 5
    static const struct {
        const char* what;
        uint32_t sps_id;  // 0 is not stored, 1 is Baseline, 2 is High
        PpsSpec spec;
        int transform, second_offset;
    } kCases[] = {
        {"unknown sequence set", 0, {.extension = "10" + second}, 1, 5},
        {"no high profile", 1, {.chroma_qp_index_offset = 2, .extension = "10" + second}, 0, 2},
        {"high profile", 2, {.chroma_qp_index_offset = 2, .extension = "10" + second}, 1, 5},
        {"none", 2, {.chroma_qp_index_offset = -3}, 0, -3},
        {"a zero byte behind", 2, {.chroma_qp_index_offset = 4, .behind = {0}}, 0, 4},
        {"three zero bytes behind",
         2,
         {.chroma_qp_index_offset = 4, .behind = std::string(3, 0)},
         0,
         4},
        {"extension and zero bytes", 2, {.extension = "10" + second, .behind = {0}}, 1, 5},
        {"one list of six",
         2,
         {.extension = "01 1" + std::string(16, '1') + "00000" + second},
         0,
         5},
    };
    feed(sps_nal({.id = 1}));
    feed(sps_nal({.profile_idc = 100, .id = 2}));
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        PpsSpec spec = c.spec;
        spec.sps_id = c.sps_id;
        EXPECT_EQ(feed(pps_nal(spec)), 0U);
        const AvcPps* const pps = decoder->pps_table[0];
        EXPECT_EQ(pps->transform_8x8_mode_flag, c.transform);
        EXPECT_EQ(pps->second_chroma_qp_index_offset, c.second_offset);
    }
}

TEST_F(ParameterSets, ScalingListsRepeatWhatIsNotSent) {
    static const struct {
        const char* what;
        std::vector<int> deltas;
        int result;
        std::vector<int> start;  // of the list; its last entry goes on to the end
    } kCases[] = {
        {"default", {-8}, 1, {}},
        {"constant", std::vector<int>(16, 0), 0, {8}},
        {"cut short", {2, -3, 4, -11}, 0, {10, 7, 11}},
        {"wraps", {-9, 2, 127, 127}, 0, {255, 1, 128, 255}},
        {"zero at the second entry", {1, -9}, 0, {9}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        BitPacker p;
        for (const int delta : c.deltas) p.se(delta);
        p.text(std::string(64, '1'));  // deltas of 0
        std::string data = p.str();
        AvcBitReader r;
        bits_init(&r, reinterpret_cast<uint8_t*>(data.data()), static_cast<uint32_t>(data.size()));
        uint8_t list[16];
        std::fill(list, list + 16, 77);
        EXPECT_EQ(avc_parse_scaling_list(&r, list, 16), c.result);
        for (size_t i = 0; i < 16; ++i) {
            const int want = c.start.empty() ? 77 : c.start[std::min(i, c.start.size() - 1)];
            EXPECT_EQ(list[i], want) << i;
        }
    }
}

TEST_F(ParameterSets, AFailedSetLeavesTheStoredOneAlone) {
    feed(sps_nal({.width_mbs = 3}));
    feed(pps_nal({.pic_init_qp_minus26 = 4}));
    EXPECT_EQ(feed(sps_nal({.width_mbs = 5, .frame_mbs_only_flag = 0})), kAvcBadSps);
    EXPECT_EQ(feed(pps_nal({.pic_init_qp_minus26 = 9, .chroma_qp_index_offset = 13})), kAvcBadPps);
    EXPECT_EQ(info(0).width, 48U);
    EXPECT_EQ(decoder->pps_table[0]->pic_init_qp, 30);
}

TEST_F(ParameterSets, TheActiveSequenceSetKeepsItsSize) {
    feed(sps_nal({.width_mbs = 2, .height_mbs = 2}));
    feed(pps_nal({}));
    stride = 32;
    EXPECT_EQ(feed(pcm_slice_nal({}, {std::string(384, 'a')})), 0U);
    EXPECT_EQ(feed(sps_nal({.width_mbs = 2, .height_mbs = 3})), kAvcBadSps);
    EXPECT_EQ(info(0).height, 32U);
    EXPECT_EQ(feed(sps_nal({.width_mbs = 2, .height_mbs = 2, .crop = {0, 1, 0, 0}})), 0U);
    EXPECT_EQ(info(0).crop_right, 1U);
    EXPECT_EQ(feed(sps_nal({.id = 1, .width_mbs = 9})), 0U);  // another id is free to differ
}

TEST_F(ParameterSets, TakesOrRefusesASliceHeader) {
    static const struct {
        const char* what;
        SliceSpec spec;
        uint32_t error;
    } kCases[] = {
        {"IDR, all slices I", {}, 0},
        {"I", {.slice_type = 2}, 0},
        {"not IDR", {.is_idr = false}, 0},
        {"not IDR and no reference", {.is_idr = false, .nal_ref_idc = 0}, 0},
        {"IDR and no reference", {.nal_ref_idc = 0}, kAvcBadSliceHeader},
        {"P", {.slice_type = 0}, kAvcBadSliceHeader},
        {"B", {.slice_type = 6}, kAvcBadSliceHeader},
        {"SI", {.slice_type = 4}, kAvcBadSliceHeader},
        {"type 12, which is I and 10", {.slice_type = 12}, kAvcBadSliceHeader},
        {"unknown picture set", {.pps_id = 9}, kAvcBadSliceHeader},
        {"picture set without a sequence set", {.pps_id = 1}, kAvcBadSliceHeader},
        {"picture set id 256", {.pps_id = 256}, kAvcBadSliceHeader},
        {"first macroblock behind the picture", {.first_mb = 1}, kAvcBadSliceHeader},
        {"redundant picture", {.pps_id = 2, .redundant = ue_text(1)}, kAvcBadSliceHeader},
        {"primary picture", {.pps_id = 2, .redundant = ue_text(0)}, 0},
        {"marking operations",
         {.is_idr = false,
          .marking = "1" + ue_text(1) + ue_text(3) + ue_text(3) + ue_text(1) + ue_text(7) +
                     ue_text(5) + ue_text(4) + ue_text(0) + ue_text(0)},
         0},
        {"marking operation 7", {.is_idr = false, .marking = "1" + ue_text(7)}, kAvcBadSliceHeader},
        {"34 marking operations",
         {.is_idr = false, .marking = "1" + std::string(34 * 5, '0')},
         kAvcBadSliceHeader},
        {"no deblocking", {.pps_id = 3, .deblocking = ue_text(1)}, 0},
        {"deblocking 3", {.pps_id = 3, .deblocking = ue_text(3)}, kAvcBadSliceHeader},
        {"offsets -6 and 6", {.pps_id = 3, .deblocking = "1" + ue_text(12) + ue_text(11)}, 0},
        {"offset A 7", {.pps_id = 3, .deblocking = "1" + ue_text(13) + "1"}, kAvcBadSliceHeader},
        {"offset A -7", {.pps_id = 3, .deblocking = "1" + ue_text(14) + "1"}, kAvcBadSliceHeader},
        {"offset B 7", {.pps_id = 3, .deblocking = "1 1" + ue_text(13)}, kAvcBadSliceHeader},
        {"offset B -7", {.pps_id = 3, .deblocking = "1 1" + ue_text(14)}, kAvcBadSliceHeader},
        {"slice QP 26 + 100", {.slice_qp_delta = 100}, 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        feed(sps_nal({}));
        feed(pps_nal({}));
        feed(pps_nal({.id = 1, .sps_id = 7}));
        feed(pps_nal({.id = 2, .redundant_pic_cnt_present = 1}));
        feed(pps_nal({.id = 3, .deblocking_control = 1}));
        EXPECT_EQ(feed(pcm_slice_nal(c.spec, {std::string(384, 'x')})), c.error);
        EXPECT_EQ((out.events & kAvcEventPictureComplete) != 0, c.error == 0);
        EXPECT_EQ((out.events & kAvcEventIdr) != 0, c.spec.is_idr);
    }
}

TEST_F(ParameterSets, ReadsTheOrderCountOfEachType) {
    static const struct {
        const char* what;
        SpsSpec sps;
        uint32_t present;
        std::string fields;
    } kCases[] = {
        {"type 0", {.pic_order_cnt_type = 0, .pic_order_cnt = ue_text(3)}, 0, "1010101"},
        {"type 0 and bottom",
         {.pic_order_cnt_type = 0, .pic_order_cnt = ue_text(3)},
         1,
         "1010101" + ue_text(70000)},
        {"type 1", {.pic_order_cnt_type = 1, .pic_order_cnt = "0111"}, 0, ue_text(100000)},
        {"type 1, both",
         {.pic_order_cnt_type = 1, .pic_order_cnt = "0111"},
         1,
         ue_text(100000) + ue_text(3)},
        {"type 1, always zero", {.pic_order_cnt_type = 1, .pic_order_cnt = "1111"}, 1, ""},
        {"type 2", {.pic_order_cnt_type = 2}, 1, ""},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        feed(sps_nal(c.sps));
        feed(pps_nal({.pic_order_present = c.present}));
        std::fill(target, target + 384, 0);
        EXPECT_EQ(feed(pcm_slice_nal({.pic_order_cnt = c.fields}, {std::string(384, 'p')})), 0U);
        EXPECT_EQ(target[0], 'p');
        EXPECT_EQ(target[383], 'p');
    }
}

}  // namespace
