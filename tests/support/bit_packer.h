// SPDX-License-Identifier: BSD-2-Clause
// Packs syntax elements into bits, MSB first, and bits into NAL units.
#pragma once

#include <stdint.h>

#include <string>

class BitPacker {
 public:
    BitPacker() = default;
    explicit BitPacker(const std::string& bits) { text(bits); }

    BitPacker& u(int n, uint64_t value);        // the low n bits, 0 to 64
    BitPacker& ue(uint32_t value);              // any value but 2^32 - 1
    BitPacker& se(int32_t value);               // any value but -2^31
    BitPacker& text(const std::string& bits);   // '0' and '1'; blanks are left out
    BitPacker& bytes(const std::string& data);  // on a byte boundary
    BitPacker& align(int bit = 0);              // fills the byte with that bit
    BitPacker& trailing() { return u(1, 1).align(); }

    const std::string& bits() const { return bits_; }
    std::string str() const;  // bytes, the last one filled with zeros

 private:
    std::string bits_;
};

// Adds emulation prevention bytes (H.264 7.4.1.1).
std::string escaped(const std::string& payload);

// Header byte and escaped payload.
std::string nal_unit(int nal_ref_idc, int nal_unit_type, const BitPacker& payload);

// The unit after its big-endian length.
std::string with_length(const std::string& nal, int length_size);
