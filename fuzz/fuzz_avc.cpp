// SPDX-License-Identifier: BSD-2-Clause
// Decodes an H.264 key frame, written from choices, or as it is behind one of the last four bytes.
#include <vector>

#include "avcdec/decode_key_frame_avc.h"
#include "fuzz/avc_writer.h"
#include "fuzz/target.h"

void run_target(Choices* c) {
    const uint32_t mode = c->byte();
    const int length_size = 1 << mode % 3;
    AvcStream stream;
    if (mode < 252) stream = write_avc_stream(c, length_size);
    if (mode >= 252) stream = {"", "", c->bytes(c->word()), c->bytes()};
    // Blocks of their exact sizes, so that the sanitizer sees one byte too many.
    std::vector<uint8_t> sets(stream.sets.begin(), stream.sets.end());
    std::vector<uint8_t> sample(stream.sample.begin(), stream.sample.end());
    AvcFrameRequest request = {sets.data(), static_cast<uint32_t>(sets.size()), sample.data(),
                               static_cast<uint32_t>(sample.size()), length_size};
    DecodedPicture picture = {};
    const int result = DecodeKeyFrameAvc(&request, &picture);
    note_result(result);
    if (result == 0) note_picture(picture);
    if (picture.planes) upnp_free(picture.planes);
}
