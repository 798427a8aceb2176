// SPDX-License-Identifier: BSD-2-Clause
#include "fuzz/avc_writer.h"

#include "fuzz/chosen_bits.h"

// Escapes most units; one whose emulation bytes are missing is a stream, too.
static std::string nal_unit(Choices* c, uint32_t header, const std::string& rbsp) {
    const std::string unit = static_cast<char>(header) + rbsp;
    return c->once_in(16) ? unit : escaped(unit);
}

// Each absent, the default one, one that repeats its first entry, or whole.
static void write_scaling_lists(ChosenBits* w, int count) {
    for (int i = 0; i < count; ++i) {
        const uint32_t kind = w->c->byte() % 4;
        const int first = static_cast<int>(w->c->byte() % 100);
        w->u(1, kind != 0);
        if (kind == 1) w->se(-8);
        if (kind == 2) w->se(first).se(-8 - first);
        if (kind == 3) w->any_se(3, i < 6 ? 16 : 64);
    }
}

std::string write_sps(Choices* c, AvcSyntax* syntax) {
    static const uint8_t kProfiles[] = {100, 66, 77, 244, 83};
    ChosenBits w(c);
    const uint32_t profile = kProfiles[c->byte() % 5];
    syntax->is_high_profile = profile != 66 && profile != 77;
    w.u(8, profile).u(16, c->byte());
    w.ue_rarely(8, 32);
    if (syntax->is_high_profile) {
        w.ue_rarely(4, 3, 1);
        w.ue_rarely(16, 6);  // bits of samples
        w.ue_rarely(16, 6);
        w.flag(16);
        if (w.flag(4)) write_scaling_lists(&w, 8);
    }
    syntax->frame_num_bits = 4 + w.ue_rarely(8, 12);
    const uint32_t order_type = w.ue_rarely(4, 2);
    syntax->order_bits = order_type == 0 ? 4 + w.ue_rarely(8, 12) : 0;
    if (order_type == 1) {
        w.u(1, !c->once_in(4));  // delta_pic_order_always_zero_flag
        w.any_se(9, 2);
        w.any_se(9, static_cast<int>(w.any_ue(3) % 300));
    }
    w.any_ue(16);
    w.flag();
    w.any_ue(7, 2);  // width, height
    w.u(1, !c->once_in(32)).u(1, 1);
    if (w.flag(4)) w.any_ue(8, 4);  // cropping
    if (w.flag(4)) w.noise();       // usability information
    return nal_unit(c, 0x67, w.trailing().str());
}

std::string write_pps(Choices* c, AvcSyntax* syntax) {
    ChosenBits w(c);
    w.ue_rarely(4, 255);
    w.ue_rarely(8, 32);
    syntax->is_cabac = w.flag();
    w.flag(16);
    w.ue_rarely(32, 7);
    w.any_ue(15, 2);
    w.u(3, c->byte() % 6);
    w.any_se(25, 2);
    w.any_se(12);
    syntax->has_deblocking = !c->once_in(8);
    w.u(1, syntax->has_deblocking);
    w.u(2, c->once_in(8) ? c->byte() : 0);
    syntax->has_8x8 = false;
    if (syntax->is_high_profile) {
        syntax->has_8x8 = w.flag();
        if (w.flag(4)) write_scaling_lists(&w, syntax->has_8x8 ? 8 : 6);
        w.any_se(12);
    }
    return nal_unit(c, 0x68, w.trailing().str());
}

// A CAVLC macroblock: samples, prediction alone, or with noise for residual.
static void write_macroblock(ChosenBits* w, const AvcSyntax& syntax) {
    const uint32_t kind = w->c->byte() % 4;
    const uint32_t mb_type = w->ue_rarely(kind < 2 ? 256 : 1, 25, kind == 1 ? 25 : 0);
    if (mb_type == 25) {
        w->align().bytes(w->c->bytes(384));
        return;
    }
    const int modes = mb_type != 0 ? 0 : syntax.has_8x8 && w->flag() ? 4 : 16;
    for (int i = 0; i < modes; ++i) {
        const bool is_coded = w->c->once_in(4);
        w->u(1, !is_coded);
        if (is_coded) w->any(3);
    }
    w->any_ue(3);
    if (mb_type == 0 && w->ue_rarely(kind == 0 ? 256 : 1, 47, 3) == 3) return;
    w->any_se(26);
    w->noise();
}

std::string write_slice(Choices* c, AvcSyntax* syntax) {
    const uint32_t header = c->once_in(8) ? c->byte() : c->once_in(4) ? 0x61 : 0x65;
    const bool is_idr = (header & 31) == 5;
    ChosenBits w(c);
    w.ue(c->once_in(8) ? c->value(63) : syntax->next_mb);
    w.ue_rarely(16, 9, 7);
    w.ue_rarely(8, 255);
    w.u(static_cast<int>(syntax->frame_num_bits % 32), c->byte());
    if (is_idr) w.any_ue(3);
    w.u(static_cast<int>(syntax->order_bits % 32), c->byte());
    if (is_idr) w.any(2);
    const bool is_marked = !is_idr && header & 0x60 && w.flag();
    if (is_marked) {  // mostly by operations without operands
        for (uint32_t n = c->byte() % 80; n > 0; --n) w.ue_rarely(16, 6, 5);
        w.ue(0);
    }
    w.any_se(26);
    if (syntax->has_deblocking && w.any_ue(2) != 1) w.any_se(6, 2);
    if (syntax->is_cabac) w.align(1);
    const uint32_t count = 1 + c->byte() % 32;
    for (uint32_t i = 0; !syntax->is_cabac && i < count; ++i) write_macroblock(&w, *syntax);
    syntax->next_mb += count;
    if (!syntax->is_cabac && c->flag()) return nal_unit(c, header, w.trailing().str());
    return nal_unit(c, header, w.with_payload() + '\x80');
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
