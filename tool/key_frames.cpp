// SPDX-License-Identifier: BSD-2-Clause
#include "tool/key_frames.h"

#include <assert.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "host/message_log.h"
#include "mp4/work_limit.h"
#include "tool/movie_index.h"

constexpr int32_t kFirstCapacity = 64;  // runs

static void log_missing_memory() {
    upnp_log_message(kLogError, kLogScan, "GetKeyFrameMpeg4", 0, "No Memory to allocate ");
}

// Reads at most maximum bytes of the sample. Returns how many came.
static int32_t getVideoThumbnail(BufferedFile* file, const KeyFrameRun& run, uint8_t* buffer) {
    upnp_file_seek_b(file, run.offset, 0);
    return upnp_file_read_b(file, buffer, run.bytes_read);
}

// Moves the blocks that make up the configuration of the codec to the request.
static void take_configuration(VideoState* state, KeyFrameRequest* request) {
    request->codec_kind = state->codec_kind;
    request->length_prefix_size = state->length_prefix_size;
    if (state->codec_kind == kCodecAvc) {
        request->config[0] = std::move(state->sequence_sets);
        request->config[1] = std::move(state->picture_sets);
    } else if (state->codec_kind == kCodecMpeg4) {
        request->config[0] = std::move(state->mpeg4_config);
    } else if (state->codec_kind == kCodecH263) {
        request->config[0] = std::move(state->h263_config);
    }
}

static bool has_empty_configuration(const VideoState* state) {
    return state->codec_kind == kCodecAvc &&
           (state->sequence_sets.length == 0 || state->picture_sets.length == 0);
}

// Makes room for one more run. Returns 1 without memory.
static int reserve(KeyFrameList* list) {
    if (list->run_count < list->capacity) return 0;
    const int32_t capacity = std::max(kFirstCapacity, 2 * list->capacity);
    const uint64_t bytes = static_cast<uint64_t>(capacity) * sizeof(KeyFrameRun);
    if (bytes > kUpnpMaxBlock) return 1;
    void* const grown = upnp_realloc(list->runs.get(), static_cast<uint32_t>(bytes));
    if (!grown) return 1;
    static_cast<void>(list->runs.release());
    list->runs.reset(static_cast<KeyFrameRun*>(grown));
    list->capacity = capacity;
    return 0;
}

static bool is_same(const KeyFrameRun& a, const KeyFrameRun& b) {
    return a.offset == b.offset && a.bytes_read == b.bytes_read && a.stated_size == b.stated_size;
}

static int append(KeyFrameList* list, const KeyFrameRun& run) {
    if (list->run_count > 0 && is_same(list->runs[list->run_count - 1], run)) {
        list->runs[list->run_count - 1].count += run.count;
        return 0;
    }
    if (reserve(list) != 0) return 1;
    list->runs[list->run_count++] = run;
    return 0;
}

// Lists so many key frames with that sample, unless a block for it, and for the length of a NAL
// unit after it, could not be obtained.
static Refusal add_key_frames(const BufferedFile* file, int32_t length_prefix_size,
                              const SamplePlace& place, int32_t count, KeyFrameList* list) {
    const uint64_t capacity = uint64_t{place.size} + static_cast<uint32_t>(length_prefix_size);
    if (capacity > kUpnpMaxBlock) {
        log_missing_memory();
        return Refusal::kKeyFrameTooLarge;
    }
    const int64_t ahead = std::max<int64_t>(file->handle->size - place.offset, 0);
    const uint64_t most = std::min(capacity, static_cast<uint64_t>(ahead));
    const KeyFrameRun run = {place.offset,
                             static_cast<int32_t>(std::min<uint64_t>(place.read_size, most)), count,
                             static_cast<int32_t>(place.size)};
    if (append(list, run) == 0) return Refusal::kNone;
    log_missing_memory();
    return Refusal::kNoMemory;
}

// Lists key frames from that one on, and counts them.
static Refusal collect_from(BufferedFile* file, VideoState* state, uint32_t key_index,
                            int32_t requested, KeyFrameList* list, int32_t* collected) {
    while (*collected < requested && key_index < movie_index_end(state)) {
        SamplePlace place;
        if (movie_index_locate(file, state, key_index, &place) != 0) {
            return mp4_is_work_used_up() ? Refusal::kTablesGivenUp : Refusal::kFragmentHeader;
        }
        const uint32_t same = movie_index_same_from(state, key_index);
        key_index += same;
        if (place.size == 0) continue;
        const int32_t wanted =
            static_cast<int32_t>(std::min(same, static_cast<uint32_t>(requested - *collected)));
        if (has_empty_configuration(state)) return Refusal::kNoConfiguration;
        const Refusal refusal =
            add_key_frames(file, state->length_prefix_size, place, wanted, list);
        if (refusal != Refusal::kNone) return refusal;
        *collected += wanted;
    }
    return Refusal::kNone;
}

// Of each key frame, what its fragment says would stand in a table of two words. "stss" boxes after
// the random access table can ask for more key frames than the table's own limit.
static bool has_room_for_fragment_samples(const VideoState* state) {
    return !state->fragments.has_table || uint64_t{state->sync_sample_count} * 8 <= kUpnpMaxBlock;
}

static Refusal collect(const char* path, ParseContext* context, KeyFrameRequest* request) {
    VideoState* const state = context->video;
    request->file.reset(upnp_file_open_b(path, kWalkBuffer));
    BufferedFile* const file = request->file.get();
    if (!file) return Refusal::kInputNotOpened;
    if (movie_index_walk(file, path, context) != 0) {
        return mp4_is_work_used_up() ? Refusal::kBoxesGivenUp : Refusal::kNoBoxes;
    }
    upnp_log_message(kLogTrace, kLogScan, "GetKeyFrameMpeg4", 0, "total_key_samples %d",
                     static_cast<int>(state->sync_sample_count));
    const int32_t requested = request->key_frame_count;
    request->codec_kind = state->codec_kind;
    request->key_frame_count = 0;
    if (state->sync_sample_count == 0) return Refusal::kNoKeyFrameTable;
    if (!movie_index_has_tables(state)) return Refusal::kNoSampleTables;
    if (!movie_index_has_configuration(state)) return Refusal::kNoConfiguration;
    if (!has_room_for_fragment_samples(state)) {
        log_missing_memory();
        return Refusal::kTooManyFragments;
    }
    const uint32_t first = movie_index_first(file, state, request->clip_offset_percent);
    int32_t collected = 0;
    const Refusal refusal = collect_from(file, state, first, requested, &request->list, &collected);
    upnp_file_forget_b(file);
    if (refusal != Refusal::kNone) return refusal;
    request->key_frame_count = collected;
    request->duration_s = static_cast<int32_t>(state->duration_s);
    take_configuration(state, request);
    return Refusal::kNone;
}

int GetKeyFrameMpeg4(const char* path, KeyFrameRequest* request) {
    ParseContext context;
    mp4_begin_walk(&context);
    request->refusal = collect(path, &context, request);
    mp4_release_video_state(context.video);
    const bool is_walked =
        request->refusal == Refusal::kNone || request->refusal == Refusal::kNoKeyFrameTable;
    return is_walked ? 0 : kCollectionFailed;
}

static const KeyFrameRun* find_run(const KeyFrameList& list, int32_t index) {
    const KeyFrameRun* run = list.runs.get();
    for (; index >= run->count; ++run) index -= run->count;
    return run;
}

static uint8_t* copy_configuration(const ConfigBlock (&config)[2], int32_t* length) {
    Owned<uint8_t> block = owned_malloc<uint8_t>(uint64_t{config[0].length} + config[1].length);
    if (!block) return nullptr;
    uint8_t* end = block.get();
    for (const ConfigBlock& part : config) {
        if (part.length != 0) memcpy(end, part.bytes.get(), part.length);
        end += part.length;
    }
    *length = static_cast<int32_t>(end - block.get());
    return block.release();
}

Refusal key_frame_read(const KeyFrameRequest* request, int32_t index, KeyFrame* record) {
    assert(index >= 0 && index < request->key_frame_count);
    const KeyFrameRun& run = *find_run(request->list, index);
    *record = {};
    record->length_prefix_size = request->length_prefix_size;
    record->sample_capacity = run.stated_size + request->length_prefix_size;
    if (run.bytes_read > kMostSample) return Refusal::kKeyFrameTooLong;
    record->config = copy_configuration(request->config, &record->config_length);
    record->sample = static_cast<uint8_t*>(upnp_malloc(static_cast<uint32_t>(run.bytes_read)));
    if (!record->config || !record->sample) return Refusal::kNoMemory;
    record->bytes_read = getVideoThumbnail(request->file.get(), run, record->sample);
    return Refusal::kNone;
}
