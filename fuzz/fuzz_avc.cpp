// SPDX-License-Identifier: BSD-2-Clause
// Decodes an H.264 key frame: a byte for the size of the NAL units' lengths, whether more formats
// are allowed and how the flags of 4:4:4 are read, parameter sets behind their length, and the
// sample.
#include <vector>

#include "avcdec/decode_key_frame_avc.h"
#include "fuzz/target.h"

void run_target(Choices* c) {
    const int choice = c->byte();
    const std::string set_bytes = c->bytes(c->word()), sample_bytes = c->bytes();
    // Blocks of their exact sizes, so that the sanitizer sees one byte too many.
    std::vector<uint8_t> sets(set_bytes.begin(), set_bytes.end());
    std::vector<uint8_t> sample(sample_bytes.begin(), sample_bytes.end());
    AvcFrameRequest request = {sets.data(),        static_cast<uint32_t>(sets.size()),
                               sample.data(),      static_cast<uint32_t>(sample.size()),
                               1 << choice % 3,    choice / 3 % 2 == 1,
                               choice / 6 % 2 == 1};
    DecodedPicture picture = {};
    const int result = DecodeKeyFrameAvc(&request, &picture);
    note_result(result);
    if (result == 0) note_picture(picture);
    if (picture.planes) upnp_free(picture.planes);
}
