// SPDX-License-Identifier: BSD-2-Clause
// Decodes an H.264 key frame. The first byte chooses whether the rest is choices for a stream, or
// 2 bytes of length, that many bytes of parameter sets, and the sample.
#include "avcdec/decode_key_frame_avc.h"
#include "fuzz/avc_writer.h"
#include "fuzz/choices.h"
#include "fuzz/target.h"

static AvcStream make_stream(Choices* c, int length_size, bool is_written) {
    if (is_written) return write_avc_stream(c, length_size);
    AvcStream stream;
    stream.sets = c->bytes(c->below(65536));
    stream.sample = c->rest();
    return stream;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices(data, size);
    const uint32_t mode = choices.byte();
    const int length_size = mode / 2 % 3 == 0 ? 4 : static_cast<int>(mode / 2 % 3);
    const AvcStream stream = make_stream(&choices, length_size, mode & 1);
    {
        const Owned<uint8_t> sets = exact_copy(stream.sets);
        const Owned<uint8_t> sample = exact_copy(stream.sample);
        const AvcFrameRequest request = {sets.get(), static_cast<uint32_t>(stream.sets.size()),
                                         sample.get(), static_cast<uint32_t>(stream.sample.size()),
                                         length_size};
        DecodedPicture picture = {};
        DecodeKeyFrameAvc(&request, &picture);
        if (picture.planes) upnp_free(picture.planes);
    }
    check_memory();
    return 0;
}
