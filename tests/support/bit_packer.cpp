// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/bit_packer.h"

BitPacker& BitPacker::u(int n, uint64_t value) {
    while (n-- > 0) bits_ += value >> n & 1 ? '1' : '0';
    return *this;
}

BitPacker& BitPacker::ue(uint32_t value) {
    const int length = 32 - __builtin_clz(value + 1);
    return u(length - 1, 0).u(length, value + 1);
}

BitPacker& BitPacker::se(int32_t value) {
    const uint32_t magnitude = value < 0 ? 0U - static_cast<uint32_t>(value) : value;
    return ue(value > 0 ? 2 * magnitude - 1 : 2 * magnitude);
}

BitPacker& BitPacker::text(const std::string& bits) {
    for (const char c : bits) {
        if (c != ' ') bits_ += c;
    }
    return *this;
}

BitPacker& BitPacker::bytes(const std::string& data) {
    for (const char c : data) u(8, static_cast<uint8_t>(c));
    return *this;
}

BitPacker& BitPacker::align(int bit) {
    while (bits_.size() % 8 != 0) u(1, static_cast<uint64_t>(bit));
    return *this;
}

std::string BitPacker::str() const {
    std::string out((bits_.size() + 7) / 8, 0);
    for (size_t i = 0; i < bits_.size(); ++i) {
        if (bits_[i] == '1') out[i / 8] = static_cast<char>(out[i / 8] | 0x80 >> i % 8);
    }
    return out;
}

std::string escaped(const std::string& payload) {
    std::string out;
    int zeros = 0;
    for (const char c : payload) {
        if (zeros == 2 && static_cast<uint8_t>(c) <= 3) {
            out.push_back(3);
            zeros = 0;
        }
        out.push_back(c);
        zeros = c == 0 ? zeros + 1 : 0;
    }
    return out;
}

std::string nal_unit(int nal_ref_idc, int nal_unit_type, const BitPacker& payload) {
    const char header = static_cast<char>(nal_ref_idc << 5 | nal_unit_type);
    return escaped(header + payload.str());
}

std::string with_length(const std::string& nal, int length_size) {
    return BitPacker().u(8 * length_size, nal.size()).str() + nal;
}
