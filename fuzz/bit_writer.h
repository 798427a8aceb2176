// SPDX-License-Identifier: BSD-2-Clause
// Packs fields of bits, the highest first.
#pragma once

#include <stdint.h>

#include <string>

class BitWriter {
 public:
    void put(int n, uint32_t value) {
        while (n-- > 0) bit(value >> n & 1);
    }
    void ue(uint32_t value) {  // H.264 9.1
        const uint64_t code = uint64_t{value} + 1;
        int length = 0;
        while (code >> length > 1) ++length;
        put(length, 0);
        put(1, 1);
        put(length, static_cast<uint32_t>(code));
    }
    void se(int32_t value) {
        const int64_t wide = value;
        ue(static_cast<uint32_t>(wide > 0 ? 2 * wide - 1 : -2 * wide));
    }
    void align(bool with_ones = false) {
        while (used_ % 8 != 0) bit(with_ones);
    }
    void append(const std::string& bytes) {
        for (const char c : bytes) put(8, static_cast<uint8_t>(c));
    }
    void trailing() {  // rbsp_trailing_bits
        bit(1);
        align();
    }
    const std::string& bytes() const { return bytes_; }

 private:
    void bit(uint32_t value) {
        if (used_++ % 8 == 0) bytes_ += '\0';
        if (value != 0) bytes_.back() = static_cast<char>(bytes_.back() | 0x80 >> (used_ - 1) % 8);
    }
    std::string bytes_;
    uint64_t used_ = 0;
};
