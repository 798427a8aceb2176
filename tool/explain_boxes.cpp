// SPDX-License-Identifier: BSD-2-Clause
#include "tool/explain_boxes.h"

#include <inttypes.h>
#include <string.h>

#include <algorithm>
#include <iterator>

#include "mp4/box_reader.h"
#include "runtime/byte_order.h"

constexpr int kMostRows = 80;        // that are printed
constexpr int kMostBoxes = 1000000;  // that are looked at
constexpr int kDeepest = 9;

struct BoxScan {
    BufferedFile* file;
    ParseContext context;  // only for its file size
    FILE* out;
    BoxFacts* facts;
    TrackFacts track;  // the one that is being looked at
    int rows;
    int boxes;
};

static bool is_type(const char* type, const char* wanted) { return memcmp(type, wanted, 4) == 0; }

static bool is_container(const char* type) {
    static const char* const kTypes[] = {"moov", "trak", "mdia", "minf", "stbl",
                                         "mvex", "moof", "traf", "mfra"};
    return std::any_of(std::begin(kTypes), std::end(kTypes),
                       [type](const char* container) { return is_type(type, container); });
}

// Reads the first bytes behind a header; what the file does not have of them is 0.
static void read_content(BufferedFile* file, uint8_t* bytes, int32_t length) {
    memset(bytes, 0, static_cast<size_t>(length));
    upnp_file_read_b(file, bytes, length);
}

// Types are any four bytes: what does not print becomes a dot.
static void copy_type(const uint8_t* from, char* to) {
    for (int i = 0; i < 4; ++i) {
        to[i] = from[i] > ' ' && from[i] < 127 ? static_cast<char>(from[i]) : '.';
    }
    to[4] = '\0';
}

static void look_at_track_header(BoxScan* scan) {
    uint8_t content[56];
    read_content(scan->file, content, sizeof content);
    const uint8_t* const matrix = content + (content[0] == 1 ? 52 : 40);
    scan->track.is_rotated =
        content[0] != 1 && load_be32(matrix) == 0 && load_be32(matrix + 4) != 0;
}

static void look_at_handler(BoxScan* scan) {
    uint8_t content[12];
    read_content(scan->file, content, sizeof content);
    const bool is_data_handler = memcmp(content + 4, "dhlr", 4) == 0;
    if (!is_data_handler) scan->track.is_video = memcmp(content + 8, "vide", 4) == 0;
}

static void look_at_description(BoxScan* scan) {
    uint8_t content[16];
    read_content(scan->file, content, sizeof content);
    if (load_be32(content + 4) != 0) copy_type(content + 12, scan->track.format);
}

static void look_at_sizes(BoxScan* scan) {
    uint8_t content[8];
    read_content(scan->file, content, sizeof content);
    scan->track.has_constant_size = load_be32(content + 4) != 0;
}

static void look_at_box(BoxScan* scan, const char* type) {
    TrackFacts* const track = &scan->track;
    BoxFacts* const facts = scan->facts;
    if (mp4_find_handler(type) && !is_type(type, "url ")) facts->has_known_box = true;
    if (is_type(type, "moov")) facts->has_movie = true;
    if (is_type(type, "moof")) facts->has_fragments = true;
    if (is_type(type, "tfra")) facts->has_random_access = true;
    if (is_type(type, "trak")) *track = {};
    if (is_type(type, "tkhd")) look_at_track_header(scan);
    if (is_type(type, "hdlr")) look_at_handler(scan);
    if (is_type(type, "stsd")) look_at_description(scan);
    if (is_type(type, "stsz")) look_at_sizes(scan);
    if (is_type(type, "stss")) track->has_sync_samples = true;
    if (is_type(type, "stts")) track->has_time_to_sample = true;
    if (is_type(type, "stsc")) track->has_sample_to_chunk = true;
    if (is_type(type, "stco")) track->has_chunk_offsets = true;
    if (is_type(type, "co64")) track->has_large_chunk_offsets = true;
    if (is_type(type, "stz2")) track->has_compact_sizes = true;
}

// A later video track replaces what an earlier one has, table by table.
static void finish_track(BoxScan* scan) {
    const TrackFacts& track = scan->track;
    TrackFacts* const video = &scan->facts->video;
    if (!track.is_video) return;
    video->is_video = true;
    if (track.format[0]) memcpy(video->format, track.format, sizeof video->format);
    video->has_sync_samples |= track.has_sync_samples;
    video->has_time_to_sample |= track.has_time_to_sample;
    video->has_sample_to_chunk |= track.has_sample_to_chunk;
    video->has_chunk_offsets |= track.has_chunk_offsets;
    video->has_large_chunk_offsets |= track.has_large_chunk_offsets;
    video->has_compact_sizes |= track.has_compact_sizes;
    video->has_constant_size |= track.has_constant_size;
    video->is_rotated = track.is_rotated;
}

static const char* remark_on(const BoxHeader& header, bool passes_end) {
    if (passes_end) return "goes past the end of the file";
    if (is_type(header.type, "co64")) return "64-bit chunk offsets: not read";
    if (is_type(header.type, "stz2")) return "compact sample sizes: not read";
    const bool is_plain = is_container(header.type) || is_type(header.type, "mdat");
    if (header.size_field < 2 && !is_plain) return "64-bit or open size: skipped";
    return mp4_find_handler(header.type) ? "" : "unknown: skipped";
}

static void print_box(BoxScan* scan, const BoxHeader& header, int64_t start, uint64_t size,
                      int depth, bool passes_end) {
    if (++scan->rows > kMostRows) return;
    char type[5];
    copy_type(reinterpret_cast<const uint8_t*>(header.type), type);
    const char* const remark = remark_on(header, passes_end);
    fprintf(scan->out, "  %14" PRId64 " %14" PRIu64 "  %*s%s%s%s\n", start, size, depth * 2, "",
            type, *remark ? "  " : "", remark);
}

static void scan_boxes(BoxScan* scan, int64_t position, int64_t end, int depth) {
    const int64_t file_size = scan->context.info.file_size;
    while (position < end && ++scan->boxes <= kMostBoxes) {
        BoxHeader header;
        upnp_file_seek_b(scan->file, position, 0);
        if (mp4_read_box_header(scan->file, &scan->context, &header, false) != 0) return;
        const uint64_t rest = static_cast<uint64_t>(file_size - position);
        const uint64_t size = header.size_field == 0 ? rest : header.size;
        const bool passes_end = size > rest;
        print_box(scan, header, position, size, depth, passes_end);
        look_at_box(scan, header.type);
        if (passes_end && scan->facts->declared_end == 0 && mp4_box_gets_ahead(&header, position)) {
            scan->facts->declared_end = position + static_cast<int64_t>(size);
            copy_type(reinterpret_cast<const uint8_t*>(header.type), scan->facts->passing_type);
        }
        const int64_t box_end = passes_end ? file_size : position + static_cast<int64_t>(size);
        if (is_container(header.type) && depth < kDeepest) {
            const int64_t content = position + (header.size_field == 1 ? 16 : 8);
            scan_boxes(scan, content, box_end, depth + 1);
            if (is_type(header.type, "trak")) finish_track(scan);
        }
        if (size < 8) return;  // the walk would run in place
        position = box_end;
    }
}

void explain_boxes(BufferedFile* file, int64_t file_size, FILE* out, BoxFacts* facts) {
    BoxScan scan = {};
    scan.file = file;
    scan.context.info.file_size = file_size;
    scan.out = out;
    scan.facts = facts;
    *facts = {};
    fprintf(out, "Boxes\n  %14s %14s  type\n", "offset", "size");
    scan_boxes(&scan, 0, file_size, 0);
    if (scan.rows > kMostRows) fprintf(out, "  ... and %d more\n", scan.rows - kMostRows);
}
