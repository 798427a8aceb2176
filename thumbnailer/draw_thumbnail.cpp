// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/draw_thumbnail.h"

#include <algorithm>

#include "movie/movie.h"
#include "thumbnailer/decode_frame.h"
#include "thumbnailer/frame_choice.h"
#include "thumbnailer/inflate.h"
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
        const Outcome outcome = decode_frame(movie, candidates[i], decoded);
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

static bool write_picture(const UprightPicture& upright, const Options& options,
                          const std::vector<PngText>& texts, FILE* file) {
    return options.format == PictureFormat::kPng ? write_png(upright, texts, file)
                                                 : write_jpeg(upright, options.quality, file);
}

Outcome draw_thumbnail(ByteSource* source, const Options& options,
                       const std::vector<PngText>& texts, FILE* file) {
    Movie movie(source, inflate_zlib);
    if (movie.refusal() != MovieRefusal::kNone) {
        return outcome_of(movie.refusal(), movie.refused_format());
    }
    DecodedFrame decoded;
    MovieKeyFrame shown = {};
    const Outcome outcome = decode_any(&movie, options, &decoded, &shown);
    if (outcome.verdict != Verdict::kDone) return outcome;
    UprightPicture upright;
    switch (
        make_upright(decoded.picture, hints_of(movie, shown, options), options.size, &upright)) {
        case UprightStatus::kNothingVisible:
            return {Verdict::kNoPicture, "The video's cropping leaves no picture."};
        case UprightStatus::kNoMemory:
            return {Verdict::kNoPicture, "There is not enough memory."};
        case UprightStatus::kDone:
            break;
    }
    if (!upright.is_borrowing()) decoded.planes.reset();
    if (write_picture(upright, options, texts, file)) return {};
    return {Verdict::kNoPicture, "The picture cannot be compressed or written."};
}
