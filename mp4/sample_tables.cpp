// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/sample_tables.h"

#include <string.h>

#include <algorithm>

#include "host/message_log.h"
#include "mp4/box_reader.h"
#include "mp4/work_limit.h"

bool mp4_is_video_track(const ParseContext* context) {
    return context->has_handler_type && memcmp(context->handler_type, "vide", 4) == 0;
}

static void leave_box(BufferedFile* file, const BoxHeader* header, ParseContext* context) {
    mp4_advance(context, int64_t{header->size_field} - 8);
    upnp_file_seek_b(file, context->position, 0);
}

// Declares a table at the file's tell. One that no block could hold, in arrays of entry_bytes an
// entry, is refused with 1, and an earlier table stays.
static int declare(BufferedFile* file, ParseContext* context, FileTable* table, uint32_t count,
                   uint32_t entry_words, uint32_t entry_bytes, const char* function) {
    if (uint64_t{count} * entry_bytes > kUpnpMaxBlock) {
        upnp_log_message(kLogError, kLogScan, function, 0, "No Memory to allocate ");
        return 1;
    }
    file_table_declare(file, table, count, entry_words, true);
    context->video->cursor = {};
    return 0;
}

// Kept on purpose: refused-table-is-entered
// The walk does not get past a box whose table was refused: it goes on inside.
static void parse_table(BufferedFile* file, const BoxHeader* header, ParseContext* context,
                        FileTable* table, uint32_t entry_words, uint32_t entry_bytes,
                        const char* function) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (mp4_is_video_track(context)) {
        upnp_file_read_u32_b(file);  // version and flags
        const uint32_t count = upnp_file_read_u32_b(file);
        if (declare(file, context, table, count, entry_words, entry_bytes, function) != 0) return;
        VideoState* const state = context->video;
        if (table == &state->sync_samples) state->sync_sample_count = count;
    }
    leave_box(file, header, context);
}

void mp4_parse_stts(BufferedFile* file, const BoxHeader* header, int64_t, ParseContext* context) {
    context->table_position = upnp_file_tell_b(file);
    parse_table(file, header, context, &context->video->time_to_sample, 2, 4, __func__);
}

void mp4_parse_stss(BufferedFile* file, const BoxHeader* header, int64_t, ParseContext* context) {
    context->table_position = upnp_file_tell_b(file);
    parse_table(file, header, context, &context->video->sync_samples, 1, 4, __func__);
}

void mp4_parse_stsc(BufferedFile* file, const BoxHeader* header, int64_t, ParseContext* context) {
    context->table_position = upnp_file_tell_b(file);
    parse_table(file, header, context, &context->video->sample_to_chunk, 3, 12, __func__);
}

void mp4_parse_stco(BufferedFile* file, const BoxHeader* header, int64_t, ParseContext* context) {
    parse_table(file, header, context, &context->video->chunk_offsets, 1, 4, __func__);
}

void mp4_parse_stsz(BufferedFile* file, const BoxHeader* header, int64_t, ParseContext* context) {
    context->sample_size_position = upnp_file_tell_b(file);
    if (mp4_is_box_too_large(file, header, context)) return;
    if (mp4_is_video_track(context)) {
        FileTable* const sizes = &context->video->sample_sizes;
        upnp_file_read_u32_b(file);  // version and flags
        const uint32_t sample_size = upnp_file_read_u32_b(file);
        const uint32_t count = upnp_file_read_u32_b(file);
        if (declare(file, context, sizes, count, 1, 4, __func__) != 0) return;
        // Kept on purpose: one-size-is-empty
        // Samples of one size have no entries, and count as empty.
        if (sample_size != 0) file_table_declare(file, sizes, count, 1, false);
    }
    leave_box(file, header, context);
}

bool mp4_find_sample_at(BufferedFile* file, VideoState* state, uint64_t target, uint64_t* sample) {
    FileTable* const table = &state->time_to_sample;
    const uint32_t entries = file_table_stored_entries(table);
    uint64_t walked = 0;    // samples of the entries before
    uint64_t end_time = 0;  // of the last of them; below target
    for (uint32_t i = 0; i < entries && !mp4_is_work_used_up(); ++i) {
        const uint32_t count = file_table_word(file, table, uint64_t{i} * 2);
        const uint32_t delta = file_table_word(file, table, uint64_t{i} * 2 + 1);
        if (count == 0 || count > INT32_MAX) continue;
        uint64_t needed = count;  // samples of this entry up to the one that reaches the target
        bool is_reached = target <= end_time;
        if (is_reached) {
            needed = 1;
        } else if (delta != 0) {
            needed = (target - end_time - 1) / delta + 1;
            is_reached = needed <= count;
        }
        if (is_reached) {
            *sample = walked + needed - 1;
            return true;
        }
        walked += count;
        end_time += uint64_t{count} * delta;
    }
    return false;
}

bool mp4_find_chunk(BufferedFile* file, VideoState* state, uint32_t sample, uint64_t* chunk,
                    uint32_t* first_sample) {
    FileTable* const table = &state->sample_to_chunk;
    SampleCursor* const cursor = &state->cursor;
    if (table->count == 0) return false;
    if (sample < cursor->run_first_sample) *cursor = {};
    for (;;) {
        const uint64_t entry = uint64_t{cursor->run} * 3;
        const uint32_t first_chunk = file_table_word(file, table, entry);
        const uint32_t samples_per_chunk = file_table_word(file, table, entry + 1);
        const bool is_last = cursor->run + 1 >= table->count;
        const uint32_t next_chunk = is_last ? 0 : file_table_word(file, table, entry + 3);
        if (!is_last && next_chunk < first_chunk) return false;
        // In 64 bits: (2^32 - 1)^2 samples and the 2^32 - 1 before them fit.
        const uint64_t run_end =
            cursor->run_first_sample + uint64_t{next_chunk - first_chunk} * samples_per_chunk;
        if (is_last || sample < run_end) {
            if (samples_per_chunk == 0) return false;
            const uint32_t chunks = (sample - cursor->run_first_sample) / samples_per_chunk;
            *chunk = uint64_t{first_chunk} + chunks;
            *first_sample = cursor->run_first_sample + chunks * samples_per_chunk;
            return true;
        }
        if (!mp4_spend_work(3 * kWordWork)) return false;
        ++cursor->run;
        cursor->run_first_sample = static_cast<uint32_t>(run_end);
    }
}

static uint32_t distance(uint32_t a, uint32_t b) { return a < b ? b - a : a - b; }

// Sums the sizes of a chunk's samples up to the given one, from the start of the chunk or from
// where the last sum in it ended. Returns false when the work is used up.
static bool offset_in_chunk(BufferedFile* file, VideoState* state, uint64_t chunk,
                            uint32_t first_sample, uint32_t sample, uint32_t* offset) {
    FileTable* const sizes = &state->sample_sizes;
    SampleCursor* const cursor = &state->cursor;
    const uint32_t end = static_cast<uint32_t>(std::min<uint64_t>(sample, sizes->stored_words));
    const uint32_t start = std::min(first_sample, end);
    if (cursor->chunk != chunk || distance(cursor->next_sample, end) > end - start) {
        cursor->chunk = chunk;
        cursor->next_sample = start;
        cursor->next_offset = 0;
    }
    if (!mp4_spend_work(distance(cursor->next_sample, end) * kWordWork)) return false;
    while (cursor->next_sample < end) {
        cursor->next_offset += file_table_word(file, sizes, cursor->next_sample++);
    }
    while (cursor->next_sample > end) {
        cursor->next_offset -= file_table_word(file, sizes, --cursor->next_sample);
    }
    *offset = cursor->next_offset;
    return true;
}

SamplePlace mp4_locate_sample(BufferedFile* file, VideoState* state, uint32_t sample_number) {
    const uint32_t sample = sample_number - 1;
    uint64_t chunk;
    uint32_t first_sample, offset;
    if (sample_number == 0 || !mp4_find_chunk(file, state, sample, &chunk, &first_sample))
        return {};
    if (chunk == 0 || chunk > state->chunk_offsets.count) return {};
    if (!offset_in_chunk(file, state, chunk, first_sample, sample, &offset)) return {};
    const uint32_t size = file_table_word(file, &state->sample_sizes, sample);
    return {file_table_word(file, &state->chunk_offsets, chunk - 1) + offset, size, size};
}
