// SPDX-License-Identifier: BSD-2-Clause
// Decodes an MPEG-4 Part 2 or H.263 key frame, written from choices, or as it is behind one of the
// last two bytes.
#include <vector>

#include "fuzz/m4v_stream_writer.h"
#include "fuzz/target.h"
#include "thumb/decode_key_frame_mpeg4.h"

void run_target(Choices* c) {
    const uint32_t mode = c->byte();
    const bool is_mpeg4 = mode % 2 == 0, is_written = mode < 254;
    const bool is_vop = is_mpeg4 && mode % 16 < 12;  // rather than a short video header
    M4vSyntax syntax;
    const std::string config = is_written && is_mpeg4 ? write_m4v_config(c, &syntax)
                                                      : c->bytes(is_written ? 4 : c->word());
    std::string sample = is_written && mode & 2 ? write_m4v_config(c, &syntax) : "";
    if (is_written) sample += is_vop ? write_m4v_picture(c, syntax) : write_h263_picture(c);
    if (!is_written) sample = c->bytes();
    // Blocks of their exact sizes, so that the sanitizer sees one byte too many.
    std::vector<uint8_t> config_copy(config.begin(), config.end());
    std::vector<uint8_t> sample_copy(sample.begin(), sample.end());
    const int32_t config_length = static_cast<int32_t>(config.size());
    const int32_t length = static_cast<int32_t>(sample.size());
    const KeyFrame record = {
        config_copy.data(), config_length, sample_copy.data(), length, 0, length};
    DecodedPicture picture = {};
    const M4vRefusal refusal = decode_key_frame_mpeg4(record, is_mpeg4, &picture);
    note_result(static_cast<int>(refusal));
    if (refusal == M4vRefusal::kNone) {
        note_result(picture.planes, 2 * size_t{picture.v_offset} - picture.u_offset);
    }
    if (picture.planes) upnp_free(picture.planes);
}
