// SPDX-License-Identifier: BSD-2-Clause
// What a sample entry of a video track says: codec, configuration, shape and colour.
#pragma once

#include <stdint.h>

#include <optional>
#include <vector>

// Why a movie, or one of its sample entries, is not read.
enum class MovieRefusal : uint8_t {
    kNone,
    kNotAMovie,         // no boxes of an ISO base media file
    kNoMovieBox,        // such boxes, but no "moov" among them: cut before it, or a lone segment
    kCompressedHeader,  // QuickTime's "cmov"
    kNoVideo,           // no video track with a sample entry: sound, or covers and chapters alone
    kReferenceMovie,    // QuickTime's "rmra": no video either, but the names of files that have it
    kEncrypted,         // "encv", "drmi" or a protection scheme
    kOtherCodec,        // neither H.264 nor MPEG-4 Part 2 nor H.263
};

enum class VideoCodec : uint8_t { kNone, kMpeg4, kH263, kAvc };

// As ISO 23091-2 numbers them; 2 is "unspecified".
struct ColourDescription {
    uint16_t primaries;
    uint16_t transfer;
    uint16_t matrix;
    std::optional<bool> is_full_range;  // "nclc" and short "nclx" boxes do not say
};

struct VideoDescription {
    MovieRefusal refusal = MovieRefusal::kOtherCodec;  // kNone, kEncrypted or kOtherCodec
    VideoCodec codec = VideoCodec::kNone;              // kNone when refused
    // Four-character code, first letter in the high byte. For "mp4v" with a configuration of
    // another codec, what that one is usually called.
    uint32_t format = 0;
    uint32_t width = 0;  // as coded, in pixels; 0 where the entry does not tell
    uint32_t height = 0;
    // H.264: bytes in front of each NAL unit in what Movie::read_sample gives; 1, 2 or 4.
    // 0 for the other codecs.
    uint32_t length_prefix_size = 0;
    // H.264: all sequence, then all picture parameter sets, each preceded by its length
    // of two bytes, big-endian; none when they come in the samples. MPEG-4: DecoderSpecificInfo.
    // H.263: the content of "d263". Empty where the entry has none.
    std::vector<uint8_t> configuration;
    uint32_t pixel_width = 0;  // pixel aspect ratio ("pasp"), 0 and 0 if not stated
    uint32_t pixel_height = 0;
    std::optional<ColourDescription> colour;  // "colr"
};
