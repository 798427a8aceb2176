// SPDX-License-Identifier: BSD-2-Clause
// I-VOPs with every tool in all combinations, written from random coefficients by an encoder of the
// test's own and compared with a floating-point model of the picture.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>

#include "m4vdec/m4v_decoder.h"
#include "tests/m4vdec/m4v_writer.h"

namespace {

struct Stream : CommonOptions {
    using CommonOptions::CommonOptions;
    unsigned thr = get("thr");          // intra_dc_vlc_thr
    unsigned ac_pred = get("ac_pred");  // at random
    unsigned fields = get("fields"), alternate = get("alternate");
    unsigned partitioned = get("partitioned"), reversible = get("reversible");
    unsigned packets = get("packets");      // macroblocks of each; 0: no resync markers
    unsigned extension = get("extension");  // of packet headers
    unsigned stuffing = get("stuffing");
    unsigned in_sample = get("in_sample");  // headers in the sample, not in the configuration
};

int rounded(int a, int b) { return (abs(a) + b / 2) / b * (a < 0 ? -1 : 1); }

int dc_scaler(int q, bool chroma) {
    if (q <= 4) return 8;
    if (chroma) return q <= 24 ? (q + 13) / 2 : q - 6;
    return q <= 8 ? 2 * q : q <= 24 ? q + 8 : 2 * q - 16;
}

BitPacker& put_start_code(BitPacker* out, uint8_t value) {
    return out->align().u(24, 1).u(8, value);
}

class VopWriter : public StreamWriter {
 public:
    VopWriter(const Stream& stream, unsigned seed)
        : StreamWriter(stream, stream.reversible ? kTcoefReversible : kTcoefIntra, seed),
          s(stream) {
        write_layer(s.in_sample ? &sample : &config);
        write_vop();
    }

 private:
    struct Coded {  // a block as its neighbours see it
        unsigned packet;
        int quant, dc;
        Block levels;
    };
    struct Mb {
        unsigned x, y, dquant, cbp;
        bool has_dquant, ac_pred, field, dc_in_events;
        Block coded[6];  // what the events tell, and the DC difference
        Scan scans[6];
    };

    void write_layer(BitPacker* out) {
        const bool all = s.everything != 0;
        if (all) {
            put_start_code(out, 0xb0).u(8, 0xf3);
            put_start_code(out, 0xb5).text("1 0010 001 0001 1 101 0 1");
            out->text("00000001 00000010 00000011");
            put_start_code(out, 0xb2).bytes(
                std::string("Div\0\0\x80"
                            "1",
                            7));
        }
        put_start_code(out, 0x00);
        put_start_code(out, 0x20).text("0 00000001");
        out->text(all ? "1 0010 001 1111 00010000 00001011" : "0 0001");
        if (all) {  // control and VBV parameters
            out->text("1 01 1 1").u(15, 0x5a5a).u(1, 1).u(15, 0x1234).u(1, 1).u(15, 0x7fff);
            out->text("1 101").u(11, 0x2aa).u(1, 1).u(15, 0x4321).u(1, 1);
        } else {
            out->text("0");
        }
        out->text("00 1").u(16, kResolution).text(all ? "1 1 00000010001 1" : "1 0 1");
        out->u(13, s.width).u(1, 1).u(13, s.height).u(1, 1).u(1, s.fields);
        out->text(all ? "1 10 000011 01 0" : "1 0");  // OBMC off; global motion compensation
        out->text("0").u(1, s.matrix != 0);           // 8 bits
        if (s.matrix) put_matrices(out);
        // Quarter sample; complexity: all groups, of which I-VOPs have 6 + 2 + 4 + 1 fields.
        out->text(all ? "1 0 01 0 111111 0 1111 1 0 1111 0 111111 1 0 11" : "1");
        out->u(1, s.packets == 0).u(1, s.partitioned);
        if (s.partitioned) out->u(1, s.reversible);
        out->text(all ? "0 1 0" : "0").u(1, 0).align(1);  // newpred, reduced, scalability
        if (all) put_start_code(out, 0xb3).text("000000 000001 1 000010 1 0 0").align(1);
    }

    void put_matrices(BitPacker* out) {
        out->text("1");
        const auto& order = scan_order(Scan::kZigzag);
        const unsigned length = s.matrix == 2 ? 20 : 64;
        for (unsigned i = 0; i < 64; ++i) {
            const unsigned value = 1 + pick(i % 9 ? 60 : 255);
            if (i <= length) out->u(8, i < length ? value : 0);
            weights[order[i]] = i < length ? static_cast<int>(value) : weights[order[i - 1]];
        }
        out->text("1").u(8, 77).u(8, 0);  // inter matrix: one value for all
    }

    void put_time() { sample.text("1110 1").u(kTimeBits, 5).u(1, 1); }

    void write_vop() {
        put_start_code(&sample, 0xb6).text("00");
        put_time();
        sample.text("1");
        if (s.everything) {
            sample.text("0");                                                   // full resolution
            for (unsigned i = 0; i < 12 * 8 + 4; ++i) sample.u(1, i % 3 == 0);  // complexity
        }
        sample.u(3, s.thr);
        if (s.fields) sample.u(1, 1).u(1, s.alternate);
        sample.u(5, s.quant);
        const unsigned step = s.packets ? s.packets : w * h;
        for (unsigned first = 0; first < w * h; first += step, ++packet) {
            if (first != 0) write_packet_header(first);
            std::vector<Mb> mbs;
            for (unsigned i = first; i < std::min(first + step, w * h); ++i) {
                mbs.push_back(make_mb(i, i == first));
            }
            s.partitioned ? write_partitions(mbs) : write_combined(mbs);
        }
        sample.u(1, 0).align(1);
    }

    void write_packet_header(unsigned first) {
        int number_bits = 1;
        while (1u << number_bits < w * h) ++number_bits;
        quant = 1 + static_cast<int>(pick(s.dquant ? 31 : s.quant));
        sample.u(1, 0).align(1).u(17, 1).u(number_bits, first);
        sample.u(5, static_cast<uint32_t>(quant)).u(1, s.extension);
        if (!s.extension) return;
        put_time();
        sample.text(s.everything ? "00 0" : "00").u(3, s.thr);
    }

    const Coded* block_at(unsigned plane, unsigned bx, unsigned by) {
        const auto found = blocks.find({plane, bx, by});
        return found != blocks.end() && found->second.packet == packet ? &found->second : nullptr;
    }

    Mb make_mb(unsigned index, bool is_first) {
        Mb mb{};
        mb.x = index % w;
        mb.y = index / w;
        const int before = quant;
        mb.has_dquant = s.dquant && pick(2);
        mb.dquant = pick(4);
        if (mb.has_dquant) change_quant(mb.dquant);
        static const int kThreshold[8] = {99, 13, 15, 17, 19, 21, 23, 0};
        mb.dc_in_events = (is_first ? quant : before) >= kThreshold[s.thr];
        mb.ac_pred = s.ac_pred && pick(3);
        mb.field = s.fields && !s.partitioned && pick(2);
        for (unsigned n = 0; n < 6; ++n) code_block(&mb, n);
        return mb;
    }

    void code_block(Mb* mb, unsigned n) {
        const unsigned plane = n < 4 ? 0 : n;
        const unsigned bx = n < 4 ? mb->x * 2 + (n & 1) : mb->x;
        const unsigned by = n < 4 ? mb->y * 2 + (n >> 1) : mb->y;
        const Coded* const a = block_at(plane, bx - 1, by);
        const Coded* const b = block_at(plane, bx - 1, by - 1);
        const Coded* const c = block_at(plane, bx, by - 1);
        const auto dc_of = [](const Coded* p) { return p ? p->dc : 1024; };
        const bool from_above = abs(dc_of(a) - dc_of(b)) < abs(dc_of(b) - dc_of(c));
        const Coded* const from = from_above ? c : a;

        const int scaler = dc_scaler(quant, n >= 4);
        Block levels = random_levels(quant, 2047);
        levels[0] = static_cast<int>(pick(2047)) / scaler;
        Block& coded = mb->coded[n] = levels;
        coded[0] -= rounded(dc_of(from), scaler);
        for (unsigned i = 1; i < 8 && mb->ac_pred && from; ++i) {
            const unsigned k = from_above ? i : i * 8;
            coded[k] -= rounded(from->levels[k] * from->quant, quant);
        }
        mb->scans[n] = s.alternate    ? Scan::kVertical
                       : !mb->ac_pred ? Scan::kZigzag
                       : from_above   ? Scan::kHorizontal
                                      : Scan::kVertical;
        if (is_any_set(coded, mb->dc_in_events ? 0 : 1)) mb->cbp |= 32u >> n;

        Block f = dequantised(levels, quant);
        f[0] = std::min(levels[0] * scaler, 2047);
        blocks[{plane, bx, by}] = {packet, quant, f[0], levels};
        int parity = 0;
        for (int v : f) parity ^= v;
        if (s.matrix && parity % 2 == 0) f[63] += f[63] % 2 ? -1 : 1;
        show(mb->x, mb->y, n, mb->field, f);
    }

    void put_stuffing() {
        while (s.stuffing && pick(2)) sample.text("000000001");
    }

    void put_dc(int difference, bool is_chroma) {
        // Sizes 0 to 3 have codes of their own, the others lead with zeros.
        static const char* const kShort[2][4] = {{"011", "11", "10", "010"},
                                                 {"11", "10", "01", "001"}};
        int size = 0;
        while (abs(difference) >> size) ++size;
        size < 4 ? sample.text(kShort[is_chroma][size]) : sample.u(size - !is_chroma, 1);
        sample.u(size, static_cast<uint32_t>(difference < 0 ? difference - 1 : difference));
        if (size > 8) sample.text("1");
    }

    void put_events(const Mb& mb, unsigned n) {
        if (mb.cbp >> (5 - n) & 1) put_block(mb.coded[n], mb.scans[n], mb.dc_in_events ? 0 : 1);
    }

    void write_combined(const std::vector<Mb>& mbs) {
        for (const Mb& mb : mbs) {
            put_stuffing();
            put_mcbpc(mb.cbp & 3, mb.has_dquant);
            sample.u(1, mb.ac_pred);
            put_cbpy(mb.cbp >> 2);
            if (mb.has_dquant) sample.u(2, mb.dquant);
            if (s.fields) sample.u(1, mb.field);
            for (unsigned n = 0; n < 6; ++n) {
                if (!mb.dc_in_events) put_dc(mb.coded[n][0], n >= 4);
                put_events(mb, n);
            }
        }
        put_stuffing();
    }

    void write_partitions(const std::vector<Mb>& mbs) {
        for (const Mb& mb : mbs) {
            put_stuffing();
            put_mcbpc(mb.cbp & 3, mb.has_dquant);
            if (mb.has_dquant) sample.u(2, mb.dquant);
            for (unsigned n = 0; n < 6 && !mb.dc_in_events; ++n) put_dc(mb.coded[n][0], n >= 4);
        }
        put_stuffing();
        sample.text("110 1011 0000 0000 0001");
        for (const Mb& mb : mbs) {
            sample.u(1, mb.ac_pred);
            put_cbpy(mb.cbp >> 2);
        }
        for (const Mb& mb : mbs) {
            for (unsigned n = 0; n < 6; ++n) put_events(mb, n);
        }
    }

    static constexpr unsigned kResolution = 1025;  // values 0 to 1024: 11 bits
    static constexpr int kTimeBits = 11;

    const Stream s;
    std::map<std::tuple<unsigned, unsigned, unsigned>, Coded> blocks;
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
            const VopWriter writer(Stream(text), seed);
            ASSERT_LE(writer.most_difference(true), 1) << text << ", seed " << seed;
        }
    }
}
