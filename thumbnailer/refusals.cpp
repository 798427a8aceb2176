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

// What this program says of formats of which keystill, to whose words it keeps else, refuses more.
static std::string sentence_of(const AvcRefused& refused) {
    if (refused.reason == AvcRefusal::kInterlaced) {
        return "The H.264 stream is interlaced by macroblocks (MBAFF), which is not decoded.";
    }
    constexpr uint32_t k422 = 2;
    if (refused.reason == AvcRefusal::kChromaFormat && refused.value == k422) {
        return "The H.264 stream is 4:2:2; only 4:2:0, 4:4:4 and monochrome pictures are decoded.";
    }
    if (refused.reason == AvcRefusal::kChromaFormat) {
        return "The H.264 stream is 4:4:4 with planes or scaling lists apart, which is not "
               "decoded.";
    }
    return wording_of(refused).sentence;
}

Outcome outcome_of(VideoCodec codec, const KeyFrameRefusal& refusal) {
    const bool is_avc = codec == VideoCodec::kAvc;
    const RefusalKind kind = (is_avc ? wording_of(refusal.avc) : wording_of(refusal.m4v)).kind;
    return {kind == RefusalKind::kUnsupported ? Verdict::kNotForUs : Verdict::kNoPicture,
            is_avc ? sentence_of(refusal.avc) : wording_of(refusal.m4v).sentence};
}
