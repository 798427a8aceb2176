// SPDX-License-Identifier: BSD-2-Clause
#include "bench/sync_samples.h"

#include <string.h>

#include <algorithm>

#include "mp4/sample_tables.h"
#include "mp4/video_state.h"
#include "mp4/work_limit.h"
#include "tool/movie_index.h"

int sync_samples_open(const char* path, SyncSamples* samples) {
    mp4_begin_walk(&samples->context);
    const VideoState* const state = samples->context.video;
    samples->file.reset(upnp_file_open_b(path, kWalkBuffer));
    if (!samples->file || movie_index_walk(samples->file.get(), path, &samples->context) != 0)
        return 1;
    samples->every_one = !state->sync_samples.is_present && !state->fragments.has_table;
    samples->count = samples->every_one ? state->sample_sizes.count : movie_index_end(state);
    samples->next = 0;
    return state->codec_kind == kCodecNone || samples->count == 0;
}

int32_t sync_samples_codec_kind(const SyncSamples* samples) {
    return samples->context.video->codec_kind;
}

void sync_samples_rewind(SyncSamples* samples) {
    samples->next = 0;
    mp4_grant_look_ups();
}

// Size 0 when there is no such sample.
static SamplePlace locate(const SyncSamples* samples, uint32_t index) {
    BufferedFile* const file = samples->file.get();
    VideoState* const state = samples->context.video;
    if (samples->every_one) return mp4_locate_sample(file, state, index + 1);
    SamplePlace place;
    return movie_index_locate(file, state, index, &place) == 0 ? place : SamplePlace{};
}

// The blocks that precede a sample in decoding, one after the other.
static Owned<uint8_t> copy_configuration(const VideoState* state, int32_t* length) {
    const ConfigBlock none = {};
    const bool is_avc = state->codec_kind == kCodecAvc;
    const ConfigBlock* const first = is_avc                             ? &state->sequence_sets
                                     : state->codec_kind == kCodecMpeg4 ? &state->mpeg4_config
                                                                        : &state->h263_config;
    const ConfigBlock* const second = is_avc ? &state->picture_sets : &none;
    Owned<uint8_t> block = owned_malloc<uint8_t>(uint64_t{first->length} + second->length);
    if (!block) return block;
    if (first->length != 0) memcpy(block.get(), first->bytes.get(), first->length);
    if (second->length != 0) {
        memcpy(block.get() + first->length, second->bytes.get(), second->length);
    }
    *length = static_cast<int32_t>(first->length + second->length);
    return block;
}

static int read_sample(const SyncSamples* samples, SamplePlace place, KeyFrame* record) {
    BufferedFile* const file = samples->file.get();
    upnp_file_seek_b(file, place.offset, 0);
    const int64_t size = std::min<int64_t>(place.read_size, upnp_file_bytes_ahead_b(file));
    Owned<uint8_t> config = copy_configuration(samples->context.video, &record->config_length);
    Owned<uint8_t> sample = owned_malloc<uint8_t>(static_cast<uint64_t>(size));
    if (!config || !sample) return 1;
    record->bytes_read = upnp_file_read_b(file, sample.get(), static_cast<int32_t>(size));
    record->length_prefix_size = samples->context.video->length_prefix_size;
    record->sample_capacity = static_cast<int32_t>(size);
    record->config = config.release();
    record->sample = sample.release();
    return 0;
}

int sync_samples_read(SyncSamples* samples, KeyFrame* record) {
    while (samples->next < samples->count) {
        const SamplePlace place = locate(samples, samples->next++);
        if (place.size != 0) return read_sample(samples, place, record);
    }
    return 1;
}

void sync_samples_close(SyncSamples* samples) {
    samples->file.reset();
    mp4_release_video_state(samples->context.video);
}
