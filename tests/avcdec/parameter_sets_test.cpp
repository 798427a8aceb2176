// SPDX-License-Identifier: BSD-2-Clause
// Parameter sets and slice headers: what is taken, what is refused, and what is kept.
#include "avcdec/parameter_sets.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "avcdec/avc_decoder.h"
#include "avcdec/avc_instance.h"
#include "runtime/accounted_memory.h"
#include "tests/support/avc_builder.h"

namespace {

// A decoder with a target for square pictures of up to 4 macroblocks, fed one NAL unit at a time.
class ParameterSets : public testing::Test {
 protected:
    ParameterSets() {
        upnp_memory_init();
        const AvcDecoderOptions options = {};
        AvcCreateResult created;
        avcdec_create(&options, &created);
        decoder = created.decoder;
    }
    ~ParameterSets() override {
        avcdec_destroy(decoder);
        EXPECT_EQ(g_memUsed, 0);
        upnp_memory_exit();
    }

    // The error of a unit in a block of its exact size.
    uint32_t feed(const std::string& nal) {
        std::vector<uint8_t> block(nal.begin(), nal.end());
        AvcDecodeInput in = {};
        in.decoder = decoder;
        in.nal = block.data();
        in.nal_length = static_cast<uint32_t>(nal.size());
        in.target = target;
        in.target_size = stride * stride * 3 / 2;
        in.stride = stride;
        in.target_sps_id = target_sps_id;
        avcdec_decode_nal(&in, &out);
        return out.error;
    }
    AvcStreamInfo info(uint32_t sps_id = kAvcLastSps) {
        AvcStreamInfo result;
        avcdec_get_stream_info(decoder, &result, sps_id);
        return result;
    }

    AvcDecoder* decoder;
    AvcDecodeOutput out;
    uint32_t stride = 16;
    int32_t target_sps_id = 0;
    uint8_t target[4 * 384];
};

std::string ue(uint32_t value) { return BitPacker().ue(value).bits(); }

TEST_F(ParameterSets, HandsOutWhatTheStreamSaysOfShowingIt) {
    const std::string rest = "0 0 0 0 0 0";  // chroma location to bitstream restriction
    const struct {
        std::string vui;
        int pixel_width, pixel_height, matrix, full_range;
    } kCases[] = {
        {"", 0, 0, 0, 0},
        {"0 0 0 " + rest, 0, 0, 0, 0},
        {"1 00001110 0 0 " + rest, 4, 3, 0, 0},
        {"1 00010001 0 0 " + rest, 0, 0, 0, 0},
        {"1 11111111 0000000100000000 0000000000000011 1 1 0 " + rest, 256, 3, 0, 0},
        {"0 0 1 101 1 0 " + rest, 0, 0, 0, 1},
        {"0 0 1 101 0 1 00000001 00000001 00001001 " + rest, 0, 0, 9, 0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.vui);
        ASSERT_EQ(feed(sps_nal({.vui = c.vui})), 0u);
        const StreamPresentation p = info().presentation;
        EXPECT_EQ(p.pixel_width, c.pixel_width);
        EXPECT_EQ(p.pixel_height, c.pixel_height);
        EXPECT_EQ(p.matrix_coefficients, c.matrix);
        EXPECT_EQ(p.full_range, c.full_range);
    }
}

TEST_F(ParameterSets, TakesOrRefusesASet) {
    const std::string cycle = "1" + ue(4) + ue(0) + ue(2) + ue(7) + ue(8);
    const std::string cycle_of_256 = "111" + ue(256) + std::string(256, '1');
    const std::pair<bool, std::string> kCases[] = {
        {true, sps_nal({.id = 31})},
        {false, sps_nal({.id = 32})},
        {true, sps_nal({.profile_idc = 144, .chroma_format_idc = 0})},
        {false, sps_nal({.profile_idc = 110, .bit_depth_chroma_minus8 = 2})},
        {true, sps_nal({.log2_max_frame_num_minus4 = 65534})},
        {true, sps_nal({.pic_order_cnt_type = 0, .pic_order_cnt = ue(65534)})},
        {true, sps_nal({.pic_order_cnt_type = 1, .pic_order_cnt = cycle})},
        {false, sps_nal({.pic_order_cnt_type = 1, .pic_order_cnt = cycle_of_256})},
        {false, sps_nal({.pic_order_cnt_type = 3})},
        {true, sps_nal({.width_mbs = 4096, .height_mbs = 65535})},
        {true, pps_nal({.id = 255, .sps_id = 31})},
        {false, pps_nal({.id = 256})},
        {false, pps_nal({.sps_id = 32})},
        {false, pps_nal({.refs_l0 = 16})},
        {false, pps_nal({.weighted_bipred_idc = 3})},
        {false, pps_nal({.pic_init_qp_minus26 = 26})},
        {false, pps_nal({.pic_init_qp_minus26 = -27})},
        {true, pps_nal({.chroma_qp_index_offset = -12})},
        {false, pps_nal({.chroma_qp_index_offset = 13})},
        {false, pps_nal({.sps_id = 9, .extension = "00" + ue(25)})},
    };
    for (const auto& c : kCases) EXPECT_EQ(feed(c.second) == 0, c.first) << &c - kCases;
}

// A set that no slice can use is stored all the same.
TEST_F(ParameterSets, SizesAndLongNumbersAreRefusedAtActivation) {
    const std::pair<bool, SpsSpec> kCases[] = {
        {false, {.log2_max_frame_num_minus4 = 13}},
        {true, {.log2_max_frame_num_minus4 = 12}},
        {false, {.pic_order_cnt_type = 0, .pic_order_cnt = ue(13)}},
        {true, {.pic_order_cnt_type = 0, .pic_order_cnt = ue(12)}},
        {false, {.width_mbs = 4096}},
        {true, {.width_mbs = 256, .height_mbs = 255}},
        {false, {.width_mbs = 256, .height_mbs = 256}},
        {false, {.width_mbs = 1, .height_mbs = 65535}},
    };
    feed(pps_nal({}));
    for (const auto& [is_usable, spec] : kCases) {
        SCOPED_TRACE(&spec - &kCases[0].second);
        EXPECT_EQ(feed(sps_nal({})) | avc_activate_pps(decoder, 0), 0U);
        EXPECT_EQ(feed(pps_nal({.id = 1, .sps_id = 1})), 0U);
        SpsSpec other = spec;
        other.id = 1;
        EXPECT_EQ(feed(sps_nal(other)), 0U);
        EXPECT_EQ(avc_activate_pps(decoder, 1), !is_usable);
    }
}

TEST_F(ParameterSets, TakesOrRefusesASliceHeader) {
    static const std::string operations =
        "1" + ue(1) + ue(3) + ue(3) + ue(1) + ue(7) + ue(5) + ue(4) + ue(0) + ue(0);
    const std::pair<bool, SliceSpec> kCases[] = {
        {true, {.slice_type = 2, .slice_qp_delta = 100}},
        {false, {.nal_ref_idc = 0}},  // IDR and no reference
        {false, {.slice_type = 12}},  // I and 10
        {false, {.pps_id = 1}},       // without a sequence set
        {false, {.first_mb = 1}},     // behind the picture
        {false, {.pps_id = 2, .redundant = ue(1)}},
        {true, {.is_idr = false, .marking = operations}},
        {false, {.is_idr = false, .marking = "1" + ue(7)}},
        {false, {.is_idr = false, .marking = "1" + std::string(34 * 5, '0')}},  // 34 operations
        {false, {.pps_id = 3, .deblocking = ue(3) + "11"}},
        {true, {.pps_id = 3, .deblocking = "1" + ue(12) + ue(11)}},  // -6 and 6
        {false, {.pps_id = 3, .deblocking = "1" + ue(13) + "1"}},
        {false, {.pps_id = 3, .deblocking = "1 1" + ue(14)}},
        {false, {.pps_id = 3, .deblocking = "1 1" + ue(13)}},
        {true, {.pps_id = 4, .pic_order_cnt = "1010101" + ue(70000)}},
        {true, {.pps_id = 5, .pic_order_cnt = ue(100000) + ue(3)}},
    };
    feed(sps_nal({}));
    feed(sps_nal({.id = 1, .pic_order_cnt_type = 0, .pic_order_cnt = ue(3)}));
    feed(sps_nal({.id = 2, .pic_order_cnt_type = 1, .pic_order_cnt = "0111"}));
    feed(pps_nal({}));
    feed(pps_nal({.id = 1, .sps_id = 7}));
    feed(pps_nal({.id = 2, .redundant_pic_cnt_present = 1}));
    feed(pps_nal({.id = 3, .deblocking_control = 1}));
    feed(pps_nal({.id = 4, .sps_id = 1, .pic_order_present = 1}));
    feed(pps_nal({.id = 5, .sps_id = 2, .pic_order_present = 1}));
    for (const auto& [is_taken, spec] : kCases) {
        SCOPED_TRACE(testing::PrintToString(spec.pps_id) + spec.deblocking + spec.marking);
        target_sps_id = spec.pps_id == 4 ? 1 : spec.pps_id == 5 ? 2 : 0;
        target[383] = 0;
        feed(pcm_slice_nal(spec, {std::string(384, 'x')}));
        EXPECT_EQ(out.error, is_taken ? 0U : uint32_t{kAvcBadSliceHeader});
        EXPECT_EQ(target[383], is_taken ? 'x' : 0);
    }
}

}  // namespace
