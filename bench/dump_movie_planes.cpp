// SPDX-License-Identifier: BSD-2-Clause
// usage: dump_movie_planes FILE
// Decodes the first key frame as keystill-thumbnailer does, and writes its planes. Exit status 1
// without any output when there is no picture.
#include <stdio.h>

#include "bench/plane_dump.h"
#include "thumbnailer/decode_frame.h"

int main(int argc, char** argv) {
    std::optional<FileSource> source = FileSource::open(argc > 1 ? argv[1] : "");
    if (!source) return 1;
    Movie movie(&*source);
    const std::vector<MovieKeyFrame> frames = movie.key_frames_from(0, 1);
    DecodedFrame decoded;
    if (frames.empty() || decode_frame(&movie, frames[0], &decoded).verdict != Verdict::kDone) {
        return 1;
    }
    return dump_picture(decoded.picture);
}
