// SPDX-License-Identifier: BSD-2-Clause
// H.263 I-pictures with the annexes that no encoder at hand writes, from an encoder of the test's
// own, against a floating-point model of the picture.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <optional>

#include "m4vdec/h263_headers.h"
#include "tests/m4vdec/m4v_writer.h"

namespace {

enum class Segments { kNone, kGobs, kSlices, kRectangles, kVariantSlices };

struct Stream {
    const char* name;
    unsigned width = 176, height = 144;
    unsigned quant = 7;
    bool plus = false;  // PLUSPTYPE, which the modes below need
    bool aic = false, modified_quant = false, deblocking = false, independent = false;
    Segments segments = Segments::kNone;
    bool dquant = false;
    bool everything = false;  // all optional header fields
    bool wild = false;        // levels up to the limits
    bool flat = false;        // DC only, exact in any transform
};

int clip12(int v) { return std::clamp(v, -2048, 2047); }

class PictureWriter {
 public:
    PictureWriter(const Stream& stream, unsigned seed)
        : s(stream),
          random(seed),
          coder(s.modified_quant ? (s.aic ? kTcoefAicExtended : kTcoefH263Extended)
                                 : (s.aic ? kTcoefAic : kTcoefH263)),
          picture(s.width, s.height),
          w(picture.width_mbs),
          h(picture.height_mbs),
          blocks(w * h),
          quants(w * h) {}

    void write() {
        quant = static_cast<int>(s.quant);
        write_picture_header();
        const std::vector<Area> areas = make_areas();
        for (segment = 1; segment <= areas.size(); ++segment) {
            const Area& area = areas[segment - 1];
            if (s.segments != Segments::kNone) write_segment_header(area, segment == 1);
            for (unsigned i = 0; i < area.count; ++i) {
                const unsigned column = area.first % w;
                area.width == 0
                    ? write_mb((area.first + i) % w, (area.first + i) / w)
                    : write_mb(column + i % area.width, area.first / w + i / area.width);
            }
        }
        out.align(false);
        if (s.deblocking) deblock();
    }

    const std::vector<uint8_t>& sample() const { return out.bytes; }
    const ModelPicture& expected() const { return picture; }

 private:
    struct Area {
        unsigned first, count, width;  // width 0: along the rows of the picture
    };
    struct Coded {  // a macroblock: coefficients of its blocks
        unsigned segment = 0;
        Block block[6];
    };

    unsigned pick(unsigned n) { return static_cast<unsigned>(random() % n); }
    bool has_slices() const { return s.segments >= Segments::kSlices; }

    unsigned format() const {
        static const unsigned kWidths[] = {128, 176, 352, 704, 1408};
        for (unsigned i = 0; i < 5; ++i) {
            if (s.width == kWidths[i] && s.height == (s.width == 128 ? 96 : s.width * 9 / 11)) {
                return i + 1;
            }
        }
        return 6;
    }

    void write_picture_header() {
        out.put(0x20, 22);
        out.put("10110101 10 101");  // temporal reference; split screen and the like
        if (s.plus) {
            out.put("111 001");
            out.put(format(), 3);
            // Custom clock, vectors, no arithmetic coding, overlap; then the modes.
            out.put(s.everything ? "110 1" : "000 0");
            out.put(s.aic, 1), out.put(s.deblocking, 1), out.put(has_slices(), 1);
            out.put(s.everything, 1);  // reference selection
            out.put(s.independent, 1), out.put(s.everything, 1), out.put(s.modified_quant, 1);
            out.put("1 000");
            out.put("000 00 1 00 1");  // I-picture
            out.put(s.everything ? "1 10" : "0");
            if (format() == 6) {
                out.put(s.everything ? 15 : 2, 4);
                out.put(s.width / 4 - 1, 9), out.put(1, 1), out.put(s.height / 4, 9);
                if (s.everything) out.put(0x0b0a, 16);
            }
            if (s.everything) out.put("1 0000001 01 01");  // clock, ETR, UUI
            if (has_slices()) out.put(s.segments == Segments::kRectangles, 1), out.put("1");
            if (s.everything) out.put("100 1 0000000001 01");
            out.put(s.quant, 5);
        } else {
            out.put(format(), 3);
            out.put(s.everything ? "0 1 0 1 0" : "0 0 0 0 0");
            out.put(s.quant, 5);
            out.put(s.everything ? "1 01" : "0");
        }
        if (s.everything) out.put("1 00000000 1 11111111");
        out.put("0");
    }

    std::vector<Area> make_areas() {
        std::vector<Area> areas;
        if (s.segments == Segments::kNone) return {{0, w * h, 0}};
        if (s.segments == Segments::kGobs) {
            const unsigned rows = s.height <= 400 ? 1 : s.height <= 800 ? 2 : 4;
            for (unsigned y = 0; y < h;) {  // some GOBs have no header
                const unsigned end = std::min(h, y + rows * (1 + pick(3)));
                areas.push_back({y * w, (end - y) * w, 0});
                y = end;
            }
            return areas;
        }
        if (s.segments == Segments::kRectangles) {
            const unsigned split = 1 + pick(w - 1);
            for (unsigned y = 0; y < h;) {
                const unsigned rows = std::min(h - y, 1 + pick(3));
                areas.push_back({y * w, split * rows, split});
                areas.push_back({y * w + split, (w - split) * rows, w - split});
                y += rows;
            }
        } else {
            for (unsigned first = 0; first < w * h;) {
                const unsigned count = std::min(w * h - first, 1 + pick(2 * w));
                areas.push_back({first, count, 0});
                first += count;
            }
        }
        std::shuffle(areas.begin(), areas.end(), random);  // arbitrary slice ordering
        return areas;
    }

    void write_segment_header(const Area& area, bool is_first) {
        if (!is_first) {
            out.align(false);
            out.put(1, 17);
            quant = 1 + static_cast<int>(pick(s.dquant ? 31 : s.quant));
        }
        const uint32_t q = static_cast<uint32_t>(quant);
        if (s.segments == Segments::kGobs) {
            if (is_first) return;
            const unsigned rows = s.height <= 400 ? 1 : s.height <= 800 ? 2 : 4;
            out.put(area.first / w / rows, 5);
            out.put(s.everything ? "11 01" : "01");
            out.put(q, 5);
            return;
        }
        const unsigned total = w * h;
        const unsigned bits = total <= 48     ? 6
                              : total <= 99   ? 7
                              : total <= 396  ? 9
                              : total <= 1584 ? 11
                              : total <= 6336 ? 13
                                              : 14;
        out.put("1");
        if (s.everything) out.put("1010");
        out.put(area.first, bits);
        const bool is_variant = s.segments == Segments::kVariantSlices;
        if (is_variant ? !is_first && total >= 1584 : bits > (s.everything ? 9 : 11)) out.put("1");
        if (!is_first) out.put(q, 5);
        if (area.width)
            out.put(area.width - 1, w <= 8 ? 3 : w <= 11 ? 4 : w <= 22 ? 5 : w <= 44 ? 6 : 7);
        out.put("1");
        if (!is_first) out.put("10");
    }

    void write_dquant() {
        if (!s.modified_quant) {
            static const int kChange[4] = {-1, -2, 1, 2};
            const unsigned code = pick(4);
            out.put(code, 2);
            quant = std::clamp(quant + kChange[code], 1, 31);
            return;
        }
        if (pick(2)) {
            quant = 1 + static_cast<int>(pick(31));
            out.put("0"), out.put(static_cast<uint32_t>(quant), 5);
            return;
        }
        // T.2, the quantiser after "10" and "11".
        static const uint8_t kNext[2][32] = {
            {0,  3,  1,  2,  3,  4,  5,  6,  7,  8,  9,  9,  10, 11, 12, 13,
             14, 15, 16, 17, 18, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28},
            {0,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 13, 14, 15, 16, 17,
             18, 19, 20, 21, 22, 24, 25, 26, 27, 28, 29, 30, 31, 31, 31, 26}};
        const unsigned code = pick(2);
        out.put(2 + code, 2);
        quant = kNext[code][quant];
    }

    int chroma_quant(int q) const {
        static const uint8_t kQuants[32] = {0,  1,  2,  3,  4,  5,  6,  6,  7,  8,  9,
                                            9,  10, 10, 11, 11, 12, 12, 12, 13, 13, 13,
                                            14, 14, 14, 14, 14, 15, 15, 15, 15, 15};
        return s.modified_quant ? kQuants[q] : q;
    }

    Block random_levels(int q) {
        Block levels{};
        if (s.flat) return levels;
        int budget = s.wild ? 700 : 1400;
        for (unsigned count = pick(3) ? pick(12) : 0; count > 0; --count) {
            const unsigned i = 1 + pick(pick(4) ? 20 : 63);
            const int level = 1 + static_cast<int>(pick(pick(4) ? 3 : 40));
            if (level * q * 2 > budget || levels[i] != 0) continue;
            budget -= level * q * 2;
            levels[i] = pick(2) ? level : -level;
        }
        if (s.wild && pick(2)) {
            const int level = 1 + static_cast<int>(pick(s.modified_quant ? 1023 : 127));
            levels[9 + pick(7) * 8 + pick(7)] = pick(2) ? level : -level;
        }
        return levels;
    }

    const Block* neighbour(unsigned x, unsigned y, unsigned n, bool is_above) const {
        if (n < 4 && (is_above ? n & 2 : n & 1))
            return &blocks[y * w + x].block[n - (is_above ? 2 : 1)];
        if (is_above ? y == 0 : x == 0) return nullptr;
        const Coded& mb = blocks[is_above ? (y - 1) * w + x : y * w + x - 1];
        return mb.segment != segment ? nullptr : &mb.block[n >= 4 ? n : n + (is_above ? 2 : 1)];
    }

    // Annex I: chooses levels, and what is reconstructed from them. Modes: 1 vertical, 2
    // horizontal.
    Block aic_block(unsigned x, unsigned y, unsigned n, unsigned mode, int q, Block* levels) {
        const Block* const above = neighbour(x, y, n, true);
        const Block* const left = neighbour(x, y, n, false);
        Block prediction{};
        if (mode == 0) {
            const int sum = (above ? (*above)[0] : 0) + (left ? (*left)[0] : 0);
            prediction[0] = above && left ? sum / 2 : above || left ? sum : 1024;
        } else {
            const Block* const from = mode == 1 ? above : left;
            for (unsigned i = 0; i < 8 && from; ++i) {
                const unsigned k = mode == 1 ? i : i * 8;
                prediction[k] = (*from)[k];
            }
            if (!from) prediction[0] = 1024;
        }
        Block rec{};
        for (unsigned i = 0; i < 64; ++i) {
            if (i == 0) (*levels)[0] = (static_cast<int>(pick(2048)) - prediction[0]) / (2 * q);
            // Keeps predicted coefficients from adding up.
            if (i != 0 && prediction[i] != 0) (*levels)[i] -= prediction[i] / (2 * q);
            const int limit = s.modified_quant ? 1023 : 127;
            (*levels)[i] = std::clamp((*levels)[i], -limit, limit);
            rec[i] = clip12(prediction[i] + 2 * q * (*levels)[i]);
        }
        rec[0] = std::clamp(rec[0] % 2 ? rec[0] : rec[0] + 1, 0, 2047);
        return rec;
    }

    Block h263_block(int q, Block* levels) {
        Block rec{};
        (*levels)[0] = 1 + static_cast<int>(pick(254));
        if ((*levels)[0] == 128) (*levels)[0] = 255;  // how 128 is written
        rec[0] = ((*levels)[0] == 255 ? 128 : (*levels)[0]) * 8;
        for (unsigned i = 1; i < 64; ++i) {
            const int level = (*levels)[i];
            const int magnitude = level ? q * (2 * abs(level) + 1) - (q % 2 == 0) : 0;
            rec[i] = clip12(level < 0 ? -magnitude : magnitude);
        }
        return rec;
    }

    void write_mb(unsigned x, unsigned y) {
        while (s.everything && pick(4) == 0) out.put("000000001");
        const bool has_dquant = s.dquant && pick(2);
        const unsigned mode = s.aic ? pick(3) : 0;
        BitPacker header = out;  // the quantiser comes behind the pattern, which depends on it
        BitPacker scrap;
        std::swap(out, scrap);
        if (has_dquant) write_dquant();
        std::swap(out, scrap);
        static const Scan kScans[3] = {Scan::kZigzag, Scan::kHorizontal, Scan::kVertical};
        Coded& mb = blocks[y * w + x];
        mb.segment = segment;
        quants[y * w + x] = quant;
        Block levels[6];
        unsigned cbp = 0;
        for (unsigned n = 0; n < 6; ++n) {
            const int q = n < 4 ? quant : chroma_quant(quant);
            levels[n] = random_levels(q);
            mb.block[n] =
                s.aic ? aic_block(x, y, n, mode, q, &levels[n]) : h263_block(q, &levels[n]);
            picture.put_block(x, y, n, false, mb.block[n]);
            if (is_any_set(levels[n], s.aic ? 0 : 1, kScans[mode])) cbp |= 32u >> n;
        }
        put_mcbpc(&out, cbp & 3, has_dquant);
        if (s.aic) out.put(mode == 0 ? "0" : mode == 1 ? "10" : "11");
        put_cbpy(&out, cbp >> 2);
        const unsigned dquant_bits =
            static_cast<unsigned>(scrap.bytes.size()) * 8 - (scrap.used ? 8 - scrap.used : 0);
        for (unsigned i = 0; i < dquant_bits; ++i)
            out.put(scrap.bytes[i / 8] >> (7 - i % 8) & 1u, 1);
        for (unsigned n = 0; n < 6; ++n) {
            if (!s.aic) out.put(static_cast<uint32_t>(levels[n][0]), 8);
            if (cbp >> (5 - n) & 1) {
                coder.put_block(&out, levels[n], kScans[mode], s.aic ? 0 : 1, &random);
            }
        }
    }

    // J.3 by its formulas, sample by sample: all horizontal edges first.
    void deblock() {
        static const int kStrength[32] = {0, 1, 1, 2, 2, 3, 3, 4,  4,  4,  5,  5,  6,  6,  7,  7,
                                          7, 8, 8, 8, 9, 9, 9, 10, 10, 10, 11, 11, 11, 12, 12, 12};
        for (unsigned plane = 0; plane < 3; ++plane) {
            const unsigned mb_size = plane ? 8 : 16;
            const unsigned pw = w * mb_size, ph = h * mb_size;
            uint8_t* const base =
                picture.planes.data() + (plane ? w * h * 256 + (plane - 1) * w * h * 64 : 0);
            for (const bool is_vertical_edge : {false, true}) {
                for (unsigned i = 0; i < pw * ph; ++i) {
                    const unsigned x = i % pw, y = i / pw;
                    const unsigned along = is_vertical_edge ? x : y;
                    if (along == 0 || along % 8 != 0) continue;
                    const unsigned mb = y / mb_size * w + x / mb_size;
                    const unsigned back = is_vertical_edge ? 1 : w;
                    if (s.independent && along % mb_size == 0 &&
                        blocks[mb].segment != blocks[mb - back].segment) {
                        continue;
                    }
                    const int q = plane ? chroma_quant(quants[mb]) : quants[mb];
                    uint8_t* const p = base + i;
                    filter(p, is_vertical_edge ? 1 : static_cast<int>(pw), kStrength[q]);
                }
            }
        }
    }

    static void filter(uint8_t* p, int step, int strength) {
        const int a = p[-2 * step], b = p[-step], c = p[0], d = p[step];
        const int x = (a - 4 * b + 4 * c - d) / 8;
        const int d1 =
            (x < 0 ? -1 : 1) * std::max(0, abs(x) - std::max(0, 2 * (abs(x) - strength)));
        const int limit = abs(d1 / 2);
        const int d2 = std::clamp((a - d) / 4, -limit, limit);
        p[-2 * step] = static_cast<uint8_t>(a - d2);
        p[-step] = static_cast<uint8_t>(std::clamp(b + d1, 0, 255));
        p[0] = static_cast<uint8_t>(std::clamp(c - d1, 0, 255));
        p[step] = static_cast<uint8_t>(d + d2);
    }

    const Stream s;
    std::mt19937 random;
    EventCoder coder;
    ModelPicture picture;
    const unsigned w, h;
    std::vector<Coded> blocks;
    std::vector<int> quants;
    BitPacker out;
    int quant = 0;
    unsigned segment = 0;
};

}  // namespace

TEST(H263Picture, MatchesTheModelWithEveryAnnex) {
    static const Stream kStreams[] = {
        {.name = "sub-QCIF", .width = 128, .height = 96, .dquant = true},
        {.name = "limits", .quant = 3, .wild = true},
        {.name = "all fields of a plain header", .segments = Segments::kGobs, .everything = true},
        {.name = "GOBs of two rows", .width = 704, .height = 576, .segments = Segments::kGobs},
        {.name = "GOBs of four rows",
         .width = 12,
         .height = 1152,
         .plus = true,
         .segments = Segments::kGobs},
        {.name = "smallest", .width = 4, .height = 4, .plus = true, .aic = true},
        {.name = "all fields",
         .width = 60,
         .height = 52,
         .plus = true,
         .aic = true,
         .modified_quant = true,
         .segments = Segments::kSlices,
         .everything = true},
        {.name = "advanced intra", .plus = true, .aic = true, .dquant = true},
        {.name = "advanced intra, GOBs",
         .quant = 2,
         .plus = true,
         .aic = true,
         .segments = Segments::kGobs,
         .wild = true},
        {.name = "modified quantisation", .plus = true, .modified_quant = true, .dquant = true},
        {.name = "extended levels", .quant = 1, .plus = true, .modified_quant = true, .wild = true},
        {.name = "all of it",
         .quant = 2,
         .plus = true,
         .aic = true,
         .modified_quant = true,
         .segments = Segments::kRectangles,
         .dquant = true,
         .wild = true},
        {.name = "slices out of order",
         .plus = true,
         .aic = true,
         .segments = Segments::kSlices,
         .dquant = true},
        {.name = "rectangles",
         .width = 200,
         .height = 100,
         .plus = true,
         .aic = true,
         .segments = Segments::kRectangles},
        {.name = "deblocking", .plus = true, .deblocking = true, .dquant = true, .flat = true},
        {.name = "deblocking, chroma quantiser",
         .plus = true,
         .modified_quant = true,
         .deblocking = true,
         .dquant = true,
         .flat = true},
        {.name = "deblocking, independent slices",
         .plus = true,
         .deblocking = true,
         .independent = true,
         .segments = Segments::kRectangles,
         .dquant = true,
         .flat = true},
    };
    for (const Stream& stream : kStreams) {
        for (unsigned seed = 1; seed <= 12; ++seed) {
            PictureWriter writer(stream, seed);
            writer.write();
            for (const bool is_mpeg4 : {false, true}) {  // where it is a short video header
                std::vector<uint8_t> planes;
                ASSERT_EQ(decode_sample({}, writer.sample(), is_mpeg4, &planes), 0)
                    << stream.name << ", seed " << seed;
                ASSERT_LE(most_difference(planes, writer.expected().planes), stream.flat ? 0 : 1)
                    << stream.name << ", seed " << seed;
            }
        }
    }
}

// 4CIF has 11-bit addresses, 16CIF 13 bits: each with SEPB2 as the standard has it and as another
// encoder does.
TEST(H263Picture, TakesBothFormsOfLargeSliceHeaders) {
    for (const unsigned width : {704u, 1408u}) {
        for (const Segments segments : {Segments::kSlices, Segments::kVariantSlices}) {
            const Stream stream = {.name = "slices",
                                   .width = width,
                                   .height = width * 9 / 11,
                                   .plus = true,
                                   .segments = segments,
                                   .flat = true};
            PictureWriter writer(stream, 3);
            writer.write();
            std::vector<uint8_t> planes;
            ASSERT_EQ(decode_sample({}, writer.sample(), false, &planes), 0) << width;
            EXPECT_EQ(planes, writer.expected().planes) << width;
        }
    }
}

TEST(H263Headers, RefuseWhatWouldChangeAnIPicture) {
    static const struct {
        const char* name;
        const char* bits;  // behind the start code and the temporal reference
    } kCases[] = {
        {"no fixed bits", "00 000 010 00000 00111 0 0"},
        {"forbidden format", "10 000 000 00000 00111 0 0"},
        {"reserved format", "10 000 110 00000 00111 0 0"},
        {"inter picture", "10 000 010 10000 00111 0 0"},
        {"arithmetic coding", "10 000 010 00100 00111 0 0"},
        {"PB-frame", "10 000 010 00001 00111 0 0"},
        {"quantiser 0", "10 000 010 00000 00000 0 0"},
        {"no OPPTYPE", "10 000 111 000 000000001 0 00111 0"},
        {"plus: reserved format", "10 000 111 001 111 000000000001000 000000001 0 00111 0"},
        {"plus: arithmetic coding", "10 000 111 001 010 001000000001000 000000001 0 00111 0"},
        {"plus: inter picture", "10 000 111 001 010 000000000001000 001000001 0 00111 0"},
        {"plus: EI-picture", "10 000 111 001 010 000000000001000 100000001 0 00111 0"},
        {"plus: resampling", "10 000 111 001 010 000000000001000 000100001 0 00111 0"},
        {"plus: reduced resolution", "10 000 111 001 010 000000000001000 000010001 0 00111 0"},
        {"custom height 0",
         "10 000 111 001 110 000000000001000 000000001 0 0010 000000001 1 000000000 00111 0"},
        {"custom height 1156",
         "10 000 111 001 110 000000000001000 000000001 0 0010 000000001 1 100100001 00111 0"},
        {"back-channel message", "10 000 111 001 010 000000010001000 000000001 0 100 0 1 00111 0"},
    };
    for (const auto& c : kCases) {
        BitPacker out;
        out.put(0x20, 22), out.put(77, 8), out.put(c.bits), out.put(0, 32);
        M4vBits bits;
        H263Picture picture;
        bits.start(out.bytes.data(), out.bytes.size());
        EXPECT_EQ(h263_parse_picture(&bits, &picture), 1) << c.name;
    }
}
