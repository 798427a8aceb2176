// SPDX-License-Identifier: BSD-2-Clause
// One dimension of the inverse DCT, which all variants share: the sums before the shift. Everything
// is static, since files include it that are built for other processors.
#pragma once

#include <stdint.h>

// [k]: round(sqrt(2) * cos(k * pi / 16) * 2^14). One pass is 2^15.5 times the orthonormal
// transform, both are 2^31 times, which the two shifts take back.
static constexpr int16_t kIdctFactors[8] = {0, 22725, 21407, 19266, 16384, 12873, 8867, 4520};

// kIdctFactors[k], negated for a negative k.
static constexpr int idct_factor(int k) { return k < 0 ? -kIdctFactors[-k] : kIdctFactors[k]; }

// The first pass keeps 4.5 fractional bits and saturates to 16 bits, the second rounds to samples.
constexpr int kIdctShift1 = 11;
constexpr int kIdctShift2 = 20;

// The even and the odd part of the transform of coefficients x0 to x7 (of one column, or of each
// lane's): value i of the result is even[i] + odd[i], value 7 - i is even[i] - odd[i]. The
// coefficients come two by two, x04 being x0 and x4. A variant says what a pair is, and gives
//   products<a, b>(pair)           idct_factor(a) * first + idct_factor(b) * second
//   add_products<a, b>(sum, pair)  that and sum
// with 32 bits, where sums of wild blocks may wrap. kCount 4 does without x4 to x7.
template <int kCount, typename Pair, typename Sum>
[[gnu::always_inline]] static inline void idct_parts(const Pair& x04, const Pair& x26,
                                                     const Pair& x13, const Pair& x57, Sum round,
                                                     Sum even[4], Sum odd[4]) {
    constexpr int kAll = kCount == 8;
    const Sum e0 = add_products<4, kAll * 4>(round, x04);
    const Sum e1 = kAll ? add_products<4, -4>(round, x04) : e0;
    const Sum f0 = products<2, kAll * 6>(x26);
    const Sum f1 = products<6, kAll * -2>(x26);
    even[0] = e0 + f0;
    even[1] = e1 + f1;
    even[2] = e1 - f1;
    even[3] = e0 - f0;
    odd[0] = products<1, 3>(x13);
    odd[1] = products<3, -7>(x13);
    odd[2] = products<5, -1>(x13);
    odd[3] = products<7, -5>(x13);
    if (kAll) {
        odd[0] = add_products<5, 7>(odd[0], x57);
        odd[1] = add_products<-1, -5>(odd[1], x57);
        odd[2] = add_products<7, 3>(odd[2], x57);
        odd[3] = add_products<3, -1>(odd[3], x57);
    }
}

// The same with the parts put together into out[0] to [7].
template <int kCount, typename Pair, typename Sum>
[[gnu::always_inline]] static inline void idct_pass(const Pair& x04, const Pair& x26,
                                                    const Pair& x13, const Pair& x57, Sum round,
                                                    Sum out[8]) {
    Sum even[4], odd[4];
    idct_parts<kCount>(x04, x26, x13, x57, round, even, odd);
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) {
        out[i] = even[i] + odd[i];
        out[7 - i] = even[i] - odd[i];
    }
}
