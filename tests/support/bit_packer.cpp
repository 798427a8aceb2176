// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/bit_packer.h"

BitPacker& BitPacker::u(int n, uint64_t value) {
    for (int i = n - 1; i >= 0; --i, ++size_) {
        if (size_ % 8 == 0) bytes_.push_back(0);
        const int bit = static_cast<int>(value >> i & 1);
        bytes_.back() = static_cast<char>(bytes_.back() | bit << (7 - size_ % 8));
    }
    return *this;
}

BitPacker& BitPacker::ue(uint32_t value) {
    const uint32_t code = value + 1;
    const int length = 32 - __builtin_clz(code);
    return u(length - 1, 0).u(length, code);
}

BitPacker& BitPacker::se(int32_t value) {
    const uint32_t magnitude = value < 0 ? 0U - static_cast<uint32_t>(value) : value;
    return ue(value > 0 ? 2 * magnitude - 1 : 2 * magnitude);
}

BitPacker& BitPacker::text(const std::string& bits) {
    for (const char c : bits) {
        if (c != ' ') u(1, c == '1');
    }
    return *this;
}

BitPacker& BitPacker::bytes(const std::string& data) {
    for (const char c : data) u(8, static_cast<uint8_t>(c));
    return *this;
}

BitPacker& BitPacker::align(int bit) {
    while (size_ % 8 != 0) u(1, static_cast<uint64_t>(bit));
    return *this;
}

BitPacker& BitPacker::trailing() { return u(1, 1).align(); }

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
