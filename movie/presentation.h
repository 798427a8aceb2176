// SPDX-License-Identifier: BSD-2-Clause
// From the times of a track's samples to those that viewers see (ISO 14496-12 8.6.6, edit lists).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

// value * to / from, rounded to the past, at most what 64 bits hold. from is not 0.
int64_t rescale(int64_t value, uint32_t from, uint32_t to);

constexpr uint32_t kMicroseconds = 1000000;

struct Edit {
    int64_t duration;    // in the movie's time scale, 0: to the end of the media
    int64_t media_time;  // in the track's time scale, -1: nothing is shown
};

class Presentation {
 public:
    Presentation() = default;
    // Time scales are not 0. Without edits the media is shown as it is. `origin` is where the
    // media's time starts, at least 0: that of a recorded broadcast may be a date.
    Presentation(const std::vector<Edit>& edits, uint32_t movie_scale, uint32_t media_scale,
                 int64_t origin = 0);

    // When the sample with this composition time is shown, in microseconds. Outside of all edits
    // the time follows from the first one, so that what comes before it is negative. Without edits
    // nothing is.
    int64_t shown_at(int64_t media_time) const;
    // Whether it comes after the first edit's start and is in none of the edits.
    bool is_cut_off_behind(int64_t media_time) const;
    // How many stretches of the media are looked through for a time.
    size_t edit_count() const { return segments_.size(); }
    // No sample with a composition time before this one is shown at time_us or later.
    int64_t earliest_media_time(int64_t time_us) const;
    // Sum of the edits in microseconds, 0 if there are none or one goes to the end of the media.
    int64_t duration_us() const { return duration_us_; }

 private:
    struct Segment {
        bool holds(int64_t media_time) const {
            return media_begin <= media_time && media_time < media_end;
        }
        int64_t media_begin, media_end;  // in the track's time scale
        int64_t shown_us;                // start in the presentation
    };
    std::vector<Segment> segments_;
    uint32_t media_scale_ = 1;
    int64_t origin_ = 0;
    bool is_cut_ = false;
    int64_t duration_us_ = 0;
};
