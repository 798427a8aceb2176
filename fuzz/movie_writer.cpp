// SPDX-License-Identifier: BSD-2-Clause
#include "fuzz/movie_writer.h"

#include <algorithm>
#include <vector>

#include "fuzz/avc_writer.h"
#include "fuzz/m4v_noise_writer.h"
#include "runtime/byte_order.h"
#include "tests/support/box_builder.h"

// The first ones contain others.
static const char* const kTypes[] = {
    "moov", "trak", "mdia", "minf", "stbl", "udta", "mvex", "moof", "traf", "mfra", "meta", "edts",
    "free", "ftyp", "mvhd", "tkhd", "mdhd", "hdlr", "stsd", "stts", "stss", "stsc", "stsz", "stco",
    "co64", "mehd", "trex", "tfra", "tfhd", "trun", "mdat", "skip", "avc1", "drmi", "xxxx"};
constexpr uint32_t kContainers = 13;

static const char* any_type(Choices* c) { return kTypes[c->byte() % std::size(kTypes)]; }

// Version and flags.
static std::string any_version(Choices* c) {
    const uint32_t flags = c->flag() ? c->value(0xfff) : 0;
    return u32(c->once_in(4) ? 1 << 24 | flags : flags);
}

static std::string write_leaf(Choices* c) {
    static const char* const kHandlers[] = {"vide", "soun", "dhlr", "hint"};
    const uint32_t kind = c->byte() % 4;
    if (kind == 0) return handler(kHandlers[c->byte() % 4]);
    if (kind == 1) return track_header(c->value(2), 64, 48);
    std::string content = any_version(c);
    if (kind == 2) content += c->bytes(c->byte());
    for (uint32_t i = kind == 3 ? c->byte() % 26 : 0; i > 0; --i) content += u32(c->value(3));
    return box(any_type(c), content);
}

static std::string write_boxes(Choices* c, int depth) {
    std::string list;
    for (uint32_t i = 1 + c->byte() % 6; i > 0; --i) {
        const bool is_leaf = depth > 8 || !c->flag();
        const char* const type = kTypes[is_leaf ? 0 : c->byte() % kContainers];
        list += is_leaf ? write_leaf(c) : box(type, write_boxes(c, depth + 1));
    }
    return list;
}

static const uint8_t* at(const std::string& file, size_t offset) {
    return reinterpret_cast<const uint8_t*>(file.data()) + offset;
}

// Of the box, up to the end of the file if its size lies.
static size_t length_of(const std::string& file, size_t box) {
    const size_t left = file.size() - box;
    const size_t size = load_be32(at(file, box));
    return size < 8 || size > left ? left : size;
}

// The boxes of a range of the file, and those in them.
static void find_boxes(const std::string& file, size_t from, size_t end,
                       std::vector<size_t>* found) {
    while (from + 8 <= end && found->size() < 1000) {
        found->push_back(from);
        const std::string type = file.substr(from + 4, 4);
        const size_t next = from + length_of(file, from);
        const auto* const last = kTypes + kContainers;
        if (std::find(kTypes, last, type) != last) {
            find_boxes(file, from + 8, std::min(next, end), found);
        }
        from = next;
    }
}

// The box in another form, or several boxes or none for it.
static std::string changed(Choices* c, std::string whole) {
    const std::string type = whole.substr(4, 4);
    const size_t word = 8 + 4 * (c->once_in(4) ? c->byte() : c->byte() % 6);
    switch (c->byte() % 9) {
        case 0:
            return "";
        case 1:
            return whole + whole;
        case 2:
            return write_leaf(c) + whole;
        case 3:
            return whole.replace(0, 4, u32(c->value(32)));
        case 4:
            return whole.replace(4, 4, any_type(c));
        case 5:
            return whole.substr(0, 8) + any_version(c) +
                   whole.substr(std::min<size_t>(12, whole.size()));
        case 6:
            return u32(1) + type + u64(c->flag() ? whole.size() + 8 : c->value(64)) +
                   whole.substr(8);
        case 7:
            for (uint32_t n = c->once_in(8) ? 80 : 1; n > 0; --n) {
                whole = box(kTypes[c->byte() % kContainers], whole);
            }
            return whole;
        default:
            if (word + 4 <= whole.size()) whole.replace(word, 4, u32(c->value(64)));
            return whole;
    }
}

void change_box(Choices* c, std::string* file) {
    std::vector<size_t> boxes;
    find_boxes(*file, 0, file->size(), &boxes);
    if (boxes.empty()) return;
    const size_t here = boxes[c->word() % boxes.size()];
    const size_t length = length_of(*file, here);
    const size_t from = c->once_in(8) ? boxes[c->word() % boxes.size()] : here;
    const std::string fresh = changed(c, file->substr(from, length_of(*file, from)));
    for (const size_t box : c->once_in(4) ? std::vector<size_t>() : boxes) {
        const size_t size = load_be32(at(*file, box));
        if (box < here && here < box + size) {
            file->replace(box, 4, u32(size + fresh.size() - length));
        }
    }
    file->replace(here, length, fresh);
}

// One sample, and the sample entry with its configuration.
static std::string write_sample(Choices* c, std::string* entry) {
    const uint32_t kind = c->byte() % 4;
    if (kind == 1) {
        *entry = mpeg4_entry(write_m4v_config(c).substr(0, 127));
        return write_m4v_picture(c);
    }
    if (kind == 2) {
        *entry = h263_entry();
        return write_h263_picture(c);
    }
    const int length_size = 1 << c->byte() % 3;
    const AvcStream stream = write_avc_stream(c, length_size);
    *entry = avc_entry(stream.sps, stream.pps, length_size);
    return stream.sample;
}

static std::string write_movie(Choices* c) {
    MovieSpec spec;
    const uint32_t samples = 1 + c->byte() % 4;
    for (uint32_t i = 1; i <= samples; ++i) {
        spec.samples.push_back(c->once_in(8) ? "" : write_sample(c, &spec.entry));
        if (!c->once_in(4)) spec.sync.push_back(c->once_in(8) ? c->value(9) : i);
    }
    spec.samples_per_chunk = 1 + c->byte() % 3;
    spec.sample_duration = c->value(1000);
    return c->flag() ? movie_file(spec) : fragmented_file(spec, c->value(1));
}

std::string make_file(Choices* c) {
    const uint32_t mode = c->byte() % 4;
    if (mode == 0) return c->rest();
    std::string file = mode == 1 ? write_boxes(c, 0) : write_movie(c);
    for (uint32_t i = c->byte() % 8; i > 0; --i) change_box(c, &file);
    return file;
}
