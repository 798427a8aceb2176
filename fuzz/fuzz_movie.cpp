// SPDX-License-Identifier: BSD-2-Clause
// Key frames of movies by the newer reader. Six bytes choose what is asked for and how long the
// file seems to go on with zeros.
#include "fuzz/changed_movie.h"
#include "fuzz/target.h"
#include "movie/movie.h"
#include "tests/support/memory_source.h"

static void expect(bool is_so) {
    if (!is_so) abort();
}

void run_target(Choices* c) {
    const size_t count = 1 + c->byte() % 32;
    const int64_t time_us = static_cast<int64_t>(c->word()) * 100000;
    const uint64_t zeros_after = uint64_t{c->word()} << c->byte() % 32;
    std::string file = changed_movie(c);
    const uint64_t size = file.size() + zeros_after;
    MemorySource source(std::move(file), size);
    Movie movie(&source, inflate_as_it_is);
    note_result(static_cast<int>(movie.refusal()));
    const std::vector<MovieKeyFrame> found = movie.key_frames_from(time_us, count);
    expect(found.size() <= count && movie.duration_us() >= 0);
    expect(movie.refusal() == MovieRefusal::kNone || found.empty());
    expect(movie.orientation() >= Orientation::kUpright);
    for (size_t i = 0; i < movie.descriptions().size(); ++i) expect(movie.pixel_aspect(i) >= 0);
    for (const MovieKeyFrame& key_frame : found) {
        expect(key_frame.size != 0 && key_frame.offset <= size - key_frame.size);
        expect(key_frame.time_us >= 0 || found.size() == 1);
        const VideoDescription& description = movie.descriptions().at(key_frame.description);
        expect(description.refusal == MovieRefusal::kNone);
        std::vector<uint8_t> sample;
        expect(movie.read_sample(key_frame, &sample) || key_frame.size > kMaxSampleSize);
        note_result(sample.data(), sample.size());
        note_result(static_cast<int>(key_frame.time_us));
    }
}
