// SPDX-License-Identifier: BSD-2-Clause
// H.263 I-pictures with the annexes that no encoder at hand writes, from an encoder of the test's
// own, against a floating-point model of the picture.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>

#include "m4vdec/h263_headers.h"
#include "tests/m4vdec/m4v_writer.h"

namespace {

enum Segments : unsigned { kNone, kGobs, kSlices, kRectangles, kVariantSlices, kMacroblocks };

struct Stream : Options {
    using Options::Options;
    unsigned width = get("width", 176), height = get("height", 144);
    unsigned quant = get("quant", 7), dquant = get("dquant");
    unsigned plus = get("plus");  // PLUSPTYPE, which the modes need
    unsigned modified_quant = get("modified_quant");
    unsigned independent = get("independent");  // segments, with the deblocking filter
    unsigned segments = get("segments", kNone);
    unsigned everything = get("everything");  // all optional header fields
    unsigned wild = get("wild");              // levels up to the limits
    unsigned flat = get("flat");              // one DC for luma
};

class PictureWriter {
 public:
    PictureWriter(const Stream& stream, unsigned seed)
        : s(stream),
          random(seed),
          coder(s.modified_quant ? kTcoefH263Extended : kTcoefH263),
          picture(s.width, s.height),
          w(picture.width_mbs),
          h(picture.height_mbs) {}

    void write() {
        quant = static_cast<int>(s.quant);
        write_picture_header();
        const std::vector<Area> areas = make_areas();
        for (segment = 1; segment <= areas.size(); ++segment) {
            const Area& area = areas[segment - 1];
            if (s.segments != kNone) write_segment_header(area, segment == 1);
            for (unsigned i = 0; i < area.count; ++i) {
                const unsigned column = area.first % w;
                area.width == 0
                    ? write_mb((area.first + i) % w, (area.first + i) / w)
                    : write_mb(column + i % area.width, area.first / w + i / area.width);
            }
        }
        out.align(false);
    }

    const std::vector<uint8_t>& sample() const { return out.bytes; }
    const ModelPicture& expected() const { return picture; }

 private:
    struct Area {
        unsigned first, count, width;  // width 0: along the rows of the picture
    };
    unsigned pick(unsigned n) { return static_cast<unsigned>(random() % n); }
    bool has_slices() const { return s.segments >= kSlices; }

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
            out.put("0"), out.put(s.independent, 1), out.put(has_slices(), 1);
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
            if (has_slices()) out.put(s.segments == kRectangles, 1), out.put("1");
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
        if (s.segments == kNone) return {{0, w * h, 0}};
        if (s.segments == kGobs) {
            const unsigned rows = s.height <= 400 ? 1 : s.height <= 800 ? 2 : 4;
            for (unsigned y = 0; y < h;) {  // some GOBs have no header
                const unsigned end = std::min(h, y + rows * (1 + pick(3)));
                areas.push_back({y * w, (end - y) * w, 0});
                y = end;
            }
            return areas;
        }
        if (s.segments == kRectangles) {
            const unsigned split = 1 + pick(w - 1);
            for (unsigned y = 0; y < h;) {
                const unsigned rows = std::min(h - y, 1 + pick(3));
                areas.push_back({y * w, split * rows, split});
                areas.push_back({y * w + split, (w - split) * rows, w - split});
                y += rows;
            }
        } else {
            for (unsigned first = 0; first < w * h;) {
                const unsigned count =
                    std::min(w * h - first, s.segments == kMacroblocks ? 1 : 1 + pick(2 * w));
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
        if (s.segments == kGobs) {
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
        const bool is_variant = s.segments == kVariantSlices;
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

    static Block reconstructed(const Block& levels, int q) {
        Block rec{};
        for (unsigned i = 1; i < 64; ++i) {
            const int size = levels[i] ? q * (2 * abs(levels[i]) + 1) - (q % 2 == 0) : 0;
            rec[i] = std::clamp(levels[i] < 0 ? -size : size, -2048, 2047);
        }
        rec[0] = (levels[0] == 255 ? 128 : levels[0]) * 8;
        return rec;
    }

    void write_mb(unsigned x, unsigned y) {
        while (s.everything && pick(4) == 0) out.put("000000001");
        const bool has_dquant = s.dquant && pick(2);
        BitPacker before;  // the quantiser comes behind the pattern, which depends on it
        std::swap(out, before);
        if (has_dquant) write_dquant();
        BitPacker dquant;
        std::swap(out, dquant);
        std::swap(out, before);
        Block levels[6];
        unsigned cbp = 0;
        const unsigned flat_dc = 1 + pick(127);
        for (unsigned n = 0; n < 6; ++n) {
            const int q = n < 4 ? quant : chroma_quant(quant);
            levels[n] = random_levels(q);
            // 255 is how 128 is written.
            levels[n][0] = static_cast<int>(s.flat ? flat_dc : pick(8) ? 1 + pick(127) : 255);
            picture.put_block(x, y, n, false, reconstructed(levels[n], q));
            if (is_any_set(levels[n], 1, Scan::kZigzag)) cbp |= 32u >> n;
        }
        put_mcbpc(&out, cbp & 3, has_dquant);
        put_cbpy(&out, cbp >> 2);
        const size_t dquant_bits = dquant.bytes.size() * 8 - (8 - dquant.used) % 8;
        for (size_t i = 0; i < dquant_bits; ++i)
            out.put(dquant.bytes[i / 8] >> (7 - i % 8) & 1u, 1);
        for (unsigned n = 0; n < 6; ++n) {
            out.put(static_cast<uint32_t>(levels[n][0]), 8);
            if (cbp >> (5 - n) & 1) coder.put_block(&out, levels[n], Scan::kZigzag, 1, &random);
        }
    }

    const Stream s;
    std::mt19937 random;
    EventCoder coder;
    ModelPicture picture;
    const unsigned w, h;
    BitPacker out;
    int quant = 0;
    unsigned segment = 0;
};

}  // namespace

TEST(H263Picture, MatchesTheModelWithEveryAnnex) {
    for (const char* const text : {
             "width=128 height=96 dquant",
             "quant=3 wild",
             "segments=1 everything",
             "width=704 height=576 segments=1 flat",
             "width=12 height=1152 plus segments=1",
             "width=4 height=4 plus",
             "width=60 height=52 plus modified_quant segments=2 everything",
             "plus modified_quant dquant",
             "quant=1 plus modified_quant wild",
             "plus modified_quant segments=3 dquant",
             "width=200 height=100 plus segments=3",
             // A filter that may not cross the edge of any macroblock finds nothing to do.
             "plus independent segments=5 flat",
             // 11-bit and 13-bit addresses: SEPB2 as the standard has it, and as an encoder does.
             "width=704 height=576 plus segments=2 flat",
             "width=704 height=576 plus segments=4 flat",
             "width=1408 height=1152 plus segments=2 flat",
             "width=1408 height=1152 plus segments=4 flat",
         }) {
        const Stream stream(text);
        const unsigned seeds = stream.width > 352 ? 1 : 8;
        for (unsigned seed = 1; seed <= seeds; ++seed) {
            PictureWriter writer(stream, seed);
            writer.write();
            for (const bool is_mpeg4 : {false, true}) {  // where it is a short video header
                std::vector<uint8_t> planes;
                ASSERT_EQ(decode_sample({}, writer.sample(), is_mpeg4, &planes), 0)
                    << text << ", seed " << seed;
                ASSERT_LE(most_difference(planes, writer.expected().planes), stream.flat ? 0 : 1)
                    << text << ", seed " << seed;
            }
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
