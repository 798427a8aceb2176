// SPDX-License-Identifier: BSD-2-Clause
#include "tests/m4vdec/m4v_writer.h"

#include <stdlib.h>

#include <algorithm>
#include <array>
#include <bitset>

#include "m4vdec/m4v_idct.h"
#include "m4vdec/m4v_scan.h"
#include "tests/support/bit_packer.h"

namespace {

using Block = std::array<int, 64>;  // by m4v_position, or in the order of a scan

constexpr const char* kTime = "1110 1 0101 1";  // three seconds and 5/16

int dc_scaler(int quant, bool is_chroma) {
    if (quant <= 4) return 8;
    if (is_chroma) return quant <= 24 ? (quant + 13) / 2 : quant - 6;
    return quant <= 8 ? 2 * quant : quant <= 24 ? quant + 8 : 2 * quant - 16;
}

int rounded(int a, int b) { return (abs(a) + b / 2) / b * (a < 0 ? -1 : 1); }

int bits_for(unsigned values) { return values <= 2 ? 1 : 32 - __builtin_clz(values - 1); }

enum Slices : unsigned { kNoSlices, kPlainSlices, kRectangles, kVariantSlices };

class Writer {
 public:
    Writer(bool is_h263, Choices* choices) : c(choices), h263(is_h263) {
        weights.fill(16);
        picture.planes.resize(w * h * 384);
        h263 ? write_h263_header() : write_mpeg4_headers();
        for (const Segment& segment : make_segments()) {
            write_segment_header(segment, ++segment_number == 1);
            write_macroblocks(segment);
        }
        put_alignment();
        picture.sample = sample.str();
    }

    WrittenPicture picture;

 private:
    struct Segment {
        unsigned first, count, width;  // macroblocks, in rows of that width
    };
    struct Mb {
        unsigned x, y, cbp, aic_mode;
        std::string dquant;  // its code
        bool ac_pred, is_field, has_dc_events;
        Block events[6];  // levels, and the DC or its difference, in the order of the scan
    };
    struct Coded {  // a block as its neighbours see it
        unsigned segment;
        int quant;
        Block values;  // the DC, and levels of MPEG-4 or coefficients of H.263
    };

    Choices* const c;
    unsigned pick(unsigned n) { return (n <= 256 ? c->byte() : c->word()) % n; }
    bool once_in(unsigned n) { return c->once_in(n); }

    // --- Tools

    const bool h263;  // else MPEG-4
    // MPEG-4.
    const unsigned thr = h263 || once_in(2) ? 0 : pick(8);  // intra_dc_vlc_thr
    const unsigned matrix_length = h263 || !once_in(3) ? 0 : 1 + pick(64);
    const bool has_ac_pred = !h263 && once_in(2);  // at random
    const bool is_partitioned = !h263 && once_in(3);
    const bool is_reversible = is_partitioned && once_in(2);
    const bool is_interlaced = !h263 && once_in(4);
    const bool has_field_flags = is_interlaced && !is_partitioned;
    const bool is_alternate = is_interlaced && once_in(2);
    // H.263, the most of it with PLUSPTYPE.
    const bool is_plus = h263 && !once_in(4);
    const bool has_modified_quant = is_plus && once_in(2);
    const bool has_aic = is_plus && once_in(2);
    const unsigned slices = is_plus ? pick(4) : kNoSlices;
    const bool is_multipoint = h263 && slices != kVariantSlices && once_in(3);
    const bool has_gobs = h263 && slices == kNoSlices && once_in(2);
    // Macroblocks of one value: the filter that may not cross their edges finds nothing to do.
    const bool is_flat = slices == kPlainSlices && !has_aic && once_in(2);
    const unsigned format = !h263 || (is_plus && pick(3)) ? 6
                            : once_in(12)                 ? 3 + pick(3)
                                                          : 1 + pick(2);

    static constexpr unsigned kSizes[6][2] = {{},         {128, 96},  {176, 144},
                                              {352, 288}, {704, 576}, {1408, 1152}};
    const bool is_tall = once_in(16);
    const unsigned custom_width = h263 ? 4 * (5 + pick(45)) : 1 + pick(96);
    const unsigned custom_height = h263 ? 4 * (1 + pick(is_tall ? 288 : 40)) : 1 + pick(64);
    const unsigned width = format == 6 ? custom_width : kSizes[format][0];
    const unsigned height = format == 6 ? custom_height : kSizes[format][1];
    const unsigned w = (width + 15) / 16, h = (height + 15) / 16;  // macroblocks
    // The most macroblocks of a packet or slice; 0: no packets.
    const unsigned most_packet = h263 || once_in(2) ? 0 : 1 + pick(9);
    const unsigned most_mbs = is_flat ? 1 : slices ? width / 4 : most_packet;

    // --- Headers

    void write_mpeg4_headers() {
        BitPacker middle;
        middle.u(1, is_interlaced).text("1 0 0").u(1, matrix_length != 0);
        if (matrix_length) put_matrices(&middle.text("1"));
        middle.text("1").u(1, most_mbs == 0).u(1, is_partitioned);
        if (is_partitioned) middle.u(1, is_reversible);
        BitPacker sequence;
        sequence.u(32, 0x1b0).u(8, 1).u(32, 0x1b5).text("0 0001 0 01");
        picture.config = sequence.str() + mpeg4_layer(width, height, middle.bits());
        sample.u(32, 0x1b6).text("00").text(kTime).u(1, 1).u(3, thr);
        if (is_interlaced) sample.u(1, 1).u(1, is_alternate);
        sample.u(5, quant);
    }

    void put_matrices(BitPacker* out) {
        unsigned value = 0;
        for (unsigned i = 0; i < 64; ++i) {
            if (i < matrix_length) value = 1 + pick(i % 9 ? 60 : 255);
            if (i <= matrix_length) out->u(8, i < matrix_length ? value : 0);
            weights[kScanZigzag.position[i]] = static_cast<int>(value);
        }
        out->text("1 01001101 00000000");  // the matrix of inter blocks: one value for all
    }

    void write_h263_header() {
        const char* const multipoint = is_multipoint ? "1 01" : "0";
        // Temporal reference; split screen and the like.
        sample.u(22, 0x20).text("10110101 10 101").u(3, is_plus ? 7 : format);
        if (is_plus) {
            sample.text("001").u(3, format).text("000 0").u(1, has_aic).u(1, is_flat);
            sample.u(1, slices != 0).text("0").u(1, is_flat).text("0").u(1, has_modified_quant);
            sample.text("1 000  000 00 1 00 1").text(multipoint);
            if (format == 6) sample.text("0010").u(9, width / 4 - 1).text("1").u(9, height / 4);
            if (slices) sample.u(1, slices == kRectangles).u(1, 1);
            sample.u(5, quant).text("0");
        } else {
            sample.text("00000").u(5, quant).text(multipoint).text("0");
        }
    }

    void put_alignment() { h263 ? sample.align() : sample.u(1, 0).align(1); }

    void write_segment_header(const Segment& segment, bool is_first) {
        if (!is_first) {
            put_alignment();
            quant = 1 + pick(31);
            sample.u(17, 1);
        }
        if (slices) {
            write_slice_header(segment, is_first);
        } else if (!is_first && h263) {
            sample.u(5, segment.first / w / rows_of_gob()).text(is_multipoint ? "11 01" : "01");
            sample.u(5, quant);
        } else if (!is_first) {
            sample.u(bits_for(w * h), segment.first).u(5, quant);
            once_in(2) ? sample.text("1").text(kTime).text("00").u(3, thr) : sample.text("0");
        }
    }

    void write_slice_header(const Segment& slice, bool is_first) {
        // K.2.5: the length of an address, and the most macroblocks that it is for.
        static const unsigned kMost[] = {48, 99, 99, 396, 396, 1584, 1584, 6336};
        int bits = 6;
        while (bits < 14 && w * h > kMost[bits - 6]) ++bits;
        const bool has_sepb2 =
            slices == kVariantSlices ? !is_first && w * h >= 1584 : bits > (is_multipoint ? 9 : 11);
        sample.text(is_multipoint ? "1 1010" : "1").u(bits, slice.first).u(has_sepb2, 1);
        if (!is_first) sample.u(5, quant);
        const int width_bits = w <= 8 ? 3 : w <= 11 ? 4 : w <= 22 ? 5 : w <= 44 ? 6 : 7;
        if (slices == kRectangles) sample.u(width_bits, slice.width - 1);
        sample.text(is_first ? "1" : "1 10");
    }

    // --- Segments and macroblocks

    unsigned rows_of_gob() const { return height <= 400 ? 1 : height <= 800 ? 2 : 4; }

    std::vector<Segment> make_segments() {
        std::vector<Segment> segments;
        const unsigned split = slices == kRectangles ? 1 + pick(w - 1) : w;
        for (unsigned first = 0, count; first < w * h; first += count) {
            count = most_mbs ? 1 + pick(most_mbs) : w * h;
            if (has_gobs || split < w) count = w * rows_of_gob() * (1 + pick(3));
            count = std::min(w * h - first, count);
            const unsigned left = count * split / w;
            segments.push_back({first, left, split});
            if (split < w) segments.push_back({first + split, count - left, w - split});
        }
        for (size_t i = 1; slices && i < segments.size(); ++i) {  // arbitrary order
            std::swap(segments[i], segments[pick(static_cast<unsigned>(i) + 1)]);
        }
        return segments;
    }

    void write_macroblocks(const Segment& segment) {
        BitPacker partitions[2];
        for (unsigned i = 0; i < segment.count; ++i) {
            const unsigned at = segment.first + i / segment.width * w + i % segment.width;
            const Mb mb = make_mb(at, i == 0);
            is_partitioned ? put_mb(mb, &partitions[0], &partitions[1])
                           : put_mb(mb, &sample, &sample);
        }
        if (is_partitioned) sample.text("110 1011 0000 0000 0001");
        sample.text(partitions[0].bits()).text(partitions[1].bits());
    }

    Mb make_mb(unsigned at, bool is_first) {
        static const int kThreshold[8] = {99, 13, 15, 17, 19, 21, 23, 0};
        const int flat_dc = 1 + static_cast<int>(pick(127)), quant_before = quant;
        Mb mb{at % w, at / w, 0, pick(3), "", has_ac_pred && pick(3), false, false, {}};
        if (once_in(2)) mb.dquant = change_quant();
        mb.is_field = has_field_flags && once_in(2);
        mb.has_dc_events = has_aic || (is_first ? quant : quant_before) >= kThreshold[thr];
        for (unsigned n = 0; n < 6; ++n) {
            const Block f = !h263     ? code_mpeg4_block(&mb, n)
                            : has_aic ? code_aic_block(&mb, n)
                                      : code_h263_block(&mb, n, flat_dc);
            show(mb, n, f);
        }
        return mb;
    }

    // Returns the code of DQUANT, or of its modified form (T.2).
    std::string change_quant() {
        static const int kChange[4] = {-1, -2, 1, 2};
        // The quantiser after "10" and "11".
        static const uint8_t kNext[2][32] = {
            {0,  3,  1,  2,  3,  4,  5,  6,  7,  8,  9,  9,  10, 11, 12, 13,
             14, 15, 16, 17, 18, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28},
            {0,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 13, 14, 15, 16, 17,
             18, 19, 20, 21, 22, 24, 25, 26, 27, 28, 29, 30, 31, 31, 31, 26}};
        const unsigned code = pick(4);
        if (has_modified_quant && code < 2) {
            quant = 1 + pick(31);
            return std::bitset<6>(static_cast<unsigned>(quant)).to_string();
        }
        quant =
            has_modified_quant ? kNext[code - 2][quant] : std::clamp(quant + kChange[code], 1, 31);
        return std::bitset<2>(code).to_string();
    }

    // --- Blocks: what they code, and their coefficients

    Block code_h263_block(Mb* mb, unsigned n, int flat_dc) {
        Block levels = random_levels(has_modified_quant ? 1023 : 127);
        Block f = dequantised(levels, quant_of(n));
        // 255 is how 128 is written.
        levels[0] = is_flat ? flat_dc : once_in(8) ? 255 : 1 + static_cast<int>(pick(127));
        f[0] = (levels[0] == 255 ? 128 : levels[0]) * 8;
        set_events(mb, n, levels, kScanZigzag);
        return f;
    }

    // H.263 Annex I.
    Block code_aic_block(Mb* mb, unsigned n) {
        static const M4vScan* const kScans[3] = {&kScanZigzag, &kScanHorizontal, &kScanVertical};
        const unsigned place = place_of(*mb, n), mode = mb->aic_mode;
        const Coded* const left = block_at(place - 1);
        const Coded* const above = block_at(place - row_of_blocks);
        const Coded* const from = mode == 1 ? above : mode == 2 ? left : nullptr;
        Block f = random_levels(has_modified_quant ? 1023 : 127);
        f[0] = static_cast<int>(pick(40)) - 20;
        set_events(mb, n, f, *kScans[mode]);
        for (unsigned i = 0; i < 64; ++i) {
            const bool is_predicted = from && (mode == 1 ? i % 8 == 0 : i < 8);
            f[i] = std::clamp(f[i] * 2 * quant_of(n), -2048, 2047);
            if (i > 0 && is_predicted) f[i] = std::clamp(f[i] + from->values[i], -2048, 2047);
        }
        const bool has_both = mode == 0 && left && above;
        const int dc = dc_of(mode == 1 || (mode == 0 && !left) ? above : left);
        f[0] += has_both ? (dc_of(left) + dc_of(above)) / 2 : dc;
        f[0] = std::clamp(f[0] | 1, 0, 2047);
        blocks[place] = {segment_number, 0, f};
        return f;
    }

    Block code_mpeg4_block(Mb* mb, unsigned n) {
        const unsigned place = place_of(*mb, n);
        const Coded* const left = block_at(place - 1);
        const Coded* const above = block_at(place - row_of_blocks);
        const int corner_dc = dc_of(block_at(place - row_of_blocks - 1));
        const bool from_above = abs(dc_of(left) - corner_dc) < abs(corner_dc - dc_of(above));
        const Coded* const from = from_above ? above : left;
        const int scaler = dc_scaler(quant, n >= 4);
        const int dc_level = static_cast<int>(pick(2048)) / scaler;
        Block levels = random_levels(2047);
        Block f = dequantised(levels, quant);
        f[0] = levels[0] = dc_level * scaler;
        blocks[place] = {segment_number, quant, levels};

        levels[0] = dc_level - rounded(dc_of(from), scaler);
        for (unsigned i = 1; i < 8 && mb->ac_pred && from; ++i) {
            const unsigned k = from_above ? i * 8 : i;
            levels[k] -= rounded(from->values[k] * from->quant, quant);
        }
        set_events(mb, n, levels,
                   is_alternate   ? kScanVertical
                   : !mb->ac_pred ? kScanZigzag
                   : from_above   ? kScanHorizontal
                                  : kScanVertical);
        int parity = 0;
        for (const int v : f) parity ^= v;
        if (matrix_length && parity % 2 == 0) f[63] ^= 1;
        return f;
    }

    // The first row and column stay where their prediction has codes.
    Block random_levels(unsigned most) {
        Block levels{};
        const unsigned most_levels = is_flat ? 0 : pick(3);
        for (unsigned count = most_levels * pick(5); count > 0; --count) {
            const unsigned i = pick(pick(4) ? 20 : 64);
            const bool is_edge = i < 8 || i % 8 == 0;
            const int level = 1 + static_cast<int>(pick(is_edge || pick(4) ? 30 : most));
            levels[i] = once_in(2) ? level : -level;
        }
        return levels;
    }

    // ISO/IEC 14496-2 7.4.4, but for the DC.
    Block dequantised(const Block& levels, int q) const {
        Block f{};
        for (unsigned i = 1; i < 64; ++i) {
            int size = 2 * abs(levels[i]);
            if (size == 0) continue;
            size = matrix_length ? size * weights[i] * q / 16 : q * (size + 1) - (q % 2 == 0);
            f[i] = std::clamp(levels[i] < 0 ? -size : size, -2048, 2047);
        }
        return f;
    }

    int quant_of(unsigned n) const {
        static const char kChroma[] = "abcdefgghijjkkllmmmnnnoooooppppp";  // H.263 Table T.1
        return n >= 4 && has_modified_quant ? kChroma[quant] - 'a' : quant;
    }

    static int dc_of(const Coded* block) { return block ? block->values[0] : 1024; }

    // The planes lie below each other, each with a free column on its left and a free row above.
    unsigned place_of(const Mb& mb, unsigned n) const {
        const unsigned row = n < 4 ? mb.y * 2 + (n >> 1) + 1 : mb.y + (n - 2) * (h + 1);
        return row * row_of_blocks + (n < 4 ? mb.x * 2 + (n & 1) : mb.x) + 1;
    }

    const Coded* block_at(unsigned place) const {
        return blocks[place].segment == segment_number ? &blocks[place] : nullptr;
    }

    void show(const Mb& mb, unsigned n, const Block& f) {
        alignas(16) int16_t block[64];
        std::copy(f.begin(), f.end(), block);
        const size_t pitch = n < 4 ? w * 16 : w * 8;
        const unsigned row = mb.is_field ? n >> 1 : (n >> 1) * 8;
        const size_t at = n < 4 ? (mb.y * 16 + row) * pitch + mb.x * 16 + (n & 1) * 8
                                : w * h * n * 64 + mb.y * 8 * pitch + mb.x * 8;
        m4v_idct_scalar(&picture.planes[at], mb.is_field && n < 4 ? 2 * pitch : pitch, block, 8, 8);
    }

    // --- Codes

    static void set_events(Mb* mb, unsigned n, const Block& levels, const M4vScan& scan) {
        for (unsigned i = 0; i < 64; ++i) {
            const int level = mb->events[n][i] = levels[scan.position[i]];
            if (level != 0 && (i > 0 || mb->has_dc_events)) mb->cbp |= 32u >> n;
        }
    }

    void put_mb(const Mb& mb, BitPacker* patterns, BitPacker* events) {
        static const char* const kMcbpc[2][4] = {{"1", "001", "010", "011"},
                                                 {"0001", "000001", "000010", "000011"}};
        static const char* const kCbpy[16] = {"0011",   "00101", "00100", "1001",   "00011", "0111",
                                              "000010", "1011",  "00010", "000011", "0101",  "1010",
                                              "0100",   "1000",  "0110",  "11"};
        while (once_in(8)) sample.text("000000001");  // stuffing
        sample.text(kMcbpc[!mb.dquant.empty()][mb.cbp & 3]);
        if (!h263) patterns->u(1, mb.ac_pred);
        if (has_aic) sample.text(mb.aic_mode == 0 ? "0" : mb.aic_mode == 1 ? "10" : "11");
        patterns->text(kCbpy[mb.cbp >> 2]);
        sample.text(mb.dquant);
        if (has_field_flags) sample.u(1, mb.is_field);
        for (unsigned n = 0; n < 6; ++n) {
            if (h263 && !has_aic) sample.u(8, static_cast<uint32_t>(mb.events[n][0]));
            if (!h263 && !mb.has_dc_events) put_dc(mb.events[n][0], n >= 4);
            if (mb.cbp >> (5 - n) & 1) put_events(events, mb.events[n], !mb.has_dc_events);
        }
    }

    void put_dc(int value, bool is_chroma) {
        // Sizes 0 to 3 have codes of their own, the others lead with zeros.
        static const char* const kShort[2][4] = {{"011", "11", "10", "010"},
                                                 {"11", "10", "01", "001"}};
        int size = 0;
        while (abs(value) >> size) ++size;
        size < 4 ? sample.text(kShort[is_chroma][size]) : sample.u(size - !is_chroma, 1);
        sample.u(size, static_cast<uint32_t>(value < 0 ? value - 1 : value)).u(size > 8, 1);
    }

    void put_events(BitPacker* out, const Block& events, unsigned first) {
        unsigned end = 64, run = 0;
        while (events[end - 1] == 0) --end;
        for (unsigned i = first; i < end; ++i) {
            if (events[i] != 0) put_event(out, i + 1 == end, run, events[i]);
            run = events[i] != 0 ? 0 : run + 1;
        }
    }

    // Escapes, but for the two shortest codes.
    void put_event(BitPacker* out, bool last, unsigned run, int level) {
        const auto bits = static_cast<uint32_t>(level), size = static_cast<uint32_t>(abs(level));
        if (run == 0 && size == 1 && !once_in(8)) {
            out->text(is_reversible ? last ? "1011" : "110" : last ? "0111" : "10");
            out->u(1, level < 0);
        } else if (is_reversible) {
            out->text("00001").u(7, last << 6 | run).text("1").u(11, size);
            out->text("1 0000").u(1, level < 0);
        } else if (h263) {
            out->text("0000011").u(1, last).u(6, run).u(8, size < 128 ? bits : 128);
            if (size >= 128) out->u(5, bits).u(6, bits >> 5);
        } else {
            out->text("0000011 11").u(1, last).u(6, run).u(1, 1).u(12, bits).u(1, 1);
        }
    }

    const unsigned row_of_blocks = 2 * w + 1;

    int quant = 1 + static_cast<int>(pick(31));
    BitPacker sample;
    Block weights;  // quantiser matrix
    std::vector<Coded> blocks = std::vector<Coded>(row_of_blocks * (4 * h + 3), {~0u, 0, {}});
    unsigned segment_number = 0;
};

}  // namespace

WrittenPicture write_picture(bool is_h263, Choices* choices) {
    return Writer(is_h263, choices).picture;
}

std::string mpeg4_layer(unsigned width, unsigned height, const std::string& middle,
                        const std::string& shape, unsigned type) {
    BitPacker out;
    out.u(32, 0x120).text("0").u(8, type).text("0 0001 0").text(shape).text("1").u(16, 16);
    out.text("1 0 1").u(13, width).u(1, 1).u(13, height).u(1, 1).text(middle);
    return out.u(1, 0).align(1).str();
}
