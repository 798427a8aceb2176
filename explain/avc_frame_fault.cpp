// SPDX-License-Identifier: BSD-2-Clause
#include <inttypes.h>
#include <string.h>

#include <algorithm>

#include "avcdec/avc_decoder.h"
#include "avcdec/avc_instance.h"
#include "explain/frame_fault.h"
#include "runtime/owned.h"

constexpr uint64_t kMostMacroblocks = 65535;
constexpr uint64_t kMostMacroblocksOfSide = 4095;

void explain_avc_sets(const AvcFacts& facts, Verdict* verdict) {
    if (facts.has_sequence_set && facts.chroma_format_idc > 1) {
        verdict_fail(verdict, kEncodeAgain,
                     "The H.264 stream is 4:%s; only 4:2:0 and monochrome pictures are decoded.",
                     facts.chroma_format_idc == 2 ? "2:2" : "4:4");
    } else if (facts.has_sequence_set &&
               (facts.bit_depth_luma != 8 || facts.bit_depth_chroma != 8)) {
        verdict_fail(verdict, kEncodeAgain,
                     "The H.264 stream has %" PRIu32 "-bit samples; only 8-bit ones are decoded.",
                     facts.bit_depth_luma != 8 ? facts.bit_depth_luma : facts.bit_depth_chroma);
    } else if (facts.has_sequence_set && facts.is_lossless) {
        verdict_fail(verdict, kEncodeAgain, "The H.264 stream is lossless, which is not decoded.");
    } else if (facts.has_sequence_set && facts.is_interlaced) {
        verdict_fail(verdict,
                     "Deinterlace it: ffmpeg -i IN -vf yadif -c:v libx264 -pix_fmt yuv420p OUT.mp4",
                     "The H.264 stream is interlaced; only progressive pictures are decoded.");
    } else if (facts.has_sequence_set &&
               (facts.width_mbs * facts.height_mbs > kMostMacroblocks ||
                std::max(facts.width_mbs, facts.height_mbs) > kMostMacroblocksOfSide)) {
        verdict_fail(verdict, kEncodeAgain,
                     "The pictures are too large: 65535 blocks of 16x16 samples are the most.");
    } else if (facts.has_picture_set && facts.has_slice_groups) {
        verdict_fail(verdict, kEncodeAgain,
                     "The H.264 stream has slice groups, which are not decoded.");
    }
}

// NAL units behind their lengths. The decoder writes to what it decodes, so it gets a copy.
struct UnitRun {
    const uint8_t* bytes;
    Owned<uint8_t> copy;
    uint32_t length;
    uint32_t length_size;
};

static bool fill_run(const uint8_t* bytes, int32_t length, uint32_t length_size, UnitRun* run) {
    run->bytes = bytes;
    run->length = static_cast<uint32_t>(std::max(length, 0));
    run->length_size = length_size;
    run->copy = owned_malloc<uint8_t>(uint64_t{run->length} + 1);
    if (run->copy && run->length != 0) memcpy(run->copy.get(), bytes, run->length);
    return run->copy != nullptr;
}

struct AvcTrial {
    AvcDecodeInput in;
    AvcDecodeOutput out;
    Owned<uint8_t> target;
    AvcUnit unit;  // that was decoded last
    bool has_slice;
};

enum class RunEnd { kReached, kWrongLength, kRefused, kNoMemory, kPicture };

// Makes the picture when the first sequence set has come, or another one is active.
static RunEnd make_target(AvcTrial* trial) {
    uint32_t id = kAvcLastSps;
    if (!(trial->out.events & kAvcEventSps) || trial->in.target_sps_id != -1) {
        if (trial->out.sps_id == trial->in.target_sps_id || trial->out.sps_id == -1) {
            return RunEnd::kReached;
        }
        id = static_cast<uint32_t>(trial->out.sps_id);
    }
    AvcStreamInfo info;
    avcdec_get_stream_info(trial->in.decoder, &info, id);
    if (info.error || info.width == 0) return RunEnd::kRefused;
    const uint64_t size = uint64_t{info.width} * info.height * 3 / 2;
    trial->target = owned_malloc<uint8_t>(size);
    if (!trial->target) return RunEnd::kNoMemory;
    trial->in.target = trial->target.get();
    trial->in.target_size = static_cast<uint32_t>(size);
    trial->in.stride = info.width;
    trial->in.target_sps_id = static_cast<int32_t>(info.sps_id);
    return RunEnd::kReached;
}

static RunEnd decode_unit(uint8_t* unit, AvcTrial* trial) {
    trial->in.nal = unit;
    trial->in.nal_length = trial->unit.length;
    avcdec_decode_nal(&trial->in, &trial->out);
    const uint32_t nal_unit_type = trial->unit.bytes[0] & 31;
    trial->has_slice = trial->has_slice || nal_unit_type == 1 || nal_unit_type == 5;
    const AvcDecodeOutput& out = trial->out;
    if (out.error || out.consumed != trial->unit.length) return RunEnd::kRefused;
    const RunEnd made = make_target(trial);
    if (made != RunEnd::kReached) return made;
    return out.events & kAvcEventPictureComplete ? RunEnd::kPicture : RunEnd::kReached;
}

static RunEnd decode_run(const UnitRun& run, AvcTrial* trial) {
    RunEnd end = RunEnd::kReached;
    for (uint32_t at = 0; at < run.length && end == RunEnd::kReached;) {
        if (run.length - at < run.length_size) return RunEnd::kWrongLength;
        uint32_t length = 0;
        for (uint32_t i = 0; i < run.length_size; ++i) length = length << 8 | run.bytes[at++];
        if (length < 2 || length > run.length - at) return RunEnd::kWrongLength;
        trial->unit = {run.bytes + at, length};
        end = decode_unit(run.copy.get() + at, trial);
        at += length;
    }
    return end;
}

static void explain_slice_header(const AvcTrial& trial, FrameFault* fault) {
    static const char* const kTypes[] = {"P", "B", "I", "SP", "SI"};
    const AvcSliceFacts slice = avc_look_at_slice(trial.unit, *trial.in.decoder);
    Verdict* const verdict = &fault->verdict;
    if (slice.slice_type < 2) {
        verdict_fail(verdict, kEncodeAgain,
                     "The key frame is no intra picture but a recovery point made of predicted "
                     "slices (%s).",
                     kTypes[slice.slice_type]);
    } else if (slice.slice_type > 2) {
        verdict_fail(verdict, kEncodeAgain,
                     "The key frame has switching slices (%s), which are not decoded.",
                     kTypes[slice.slice_type]);
    } else if (slice.is_idr_without_reference) {
        verdict_fail(verdict, kEncodeAgain,
                     "The key frame is marked as one that no picture refers to (nal_ref_idc 0), "
                     "which H.264 forbids for its kind (IDR).");
    } else if (!slice.has_sets) {
        verdict_fail(verdict, kEncodeAgain,
                     "The key frame needs picture parameter set %" PRIu32
                     ", which neither it nor the file's avcC has whole.",
                     slice.pic_parameter_set_id);
    } else if (static_cast<int32_t>(slice.seq_parameter_set_id) != trial.in.target_sps_id) {
        verdict_fail(verdict, kEncodeAgain,
                     "The key frame uses sequence parameter set %" PRIu32 "; only number %" PRId32
                     ", the first one in the file's avcC, is used.",
                     slice.seq_parameter_set_id, trial.in.target_sps_id);
    } else if (slice.is_redundant) {
        verdict_fail(verdict, kEncodeAgain,
                     "The key frame has redundant slices, which are not decoded.");
    }
    fault->is_damage = !verdict->is_failure;
    verdict_fail(verdict, kLookElsewhere, "A slice header of the key frame is damaged.");
}

static void explain_refused_unit(const AvcTrial& trial, FrameFault* fault) {
    Verdict* const verdict = &fault->verdict;
    AvcFacts facts = {};
    switch (trial.out.error) {
        case kAvcOk:  // the set is stored, but pictures of its size cannot be
        case kAvcBadSps:
            avc_look_at_sequence_set(trial.unit, &facts);
            explain_avc_sets(facts, verdict);
            verdict_fail(verdict, kEncodeAgain,
                         "The H.264 sequence parameter set is damaged, or of an unknown profile.");
            return;
        case kAvcBadPps:
            avc_look_at_picture_set(trial.unit, &facts);
            explain_avc_sets(facts, verdict);
            verdict_fail(verdict, kEncodeAgain, "The H.264 picture parameter set is damaged.");
            return;
        case kAvcNoTarget:
            verdict_fail(verdict, kEncodeAgain,
                         "Neither the key frame nor the file's avcC has an H.264 sequence "
                         "parameter set.");
            return;
        case kAvcBadSliceHeader:
            explain_slice_header(trial, fault);
            return;
        case kAvcSliceOfNextPicture:
            fault->is_damage = true;
            verdict_fail(verdict, kLookElsewhere,
                         "The slices of the key frame overlap: one starts before the end of the "
                         "one in front of it.");
            return;
        default:
            fault->is_damage = true;
            verdict_fail(verdict, kLookElsewhere, "The key frame's coded data is damaged.");
    }
}

static void explain_end(RunEnd end, const AvcTrial& trial, FrameFault* fault) {
    Verdict* const verdict = &fault->verdict;
    if (end == RunEnd::kRefused) explain_refused_unit(trial, fault);
    if (end == RunEnd::kPicture || end == RunEnd::kNoMemory || end == RunEnd::kRefused) return;
    fault->is_damage = true;
    if (end == RunEnd::kWrongLength) {
        verdict_fail(verdict, kLookElsewhere,
                     "The lengths of the key frame's units do not fit into it: its data is cut off "
                     "or damaged.");
    } else if (trial.has_slice) {
        verdict_fail(verdict, kLookElsewhere,
                     "The key frame ends before its picture is complete: slices are missing.");
    } else {
        verdict_fail(verdict, kLookElsewhere, "The key frame holds no picture: it has no slice.");
    }
}

static void decode_in_steps(const UnitRun& config, const UnitRun& sample, AvcTrial* trial,
                            FrameFault* fault) {
    const RunEnd sets_end = decode_run(config, trial);
    if (sets_end == RunEnd::kWrongLength) {
        verdict_fail(&fault->verdict, kCopyStreams,
                     "The lengths of the H.264 parameter sets in avcC do not fit into it.");
    } else if (sets_end != RunEnd::kReached) {
        explain_end(sets_end, *trial, fault);
    } else {
        explain_end(decode_run(sample, trial), *trial, fault);
    }
}

void explain_avc_frame(const KeyFrame& frame, FrameFault* fault) {
    const int32_t prefix = frame.length_prefix_size;
    if (prefix == 3) {
        verdict_fail(&fault->verdict, kCopyStreams,
                     "The stream's units have lengths of 3 bytes, which are not read.");
        return;
    }
    fault->is_damage = frame.bytes_read <= prefix + 1;
    if (fault->is_damage) {
        verdict_fail(&fault->verdict, kLookElsewhere,
                     "The key frame has %" PRId32 " bytes, too few for a picture.",
                     frame.bytes_read);
        return;
    }
    UnitRun config, sample;
    const AvcDecoderOptions options = {};
    AvcCreateResult created;
    if (!fill_run(frame.config, frame.config_length, 2, &config)) return;
    if (!fill_run(frame.sample, frame.bytes_read, static_cast<uint32_t>(prefix), &sample)) return;
    avcdec_create(&options, &created);
    if (created.error || !created.decoder) return;
    AvcTrial trial = {};
    trial.in.decoder = created.decoder;
    trial.in.time_stamp = kAvcNoTimeStamp;
    trial.in.target_sps_id = -1;
    decode_in_steps(config, sample, &trial, fault);
    avcdec_destroy(created.decoder);
}
