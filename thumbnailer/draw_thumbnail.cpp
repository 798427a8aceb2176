// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/draw_thumbnail.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "thumbnailer/decode_frame.h"
#include "thumbnailer/frame_choice.h"
#include "thumbnailer/refusals.h"

// How many key frames are tried before the file is given up.
constexpr size_t kMostTries = 12;

static void append_new(const std::vector<MovieKeyFrame>& others,
                       std::vector<MovieKeyFrame>* frames) {
    for (const MovieKeyFrame& other : others) {
        const bool is_known =
            std::any_of(frames->begin(), frames->end(),
                        [&](const MovieKeyFrame& frame) { return frame.offset == other.offset; });
        if (!is_known) frames->push_back(other);
    }
}

// Decodes the first of the frames that can be. The outcome is the first one's if none can.
static Outcome decode_any(Movie* movie, const Options& options, DecodedFrame* decoded,
                          MovieKeyFrame* shown) {
    const int64_t start_us = start_time_us(movie, options.start);
    const auto chosen_by = [&](Trust trust) {
        return frames_by_percentile(
            movie->key_frames_from(start_us, static_cast<size_t>(options.frames), trust),
            options.percentile);
    };
    std::vector<MovieKeyFrame> candidates = chosen_by(Trust::kIndex);
    if (candidates.empty()) return {Verdict::kNoPicture, "There is no key frame in this video."};
    Outcome first;
    bool has_others = false;
    for (size_t i = 0; i < kMostTries; ++i) {
        if (i == candidates.size() && !has_others) {
            has_others = true;
            append_new(chosen_by(Trust::kSamples), &candidates);
            append_new(movie->key_frames_from(0, kMostTries), &candidates);
        }
        if (i >= candidates.size()) break;
        Outcome outcome = decode_frame(movie, candidates[i], decoded);
        *shown = candidates[i];
        if (outcome.verdict == Verdict::kDone) return outcome;
        if (i == 0) first = outcome;
    }
    return first;
}

static ShowingHints hints_of(const Movie& movie, const MovieKeyFrame& frame,
                             const Options& options) {
    const VideoDescription& description = movie.descriptions()[frame.description];
    ShowingHints hints;
    // Other codecs state their size themselves, to the sample.
    if (description.codec == VideoCodec::kAvc) {
        constexpr uint32_t kMost = 65535;
        hints.stated_size = {static_cast<int32_t>(std::min(description.width, kMost)),
                             static_cast<int32_t>(std::min(description.height, kMost))};
    }
    hints.pixel_aspect = movie.pixel_aspect(frame.description);
    if (!options.keeps_orientation_as_stored) {
        hints.turn = turn_of_orientation(static_cast<int>(movie.orientation()));
    }
    if (description.colour) {
        hints.matrix_coefficients = description.colour->matrix;
        if (description.colour->is_full_range)
            hints.full_range = *description.colour->is_full_range;
    }
    return hints;
}

// A key frame and what a player makes of it.
struct ShownFrame {
    MovieKeyFrame frame = {};
    DecodedFrame decoded;  // empty when the picture is a copy
    UprightPicture upright;
};

static Outcome make_visible(const Movie& movie, const Options& options, ShownFrame* shown) {
    const ChromaSize chroma =
        options.format == PictureFormat::kJpeg ? ChromaSize::kHalf : ChromaSize::kFull;
    switch (make_upright(shown->decoded.picture, hints_of(movie, shown->frame, options),
                         options.size, chroma, &shown->upright)) {
        case UprightStatus::kNothingVisible:
            return {Verdict::kNoPicture, "The video's cropping leaves no picture."};
        case UprightStatus::kNoMemory:
            return {Verdict::kNoPicture, "There is not enough memory."};
        case UprightStatus::kDone:
            break;
    }
    if (!shown->upright.is_borrowing()) shown->decoded.planes.reset();
    return {};
}

// A blank picture gives way to one that has far more to show: of the key frames around the start,
// the beginning and the middle those that are coded into several times its bytes.
static void replace_blank(Movie* movie, const Options& options, ShownFrame* shown) {
    constexpr uint32_t kTimesTheBytes = 4;
    const size_t count = static_cast<size_t>(options.frames);
    std::vector<MovieKeyFrame> others =
        movie->key_frames_from(start_time_us(movie, options.start), count);
    append_new(movie->key_frames_from(0, kMostTries), &others);
    append_new(movie->key_frames_from(movie->duration_us() / 2, kMostTries), &others);
    std::erase_if(others, [&](const MovieKeyFrame& other) {
        return other.size / kTimesTheBytes < shown->frame.size;
    });
    others = frames_by_percentile(std::move(others), options.percentile);
    for (size_t i = 0; i < std::min(others.size(), kMostTries); ++i) {
        ShownFrame other;
        other.frame = others[i];
        if (decode_frame(movie, other.frame, &other.decoded).verdict != Verdict::kDone) continue;
        if (make_visible(*movie, options, &other).verdict != Verdict::kDone) continue;
        if (is_blank(other.upright)) continue;
        *shown = std::move(other);
        return;
    }
}

static bool write_picture(const UprightPicture& upright, const Options& options,
                          const std::vector<PngText>& texts, FILE* file) {
    return options.format == PictureFormat::kPng ? write_png(upright, texts, file)
                                                 : write_jpeg(upright, options.quality, file);
}

Outcome draw_thumbnail(ByteSource* source, Inflater inflater, const Options& options,
                       const std::vector<PngText>& texts, FILE* file) {
    if (options.format == PictureFormat::kPng && !prepare_to_write_png()) {
        return {Verdict::kNoPicture,
                "The library that writes PNG files (libpng) cannot be loaded."};
    }
    Movie movie(source, inflater);
    if (movie.refusal() != MovieRefusal::kNone) {
        return outcome_of(movie.refusal(), movie.refused_format());
    }
    ShownFrame shown;
    Outcome outcome = decode_any(&movie, options, &shown.decoded, &shown.frame);
    if (outcome.verdict == Verdict::kDone) outcome = make_visible(movie, options, &shown);
    if (outcome.verdict != Verdict::kDone) return outcome;
    // Who names a time, or one frame, wants that.
    const bool is_free_to_choose = options.frames > 1 && options.start.time_us < 0;
    if (is_free_to_choose && is_blank(shown.upright)) replace_blank(&movie, options, &shown);
    if (write_picture(shown.upright, options, texts, file)) return {};
    return {Verdict::kNoPicture, "The picture cannot be compressed or written."};
}
