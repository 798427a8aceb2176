// SPDX-License-Identifier: BSD-2-Clause
// From a movie's bytes to those of a picture file, by the newer reader. Six bytes choose the
// options and the rest the movie.
#include <stdio.h>
#include <string.h>

#include "fuzz/movie_writer.h"
#include "fuzz/target.h"
#include "thumbnailer/draw_thumbnail.h"
#include "thumbnailer/picture_check.h"

namespace {

// A copy of its exact size: sanitizers see a look behind it.
class MemorySource final : public ByteSource {
 public:
    explicit MemorySource(const std::string& bytes) : bytes_(bytes.begin(), bytes.end()) {}
    uint64_t size() const override { return bytes_.size(); }
    size_t read(uint64_t offset, std::span<uint8_t> into) override {
        if (offset >= bytes_.size()) return 0;
        const size_t count = std::min<uint64_t>(into.size(), bytes_.size() - offset);
        memcpy(into.data(), bytes_.data() + offset, count);
        return count;
    }

 private:
    std::vector<uint8_t> bytes_;
};

}  // namespace

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
    MemorySource source(make_file(c));
    char* bytes = nullptr;
    size_t length = 0;
    FILE* const file = open_memstream(&bytes, &length);
    const Outcome outcome = draw_thumbnail(&source, options, {{"Thumb::URI", "file:///"}}, file);
    fclose(file);
    const bool is_whole =
        is_whole_picture({reinterpret_cast<const uint8_t*>(bytes), length}, options.format);
    const bool is_done = outcome.verdict == Verdict::kDone;
    if (is_done ? !is_whole : outcome.sentence.empty()) abort();
    free(bytes);
}
