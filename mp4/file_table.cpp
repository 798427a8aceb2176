// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/file_table.h"

#include <assert.h>

#include <algorithm>

#include "mp4/work_limit.h"
#include "runtime/byte_order.h"

void file_table_declare(BufferedFile* file, FileTable* table, uint32_t count, uint32_t entry_words,
                        bool is_filled) {
    assert(entry_words != 0);
    table->is_present = true;
    table->count = count;
    table->entry_words = entry_words;
    table->position = upnp_file_tell_b(file);
    const uint64_t words_ahead = static_cast<uint64_t>(upnp_file_bytes_ahead_b(file)) / 4;
    table->stored_words = is_filled ? std::min(uint64_t{count} * entry_words, words_ahead) : 0;
    table->window_start = 0;
    table->window_words = 0;
    if (table->stored_words != 0) file_table_load(file, table, 0);
}

void file_table_load(BufferedFile* file, FileTable* table, uint64_t index) {
    assert(index < table->stored_words);
    table->window_start = index - index % kTableWindowWords;
    table->window_words = static_cast<uint32_t>(
        std::min<uint64_t>(table->stored_words - table->window_start, kTableWindowWords));
    const int32_t length = static_cast<int32_t>(table->window_words * 4);
    int32_t count = 0;
    if (mp4_spend_read() && mp4_spend_work(table->window_words * kWordWork)) {
        upnp_file_seek_b(file, table->position + static_cast<int64_t>(table->window_start * 4), 0);
        count = upnp_file_read_b(file, table->window, length);
    }
    uint8_t* const bytes = reinterpret_cast<uint8_t*>(table->window);
    // There is less when the work is used up, or the file was cut since it was opened.
    if (count < length) memset(bytes + count, 0, static_cast<size_t>(length - count));
    for (uint32_t i = 0; i < table->window_words; ++i) table->window[i] = load_be32(bytes + 4 * i);
}

uint32_t file_table_stored_entries(const FileTable* table) {
    if (table->entry_words == 0) return 0;
    return static_cast<uint32_t>((table->stored_words + table->entry_words - 1) /
                                 table->entry_words);
}
