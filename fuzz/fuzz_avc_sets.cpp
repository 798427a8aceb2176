// SPDX-License-Identifier: BSD-2-Clause
// Hands NAL units, most of them parameter sets, to one H.264 decoder with any options and a small
// target, and asks for the descriptions. The first byte chooses whether the units are written from
// the rest or are the rest, each behind two bytes of its length.
#include "avcdec/avc_decoder.h"
#include "fuzz/avc_writer.h"
#include "fuzz/choices.h"
#include "fuzz/target.h"

constexpr uint32_t kSide = 64;
constexpr uint32_t kTargetSize = kSide * kSide * 3 / 2;

static std::string make_unit(Choices* c, AvcSyntax* syntax, bool has_start_code) {
    const uint32_t kind = c->byte() % 8;
    std::string unit = kind == 0   ? c->bytes(c->byte() % 8)
                       : kind <= 2 ? write_slice(c, *syntax, c->flag())
                       : kind <= 5 ? write_sps(c, syntax)
                                   : write_pps(c, syntax);
    if (has_start_code && !c->once_in(8)) unit = std::string(c->byte() % 4, '\0') + "\1" + unit;
    return unit;
}

static void decode(AvcDecodeInput in, const std::string& unit) {
    const Owned<uint8_t> copy = exact_copy(unit);
    in.nal = copy.get();
    in.nal_length = static_cast<uint32_t>(unit.size());
    AvcDecodeOutput out;
    avcdec_decode_nal(&in, &out);
}

static void feed(AvcDecoder* decoder, Choices* c, bool is_written, bool has_start_codes) {
    const Owned<uint8_t> target = owned_calloc<uint8_t>(kTargetSize);
    AvcSyntax syntax;
    AvcDecodeInput in = {};
    in.decoder = decoder;
    in.target_size = kTargetSize;
    for (int i = 0; i < 16; ++i) {
        const std::string unit =
            is_written ? make_unit(c, &syntax, has_start_codes) : c->bytes(c->below(65536));
        if (unit.empty()) break;
        const uint32_t choice = is_written ? c->byte() : 3;
        in.target = choice & 1 ? target.get() : nullptr;
        in.stride = choice & 2 ? kSide : choice;
        in.target_sps_id = choice & 4 ? 1 : 0;
        in.option_index = choice >> 3;
        in.call_flags = choice & 0xc0 ? 0 : choice >> 4;
        decode(in, unit);
        avc_activate_pps(decoder, is_written && c->flag() ? c->byte() : 0);
        AvcStreamInfo info;
        avcdec_get_stream_info(decoder, &info, choice % 2 ? kAvcLastSps : choice % 33);
    }
}

static void run(Choices* c) {
    const bool is_written = c->flag();
    const uint32_t flags = is_written ? c->byte() & 5 : 0;
    const std::string bytes = c->bytes(flags & 4 ? c->byte() % 34 : 0);
    const Owned<uint8_t> table = exact_copy(bytes);
    const AvcDecoderOptions options = {flags, table.get(), static_cast<uint32_t>(bytes.size())};
    AvcCreateResult created;
    avcdec_create(&options, &created);
    if (created.decoder) feed(created.decoder, c, is_written, flags & 1);
    avcdec_destroy(created.decoder);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices(data, size);
    run(&choices);
    check_memory();
    return 0;
}
