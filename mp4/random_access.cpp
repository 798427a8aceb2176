// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/random_access.h"

#include <assert.h>

#include <algorithm>

#include "mp4/work_limit.h"
#include "runtime/byte_order.h"

// Numbers of size code 2 have 24 bits and go through the bit reader. It takes 32 bits from the file
// each time it has none left, so every fourth number finds all of its bits in the word.
constexpr uint32_t kBitPhases = 4;
constexpr int32_t kBitsPerPhase = 8;  // what each of the numbers leaves of a word

static bool is_bit_number(uint32_t size_code) { return (size_code & 3) == 2; }

// Kept on purpose: numbers-of-24-bits
// Code 2 takes more than its 24 bits from the file and does not give the stored number.
static uint32_t read_number(BufferedFile* file, uint32_t size_code) {
    switch (size_code & 3) {
        case 0:
            return upnp_file_read_u8_b(file);
        case 1:
            return upnp_file_read_u16_b(file);
        case 2:
            return upnp_file_read_bits_b(file, 24);
        default:
            return upnp_file_read_u32_b(file);
    }
}

// Where an entry starts, if the file goes on that far; at most the largest position.
static int64_t entry_position(const RandomAccessTable* table, uint32_t index) {
    assert(index <= table->count);
    const uint64_t numbers = uint64_t{index} * table->bit_numbers;
    const uint64_t words = numbers - (numbers + table->first_phase) / kBitPhases;
    const uint64_t position =
        static_cast<uint64_t>(table->position) + uint64_t{index} * table->entry_length + 4 * words;
    return static_cast<int64_t>(std::min<uint64_t>(position, INT64_MAX));
}

static uint32_t stored_count(const BufferedFile* file, const RandomAccessTable* table) {
    uint32_t low = 0, high = table->count;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (entry_position(table, middle) < file->handle->size) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}

// Reads over the entry at the tell. Returns its run number.
static uint32_t pass_entry(BufferedFile* file, const RandomAccessTable* table,
                           uint32_t size_codes) {
    for (int field = 0; field < 2; ++field) {  // time and offset
        if (table->has_64_bit_times) {
            upnp_file_read_u64_b(file);
        } else {
            upnp_file_read_u32_b(file);
        }
    }
    read_number(file, size_codes >> 4);  // of the track fragment
    const uint32_t run_number = read_number(file, size_codes >> 2);
    read_number(file, size_codes);  // of the sample
    return run_number;
}

// Reads over all entries. What the bit reader is left with depends on the last four numbers only.
static void pass_entries(BufferedFile* file, RandomAccessTable* table, uint32_t size_codes) {
    if (table->count == 0) return;
    table->first_run_number = pass_entry(file, table, size_codes);
    const uint32_t rest = std::max(table->count, kBitPhases + 1) - kBitPhases;
    const uint64_t numbers = uint64_t{rest} * table->bit_numbers + table->first_phase;
    upnp_file_seek_b(file, std::min(entry_position(table, rest), file->handle->size), 0);
    if (table->bit_numbers != 0) {
        file->bits_left = static_cast<int32_t>(numbers % kBitPhases) * kBitsPerPhase;
    }
    for (uint32_t i = rest; i < table->count; ++i) pass_entry(file, table, size_codes);
}

void random_access_declare(BufferedFile* file, RandomAccessTable* table, uint32_t count,
                           uint32_t size_codes, bool has_64_bit_times) {
    table->count = count;
    table->first_run_number = 0;
    table->has_64_bit_times = has_64_bit_times;
    table->generation += 1;
    table->position = upnp_file_tell_b(file);
    table->entry_length = has_64_bit_times ? 16 : 8;
    table->bit_numbers = 0;
    for (const uint32_t code : {size_codes, size_codes >> 2, size_codes >> 4}) {
        if (is_bit_number(code)) {
            table->bit_numbers += 1;
        } else {
            table->entry_length += (code & 3) + 1;
        }
    }
    table->first_phase = static_cast<uint32_t>(file->bits_left / kBitsPerPhase);
    table->stored_count = stored_count(file, table);
    table->window_length = 0;
    pass_entries(file, table, size_codes);
}

// A field of the table. One that the file does not hold whole is 0.
static uint64_t read_field(BufferedFile* file, RandomAccessTable* table, int64_t position,
                           int32_t width) {
    assert(position >= 0 && (width == 4 || width == 8));
    if (position > file->handle->size - width) return 0;
    if (position < table->window_start ||
        position + width > table->window_start + table->window_length) {
        table->window_start = position;
        table->window_length = 0;
        if (!mp4_spend_read() || !mp4_spend_work(kRandomAccessWindowBytes / 4 * kWordWork))
            return 0;
        upnp_file_seek_b(file, position, 0);
        table->window_length =
            std::max(upnp_file_read_b(file, table->window, kRandomAccessWindowBytes), 0);
        if (table->window_length < width) return 0;
    }
    const uint8_t* const bytes = table->window + (position - table->window_start);
    return width == 8 ? load_be64(bytes) : load_be32(bytes);
}

RandomAccessEntry random_access_entry(BufferedFile* file, RandomAccessTable* table,
                                      uint32_t index) {
    if (index >= table->stored_count) return {};
    const int32_t width = table->has_64_bit_times ? 8 : 4;
    const int64_t position = entry_position(table, index);
    const uint64_t time = read_field(file, table, position, width);
    return {time, read_field(file, table, position + width, width)};
}
