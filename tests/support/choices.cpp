// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/choices.h"

#include <algorithm>
#include <random>

uint32_t Choices::value(uint32_t usual) {
    if (!once_in(16)) return word() % (usual + 1);
    const uint32_t power = uint32_t{1} << byte() % 32;
    return power - 1 + byte() % 3;  // 2^n - 1, 2^n, 2^n + 1
}

Choices Choices::part(size_t n) {
    n = std::min(n, static_cast<size_t>(end_ - next_));
    next_ += n;
    return {next_ - n, n};
}

std::string Choices::bytes(size_t n) {
    const Choices taken = part(n);
    return {taken.next_, taken.end_};
}

std::string Choices::payload() {
    const uint32_t length = word() % 8192;
    const uint32_t kind = byte() % 6;
    if (kind < 2) return bytes(length);
    std::minstd_rand random(1 + word());
    std::string noise(length, '\0');
    for (char& c : noise) {
        auto bits = random() >> 8;
        if (kind == 3) bits |= random() >> 8;
        if (kind == 4) bits &= random() >> 8;
        c = static_cast<char>(bits);
    }
    return noise;
}
