// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/sample_description.h"

#include <string.h>

#include <algorithm>

#include "host/message_log.h"
#include "mp4/box_reader.h"
#include "mp4/sample_tables.h"
#include "mp4/video_state.h"
#include "runtime/byte_order.h"
#include "runtime/key_frame.h"

// Offsets in the content of "stsd": the first entry stands at 8.
constexpr int64_t kEntryFormat = 12;
constexpr int64_t kEntryWidth = 40;
constexpr int64_t kEntryHeight = 42;
constexpr int64_t kEsdsType = 98;

static uint8_t u8_at(ByteView view, int64_t at) {
    return at >= 0 && at < view.length ? view.bytes[at] : 0;
}

static uint32_t u16_at(ByteView view, int64_t at) {
    return static_cast<uint32_t>(u8_at(view, at)) << 8 | u8_at(view, at + 1);
}

// The rest of the data from there on, which may be nothing.
static ByteView view_from(ByteView view, int64_t at) {
    const int64_t skipped = std::min(at, view.length);
    return {view.bytes + skipped, view.length - skipped};
}

// Returns -1 when the text is not within the data.
static int64_t find_bytes(ByteView view, const char* text) {
    if (view.length < 4) return -1;
    const void* const found = memmem(view.bytes, static_cast<size_t>(view.length), text, 4);
    return found ? static_cast<const uint8_t*>(found) - view.bytes : -1;
}

static void copy_block(ByteView view, int64_t at, uint32_t length, ConfigBlock* block,
                       const char* function) {
    block->length = 0;
    block->bytes = owned_calloc<uint8_t>(length);
    if (!block->bytes) {
        upnp_log_message(kLogError, kLogScan, function, 0, "No Memory to allocate ");
        return;
    }
    const ByteView rest = view_from(view, at);
    const size_t present = static_cast<size_t>(std::min<int64_t>(length, rest.length));
    if (present != 0) memcpy(block->bytes.get(), rest.bytes, present);
    block->length = length;
}

// Kept on purpose: search-leaves-a-byte
// Both searches leave out the last byte of the data.
static int64_t find_tag(ByteView data, const char* text) {
    return data.length < 5 ? -1 : find_bytes({data.bytes, data.length - 1}, text);
}

void searchESD(ByteView data, VideoState* state) {
    const int64_t start = find_tag(data, "\x00\x00\x01\xb0");
    if (start < 0) return;
    // Kept on purpose: length-of-one-byte
    // The descriptor's length, as far as its last byte tells it.
    const uint32_t length = u8_at(data, start - 1) & 0x7f;
    state->codec_kind = kCodecMpeg4;
    copy_block(data, start, length, &state->mpeg4_config, __func__);
}

void get_H263_config(ByteView data, VideoState* state) {
    const int64_t tag = find_tag(data, "d263");
    if (tag < 0) return;
    state->codec_kind = kCodecH263;
    copy_block(data, tag + 4, static_cast<uint32_t>(data.length - tag), &state->h263_config,
               __func__);
}

// Bytes that the entries from there on take, each preceded by its 16-bit length.
static uint32_t entries_length(ByteView data, int64_t at, uint32_t count) {
    uint32_t length = 0;
    for (uint32_t i = 0; i < count && at + length < data.length; ++i) {
        length += u16_at(data, at + length) + 2;
    }
    return length;
}

void parseAVCC(ByteView data, VideoState* state) {
    if (state->sequence_sets.bytes || state->picture_sets.bytes) return;
    state->length_prefix_size = (u8_at(data, 0) & 3) + 1;
    const uint32_t sequence_length = entries_length(data, 2, u8_at(data, 1) & 31);
    copy_block(data, 2, sequence_length, &state->sequence_sets, __func__);
    if (!state->sequence_sets.bytes) return;
    const uint32_t picture_count = u8_at(data, int64_t{sequence_length} + 2) & 31;
    const uint32_t picture_length =
        entries_length(data, int64_t{sequence_length} + 3, picture_count);
    copy_block(data, int64_t{sequence_length} + 3, picture_length, &state->picture_sets, __func__);
}

static void parse_avc_entry(ByteView content, ParseContext* context) {
    context->info.width = u16_at(content, kEntryWidth);
    context->info.height = u16_at(content, kEntryHeight);
    upnp_log_message(kLogTrace, kLogScan, "mp4_parse_stsd", 0, "Size: %dx%d ",
                     static_cast<int>(context->info.width), static_cast<int>(context->info.height));
    context->video->codec_kind = kCodecAvc;
    const int64_t record = find_bytes(content, "avcC");
    // Four bytes of version, profile and level lie between the type and what is parsed.
    if (record >= 0) parseAVCC(view_from(content, record + 8), context->video);
}

static void parse_mpeg4_entry(ByteView content, VideoState* state) {
    state->codec_kind = kCodecMpeg4;
    const ByteView esds = view_from(content, kEsdsType);
    if (esds.length >= 4 && memcmp(esds.bytes, "esds", 4) == 0) searchESD(esds, state);
}

static void parse_entry(ByteView content, ParseContext* context) {
    VideoState* const state = context->video;
    char format[5] = {};
    for (int i = 0; i < 4; ++i) format[i] = static_cast<char>(u8_at(content, kEntryFormat + i));
    upnp_log_message(kLogTrace, kLogScan, "mp4_parse_stsd", 0, "%s \n", format);
    if (strcmp(format, "avc1") == 0) {
        parse_avc_entry(content, context);
    } else if (strcmp(format, "mp4v") == 0) {
        parse_mpeg4_entry(content, state);
    } else if (strcmp(format, "s263") == 0) {
        state->codec_kind = kCodecH263;
        if (!state->h263_config.bytes) get_H263_config(content, state);
    } else {
        state->codec_kind = kCodecNone;
        if (strcmp(format, "drmi") == 0) context->info.is_protected = true;
    }
}

void mp4_parse_stsd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    context->description_position = context->position;
    if (mp4_is_box_too_large(file, header, context)) return;
    Owned<uint8_t> block;
    const int64_t length = mp4_read_whole_content(file, header, end, context, &block);
    if (length == 0) return;
    mp4_release_content(context);
    const ByteView content = {block.get(), length};
    const bool has_entry = length >= 8 && load_be32(content.bytes + 4) != 0;
    if (has_entry && mp4_is_video_track(context)) parse_entry(content, context);
}
