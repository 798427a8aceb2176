// SPDX-License-Identifier: BSD-2-Clause
#include "fuzz/choices.h"

#include <algorithm>

uint32_t Choices::value(uint32_t usual) {
    if (!once_in(16)) return below(usual + 1);
    const uint32_t power = uint32_t{1} << byte() % 32;
    return power - 1 + below(3);  // 2^n - 1, 2^n, 2^n + 1
}

std::string Choices::bytes(size_t n) {
    n = std::min(n, static_cast<size_t>(end_ - next_));
    const std::string taken(next_, next_ + n);
    next_ += n;
    return taken;
}

std::string Choices::payload() {
    const uint32_t length = below(4096);
    const uint32_t kind = byte() % 6;
    if (kind < 2) return bytes(length);
    uint32_t state = word() | 0x10000;
    std::string noise(length, '\0');
    const auto random = [&state] {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state >> 8;
    };
    for (char& c : noise) {
        uint32_t bits = random();
        if (kind == 3) bits |= random();
        if (kind == 4) bits &= random();
        if (kind == 5) bits |= random() | random();
        c = static_cast<char>(bits);
    }
    return noise;
}
