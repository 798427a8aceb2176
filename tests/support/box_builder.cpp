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
