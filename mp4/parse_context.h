// SPDX-License-Identifier: BSD-2-Clause
// What the box handlers share during one walk over a file.
#pragma once

#include <stdint.h>

struct BufferedFile;
struct VideoState;

struct BoxHeader {
    uint32_t size_field;  // as stored: 0 up to the end of the file, 1 a 64-bit size follows
    char type[5];         // NUL-terminated
    uint64_t size;        // bytes, header included; the whole file's for size field 0
};

// The content of the box that was read last. No handler but the sample description's looks after
// the first kContentKept bytes, so only those are kept; what the box does not have of them is 0.
constexpr uint32_t kContentKept = 96;
struct BoxContent {
    bool is_held;  // read, and not released by its handler
    uint8_t bytes[kContentKept];
};

struct MediaInfo {
    int64_t file_size;          // bytes
    int64_t modification_time;  // seconds since the epoch
    bool has_video;
    bool is_protected;  // a "drmi" sample entry was seen
    uint32_t width;     // of the picture, in samples
    uint32_t height;
};

struct ParseContext {
    VideoState* video;  // what the walk finds is for this record; never null in a handler
    MediaInfo info;
    int64_t position;  // of the next unread byte, as the walker counts it
    int32_t depth;     // levels of boxes that are being walked
    BoxContent content;
    bool has_handler_type;  // the current media box has named its handler
    uint8_t handler_type[4];
    uint32_t current_track_id;
    uint32_t video_track_id;
    int64_t media_data_start;
    uint64_t media_data_length;
    uint32_t media_time_scale;  // of the movie or media header seen last
    uint64_t media_duration;
    // After the headers of boxes that came before their track's handler; 0 when there was none.
    int64_t description_position;
    int64_t table_position;  // the last of "stts", "stss" and "stsc"
    int64_t sample_size_position;
    int64_t movie_position;  // after the header of the first movie box; 0 before
};

// Interprets one box, whose header has been read. end is where the list that holds the box ends.
// Problems go to the log only; results go to the context and to its video state.
using BoxHandler = void (*)(BufferedFile* file, const BoxHeader* header, int64_t end,
                            ParseContext* context);
