// SPDX-License-Identifier: BSD-2-Clause
#include <inttypes.h>

#include "explain/frame_fault.h"
#include "m4vdec/h263_headers.h"
#include "m4vdec/m4v_decoder.h"
#include "m4vdec/m4v_headers.h"

// ISO/IEC 14496-2 6.2.3, read up to the first tool that the decoder refuses; null when there is
// none down to the quantiser matrices.
static const char* refused_tool_of_layer(M4vBits* bits, uint32_t verid) {
    bits->read(1);
    const unsigned type = bits->read(8);
    if (type == 0x12) return "fine granularity scalability";
    if (type == 0x0e || type == 0x0f) return "the studio profile";
    if (bits->flag()) {
        verid = bits->read(4);
        bits->read(3);
    }
    if (bits->read(4) == 15) bits->read(16);
    if (bits->flag()) {
        bits->read(3);
        if (bits->flag()) bits->skip_long(3 * 16 + 3 + 12 + 16);
    }
    if (bits->read(2) != 0) return "shapes other than rectangles";
    bits->read(1);
    const unsigned resolution = bits->read(16);
    bits->read(1);
    unsigned increment_bits = 1;
    while (resolution > 1u << increment_bits) ++increment_bits;
    if (bits->flag()) bits->read(increment_bits);
    bits->skip_long(1 + 13 + 1 + 13 + 1);
    bits->read(2);  // interlaced, obmc_disable
    const unsigned sprite_enable = bits->read(verid == 1 ? 1 : 2);
    if (sprite_enable == 1) return "a static sprite";
    if (sprite_enable == 2) bits->read(9);
    if (bits->flag() && bits->read(8) != 0x58) return "samples of other than 8 bits";
    return nullptr;
}

struct M4vStream {
    M4vLayer layer;
    const char* refused_tool;  // of the last layer; null for none that is known
    bool has_layer;
    bool has_picture;
    bool is_h263;  // the picture has a short video header
    const uint8_t* picture;
    size_t length;
};

static void look_at_layer(const uint8_t* p, size_t length, M4vStream* stream) {
    M4vBits bits;
    bits.start(p, length);
    stream->has_layer = true;
    stream->refused_tool = nullptr;
    if (m4v_parse_layer(&bits, &stream->layer) == 0) return;
    const uint32_t verid = stream->layer.visual_object_verid;
    const bool is_studio = stream->layer.is_studio;
    bits.start(p, length);
    stream->refused_tool = is_studio ? "the studio profile" : refused_tool_of_layer(&bits, verid);
}

static void take_picture(const uint8_t* p, const uint8_t* end, bool is_h263, M4vStream* stream) {
    stream->has_picture = true;
    stream->is_h263 = is_h263;
    stream->picture = p;
    stream->length = static_cast<size_t>(end - p);
}

// Reads headers up to the first picture.
static void look_at_headers(const uint8_t* p, size_t length, M4vStream* stream) {
    const uint8_t* const end = p + length;
    unsigned code;
    if (h263_is_picture_start(p, length)) take_picture(p, end, true, stream);
    while (!stream->has_picture && (p = m4v_find_start_code(p, end, &code)) != nullptr) {
        const size_t rest = static_cast<size_t>(end - p);
        M4vBits bits;
        bits.start(p, rest);
        if (code == kStartVop) take_picture(p, end, false, stream);
        if (code == kStartSequence) m4v_parse_sequence(&bits, &stream->layer);
        if (code == kStartVisualObject) m4v_parse_visual_object(&bits, &stream->layer);
        if (code >= kStartLayerFirst && code <= kStartLayerLast) look_at_layer(p, rest, stream);
        if (code <= kStartVideoObjectLast && h263_is_picture_start(p, rest)) {
            take_picture(p, end, true, stream);
        }
    }
}

static void look_for_h263_picture(const uint8_t* p, size_t length, M4vStream* stream) {
    for (size_t i = 0; i < length && !stream->has_picture; ++i) {
        if (h263_is_picture_start(p + i, length - i)) take_picture(p + i, p + length, true, stream);
    }
}

static void explain_h263_picture(const M4vStream& stream, FrameFault* fault) {
    Verdict* const verdict = &fault->verdict;
    M4vBits bits;
    bits.start(stream.picture, stream.length);
    bits.skip_long(22 + 8 + 2 + 3);
    const bool is_extended = bits.read(3) == 7;
    const bool has_options = is_extended && bits.read(3) == 1;  // UFEP
    if (has_options) bits.read(3);
    const unsigned options = has_options ? bits.read(15) : 0;
    const unsigned type = is_extended ? bits.read(9) : bits.read(5);
    if (is_extended ? type >> 6 != 0 : (type & 0x10) != 0) {
        verdict_fail(verdict, kLookElsewhere,
                     "The key frame is no intra picture: it is predicted from other pictures.");
    } else if (is_extended ? (options & 1u << 12) != 0 : (type & 4) != 0) {
        verdict_fail(verdict, kEncodeAgain,
                     "The H.263 stream uses arithmetic coding (Annex E), which is not decoded.");
    } else if (is_extended && (type >> 4 & 3) != 0) {
        verdict_fail(verdict, kEncodeAgain,
                     "The H.263 stream changes the resolution of pictures (Annexes P and Q), "
                     "which is not decoded.");
    }
}

static void explain_layer(const M4vStream& stream, FrameFault* fault) {
    Verdict* const verdict = &fault->verdict;
    if (!stream.has_layer) {
        verdict_fail(verdict, kEncodeAgain,
                     "Neither the key frame nor the file's esds has an MPEG-4 video object layer "
                     "header, which says how large the pictures are.");
    } else if (stream.refused_tool) {
        verdict_fail(verdict, kEncodeAgain, "The MPEG-4 stream uses %s: that is not decoded.",
                     stream.refused_tool);
    } else if (stream.layer.refusal != M4vRefusal::kNone) {
        verdict_fail(verdict, kEncodeAgain,
                     "The MPEG-4 stream's video object layer header is cut off or damaged, or "
                     "names a tool that is not decoded (scalability, NEWPRED).");
    }
}

static void explain_vop(const M4vStream& stream, FrameFault* fault) {
    static const char* const kTypes[] = {"I", "P", "B", "S"};
    Verdict* const verdict = &fault->verdict;
    explain_layer(stream, fault);
    M4vBits bits;
    bits.start(stream.picture, stream.length);
    const unsigned vop_coding_type = bits.read(2);
    if (vop_coding_type != 0) {
        verdict_fail(verdict, kLookElsewhere,
                     "The key frame is no intra picture: it is predicted from other pictures "
                     "(%s-VOP).",
                     kTypes[vop_coding_type]);
    }
    while (bits.flag()) {  // modulo_time_base; zeros follow the data
    }
    bits.read(1);
    if (stream.layer.time_increment_bits) bits.read(stream.layer.time_increment_bits);
    bits.read(1);
    if (!bits.flag() && !bits.overrun()) {
        verdict_fail(verdict, kLookElsewhere,
                     "The key frame is marked as not coded: it repeats another picture.");
    }
}

void explain_m4v_frame(const KeyFrame& frame, int32_t codec_kind, FrameFault* fault) {
    M4vStream stream = {};
    m4v_layer_init(&stream.layer);
    const size_t length = frame.bytes_read > 0 ? static_cast<size_t>(frame.bytes_read) : 0;
    if (codec_kind == kCodecMpeg4) {
        look_at_headers(frame.config, static_cast<size_t>(frame.config_length), &stream);
        stream.has_picture = false;
        look_at_headers(frame.sample, length, &stream);
    } else {
        look_for_h263_picture(frame.sample, length, &stream);
    }
    if (stream.has_picture && stream.is_h263) explain_h263_picture(stream, fault);
    if (stream.has_picture && !stream.is_h263) explain_vop(stream, fault);
    fault->is_damage = !fault->verdict.is_failure;
    if (!stream.has_picture) {
        verdict_fail(&fault->verdict, kLookElsewhere,
                     "The key frame holds no picture: it has no picture start code.");
    }
    verdict_fail(&fault->verdict, kLookElsewhere, "The key frame's coded data is damaged.");
}
