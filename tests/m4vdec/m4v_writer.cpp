// SPDX-License-Identifier: BSD-2-Clause
#include "tests/m4vdec/m4v_writer.h"

#include <math.h>
#include <stdlib.h>

#include <algorithm>
#include <sstream>

#include "runtime/accounted_memory.h"
#include "thumb/decode_key_frame_mpeg4.h"

void BitPacker::put(uint32_t value, unsigned length) {
    while (length-- > 0) {
        if (used == 0) bytes.push_back(0);
        bytes.back() = static_cast<uint8_t>(bytes.back() | (value >> length & 1) << (7 - used));
        used = (used + 1) % 8;
    }
}

void BitPacker::put(const char* digits) {
    for (; *digits; ++digits) {
        if (*digits != ' ') put(*digits == '1', 1);
    }
}

void BitPacker::align(bool is_stuffing) {
    if (is_stuffing) put(0, 1);
    while (used != 0) put(is_stuffing, 1);
}

void BitPacker::start_code(uint8_t value) {
    align(false);
    put(0x000001, 24);
    put(value, 8);
}

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

EventCoder::EventCoder(const TcoefTable& table) : table_(table) {
    for (uint32_t code = 0; code < 1u << table.max_bits; ++code) {
        TcoefEntry entry = table.primary[code >> (table.max_bits - kTcoefPrimaryBits)];
        if (entry.step == kTcoefLong) {
            const unsigned group = 1u << (table.max_bits - kTcoefPrimaryBits);
            entry = table.secondary[static_cast<unsigned>(entry.level) + code % group];
        }
        if (entry.step >= kTcoefLong) continue;
        words_[{entry.step >= kTcoefLast, entry.step % kTcoefLast - 1, entry.level}] = {
            code >> (table.max_bits - entry.length), entry.length};
    }
}

bool EventCoder::put_code(BitPacker* out, unsigned last, unsigned run, int level) const {
    const auto word = words_.find({last, run, level});
    if (word == words_.end()) return false;
    out->put(word->second.bits, word->second.length);
    return true;
}

void EventCoder::put_escape(BitPacker* out, unsigned last, unsigned run, int level,
                            bool allow_short) const {
    const uint32_t bits = static_cast<uint32_t>(level);
    if (table_.escapes == TcoefEscapes::kReversible) {
        out->put("00001");
        out->put(last << 6 | run, 7);
        out->put(1, 1);
        out->put(static_cast<uint32_t>(abs(level)), 11);
        out->put("1 0000");
        out->put(level < 0, 1);
        return;
    }
    out->put("0000011");
    if (table_.escapes == TcoefEscapes::kMpeg4) {
        int most_level = 0;  // that has a code for this run, and the same the other way round
        unsigned most_run = 0;
        const int unit = level < 0 ? -1 : 1;
        while (words_.count({last, run, most_level + 1})) ++most_level;
        for (unsigned r = 0; r < 64; ++r) {
            if (words_.count({last, r, level})) most_run = r + 1;
        }
        const int base = level - unit * most_level;
        if (allow_short && base * unit > 0 && words_.count({last, run, base})) {
            out->put("0");
            put_code(out, last, run, base);
        } else if (allow_short && run >= most_run && words_.count({last, run - most_run, level})) {
            out->put("10");
            put_code(out, last, run - most_run, level);
        } else {
            out->put("11");
            out->put(last << 6 | run, 7);
            out->put(1, 1);
            out->put(bits & 0xfff, 12);
            out->put(1, 1);
        }
        return;
    }
    out->put(last << 6 | run, 7);
    if (abs(level) < 128) {
        out->put(bits & 255, 8);
    } else {
        out->put("10000000");
        out->put(bits & 31, 5);
        out->put(bits >> 5 & 63, 6);
    }
}

void EventCoder::put_block(BitPacker* out, const Block& levels, Scan scan, unsigned first,
                           std::mt19937* random) const {
    const auto& order = scan_order(scan);
    unsigned end = 64;
    while (levels[order[end - 1]] == 0) --end;
    unsigned run = 0;
    for (unsigned i = first; i < end; ++i, ++run) {
        const int level = levels[order[i]];
        if (level == 0) continue;
        const unsigned last = i + 1 == end;
        const bool allow_short = (*random)() % 8 != 0;
        if ((*random)() % 16 == 0 || !put_code(out, last, run, level)) {
            put_escape(out, last, run, level, allow_short);
        }
        run = ~0u;
    }
}

bool is_any_set(const Block& levels, unsigned first, Scan scan) {
    const auto& order = scan_order(scan);
    return std::any_of(order.begin() + first, order.end(), [&](uint8_t i) { return levels[i]; });
}

void put_mcbpc(BitPacker* out, unsigned cbpc, bool has_quant) {
    static const char* const kCodes[2][4] = {{"1", "001", "010", "011"},
                                             {"0001", "000001", "000010", "000011"}};
    out->put(kCodes[has_quant][cbpc]);
}

void put_cbpy(BitPacker* out, unsigned cbpy) {
    static const char* const kCodes[16] = {"0011",   "00101", "00100", "1001",   "00011", "0111",
                                           "000010", "1011",  "00010", "000011", "0101",  "1010",
                                           "0100",   "1000",  "0110",  "11"};
    out->put(kCodes[cbpy]);
}

void ModelPicture::put_block(unsigned x, unsigned y, unsigned n, bool is_field,
                             const Block& coefficients) {
    static const auto cosines = [] {
        std::array<double, 64> c{};
        for (unsigned i = 0; i < 64; ++i) {
            c[i] = (i % 8 == 0 ? sqrt(0.125) : 0.5) * cos((i / 8 * 2 + 1) * (i % 8) * M_PI / 16);
        }
        return c;  // [sample * 8 + frequency]
    }();
    const unsigned pitch = n < 4 ? width_mbs * 16 : width_mbs * 8;
    const unsigned luma = width_mbs * height_mbs * 256;
    uint8_t* const plane = planes.data() + (n < 4 ? 0 : luma + (n - 4) * luma / 4);
    for (unsigned i = 0; i < 64; ++i) {
        double sum = 0;
        for (unsigned k = 0; k < 64; ++k) {
            sum += coefficients[k] * cosines[i / 8 * 8 + k / 8] * cosines[i % 8 * 8 + k % 8];
        }
        const unsigned row = i / 8;
        const unsigned luma_row = is_field ? row * 2 + (n >> 1) : row + (n >> 1) * 8;
        const unsigned at = n < 4 ? (y * 16 + luma_row) * pitch + x * 16 + (n & 1) * 8 + i % 8
                                  : (y * 8 + row) * pitch + x * 8 + i % 8;
        plane[at] = static_cast<uint8_t>(std::clamp(floor(sum + 0.5), 0.0, 255.0));
    }
}

unsigned Options::get(const char* name, unsigned otherwise) const {
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const size_t equals = word.find('=');
        if (word.substr(0, equals) != name) continue;
        return equals == std::string::npos ? 1 : static_cast<unsigned>(atoi(&word[equals + 1]));
    }
    return otherwise;
}

int decode_sample(const std::vector<uint8_t>& config, const std::vector<uint8_t>& sample,
                  bool is_mpeg4, std::vector<uint8_t>* planes) {
    // Copies of the exact size, so that a sanitizer sees any access behind them.
    std::vector<uint8_t> config_copy(config), sample_copy(sample);
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

int most_difference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    if (a.size() != b.size()) return 256;
    int most = 0;
    for (size_t i = 0; i < a.size(); ++i) most = std::max(most, abs(a[i] - b[i]));
    return most;
}
