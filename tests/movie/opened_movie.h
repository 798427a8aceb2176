// SPDX-License-Identifier: BSD-2-Clause
// A movie of bytes in memory, and what comes of asking it for key frames.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "movie/movie.h"
#include "movie/source_reader.h"
#include "tests/support/film_builder.h"
#include "tests/support/memory_source.h"

constexpr size_t kAll = 1000000;

struct OpenedMovie {
    // With zeros after the bytes if the size is larger.
    explicit OpenedMovie(std::string bytes, uint64_t size = 0)
        : source(bytes, std::max<uint64_t>(bytes.size(), size)) {}
    Movie* operator->() { return &movie; }

    std::vector<int64_t> times_ms(int64_t from_ms = 0, size_t count = kAll) {
        std::vector<int64_t> out;
        for (const MovieKeyFrame& key_frame : movie.key_frames_from(from_ms * 1000, count)) {
            out.push_back(key_frame.time_us / 1000);
        }
        return out;
    }
    std::string bytes_of(const MovieKeyFrame& key_frame) {
        std::vector<uint8_t> sample;
        EXPECT_LE(key_frame.offset + key_frame.size, source.size());
        EXPECT_TRUE(movie.read_sample(key_frame, &sample));
        return {sample.begin(), sample.end()};
    }
    std::vector<std::string> samples(int64_t from_ms = 0, size_t count = kAll) {
        std::vector<std::string> out;
        for (const MovieKeyFrame& key_frame : movie.key_frames_from(from_ms * 1000, count)) {
            out.push_back(bytes_of(key_frame));
        }
        return out;
    }
    // Work stays within the budget, and memory with it, whatever the file claims.
    void expect_to_end_soon() {
        EXPECT_GE(movie.duration_us(), 0);
        for (const int64_t from_us : {int64_t{0}, int64_t{1000000}, INT64_MAX}) {
            movie.key_frames_from(from_us, 16);
        }
        EXPECT_LE(source.bytes_read, kMovieWork);
        EXPECT_LE(source.reads, kMovieWork / 512);
    }

    MemorySource source;
    Movie movie{&source, inflate_as_it_is};
};
