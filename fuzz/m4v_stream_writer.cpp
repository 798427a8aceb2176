// SPDX-License-Identifier: BSD-2-Clause
#include "fuzz/m4v_stream_writer.h"

#include <algorithm>
#include <vector>

#include "fuzz/chosen_bits.h"

constexpr uint32_t kMostMacroblocks = 100;  // the rest of a picture is a payload
constexpr int kTimeBits = 5;                // of the increment, for 25 a second
constexpr uint32_t kQuantCoded = 4;         // of MCBPC, whose lower bits are the chroma blocks

static BitPacker& start_code(ChosenBits* w, uint32_t code) { return w->align().u(32, 256 | code); }

// Bits that hold numbers below n.
static int bits_for(uint32_t n) { return n <= 2 ? 1 : 32 - __builtin_clz(n - 1); }

// PQUANT and the like: not 0.
static void write_quant(ChosenBits* w) { w->u(5, w->c->byte() | !w->c->once_in(16)); }

static void write_layer(ChosenBits* w, M4vSyntax* syntax) {
    Choices* const c = w->c;
    w->u(9, c->once_in(16) ? c->byte() : 1);
    const bool has_verid = w->flag();
    const uint32_t verid = !has_verid ? 1 : c->flag() ? 2 : c->byte() % 16;
    if (has_verid) w->u(4, verid).u(3, 0);
    w->u(4, c->once_in(16) ? 15 : 1);
    if (w->flag(8)) w->u(3, 2).u(1, c->flag()).u(64, ~0ULL).u(15, ~0ULL);
    w->u(2, c->once_in(32) ? c->byte() : 0).u(1, 1);
    w->u(16, c->once_in(32) ? c->word() : 25).u(1, 1);
    if (w->flag(8)) w->any(kTimeBits);
    const uint32_t width = 1 + c->value(100) % 8191, height = 1 + c->value(100) % 8191;
    syntax->width_mbs = (width + 15) / 16;
    syntax->height_mbs = (height + 15) / 16;
    w->u(1, 1).u(13, width).u(1, 1).u(13, height).u(1, 1);
    syntax->is_interlaced = w->flag(4);
    w->flag();
    w->u(verid == 1 ? 1 : 2, c->once_in(16) ? c->byte() : 0);
    if (w->flag(16)) w->u(8, c->flag() ? 0x58 : c->byte());
    for (int i = w->flag(4) ? 2 : 0; i > 0; --i) {  // matrices, which a 0 may end
        if (w->flag()) w->bytes(c->bytes(c->byte() % 65)).u(8, 0);
    }
    if (verid != 1) w->flag();
    const bool has_estimation = c->once_in(8);
    w->u(1, !has_estimation);
    if (has_estimation) w->noise();
    syntax->has_markers = !w->flag();
    syntax->is_partitioned = w->flag();
    syntax->is_reversible = syntax->is_partitioned && w->flag();
    if (verid != 1) w->flag(16);
    syntax->has_reduced_resolution = verid != 1 && w->flag(4);
    w->flag(32);
}

std::string write_m4v_config(Choices* c, M4vSyntax* syntax) {
    ChosenBits w(c);
    start_code(&w, 0xb0).u(8, c->once_in(16) ? c->byte() : 1);
    start_code(&w, 0xb5).u(8, 0x08);
    start_code(&w, 0x20 + c->byte() % 16);
    write_layer(&w, syntax);
    return w.trailing().str();
}

// Returns the number of the code, whose bits tell what is coded.
static uint32_t write_mcbpc(ChosenBits* w) {
    static const uint8_t kCodes[8][2] = {{1, 1}, {3, 1}, {3, 2}, {3, 3},
                                         {4, 1}, {6, 1}, {6, 2}, {6, 3}};
    if (w->c->once_in(64)) w->u(9, 1);  // stuffing
    const uint32_t code = w->c->byte() % 8;
    w->u(kCodes[code][0], kCodes[code][1]);
    return code;
}

// All blocks or none. Returns 60 or 0.
static uint32_t write_cbpy(ChosenBits* w) {
    const bool is_coded = w->c->flag();
    w->u(is_coded ? 2 : 4, 3);
    return is_coded ? 0x3c : 0;
}

// No difference, or one of 4 to 12 bits.
static void write_dc(ChosenBits* w, bool is_chroma) {
    const int size = w->c->once_in(4) ? 4 + static_cast<int>(w->c->byte() % 9) : 0;
    if (size == 0) w->u(is_chroma ? 2 : 3, 3);
    if (size != 0) w->u(is_chroma ? size : size - 1, 1).u(size, w->c->word()).u(size > 8, 1);
}

static void write_escape(ChosenBits* w, const M4vSyntax& syntax, bool is_last) {
    const uint32_t run = w->c->once_in(64) ? w->c->byte() % 64 : w->c->byte() % 4;
    const uint32_t level = 1 + w->c->value(126);
    if (syntax.is_reversible) {
        w->u(5, 1).u(1, is_last).u(6, run).u(1, 1).u(11, level).u(5, 16).u(1, level);
    } else if (syntax.is_h263) {
        w->u(7, 3).u(1, is_last).u(6, run).u(8, level);
        if ((level & 255) == 128) w->any(11);
    } else {
        w->u(9, 15).u(1, is_last).u(6, run).u(1, 1).u(12, level).u(1, 1);
    }
}

static void write_coefficients(ChosenBits* w, const M4vSyntax& syntax) {
    const bool has_raised = !syntax.is_h263 && !syntax.is_reversible;
    for (uint32_t n = w->c->byte() % 8; n > 0; --n) {
        const uint32_t kind = w->c->byte() % 64;
        if (kind == 63) w->any(16);
        if (kind < 8) write_escape(w, syntax, false);
        // The level or the run of the code behind it is raised.
        if (has_raised && kind < 16) w->u(7, 3).u(1 + kind % 2, kind % 2 * 2);
        if (kind > 7) w->u(syntax.is_reversible ? 3 : 2, syntax.is_reversible ? 6 : 2).u(1, kind);
    }
    write_escape(w, syntax, true);
}

// cbp has the first block at bit 5.
static void write_blocks(ChosenBits* w, const M4vSyntax& syntax, uint32_t cbp) {
    const bool has_dc = !syntax.is_partitioned && !syntax.has_advanced_intra;
    for (int n = 0; n < 6; ++n) {
        if (has_dc && syntax.is_h263) w->u(8, 1 + w->c->byte() % 255);
        if (has_dc && !syntax.is_h263) write_dc(w, n >= 4);
        if (cbp >> (5 - n) & 1) write_coefficients(w, syntax);
    }
}

static void write_macroblock(ChosenBits* w, const M4vSyntax& syntax) {
    const uint32_t mcbpc = write_mcbpc(w);
    if (!syntax.is_h263) w->flag();                         // AC prediction
    if (syntax.has_advanced_intra && w->flag()) w->flag();  // its mode
    const uint32_t cbp = write_cbpy(w) | (mcbpc & 3);
    if (mcbpc & kQuantCoded) w->any(!syntax.has_modified_quant ? 2 : w->flag() ? 1 : 5);
    if (syntax.is_interlaced) w->flag();
    write_blocks(w, syntax, cbp);
}

static void write_partitions(ChosenBits* w, const M4vSyntax& syntax, uint32_t count) {
    std::vector<uint32_t> cbp;
    for (uint32_t i = 0; i < count; ++i) {
        cbp.push_back(write_mcbpc(w));
        if (cbp.back() & kQuantCoded) w->any(2);
        for (int n = 0; n < 6; ++n) write_dc(w, n >= 4);
    }
    w->u(19, 0x6b001);
    for (uint32_t& blocks : cbp) {
        w->flag();
        blocks = (blocks & 3) | write_cbpy(w);
    }
    for (const uint32_t blocks : cbp) write_blocks(w, syntax, blocks);
}

static void write_packet_header(ChosenBits* w, const M4vSyntax& syntax, uint32_t address) {
    w->u(1, 0).align(1).u(17, 1);
    w->u(bits_for(syntax.macroblocks()), w->c->once_in(32) ? w->c->word() : address);
    write_quant(w);
    if (!w->flag(4)) return;
    w->u(2, 1).u(kTimeBits, 0).u(3, 4);  // a marker and the type I
    if (syntax.has_reduced_resolution) w->flag(8);
    w->any(3);
}

std::string write_m4v_picture(Choices* c, const M4vSyntax& syntax) {
    ChosenBits w(c);
    start_code(&w, 0xb6).u(2, c->once_in(16) ? c->byte() : 0).u(2, 1).u(kTimeBits, 0).u(2, 3);
    if (syntax.has_reduced_resolution) w.flag(8);
    w.u(3, c->once_in(8) ? c->byte() : 0);  // intra_dc_vlc_thr
    if (syntax.is_interlaced) w.any(2);
    write_quant(&w);
    const uint32_t end = std::min(syntax.macroblocks(), kMostMacroblocks);
    for (uint32_t address = 0; address < end;) {
        const uint32_t most = syntax.has_markers ? 1 + c->byte() % 4 : end;
        const uint32_t count = std::min(most, end - address);
        if (address != 0 && syntax.has_markers) write_packet_header(&w, syntax, address);
        if (syntax.is_partitioned) write_partitions(&w, syntax, count);
        for (uint32_t i = 0; !syntax.is_partitioned && i < count; ++i) write_macroblock(&w, syntax);
        address += count;
        if (c->once_in(64)) w.noise();
    }
    return w.with_payload();
}

static void set_standard_size(M4vSyntax* syntax, uint32_t format) {
    syntax->width_mbs = format == 1 ? 8 : 11 << (format - 2);
    syntax->height_mbs = format == 1 ? 6 : 9 << (format - 2);
}

static void write_plus_type(ChosenBits* w, M4vSyntax* syntax) {
    Choices* const c = w->c;
    const bool is_custom = !c->once_in(4);
    const uint32_t format = 1 + c->byte() % 5;
    set_standard_size(syntax, format);
    w->u(3, 1).u(3, is_custom ? 6 : format).u(4, c->once_in(8) ? c->byte() : 0);
    syntax->has_advanced_intra = w->flag();
    w->flag();  // deblocking
    syntax->has_slices = w->flag();
    w->u(1, c->once_in(16)).u(1, c->flag()).u(1, 0);  // reference selection, independent segments
    syntax->has_modified_quant = w->flag();
    w->u(4, 8).u(9, c->once_in(16) ? c->byte() : 1).u(1, c->once_in(16));
    if (is_custom) {
        const uint32_t width = c->value(20) % 512, height = 1 + c->value(20) % 511;
        syntax->width_mbs = width / 4 + 1;
        syntax->height_mbs = (height + 3) / 4;
        w->u(4, 1).u(9, width).u(1, 1).u(9, height);
    }
    if (!syntax->has_slices) return;
    syntax->has_rectangular_slices = w->flag(4);
    w->flag();
}

// Of a slice or a group of blocks. The first slice has no start code.
static void write_segment(ChosenBits* w, const M4vSyntax& syntax, uint32_t address) {
    const uint32_t total = syntax.macroblocks();
    const int bits = total <= 48 ? 6 : total <= 99 ? 7 : total <= 396 ? 9 : total <= 1584 ? 11 : 13;
    const uint32_t first = w->c->once_in(32) ? w->c->word() : address;
    if (address != 0) w->align().u(17, 1);
    if (!syntax.has_slices) w->u(5, first / syntax.width_mbs).u(2, 0);
    if (syntax.has_slices) w->u(1, 1).u(bits, first).u(bits > 11, 1);
    if (address != 0) write_quant(w);
    if (syntax.has_rectangular_slices) w->any(bits <= 6 ? 3 : bits <= 7 ? 4 : 5);
    if (syntax.has_slices) w->u(1, 1).u(address == 0 ? 0 : 2, 0);
}

std::string write_h263_picture(Choices* c) {
    ChosenBits w(c);
    M4vSyntax syntax;
    syntax.is_h263 = true;
    const bool is_plus = c->flag();
    const uint32_t format = 1 + c->byte() % 3;
    set_standard_size(&syntax, format);
    w.u(22, 0x20).u(8, c->byte()).u(5, 0x10).u(3, is_plus ? 7 : format);
    if (is_plus) write_plus_type(&w, &syntax);
    if (!is_plus) w.u(5, c->once_in(16) ? c->byte() : 0);
    write_quant(&w);
    if (!is_plus) w.u(1, 0);
    while (w.flag(16)) w.any(8);
    const uint32_t total = std::min(syntax.macroblocks(), kMostMacroblocks);
    for (uint32_t address = 0; address < total; ++address) {
        const bool may_start =
            syntax.has_slices || (address != 0 && address % syntax.width_mbs == 0);
        if (may_start && (address == 0 || c->once_in(4))) write_segment(&w, syntax, address);
        write_macroblock(&w, syntax);
        if (c->once_in(128)) w.noise();
    }
    return w.with_payload();
}
