// SPDX-License-Identifier: BSD-2-Clause
// Reads the key frames of ISO base media files (ISO 14496-12, QuickTime, 3GPP), fragmented or not.
// A movie is looked up where it is asked for: tables and fragments stay in the source, and only
// what stands around the wanted time is read. Whatever the bytes are, memory stays small and the
// work of one movie is bounded (kMovieWork); a movie that needs more ends early.
#pragma once

#include <stdint.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "movie/byte_source.h"
#include "movie/movie_key_frame.h"
#include "movie/video_description.h"

// EXIF's numbers: what the stored picture needs to be upright. Turns are clockwise.
enum class Orientation : uint8_t {
    kUpright = 1,
    kMirrored = 2,  // left and right change places
    kTurned180 = 3,
    kFlipped = 4,     // top and bottom change places
    kTransposed = 5,  // rows become columns
    kTurned90 = 6,
    kTransversed = 7,  // rows become columns, then turned by 180 degrees
    kTurned270 = 8,
};

// Fills `into` with what the zlib stream inflates to. Returns false unless that is its size.
using Inflater = bool (*)(std::span<const uint8_t> stream, std::span<uint8_t> into);

class Movie {
 public:
    // Reads the headers and chooses the video track: not a cover picture or a chapter track; one
    // with samples before one without, an enabled one before a disabled one, one that can be
    // decoded before another, then the longest.
    // The source has to outlive the movie. Without an inflater compressed headers are refused.
    explicit Movie(ByteSource* source, Inflater inflater = nullptr);
    ~Movie();
    Movie(const Movie&) = delete;
    Movie& operator=(const Movie&) = delete;

    // Why there are no key frames to be had, or kNone. All below is empty then.
    MovieRefusal refusal() const;
    // With kEncrypted and kOtherCodec: the four-character code of the video's sample entry, such
    // as "encv", "hvc1" or "av01", with '?' for what is not printable. Otherwise empty.
    std::string refused_format() const;

    // The track's sample entries. At least one is not refused.
    const std::vector<VideoDescription>& descriptions() const;
    // What the display matrices of track and movie come nearest to.
    Orientation orientation() const;
    // Width of a coded pixel by its height, 0 if nothing is said. As players do it, this goes by
    // the sample entry with that index, else by how the display matrices stretch, else by the size
    // in the track header.
    double pixel_aspect(size_t description) const;
    // The track header's size in pixels before it is turned, fractions cut off. 0 if not stated.
    uint32_t display_width() const;
    uint32_t display_height() const;
    // Of the presentation, 0 if unknown. With fragments that no header sums up this looks for the
    // last one.
    int64_t duration_us();

    // Up to `count` key frames in the order of decoding, from the first one shown at `time_us` or
    // later on. When there is none, the last one before. Those that the source cuts do not count;
    // if it cuts all, one of them is given as far as it goes. The result is empty if there is none.
    // What an edit list cuts off at the start has negative times; it comes last, and what one cuts
    // off at the end after that.
    std::vector<MovieKeyFrame> key_frames_from(int64_t time_us, size_t count,
                                               Trust trust = Trust::kSamples);

    // Replaces `sample` by the key frame's bytes. NAL units of H.264 have a length prefix of
    // VideoDescription::length_prefix_size bytes in front (1, 2 or 4; 3 in the source become 4).
    // Returns false, with nothing in `sample`, when the bytes cannot be read or are more than
    // kMaxSampleSize.
    bool read_sample(const MovieKeyFrame& key_frame, std::vector<uint8_t>* sample);

 private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

constexpr uint32_t kMaxSampleSize = 64 << 20;
