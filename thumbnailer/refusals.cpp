// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/refusals.h"

#include "wording/codec_names.h"
#include "wording/decoder_wording.h"

// As people call it, or as the file does.
static std::string name_of(const std::string& format) {
    const std::string name = codec_name(format).name;
    return name.empty() ? '"' + format + '"' : name;
}

Outcome outcome_of(MovieRefusal refusal, const std::string& refused_format) {
    switch (refusal) {
        case MovieRefusal::kNotAMovie:
            return {Verdict::kNotForUs, "This is no MP4, QuickTime or 3GPP file."};
        case MovieRefusal::kCompressedHeader:
            return {Verdict::kNotForUs, "The movie's header is compressed."};
        case MovieRefusal::kOtherCodec:
            return {Verdict::kNotForUs, "The video is coded as " + name_of(refused_format) +
                                            "; H.264, MPEG-4 Part 2 and H.263 are read."};
        case MovieRefusal::kEncrypted:
            return {Verdict::kNoPicture, "The video is encrypted (\"" + refused_format + "\")."};
        case MovieRefusal::kNoMovieBox:
            return {Verdict::kNoPicture, "The file has no movie header; its end may be missing."};
        case MovieRefusal::kNoVideo:
            return {Verdict::kNoPicture, "There is no video track in this file."};
        case MovieRefusal::kReferenceMovie:
            return {Verdict::kNoPicture, "The file has no video, only the names of files that do."};
        case MovieRefusal::kNone:
            break;
    }
    return {};
}

Outcome outcome_of(VideoCodec codec, const KeyFrameRefusal& refusal) {
    const Wording wording =
        codec == VideoCodec::kAvc ? wording_of(refusal.avc) : wording_of(refusal.m4v);
    const bool is_unsupported = wording.kind == RefusalKind::kUnsupported;
    // keystill refuses more of interlaced streams.
    if (codec == VideoCodec::kAvc && refusal.avc.reason == AvcRefusal::kInterlaced) {
        return {Verdict::kNotForUs,
                "The H.264 stream is interlaced by macroblocks (MBAFF), which is not decoded."};
    }
    return {is_unsupported ? Verdict::kNotForUs : Verdict::kNoPicture, wording.sentence};
}
