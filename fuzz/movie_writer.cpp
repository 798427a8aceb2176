// SPDX-License-Identifier: BSD-2-Clause
#include "fuzz/movie_writer.h"

#include <algorithm>

#include "fuzz/avc_writer.h"
#include "fuzz/m4v_noise_writer.h"
#include "tests/support/box_builder.h"

static const char* const kContainers[] = {"moov", "trak", "mdia", "minf", "stbl", "udta", "mvex",
                                          "moof", "traf", "mfra", "meta", "dinf", "edts", "free"};
static const char* const kLeaves[] = {"ftyp", "mvhd", "tkhd", "mdhd", "hdlr", "stsd", "stts",
                                      "stss", "stsc", "stsz", "stco", "co64", "mehd", "trex",
                                      "tfra", "tfhd", "trun", "mdat", "free", "skip", "xxxx"};

static std::string tampered_size(Choices* c, std::string whole) {
    if (c->once_in(8)) whole.replace(0, 4, u32(c->value(32)));
    if (c->once_in(16)) whole = u32(1) + whole.substr(4, 4) + u64(c->value(64)) + whole.substr(8);
    return whole;
}

static std::string write_leaf(Choices* c) {
    const char* const type = kLeaves[c->byte() % std::size(kLeaves)];
    std::string content = words({c->once_in(4) ? c->value(0x30f) : 0});
    switch (c->byte() % 4) {
        case 0:
            return tampered_size(c, handler("vide"));
        case 1:
            return tampered_size(c, track_header(1 + c->once_in(8), 64, 48));
        case 2:
            content += c->bytes(c->byte());
            break;
        default:
            for (uint32_t i = c->byte() % 24; i > 0; --i) content += u32(c->value(3));
    }
    return tampered_size(c, box(type, content));
}

std::string write_boxes(Choices* c, int depth) {
    std::string list;
    for (uint32_t i = 1 + c->byte() % 6; i > 0; --i) {
        if (depth > 8 || !c->flag()) {
            list += write_leaf(c);
        } else {
            const char* const type = kContainers[c->byte() % std::size(kContainers)];
            list += tampered_size(c, box(type, write_boxes(c, depth + 1)));
        }
    }
    return list;
}

// Replaces, inserts and removes bytes of boxes.
static void change_somewhere(Choices* c, std::string* movie) {
    const size_t at = c->below(65536) % (movie->size() + 1);
    switch (c->byte() % 5) {
        case 0:
            movie->replace(at, std::min<size_t>(4, movie->size() - at), u32(c->value(64)));
            break;
        case 1:
            movie->insert(at, write_leaf(c));
            break;
        case 2:
            movie->erase(at, c->byte());
            break;
        case 3: {
            const size_t from = c->below(65536) % (movie->size() + 1);
            movie->insert(at, movie->substr(from, c->byte()));
            break;
        }
        default:
            if (at < movie->size()) (*movie)[at] = static_cast<char>(c->byte());
    }
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
    AvcSyntax syntax;
    const std::string sps = write_sps(c, &syntax);
    const int length_size = 1 << c->byte() % 3;
    *entry = avc_entry(sps, write_pps(c, &syntax), length_size);
    return write_avc_stream(c, length_size).sample;
}

std::string write_movie(Choices* c) {
    MovieSpec spec;
    const uint32_t samples = 1 + c->byte() % 4;
    for (uint32_t i = 1; i <= samples; ++i) {
        spec.samples.push_back(c->once_in(8) ? "" : write_sample(c, &spec.entry));
        if (!c->once_in(4)) spec.sync.push_back(c->once_in(8) ? c->value(9) : i);
    }
    spec.samples_per_chunk = 1 + c->byte() % 3;
    spec.sample_duration = c->value(1000);
    std::string movie = c->flag() ? movie_file(spec) : fragmented_file(spec, c->value(1));
    for (uint32_t i = c->byte() % 8; i > 0; --i) change_somewhere(c, &movie);
    return movie;
}
