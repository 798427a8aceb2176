// SPDX-License-Identifier: BSD-2-Clause
// A fuzzer's input read as decisions, from which writers make well-formed streams with a few values
// out of range. Mutating the input changes fields instead of breaking the entropy coding. When the
// decisions are used up, all that follow are 0, which writers take for something usual.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

class Choices {
 public:
    Choices(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}
    uint32_t byte() { return next_ < end_ ? *next_++ : 0; }
    bool flag() { return byte() & 1; }
    bool once_in(uint32_t n) { return byte() % n == n - 1; }
    uint32_t word() {
        const uint32_t high = byte();  // first, under every compiler
        return high << 8 | byte();
    }
    // Mostly 0 to usual, and now and then one of the values at which 1 to 31 bits wrap.
    uint32_t value(uint32_t usual);
    std::string bytes(size_t n = SIZE_MAX);  // fewer at the end
    Choices part(size_t n);                  // the next bytes, read by themselves

 private:
    const uint8_t* next_;
    const uint8_t* end_;
};
