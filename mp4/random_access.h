// SPDX-License-Identifier: BSD-2-Clause
// The fragment random access table (ISO 14496-12 8.8.10). It stays in the file: where an entry lies
// is worked out, and a table of four billion costs no more memory than one of four.
#pragma once

#include <stdint.h>

#include "mp4/buffered_file.h"

constexpr uint32_t kRandomAccessWindowBytes = 4096;
using RandomAccessWindow = uint8_t[kRandomAccessWindowBytes];

struct RandomAccessTable {
    uint32_t count;             // entries, as declared
    uint32_t stored_count;      // that start within the file; the others are zeros
    uint32_t first_run_number;  // of entry 0
    bool has_64_bit_times;
    uint32_t generation;    // of the tables read so far
    int64_t position;       // of entry 0 in the file
    uint32_t entry_length;  // bytes, without those of the bit reader
    uint32_t bit_numbers;   // numbers in an entry that go through the bit reader
    uint32_t first_phase;   // of the bit reader in front of entry 0
    int64_t window_start;
    int32_t window_length;
    uint8_t* window;  // a RandomAccessWindow, not owned; the rest of it holds anything
};

struct RandomAccessEntry {
    uint64_t time;    // in the video track's time scale
    uint64_t offset;  // of the fragment in the file
};

// Declares the table whose entries start at the file's tell, and moves the tell after them. Each
// of the three low pairs of bits in size_codes says how an entry's number is stored.
void random_access_declare(BufferedFile* file, RandomAccessTable* table, uint32_t count,
                           uint32_t size_codes, bool has_64_bit_times);

// Entries past the end of the file are zeros.
RandomAccessEntry random_access_entry(BufferedFile* file, RandomAccessTable* table, uint32_t index);
