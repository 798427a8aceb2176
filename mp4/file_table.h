// SPDX-License-Identifier: BSD-2-Clause
// A table of 32-bit words that stays in the file and is read through a window: the longest movie
// costs no more memory than the shortest, and of a table only what a look-up needs is read.
#pragma once

#include <stdint.h>

#include "mp4/buffered_file.h"

constexpr uint32_t kTableWindowWords = 1024;
using TableWindow = uint32_t[kTableWindowWords];

struct FileTable {
    bool is_present;        // a box has declared the table
    uint32_t count;         // entries, as declared
    uint32_t entry_words;   // words in an entry
    int64_t position;       // of the first word in the file
    uint64_t stored_words;  // words that the file holds; the others read as 0
    uint64_t window_start;  // index of the window's first word
    uint32_t window_words;  // words in the window
    uint32_t* window;       // a TableWindow, not owned; the rest of it holds anything
};

// Declares the table whose entries start at the file's tell, and reads the first window while the
// file is there; the tell moves. is_filled is false for a table whose
// entries are all 0 and not in the file.
void file_table_declare(BufferedFile* file, FileTable* table, uint32_t count, uint32_t entry_words,
                        bool is_filled);

// Moves the window to that word, which must be stored. Windows lie side by side, so that a table
// can be read in either direction.
void file_table_load(BufferedFile* file, FileTable* table, uint64_t index);

// The word of that index; 0 past what is stored.
inline uint32_t file_table_word(BufferedFile* file, FileTable* table, uint64_t index) {
    if (index - table->window_start >= table->window_words) {
        if (index >= table->stored_words) return 0;
        file_table_load(file, table, index);
    }
    return table->window[index - table->window_start];
}

// Entries that the file holds at least a part of.
uint32_t file_table_stored_entries(const FileTable* table);
