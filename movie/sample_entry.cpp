// SPDX-License-Identifier: BSD-2-Clause
#include "movie/sample_entry.h"

#include <algorithm>
#include <span>
#include <utility>

#include "movie/byte_stream.h"

// After these bytes of a visual sample entry its boxes start.
constexpr uint32_t kVisualEntrySize = 78;
// More configuration than any stream has, as large as one window.
constexpr uint64_t kMaxConfiguration = SourceReader::kLargestBlock;

// ISO 14496-1 8.3.3: tags of descriptors in "esds".
constexpr uint32_t kEsDescriptor = 3;
constexpr uint32_t kDecoderConfigDescriptor = 4;
constexpr uint32_t kDecoderSpecificInfo = 5;

namespace {

// Big-endian fields of bytes in memory. A read past the end yields 0 and sets `overrun` for good.
struct Fields {
    std::span<const uint8_t> rest;
    bool overrun = false;

    std::span<const uint8_t> take(size_t count) {
        overrun = overrun || count > rest.size();
        if (overrun) return {};
        const std::span<const uint8_t> taken = rest.first(count);
        rest = rest.subspan(count);
        return taken;
    }
    uint32_t u8() {
        const std::span<const uint8_t> byte = take(1);
        return byte.empty() ? 0 : byte[0];
    }
    uint32_t u16() {
        const uint32_t high = u8();
        return high << 8 | u8();
    }
};

}  // namespace

// A box that the source cuts gives what is there.
static Fields content_of(SourceReader* reader, const Box& box) {
    const uint64_t end = std::min(box.end, reader->source_size());
    if (box.content >= end) return {};
    const size_t length = std::min(end - box.content, kMaxConfiguration);
    const uint8_t* const bytes = reader->at(box.content, length);
    return bytes ? Fields{{bytes, length}} : Fields{};
}

namespace {

// H.264 parameter sets, each preceded by its length in two bytes.
struct ParameterSets {
    std::vector<uint8_t> sequence, picture;
};

}  // namespace

static void append_set(std::span<const uint8_t> set, std::vector<uint8_t>* sets) {
    sets->push_back(static_cast<uint8_t>(set.size() >> 8));
    sets->push_back(static_cast<uint8_t>(set.size()));
    sets->insert(sets->end(), set.begin(), set.end());
}

// Those that follow start codes. Longer ones than any are left out.
static void append_units(std::span<const uint8_t> stream, ParameterSets* sets) {
    constexpr uint8_t kSequenceSet = 7, kPictureSet = 8;
    for (std::span<const uint8_t> unit; !(unit = take_unit(&stream)).empty();) {
        const uint8_t type = unit[0] & 31;
        if (unit.size() > UINT16_MAX) continue;
        if (type == kSequenceSet) append_set(unit, &sets->sequence);
        if (type == kPictureSet) append_set(unit, &sets->picture);
    }
}

// One list of the record. Stops at a set that is cut. Some writers keep the start codes of a byte
// stream, or put all sets into one with start codes between them.
static void read_sets(Fields* record, uint32_t count, std::vector<uint8_t>* list,
                      ParameterSets* sets) {
    for (; count > 0; --count) {
        const std::span<const uint8_t> set = record->take(record->u16());
        if (record->overrun) return;
        if (!set.empty() && set[0] != 0) append_set(set, list);
        append_units(set, sets);
    }
}

// ISO 14496-15 5.3.3: AVCDecoderConfigurationRecord, whose first byte is 1, or a byte stream. A
// record without sets says nothing after one that has some.
static void read_avc_record(Fields record, SampleEntry* entry) {
    uint32_t prefix_size = 4;
    ParameterSets sets;
    if (!record.rest.empty() && record.rest[0] == 0) {
        append_units(record.rest, &sets);
    } else {
        record.take(4);  // version, profile, compatibility, level
        const uint32_t field = record.u8();
        if (!record.overrun) prefix_size = (field & 3) + 1;
        read_sets(&record, record.u8() & 31, &sets.sequence, &sets);
        read_sets(&record, record.u8(), &sets.picture, &sets);
    }
    std::vector<uint8_t>* const configuration = &entry->description.configuration;
    const bool is_empty = sets.sequence.empty() && sets.picture.empty();
    if (is_empty && !configuration->empty()) return;
    entry->stored_prefix_size = prefix_size;
    *configuration = std::move(sets.sequence);
    configuration->insert(configuration->end(), sets.picture.begin(), sets.picture.end());
}

// The content of the next descriptor if it has that tag.
static Fields read_descriptor(Fields* fields, uint32_t tag) {
    uint32_t length = 0;
    if (fields->u8() != tag) return {{}, true};
    for (int i = 0; i < 4; ++i) {
        const uint32_t byte = fields->u8();
        length = length << 7 | (byte & 0x7f);
        if ((byte & 0x80) == 0) break;
    }
    return {fields->take(std::min<size_t>(length, fields->rest.size()))};
}

static uint32_t in_capitals(uint32_t format) {
    uint32_t capitals = 0;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const uint32_t letter = format >> shift & 0xff;
        capitals |= (letter >= 'a' && letter <= 'z' ? letter - 'a' + 'A' : letter) << shift;
    }
    return capitals;
}

static VideoCodec codec_of_format(uint32_t format) {
    // The registered ones, then what programs carried over from AVI into QuickTime files, which
    // write them in letters of either size.
    static constexpr struct {
        VideoCodec codec;
        char formats[20][5];
    } kCodecs[] = {
        {VideoCodec::kAvc,
         {"AVC1", "AVC2", "AVC3", "AVC4", "DVA1", "DVAV", "H264", "X264", "Q264", "DAVC", "VSSH"}},
        {VideoCodec::kMpeg4,
         {"MP4V", "3IV2", "DIVX", "DX50", "FMP4", "XVID", "XVIX", "MP4S", "M4S2", "RMP4", "SEDG",
          "UMP4", "DM4V", "HDX4", "BLZ0", "WV1F"}},
        {VideoCodec::kH263, {"S263", "H263", "U263", "M263", "L263", "X263", "D263", "ILVR"}}};
    const uint32_t wanted = in_capitals(format);
    for (const auto& known : kCodecs) {
        for (const auto& text : known.formats) {
            if (text[0] != '\0' && fourcc(text) == wanted) return known.codec;
        }
    }
    return VideoCodec::kNone;
}

// ISO 14496-1 8.3.4, object types that "mp4v" is used for, and what they are usually called.
static uint32_t format_of_object_type(uint32_t object_type) {
    if (object_type >= 0x60 && object_type <= 0x65) return fourcc("mp2v");
    switch (object_type) {
        case 0x21:
            return fourcc("avc1");
        case 0x23:
            return fourcc("hvc1");
        case 0x6a:
            return fourcc("mp1v");
        case 0x6c:
            return fourcc("jpeg");
        case 0x6d:
            return fourcc("png ");
        case 0x6e:
            return fourcc("mjp2");
        default:
            return fourcc("mp4v");
    }
}

static void take_configuration(const Fields& content, VideoDescription* description) {
    description->configuration.assign(content.rest.begin(), content.rest.end());
}

static void read_elementary_stream(Fields fields, SampleEntry* entry) {
    fields.take(4);  // version and flags
    Fields stream = read_descriptor(&fields, kEsDescriptor);
    stream.take(2);
    const uint32_t flags = stream.u8();
    if (flags & 0x80) stream.take(2);            // depends on another stream
    if (flags & 0x40) stream.take(stream.u8());  // URL
    if (flags & 0x20) stream.take(2);            // clock reference
    Fields decoder = read_descriptor(&stream, kDecoderConfigDescriptor);
    const uint32_t object_type = decoder.u8();
    decoder.take(12);
    if (decoder.overrun) return;
    const Fields info = read_descriptor(&decoder, kDecoderSpecificInfo);
    VideoDescription* const description = &entry->description;
    description->format = format_of_object_type(object_type);
    description->codec = codec_of_format(description->format);
    if (description->codec == VideoCodec::kAvc) read_avc_record(info, entry);
    if (description->codec == VideoCodec::kMpeg4) take_configuration(info, description);
}

static void read_colour(Fields colour, VideoDescription* description) {
    const uint32_t kind_high = colour.u16();
    const uint32_t kind = kind_high << 16 | colour.u16();
    if (kind != fourcc("nclx") && kind != fourcc("nclc")) return;
    ColourDescription stated = {};
    stated.primaries = static_cast<uint16_t>(colour.u16());
    stated.transfer = static_cast<uint16_t>(colour.u16());
    stated.matrix = static_cast<uint16_t>(colour.u16());
    if (colour.overrun) return;
    if (kind == fourcc("nclx") && !colour.rest.empty())
        stated.is_full_range = colour.u8() >> 7 != 0;
    description->colour = stated;
}

static void read_pixel_aspect(SourceReader* reader, const Box& pasp, VideoDescription* out) {
    const uint32_t width = reader->u32_at(pasp.content);
    const uint32_t height = reader->u32_at(pasp.content + 4);
    if (pasp.length() < 8 || width == 0 || height == 0) return;
    out->pixel_width = width;
    out->pixel_height = height;
}

static bool is_picture_format(uint32_t format) {
    return format == fourcc("jpeg") || format == fourcc("png ");
}

// ISO 14496-12 8.12 and ISO 23001-7 8.2: what the format was called before, and whether anything
// says how to decrypt it. What is left of that after decryption, or wraps clear samples, does not.
static void read_protection(SourceReader* reader, const Box& sinf, VideoDescription* description) {
    Box original, information, encryption;
    bool is_encrypted = find_child(reader, sinf, fourcc("schi"), &information);
    if (is_encrypted && find_child(reader, information, fourcc("tenc"), &encryption)) {
        is_encrypted = reader->u8_at(encryption.content + 6) != 0;  // default_isProtected
    }
    description->refusal = is_encrypted ? MovieRefusal::kEncrypted : MovieRefusal::kOtherCodec;
    if (!find_child(reader, sinf, fourcc("frma"), &original)) return;
    description->format = reader->u32_at(original.content);
    if (description->codec == VideoCodec::kNone) {
        description->codec = codec_of_format(description->format);
    }
}

// Boxes that the entry has, by which it may yet be refused, or be of another codec than its name
// says. QuickTime may have some of them in a box that is meant for sound ("wave").
static void read_extensions(SourceReader* reader, BoxWalk extensions, bool is_nested,
                            SampleEntry* entry) {
    VideoDescription* const description = &entry->description;
    for (Box child; extensions.next(&child);) {
        switch (child.type) {
            case fourcc("avcC"):
                if (description->codec == VideoCodec::kNone) description->codec = VideoCodec::kAvc;
                if (description->codec == VideoCodec::kAvc) {
                    read_avc_record(content_of(reader, child), entry);
                }
                break;
            case fourcc("esds"):
                // Phones called MPEG-4 by the name of the older codec.
                if (description->codec != VideoCodec::kAvc) {
                    read_elementary_stream(content_of(reader, child), entry);
                }
                break;
            case fourcc("d263"):
                if (description->codec == VideoCodec::kH263) {
                    take_configuration(content_of(reader, child), description);
                }
                break;
            case fourcc("glbl"):  // the headers themselves, in QuickTime files
                if (description->codec == VideoCodec::kMpeg4) {
                    take_configuration(content_of(reader, child), description);
                }
                break;
            case fourcc("colr"):
                read_colour(content_of(reader, child), description);
                break;
            case fourcc("pasp"):
                read_pixel_aspect(reader, child, description);
                break;
            case fourcc("sinf"):
                read_protection(reader, child, description);
                break;
            case fourcc("wave"):
                if (!is_nested) read_extensions(reader, BoxWalk(reader, child), true, entry);
                break;
            default:
                break;
        }
    }
}

static SampleEntry read_entry(SourceReader* reader, const Box& box) {
    SampleEntry entry;
    VideoDescription* const description = &entry.description;
    description->format = box.type;
    description->codec = codec_of_format(box.type);
    if (box.type == fourcc("encv") || box.type == fourcc("drmi")) {
        description->refusal = MovieRefusal::kEncrypted;
    }
    entry.stored_prefix_size = 4;
    if (box.length() >= kVisualEntrySize) {
        description->width = reader->u16_at(box.content + 24);
        description->height = reader->u16_at(box.content + 26);
        const BoxWalk extensions(reader, box.content + kVisualEntrySize, box.end);
        read_extensions(reader, extensions, false, &entry);
    }
    entry.is_picture = is_picture_format(description->format);
    if (description->refusal == MovieRefusal::kEncrypted) {
        description->format = box.type;
        description->codec = VideoCodec::kNone;
    } else if (description->codec != VideoCodec::kNone) {
        description->refusal = MovieRefusal::kNone;
    }
    if (description->codec != VideoCodec::kAvc) entry.stored_prefix_size = 0;
    description->length_prefix_size = entry.stored_prefix_size == 3 ? 4 : entry.stored_prefix_size;
    return entry;
}

std::vector<SampleEntry> read_sample_entries(SourceReader* reader, const Box& stsd) {
    std::vector<SampleEntry> entries;
    if (stsd.length() < 8) return entries;
    const uint32_t count = reader->u32_at(stsd.content + 4);
    BoxWalk walk(reader, stsd.content + 8, stsd.end);
    for (Box box; entries.size() < std::min<size_t>(count, kMaxSampleEntries) && walk.next(&box);) {
        entries.push_back(read_entry(reader, box));
    }
    return entries;
}
