// SPDX-License-Identifier: BSD-2-Clause
#include "tool/key_frames.h"

#include <string.h>

#include <algorithm>

#include "mp4/video_state.h"
#include "runtime/message_log.h"
#include "tool/movie_index.h"

enum class Outcome { kFilled, kSkipped, kFailed };

// Locates one key frame and stores its size in *size; without size_only it reads the sample, at
// most maximum bytes, into the buffer and stores the number of bytes that came instead. Returns 1
// when the collection cannot go on.
static int getVideoThumbnail(BufferedFile* file, uint32_t key_index, uint32_t* size,
                             uint8_t* buffer, bool size_only, uint32_t maximum) {
    SamplePlace place;
    if (movie_locate_key_frame(file, key_index, &place) != 0) return 1;
    *size = place.size;
    if (size_only) return 0;
    upnp_file_seek_b(file, place.offset, 0);
    const uint32_t wanted = std::min(place.size, maximum);
    *size = static_cast<uint32_t>(upnp_file_read_b(file, buffer, static_cast<int32_t>(wanted)));
    return 0;
}

// What a record takes besides its bytes: itself, its place among the candidates, two block headers.
constexpr uint64_t kRecordOverhead = 128;

// Takes a record's bytes off the work that the file is worth. Samples that share their bytes, or
// bring a long configuration each, could add up to any amount of memory.
static bool spend_record(const BufferedFile* file, uint32_t size) {
    const VideoState* const state = &g_video_state;
    const uint64_t in_file = std::min<uint64_t>(size, static_cast<uint64_t>(file->handle->size));
    return mp4_spend_work(kRecordOverhead + in_file + state->sequence_sets.length +
                          state->picture_sets.length + state->mpeg4_config.length +
                          state->h263_config.length);
}

// The blocks that make up the configuration of the codec, one behind the other.
static int copy_configuration(KeyFrame* record) {
    const VideoState* const state = &g_video_state;
    const ConfigBlock none = {};
    const ConfigBlock* first = &none;
    const ConfigBlock* second = &none;
    if (state->codec_kind == kCodecAvc) {
        first = &state->sequence_sets;
        second = &state->picture_sets;
        if (first->length == 0 || second->length == 0) return 1;
    } else if (state->codec_kind == kCodecMpeg4) {
        first = &state->mpeg4_config;
    } else if (state->codec_kind == kCodecH263) {
        first = &state->h263_config;
    }
    Owned<uint8_t> block = owned_malloc<uint8_t>(uint64_t{first->length} + second->length);
    if (!block) {
        upnp_log_message(kLogError, kLogScan, "GetKeyFrameMpeg4", 0, "No Memory to allocate ");
        return 1;
    }
    if (first->length != 0) memcpy(block.get(), first->bytes.get(), first->length);
    if (second->length != 0) {
        memcpy(block.get() + first->length, second->bytes.get(), second->length);
    }
    record->config_length = static_cast<int32_t>(first->length + second->length);
    record->config = block.release();
    return 0;
}

// Takes a block for a sample. It is no longer than the file, whatever the size says.
static int obtain_sample(const BufferedFile* file, uint32_t size, KeyFrame* record,
                         uint32_t* capacity) {
    const uint32_t prefix = static_cast<uint32_t>(g_video_state.length_prefix_size);
    const uint64_t stated = uint64_t{size} + prefix;
    const uint64_t most = static_cast<uint64_t>(file->handle->size) + prefix;
    *capacity = static_cast<uint32_t>(std::min(stated, most));
    if (stated <= kUpnpMaxBlock) record->sample = static_cast<uint8_t*>(upnp_malloc(*capacity));
    if (!record->sample) {
        upnp_log_message(kLogError, kLogScan, "GetKeyFrameMpeg4", 0, "No Memory to allocate ");
        return 1;
    }
    record->length_prefix_size = static_cast<int32_t>(prefix);
    record->sample_capacity = static_cast<int32_t>(stated);
    return 0;
}

static Outcome collect_key_frame(BufferedFile* file, uint32_t key_index, KeyFrame* record) {
    uint32_t size = 0;
    uint32_t capacity;
    if (getVideoThumbnail(file, key_index, &size, nullptr, true, 0) != 0) return Outcome::kFailed;
    if (size == 0 || !spend_record(file, size)) return Outcome::kSkipped;
    if (copy_configuration(record) != 0) return Outcome::kFailed;
    if (obtain_sample(file, size, record, &capacity) != 0) return Outcome::kFailed;
    if (getVideoThumbnail(file, key_index, &size, record->sample, false, capacity) != 0) {
        return Outcome::kFailed;
    }
    record->bytes_read = static_cast<int32_t>(size);
    return Outcome::kFilled;
}

// Fills records from that key frame on. Returns how many, or -1 on failure.
static int32_t collect_from(BufferedFile* file, uint32_t key_index, int32_t requested,
                            KeyFrame* records) {
    int32_t filled = 0;
    for (; filled < requested && key_index < movie_key_index_end(); ++key_index) {
        const Outcome outcome = collect_key_frame(file, key_index, &records[filled]);
        if (outcome == Outcome::kFailed) return -1;
        if (outcome == Outcome::kFilled) ++filled;
    }
    return filled;
}

static int collect(const char* path, KeyFrameRequest* request) {
    const VideoState* const state = &g_video_state;
    ParseContext context;
    const OpenFile file(upnp_file_open_b(path, kWalkBuffer));
    if (!file || movie_walk(file.get(), path, &context) != 0) return -1;
    upnp_log_message(kLogTrace, kLogScan, "GetKeyFrameMpeg4", 0, "total_key_samples %d",
                     static_cast<int>(state->sync_sample_count));
    request->codec_kind = state->codec_kind;
    if (state->sync_sample_count == 0) {
        request->key_frame_count = 0;
        return 0;
    }
    if (!movie_has_needed_tables() || !movie_has_configuration()) return -1;
    const uint32_t first = movie_first_key_index(file.get(), request->clip_offset_percent);
    const int32_t filled =
        collect_from(file.get(), first, request->key_frame_count, request->records);
    if (filled < 0) return -1;
    request->key_frame_count = filled;
    request->duration_s = static_cast<int32_t>(state->duration_s);
    return 0;
}

int GetKeyFrameMpeg4(const char* path, KeyFrameRequest* request) {
    mp4_release_video_state();
    const int result = collect(path, request);
    mp4_release_video_state();
    return result;
}
