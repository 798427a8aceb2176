// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/fragments.h"

#include <string.h>

#include "host/message_log.h"
#include "mp4/box_reader.h"
#include "mp4/work_limit.h"
#include "runtime/byte_order.h"

// What an entry of the random access table takes in memory where 64-bit numbers are aligned: it
// decides which tables are too large, although they stay in the file.
constexpr uint32_t kEntryBytes = 32;

// Whether boxes are read to locate a key frame, rather than in the walk over the file.
static bool is_locating(const FragmentState* fragments) {
    return fragments->has_table && fragments->is_collecting;
}

void mp4_parse_moof(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    upnp_file_remember_b(file);
    mp4_parse_container(file, header, end, context);
    upnp_file_remember_b(file);  // another buffer if the fragment's header did not end in the first
}

void mp4_parse_mehd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (!mp4_read_box_content(file, header, end, context)) return;
    const uint8_t* const content = context->content.bytes;
    const uint64_t duration = content[0] == 1 ? load_be64(content + 4) : load_be32(content + 4);
    VideoState* const state = context->video;
    const uint64_t time_scale = state->movie_time_scale;
    if (time_scale != 0) {
        state->media_duration = duration;
        state->duration_s = static_cast<int64_t>((duration + time_scale / 2) / time_scale);
    }
    mp4_release_content(context);
}

void mp4_parse_trex(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (!mp4_read_box_content(file, header, end, context)) return;
    const uint8_t* const content = context->content.bytes;
    if (load_be32(content + 4) != context->video_track_id) return;
    FragmentState* const fragments = &context->video->fragments;
    fragments->default_sample_size = load_be32(content + 16);
    if (is_locating(fragments)) fragments->current_size = fragments->default_sample_size;
    mp4_release_content(context);
}

// Returns 1 when there is no memory for the entries.
static int read_table(BufferedFile* file, VideoState* state, bool has_64_bit_times) {
    FragmentState* const fragments = &state->fragments;
    const uint32_t size_codes = upnp_file_read_u32_b(file);
    const uint32_t count = upnp_file_read_u32_b(file);
    state->sync_sample_count = count;
    fragments->has_table = true;
    if (uint64_t{count} * kEntryBytes > kUpnpMaxBlock) return 1;
    random_access_declare(file, &fragments->table, count, size_codes, has_64_bit_times);
    return 0;
}

void mp4_parse_tfra(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    context->current_track_id = 0;
    if (!context->content.is_held) return;
    const uint32_t version_and_flags = upnp_file_read_u32_b(file);
    const uint32_t track_id = upnp_file_read_u32_b(file);
    context->video->fragments.parse_context = *context;
    if (track_id != context->video_track_id) {
        upnp_file_seek_b(file, -8, 1);
        mp4_read_box_content(file, header, end, context);
        return;
    }
    if (read_table(file, context->video, version_and_flags != 0) != 0) {
        upnp_log_message(kLogError, kLogScan, __func__, 0, "No Memory to allocate ");
        mp4_release_video_state(context->video);
        return;
    }
    // The position stays in front of the entries.
    mp4_release_content(context);
}

// Kept on purpose: base-data-offset
// A base data offset overwrites the key frame's fragment offset with its upper half, and the
// optional fields are taken to start where the track number stands.
static void take_fragment_header(const uint8_t* content, FragmentState* fragments) {
    const uint32_t flags = load_be32(content);
    const uint8_t* field = content + 4;
    if (flags & 0x1) {
        fragments->fragment_offset = load_be32(field + 4);
        field += 8;
    }
    if (flags & 0x2) field += 4;
    if (flags & 0x8) field += 4;
    fragments->current_size = flags & 0x10 ? load_be32(field) : fragments->default_sample_size;
}

void mp4_parse_tfhd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (!mp4_read_box_content(file, header, end, context)) return;
    const uint32_t track_id = load_be32(context->content.bytes + 4);
    if (track_id != context->video_track_id) return;
    context->current_track_id = track_id;
    FragmentState* const fragments = &context->video->fragments;
    if (is_locating(fragments)) take_fragment_header(context->content.bytes, fragments);
    mp4_release_content(context);
}

void mp4_parse_trun(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (!mp4_read_box_content(file, header, end, context)) return;
    FragmentState* const fragments = &context->video->fragments;
    if (context->current_track_id != context->video_track_id) return;
    if (++fragments->run_counter != fragments->wanted_run) return;
    const uint8_t* const content = context->content.bytes;
    const uint32_t flags = load_be32(content);
    const uint8_t* field = content + 8;
    if (flags & 0x1) {
        if (fragments->has_table) fragments->current_offset = load_be32(field);
        field += 4;
    }
    if (flags & 0x4) field += 4;
    if (flags & 0x100) field += 4;
    if ((flags & 0x200) && fragments->has_table) fragments->current_size = load_be32(field);
    mp4_release_content(context);
}

enum class FragmentWalk { kDone, kNoHeader, kTooLarge };

// Reads a header at the context's position and walks what follows as a movie fragment. A position
// that the system refuses leaves the file at its start, where the seek in front of it went.
static FragmentWalk walk_fragment(BufferedFile* file, ParseContext* context) {
    BoxHeader header;
    if (context->position < 0) upnp_file_seek_b(file, 0, 0);
    upnp_file_seek_b(file, context->position, 0);
    if (mp4_read_box_header(file, context, &header, true) != 0) return FragmentWalk::kNoHeader;
    // A block for the content is due, as every box handler finds one.
    if (header.size_field < 8 || header.size_field - 8 > kUpnpMaxBlock) {
        return FragmentWalk::kTooLarge;
    }
    context->content.is_held = true;
    memcpy(header.type, "moof", 4);
    mp4_parse_container(file, &header, context->info.file_size, context);
    return FragmentWalk::kDone;
}

// Looks into the fragment of the current key frame. What an earlier look found and this one does
// not stays; *size is 0 when there is no fragment. Returns 1 when the collection cannot go on.
static int look_up(BufferedFile* file, VideoState* state, uint32_t* size) {
    FragmentState* const fragments = &state->fragments;
    // Kept on purpose: run-of-entry-0
    // Entry 0 decides for all key frames.
    fragments->wanted_run = fragments->table.first_run_number;
    fragments->run_counter = 0;
    // Every look-up starts with the context that the table left, in which no track is current. What
    // it learns does not outlast it: audio that comes first in the next fragment would count as
    // video.
    ParseContext context = fragments->parse_context;
    context.depth = 0;
    context.position = static_cast<int64_t>(fragments->fragment_offset);
    const FragmentWalk walk = walk_fragment(file, &context);
    *size = walk == FragmentWalk::kDone ? fragments->current_size : 0;
    if (walk == FragmentWalk::kTooLarge) {
        upnp_log_message(kLogError, kLogScan, "getVideoThumbnail", 0, "No Memory to allocate ");
        mp4_release_video_state(state);
    }
    return fragments->has_table ? 0 : 1;
}

// A key frame is asked for its size first and for its bytes then, in a look each: a base data
// offset that the first one finds sends the second one elsewhere.
static int look_up_twice(BufferedFile* file, VideoState* state, uint64_t offset,
                         SamplePlace* place) {
    FragmentState* const fragments = &state->fragments;
    const uint32_t default_size = fragments->default_sample_size;
    const uint32_t generation = fragments->table.generation;
    fragments->is_collecting = true;
    fragments->fragment_offset = offset;
    fragments->current_offset = 0;
    fragments->current_size = 0;
    if (look_up(file, state, &place->size) != 0) return 1;
    place->read_size = place->size;
    const bool is_settled = fragments->fragment_offset == offset &&
                            fragments->default_sample_size == default_size &&
                            fragments->table.generation == generation;
    if (!is_settled && place->size != 0 && look_up(file, state, &place->read_size) != 0) return 1;
    place->offset = fragments->current_offset + static_cast<uint32_t>(fragments->fragment_offset);
    fragments->last_look_up = {generation, default_size, offset, *place};
    return 0;
}

// Whether the last look-up started from that offset too, and from the same state.
static bool is_looked_up(const FragmentState* fragments, uint64_t offset) {
    const FragmentLookUp& last = fragments->last_look_up;
    return last.generation == fragments->table.generation && last.offset == offset &&
           last.default_sample_size == fragments->default_sample_size;
}

int mp4_locate_fragment_sample(BufferedFile* file, VideoState* state, uint32_t key_index,
                               SamplePlace* place) {
    FragmentState* const fragments = &state->fragments;
    *place = {};
    if (key_index >= fragments->table.count) return 0;
    const uint64_t offset = random_access_entry(file, &fragments->table, key_index).offset;
    if (is_looked_up(fragments, offset)) {
        *place = fragments->last_look_up.place;
        return 0;
    }
    return mp4_spend_read() ? look_up_twice(file, state, offset, place) : 1;
}

bool mp4_has_same_sample_to_the_end(const VideoState* state, uint32_t key_index) {
    const FragmentState* const fragments = &state->fragments;
    return fragments->has_table && key_index >= fragments->table.stored_count &&
           is_looked_up(fragments, 0);
}
