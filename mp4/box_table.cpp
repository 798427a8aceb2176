// SPDX-License-Identifier: BSD-2-Clause
// Which handler interprets which box. The first match wins.
#include <stdint.h>
#include <string.h>

#include <array>
#include <iterator>

#include "mp4/box_reader.h"
#include "mp4/fragments.h"
#include "mp4/sample_description.h"
#include "mp4/sample_tables.h"
#include "mp4/track_headers.h"

struct BoxTableRow {
    char type[5];
    BoxHandler handler;
};

// clang-format off
static constexpr BoxTableRow kBoxTable[] = {
    {"ftyp", mp4_parse_ftyp},
    {"mvhd", mp4_parse_mvhd},
    {"tkhd", mp4_parse_tkhd},
    {"mdhd", mp4_parse_mdhd},
    {"hdlr", mp4_parse_hdlr},
    {"vmhd", mp4_skip_box},
    {"smhd", mp4_skip_box},
    {"stsd", mp4_parse_stsd},
    {"stts", mp4_parse_stts},
    {"stsz", mp4_parse_stsz},
    {"stco", mp4_parse_stco},
    {"moov", mp4_parse_container},
    {"trak", mp4_parse_container},
    {"edts", mp4_parse_container},
    {"mdia", mp4_parse_container},
    {"minf", mp4_parse_container},
    {"dinf", mp4_parse_container},
    {"stbl", mp4_parse_container},
    {"mvex", mp4_parse_container},
    {"moof", mp4_parse_moof},
    {"traf", mp4_parse_container},
    {"mfra", mp4_parse_container},
    {"udta", mp4_parse_container},
    {"meta", mp4_parse_meta},
    {"ipro", mp4_skip_box},
    {"sinf", mp4_skip_box},
    {"mdat", mp4_parse_mdat},
    {"cprt", mp4_skip_box},
    {"pdin", mp4_skip_box},
    {"tref", mp4_skip_box},
    {"elst", mp4_skip_box},
    {"hmhd", mp4_skip_box},
    {"nmhd", mp4_skip_box},
    {"dref", mp4_skip_box},
    {"url ", mp4_skip_box},
    {"urn ", mp4_skip_box},
    {"ctts", mp4_skip_box},
    {"stsc", mp4_parse_stsc},
    {"stz2", mp4_skip_box},  // compact sample sizes are not supported
    {"co64", mp4_skip_box},  // nor are 64-bit chunk offsets
    {"stss", mp4_parse_stss},
    {"stsh", mp4_skip_box},
    {"padb", mp4_skip_box},
    {"stdp", mp4_skip_box},
    {"sdtp", mp4_skip_box},
    {"sbgp", mp4_skip_box},
    {"subs", mp4_skip_box},
    {"mehd", mp4_parse_mehd},
    {"trex", mp4_parse_trex},
    {"tfhd", mp4_parse_tfhd},
    {"trun", mp4_parse_trun},
    {"tfra", mp4_parse_tfra},
    {"ipmc", mp4_skip_box},
    {"mfhd", mp4_skip_box},
    {"mfro", mp4_skip_box},
    {"free", mp4_parse_free},
    {"skip", mp4_skip_box},
    {"iloc", mp4_skip_box},
    {"frma", mp4_skip_box},
    {"imif", mp4_skip_box},
    {"schm", mp4_skip_box},
    {"schi", mp4_skip_box},
    {"iinf", mp4_skip_box},
    {"xml ", mp4_skip_box},
    {"bxml", mp4_skip_box},
    {"pitm", mp4_skip_box},
    {"sgpd", mp4_skip_box},
    {"drm ", mp4_skip_box},
    {"titl", mp4_skip_box},
    {"dscp", mp4_skip_box},
    {"auth", mp4_skip_box},
    {"perf", mp4_skip_box},
    {"yrrc", mp4_skip_box},
    {"rate", mp4_skip_box},
    {"iods", mp4_skip_box},
    {"esds", mp4_skip_box},
    {"mp4v", mp4_skip_box},
    {"mp4a", mp4_skip_box},
    {"mp4s", mp4_skip_box},
    {"ilst", mp4_parse_container},
    {"\251nam", mp4_skip_box},  // 251 octal is the copyright sign
    {"\251ART", mp4_skip_box},
    {"aART", mp4_skip_box},
    {"\251alb", mp4_skip_box},
    {"\251gen", mp4_skip_box},
    {"\251day", mp4_skip_box},
    {"gnre", mp4_skip_box},
    {"covr", mp4_skip_box},
    {"trkn", mp4_skip_box},
    {"cpil", mp4_skip_box},
    {"\251wrt", mp4_skip_box},
    {"\251cmt", mp4_skip_box},
    {"wide", mp4_skip_box},
};
// clang-format on
static_assert(sizeof kBoxTable / sizeof kBoxTable[0] == 93);

// The walk asks once a box: rows by a hash of their type, in the next free slot where that is
// taken.
constexpr uint32_t kSlots = 256;

static constexpr uint32_t next_slot(uint32_t slot) { return (slot + 1) % kSlots; }
static constexpr uint32_t slot_of(const char* type) {
    uint32_t code = 0;
    for (int i = 0; i < 4; ++i) code = code << 8 | static_cast<uint8_t>(type[i]);
    return code * 0x9e3779b1U >> 24;
}

// One more than the row's number; 0 is a free slot.
static constexpr auto kRowsBySlot = [] {
    std::array<uint8_t, kSlots> rows = {};
    for (size_t row = 0; row < std::size(kBoxTable); ++row) {  // the first of a type is met first
        uint32_t slot = slot_of(kBoxTable[row].type);
        while (rows[slot] != 0) slot = next_slot(slot);
        rows[slot] = static_cast<uint8_t>(row + 1);
    }
    return rows;
}();

BoxHandler mp4_find_handler(const char* type) {
    for (uint32_t slot = slot_of(type); kRowsBySlot[slot] != 0; slot = next_slot(slot)) {
        const BoxTableRow& row = kBoxTable[kRowsBySlot[slot] - 1];
        if (memcmp(row.type, type, 4) == 0) return row.handler;
    }
    return nullptr;
}
