// SPDX-License-Identifier: BSD-2-Clause
#include "fuzz/avc_writer.h"

#include <algorithm>

#include "fuzz/chosen_bits.h"

// Escapes most units; one whose emulation bytes are missing is a stream, too.
static std::string nal_unit(Choices* c, uint32_t header, const std::string& rbsp) {
    const std::string unit = static_cast<char>(header) + rbsp;
    return c->once_in(16) ? unit : escaped(unit);
}

static void write_scaling_lists(ChosenBits* w, int count) {
    for (int i = 0; i < count; ++i) {
        if (!w->flag()) continue;
        const int entries = i < 6 ? 16 : 64;
        const int coded = w->c->flag() ? entries : static_cast<int>(w->c->byte() % 4);
        int last = 8;
        for (int k = 0; k < coded; ++k) {
            const int next = 1 + static_cast<int>(w->c->byte() % 255);
            w->se(next - last);
            last = next;
        }
        if (coded < entries) w->se(-last);  // the rest repeats, or all of it is the default
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
        w.ue_rarely(16, 6);
        w.ue_rarely(16, 6);
        w.flag(16);
        if (w.flag(4)) write_scaling_lists(&w, 8);
    }
    syntax->frame_num_bits = 4 + w.ue_rarely(8, 12);
    syntax->order_type = w.ue_rarely(4, 2);
    if (syntax->order_type == 0) syntax->order_bits = 4 + w.ue_rarely(8, 12);
    if (syntax->order_type == 1) {
        syntax->has_order_deltas = !w.flag();
        w.any_se(9);
        w.any_se(9);
        for (uint32_t i = std::min(w.any_ue(3), 300U); i > 0; --i) w.any_se(9);
    }
    w.any_ue(16);
    w.flag();
    w.any_ue(7);  // width, height
    w.any_ue(7);
    w.u(1, !c->once_in(32)).u(1, 1);
    const bool is_cropped = w.flag(4);
    for (int i = 0; is_cropped && i < 4; ++i) w.any_ue(8);
    if (w.flag(4)) w.noise();  // usability information
    return nal_unit(c, 0x67, w.trailing().str());
}

std::string write_pps(Choices* c, AvcSyntax* syntax) {
    ChosenBits w(c);
    w.ue_rarely(4, 255);
    w.ue_rarely(8, 32);
    syntax->is_cabac = w.flag();
    syntax->has_order_pair = w.flag(4);
    w.ue_rarely(32, 7);
    w.any_ue(15);
    w.any_ue(15);
    w.u(3, c->byte() % 6);
    w.any_se(25);
    w.any_se(25);
    w.any_se(12);
    syntax->has_deblocking = !c->once_in(8);
    w.u(1, syntax->has_deblocking);
    w.flag(8);
    syntax->has_redundant = w.flag(8);
    syntax->has_8x8 = false;
    if (syntax->is_high_profile) {
        syntax->has_8x8 = w.flag();
        if (w.flag(4)) write_scaling_lists(&w, syntax->has_8x8 ? 8 : 6);
        w.any_se(12);
    }
    return nal_unit(c, 0x68, w.trailing().str());
}

// Of a picture that is no IDR picture.
static void write_marking(ChosenBits* w) {
    static const uint8_t kOperands[] = {1, 1, 2, 1, 0, 1};
    if (!w->flag()) return;
    for (uint32_t n = w->c->once_in(4) ? 80 : w->c->byte() % 4; n > 0; --n) {
        const uint32_t operation = w->c->byte() % 6;
        w->ue(operation + 1);
        for (int i = 0; i < kOperands[operation]; ++i) w->any_ue(9);
    }
    w->ue_rarely(8, 9);
}

static void write_modes(ChosenBits* w, const AvcSyntax& syntax) {
    const int modes = syntax.has_8x8 && w->flag() ? 4 : 16;
    for (int b = 0; b < modes; ++b) {
        const bool is_predicted = !w->c->once_in(4);
        w->u(1, is_predicted);
        if (!is_predicted) w->any(3);
    }
}

// A CAVLC macroblock: samples, or prediction alone, or noise for residual.
static void write_macroblock(ChosenBits* w, const AvcSyntax& syntax) {
    const uint32_t kind = w->c->byte() % 4;
    if (kind == 0) {
        w->ue(25);
        w->align().bytes(w->c->bytes(384));
        return;
    }
    const uint32_t mb_type = kind == 1 ? 0 : w->any_ue(25);
    if (kind == 1) w->ue(mb_type);
    if (mb_type == 0) write_modes(w, syntax);
    w->any_ue(3);
    if (mb_type == 0 && w->ue_rarely(2, 47, 3) == 3) return;
    w->any_se(26);
    if (w->flag()) return;  // no coefficients
    w->noise();
}

std::string write_slice(Choices* c, const AvcSyntax& syntax, bool is_first) {
    const uint32_t header = c->once_in(8) ? c->byte() : c->once_in(4) ? 0x61 : 0x65;
    const bool is_idr = (header & 31) == 5;
    ChosenBits w(c);
    w.ue(is_first && !c->once_in(16) ? 0 : c->value(63));
    w.ue_rarely(16, 9, 7);
    w.ue_rarely(8, 255);
    w.u(static_cast<int>(syntax.frame_num_bits % 32), c->byte());
    if (is_idr) w.any_ue(3);
    if (syntax.order_type == 0) w.u(static_cast<int>(syntax.order_bits % 32), c->byte());
    if (syntax.order_type == 1 && syntax.has_order_deltas) w.any_se(9);
    if (syntax.order_type != 2 && syntax.has_order_pair) w.any_se(9);
    if (syntax.has_redundant) w.ue_rarely(8, 3);
    if (is_idr) w.any(2);
    if (!is_idr && header & 0x60) write_marking(&w);
    w.any_se(26);
    if (syntax.has_deblocking && w.any_ue(2) != 1) {
        w.any_se(6);
        w.any_se(6);
    }
    if (syntax.is_cabac) w.align(1);
    for (uint32_t i = syntax.is_cabac ? 0 : c->byte() % 16; i > 0; --i)
        write_macroblock(&w, syntax);
    return nal_unit(c, header, w.with_payload() + '\x80');
}

AvcStream write_avc_stream(Choices* c, int length_size) {
    AvcStream stream;
    AvcSyntax syntax;
    for (uint32_t i = c->once_in(4) ? 3 : 1; i > 0; --i) {
        stream.sps = write_sps(c, &syntax);
        stream.pps = write_pps(c, &syntax);
        stream.sets += with_length(stream.sps, 2) + with_length(stream.pps, 2);
    }
    const uint32_t slices = 1 + c->byte() % 4;
    for (uint32_t i = 0; i < slices; ++i) {
        const auto add = [&](const std::string& unit) {
            stream.sample += with_length(unit, length_size);
        };
        if (c->once_in(8)) add(write_sps(c, &syntax));
        if (c->once_in(8)) add(write_pps(c, &syntax));
        add(write_slice(c, syntax, i == 0));
    }
    if (c->once_in(16)) stream.sample.resize(c->below(65536) % (stream.sample.size() + 1));
    return stream;
}
