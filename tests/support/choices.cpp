// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/choices.h"

#include <algorithm>

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
