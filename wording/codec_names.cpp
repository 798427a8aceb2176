// SPDX-License-Identifier: BSD-2-Clause
#include "wording/codec_names.h"

#include "wording/advice.h"

// clang-format off
static constexpr CodecName kNames[] = {
    {"hvc1", "HEVC", kEncodeAgain},
    {"hev1", "HEVC", kEncodeAgain},
    {"dvh1", "HEVC", kEncodeAgain},
    {"dvhe", "HEVC", kEncodeAgain},
    {"av01", "AV1", kEncodeAgain},
    {"vp08", "VP8", kEncodeAgain},
    {"vp09", "VP9", kEncodeAgain},
    {"vvc1", "VVC", kEncodeAgain},
    {"vvi1", "VVC", kEncodeAgain},
    {"avc2", "H.264 with extractors", kEncodeAgain},
    {"avc3", "H.264 with parameter sets in the stream", kCopySets},
    {"avc4", "H.264 with parameter sets in the stream", kCopySets},
    {"h263", "H.263 in QuickTime style", kCopyTo3gp},
    {"H263", "H.263 in QuickTime style", kCopyTo3gp},
    {"jpeg", "Motion JPEG", kEncodeAgain},
    {"mjpa", "Motion JPEG", kEncodeAgain},
    {"mjpb", "Motion JPEG", kEncodeAgain},
    {"mp1v", "MPEG-1 video", kEncodeAgain},
    {"mp2v", "MPEG-2 video", kEncodeAgain},
    {"m2v1", "MPEG-2 video", kEncodeAgain},
    {"apch", "ProRes", kEncodeAgain},
    {"apcn", "ProRes", kEncodeAgain},
    {"apcs", "ProRes", kEncodeAgain},
    {"apco", "ProRes", kEncodeAgain},
    {"ap4h", "ProRes", kEncodeAgain},
    {"rle ", "QuickTime Animation", kEncodeAgain},
    {"png ", "PNG", kEncodeAgain},
    {"vc-1", "VC-1", kEncodeAgain},
};
// clang-format on

static constexpr CodecName kUnknown = {"", "", kEncodeAgain};

const CodecName& codec_name(std::string_view format) {
    for (const CodecName& row : kNames) {
        if (format == row.format) return row;
    }
    return kUnknown;
}
