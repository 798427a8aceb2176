// SPDX-License-Identifier: BSD-2-Clause
// Decodes an MPEG-4 Part 2 or H.263 key frame. The first byte chooses the codec and whether the
// rest is choices for a stream, or 2 bytes of length, that many bytes of configuration, and the
// sample.
#include "fuzz/choices.h"
#include "fuzz/m4v_noise_writer.h"
#include "fuzz/target.h"
#include "thumb/decode_key_frame_mpeg4.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Choices choices(data, size);
    const uint32_t mode = choices.byte();
    const bool is_mpeg4 = mode & 2;
    std::string config, sample;
    if (mode & 1) {
        if (is_mpeg4) config = write_m4v_config(&choices);
        if (mode & 4) sample = write_m4v_config(&choices);
        sample +=
            is_mpeg4 && !(mode & 8) ? write_m4v_picture(&choices) : write_h263_picture(&choices);
    } else {
        config = choices.bytes(choices.below(65536));
        sample = choices.rest();
    }
    {
        const Owned<uint8_t> config_copy = exact_copy(config);
        const Owned<uint8_t> sample_copy = exact_copy(sample);
        const KeyFrame record = {config_copy.get(),
                                 static_cast<int32_t>(config.size()),
                                 sample_copy.get(),
                                 static_cast<int32_t>(sample.size()),
                                 0,
                                 static_cast<int32_t>(sample.size())};
        DecodedPicture picture = {};
        DecodeKeyFrameMpeg4(&record, &picture, is_mpeg4 ? kCodecMpeg4 : kCodecH263);
        if (picture.planes) upnp_free(picture.planes);
    }
    check_memory();
    return 0;
}
