// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/avc_decoder.h"

#include <string.h>

#include "avcdec/avc_instance.h"
#include "avcdec/slice_data.h"
#include "runtime/owned.h"

// Option bits that ask for another way to end a picture in progress.
static constexpr uint8_t kPictureOptions = 8 | 16 | 32 | 64;

// The allocator aligns to 8 bytes; the kernels ask for more. The block's address is kept for the
// release.
static AvcDecoder* allocate_instance() {
    constexpr uintptr_t kAlign = alignof(AvcDecoder);
    void* const block = upnp_calloc(1, sizeof(AvcDecoder) + kAlign);
    if (!block) return nullptr;
    const uintptr_t address = (reinterpret_cast<uintptr_t>(block) + kAlign - 1) & ~(kAlign - 1);
    auto* const d = reinterpret_cast<AvcDecoder*>(address);
    d->block = block;
    return d;
}

void avcdec_create(const AvcDecoderOptions* options, AvcCreateResult* result) {
    *result = {kAvcOk, nullptr};
    const bool has_table = options->flags & kAvcOptionTable;
    if (has_table &&
        (!options->table || options->table_length > sizeof(AvcDecoder::option_table))) {
        result->error = kAvcBadOptionTable;
        return;
    }
    AvcDecoder* const d = allocate_instance();
    if (!d) {
        result->error = kAvcNoInstanceMemory;
        return;
    }
    d->option_flags = options->flags;
    d->sets.allows_more_formats = options->flags & kAvcMoreFormats;
    d->has_old_flags = options->flags & kAvcOldFlags;
    if (has_table) memcpy(d->option_table, options->table, options->table_length);
    d->picture.kernels = recon_kernels_best();
    d->slice.loops = block_loops_best();
    result->decoder = d;
}

void avcdec_destroy(AvcDecoder* d) {
    if (!d) return;
    avc_release_work(d);
    avc_release_sets(&d->sets);
    upnp_free(d->block);
}

void avcdec_get_stream_info(const AvcDecoder* d, AvcStreamInfo* info, uint32_t sps_id) {
    *info = {};
    if (!d) {
        info->error = kAvcInfoNoDecoder;
        return;
    }
    const AvcSps* sps = nullptr;
    if (sps_id == kAvcLastSps) sps = d->sets.last_sps;
    if (sps_id < kMaxSps) sps = d->sets.sps[sps_id];
    if (!sps) {
        info->error = kAvcInfoNoSps;
        return;
    }
    info->sps_id = sps->seq_parameter_set_id;
    info->width = sps->width;
    info->height = sps->height;
    info->planes = 1;
    info->chroma_format = sps->chroma_format_idc;
    info->cropped = sps->frame_cropping_flag;
    info->crop_left = sps->frame_crop_left_offset;
    info->crop_right = sps->frame_crop_right_offset;
    const uint32_t rows = sps->frame_mbs_only_flag ? 1 : 2;  // of frames, H.264 (7-20)
    info->crop_top = rows * sps->frame_crop_top_offset;
    info->crop_bottom = rows * sps->frame_crop_bottom_offset;
    info->presentation = sps->presentation;
}

static void count_picture(AvcDecoder* d, AvcDecodeOutput* out) {
    out->events |= kAvcEventPictureComplete;
    ++d->picture_count;
}

// The picture in progress has all its macroblocks.
static void complete_picture(AvcDecoder* d, AvcDecodeOutput* out) {
    const AvcSliceHeader& header = d->slice.header;
    if (header.field_pic_flag) picture_fill_other_field(&d->picture, header.bottom_field_flag);
    picture_begin(&d->picture);
    d->picture_flags = 0;
    count_picture(d, out);
}

static bool is_of_next_picture(const AvcDecoder& d, const AvcSliceHeader& before) {
    const AvcSliceHeader& header = d.slice.header;
    if (header.first_mb_in_slice < d.picture.next_mb) return true;
    return d.picture.next_mb != 0 && (header.field_pic_flag != before.field_pic_flag ||
                                      header.bottom_field_flag != before.bottom_field_flag);
}

static bool is_target_of_active_sps(const AvcDecodeInput* in) {
    const AvcSps* const sps = in->decoder->sets.active_sps;
    return sps && sps->seq_parameter_set_id == in->target_sps_id;
}

// A parameter set may have been replaced by one of another size after the target was made for it.
// In a larger target samples would stay unset.
static bool is_target_of_active_size(const AvcDecodeInput* in) {
    const AvcSps* const sps = in->decoder->sets.active_sps;
    const uint64_t luma_size = uint64_t{sps->width} * sps->height;
    const uint64_t size = sps->chroma_format_idc == 3 ? luma_size * 3 : luma_size * 3 / 2;
    return in->stride == sps->width && in->target_size == size;
}

static void set_target(AvcDecoder* d, const AvcDecodeInput* in) {
    const size_t luma_size = static_cast<size_t>(in->stride) * d->sets.active_sps->height;
    d->time_stamp = in->time_stamp;
    const AvcSliceHeader& header = d->slice.header;
    const uint32_t lines = header.bottom_field_flag;  // above the first one of the picture
    AvcPicture* const planes = &d->picture.planes;
    planes->plane[0] = in->target + lines * in->stride;
    planes->plane[1] = in->target + luma_size + lines * in->stride / 2;
    planes->is_444 = d->sets.active_sps->chroma_format_idc == 3;
    planes->plane[2] = planes->plane[1] + (planes->is_444 ? luma_size : luma_size / 4);
    planes->stride = in->stride << header.field_pic_flag;
    planes->height_mbs =
        static_cast<uint16_t>(d->sets.active_sps->height_mbs >> header.field_pic_flag);
    planes->is_field = header.field_pic_flag;
}

static void refuse(AvcDecodeOutput* out, AvcError error, AvcRefused refused) {
    out->error = error;
    out->refused = refused;
}

static void reject_slice_header(const AvcDecodeInput* in, AvcDecodeOutput* out) {
    refuse(out, kAvcBadSliceHeader, in->decoder->refused);
    if (in->decoder->sets.active_sps && !is_target_of_active_sps(in)) {
        out->consumed = 0;
    } else if (in->decoder->nal.type == kNalIdrSlice && is_target_of_active_sps(in)) {
        out->events |= kAvcEventIdrRejected;
    }
}

// A slice of the next picture while this one is not complete.
static void end_partial_picture(AvcDecoder* d, AvcDecodeOutput* out) {
    out->consumed = 0;
    count_picture(d, out);
    if (d->picture_flags == 0) {
        refuse(out, kAvcSliceOfNextPicture, {AvcRefusal::kSliceOverlap});
    } else {
        picture_finish(&d->picture);
        picture_begin(&d->picture);
    }
}

static void decode_slice(const AvcDecodeInput* in, AvcDecodeOutput* out) {
    AvcDecoder* const d = in->decoder;
    if (!in->target) {
        refuse(out, kAvcNoTarget, {AvcRefusal::kNoSequenceSet});
        return;
    }
    const AvcSliceHeader saved = d->slice.header;
    if (avc_parse_slice_header(&d->slice.bits, d)) {
        reject_slice_header(in, out);
        return;
    }
    if (!is_target_of_active_sps(in)) {
        const uint32_t id = d->sets.active_sps->seq_parameter_set_id;
        refuse(out, kAvcBadSliceHeader, {AvcRefusal::kOtherSequenceSet, id});
        out->consumed = 0;
        return;
    }
    if (!is_target_of_active_size(in)) {
        refuse(out, kAvcBadSliceHeader, {AvcRefusal::kPictureSize});
        return;
    }
    if (is_of_next_picture(*d, saved)) {
        d->slice.header = saved;
        end_partial_picture(d, out);
        return;
    }
    set_target(d, in);
    d->picture_flags |= d->option_byte & kPictureOptions;
    if (d->slice.is_cabac) {
        bits_align(&d->slice.bits);
        cabac_init_slice(d);
    }
    if (const AvcRefused refused = avc_decode_slice_data(&d->slice, &d->picture)) {
        refuse(out, kAvcBadSliceData, refused);
        return;
    }
    if (d->picture.next_mb == picture_size(d->picture)) complete_picture(d, out);
}

// End of sequence, end of stream and type 14: a picture in progress counts as complete.
static void decode_end(AvcDecoder* d, AvcDecodeOutput* out) {
    out->events |= kAvcEventEnd;
    if (d->picture.next_mb == 0) return;
    picture_finish(&d->picture);
    complete_picture(d, out);
}

static void dispatch(const AvcDecodeInput* in, AvcDecodeOutput* out) {
    AvcDecoder* const d = in->decoder;
    out->consumed = in->nal_length;
    switch (d->nal.type) {
        case kNalIdrSlice:
            out->events |= kAvcEventIdr;
            [[fallthrough]];
        case kNalSlice:
            decode_slice(in, out);
            break;
        case kNalSps:
            if (avc_parse_sps(&d->slice.bits, d)) {
                refuse(out, kAvcBadSps, d->refused);
            } else {
                out->events |= kAvcEventSps;
            }
            break;
        case kNalPps:
            if (avc_parse_pps(&d->slice.bits, d)) refuse(out, kAvcBadPps, d->refused);
            break;
        case kNalEndOfSequence:
        case kNalEndOfStream:
        case kNalPrefix:
            decode_end(d, out);
            break;
        default:
            break;  // access unit delimiters, SEI, filler and what is not known: ignored
    }
}

static void flush(AvcDecoder* d, AvcDecodeOutput* out) {
    if (!d->sets.active_sps) return;
    const AvcPicture& planes = d->picture.planes;
    out->picture = planes.plane[0] - (d->slice.header.bottom_field_flag ? planes.stride / 2 : 0);
    out->target = out->picture;
    out->time_stamp = d->time_stamp;
    ++d->picture_count;
}

void avcdec_decode_nal(const AvcDecodeInput* in, AvcDecodeOutput* out) {
    *out = {kAvcOk, 0, nullptr, nullptr, kAvcNoTimeStamp, -1, -1, 0, {}};
    AvcDecoder* const d = in->decoder;
    if (!d) {
        out->error = kAvcNoDecoder;
        return;
    }
    if (in->call_flags & kAvcFlush) {
        flush(d, out);
    } else {
        d->option_byte = d->option_table[in->option_index % sizeof d->option_table];
        if (in->call_flags & kAvcOption64) d->option_byte |= 64;
        AvcBitReader* const bits = &d->slice.bits;
        bits_init(bits, in->nal, in->nal_length);
        d->nal.type = nal_read_header(bits, in->nal_length, &d->nal.ref_idc,
                                      d->option_flags & kAvcStartCodes);
        dispatch(in, out);
    }
    out->picture_count = d->picture_count;
    if (d->sets.active_sps) out->sps_id = d->sets.active_sps->seq_parameter_set_id;
}
