// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/track_headers.h"

#include <string.h>

#include "host/message_log.h"
#include "mp4/box_reader.h"
#include "mp4/sample_description.h"
#include "mp4/sample_tables.h"
#include "mp4/video_state.h"
#include "mp4/work_limit.h"
#include "runtime/byte_order.h"

// Where the fields of a header lie depends on whether its version has 64-bit times.
static bool has_64_bit_times(const ParseContext* context) { return context->content.bytes[0] == 1; }

void mp4_parse_mvhd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (!mp4_read_box_content(file, header, end, context)) return;
    const uint8_t* const content = context->content.bytes;
    upnp_log_message(kLogTrace, kLogScan, __func__, 0, "Version Number is :%x ", content[0]);
    const bool is_long = has_64_bit_times(context);
    context->media_time_scale = load_be32(content + (is_long ? 20 : 12));
    context->media_duration = is_long ? load_be64(content + 24) : load_be32(content + 16);
    upnp_log_message(kLogTrace, kLogScan, __func__, 0, "movie duration %lld movie timescale %lld",
                     static_cast<long long>(context->media_duration),
                     static_cast<long long>(context->media_time_scale));
    context->video->movie_time_scale = context->media_time_scale;
    mp4_release_content(context);
}

void mp4_parse_tkhd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (!mp4_read_box_content(file, header, end, context)) return;
    const uint8_t* const content = context->content.bytes;
    const bool is_long = has_64_bit_times(context);
    context->current_track_id = load_be32(content + (is_long ? 20 : 12));
    // Kept on purpose: last-track-header
    context->video_track_id = context->current_track_id;
    // Whole parts of 16.16 numbers.
    const uint32_t width = load_be16(content + (is_long ? 88 : 76));
    const uint32_t height = load_be16(content + (is_long ? 92 : 80));
    if (width != 0 && height != 0) {
        upnp_log_message(kLogTrace, kLogScan, __func__, 0, "Size: %dx%d ", static_cast<int>(width),
                         static_cast<int>(height));
        context->info.width = width;
        context->info.height = height;
    }
    mp4_release_content(context);
}

void mp4_parse_mdhd(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (!mp4_read_box_content(file, header, end, context)) return;
    const uint8_t* const content = context->content.bytes;
    const bool is_long = has_64_bit_times(context);
    context->media_time_scale = load_be32(content + (is_long ? 20 : 12));
    // Kept on purpose: upper-half-of-duration
    // Of a 64-bit duration this takes the upper half.
    context->media_duration = load_be32(content + (is_long ? 24 : 16));
    mp4_release_content(context);
}

static void take_video_track(ParseContext* context) {
    VideoState* const state = context->video;
    const uint32_t time_scale = context->media_time_scale;
    context->info.has_video = true;
    context->video_track_id = context->current_track_id;
    state->media_duration = context->media_duration;
    state->media_time_scale = time_scale;
    if (time_scale == 0) return;
    state->duration_s =
        static_cast<int64_t>(context->media_duration + (time_scale >> 1)) / int64_t{time_scale};
    upnp_log_message(kLogTrace, kLogScan, "mp4_parse_hdlr", 0,
                     "video timescale %d video duration msec %d", static_cast<int>(time_scale),
                     static_cast<int>(state->duration_s));
}

static void parse_again(BufferedFile* file, int64_t position, BoxHandler handler,
                        ParseContext* context) {
    if (position == 0 || !mp4_spend_work(kParseAgainWork)) return;
    const int64_t tell = upnp_file_tell_b(file);
    const int64_t context_position = context->position;
    BoxHeader header;
    upnp_file_seek_b(file, position - 8, 0);
    if (mp4_read_box_header(file, context, &header, false) == 0 &&
        mp4_box_gets_ahead(&header, position)) {
        handler(file, &header, position + header.size_field, context);
    }
    upnp_file_seek_b(file, tell, 0);
    context->position = context_position;
}

// Whether the content names a data handler, which QuickTime puts into the media information box. It
// says nothing about the track.
static bool is_data_handler(const uint8_t* content) { return memcmp(content + 4, "dhlr", 4) == 0; }

void mp4_parse_hdlr(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    const uint8_t* const content = context->content.bytes;
    const bool is_read = mp4_read_box_content(file, header, end, context) != 0;
    if (is_read) mp4_release_content(context);
    if (is_read && is_data_handler(content)) return;

    context->has_handler_type = true;
    memset(context->handler_type, 0, 4);
    if (!is_read) return;
    memcpy(context->handler_type, content + 8, 4);
    const bool is_video = mp4_is_video_track(context);
    if (is_video) take_video_track(context);
    if (!is_video && memcmp(context->handler_type, "soun", 4) != 0) return;
    parse_again(file, context->description_position, mp4_parse_stsd, context);
    // Kept on purpose: last-table-as-times
    // Whichever table box came last.
    parse_again(file, context->table_position, mp4_parse_stts, context);
    parse_again(file, context->sample_size_position, mp4_parse_stsz, context);
}
