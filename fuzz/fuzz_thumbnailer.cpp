// SPDX-License-Identifier: BSD-2-Clause
// From a movie's bytes to those of a picture file, by the newer reader. Six bytes choose the
// options and the rest the movie.
#include "fuzz/changed_movie.h"
#include "fuzz/target.h"
#include "tests/support/memory_source.h"
#include "tests/support/program_run.h"
#include "thumbnailer/draw_thumbnail.h"
#include "thumbnailer/inflate.h"
#include "thumbnailer/picture_check.h"

void run_target(Choices* c) {
    Options options;
    options.size.width = c->byte();
    options.size.height = c->byte();
    const unsigned flags = c->byte();
    options.size.ignores_shape = flags & 1;
    options.size.may_enlarge = flags & 2;
    options.keeps_orientation_as_stored = flags & 4;
    options.format = flags & 8 ? PictureFormat::kJpeg : PictureFormat::kPng;
    options.frames = c->byte() + 1;
    options.start.percent = c->byte() % 101;
    options.percentile = c->byte() % 101;
    MemorySource source(changed_movie(c));
    Outcome outcome;
    const std::string picture = written_by([&](FILE* file) {
        outcome =
            draw_thumbnail(&source, inflate_zlib, options, {{"Thumb::URI", "file:///"}}, file);
    });
    const auto* const bytes = reinterpret_cast<const uint8_t*>(picture.data());
    const bool is_whole = is_whole_picture({bytes, picture.size()}, options.format);
    const bool is_done = outcome.verdict == Verdict::kDone;
    if (is_done ? !is_whole : outcome.sentence.empty()) abort();
}
