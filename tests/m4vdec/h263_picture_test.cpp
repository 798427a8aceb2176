// SPDX-License-Identifier: BSD-2-Clause
// H.263 I-pictures with the annexes that no encoder at hand writes, from an encoder of the test's
// own, against a floating-point model of the picture.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <bitset>

#include "m4vdec/h263_headers.h"
#include "tests/m4vdec/m4v_writer.h"

namespace {

enum Segments : unsigned { kNone, kGobs, kSlices, kRectangles, kVariantSlices, kMacroblocks };

struct Stream : CommonOptions {
    using CommonOptions::CommonOptions;
    unsigned plus = get("plus");  // PLUSPTYPE, which the modes need
    unsigned modified_quant = get("modified_quant");
    unsigned independent = get("independent");  // segments, with the deblocking filter
    unsigned segments = get("segments", kNone);
};

class PictureWriter : public StreamWriter {
 public:
    PictureWriter(const Stream& stream, unsigned seed)
        : StreamWriter(stream, stream.modified_quant ? kTcoefH263Extended : kTcoefH263, seed),
          s(stream) {
        write_picture_header();
        const std::vector<Area> areas = make_areas();
        for (const Area& area : areas) {
            if (s.segments != kNone) write_segment_header(area, &area == &areas[0]);
            for (unsigned i = 0; i < area.count; ++i) {
                const unsigned column = area.first % w;
                area.width == 0
                    ? write_mb((area.first + i) % w, (area.first + i) / w)
                    : write_mb(column + i % area.width, area.first / w + i / area.width);
            }
        }
        sample.align();
    }

 private:
    struct Area {
        unsigned first, count, width;  // width 0: along the rows of the picture
    };
    bool has_slices() const { return s.segments >= kSlices; }

    unsigned format() const {
        for (unsigned i = 0; i < 5; ++i) {
            const unsigned width = i == 0 ? 128 : 88u << i;
            if (s.width == width && s.height == (i == 0 ? 96 : width * 9 / 11)) return i + 1;
        }
        return 6;
    }

    unsigned rows_of_gob() const { return s.height <= 400 ? 1 : s.height <= 800 ? 2 : 4; }

    void write_picture_header() {
        // Temporal reference; split screen and the like.
        sample.u(22, 0x20).text("10110101 10 101").u(3, s.plus ? 7 : format());
        if (s.plus) {
            // Custom clock, vectors, no arithmetic coding, overlap; then the modes.
            sample.text("001").u(3, format()).text(s.everything ? "110 1" : "000 0");
            sample.u(2, s.independent).u(1, has_slices()).u(1, s.everything);  // selection
            sample.u(1, s.independent).u(1, s.everything).u(1, s.modified_quant).text("1 000");
            sample.text("000 00 1 00 1").text(s.everything ? "1 10" : "0");  // I-picture
            if (format() == 6) {
                sample.u(4, s.everything ? 15 : 2).u(9, s.width / 4 - 1).u(1, 1);
                sample.u(9, s.height / 4);
                if (s.everything) sample.u(16, 0x0b0a);
            }
            if (s.everything) sample.text("1 0000001 01 01");  // clock, ETR, UUI
            if (has_slices()) sample.u(1, s.segments == kRectangles).u(1, 1);
            if (s.everything) sample.text("100 1 0000000001 01");
            sample.u(5, s.quant);
        } else {
            sample.text(s.everything ? "0 1 0 1 0" : "00000").u(5, s.quant);
            sample.text(s.everything ? "1 01" : "0");
        }
        sample.text(s.everything ? "1 00000000 1 11111111 0" : "0");
    }

    std::vector<Area> make_areas() {
        std::vector<Area> areas;
        if (s.segments == kNone) return {{0, w * h, 0}};
        const unsigned split = s.segments == kRectangles ? 1 + pick(w - 1) : w;
        const unsigned unit = s.segments == kGobs ? rows_of_gob() : 1;
        for (unsigned first = 0; first < w * h;) {
            unsigned count = s.segments == kMacroblocks ? 1 : 1 + pick(2 * w);
            const bool has_rows = s.segments == kGobs || split < w;
            if (has_rows) count = w * unit * (1 + pick(3));  // some GOBs have no header
            count = std::min(w * h - first, count);
            areas.push_back({first, count / w * split, split});
            if (split < w) areas.push_back({first + split, count / w * (w - split), w - split});
            if (split == w) areas.back() = {first, count, 0};
            first += count;
        }
        if (has_slices()) std::shuffle(areas.begin(), areas.end(), random);  // arbitrary order
        return areas;
    }

    void write_segment_header(const Area& area, bool is_first) {
        if (!is_first) {
            sample.align().u(17, 1);
            quant = 1 + static_cast<int>(pick(s.dquant ? 31 : s.quant));
        }
        const auto q = static_cast<uint32_t>(quant);
        if (s.segments == kGobs) {
            if (is_first) return;
            sample.u(5, area.first / w / rows_of_gob()).text(s.everything ? "1101" : "01").u(5, q);
            return;
        }
        static const std::pair<unsigned, int> kBits[] = {{48, 6},    {99, 7},    {396, 9},
                                                         {1584, 11}, {6336, 13}, {~0u, 14}};
        const unsigned total = w * h;
        const int bits =
            std::find_if(kBits, kBits + 5, [&](auto b) { return total <= b.first; })->second;
        sample.text(s.everything ? "1 1010" : "1").u(bits, area.first);
        const bool is_variant = s.segments == kVariantSlices;
        const bool has_sepb2 =
            is_variant ? !is_first && total >= 1584 : bits > (s.everything ? 9 : 11);
        if (has_sepb2) sample.text("1");
        if (!is_first) sample.u(5, q);
        if (area.width) {
            sample.u(w <= 8 ? 3 : w <= 11 ? 4 : w <= 22 ? 5 : w <= 44 ? 6 : 7, area.width - 1);
        }
        sample.text(is_first ? "1" : "1 10");
    }

    // Changes the quantiser, which comes behind the pattern, which depends on it. Returns the code.
    std::string make_dquant() {
        const unsigned code = pick(4);
        const std::string digits = code & 2 ? code & 1 ? "11" : "10" : code & 1 ? "01" : "00";
        if (!s.modified_quant) {
            change_quant(code);
            return digits;
        }
        if (code < 2) {
            quant = 1 + static_cast<int>(pick(31));
            return std::bitset<6>(static_cast<unsigned>(quant)).to_string();
        }
        // T.2, the quantiser after "10" and "11".
        static const uint8_t kNext[2][32] = {
            {0,  3,  1,  2,  3,  4,  5,  6,  7,  8,  9,  9,  10, 11, 12, 13,
             14, 15, 16, 17, 18, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28},
            {0,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 13, 14, 15, 16, 17,
             18, 19, 20, 21, 22, 24, 25, 26, 27, 28, 29, 30, 31, 31, 31, 26}};
        quant = kNext[code - 2][quant];
        return digits;
    }

    int chroma_quant(int q) const {
        static const uint8_t kQuants[32] = {0,  1,  2,  3,  4,  5,  6,  6,  7,  8,  9,
                                            9,  10, 10, 11, 11, 12, 12, 12, 13, 13, 13,
                                            14, 14, 14, 14, 14, 15, 15, 15, 15, 15};
        return s.modified_quant ? kQuants[q] : q;
    }

    void write_mb(unsigned x, unsigned y) {
        while (s.everything && pick(4) == 0) sample.text("000000001");
        const bool has_dquant = s.dquant && pick(2);
        const std::string dquant = has_dquant ? make_dquant() : "";
        Block levels[6];
        unsigned cbp = 0;
        const unsigned flat_dc = 1 + pick(127);
        for (unsigned n = 0; n < 6; ++n) {
            const int q = n < 4 ? quant : chroma_quant(quant);
            levels[n] = random_levels(q, s.modified_quant ? 1023 : 127);
            // 255 is how 128 is written.
            levels[n][0] = static_cast<int>(s.flat ? flat_dc : pick(8) ? 1 + pick(127) : 255);
            Block f = dequantised(levels[n], q);
            f[0] = (levels[n][0] == 255 ? 128 : levels[n][0]) * 8;
            show(x, y, n, false, f);
            if (is_any_set(levels[n], 1)) cbp |= 32u >> n;
        }
        put_mcbpc(cbp & 3, has_dquant);
        put_cbpy(cbp >> 2);
        sample.text(dquant);
        for (unsigned n = 0; n < 6; ++n) {
            sample.u(8, static_cast<uint32_t>(levels[n][0]));
            if (cbp >> (5 - n) & 1) put_block(levels[n], Scan::kZigzag, 1);
        }
    }

    const Stream s;
};

}  // namespace

TEST(H263Picture, MatchesTheModelWithEveryAnnex) {
    for (const char* const text : {
             "width=128 height=96 dquant",
             "width=176 height=144 quant=3 wild",
             "width=176 height=144 segments=1 everything",
             "width=704 height=576 segments=1 flat",
             "width=12 height=1152 plus segments=1",
             "width=4 height=4 plus",
             "width=60 height=52 plus modified_quant segments=2 everything",
             "width=176 height=144 plus modified_quant dquant",
             "width=176 height=144 quant=1 plus modified_quant wild",
             "width=176 height=144 plus modified_quant segments=3 dquant",
             "width=200 height=100 plus segments=3",
             // A filter that may not cross the edge of any macroblock finds nothing to do.
             "width=176 height=144 plus independent segments=5 flat",
             // 11-bit and 13-bit addresses: SEPB2 as the standard has it, and as an encoder does.
             "width=704 height=576 plus segments=2 flat",
             "width=704 height=576 plus segments=4 flat",
             "width=1408 height=1152 plus segments=2 flat",
             "width=1408 height=1152 plus segments=4 flat",
         }) {
        const Stream stream(text);
        const unsigned seeds = stream.width > 352 ? 1 : 8;
        for (unsigned seed = 1; seed <= seeds; ++seed) {
            const PictureWriter writer(stream, seed);
            for (const bool is_mpeg4 : {false, true}) {  // where it is a short video header
                ASSERT_LE(writer.most_difference(is_mpeg4), stream.flat ? 0 : 1)
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
        const std::string data = BitPacker().u(22, 0x20).u(8, 77).text(c.bits).u(32, 0).str();
        M4vBits bits;
        H263Picture picture;
        bits.start(reinterpret_cast<const uint8_t*>(data.data()), data.size());
        EXPECT_EQ(h263_parse_picture(&bits, &picture), 1) << c.name;
    }
}
