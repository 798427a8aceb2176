// SPDX-License-Identifier: BSD-2-Clause
#include "fuzz/changed_movie.h"

#include <algorithm>
#include <vector>

#include "runtime/byte_order.h"
#include "tests/support/box_builder.h"
#include "tests/support/temp_folder.h"

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
    const uint32_t kind = c->byte() % 3;
    if (kind == 0) return handler(c->flag() ? "vide" : "soun");
    std::string content = any_version(c);
    if (kind == 1) content += c->bytes(c->byte());
    for (uint32_t i = kind == 2 ? c->byte() % 26 : 0; i > 0; --i) content += u32(c->value(3));
    return box(any_type(c), content);
}

static uint32_t size_field(const std::string& file, size_t box) {
    return load_be32(reinterpret_cast<const uint8_t*>(file.data()) + box);
}

// Of the box, up to the end of the file if its size lies.
static size_t length_of(const std::string& file, size_t box) {
    const size_t left = file.size() - box;
    const size_t size = size_field(file, box);
    return size < 8 || size > left ? left : size;
}

// The boxes of a range of the file, and those in them.
static void find_boxes(const std::string& file, size_t from, size_t end,
                       std::vector<size_t>* found) {
    const auto* const last = kTypes + kContainers;
    for (size_t next; from + 8 <= end && found->size() < 1000; from = next) {
        found->push_back(from);
        next = std::min(from + length_of(file, from), end);
        const bool is_leaf = std::find(kTypes, last, file.substr(from + 4, 4)) == last;
        if (!is_leaf) find_boxes(file, from + 8, next, found);
    }
}

// Other boxes in place of a box.
static std::string replacement(Choices* c, std::string whole) {
    const size_t word = 8 + 4 * (c->byte() % (c->once_in(4) ? 100 : 6));
    const std::string type = whole.substr(4, 4), content = whole.substr(8);
    const char* const container = kTypes[c->byte() % kContainers];
    const uint32_t kind = c->byte() % 7;
    if (kind == 0) return c->flag() ? "" : (c->flag() ? whole : write_leaf(c)) + whole;
    if (kind == 1) return u32(c->value(32)) + type + content;
    if (kind == 2)
        return u32(1) + type + u64(c->flag() ? whole.size() + 8 : c->value(64)) + content;
    if (kind == 3) return whole.replace(4, 4, any_type(c));
    if (kind == 4) return whole.replace(std::min<size_t>(8, whole.size() - 4), 4, any_version(c));
    if (kind == 6) return whole.replace(std::min(word, whole.size() - 4), 4, u32(c->value(64)));
    for (uint32_t n = c->once_in(8) ? 80 : 1; n > 0; --n) whole = box(container, whole);
    return whole;
}

// Changes one box, with or without telling the boxes around it.
static void change_box(Choices* c, std::string* file) {
    std::vector<size_t> boxes;
    find_boxes(*file, 0, file->size(), &boxes);
    if (boxes.empty()) return;
    const size_t here = boxes[c->word() % boxes.size()];
    const size_t length = length_of(*file, here);
    const size_t from = c->once_in(8) ? boxes[c->word() % boxes.size()] : here;
    const std::string fresh = replacement(c, file->substr(from, length_of(*file, from)));
    if (c->once_in(4)) boxes.clear();
    for (const size_t box : boxes) {
        const size_t size = size_field(*file, box);
        const bool is_around = box < here && here < box + size;
        if (is_around) file->replace(box, 4, u32(size + fresh.size() - length));
    }
    file->replace(here, length, fresh);
}

std::string changed_movie(Choices* c) {
    Choices changes = c->part(100);
    std::string file = c->bytes();
    for (uint32_t i = changes.byte() % 8; i > 0; --i) change_box(&changes, &file);
    return file;
}

const char* store_file(const std::string& bytes) {
    static const TempFolder folder;
    static const std::string path = folder.path("x.mp4");
    write_file(path, bytes);
    return path.c_str();
}
