// SPDX-License-Identifier: BSD-2-Clause
#include "explain/candidates.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "thumb/thumbnail.h"
#include "tool/key_frames.h"
#include "tool/selection.h"
#include "wording/decoder_wording.h"

PictureBuffer::PictureBuffer()
    : descriptor_(memfd_create("picture", MFD_CLOEXEC)),
      path_("/proc/self/fd/" + std::to_string(descriptor_)) {}

PictureBuffer::~PictureBuffer() {
    if (descriptor_ >= 0) close(descriptor_);
}

std::string PictureBuffer::read() const {
    struct stat status;
    if (fstat(descriptor_, &status) != 0) return "";
    std::string bytes(static_cast<size_t>(status.st_size), '\0');
    const ssize_t count = pread(descriptor_, bytes.data(), bytes.size(), 0);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
}

static KeyFrameRequest collect(const char* path, int32_t percent, int32_t count) {
    KeyFrameRequest request = {};
    request.clip_offset_percent = percent;
    request.key_frame_count = std::min(count, kMostKeyFrames);
    request.codec_kind = kCodecNone;
    GetKeyFrameMpeg4(path, &request);
    return request;
}

static std::string why_not_drawn(const ThumbnailParams& params, int32_t codec_kind) {
    if (params.failure != ThumbnailFailure::kNotDecoded) return "It cannot be drawn.";
    const KeyFrameRefusal& refusal = params.refusal;
    return (codec_kind == kCodecAvc ? wording_of(refusal.avc) : wording_of(refusal.m4v)).sentence;
}

static void draw(const KeyFrameRequest& request, int32_t number, const Arguments& args,
                 const PictureBuffer& buffer, Candidate* candidate) {
    KeyFrame record;
    ThumbnailParams params = {buffer.path(), args.quality, args.width, args.height};
    if (key_frame_read(&request, number, &record) != Refusal::kNone) {
        candidate->missing = "It cannot be read.";
    } else if (WriteThumbnail(&record, &params, request.codec_kind) != 0) {
        candidate->missing = why_not_drawn(params, request.codec_kind);
    } else {
        candidate->jpeg = buffer.read();
    }
    key_frame_release(&record);
}

// Which percentiles pick which of the collected key frames.
static void note_percentiles(const Arguments& args, std::vector<Candidate>* candidates) {
    const KeyFrameRequest request =
        collect(args.input_path, args.clip_offset_percent, args.key_frame_count);
    for (int percentile = 0; percentile <= 100; ++percentile) {
        int32_t picked = selection_pick(request.list, percentile);
        for (Candidate& candidate : *candidates) {
            if (!candidate.row.is_wanted || picked-- != 0) continue;
            if (candidate.first_percentile < 0) candidate.first_percentile = percentile;
            candidate.last_percentile = percentile;
        }
    }
}

std::vector<Candidate> draw_candidates(const Examination& found, size_t most,
                                       const PictureBuffer& buffer) {
    std::vector<Candidate> all;
    for (const KeyFrameRow& row : found.rows) {
        if (row.bytes != 0) all.push_back({row, "", "", -1, -1});
    }
    note_percentiles(found.args, &all);
    const auto wanted = std::find_if(all.begin(), all.end(),
                                     [](const Candidate& each) { return each.row.is_wanted; });
    size_t first = wanted == all.end() ? 0 : static_cast<size_t>(wanted - all.begin());
    first = std::min(first - std::min(first, most / 4), all.size() - std::min(most, all.size()));
    const size_t end = std::min(first + most, all.size());
    const KeyFrameRequest request = collect(found.args.input_path, 0, static_cast<int32_t>(end));
    for (size_t i = first; i < end; ++i) {
        if (static_cast<int32_t>(i) >= request.key_frame_count) {
            all[i].missing = "It cannot be read.";
        } else {
            draw(request, static_cast<int32_t>(i), found.args, buffer, &all[i]);
        }
    }
    return {all.begin() + static_cast<ptrdiff_t>(first), all.begin() + static_cast<ptrdiff_t>(end)};
}
