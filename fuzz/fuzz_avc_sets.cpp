// SPDX-License-Identifier: BSD-2-Clause
// Hands parameter sets to one H.264 decoder, activates each pair and asks for each description. The
// first byte chooses whether the sets are written from the rest or are the rest, each behind the
// byte of its length.
#include "avcdec/avc_decoder.h"
#include "avcdec/slice_header.h"
#include "fuzz/avc_writer.h"
#include "fuzz/choices.h"
#include "fuzz/target.h"

static std::string make_set(Choices* c, bool is_written) {
    if (!is_written) return c->bytes(c->byte());
    bool is_high_profile = c->flag(), is_cabac;
    return c->flag() ? write_sps(c, &is_high_profile) : write_pps(c, is_high_profile, &is_cabac);
}

static void decode(AvcDecoder* decoder, const std::string& set) {
    const Owned<uint8_t> copy = exact_copy(set);
    AvcDecodeInput in = {};
    in.decoder = decoder;
    in.nal = copy.get();
    in.nal_length = static_cast<uint32_t>(set.size());
    AvcDecodeOutput out;
    avcdec_decode_nal(&in, &out);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices(data, size);
    const bool is_written = choices.flag();
    const AvcDecoderOptions options = {};
    AvcCreateResult created;
    avcdec_create(&options, &created);
    if (!created.decoder) abort();
    for (int i = 0; i < 16; ++i) {
        const std::string set = make_set(&choices, is_written);
        if (set.empty()) break;
        decode(created.decoder, set);
        avc_activate_pps(created.decoder, choices.byte());
        AvcStreamInfo info;
        avcdec_get_stream_info(created.decoder, &info, choices.byte() % 33);
    }
    avcdec_destroy(created.decoder);
    check_memory();
    return 0;
}
