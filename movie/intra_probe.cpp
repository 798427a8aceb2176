// SPDX-License-Identifier: BSD-2-Clause
#include "movie/intra_probe.h"

#include <algorithm>

// NAL units in front of a picture's first slice: delimiter, parameter sets, messages.
constexpr int kMaxUnits = 64;
constexpr uint32_t kProbeBytes = 512;

// Bits from a 64-bit word, most significant first; zeros after its end.
struct WordBits {
    uint64_t rest;
    uint32_t take(int count) {
        const uint64_t value = rest >> (64 - count);
        rest <<= count;
        return static_cast<uint32_t>(value);
    }
    // H.264 9.1, up to 16 leading zeros.
    uint32_t ue() {
        int zeros = 0;
        while (zeros < 16 && take(1) == 0) ++zeros;
        return zeros == 0 ? 0 : (1U << zeros) - 1 + take(zeros);
    }
};

// Up to eight bytes, zeros past the end.
static WordBits bits_at(SourceReader* reader, uint64_t offset, uint64_t end) {
    uint64_t word = 0;
    for (uint64_t at = offset; at < offset + 8; ++at) {
        word = word << 8 | (at < end ? reader->u8_at(at) : 0);
    }
    return {word};
}

// H.264 7.3.3: whether the slice whose header starts there is an I slice. Types 5 to 9 promise that
// the picture's other slices are alike.
static IntraGuess probe_slice(SourceReader* reader, uint64_t offset, uint64_t end) {
    WordBits bits = bits_at(reader, offset, end);
    bits.ue();  // first_mb_in_slice
    return bits.ue() % 5 == 2 ? IntraGuess::kIntra : IntraGuess::kNotIntra;
}

static IntraGuess probe_avc(SourceReader* reader, uint32_t prefix_size, uint64_t offset,
                            uint64_t end) {
    constexpr uint32_t kSlice = 1, kPartitionA = 2, kIdrSlice = 5;
    for (int units = 0; units < kMaxUnits; ++units) {
        // What is left behind the last unit is padding at most.
        if (end - offset <= prefix_size) return IntraGuess::kNotIntra;
        uint64_t length = 0;
        for (uint32_t i = 0; i < prefix_size; ++i) length = length << 8 | reader->u8_at(offset++);
        if (length > end - offset) return IntraGuess::kUnknown;
        if (length == 0) continue;
        const uint32_t type = reader->u8_at(offset) & 31;
        if (type == kIdrSlice) return IntraGuess::kIntra;
        if (type == kSlice || type == kPartitionA) return probe_slice(reader, offset + 1, end);
        offset += length;
    }
    return IntraGuess::kUnknown;
}

// ISO 14496-2 6.2.5: vop_coding_type after the start code of the first VOP, 0 for intra.
static IntraGuess probe_mpeg4(SourceReader* reader, uint64_t offset, uint64_t end) {
    constexpr uint32_t kVopStart = 0x1b6;
    uint32_t last_bytes = UINT32_MAX;
    for (uint64_t at = offset; at < std::min(end, offset + kProbeBytes) && at + 1 < end; ++at) {
        last_bytes = last_bytes << 8 | reader->u8_at(at);
        if (last_bytes != kVopStart) continue;
        return reader->u8_at(at + 1) >> 6 == 0 ? IntraGuess::kIntra : IntraGuess::kNotIntra;
    }
    return IntraGuess::kUnknown;
}

// H.263 5.1.1 to 5.1.4: start code, temporal reference, PTYPE or PLUSPTYPE.
static IntraGuess probe_h263(SourceReader* reader, uint64_t offset, uint64_t end) {
    constexpr uint32_t kPictureStart = 0x20;
    WordBits bits = bits_at(reader, offset, end);
    if (bits.take(22) != kPictureStart) return IntraGuess::kUnknown;
    bits.take(8 + 5);
    const bool is_extended = bits.take(3) == 7;
    if (!is_extended) return bits.take(1) == 0 ? IntraGuess::kIntra : IntraGuess::kNotIntra;
    const bool has_optional_part = bits.take(3) == 1;
    if (has_optional_part) bits.take(18);
    return bits.take(3) == 0 ? IntraGuess::kIntra : IntraGuess::kNotIntra;
}

static int start_code_at(std::span<const uint8_t> bytes, size_t at) {
    const bool is_there =
        bytes.size() > at + 3 && bytes[at] == 0 && bytes[at + 1] == 0 && bytes[at + 2] == 1;
    return is_there ? bytes[at + 3] : -1;
}

bool begins_like_mpeg4(std::span<const uint8_t> sample) {
    constexpr int kSequence = 0xb0, kVisualObject = 0xb5, kFirstLayer = 0x20, kLastLayer = 0x2f;
    const auto is_layer = [](int code) { return code >= kFirstLayer && code <= kLastLayer; };
    const int first = start_code_at(sample, 0);
    // A sequence has one byte in front of the next code, a video object none. In MPEG-2 and AVS
    // the same codes are those of a picture and a sequence, which have more.
    if (first == kSequence) return start_code_at(sample, 5) >= 0;
    if (first >= 0 && first < kFirstLayer) return is_layer(start_code_at(sample, 4));
    return first == kVisualObject || is_layer(first);
}

IntraGuess probe_sample(SourceReader* reader, VideoCodec codec, uint32_t prefix_size,
                        uint64_t offset, uint32_t size) {
    reader->expect(kProbeBytes);
    const uint64_t end = offset + size;
    switch (codec) {
        case VideoCodec::kAvc:
            return probe_avc(reader, prefix_size, offset, end);
        case VideoCodec::kMpeg4:
            return probe_mpeg4(reader, offset, end);
        case VideoCodec::kH263:
            return probe_h263(reader, offset, end);
        case VideoCodec::kNone:
            break;
    }
    return IntraGuess::kUnknown;
}
