// SPDX-License-Identifier: BSD-2-Clause
// The samples that deblocking with vectors works on: 16 positions along an edge of one macroblock,
// or of each of two, line by line across it. Everything is static, since files include this that
// are built for other processors.
#pragma once

#include "runtime/simd_vectors.h"

// The macroblocks that a vector has positions of.
template <typename Samples>
constexpr int kMbs = sizeof(Samples) / 16;

// of(i) is what the vector has of macroblock i.
template <typename Samples, typename Of>
static inline Samples of_each(const Of& of) {
    if constexpr (kMbs<Samples> == 1) {
        return of(0);
    } else {
        return join(of(0), of(1));
    }
}

template <typename Samples, typename Take>
static inline void to_each(Samples v, const Take& take) {
    if constexpr (kMbs<Samples> == 1) {
        take(0, v);
    } else {
        take(0, low_half(v));
        take(1, high_half(v));
    }
}

// Hides how an address came about. Compilers would keep those of all rows from load to store, many
// more than there are registers.
template <typename T>
static inline T* fresh(T* p) {
    asm("" : "+r"(p));
    return p;
}

// A plane's samples of the macroblocks, row by row.
template <typename Samples>
struct Plane {
    uint8_t* of[kMbs<Samples>];
    ptrdiff_t pitch;

    Plane(uint8_t* first, ptrdiff_t row_pitch, ptrdiff_t distance) : pitch(row_pitch) {
        for (int i = 0; i < kMbs<Samples>; ++i) of[i] = first + i * distance;
    }
    Plane moved(ptrdiff_t x, ptrdiff_t y) const {
        Plane p = *this;
        for (uint8_t*& at : p.of) at = fresh(at + x + y * pitch);
        return p;
    }
    uint8_t* row(int i, ptrdiff_t y) const { return of[i] + y * pitch; }
};

// Lines of samples along an edge, line 0 being the first after it: as they are in the picture, and
// turned.
template <typename Samples>
struct Rows {
    using Vector = Samples;
    Plane<Samples> at;

    Rows moved(ptrdiff_t y) const { return {at.moved(0, y)}; }
    Samples load(ptrdiff_t y) const {
        return of_each<Samples>([&](int i) { return load_16(at.row(i, y)); });
    }
    void store(ptrdiff_t y, Samples v) const {
        to_each(v, [&](int i, U8x16 of) { store_16(at.row(i, y), of); });
    }
};

template <typename Samples>
struct Columns {
    using Vector = Samples;
    Samples* first;

    Columns moved(ptrdiff_t x) const { return {first + x}; }
    Samples load(ptrdiff_t x) const { return first[x]; }
    void store(ptrdiff_t x, Samples v) const { first[x] = v; }
};

// The rows of chroma: eight positions of Cb, then of Cr.
template <typename Samples>
struct ChromaRows {
    using Vector = Samples;
    Plane<Samples> cb;
    Plane<Samples> cr;

    ChromaRows moved(ptrdiff_t y) const { return {cb.moved(0, y), cr.moved(0, y)}; }
    Samples load(ptrdiff_t y) const {
        return of_each<Samples>([&](int i) { return load_8_8(cb.row(i, y), cr.row(i, y)); });
    }
    void store(ptrdiff_t y, Samples v) const {
        to_each(v, [&](int i, U8x16 of) { store_8_8(cb.row(i, y), cr.row(i, y), of); });
    }
};

// 16 rows of 4 samples to 4 columns, and back.
template <typename Samples>
static inline void load_turned_4(Plane<Samples> at, Samples* columns) {
    Samples v[4];
#pragma GCC unroll 4
    for (int y = 0; y < 4; ++y, at = at.moved(0, 4)) {
        v[y] = of_each<Samples>([&](int i) { return load_4x4(at.of[i], at.pitch); });
    }
    perfect_shuffle<4>(v);
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) columns[i] = v[i];
}

template <typename Samples>
static inline void store_turned_4(Plane<Samples> at, const Samples* columns) {
    Samples v[4] = {columns[0], columns[1], columns[2], columns[3]};
    perfect_shuffle<2>(v);
#pragma GCC unroll 4
    for (int y = 0; y < 4; ++y, at = at.moved(0, 4)) {
        to_each(v[y], [&](int i, U8x16 of) { store_4x4(at.of[i], at.pitch, of); });
    }
}

template <typename Samples>
static inline void load_turned_16(Rows<Samples> rows, Samples* columns) {
    Samples v[16];
#pragma GCC unroll 16
    for (int y = 0; y < 16; y += 4, rows = rows.moved(4)) {
#pragma GCC unroll 4
        for (int i = 0; i < 4; ++i) v[y + i] = rows.load(i);
    }
    perfect_shuffle<4>(v);
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i) columns[i] = v[i];
}

template <typename Samples>
static inline void store_turned_16(Rows<Samples> rows, const Samples* columns) {
    Samples v[16];
#pragma GCC unroll 16
    for (int i = 0; i < 16; ++i) v[i] = columns[i];
    perfect_shuffle<4>(v);
#pragma GCC unroll 16
    for (int y = 0; y < 16; y += 4, rows = rows.moved(4)) {
#pragma GCC unroll 4
        for (int i = 0; i < 4; ++i) rows.store(i, v[y + i]);
    }
}

// Eight rows of eight samples, two in a vector.
template <typename Samples>
static inline void load_by_twos(Plane<Samples> at, Samples* v) {
#pragma GCC unroll 4
    for (int i = 0; i < 4; i += 2, at = at.moved(0, 4)) {
        v[i] = of_each<Samples>([&](int mb) { return load_8_8(at.row(mb, 0), at.row(mb, 1)); });
        v[i + 1] = of_each<Samples>([&](int mb) { return load_8_8(at.row(mb, 2), at.row(mb, 3)); });
    }
}

template <typename Samples>
static inline void store_by_twos(Plane<Samples> at, const Samples* v) {
#pragma GCC unroll 4
    for (int i = 0; i < 4; i += 2, at = at.moved(0, 4)) {
        to_each(v[i], [&](int mb, U8x16 of) { store_8_8(at.row(mb, 0), at.row(mb, 1), of); });
        to_each(v[i + 1], [&](int mb, U8x16 of) { store_8_8(at.row(mb, 2), at.row(mb, 3), of); });
    }
}
