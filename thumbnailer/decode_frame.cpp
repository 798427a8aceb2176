// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/decode_frame.h"

#include <bit>
#include <span>
#include <vector>

#include "movie/intra_probe.h"
#include "thumb/decode_key_frame.h"
#include "thumbnailer/huge_pages.h"
#include "thumbnailer/refusals.h"

static int32_t codec_kind(VideoCodec codec) {
    switch (codec) {
        case VideoCodec::kAvc:
            return kCodecAvc;
        case VideoCodec::kMpeg4:
            return kCodecMpeg4;
        case VideoCodec::kH263:
            return kCodecH263;
        case VideoCodec::kNone:
            break;
    }
    return kCodecNone;
}

// What stands in for parameter sets where they come in the samples: the decoder wants some unit in
// front, and an access unit delimiter (H.264 7.3.2.4) says nothing.
static std::vector<uint8_t> configuration_of(const VideoDescription& description) {
    if (description.codec == VideoCodec::kAvc && description.configuration.empty()) {
        return {0, 2, 0x09, 0x10};
    }
    return description.configuration;
}

// The identifier of a sequence parameter set (H.264 7.3.2.1.1), which stands after four bytes and
// has at most 11 bits. -1 when the unit is none.
static int sequence_set_id(std::span<const uint8_t> unit) {
    constexpr uint8_t kSequenceSet = 7;
    constexpr size_t kIdAt = 4;
    if (unit.size() < kIdAt + 2 || (unit[0] & 0x1f) != kSequenceSet) return -1;
    const uint32_t bits = uint32_t{unit[kIdAt]} << 24 | uint32_t{unit[kIdAt + 1]} << 16;
    const int zeros = std::countl_zero(bits);
    return zeros > 5 ? -1 : static_cast<int>(bits >> (31 - 2 * zeros)) - 1;
}

// Puts a copy of the set in front of the configuration, where it decides for which one the picture
// is made. Returns false when there is no such set, or it is there already.
static bool put_first(int id, std::vector<uint8_t>* configuration) {
    const std::span<const uint8_t> units = *configuration;
    for (size_t at = 0; units.size() - at > 2;) {
        const size_t end = at + 2 + (size_t{units[at]} << 8 | units[at + 1]);
        if (end > units.size()) return false;
        if (sequence_set_id(units.subspan(at + 2, end - at - 2)) == id) {
            const std::vector<uint8_t> set(units.begin() + static_cast<ptrdiff_t>(at),
                                           units.begin() + static_cast<ptrdiff_t>(end));
            configuration->insert(configuration->begin(), set.begin(), set.end());
            return at > 0;
        }
        at = end;
    }
    return false;
}

// Whether the first set of H.264, behind its length, is of High 4:4:4 Predictive, which
// kAvcOldFlags is about.
static bool may_have_old_flags(std::span<const uint8_t> configuration) {
    constexpr uint8_t kHigh444Predictive = 244;
    return configuration.size() > 3 && configuration[3] == kHigh444Predictive;
}

// Phones called MPEG-4 by the name of the older codec.
static VideoCodec codec_of(const VideoDescription& description, std::span<const uint8_t> sample) {
    const bool is_misnamed = description.codec == VideoCodec::kH263 && begins_like_mpeg4(sample);
    return is_misnamed ? VideoCodec::kMpeg4 : description.codec;
}

// Decodes with a copy of the configuration, since decoding changes it.
static Outcome decode(Movie* movie, const MovieKeyFrame& key_frame,
                      std::vector<uint8_t> configuration, bool has_old_flags, DecodedFrame* decoded,
                      KeyFrameRefusal* refusal) {
    const VideoDescription& description = movie->descriptions()[key_frame.description];
    std::vector<uint8_t> sample;
    if (!movie->read_sample(key_frame, &sample)) {
        return {Verdict::kNoPicture, "The video's key frames cannot be read."};
    }
    const VideoCodec codec = codec_of(description, sample);
    // A codec without a configuration has an empty one, which is not none.
    const size_t configuration_length = configuration.size();
    if (configuration.empty()) configuration.resize(1);
    KeyFrame frame = {};
    frame.config = configuration.data();
    frame.config_length = static_cast<int32_t>(configuration_length);
    frame.sample = sample.data();
    frame.bytes_read = static_cast<int32_t>(sample.size());
    frame.sample_capacity = frame.bytes_read;
    frame.length_prefix_size = static_cast<int32_t>(description.length_prefix_size);
    frame.allows_more_formats = true;
    frame.has_old_flags = has_old_flags;
    const HugePages huge_pages(uint64_t{description.width} * description.height * 3 / 2);
    if (decode_key_frame(frame, codec_kind(codec), &decoded->picture, refusal) != 0) {
        return outcome_of(codec, *refusal);
    }
    decoded->planes.reset(decoded->picture.planes);
    return {};
}

Outcome decode_frame(Movie* movie, const MovieKeyFrame& key_frame, DecodedFrame* decoded) {
    std::vector<uint8_t> configuration =
        configuration_of(movie->descriptions()[key_frame.description]);
    KeyFrameRefusal refusal = {};
    Outcome outcome = decode(movie, key_frame, configuration, false, decoded, &refusal);
    const bool is_damaged = refusal.avc.reason == AvcRefusal::kSliceData ||
                            refusal.avc.reason == AvcRefusal::kSliceCutOff;
    if (is_damaged && may_have_old_flags(configuration)) {
        return decode(movie, key_frame, configuration, true, decoded, &refusal);
    }
    const bool is_for_another_set = refusal.avc.reason == AvcRefusal::kOtherSequenceSet;
    if (!is_for_another_set || !put_first(static_cast<int>(refusal.avc.value), &configuration)) {
        return outcome;
    }
    return decode(movie, key_frame, configuration, false, decoded, &refusal);
}
