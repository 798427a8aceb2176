// SPDX-License-Identifier: BSD-2-Clause
// The arithmetic encoder (H.264 9.3.4.2), to make what the decoder reads.
#pragma once

#include <stdint.h>

#include "tests/support/bit_packer.h"

class CabacPacker {
 public:
    // Appends to *out from the next byte boundary on.
    explicit CabacPacker(BitPacker* out) : out_(out) { start(); }

    void start();
    void decision(uint8_t* context, int bin);  // the context is pStateIdx * 2 + valMPS
    void bypass(int bin);
    void terminate(int bin);  // a bin of 1 also flushes; the last bit written is a 1 then

 private:
    void put(int bit);
    void renormalise();

    BitPacker* out_;
    uint32_t low_ = 0;
    uint32_t range_ = 510;
    int outstanding_ = 0;
    bool is_first_ = true;
};

// Byte of a context variable (H.264 9.3.1.1).
uint8_t cabac_initial_context(int m, int n, int slice_qp);
