// SPDX-License-Identifier: BSD-2-Clause
#include "fuzz/avc_writer.h"

#include <algorithm>

#include "fuzz/bit_writer.h"

// Escapes most units; one whose emulation bytes are missing is a stream, too.
static std::string nal_unit(Choices* c, uint32_t header, const std::string& rbsp) {
    std::string out(1, static_cast<char>(header));
    const bool is_escaped = !c->once_in(16);
    int zeros = 0;
    for (const char byte : rbsp) {
        if (is_escaped && zeros >= 2 && static_cast<uint8_t>(byte) <= 3) {
            out += '\3';
            zeros = 0;
        }
        out += byte;
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    return out;
}

static int32_t signed_value(Choices* c, uint32_t usual) {
    const int32_t value = static_cast<int32_t>(c->value(usual));
    return c->flag() ? value : -std::max(value, -INT32_MAX);
}

static void write_scaling_lists(Choices* c, BitWriter* w, int count) {
    for (int i = 0; i < count; ++i) {
        const bool is_present = c->flag();
        w->put(1, is_present);
        if (!is_present) continue;
        const int entries = i < 6 ? 16 : 64;
        const int coded = c->flag() ? entries : static_cast<int>(c->below(4));
        int last = 8;
        for (int k = 0; k < coded; ++k) {
            const int next = 1 + static_cast<int>(c->byte() % 255);
            w->se(next - last);
            last = next;
        }
        if (coded < entries) w->se(-last);  // the rest repeats, or all of it is the default
    }
}

static void write_vui(Choices* c, BitWriter* w) {
    w->put(8, c->byte());
    const std::string noise = c->bytes(c->byte() % 40);
    w->append(noise);
}

std::string write_sps(Choices* c, bool* is_high_profile) {
    static const uint8_t kProfiles[] = {100, 66, 77, 244, 83};
    BitWriter w;
    const uint32_t profile = kProfiles[c->byte() % 5];
    *is_high_profile = profile == 100 || profile == 244 || profile == 83;
    w.put(8, profile);
    w.put(16, c->byte());
    w.ue(c->once_in(8) ? c->value(32) : 0);
    if (*is_high_profile) {
        w.ue(c->once_in(4) ? c->value(3) : 1);
        w.ue(c->once_in(16) ? c->value(6) : 0);
        w.ue(c->once_in(16) ? c->value(6) : 0);
        w.put(1, c->once_in(16));
        const bool has_matrix = c->once_in(4);
        w.put(1, has_matrix);
        if (has_matrix) write_scaling_lists(c, &w, 8);
    }
    w.ue(c->once_in(8) ? c->value(12) : 0);
    const uint32_t order_type = c->once_in(4) ? c->value(2) : 0;
    w.ue(order_type);
    if (order_type == 0) w.ue(c->once_in(8) ? c->value(12) : 0);
    if (order_type == 1) {
        w.put(1, c->flag());
        w.se(signed_value(c, 9));
        w.se(signed_value(c, 9));
        const uint32_t cycle = c->value(3);
        w.ue(cycle);
        for (uint32_t i = 0; i < std::min(cycle, 300u); ++i) w.se(signed_value(c, 9));
    }
    w.ue(c->value(16));
    w.put(1, c->flag());
    w.ue(c->value(7));
    w.ue(c->value(7));
    w.put(1, !c->once_in(32));
    w.put(1, 1);
    const bool is_cropped = c->once_in(4);
    w.put(1, is_cropped);
    for (int i = 0; is_cropped && i < 4; ++i) w.ue(c->value(8));
    const bool has_vui = c->once_in(4);
    w.put(1, has_vui);
    if (has_vui) write_vui(c, &w);
    w.trailing();
    return nal_unit(c, 0x67, w.bytes());
}

std::string write_pps(Choices* c, bool is_high_profile, bool* is_cabac) {
    BitWriter w;
    w.ue(c->once_in(4) ? c->value(255) : 0);
    w.ue(c->once_in(8) ? c->value(32) : 0);
    *is_cabac = c->flag();
    w.put(1, *is_cabac);
    w.put(1, c->once_in(4));
    w.ue(c->once_in(32) ? c->value(7) : 0);
    w.ue(c->value(15));
    w.ue(c->value(15));
    w.put(3, c->byte() % 6);
    w.se(signed_value(c, 25));
    w.se(signed_value(c, 25));
    w.se(signed_value(c, 12));
    w.put(3, c->once_in(8) ? c->byte() : 4);  // deblocking control
    if (is_high_profile) {
        w.put(1, c->flag());
        const bool has_matrix = c->once_in(4);
        w.put(1, has_matrix);
        if (has_matrix) write_scaling_lists(c, &w, 8);
        w.se(signed_value(c, 12));
    }
    w.trailing();
    return nal_unit(c, 0x68, w.bytes());
}

// CAVLC macroblocks: well-formed up to the residual, which is noise.
static void write_macroblocks(Choices* c, BitWriter* w) {
    for (uint32_t i = c->byte() % 16; i > 0; --i) {
        const uint32_t mb_type = c->once_in(8) ? 25 : c->flag() ? 0 : c->value(25);
        w->ue(mb_type);
        if (mb_type == 25) {
            w->align();
            w->append(c->bytes(384));
            continue;
        }
        for (int b = 0; mb_type == 0 && b < 16; ++b) w->put(1, !c->once_in(4));
        w->ue(c->value(3));
        if (mb_type == 0) w->ue(c->value(47));
        w->se(signed_value(c, 26));
        w->append(c->bytes(c->byte() % 24));
    }
}

// Written for a frame number and picture order count of 4 bits each.
static std::string write_slice(Choices* c, bool is_first, bool is_cabac) {
    BitWriter w;
    w.ue(is_first && !c->once_in(16) ? 0 : c->value(63));
    w.ue(c->once_in(16) ? c->value(9) : 7);
    w.ue(c->once_in(8) ? c->value(255) : 0);
    w.put(4, c->byte());
    w.ue(c->value(3));
    w.put(4, c->byte());
    w.put(2, 0);
    w.se(signed_value(c, 26));
    w.ue(c->value(2));
    w.se(signed_value(c, 6));
    w.se(signed_value(c, 6));
    if (is_cabac) w.align(true);
    if (!is_cabac) write_macroblocks(c, &w);
    w.append(c->payload());
    w.trailing();
    return nal_unit(c, c->once_in(8) ? c->byte() : 0x65, w.bytes());
}

static void append_nal(std::string* out, const std::string& nal, int length_size) {
    for (int i = length_size - 1; i >= 0; --i) *out += static_cast<char>(nal.size() >> 8 * i);
    *out += nal;
}

AvcStream write_avc_stream(Choices* c, int length_size) {
    AvcStream stream;
    bool is_high_profile = false, is_cabac = false;
    for (uint32_t i = c->once_in(4) ? 3 : 1; i > 0; --i) {
        append_nal(&stream.sets, write_sps(c, &is_high_profile), 2);
        append_nal(&stream.sets, write_pps(c, is_high_profile, &is_cabac), 2);
    }
    const uint32_t slices = 1 + c->byte() % 4;
    for (uint32_t i = 0; i < slices; ++i) {
        if (c->once_in(8)) {
            append_nal(&stream.sample, write_sps(c, &is_high_profile), length_size);
        }
        if (c->once_in(8)) {
            append_nal(&stream.sample, write_pps(c, is_high_profile, &is_cabac), length_size);
        }
        append_nal(&stream.sample, write_slice(c, i == 0, is_cabac), length_size);
    }
    if (c->once_in(16)) stream.sample.resize(c->below(65536) % (stream.sample.size() + 1));
    return stream;
}
