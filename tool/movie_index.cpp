// SPDX-License-Identifier: BSD-2-Clause
#include "tool/movie_index.h"

#include <assert.h>

#include <algorithm>

#include "host/message_log.h"
#include "mp4/box_reader.h"
#include "mp4/fragments.h"
#include "mp4/sample_tables.h"
#include "mp4/video_state.h"
#include "mp4/work_limit.h"
#include "runtime/key_frame.h"
#include "tool/file_query.h"

int movie_index_walk(BufferedFile* file, const char* path, ParseContext* context) {
    FileStatus status;
    if (file_query_status(path, &status) != 0) return 1;
    context->info.file_size = status.size;
    context->info.modification_time = status.modification_time;
    mp4_grant_walk();
    const uint64_t last_size = mp4_atom_get_metadata(file, status.size, context);
    if (last_size == 0 || mp4_is_work_used_up()) return 1;
    mp4_grant_look_ups();
    return 0;
}

bool movie_index_has_tables(const VideoState* state) {
    return state->fragments.has_table ||
           (state->time_to_sample.count != 0 && state->chunk_offsets.count != 0 &&
            state->sample_to_chunk.count != 0);
}

bool movie_index_has_configuration(const VideoState* state) {
    switch (state->codec_kind) {
        case kCodecAvc:
            return state->sequence_sets.bytes && state->picture_sets.bytes;
        case kCodecMpeg4:
            return state->mpeg4_config.bytes != nullptr;
        case kCodecH263:
            return state->h263_config.bytes != nullptr;
        default:
            return true;
    }
}

// First sync sample that is not before the sample. The last index when there is none. The number 0
// is after every sample: one less, in 32 bits, is the largest.
static uint32_t key_index_at_sample(BufferedFile* file, VideoState* state, uint64_t sample) {
    FileTable* const numbers = &state->sync_samples;
    const uint32_t count = std::min(numbers->count, state->sync_sample_count);
    const uint32_t stored = std::min(file_table_stored_entries(numbers), count);
    for (uint32_t i = 0; i < stored && !mp4_is_work_used_up(); ++i) {
        if (file_table_word(file, numbers, i) - 1 >= sample) return i;
    }
    return stored < count ? stored : state->sync_sample_count - 1;
}

// First entry of the fragment random access table that is not before the time. The last index when
// there is none.
static uint32_t key_index_at_time(BufferedFile* file, VideoState* state, uint64_t time) {
    RandomAccessTable* const table = &state->fragments.table;
    const uint32_t count = std::min(table->stored_count, state->sync_sample_count);
    for (uint32_t i = 0; i < count && !mp4_is_work_used_up(); ++i) {
        if (random_access_entry(file, table, i).time >= time) return i;
    }
    const bool is_next_at_0 = time == 0 && count < table->count;
    return is_next_at_0 ? count : state->sync_sample_count - 1;
}

uint32_t movie_index_first(BufferedFile* file, VideoState* state, int32_t clip_offset_percent) {
    assert(clip_offset_percent >= 0 && clip_offset_percent <= 100 && state->sync_sample_count != 0);
    const uint64_t percent = static_cast<uint64_t>(int64_t{clip_offset_percent});
    const uint64_t target = (percent * state->media_duration + 50) / 100;
    uint64_t sample;
    if (mp4_find_sample_at(file, state, target, &sample)) {
        return key_index_at_sample(file, state, sample);
    }
    if (state->fragments.has_table) return key_index_at_time(file, state, target);
    return state->sync_sample_count - 1;
}

uint32_t movie_index_end(const VideoState* state) {
    const uint32_t stored = state->fragments.has_table
                                ? state->fragments.table.count
                                : file_table_stored_entries(&state->sync_samples);
    return std::min(stored, state->sync_sample_count);
}

int movie_index_locate(BufferedFile* file, VideoState* state, uint32_t key_index,
                       SamplePlace* place) {
    *place = {};
    if (!mp4_spend_work(kKeyFrameWork)) return 1;
    if (state->fragments.has_table) {
        if (mp4_locate_fragment_sample(file, state, key_index, place) != 0) return 1;
    } else if (state->chunk_offsets.is_present && state->sample_sizes.is_present &&
               state->sync_samples.is_present) {
        const uint32_t number = file_table_word(file, &state->sync_samples, key_index);
        *place = mp4_locate_sample(file, state, number);
        upnp_log_message(kLogTrace, kLogScan, "getVideoThumbnail", 0, "Sample Size: %d ",
                         static_cast<int>(place->size));
    }
    return mp4_is_work_used_up() ? 1 : 0;
}

uint32_t movie_index_same_from(const VideoState* state, uint32_t key_index) {
    const bool is_same = mp4_has_same_sample_to_the_end(state, key_index);
    return is_same ? movie_index_end(state) - key_index : 1;
}
