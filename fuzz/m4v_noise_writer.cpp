// SPDX-License-Identifier: BSD-2-Clause
#include "fuzz/m4v_noise_writer.h"

#include "fuzz/bit_writer.h"

static void start_code(BitWriter* w, uint32_t code) {
    w->align();
    w->put(32, 0x100 | code);
}

static void write_matrix(Choices* c, BitWriter* w) {
    const uint32_t entries = c->once_in(2) ? 64 : c->below(8);
    for (uint32_t i = 0; i < entries; ++i) w->put(8, 1 + c->byte() % 255);
    if (entries < 64) w->put(8, 0);
}

static void write_complexity_estimation(Choices* c, BitWriter* w) {
    w->put(2, c->value(1));
    for (const int flags : {6, 4}) {
        w->put(1, 0);
        w->put(flags, c->byte());
    }
    w->put(1, 1);
    w->put(1, 0);
    w->put(4, c->byte());
    w->put(1, 1);
    w->put(1, 1);
}

static void write_layer(Choices* c, BitWriter* w) {
    const bool has_verid = c->flag();
    w->put(1, 0);
    w->put(8, c->once_in(16) ? c->byte() : 1);
    w->put(1, has_verid);
    if (has_verid) w->put(7, c->flag() ? 2 << 3 : c->byte());
    w->put(4, c->once_in(16) ? 15 : 1);
    w->put(1, 0);
    w->put(2, c->once_in(32) ? c->byte() : 0);
    w->put(1, 1);
    w->put(16, c->once_in(4) ? c->value(65535) : 25);
    w->put(2, 2);
    w->put(13, c->value(100));
    w->put(1, 1);
    w->put(13, c->value(100));
    w->put(1, 1);
    w->put(1, c->once_in(4));  // interlaced
    w->put(1, 1);
    w->put(has_verid ? 2 : 1, c->once_in(16) ? c->byte() : 0);
    const bool not_8_bit = c->once_in(16);
    w->put(1, not_8_bit);
    if (not_8_bit) w->put(8, c->flag() ? 0x58 : c->byte());
    const bool has_matrix = c->once_in(4);
    w->put(1, has_matrix);
    for (int i = 0; has_matrix && i < 2; ++i) {
        const bool is_coded = c->flag();
        w->put(1, is_coded);
        if (is_coded) write_matrix(c, w);
    }
    if (has_verid) w->put(1, c->flag());
    const bool has_estimation = c->once_in(8);
    w->put(1, !has_estimation);
    if (has_estimation) write_complexity_estimation(c, w);
    w->put(1, c->flag());  // resync_marker_disable
    const bool is_partitioned = c->once_in(2);
    w->put(1, is_partitioned);
    if (is_partitioned) w->put(1, c->flag());
    if (has_verid) w->put(2, c->once_in(8) ? c->byte() : 0);
    w->put(1, c->once_in(32));
}

std::string write_m4v_config(Choices* c) {
    BitWriter w;
    start_code(&w, 0xb0);
    w.put(8, c->once_in(16) ? c->byte() : 1);
    start_code(&w, 0xb5);
    w.put(8, c->flag() ? 0x91 : 0x08);
    start_code(&w, 0x00);
    start_code(&w, 0x20 + c->byte() % 16);
    write_layer(c, &w);
    w.trailing();
    return w.bytes();
}

// Macroblocks with valid headers and noise for blocks, now and then a marker between them.
static void write_macroblocks(Choices* c, BitWriter* w) {
    for (uint32_t i = c->byte() % 32; i > 0; --i) {
        const uint32_t kind = c->byte() % 16;
        if (kind == 0) w->put(19, 0x6b001);
        if (kind == 1) w->put(9, 1);  // stuffing
        if (kind == 2) {              // a packet or slice header
            w->put(1, 0);
            w->align(true);
            w->put(17, 1);
            const int bits = static_cast<int>(c->byte() % 16);
            w->put(bits, c->value(99));
            w->put(6, c->value(31) << 1);
        }
        if (kind > 2) {
            w->put(c->flag() ? 3 : 1, 1);
            w->put(6, c->byte());
            for (int b = 0; b < 6; ++b) {
                const int bits = static_cast<int>(c->byte() % 32);
                w->put(bits, c->word() << 12);
            }
        }
    }
    w->append(c->payload());
}

std::string write_m4v_picture(Choices* c) {
    BitWriter w;
    start_code(&w, 0xb6);
    w.put(2, c->once_in(16) ? c->byte() : 0);
    w.put(2, 1);
    w.put(5, 0);  // the time increment for 25 a second
    w.put(2, 3);
    w.put(3, c->byte());
    w.put(5, c->byte() | !c->once_in(16));
    write_macroblocks(c, &w);
    return w.bytes();
}

static void write_plus_type(Choices* c, BitWriter* w) {
    w->put(3, c->once_in(16) ? c->byte() : 1);
    const bool is_custom = c->flag();
    w->put(3, is_custom ? 6 : 1 + c->byte() % 5);
    const uint32_t options = c->byte() << 7 & 0x6790;
    w->put(18, options | 8);
    w->put(9, c->once_in(8) ? c->byte() : 1);
    w->put(1, 0);
    if (is_custom) {
        w->put(4, 1);
        w->put(9, c->value(20));
        w->put(1, 1);
        w->put(9, c->value(20));
    }
    if (options & 0x800) w->put(2, c->byte());  // slices
}

std::string write_h263_picture(Choices* c) {
    BitWriter w;
    const bool is_plus = c->flag();
    w.put(22, 0x20);
    w.put(8, c->byte());
    w.put(5, 0x10);
    w.put(3, is_plus ? 7 : 1 + c->byte() % 3);
    if (is_plus) {
        write_plus_type(c, &w);
    } else {
        w.put(5, c->once_in(16) ? c->byte() : 0);
    }
    w.put(5, c->byte() | !c->once_in(16));
    w.put(2, c->once_in(16) ? c->byte() : 0);
    write_macroblocks(c, &w);
    return w.bytes();
}
