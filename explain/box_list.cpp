// SPDX-License-Identifier: BSD-2-Clause
#include "explain/box_list.h"

#include <inttypes.h>
#include <string.h>

#include <algorithm>
#include <iterator>

#include "mp4/box_reader.h"
#include "runtime/byte_order.h"
#include "wording/printable.h"

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

// Reads the first bytes after a header; what the file does not have of them is 0.
static void read_content(BufferedFile* file, uint8_t* bytes, int32_t length) {
    memset(bytes, 0, static_cast<size_t>(length));
    upnp_file_read_b(file, bytes, length);
}

// Types are any four bytes.
static std::string type_text(const BoxHeader& header) {
    return printable({reinterpret_cast<const char*>(header.type), 4});
}

static void note_place(const BoxHeader& header, int64_t position, BoxPlace* place) {
    *place = {type_text(header), position};
}

static void look_at_track_header(BoxScan* scan) {
    uint8_t content[56];
    read_content(scan->file, content, sizeof content);
    scan->track.id = load_be32(content + (content[0] == 1 ? 20 : 12));
    scan->facts->last_track_id = scan->track.id;
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

// Where a descriptor's content starts: after its tag and its length of up to four bytes.
static size_t descriptor_content(const uint8_t* bytes, size_t at) {
    ++at;
    for (int i = 0; i < 3 && bytes[at] & 0x80; ++i) ++at;
    return at + 1;
}

// ISO/IEC 14496-1 7.2.6.6: the object type of the decoder configuration in an ES descriptor.
static uint8_t read_object_type(const uint8_t* esds_content) {
    constexpr uint8_t kEsDescriptor = 3, kDecoderConfigDescriptor = 4;
    if (esds_content[4] != kEsDescriptor) return 0;
    const size_t config = descriptor_content(esds_content, 4) + 3;
    if (esds_content[config] != kDecoderConfigDescriptor) return 0;
    return esds_content[descriptor_content(esds_content, config)];
}

// The sample entry of MPEG-4 has its decoder configuration at a fixed place.
static void look_at_description(BoxScan* scan) {
    constexpr size_t kEsdsType = 98;
    uint8_t content[512];
    read_content(scan->file, content, sizeof content);
    TrackFacts* const track = &scan->track;
    if (load_be32(content + 4) != 0) {
        track->format.assign(reinterpret_cast<const char*>(content) + 12, 4);
    }
    track->has_esds = memmem(content, sizeof content, "esds", 4) != nullptr;
    track->has_esds_in_place = memcmp(content + kEsdsType, "esds", 4) == 0;
    if (track->has_esds_in_place) {
        track->esds_object_type = read_object_type(content + kEsdsType + 4);
    }
}

static void look_at_fragment_header(BoxScan* scan) {
    uint8_t content[8];
    read_content(scan->file, content, sizeof content);
    const bool is_of_video = load_be32(content + 4) == scan->facts->video.id;
    if (is_of_video && (content[3] & 1)) scan->facts->has_base_data_offset = true;
}

static void look_at_sizes(BoxScan* scan) {
    uint8_t content[8];
    read_content(scan->file, content, sizeof content);
    scan->track.has_constant_size = load_be32(content + 4) != 0;
}

static void look_at_random_access(BoxScan* scan) {
    uint8_t content[16];
    read_content(scan->file, content, sizeof content);
    ++scan->facts->random_access_tables;
    if (load_be32(content + 4) != scan->facts->video.id) return;
    scan->facts->has_video_random_access = true;
    scan->facts->random_access_entries = load_be32(content + 12);
}

static bool is_leaf_of_track(const char* type) {
    static const char* const kTypes[] = {"tkhd", "mdhd", "hdlr", "stsd", "stts",
                                         "stss", "stsc", "stsz", "stco"};
    return std::any_of(std::begin(kTypes), std::end(kTypes),
                       [type](const char* leaf) { return is_type(type, leaf); });
}

static void look_at_box(BoxScan* scan, const BoxHeader& header, int64_t position) {
    const char* const type = header.type;
    TrackFacts* const track = &scan->track;
    BoxFacts* const facts = scan->facts;
    if (mp4_find_handler(type) && !is_type(type, "url ")) facts->has_known_box = true;
    if (is_type(type, "moov")) facts->has_movie = true;
    if (is_type(type, "moof")) facts->has_fragments = true;
    if (is_type(type, "trak")) *track = {};
    if (is_type(type, "tkhd")) look_at_track_header(scan);
    if (is_type(type, "hdlr")) look_at_handler(scan);
    if (is_type(type, "stsd")) look_at_description(scan);
    if (is_type(type, "stsz")) look_at_sizes(scan);
    if (is_type(type, "tfhd")) look_at_fragment_header(scan);
    if (is_type(type, "tfra")) look_at_random_access(scan);
    if (is_type(type, "stss")) track->has_sync_samples = true;
    if (is_type(type, "stco")) track->has_chunk_offsets = true;
    if (is_type(type, "co64")) track->has_large_chunk_offsets = true;
    if (is_type(type, "stz2")) track->has_compact_sizes = true;
    if (header.size_field < 2 && is_leaf_of_track(type)) {
        track->skipped_type.assign(type, 4);
    }
    const bool is_metadata = is_type(type, "udta") || is_type(type, "meta");
    if (is_metadata && facts->video_tracks == 0 && !track->is_video) {
        note_place(header, position, &facts->metadata);
    }
}

// A later video track replaces what an earlier one has, table by table.
static void finish_track(BoxScan* scan) {
    const TrackFacts& track = scan->track;
    TrackFacts* const video = &scan->facts->video;
    if (!track.is_video) return;
    ++scan->facts->video_tracks;
    video->is_video = true;
    video->id = track.id;
    if (!track.format.empty()) video->format = track.format;
    if (!track.skipped_type.empty()) video->skipped_type = track.skipped_type;
    video->has_sync_samples |= track.has_sync_samples;
    video->has_chunk_offsets |= track.has_chunk_offsets;
    video->has_large_chunk_offsets |= track.has_large_chunk_offsets;
    video->has_compact_sizes |= track.has_compact_sizes;
    video->has_constant_size |= track.has_constant_size;
    video->is_rotated = track.is_rotated;
    video->esds_object_type = track.esds_object_type;
    video->has_esds = track.has_esds;
    video->has_esds_in_place = track.has_esds_in_place;
}

static const char* remark_on(const BoxHeader& header, bool passes_end) {
    if (passes_end) return "goes past the end of the file";
    if (is_type(header.type, "co64")) return "64-bit chunk offsets: not read";
    if (is_type(header.type, "stz2")) return "compact sample sizes: not read";
    const bool is_plain = is_container(header.type) || is_type(header.type, "mdat");
    if (header.size_field < 2 && !is_plain) return "64-bit or open size: skipped";
    return mp4_find_handler(header.type) ? "" : "unknown: skipped";
}

// A movie that an editor has hidden by changing the type of its box.
static bool is_hidden_movie(BoxScan* scan, const BoxHeader& header) {
    uint8_t content[8];
    if (!is_type(header.type, "free") || header.size_field <= 8 || scan->facts->has_movie) {
        return false;
    }
    read_content(scan->file, content, sizeof content);
    return is_type(reinterpret_cast<const char*>(content) + 4, "mvhd");
}

static void print_box(BoxScan* scan, const BoxHeader& header, int64_t start, uint64_t size,
                      int depth, bool passes_end) {
    if (++scan->rows > kMostRows) return;
    const char* const remark = remark_on(header, passes_end);
    fprintf(scan->out, "  %14" PRId64 " %14" PRIu64 "  %*s%s%s%s\n", start, size, depth * 2, "",
            type_text(header).c_str(), *remark ? "  " : "", remark);
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
        if (is_hidden_movie(scan, header)) memcpy(header.type, "moov", 4);
        look_at_box(scan, header, position);
        if (passes_end && scan->facts->declared_end == 0 && mp4_box_gets_ahead(&header, position)) {
            scan->facts->declared_end = position + static_cast<int64_t>(size);
            note_place(header, position, &scan->facts->passing);
        }
        const bool fits = size >= 8 && position + static_cast<int64_t>(std::min(size, rest)) <= end;
        if (!fits && depth > 0 && scan->facts->misfit.type.empty()) {
            note_place(header, position, &scan->facts->misfit);
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
