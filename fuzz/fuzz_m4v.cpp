// SPDX-License-Identifier: BSD-2-Clause
// Decodes an MPEG-4 Part 2 or H.263 key frame: one that was written, which has to show what it
// should, the same with some bits changed, or whatever is behind one of the last two bytes.
#include <utility>
#include <vector>

#include "fuzz/target.h"
#include "tests/m4vdec/m4v_writer.h"
#include "thumb/decode_key_frame_mpeg4.h"

// A picture. If some of its bytes are changed or cut off, nobody knows what it shows.
static WrittenPicture write_stream(Choices* c, bool is_mpeg4) {
    Choices changes = c->part(16);
    WrittenPicture picture = write_picture(!is_mpeg4, c);
    for (uint32_t n = changes.byte() % 4; n > 0; --n) {
        std::string& bytes = changes.flag() ? picture.config : picture.sample;
        const size_t at = changes.flag() ? changes.word() : changes.byte() % 32;  // mostly headers
        if (at < bytes.size()) bytes[at] ^= static_cast<char>(changes.byte());
        picture.planes.clear();
    }
    if (changes.once_in(16)) {
        picture.sample.resize(changes.word() % (picture.sample.size() + 1));
        picture.planes.clear();
    }
    if (changes.flag()) picture.sample = std::exchange(picture.config, "") + picture.sample;
    return picture;
}

void run_target(Choices* c) {
    const uint32_t mode = c->byte();
    const bool is_mpeg4 = mode % 2 == 0;
    WrittenPicture written;
    if (mode < 254) written = write_stream(c, is_mpeg4);
    if (mode >= 254) written = {c->bytes(c->word()), c->bytes(), {}};
    // Blocks of their exact sizes, so that the sanitizer sees one byte too many.
    std::vector<uint8_t> config(written.config.begin(), written.config.end());
    std::vector<uint8_t> sample(written.sample.begin(), written.sample.end());
    const int32_t config_length = static_cast<int32_t>(config.size());
    const int32_t length = static_cast<int32_t>(sample.size());
    uint8_t none;  // rather than null, which says that there is no record
    const KeyFrame record = {
        config.empty() ? &none : config.data(), config_length, sample.data(), length, 0, length};
    DecodedPicture picture = {};
    const M4vRefusal refusal = decode_key_frame_mpeg4(record, is_mpeg4, &picture);
    // Where data ends in damage, the word that the reader holds decides on the reason.
    note_result(refusal == M4vRefusal::kNone);
    std::vector<uint8_t> planes;
    if (refusal == M4vRefusal::kNone) planes = note_picture(picture);
    if (!written.planes.empty() && written.planes != planes) abort();
    if (picture.planes) upnp_free(picture.planes);
}
