// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/decode_key_frame_avc.h"

#include <assert.h>

#include "avcdec/avc_decoder.h"
#include "avcdec/nal_unit.h"
#include "runtime/owned.h"

// A run of NAL units, each preceded by its length.
struct NalRun {
    uint8_t* next;
    uint8_t* end;
    uint32_t length_size;  // 1, 2 or 4 bytes
};

static uint32_t left_in(const NalRun& run) { return static_cast<uint32_t>(run.end - run.next); }

// Takes the length field of the next NAL unit. Returns 1 when the unit does not fit in the run or
// has fewer than 2 bytes.
static int read_nal_length(NalRun* run, uint32_t* length) {
    if (left_in(*run) < run->length_size) return 1;
    *length = 0;
    for (uint32_t i = 0; i < run->length_size; ++i) *length = *length << 8 | *run->next++;
    return *length < 2 || *length > left_in(*run);
}

// Makes the picture for an SPS and the target of the decoder of it.
static int make_picture(const AvcStreamInfo& info, DecodedPicture* picture, AvcDecodeInput* in) {
    if (picture->planes) upnp_free(picture->planes);
    *picture = {};
    const uint64_t luma_size = uint64_t{info.width} * info.height;
    const uint64_t size = info.chroma_format == 3 ? luma_size * 3 : luma_size * 3 / 2;
    picture->planes = owned_malloc<uint8_t>(size).release();
    if (!picture->planes) return 1;
    picture->width = info.width;
    picture->height = info.height;
    picture->stride = info.width;
    picture->u_offset = static_cast<uint32_t>(luma_size);
    picture->v_offset = static_cast<uint32_t>(luma_size + luma_size / 4);
    picture->cropped = info.cropped;
    const uint32_t shift = info.chroma_format == 1 ? 1 : 0;
    picture->crop_left = info.crop_left << shift;
    picture->crop_right = info.crop_right << shift;
    picture->crop_top = info.crop_top << shift;
    picture->crop_bottom = info.crop_bottom << shift;
    picture->presentation = info.presentation;
    in->target = picture->planes;
    in->target_size = static_cast<uint32_t>(size);
    in->stride = info.width;
    in->target_sps_id = static_cast<int32_t>(info.sps_id);
    return 0;
}

// Sizes the picture when the first SPS has come, or another one has become active.
static AvcRefused update_picture(const AvcDecodeOutput& out, DecodedPicture* picture,
                                 AvcDecodeInput* in) {
    uint32_t id = 0;
    if (out.events & kAvcEventSps && in->target_sps_id == -1) {
        id = kAvcLastSps;
    } else if (out.sps_id != in->target_sps_id && out.sps_id != -1) {
        id = static_cast<uint32_t>(out.sps_id);
    } else {
        return {};
    }
    AvcStreamInfo info;
    avcdec_get_stream_info(in->decoder, &info, id);
    if (info.error) return {AvcRefusal::kNoSequenceSet};
    // Such a set cannot be used, and the first one is the one that has to be.
    if (info.width == 0) return {AvcRefusal::kTooManyMacroblocks};
    if (make_picture(info, picture, in)) return {AvcRefusal::kNoMemory};
    return {};
}

// Chroma of the size of luma becomes 4:2:0 in place, each sample the mean of four.
static void halve_chroma(const DecodedPicture& picture) {
    const uint8_t* from = picture.planes + picture.u_offset;
    uint8_t* to = picture.planes + picture.u_offset;
    const uint32_t pitch = picture.stride;
    for (uint32_t y = 0; y < 2 * picture.height; y += 2, from += 2 * pitch) {
        for (uint32_t x = 0; x < pitch; x += 2) {
            const int sum = from[x] + from[x + 1] + from[pitch + x] + from[pitch + x + 1];
            *to++ = static_cast<uint8_t>((sum + 2) >> 2);
        }
    }
}

static bool is_slice(uint8_t nal_header) {
    const uint32_t nal_unit_type = nal_header & 31;
    return nal_unit_type == kNalSlice || nal_unit_type == kNalIdrSlice;
}

// Decodes the unit of in and passes over what was consumed of it.
static AvcRefused decode_unit(AvcDecodeInput* in, NalRun* run, DecodedPicture* picture,
                              bool* is_complete) {
    AvcDecodeOutput out;
    avcdec_decode_nal(in, &out);
    if (out.refused) return out.refused;
    assert(out.error == kAvcOk && out.consumed == in->nal_length);
    run->next += out.consumed;
    *is_complete = out.events & kAvcEventPictureComplete;
    return update_picture(out, picture, in);
}

static AvcRefused decode(AvcDecoder* decoder, const AvcFrameRequest* request,
                         DecodedPicture* picture) {
    AvcDecodeInput in = {};
    in.decoder = decoder;
    in.time_stamp = kAvcNoTimeStamp;
    in.target_sps_id = -1;
    const NalRun sample = {request->sample, request->sample + request->sample_length,
                           static_cast<uint32_t>(request->nal_length_size)};
    NalRun run = {request->parameter_sets, request->parameter_sets + request->parameter_sets_length,
                  2};
    bool is_sample = false;
    bool has_slice = false;
    bool is_complete = false;
    while (!is_complete) {
        if (is_sample && run.next == run.end) {
            return {has_slice ? AvcRefusal::kSlicesMissing : AvcRefusal::kNoSlice};
        }
        // Also stray bytes after the parameter sets.
        if (read_nal_length(&run, &in.nal_length)) {
            return {is_sample ? AvcRefusal::kSampleRun : AvcRefusal::kParameterSetRun};
        }
        in.nal = run.next;
        has_slice = has_slice || is_slice(*in.nal);
        if (const AvcRefused refused = decode_unit(&in, &run, picture, &is_complete)) {
            return refused;
        }
        if (!is_sample && run.next == run.end) {
            run = sample;
            is_sample = true;
        }
    }
    const uint64_t luma_size = uint64_t{picture->stride} * picture->height;
    if (in.target_size == luma_size * 3) halve_chroma(*picture);
    return {};
}

int DecodeKeyFrameAvc(const AvcFrameRequest* request, DecodedPicture* picture) {
    AvcDecoderOptions options = {};
    if (request->allows_more_formats) options.flags |= kAvcMoreFormats;
    if (request->has_old_flags) options.flags |= kAvcOldFlags;
    AvcCreateResult created;
    avcdec_create(&options, &created);
    AvcRefused refused = {AvcRefusal::kNoMemory};
    if (created.decoder) refused = decode(created.decoder, request, picture);
    avcdec_destroy(created.decoder);
    if (request->refused) *request->refused = refused;
    return refused ? 1 : 0;
}
