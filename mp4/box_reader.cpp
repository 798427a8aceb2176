// SPDX-License-Identifier: BSD-2-Clause
#include "mp4/box_reader.h"

#include <string.h>

#include <algorithm>

#include "host/message_log.h"
#include "mp4/video_state.h"
#include "mp4/work_limit.h"
#include "runtime/byte_order.h"
#include "runtime/upnp_status.h"

static int64_t add_saturated(int64_t a, int64_t b) {
    int64_t sum;
    return __builtin_add_overflow(a, b, &sum) ? INT64_MAX : sum;
}

void mp4_advance(ParseContext* context, int64_t bytes) {
    context->position = add_saturated(context->position, bytes);
}

static void advance_and_seek(BufferedFile* file, ParseContext* context, int64_t bytes) {
    mp4_advance(context, bytes);
    upnp_file_seek_b(file, bytes, 1);
}

static void go_to_file_end(BufferedFile* file, ParseContext* context) {
    context->position = context->info.file_size;
    upnp_file_seek_b(file, 0, 2);
}

static bool is_type(const BoxHeader* header, const char* type) {
    return memcmp(header->type, type, 4) == 0;
}

int mp4_read_box_header(BufferedFile* file, ParseContext* context, BoxHeader* header,
                        bool advance) {
    uint8_t bytes[8];
    if (upnp_file_read_b(file, bytes, 8) != 8) return kUpnpFailed;
    if (advance) mp4_advance(context, 8);
    header->size_field = load_be32(bytes);
    memcpy(header->type, bytes + 4, 4);
    header->type[4] = '\0';
    header->size = header->size_field;
    if (header->size_field == 0) header->size = static_cast<uint64_t>(context->info.file_size);
    if (header->size_field != 1) return 0;
    if (upnp_file_read_b(file, bytes, 8) != 8) return kUpnpFailed;
    if (advance) mp4_advance(context, 8);
    header->size = load_be64(bytes);
    return 0;
}

bool mp4_box_gets_ahead(const BoxHeader* header, int64_t start) {
    if (header->size_field == 1 && header->size < 16) return false;
    return header->size <= static_cast<uint64_t>(INT64_MAX - std::max<int64_t>(start, 0));
}

static bool spend_header(const BufferedFile* file) {
    return file->bytes_left < sizeof(uint64_t) ? mp4_spend_read() : mp4_spend_work(kHeaderWork);
}

uint64_t mp4_atom_get_metadata(BufferedFile* file, int64_t end, ParseContext* context) {
    if (!file || !context) return 0;
    uint64_t last_size = 0;
    ++context->depth;
    while (context->position < end && spend_header(file)) {
        const int64_t start = context->position;
        BoxHeader header;
        if (mp4_read_box_header(file, context, &header, true) != 0) break;
        last_size = header.size;
        if (!mp4_box_gets_ahead(&header, start)) break;
        BoxHandler handler = mp4_find_handler(header.type);
        if (!handler) {
            upnp_log_message(kLogTrace, kLogScan, __func__, 0,
                             "Unknown mp4box type %s - Ignore and continue.", header.type);
            handler = mp4_skip_box;
        }
        handler(file, &header, end, context);
    }
    --context->depth;
    return last_size;
}

// No content that is needed whole comes near it: 31 parameter sets of either kind take 4 MiB.
constexpr int64_t kMostWholeContent = 16 << 20;  // bytes

// What there is to say about contents is said in this name, whichever function reads them.
constexpr char kContentReader[] = "mp4_read_box_content";

// The walk goes on at end.
static void refuse_content(BufferedFile* file, int64_t end, ParseContext* context) {
    context->position = end;
    upnp_file_seek_b(file, end, 0);
}

static void log_missing_memory() {
    upnp_log_message(kLogError, kLogScan, kContentReader, 0, "No Memory to allocate ");
}

// Whether content of that box may be read; else refuses it.
static bool admit_content(BufferedFile* file, const BoxHeader* header, int64_t end,
                          ParseContext* context) {
    mp4_release_content(context);
    const bool is_corrupted = end < static_cast<int64_t>(header->size_field);
    if (!is_corrupted && header->size_field - 8 <= kUpnpMaxBlock) return true;
    if (is_corrupted) {
        upnp_log_message(kLogWarning, kLogScan, kContentReader, 0,
                         "file seems to be corrupted, box->size= %x,boxendpos= %lld",
                         header->size_field, static_cast<long long>(end));
    } else {
        log_missing_memory();
    }
    refuse_content(file, end, context);
    return false;
}

static int64_t finish_content(ParseContext* context, int64_t length, int64_t count) {
    context->content.is_held = true;
    if (count < length) {
        upnp_log_message(kLogWarning, kLogScan, kContentReader, 0, "read error nRead = %d",
                         static_cast<int>(count));
        return 0;
    }
    mp4_advance(context, count);
    return count;
}

int64_t mp4_read_box_content(BufferedFile* file, const BoxHeader* header, int64_t end,
                             ParseContext* context) {
    if (!admit_content(file, header, end, context)) return 0;
    const int64_t length = int64_t{header->size_field} - 8;
    const int32_t kept = static_cast<int32_t>(std::min<int64_t>(length, kContentKept));
    memset(context->content.bytes, 0, kContentKept);
    int64_t count = upnp_file_read_b(file, context->content.bytes, kept);
    if (count == kept && length > kept) {
        const int64_t rest = std::min(length - kept, upnp_file_bytes_ahead_b(file));
        upnp_file_seek_b(file, rest, 1);
        count += rest;
    }
    return finish_content(context, length, count);
}

int64_t mp4_read_whole_content(BufferedFile* file, const BoxHeader* header, int64_t end,
                               ParseContext* context, Owned<uint8_t>* block) {
    if (!admit_content(file, header, end, context)) return 0;
    const int64_t length = int64_t{header->size_field} - 8;
    if (length > upnp_file_bytes_ahead_b(file)) {  // no need for a block to see that
        const int64_t count = upnp_file_bytes_ahead_b(file);
        upnp_file_seek_b(file, 0, 2);
        return finish_content(context, length, count);
    }
    if (length <= kMostWholeContent && mp4_spend_work(static_cast<uint64_t>(length))) {
        *block = owned_malloc<uint8_t>(static_cast<uint64_t>(length));
    }
    if (!*block) {
        log_missing_memory();
        refuse_content(file, end, context);
        return 0;
    }
    const int64_t count = upnp_file_read_b(file, block->get(), static_cast<int32_t>(length));
    return finish_content(context, length, count);
}

static void skip_large_box(BufferedFile* file, const BoxHeader* header, ParseContext* context) {
    if (header->size_field == 0) {
        go_to_file_end(file, context);
    } else {
        advance_and_seek(file, context, static_cast<int64_t>(header->size) - 16);
    }
}

bool mp4_is_box_too_large(BufferedFile* file, const BoxHeader* header, ParseContext* context) {
    if (!file || !header || !context) return true;
    if (header->size_field > 1) return false;
    upnp_log_message(kLogInfo, kLogScan, __func__, 0, "%s box is too large, skipping",
                     header->type);
    skip_large_box(file, header, context);
    return true;
}

void mp4_skip_box(BufferedFile* file, const BoxHeader* header, int64_t, ParseContext* context) {
    if (header->size_field <= 1) {
        skip_large_box(file, header, context);
    } else {
        advance_and_seek(file, context, static_cast<int64_t>(header->size) - 8);
    }
}

// Where the children end of a container whose header has just been read.
static int64_t children_end(const BoxHeader* header, const ParseContext* context) {
    if (header->size_field == 0) return context->info.file_size;
    const int64_t header_size = header->size_field == 1 ? 16 : 8;
    return add_saturated(context->position, static_cast<int64_t>(header->size) - header_size);
}

void mp4_parse_container(BufferedFile* file, const BoxHeader* header, int64_t end,
                         ParseContext* context) {
    if (is_type(header, "mdia")) {
        context->has_handler_type = false;
        context->description_position = 0;
        context->table_position = 0;
        context->sample_size_position = 0;
    }
    const bool is_empty_user_data = is_type(header, "udta") && header->size_field == 12;
    if (is_empty_user_data || context->depth >= kMaxBoxDepth) {
        mp4_skip_box(file, header, end, context);
        return;
    }
    if (is_type(header, "moov") && context->movie_position == 0) {
        context->movie_position = context->position;
    }
    mp4_atom_get_metadata(file, children_end(header, context), context);
}

// Kept on purpose: metadata-list-end
// The list runs 12 bytes past the box: its end is counted from past version and flags.
void mp4_parse_meta(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (context->depth >= kMaxBoxDepth) {
        mp4_skip_box(file, header, end, context);
        return;
    }
    advance_and_seek(file, context, 4);
    const int64_t list_end = add_saturated(context->position, static_cast<int64_t>(header->size));
    mp4_atom_get_metadata(file, std::min(list_end, context->info.file_size), context);
}

void mp4_parse_mdat(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    context->media_data_start = context->position;
    context->media_data_length = header->size - 8;
    mp4_skip_box(file, header, end, context);
}

void mp4_parse_ftyp(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (mp4_read_box_content(file, header, end, context)) mp4_release_content(context);
}

// Whether the content starts with a movie header. The file stays where it is.
static bool hides_movie(BufferedFile* file) {
    const int64_t start = upnp_file_seek_b(file, 0, 1);
    uint8_t bytes[8];
    const int32_t count = upnp_file_read_b(file, bytes, 8);
    upnp_file_seek_b(file, start, 0);
    if (count == 8) return memcmp(bytes + 4, "mvhd", 4) == 0;
    upnp_log_message(kLogInfo, kLogScan, "mp4_parse_free", 0,
                     "error reading file requested %d, returned %d", 8, static_cast<int>(count));
    return false;
}

// Kept on purpose: one-movie-in-free
// Some editors turn an old movie box into free space by changing its type.
void mp4_parse_free(BufferedFile* file, const BoxHeader* header, int64_t end,
                    ParseContext* context) {
    if (mp4_is_box_too_large(file, header, context)) return;
    if (header->size_field > 8 && context->movie_position == 0 && hides_movie(file)) {
        upnp_log_message(kLogInfo, kLogScan, __func__, 0, "found moov hidden in free");
        BoxHeader movie = *header;
        memcpy(movie.type, "moov", 4);
        mp4_parse_container(file, &movie, end, context);
        return;
    }
    mp4_skip_box(file, header, end, context);
}
