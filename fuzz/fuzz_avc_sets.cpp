// SPDX-License-Identifier: BSD-2-Clause
// Hands NAL units, most of them parameter sets, to one H.264 decoder with any options and a small
// target, and asks for the descriptions.
#include <stddef.h>

#include <vector>

#include "avcdec/avc_decoder.h"
#include "avcdec/avc_instance.h"
#include "fuzz/target.h"

constexpr uint32_t kSide = 64;

static void feed(AvcDecoder* decoder, Choices* c) {
    std::vector<uint8_t> target(kSide * kSide * 3 / 2);
    std::string unit;  // now and then the same again
    for (int i = 0; i < 16; ++i) {
        if (!c->once_in(8)) unit = c->bytes(c->word());
        std::vector<uint8_t> copy(unit.begin(), unit.end());
        AvcDecodeInput in = {};
        in.decoder = decoder;
        in.nal = copy.data();
        in.nal_length = static_cast<uint32_t>(copy.size());
        in.target = c->once_in(8) ? nullptr : target.data();
        in.target_size = static_cast<uint32_t>(target.size());
        in.stride = c->once_in(8) ? c->byte() : kSide;
        in.target_sps_id = c->once_in(8);
        in.option_index = c->byte();
        in.call_flags = c->once_in(4) ? c->byte() : 0;
        AvcDecodeOutput out;
        avcdec_decode_nal(&in, &out);
        // Not the reason: where a slice ends in damage, it depends on how far the reader looks.
        const uint32_t said[] = {out.error, out.consumed, out.events,
                                 static_cast<uint32_t>(out.sps_id)};
        note_result(said, sizeof said);
        if (c->flag()) avc_activate_pps(decoder, c->byte());
        AvcStreamInfo info;
        avcdec_get_stream_info(decoder, &info, c->flag() ? kAvcLastSps : c->byte());
        note_result(&info, offsetof(AvcStreamInfo, presentation));
    }
}

void run_target(Choices* c) {
    const uint32_t flags = c->byte() & (kAvcStartCodes | kAvcOptionTable);
    const std::string bytes = c->bytes(c->byte() % 34);
    const std::vector<uint8_t> table(bytes.begin(), bytes.end());
    const AvcDecoderOptions options = {flags, table.data(), static_cast<uint32_t>(table.size())};
    AvcCreateResult created;
    avcdec_create(&options, &created);
    if (created.decoder) feed(created.decoder, c);
    avcdec_destroy(created.decoder);
}
