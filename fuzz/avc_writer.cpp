// SPDX-License-Identifier: BSD-2-Clause
#include "fuzz/avc_writer.h"

static std::string ue(uint32_t value) { return BitPacker().ue(value).bits(); }
static std::string se(int32_t value) { return BitPacker().se(value).bits(); }

// Signed values around 0, in order.
static std::string ses(Choices* c, uint32_t most, uint32_t count) {
    std::string codes;
    while (count-- > 0) codes += se(c->around(most));
    return codes;
}

// One unit in eight has a byte changed, which may be one of emulation prevention.
static std::string maybe_damaged(Choices* c, std::string unit) {
    if (c->once_in(8)) unit[c->flag() ? 0 : c->word() % unit.size()] = static_cast<char>(c->byte());
    return unit;
}

// Each absent, the default one, one that repeats its first entry, or whole.
static std::string scaling_lists(Choices* c, int count) {
    std::string lists;
    for (int i = 0; i < count; ++i) {
        const uint32_t kind = c->byte() % 4;
        const int first = static_cast<int>(c->byte() % 100);
        lists += kind != 0 ? "1" : "0";
        if (kind == 1) lists += se(-8);
        if (kind == 2) lists += se(first) + se(-8 - first);
        for (int left = kind != 3 ? 0 : i < 6 ? 16 : 64; left > 0; --left)
            lists += se(c->around(3));
    }
    return lists;
}

static std::string pic_order_fields(Choices* c, uint32_t type) {
    if (type == 0) return ue(c->rarely(8, 12));
    std::string fields = c->once_in(4) ? "0" : "1";  // delta_pic_order_always_zero_flag
    fields += ses(c, 9, 2);
    const uint32_t cycle = c->value(3);
    fields += ue(cycle) + ses(c, 9, cycle % 300);
    return type == 1 ? fields : "";
}

std::string write_sps(Choices* c, AvcSyntax* syntax) {
    static const uint8_t kProfiles[] = {100, 66, 77, 244, 118};
    SpsSpec s = {.profile_idc = kProfiles[c->byte() % 5], .id = c->rarely(8, 32)};
    s.chroma_format_idc = c->rarely(4, 3, 1);
    s.bit_depth_luma_minus8 = c->rarely(16, 6);
    s.bit_depth_chroma_minus8 = c->rarely(16, 6);
    s.lossless = c->once_in(16);
    if (c->once_in(4)) s.scaling = scaling_lists(c, 8);
    s.log2_max_frame_num_minus4 = c->rarely(8, 12);
    s.pic_order_cnt_type = c->rarely(4, 2, 2);
    s.pic_order_cnt = pic_order_fields(c, s.pic_order_cnt_type);
    s.width_mbs = 1 + c->value(7);
    s.height_mbs = 1 + c->value(7);
    s.frame_mbs_only_flag = !c->once_in(32);
    if (c->once_in(4)) s.crop = {c->value(8), c->value(8), c->value(8), c->value(8)};
    if (c->once_in(4)) s.vui = BitPacker().bytes(c->bytes(c->byte() % 40)).bits();
    syntax->sps = s;
    return maybe_damaged(c, sps_nal(s));
}

std::string write_pps(Choices* c, AvcSyntax* syntax) {
    PpsSpec s = {.id = c->rarely(4, 255), .sps_id = c->rarely(8, 32), .cabac = c->flag()};
    s.pic_order_present = c->once_in(16);
    s.num_slice_groups_minus1 = c->rarely(32, 7);
    s.refs_l0 = c->value(15);
    s.refs_l1 = c->value(15);
    s.weighted_bipred_idc = c->rarely(8, 3);
    s.pic_init_qp_minus26 = c->around(25);
    s.chroma_qp_index_offset = c->around(12);
    s.deblocking_control = !c->once_in(8);
    s.redundant_pic_cnt_present = c->once_in(8);
    if (syntax->sps.profile_idc >= 100) {
        s.extension = c->flag() ? "1" : "0";  // transform_8x8_mode_flag
        const bool has_lists = c->once_in(4);
        if (has_lists) s.extension += "1" + scaling_lists(c, s.extension == "1" ? 8 : 6);
        s.extension += (has_lists ? "" : "0") + se(c->around(12));
    }
    syntax->pps = s;
    return maybe_damaged(c, pps_nal(s));
}

// A CAVLC macroblock: samples, prediction alone, or with noise for residual.
static void write_macroblock(Choices* c, const AvcSyntax& syntax, BitPacker* data) {
    const uint32_t kind = c->byte() % 4;
    const uint32_t mb_type = c->rarely(kind < 2 ? 256 : 1, 25, kind == 1 ? 25 : 0);
    data->ue(mb_type);
    if (mb_type == 25) {
        data->align().bytes(c->bytes(384));
        return;
    }
    const bool may_be_8x8 = mb_type == 0 && syntax.pps.extension.starts_with('1');
    const bool is_8x8 = may_be_8x8 && c->flag();
    data->u(may_be_8x8, is_8x8);
    for (int i = mb_type != 0 ? 0 : is_8x8 ? 4 : 16; i > 0; --i) {
        c->once_in(4) ? data->u(4, c->byte() & 7) : data->u(1, 1);
    }
    data->ue(c->value(3));
    if (mb_type == 0) {
        const uint32_t coded_block_pattern = c->rarely(kind == 0 ? 256 : 1, 47, 3);
        data->ue(coded_block_pattern);
        if (coded_block_pattern == 3) return;
    }
    data->se(c->around(26)).bytes(c->bytes(c->byte() % 40));
}

std::string write_slice(Choices* c, AvcSyntax* syntax) {
    const PpsSpec& pps = syntax->pps;
    SliceSpec s = {.first_mb = c->once_in(8) ? c->value(63) : syntax->next_mb};
    s.slice_type = c->rarely(16, 9, 7);
    s.pps_id = c->rarely(8, 255);
    s.is_idr = !c->once_in(4);
    s.frame_num_bits = static_cast<int>((4 + syntax->sps.log2_max_frame_num_minus4) % 32);
    s.nal_ref_idc = s.is_idr || c->flag() ? 3 : 0;
    if (syntax->sps.pic_order_cnt_type == 0) s.pic_order_cnt = std::string(4, '0');
    if (pps.redundant_pic_cnt_present) s.redundant = ue(c->rarely(8, 1));
    if (!s.is_idr && c->flag()) {  // mostly by operations without operands
        s.marking = "1";
        for (uint32_t n = c->byte() % 80; n > 0; --n) s.marking += ue(c->rarely(16, 6, 5));
        s.marking += ue(0);
    }
    s.slice_qp_delta = c->around(26);
    if (pps.deblocking_control) {
        const uint32_t idc = c->value(2);
        s.deblocking = ue(idc);
        if (idc != 1) s.deblocking += ses(c, 6, 2);
    }
    BitPacker data = slice_header(s);
    const uint32_t count = 1 + c->byte() % 32;
    syntax->next_mb += count;
    if (pps.cabac) {
        data.align(1).bytes(c->payload() + '\x80');
    } else {
        for (uint32_t i = 0; i < count; ++i) write_macroblock(c, *syntax, &data);
        c->flag() ? data.trailing() : data.align().bytes(c->payload());
    }
    return maybe_damaged(c, slice_nal(s, data));
}

static const char kEndOfSequence[] = "\x0a\x80";

AvcStream write_avc_stream(Choices* c, int length_size) {
    AvcStream stream;
    AvcSyntax syntax;
    for (uint32_t i = c->once_in(4) ? 3 : 1; i > 0; --i) {
        stream.sps = write_sps(c, &syntax);
        stream.pps = write_pps(c, &syntax);
        stream.sets += with_length(stream.sps, 2) + with_length(stream.pps, 2);
    }
    for (uint32_t i = 1 + c->byte() % 4; i > 0; --i) {
        if (c->once_in(8)) stream.sample += with_length(write_sps(c, &syntax), length_size);
        if (c->once_in(8)) stream.sample += with_length(write_pps(c, &syntax), length_size);
        stream.sample += with_length(write_slice(c, &syntax), length_size);
        if (c->once_in(16)) stream.sample += with_length(kEndOfSequence, length_size);
    }
    if (c->once_in(16)) stream.sample.resize(c->word() % (stream.sample.size() + 1));
    return stream;
}
