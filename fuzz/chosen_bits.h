// SPDX-License-Identifier: BSD-2-Clause
// Packs syntax elements whose values are chosen when they are written.
#pragma once

#include <string>

#include "fuzz/choices.h"
#include "tests/support/bit_packer.h"

class ChosenBits : public BitPacker {
 public:
    explicit ChosenBits(Choices* choices) : c(choices) {}
    // Set once in that many times. These return what they wrote.
    bool flag(uint32_t n = 2) {
        const bool is_set = c->once_in(n);
        u(1, is_set);
        return is_set;
    }
    uint32_t any_ue(uint32_t most, int times = 1) {
        while (--times > 0) ue_rarely(1, most);
        return ue_rarely(1, most);
    }
    // A value up to most, or beyond, once in n times, and otherwise the usual one.
    uint32_t ue_rarely(uint32_t n, uint32_t most, uint32_t usual = 0) {
        const uint32_t value = c->once_in(n) ? c->value(most) : usual;
        ue(value);
        return value;
    }
    void any(int bits) { u(bits, c->word()); }  // up to 16
    void any_se(uint32_t most, int times = 1) {
        for (; times > 0; --times) {
            const int32_t value = static_cast<int32_t>(c->value(most) & INT32_MAX);
            se(c->flag() ? value : -value);
        }
    }
    void noise() { bytes(c->bytes(c->byte() % 40)); }
    // The bytes and a payload, without a gap of zeros between them.
    std::string with_payload() {
        while (bits().size() % 8 != 0) flag();
        return str() + c->payload();
    }

    Choices* const c;
};
