// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/fragments.h"

#include <string.h>

#include <algorithm>

#include "mp4/box_reader.h"
#include "runtime/byte_order.h"
#include "runtime/message_log.h"

// What an entry of the random access table took in memory where 64-bit numbers are aligned; it
// decides which tables are too large.
constexpr uint32_t kEntryBytes = 32;

// What looking into a fragment costs besides its boxes.
constexpr uint64_t kLookUpWork = 256;

// Whether boxes are read to locate a key frame, rather than in the walk over the file.
static bool is_locating() {
    const FragmentState* const fragments = &g_video_state.fragments;
    return fragments->has_table && fragments->is_collecting;
}

void mp4_parse_mehd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (!mp4_read_box_content(file, header, end, context)) return;
    const uint8_t* const content = context->content.bytes;
    const uint64_t duration = content[0] == 1 ? load_be64(content + 4) : load_be32(content + 4);
    const uint64_t time_scale = g_video_state.movie_time_scale;
    if (time_scale != 0) {
        g_video_state.media_duration = duration;
        g_video_state.duration_s = static_cast<int64_t>((duration + time_scale / 2) / time_scale);
    }
    mp4_release_content(context);
}

void mp4_parse_trex(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (!mp4_read_box_content(file, header, end, context)) return;
    const uint8_t* const content = context->content.bytes;
    if (load_be32(content + 4) != context->video_track_id) return;
    FragmentState* const fragments = &g_video_state.fragments;
    fragments->default_sample_size = load_be32(content + 16);
    if (is_locating()) fragments->current_size = fragments->default_sample_size;
    mp4_release_content(context);
}

// The three numbers of an entry have a width each. Code 2 takes more than its 24 bits from the file
// and does not give the stored number.
static uint32_t read_number(BufferedFile* file, uint32_t size_code) {
    switch (size_code & 3) {
        case 0:
            return upnp_file_read_u8_b(file);
        case 1:
            return upnp_file_read_u16_b(file);
        case 2:
            return upnp_file_read_bits_b(file, 24);
        default:
            return upnp_file_read_u32_b(file);
    }
}

static uint32_t bytes_of_numbers(uint32_t size_codes) {
    return 3 + (size_codes & 3) + (size_codes >> 2 & 3) + (size_codes >> 4 & 3);
}

static void read_entries(BufferedFile* file, bool has_64_bit_times, uint32_t size_codes,
                         uint32_t capacity) {
    FragmentState* const fragments = &g_video_state.fragments;
    uint32_t i = 0;
    for (; i < capacity && !upnp_file_is_at_end_b(file); ++i) {
        FragmentEntry* const entry = &fragments->entries[i];
        entry->time = has_64_bit_times ? upnp_file_read_u64_b(file) : upnp_file_read_u32_b(file);
        entry->offset = has_64_bit_times ? upnp_file_read_u64_b(file) : upnp_file_read_u32_b(file);
        read_number(file, size_codes >> 4);  // of the track fragment
        const uint32_t run_number = read_number(file, size_codes >> 2);
        if (i == 0) fragments->first_run_number = run_number;
        read_number(file, size_codes);  // of the sample
    }
    fragments->stored_entries = i;
}

// Returns 1 when there is no memory for the entries.
static int read_table(BufferedFile* file, bool has_64_bit_times) {
    FragmentState* const fragments = &g_video_state.fragments;
    const uint32_t size_codes = upnp_file_read_u32_b(file);
    const uint32_t count = upnp_file_read_u32_b(file);
    g_video_state.sync_sample_count = count;
    fragments->has_table = true;
    fragments->stored_entries = 0;
    fragments->first_run_number = 0;
    if (uint64_t{count} * kEntryBytes > kUpnpMaxBlock) return 1;
    // The bit reader takes 24 bits from what is left of its word at times: two entries more than
    // the bytes ahead amount to.
    const uint32_t entry_length = (has_64_bit_times ? 16 : 8) + bytes_of_numbers(size_codes);
    const uint64_t most = static_cast<uint64_t>(upnp_file_bytes_ahead_b(file)) / entry_length + 2;
    const uint32_t capacity = static_cast<uint32_t>(std::min<uint64_t>(count, most));
    fragments->entries = owned_calloc<FragmentEntry>(capacity);
    if (!fragments->entries) return 1;
    read_entries(file, has_64_bit_times, size_codes, capacity);
    return 0;
}

void mp4_parse_tfra(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    context->current_track_id = 0;
    if (!context->content.is_held) return;
    const uint32_t version_and_flags = upnp_file_read_u32_b(file);
    const uint32_t track_id = upnp_file_read_u32_b(file);
    g_video_state.fragments.parse_context = *context;
    if (track_id != context->video_track_id) {
        upnp_file_seek_b(file, -8, 1);
        mp4_read_box_content(file, header, end, context);
        return;
    }
    if (read_table(file, version_and_flags != 0) != 0) {
        upnp_log_message(kLogError, kLogScan, __func__, 0, "No Memory to allocate ");
        mp4_release_video_state();
        return;
    }
    // The position stays in front of the entries.
    mp4_release_content(context);
}

// A base data offset overwrites the key frame's fragment offset with its upper half, and the
// optional fields are taken to start where the track number stands.
static void take_fragment_header(const uint8_t* content) {
    FragmentState* const fragments = &g_video_state.fragments;
    const uint32_t flags = load_be32(content);
    const uint8_t* field = content + 4;
    if (flags & 0x1) {
        if (fragments->current_key < fragments->stored_entries) {
            fragments->entries[fragments->current_key].offset = load_be32(field + 4);
        }
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
    if (is_locating()) take_fragment_header(context->content.bytes);
    mp4_release_content(context);
}

void mp4_parse_trun(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (!mp4_read_box_content(file, header, end, context)) return;
    FragmentState* const fragments = &g_video_state.fragments;
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

// Reads a header at the context's position and walks what follows as a movie fragment.
static FragmentWalk walk_fragment(BufferedFile* file, ParseContext* context) {
    BoxHeader header;
    if (upnp_file_seek_b(file, context->position, 0) < 0) return FragmentWalk::kNoHeader;
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

static void choose_key_frame(uint32_t key_index) {
    FragmentState* const fragments = &g_video_state.fragments;
    // Entry 0 decides for all key frames.
    fragments->wanted_run = fragments->first_run_number;
    fragments->run_counter = 0;
    if (fragments->is_collecting && fragments->current_key == key_index) return;
    fragments->is_collecting = true;
    fragments->current_key = key_index;
    fragments->current_offset = 0;
    fragments->current_size = 0;
}

int mp4_locate_fragment_sample(BufferedFile* file, uint32_t key_index, SamplePlace* place) {
    FragmentState* const fragments = &g_video_state.fragments;
    *place = {};
    if (key_index >= fragments->stored_entries || !mp4_spend_work(kLookUpWork)) return 0;
    choose_key_frame(key_index);
    // Every look-up starts with the context that the table left, in which no track is current. What
    // it learns does not outlast it: audio that comes first in the next fragment would count as
    // video.
    ParseContext context = fragments->parse_context;
    context.depth = 0;
    context.position = static_cast<int64_t>(fragments->entries[key_index].offset);
    const FragmentWalk walk = walk_fragment(file, &context);
    if (walk == FragmentWalk::kNoHeader) return 0;
    if (walk == FragmentWalk::kTooLarge) {
        upnp_log_message(kLogError, kLogScan, __func__, 0, "No Memory to allocate ");
        mp4_release_video_state();
    }
    if (!fragments->has_table) return 1;
    if (key_index >= fragments->stored_entries) return 0;
    const uint32_t fragment_offset = static_cast<uint32_t>(fragments->entries[key_index].offset);
    *place = {fragments->current_offset + fragment_offset, fragments->current_size};
    return 0;
}
