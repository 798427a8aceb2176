// SPDX-License-Identifier: BSD-2-Clause
// Buffered reading of the input file: blocks, big-endian integers, single bits, a 64-bit tell and a
// seek that stays inside the buffer when it can. All operations take a null file.
#pragma once

#include <stdint.h>

#include <memory>

#include "mp4/file_handle.h"

// Buffers that can be remembered: those of a film's first fragments. Of a film with far more of
// them, what look-ups read again is little beside the walk.
constexpr uint32_t kMostRemembered = 64;

struct RememberedBuffer {
    int64_t position;  // in the file
    uint32_t length;   // bytes
};

struct BufferedFile {
    FileHandle* handle;   // owned; its position is past the buffered bytes
    uint8_t* buffer;      // owned
    uint32_t capacity;    // bytes in buffer
    uint32_t cursor;      // index of the next unread byte in buffer
    uint32_t bytes_left;  // unread bytes from the cursor on
    uint32_t bit_word;    // of the bit reader
    int32_t bits_left;    // in bit_word
    uint8_t* memory;      // owned; a capacity for each buffer; null before the first one
    uint32_t remembered_count;
    RememberedBuffer remembered[kMostRemembered];
};

// Opens the file and fills the buffer once. Null when that fails.
BufferedFile* upnp_file_open_b(const char* path, uint32_t capacity);
void upnp_file_close_b(BufferedFile* file);

struct BufferedFileCloser {
    void operator()(BufferedFile* file) const { upnp_file_close_b(file); }
};
using OpenFile = std::unique_ptr<BufferedFile, BufferedFileCloser>;

// Returns the number of bytes copied, less than n only at the end of the file or on a read error;
// -1 for a null file or destination or a negative n. What exceeds the buffer is read straight
// into the destination.
int32_t upnp_file_read_b(BufferedFile* file, void* destination, int32_t n);

// Big-endian integers. One that the file does not hold whole is 0, with its bytes consumed.
uint8_t upnp_file_read_u8_b(BufferedFile* file);
uint16_t upnp_file_read_u16_b(BufferedFile* file);
uint32_t upnp_file_read_u32_b(BufferedFile* file);
uint64_t upnp_file_read_u64_b(BufferedFile* file);

// Kept on purpose: bits-doubled
// Takes n bits (up to 31) off the word if it has as many. Else it loads further words with their
// first byte lowest, takes bit 15 each time, and the result is twice what the bits are worth. Word
// and count outlive seeks.
uint32_t upnp_file_read_bits_b(BufferedFile* file, int32_t n);

// Position of the next unread byte.
int64_t upnp_file_tell_b(const BufferedFile* file);
bool upnp_file_is_at_end_b(const BufferedFile* file);
// Bytes between the next unread byte and the end of the file, never negative.
int64_t upnp_file_bytes_ahead_b(const BufferedFile* file);

// whence 0 is absolute, 1 relative to tell, 2 relative to the end. Returns the new position; 0
// without any effect for another whence; -1 for a negative position, which drops the buffer.
int64_t upnp_file_seek_b(BufferedFile* file, int64_t offset, int32_t whence);

// Keeps the bytes that the buffer holds: where a later refill starts among them, they are taken
// instead of a read. Does nothing without memory, or after kMostRemembered buffers.
void upnp_file_remember_b(BufferedFile* file);
void upnp_file_forget_b(BufferedFile* file);
