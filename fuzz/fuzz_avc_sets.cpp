// SPDX-License-Identifier: BSD-2-Clause
// Hands NAL units, most of them parameter sets, to one H.264 decoder with any options and a small
// target, and asks for the descriptions.
#include <vector>

#include "avcdec/avc_decoder.h"
#include "fuzz/avc_writer.h"
#include "fuzz/target.h"

constexpr uint32_t kSide = 64;
constexpr uint32_t kTargetSize = kSide * kSide * 3 / 2;

static std::string write_unit(Choices* c, AvcSyntax* syntax) {
    const uint32_t kind = c->byte() % 8;
    if (kind == 7) return c->bytes(1 + c->byte() % 8);
    if (kind > 4) return write_slice(c, *syntax, c->flag());
    return kind % 2 == 0 ? write_sps(c, syntax) : write_pps(c, syntax);
}

static void feed(AvcDecoder* decoder, Choices* c, bool has_start_codes) {
    std::vector<uint8_t> target(kTargetSize);
    AvcSyntax syntax;
    for (int i = 0; i < 16; ++i) {
        std::string unit = write_unit(c, &syntax);
        if (has_start_codes && !c->once_in(8))
            unit = std::string(c->byte() % 4, '\0') + '\1' + unit;
        std::vector<uint8_t> copy(unit.begin(), unit.end());
        const AvcDecodeInput in = {decoder,
                                   copy.data(),
                                   c->once_in(8) ? nullptr : target.data(),
                                   static_cast<uint32_t>(copy.size()),
                                   0,
                                   c->once_in(8) ? c->byte() : kSide,
                                   kTargetSize,
                                   c->once_in(8),
                                   c->byte(),
                                   c->once_in(4) ? c->byte() : 0};
        AvcDecodeOutput out;
        avcdec_decode_nal(&in, &out);
        if (c->flag()) avc_activate_pps(decoder, c->byte());
        AvcStreamInfo info;
        avcdec_get_stream_info(decoder, &info, c->flag() ? kAvcLastSps : c->byte());
    }
}

void run_target(Choices* c) {
    const uint32_t flags = c->byte() & (kAvcStartCodes | kAvcOptionTable);
    const std::string bytes = c->bytes(c->byte() % 34);
    const std::vector<uint8_t> table(bytes.begin(), bytes.end());
    const AvcDecoderOptions options = {flags, table.data(), static_cast<uint32_t>(table.size())};
    AvcCreateResult created;
    avcdec_create(&options, &created);
    if (created.decoder) feed(created.decoder, c, flags & kAvcStartCodes);
    avcdec_destroy(created.decoder);
}
