// SPDX-License-Identifier: BSD-2-Clause
// Writes bits and block events, and models dequantised blocks with a floating-point transform: what
// the tests of MPEG-4 and of H.263 streams share.
#pragma once

#include <stdint.h>

#include <array>
#include <map>
#include <random>
#include <tuple>
#include <vector>

#include "m4vdec/m4v_vlc.h"

struct BitPacker {
    std::vector<uint8_t> bytes;
    unsigned used = 0;  // bits of the last byte, 0 when it is full

    void put(uint32_t value, unsigned length);
    void put(const char* digits);  // blanks are for the reader
    void align(bool is_stuffing);  // zeros, or the zero and ones of MPEG-4 (1 to 8 bits)
    void start_code(uint8_t value);
};

// Values of a block, v * 8 + u.
using Block = std::array<int, 64>;

enum class Scan { kZigzag, kHorizontal, kVertical };

// The codes of a table, found by looking up every bit pattern.
class EventCoder {
 public:
    explicit EventCoder(const TcoefTable& table);
    // Codes levels[first...] in scan order; there has to be one that is not 0. Escapes where the
    // table has no code, and at random where it has; of the kinds that the table knows.
    void put_block(BitPacker* out, const Block& levels, Scan scan, unsigned first,
                   std::mt19937* random) const;

 private:
    struct Word {
        uint32_t bits;
        unsigned length;
    };
    bool put_code(BitPacker* out, unsigned last, unsigned run, int level) const;
    void put_escape(BitPacker* out, unsigned last, unsigned run, int level, bool allow_short) const;
    const TcoefTable& table_;
    std::map<std::tuple<unsigned, unsigned, int>, Word> words_;
};

// Scan positions in the order of the scan, as v * 8 + u.
const std::array<uint8_t, 64>& scan_order(Scan scan);

void put_mcbpc(BitPacker* out, unsigned cbpc, bool has_quant);
void put_cbpy(BitPacker* out, unsigned cbpy);
bool is_any_set(const Block& levels, unsigned first, Scan scan);

// The expected picture, on the macroblock grid.
struct ModelPicture {
    unsigned width_mbs, height_mbs;
    std::vector<uint8_t> planes;  // Y, Cb, Cr without padding between them

    ModelPicture(unsigned width, unsigned height)
        : width_mbs((width + 15) / 16),
          height_mbs((height + 15) / 16),
          planes(width_mbs * height_mbs * 384) {}
    // Transforms in double precision, rounds and clamps.
    void put_block(unsigned x, unsigned y, unsigned n, bool is_field, const Block& coefficients);
};

// Named numbers out of a text: "quant=5 dquant" has quant 5 and dquant 1.
struct Options {
    const char* text;
    explicit Options(const char* t) : text(t) {}
    unsigned get(const char* name, unsigned otherwise = 0) const;
};

// Decodes with the library. Returns 1 on failure; the planes are those of the macroblock grid.
int decode_sample(const std::vector<uint8_t>& config, const std::vector<uint8_t>& sample,
                  bool is_mpeg4, std::vector<uint8_t>* planes);
int most_difference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b);
