// SPDX-License-Identifier: BSD-2-Clause
// The key frames of a movie as pictures, each as keystill would write it.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "explain/examination.h"

struct Candidate {
    KeyFrameRow row;
    std::string jpeg;                       // "" where there is no picture
    std::string missing;                    // why, then
    int first_percentile, last_percentile;  // that pick it, -1 if none does
};

// A file in memory that pictures are written to. To be made before a sandbox is entered.
class PictureBuffer {
 public:
    PictureBuffer();
    ~PictureBuffer();
    PictureBuffer(const PictureBuffer&) = delete;
    PictureBuffer& operator=(const PictureBuffer&) = delete;
    const char* path() const { return path_.c_str(); }  // for writing
    std::string read() const;

 private:
    int descriptor_;
    std::string path_;
};

// Those among the rows that are not empty, up to `most`; when there are more, those around the
// collected ones. The rows have to be all of the movie's.
std::vector<Candidate> draw_candidates(const Examination& found, size_t most,
                                       const PictureBuffer& buffer);
