// SPDX-License-Identifier: BSD-2-Clause
#include "tests/m4vdec/m4v_writer.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "runtime/accounted_memory.h"
#include "thumb/decode_key_frame_mpeg4.h"

const std::array<uint8_t, 64>& scan_order(Scan scan) {
    static const auto orders = [] {
        std::array<std::array<uint8_t, 64>, 3> all{};
        unsigned n = 0;
        for (unsigned sum = 0; sum < 15; ++sum) {  // zigzag: diagonals, up and down in turn
            for (unsigned i = 0; i <= sum; ++i) {
                const unsigned u = sum % 2 ? sum - i : i;
                if (u < 8 && sum - u < 8) all[0][n++] = static_cast<uint8_t>((sum - u) * 8 + u);
            }
        }
        // Alternate-vertical; alternate-horizontal is the same with rows and columns exchanged.
        static const uint8_t kVertical[64] = {
            0,  8,  16, 24, 1,  9,  2,  10, 17, 25, 32, 40, 48, 56, 57, 49, 41, 33, 26, 18, 3,  11,
            4,  12, 19, 27, 34, 42, 50, 58, 35, 43, 51, 59, 20, 28, 5,  13, 6,  14, 21, 29, 36, 44,
            52, 60, 37, 45, 53, 61, 22, 30, 7,  15, 23, 31, 38, 46, 54, 62, 39, 47, 55, 63};
        for (unsigned i = 0; i < 64; ++i) {
            all[1][i] = static_cast<uint8_t>(kVertical[i] % 8 * 8 + kVertical[i] / 8);
            all[2][i] = kVertical[i];
        }
        return all;
    }();
    return orders[static_cast<unsigned>(scan)];
}

unsigned Options::get(const char* name, unsigned otherwise) const {
    const size_t at = text.find(std::string(" ") + name);
    if (at == std::string::npos) return otherwise;
    const char* const end = &text[at + 1 + strlen(name)];
    return *end == '=' ? static_cast<unsigned>(atoi(end + 1)) : 1;
}

// The codes of a table are found by looking up every bit pattern.
StreamWriter::StreamWriter(const CommonOptions& options, const TcoefTable& table, unsigned seed)
    : common(options),
      random(seed),
      w((options.width + 15) / 16),
      h((options.height + 15) / 16),
      quant(static_cast<int>(options.quant)),
      table_(table),
      planes_(w * h * 384) {
    weights.fill(16);
    for (uint32_t code = 0; code < 1u << table.max_bits; ++code) {
        TcoefEntry entry = table.primary[code >> (table.max_bits - kTcoefPrimaryBits)];
        if (entry.step == kTcoefLong) {
            const unsigned group = 1u << (table.max_bits - kTcoefPrimaryBits);
            entry = table.secondary[static_cast<unsigned>(entry.level) + code % group];
        }
        if (entry.step >= kTcoefLong) continue;
        words_[{entry.step >= kTcoefLast, entry.step % kTcoefLast - 1, entry.level}] = {
            entry.length, code >> (table.max_bits - entry.length)};
    }
}

bool StreamWriter::put_code(unsigned last, unsigned run, int level) {
    const auto word = words_.find({last, run, level});
    if (word == words_.end()) return false;
    sample.u(word->second.first, word->second.second);
    return true;
}

void StreamWriter::put_escape(unsigned last, unsigned run, int level) {
    const auto bits = static_cast<uint32_t>(level);
    if (table_.escapes == TcoefEscapes::kReversible) {
        sample.text("00001").u(7, last << 6 | run).u(1, 1).u(11, static_cast<uint32_t>(abs(level)));
        sample.text("1 0000").u(1, level < 0);
        return;
    }
    sample.text("0000011");
    if (table_.escapes != TcoefEscapes::kMpeg4) {
        sample.u(7, last << 6 | run).u(8, abs(level) < 128 ? bits & 255 : 128);
        if (abs(level) >= 128) sample.u(5, bits).u(6, bits >> 5);
        return;
    }
    int most_level = 0;  // that has a code for this run, and the same the other way round
    unsigned most_run = 0;
    const int unit = level < 0 ? -1 : 1;
    while (words_.count({last, run, most_level + 1})) ++most_level;
    for (unsigned r = 0; r < 64; ++r) {
        if (words_.count({last, r, level})) most_run = r + 1;
    }
    const int base = level - unit * most_level;
    const bool allow_short = pick(8) != 0;
    if (allow_short && base * unit > 0 && words_.count({last, run, base})) {
        sample.text("0");
        put_code(last, run, base);
    } else if (allow_short && run >= most_run && words_.count({last, run - most_run, level})) {
        sample.text("10");
        put_code(last, run - most_run, level);
    } else {
        sample.text("11").u(7, last << 6 | run).u(1, 1).u(12, bits).u(1, 1);
    }
}

void StreamWriter::put_block(const Block& levels, Scan scan, unsigned first) {
    const auto& order = scan_order(scan);
    unsigned end = 64;
    while (levels[order[end - 1]] == 0) --end;
    unsigned run = 0;
    for (unsigned i = first; i < end; ++i, ++run) {
        const int level = levels[order[i]];
        if (level == 0) continue;
        const unsigned last = i + 1 == end;
        if (pick(16) == 0 || !put_code(last, run, level)) put_escape(last, run, level);
        run = ~0u;
    }
}

bool is_any_set(const Block& levels, unsigned first) {
    return std::any_of(levels.begin() + first, levels.end(), [](int level) { return level != 0; });
}

void StreamWriter::put_mcbpc(unsigned cbpc, bool has_quant) {
    static const char* const kCodes[2][4] = {{"1", "001", "010", "011"},
                                             {"0001", "000001", "000010", "000011"}};
    sample.text(kCodes[has_quant][cbpc]);
}

void StreamWriter::put_cbpy(unsigned cbpy) {
    static const char* const kCodes[16] = {"0011",   "00101", "00100", "1001",   "00011", "0111",
                                           "000010", "1011",  "00010", "000011", "0101",  "1010",
                                           "0100",   "1000",  "0110",  "11"};
    sample.text(kCodes[cbpy]);
}

void StreamWriter::change_quant(unsigned dquant) {
    static const int kChange[4] = {-1, -2, 1, 2};
    quant = std::clamp(quant + kChange[dquant], 1, 31);
}

// Their sum stays in the range of 8-bit samples, but for a wild one, which is not in the first row
// or column: their prediction has to stay within the codes.
Block StreamWriter::random_levels(int q, int wild_limit) {
    Block levels{};
    int budget = common.flat ? 0 : common.wild ? 700 : 1400;
    for (unsigned count = pick(3) ? pick(12) : 0; count > 0; --count) {
        const unsigned i = pick(pick(4) ? 20 : 64);
        const int level = 1 + static_cast<int>(pick(pick(4) ? 3 : 40));
        const int size = level * q * ((weights[i] + 7) / 8);
        if (size > budget || levels[i] != 0) continue;
        budget -= size;
        levels[i] = pick(2) ? level : -level;
    }
    if (common.wild && pick(2)) {
        const int level = 1 + static_cast<int>(pick(static_cast<unsigned>(wild_limit)));
        levels[9 + pick(7) * 8 + pick(7)] = pick(2) ? level : -level;
    }
    return levels;
}

Block StreamWriter::dequantised(const Block& levels, int q) const {
    Block f{};
    for (unsigned i = 1; i < 64; ++i) {
        const int size = abs(levels[i]);
        const int value = common.matrix ? size * 2 * weights[i] * q / 16
                          : size == 0   ? 0
                                        : q * (2 * size + 1) - (q % 2 == 0);
        f[i] = std::clamp(levels[i] < 0 ? -value : value, -2048, 2047);
    }
    return f;
}

void StreamWriter::show(unsigned x, unsigned y, unsigned n, bool is_field, const Block& f) {
    static const auto cosines = [] {
        std::array<double, 64> c{};
        for (unsigned i = 0; i < 64; ++i) {
            c[i] = (i % 8 == 0 ? sqrt(0.125) : 0.5) * cos((i / 8 * 2 + 1) * (i % 8) * M_PI / 16);
        }
        return c;  // [sample * 8 + frequency]
    }();
    for (unsigned i = 0; i < 64; ++i) {
        double sum = 0;
        for (unsigned k = 0; k < 64; ++k) {
            sum += f[k] * cosines[i / 8 * 8 + k / 8] * cosines[i % 8 * 8 + k % 8];
        }
        const unsigned row = is_field ? i / 8 * 2 + (n >> 1) : i / 8 + (n >> 1) * 8;
        const size_t at = n < 4 ? (y * 16 + row) * w * 16 + x * 16 + (n & 1) * 8 + i % 8
                                : w * h * n * 64 + (y * 8 + i / 8) * w * 8 + x * 8 + i % 8;
        planes_[at] = static_cast<uint8_t>(std::clamp(floor(sum + 0.5), 0.0, 255.0));
    }
}

int decode_sample(const std::string& config, const std::string& sample, bool is_mpeg4,
                  std::vector<uint8_t>* planes) {
    // Copies of the exact size, so that a sanitizer sees any access behind them.
    std::vector<uint8_t> config_copy(config.begin(), config.end());
    std::vector<uint8_t> sample_copy(sample.begin(), sample.end());
    uint8_t nothing = 0;
    KeyFrame record = {};
    record.config = config.empty() ? &nothing : config_copy.data();
    record.config_length = static_cast<int32_t>(config.size());
    record.sample = sample.empty() ? &nothing : sample_copy.data();
    record.bytes_read = static_cast<int32_t>(sample.size());
    DecodedPicture picture = {};
    const int result = DecodeKeyFrameMpeg4(&record, &picture, is_mpeg4 ? kCodecMpeg4 : kCodecH263);
    if (result == 0) {
        planes->assign(picture.planes, picture.planes + picture.v_offset + picture.u_offset / 4);
    }
    if (picture.planes) upnp_free(picture.planes);
    return result;
}

int StreamWriter::most_difference(bool is_mpeg4) const {
    std::vector<uint8_t> got;
    if (decode_sample(config.str(), sample.str(), is_mpeg4, &got) != 0) return 256;
    if (got.size() != planes_.size()) return 256;
    int most = 0;
    for (size_t i = 0; i < got.size(); ++i) most = std::max(most, abs(got[i] - planes_[i]));
    return most;
}
