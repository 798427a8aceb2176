// SPDX-License-Identifier: BSD-2-Clause
// What the writers of MPEG-4 and of H.263 streams share: codes, random coefficients, and a model of
// the picture with a floating-point transform.
#pragma once

#include <stdint.h>

#include <array>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "m4vdec/m4v_vlc.h"
#include "tests/support/bit_packer.h"

// Values of a block, v * 8 + u.
using Block = std::array<int, 64>;

enum class Scan { kZigzag, kHorizontal, kVertical };

// Scan positions in the order of the scan, as v * 8 + u.
const std::array<uint8_t, 64>& scan_order(Scan scan);

// Named numbers out of a text: "quant=5 dquant" has quant 5 and dquant 1.
struct Options {
    std::string text;
    explicit Options(const char* t) : text(std::string(" ") + t) {}
    unsigned get(const char* name, unsigned otherwise = 0) const;
};

struct CommonOptions : Options {
    using Options::Options;
    unsigned width = get("width", 80), height = get("height", 48);
    unsigned quant = get("quant", 8), dquant = get("dquant");
    unsigned matrix = get("matrix");          // 1: full, 2: its list ends early
    unsigned flat = get("flat");              // no AC coefficients
    unsigned wild = get("wild");              // levels up to the limits
    unsigned everything = get("everything");  // all optional header fields
};

class StreamWriter {
 public:
    StreamWriter(const CommonOptions& options, const TcoefTable& table, unsigned seed);
    // Decodes, and returns how far a sample is from the model, 256 on failure.
    int most_difference(bool is_mpeg4) const;

 protected:
    unsigned pick(unsigned n) { return static_cast<unsigned>(random() % n); }
    Block random_levels(int q, int wild_limit);
    // But for the DC.
    Block dequantised(const Block& levels, int q) const;
    // Transforms in double precision, rounds and clamps.
    void show(unsigned x, unsigned y, unsigned n, bool is_field, const Block& coefficients);
    void put_mcbpc(unsigned cbpc, bool has_quant);
    void put_cbpy(unsigned cbpy);
    // Codes levels[first...] in scan order; there has to be one that is not 0. Escapes where the
    // table has no code, and at random where it has; of the kinds that the table knows.
    void put_block(const Block& levels, Scan scan, unsigned first);
    void change_quant(unsigned dquant);

    const CommonOptions common;
    std::mt19937 random;
    const unsigned w, h;  // macroblocks
    BitPacker config, sample;
    int quant;
    Block weights;  // quantiser matrix

 private:
    bool put_code(unsigned last, unsigned run, int level);
    void put_escape(unsigned last, unsigned run, int level);
    const TcoefTable& table_;
    std::map<std::tuple<unsigned, unsigned, int>, std::pair<int, uint32_t>> words_;
    std::vector<uint8_t> planes_;  // Y, Cb, Cr of whole macroblocks
};

bool is_any_set(const Block& levels, unsigned first);

// Decodes with the library. Returns 1 on failure; the planes are those of the macroblock grid.
int decode_sample(const std::string& config, const std::string& sample, bool is_mpeg4,
                  std::vector<uint8_t>* planes);
