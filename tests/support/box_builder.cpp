// SPDX-License-Identifier: BSD-2-Clause
#include "tests/support/box_builder.h"

static std::string big_endian(uint64_t value, int bytes) {
    std::string out;
    while (--bytes >= 0) out += static_cast<char>(value >> (8 * bytes) & 0xff);
    return out;
}

std::string u16(uint64_t value) { return big_endian(value, 2); }
std::string u32(uint64_t value) { return big_endian(value, 4); }
std::string u64(uint64_t value) { return big_endian(value, 8); }
std::string zeros(size_t count) { return std::string(count, '\0'); }

std::string words(const std::vector<uint64_t>& values) {
    std::string out;
    for (const uint64_t value : values) out += u32(value);
    return out;
}

std::string box(const std::string& type, const std::string& content) {
    return u32(content.size() + 8) + type + content;
}

std::string large_box(const std::string& type, const std::string& content) {
    return u32(1) + type + u64(content.size() + 16) + content;
}

std::string full_box(const std::string& type, const std::string& content, uint32_t flags) {
    return box(type, u32(flags) + content);
}

std::string visual_entry_of(const std::string& type, const std::string& boxes, uint32_t width,
                            uint32_t height) {
    return box(type, zeros(6) + u16(1) + zeros(16) + u16(width) + u16(height) + zeros(50) + boxes);
}

static std::string sets_of(const std::vector<std::string>& sets) {
    std::string out;
    for (const std::string& set : sets) out += u16(set.size()) + set;
    return out;
}

std::string avc_configuration(const std::vector<std::string>& sequence_sets,
                              const std::vector<std::string>& picture_sets, int length_size) {
    const char sizes[] = {static_cast<char>(0xfc | (length_size - 1)),
                          static_cast<char>(0xe0 | sequence_sets.size())};
    return box("avcC", "\1\x64" + zeros(1) + "\x1e" + std::string(sizes, 2) +
                           sets_of(sequence_sets) + static_cast<char>(picture_sets.size()) +
                           sets_of(picture_sets));
}

std::string avc_entry(const std::string& sequence_set, const std::string& picture_set,
                      int length_size) {
    return visual_entry_of("avc1", avc_configuration({sequence_set}, {picture_set}, length_size));
}

std::string mpeg4_entry(const std::string& decoder_specific_info) {
    const std::string length(1, static_cast<char>(decoder_specific_info.size()));
    return visual_entry_of("mp4v",
                           full_box("esds", "\3\4\5" + length + decoder_specific_info + "\6"));
}

std::string h263_entry() { return visual_entry_of("s263", box("d263", "test" + zeros(3))); }

std::string track_header(uint32_t track_id, uint32_t width, uint32_t height) {
    const std::string sides = words({width << 16, height << 16});
    return full_box("tkhd", words({0, 0, track_id}) + zeros(60) + sides);
}

std::string media_header(uint32_t time_scale, uint32_t duration) {
    return full_box("mdhd", words({0, 0, time_scale, duration, 0}));
}

std::string handler(const std::string& type, const std::string& component) {
    return full_box("hdlr", component + type + zeros(13));
}

std::string movie_of(const std::string& boxes, const std::string& front) {
    return box("moov",
               box("trak", track_header(1) + box("mdia", media_header(10, 50) + front + boxes)));
}

std::string sample_table(const MovieSpec& spec, uint32_t first_chunk_offset) {
    std::vector<uint64_t> sizes = {0, spec.samples.size()}, offsets = {0};
    uint64_t offset = first_chunk_offset;
    for (size_t i = 0; i < spec.samples.size(); offset += spec.samples[i++].size()) {
        if (i % spec.samples_per_chunk == 0) offsets.push_back(offset);
        sizes.push_back(spec.samples[i].size());
    }
    offsets[0] = offsets.size() - 1;
    const std::string sync = u32(spec.sync.size()) + words({spec.sync.begin(), spec.sync.end()});
    return box("stbl", full_box("stsd", u32(1) + spec.entry) +
                           full_box("stts", words({1, sizes[1], spec.sample_duration})) +
                           full_box("stss", sync) +
                           full_box("stsc", words({1, 1, spec.samples_per_chunk, 1})) +
                           full_box("stsz", words(sizes)) + full_box("stco", words(offsets)));
}

static std::string video_track(uint32_t duration, const std::string& table) {
    const std::string media = media_header(10, duration) + handler("vide");
    return box("trak", track_header(1, 64, 48) + box("mdia", media + box("minf", table)));
}

std::string movie_file(const MovieSpec& spec) {
    const std::string type = box("ftyp", "isom" + zeros(4));
    std::string data;
    for (const std::string& sample : spec.samples) data += sample;
    const uint32_t duration = static_cast<uint32_t>(spec.samples.size()) * spec.sample_duration;
    const std::string table = sample_table(spec, static_cast<uint32_t>(type.size()) + 8);
    return type + box("mdat", data) + box("moov", video_track(duration, table));
}

std::string fragmented_file(const MovieSpec& spec, uint32_t duration) {
    MovieSpec empty = spec;
    empty.samples.clear();
    empty.sync.clear();
    const std::string length = duration != 0 ? full_box("mehd", u32(duration)) : "";
    const std::string defaults = full_box("trex", words({1, 1, 0, 0, 0}));
    std::string out =
        box("ftyp", "isom" + zeros(4)) +
        box("moov", full_box("mvhd", words({0, 0, 10, 0})) +
                        video_track(0, sample_table(empty, 0)) + box("mvex", length + defaults));
    std::string entries = words({1, 0, spec.samples.size()});
    for (size_t i = 0; i < spec.samples.size(); ++i) {
        entries += words({i * spec.sample_duration, out.size()}) + "\1\1\1";
        // The data starts after 56 bytes of fragment and the 8 of the media data's header.
        const std::string run = full_box("trun", words({1, 64, spec.samples[i].size()}), 0x201);
        out += box("moof", box("traf", full_box("tfhd", u32(1), 0x20000) + run)) +
               box("mdat", spec.samples[i]);
    }
    return out + box("mfra", full_box("tfra", entries));
}
