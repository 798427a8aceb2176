// SPDX-License-Identifier: BSD-2-Clause
// I-VOPs with every tool in all combinations, written from random coefficients by an encoder of the
// test's own, whose prediction works on whole arrays of blocks, and compared with a floating-point
// model of the picture.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>

#include "m4vdec/m4v_decoder.h"
#include "tests/m4vdec/m4v_writer.h"

namespace {

struct Stream : Options {
    using Options::Options;
    unsigned width = get("width", 80), height = get("height", 48);
    unsigned quant = get("quant", 8), dquant = get("dquant");
    unsigned thr = get("thr");          // intra_dc_vlc_thr
    unsigned ac_pred = get("ac_pred");  // at random
    unsigned matrix = get("matrix");    // 1: full, 2: its list ends early
    unsigned fields = get("fields"), alternate = get("alternate");
    unsigned partitioned = get("partitioned"), reversible = get("reversible");
    unsigned packets = get("packets");      // macroblocks of each; 0: no resync markers
    unsigned extension = get("extension");  // of packet headers
    unsigned stuffing = get("stuffing");
    unsigned everything = get("everything");  // all optional header fields
    unsigned wild = get("wild");              // coefficients up to the limits
    unsigned in_sample = get("in_sample");    // headers in the sample, not in the configuration
};

int rounded(int a, int b) { return (abs(a) + b / 2) / b * (a < 0 ? -1 : 1); }
int clip12(int v) { return std::clamp(v, -2048, 2047); }

int dc_scaler(int q, bool chroma) {
    if (q <= 4) return 8;
    if (chroma) return q <= 24 ? (q + 13) / 2 : q - 6;
    return q <= 8 ? 2 * q : q <= 24 ? q + 8 : 2 * q - 16;
}

class VopWriter {
 public:
    VopWriter(const Stream& stream, unsigned seed)
        : s(stream),
          random(seed),
          coder(s.reversible ? kTcoefReversible : kTcoefIntra),
          picture(s.width, s.height),
          blocks(picture.width_mbs * picture.height_mbs * 6) {}

    void write() {
        write_layer(s.in_sample ? &sample : &config);
        write_vop();
    }

    std::vector<uint8_t> config_bytes() const { return config.bytes; }
    std::vector<uint8_t> sample_bytes() const { return sample.bytes; }
    const ModelPicture& expected() const { return picture; }

 private:
    struct Coded {  // a block as its neighbours see it
        bool exists = false;
        unsigned packet = 0;
        int quant = 0, dc = 0;
        Block levels{};
    };
    struct Mb {
        unsigned x, y;
        int quant, dquant;
        bool has_dquant, ac_pred, field, dc_in_events;
        Block coded[6];  // what the events tell
        int dc_difference[6];
        unsigned cbp = 0;
    };

    unsigned pick(unsigned n) { return static_cast<unsigned>(random() % n); }

    void write_layer(BitPacker* out) {
        const bool all = s.everything != 0;
        if (all) {
            out->start_code(0xb0);
            out->put(0xf3, 8);
            out->start_code(0xb5);
            out->put("1 0010 001 0001 1 101 0 1 00000001 00000010 00000011");
            out->start_code(0xb2);
            for (char c : {'D', 'i', 'v', '\0', '\0', '\x80', '1'}) {
                out->put(static_cast<uint8_t>(c), 8);
            }
        }
        out->start_code(0x00);
        out->start_code(0x20);
        out->put("0 00000001");
        out->put(all ? "1 0010 001 1111 00010000 00001011" : "0 0001");
        if (all) {
            out->put("1 01 1 1");  // control and VBV parameters
            out->put(0x5a5a, 15), out->put("1"), out->put(0x1234, 15), out->put("1");
            out->put(0x7fff, 15), out->put("1 101"), out->put(0x2aa, 11), out->put("1");
            out->put(0x4321, 15), out->put("1");
        } else {
            out->put("0");
        }
        out->put("00 1");
        out->put(kResolution, 16);
        out->put(all ? "1 1 00000010001 1" : "1 0 1");
        out->put(s.width, 13), out->put(1, 1), out->put(s.height, 13), out->put(1, 1);
        out->put(s.fields, 1);
        out->put(all ? "1 10 000011 01 0" : "1 0");  // OBMC off; global motion compensation
        out->put("0");                               // 8 bits
        write_quantisation(out);
        // Quarter sample; complexity: all groups, of which I-VOPs have 6 + 2 + 4 + 1 fields.
        out->put(all ? "1 0 01 0 111111 0 1111 1 0 1111 0 111111 1 0 11" : "1");
        out->put(s.packets == 0, 1);
        out->put(s.partitioned, 1);
        if (s.partitioned) out->put(s.reversible, 1);
        out->put(all ? "0 1 0" : "0");  // newpred, reduced resolution, scalability
        out->align(true);
        if (all) out->start_code(0xb3), out->put("000000 000001 1 000010 1 0"), out->align(true);
    }

    void write_quantisation(BitPacker* out) {
        out->put(s.matrix != 0, 1);
        if (s.matrix == 0) return;
        out->put("1");
        const auto& order = scan_order(Scan::kZigzag);
        const unsigned length = s.matrix == 2 ? 20 : 64;
        for (unsigned i = 0; i < 64; ++i) {
            const unsigned value = 1 + pick(i % 9 ? 60 : 255);
            if (i <= length) out->put(i < length ? value : 0, 8);
            matrix[order[i]] = i < length ? static_cast<int>(value) : matrix[order[i - 1]];
        }
        out->put("1"), out->put(77, 8), out->put(0, 8);  // inter matrix: one value for all
    }

    void put_time() {
        sample.put("1110 1");
        sample.put(5, kTimeBits);
        sample.put("1");
    }

    void write_vop() {
        sample.start_code(0xb6);
        sample.put("00");
        put_time();
        sample.put("1");
        if (s.everything) {
            sample.put("0");                                                      // full resolution
            for (unsigned i = 0; i < 12 * 8 + 4; ++i) sample.put(i % 3 == 0, 1);  // complexity
        }
        sample.put(s.thr, 3);
        if (s.fields) sample.put("1"), sample.put(s.alternate, 1);
        sample.put(s.quant, 5);
        quant = static_cast<int>(s.quant);
        const unsigned total = picture.width_mbs * picture.height_mbs;
        const unsigned step = s.packets ? s.packets : total;
        for (unsigned first = 0; first < total; first += step, ++packet) {
            if (first != 0) write_packet_header(first, total);
            std::vector<Mb> mbs;
            int running = 0;
            for (unsigned i = first; i < std::min(first + step, total); ++i) {
                mbs.push_back(make_mb(i, i == first ? nullptr : &running));
            }
            s.partitioned ? write_partitions(mbs) : write_combined(mbs);
        }
        sample.align(true);
    }

    void write_packet_header(unsigned first, unsigned total) {
        unsigned number_bits = 1;
        while (1u << number_bits < total) ++number_bits;
        sample.align(true);
        sample.put(1, 17);
        sample.put(first, number_bits);
        quant = 1 + static_cast<int>(pick(s.dquant ? 31 : s.quant));
        sample.put(static_cast<uint32_t>(quant), 5);
        sample.put(s.extension, 1);
        if (!s.extension) return;
        put_time();
        sample.put("00");
        if (s.everything) sample.put("0");
        sample.put(s.thr, 3);
    }

    // The grid of blocks: luma first, then two of chroma.
    Coded* block_at(unsigned n, int bx, int by) {
        const int w = static_cast<int>(n < 4 ? picture.width_mbs * 2 : picture.width_mbs);
        if (bx < 0 || by < 0 || bx >= w) return nullptr;
        const unsigned luma = picture.width_mbs * picture.height_mbs * 4;
        const unsigned base = n < 4 ? 0 : luma + (n - 4) * luma / 4;
        Coded* const b = &blocks[base + static_cast<unsigned>(by * w + bx)];
        return b->exists && b->packet == packet ? b : nullptr;
    }

    Mb make_mb(unsigned index, int* running) {
        Mb mb{};
        mb.x = index % picture.width_mbs;
        mb.y = index / picture.width_mbs;
        const int before = quant;
        mb.has_dquant = s.dquant && pick(2);
        mb.dquant = static_cast<int>(pick(4));
        static const int kChange[4] = {-1, -2, 1, 2};
        if (mb.has_dquant) quant = std::clamp(quant + kChange[mb.dquant], 1, 31);
        mb.quant = quant;
        static const int kThreshold[8] = {99, 13, 15, 17, 19, 21, 23, 0};
        mb.dc_in_events = (running ? before : quant) >= kThreshold[s.thr];
        if (running) *running = quant;
        mb.ac_pred = s.ac_pred && pick(3);
        mb.field = s.fields && !s.partitioned && pick(2);
        for (unsigned n = 0; n < 6; ++n) code_block(&mb, n);
        return mb;
    }

    void code_block(Mb* mb, unsigned n) {
        const int bx = static_cast<int>(n < 4 ? mb->x * 2 + (n & 1) : mb->x);
        const int by = static_cast<int>(n < 4 ? mb->y * 2 + (n >> 1) : mb->y);
        const Coded* const a = block_at(n, bx - 1, by);
        const Coded* const b = block_at(n, bx - 1, by - 1);
        const Coded* const c = block_at(n, bx, by - 1);
        const auto dc_of = [](const Coded* p) { return p ? p->dc : 1024; };
        const bool from_above = abs(dc_of(a) - dc_of(b)) < abs(dc_of(b) - dc_of(c));
        const Coded* const from = from_above ? c : a;

        const int scaler = dc_scaler(mb->quant, n >= 4);
        Block levels = random_levels();
        levels[0] = static_cast<int>(pick(2047)) / scaler;
        const int difference = levels[0] - rounded(dc_of(from), scaler);
        Block coded = levels;
        for (unsigned i = 1; i < 8 && mb->ac_pred && from; ++i) {
            const unsigned k = from_above ? i : i * 8;
            coded[k] -= rounded(from->levels[k] * from->quant, mb->quant);
        }
        mb->dc_difference[n] = difference;
        coded[0] = difference;
        mb->coded[n] = coded;
        scans[n] = s.alternate    ? Scan::kVertical
                   : !mb->ac_pred ? Scan::kZigzag
                   : from_above   ? Scan::kHorizontal
                                  : Scan::kVertical;
        mb_scans.push_back(scans[n]);
        if (is_any_set(coded, mb->dc_in_events ? 0 : 1, scans[n])) mb->cbp |= 32u >> n;

        Block f = dequantised(levels, mb->quant);
        f[0] = clip12(levels[0] * scaler);
        int parity = 0;
        for (int v : f) parity ^= v;
        if (s.matrix && parity % 2 == 0) f[63] += f[63] % 2 ? -1 : 1;
        picture.put_block(mb->x, mb->y, n, mb->field, f);

        Coded* const mine = &blocks[static_cast<size_t>(grid_index(n, bx, by))];
        *mine = {true, packet, mb->quant, clip12(levels[0] * scaler), levels};
    }

    unsigned grid_index(unsigned n, int bx, int by) const {
        const unsigned w = n < 4 ? picture.width_mbs * 2 : picture.width_mbs;
        const unsigned luma = picture.width_mbs * picture.height_mbs * 4;
        return (n < 4 ? 0 : luma + (n - 4) * luma / 4) + static_cast<unsigned>(by) * w +
               static_cast<unsigned>(bx);
    }

    // Coefficients whose sum stays in the range of 8-bit samples, and perhaps a wild one, which is
    // not in the first row or column: their prediction has to stay within the codes.
    Block random_levels() {
        Block levels{};
        int budget = s.wild ? 700 : 1400;
        for (unsigned count = pick(3) ? pick(12) : 0; count > 0; --count) {
            const unsigned i = pick(pick(4) ? 20 : 64);
            const int level = 1 + static_cast<int>(pick(pick(4) ? 3 : 30));
            const int size = level * quant * (s.matrix ? matrix[i] / 8 + 1 : 2);
            if (size > budget || levels[i] != 0) continue;
            budget -= size;
            levels[i] = pick(2) ? level : -level;
        }
        if (s.wild && pick(2)) {
            const int level = 1 + static_cast<int>(pick(2047));
            levels[9 + pick(7) * 8 + pick(7)] = pick(2) ? level : -level;
        }
        return levels;
    }

    Block dequantised(const Block& levels, int q) const {
        Block f{};
        for (unsigned i = 1; i < 64; ++i) {
            const int magnitude = s.matrix         ? abs(levels[i]) * 2 * matrix[i] * q / 16
                                  : levels[i] == 0 ? 0
                                                   : q * (2 * abs(levels[i]) + 1) - (q % 2 == 0);
            f[i] = clip12(levels[i] < 0 ? -magnitude : magnitude);
        }
        return f;
    }

    void put_stuffing() {
        while (s.stuffing && pick(2)) sample.put("000000001");
    }

    void put_header(const Mb& mb) {
        put_stuffing();
        put_mcbpc(&sample, mb.cbp & 3, mb.has_dquant);
    }

    void put_dc(const Mb& mb, unsigned n) {
        static const char* const kSizes[2][13] = {
            {"011", "11", "10", "010", "001", "0001", "00001", "000001", "0000001", "00000001",
             "000000001", "0000000001", "00000000001"},
            {"11", "10", "01", "001", "0001", "00001", "000001", "0000001", "00000001", "000000001",
             "0000000001", "00000000001", "000000000001"}};
        const int difference = mb.dc_difference[n];
        unsigned size = 0;
        while (abs(difference) >> size) ++size;
        sample.put(kSizes[n >= 4][size]);
        const int offset = difference < 0 ? (1 << size) - 1 : 0;
        sample.put(static_cast<uint32_t>(difference + offset), size);
        if (size > 8) sample.put("1");
    }

    void put_events(const Mb& mb, unsigned n, Scan scan) {
        if (mb.cbp >> (5 - n) & 1) {
            coder.put_block(&sample, mb.coded[n], scan, mb.dc_in_events ? 0 : 1, &random);
        }
    }

    void write_combined(const std::vector<Mb>& mbs) {
        size_t at = mb_scans.size() - mbs.size() * 6;
        for (const Mb& mb : mbs) {
            put_header(mb);
            sample.put(mb.ac_pred, 1);
            put_cbpy(&sample, mb.cbp >> 2);
            if (mb.has_dquant) sample.put(static_cast<uint32_t>(mb.dquant), 2);
            if (s.fields) sample.put(mb.field, 1);
            for (unsigned n = 0; n < 6; ++n) {
                if (!mb.dc_in_events) put_dc(mb, n);
                put_events(mb, n, mb_scans[at++]);
            }
        }
        put_stuffing();
    }

    void write_partitions(const std::vector<Mb>& mbs) {
        size_t at = mb_scans.size() - mbs.size() * 6;
        for (const Mb& mb : mbs) {
            put_header(mb);
            if (mb.has_dquant) sample.put(static_cast<uint32_t>(mb.dquant), 2);
            for (unsigned n = 0; n < 6 && !mb.dc_in_events; ++n) put_dc(mb, n);
        }
        put_stuffing();
        sample.put("110 1011 0000 0000 0001");
        for (const Mb& mb : mbs) {
            sample.put(mb.ac_pred, 1);
            put_cbpy(&sample, mb.cbp >> 2);
        }
        for (const Mb& mb : mbs) {
            for (unsigned n = 0; n < 6; ++n) put_events(mb, n, mb_scans[at++]);
        }
    }

    static constexpr unsigned kResolution = 1025;  // values 0 to 1024: 11 bits
    static constexpr unsigned kTimeBits = 11;

    const Stream s;
    std::mt19937 random;
    EventCoder coder;
    ModelPicture picture;
    std::vector<Coded> blocks;
    std::vector<Scan> mb_scans;  // of all blocks so far
    Scan scans[6];
    std::array<int, 64> matrix;
    BitPacker config, sample;
    int quant = 0;
    unsigned packet = 0;
};

}  // namespace

TEST(Vop, MatchesTheModelWithEveryTool) {
    for (const char* const text : {
             "",
             "width=1 height=1 quant=1",
             "quant=16 dquant",
             "quant=5 dquant ac_pred",
             "ac_pred in_sample",
             "packets=4 extension everything",
             "quant=17 dquant thr=3 ac_pred",
             "quant=23 dquant thr=6 packets=3",
             "quant=12 thr=7 ac_pred wild",
             "quant=2 matrix=2 wild",
             "quant=6 ac_pred matrix=1",
             "quant=1 wild",
             "quant=31 ac_pred wild",
             "ac_pred fields",
             "ac_pred fields alternate",
             "dquant ac_pred packets=4",
             "ac_pred packets=1 stuffing",
             "packets=7 extension",
             "dquant stuffing",
             "dquant ac_pred partitioned packets=6 stuffing",
             "thr=2 partitioned wild",
             "quant=3 ac_pred partitioned reversible packets=5 extension wild",
             "quant=9 dquant thr=7 ac_pred matrix=1 partitioned reversible",
             "fields partitioned packets=9",
         }) {
        for (unsigned seed = 1; seed <= 10; ++seed) {
            VopWriter writer(Stream(text), seed);
            writer.write();
            std::vector<uint8_t> planes;
            ASSERT_EQ(decode_sample(writer.config_bytes(), writer.sample_bytes(), true, &planes), 0)
                << text << ", seed " << seed;
            ASSERT_LE(most_difference(planes, writer.expected().planes), 1)
                << text << ", seed " << seed;
        }
    }
}
