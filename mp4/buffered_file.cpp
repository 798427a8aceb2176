// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/buffered_file.h"

#include <string.h>

#include <algorithm>

#include "runtime/accounted_memory.h"

static void drop_buffer(BufferedFile* file) { file->cursor = file->bytes_left = 0; }

static int64_t buffer_position(const BufferedFile* file) {
    return file->handle->position - (file->cursor + file->bytes_left);
}

void upnp_file_remember_b(BufferedFile* file) {
    if (!file || file->remembered_count == kMostRemembered) return;
    const uint32_t index = file->remembered_count;
    const RememberedBuffer found = {buffer_position(file), file->cursor + file->bytes_left};
    if (index > 0 && file->remembered[index - 1].position == found.position) return;
    if (!file->memory) {
        file->memory = static_cast<uint8_t*>(upnp_malloc(kMostRemembered * file->capacity));
        if (!file->memory) return;
    }
    memcpy(file->memory + index * file->capacity, file->buffer, found.length);
    file->remembered[file->remembered_count++] = found;
}

void upnp_file_forget_b(BufferedFile* file) {
    if (file->memory) upnp_free(file->memory);
    file->memory = nullptr;
    file->remembered_count = 0;
}

// Fills the buffer with what is remembered of the bytes at the handle's position, as a read would.
static bool recall(BufferedFile* file) {
    for (uint32_t i = 0; i < file->remembered_count; ++i) {
        const RememberedBuffer& kept = file->remembered[i];
        const int64_t skipped = file->handle->position - kept.position;
        if (skipped < 0 || skipped >= kept.length) continue;
        file->bytes_left = kept.length - static_cast<uint32_t>(skipped);
        memcpy(file->buffer, file->memory + i * file->capacity + skipped, file->bytes_left);
        file->handle->position += file->bytes_left;
        return true;
    }
    return false;
}

// At the end of the file, as it was when it was opened, the buffer stays: seeks go back from there.
static bool refill(BufferedFile* file) {
    if (file->handle->position >= file->handle->size) return false;
    drop_buffer(file);
    if (recall(file)) return true;
    const int32_t count = upnp_file_read(file->handle, file->buffer, file->capacity);
    if (count > 0) file->bytes_left = static_cast<uint32_t>(count);
    return file->bytes_left != 0;
}

BufferedFile* upnp_file_open_b(const char* path, uint32_t capacity) {
    OpenFile file(static_cast<BufferedFile*>(upnp_calloc(1, sizeof(BufferedFile))));
    if (!file) return nullptr;
    file->buffer = static_cast<uint8_t*>(upnp_malloc(capacity));
    file->capacity = capacity;
    if (!file->buffer) return nullptr;
    file->handle = upnp_file_open(path);
    if (!file->handle) return nullptr;
    refill(file.get());
    return file.release();
}

void upnp_file_close_b(BufferedFile* file) {
    if (!file) return;
    upnp_file_close(file->handle);
    if (file->buffer) upnp_free(file->buffer);
    upnp_file_forget_b(file);
    upnp_free(file);
}

static uint8_t* take(BufferedFile* file, uint8_t* out, uint32_t n) {
    memcpy(out, file->buffer + file->cursor, n);
    file->cursor += n;
    file->bytes_left -= n;
    return out + n;
}

int32_t upnp_file_read_b(BufferedFile* file, void* destination, int32_t n) {
    if (!file || !destination || n < 0) return -1;
    uint8_t* out = static_cast<uint8_t*>(destination);
    uint8_t* const end = out + n;
    for (;;) {
        out = take(file, out, std::min(static_cast<uint32_t>(end - out), file->bytes_left));
        const uint32_t missing = static_cast<uint32_t>(end - out);
        if (missing == 0) break;
        if (missing < file->capacity) {
            if (!refill(file)) break;
        } else {
            drop_buffer(file);
            const int32_t count = upnp_file_read(file->handle, out, missing);
            if (count <= 0) break;
            out += count;
        }
    }
    return n - static_cast<int32_t>(end - out);
}

template <typename T>
static T read_big_endian(BufferedFile* file) {
    uint8_t bytes[sizeof(T)];
    if (upnp_file_read_b(file, bytes, sizeof bytes) != static_cast<int32_t>(sizeof bytes)) return 0;
    T value = 0;
    for (const uint8_t byte : bytes) value = static_cast<T>(value << 8 | byte);
    return value;
}

uint8_t upnp_file_read_u8_b(BufferedFile* file) {
    uint8_t byte = 0;
    return upnp_file_read_b(file, &byte, 1) == 1 ? byte : 0;
}

uint16_t upnp_file_read_u16_b(BufferedFile* file) { return read_big_endian<uint16_t>(file); }
uint32_t upnp_file_read_u32_b(BufferedFile* file) { return read_big_endian<uint32_t>(file); }
uint64_t upnp_file_read_u64_b(BufferedFile* file) { return read_big_endian<uint64_t>(file); }

static uint32_t read_bit(BufferedFile* file) {
    if (file->bits_left == 0) {
        file->bit_word = __builtin_bswap32(upnp_file_read_u32_b(file));
        file->bits_left = 31;
    } else {
        --file->bits_left;
    }
    const uint32_t bit = file->bit_word >> 15 & 1;
    file->bit_word <<= 1;
    return bit;
}

uint32_t upnp_file_read_bits_b(BufferedFile* file, int32_t n) {
    if (!file || n < 1 || n > 31) return 0;
    if (file->bits_left >= n) {
        const uint32_t value = file->bit_word >> (32 - n);
        file->bit_word <<= n;
        file->bits_left -= n;
        return value;
    }
    uint32_t sum = 0;
    for (int32_t i = 0; i < n; ++i) sum = (sum + read_bit(file)) * 2;
    return sum;
}

int64_t upnp_file_tell_b(const BufferedFile* file) {
    return file ? file->handle->position - file->bytes_left : 0;
}

int64_t upnp_file_bytes_ahead_b(const BufferedFile* file) {
    return file ? std::max<int64_t>(file->handle->size - upnp_file_tell_b(file), 0) : 0;
}

bool upnp_file_is_at_end_b(const BufferedFile* file) { return upnp_file_bytes_ahead_b(file) == 0; }

int64_t upnp_file_seek_b(BufferedFile* file, int64_t offset, int32_t whence) {
    if (!file || whence < 0 || whence > 2) return 0;
    const int64_t base = whence == 0   ? 0
                         : whence == 1 ? upnp_file_tell_b(file)
                                       : file->handle->size;
    int64_t target;
    if (__builtin_add_overflow(base, offset, &target)) target = -1;
    const uint32_t fill = file->cursor + file->bytes_left;
    const int64_t range_start = buffer_position(file);
    if (target >= range_start && target <= range_start + fill) {  // its end is where it is refilled
        file->cursor = static_cast<uint32_t>(target - range_start);
        file->bytes_left = fill - file->cursor;
        return target;
    }
    drop_buffer(file);
    return upnp_file_seek(file->handle, target);
}
