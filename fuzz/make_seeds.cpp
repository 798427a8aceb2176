// SPDX-License-Identifier: BSD-2-Clause
// Makes the fuzz targets' first inputs out of small clips, a folder for each target.
// usage: make_seeds FOLDER CLIP...
#include <filesystem>

#include "runtime/accounted_memory.h"
#include "tests/support/box_builder.h"
#include "tests/support/temp_folder.h"
#include "tool/key_frames.h"

static std::string text(const uint8_t* bytes, int32_t length) {
    return std::string(bytes, bytes + length);
}

// The mode byte, and the key frame behind the length of its configuration.
static std::string decoder_seed(char mode, const KeyFrame& record) {
    return std::string(1, mode) + u16(static_cast<uint32_t>(record.config_length)) +
           text(record.config, record.config_length) + text(record.sample, record.bytes_read);
}

static void add(const std::string& folder, const std::string& name, const std::string& bytes) {
    std::filesystem::create_directories(folder);
    write_file(folder + "/" + name, bytes);
}

static void add_key_frame(const std::string& folder, const std::string& name, int32_t codec_kind,
                          const KeyFrame& record) {
    if (codec_kind == kCodecAvc) {
        const char mode = record.length_prefix_size == 4   ? 0
                          : record.length_prefix_size == 2 ? 4
                                                           : 2;
        add(folder + "/avc", name, decoder_seed(mode, record));
        add(folder + "/avc_sets", name, zeros(1) + text(record.config, record.config_length));
    } else {
        add(folder + "/m4v", name, decoder_seed(codec_kind == kCodecMpeg4 ? 2 : 0, record));
    }
}

static int add_clip(const std::string& folder, const std::string& path) {
    const std::string name = std::filesystem::path(path).filename();
    const std::string bytes = read_file(path);
    add(folder + "/boxes", name, zeros(3) + bytes);
    add(folder + "/tool", name, std::string("\50\50\120\5\12\106\0", 7) + bytes);
    KeyFrame record = {};
    KeyFrameRequest request = {50, 1, &record, kCodecNone, 0};
    if (GetKeyFrameMpeg4(path.c_str(), &request) != 0 || request.key_frame_count != 1) return 1;
    add_key_frame(folder, name, request.codec_kind, record);
    upnp_free(record.config);
    upnp_free(record.sample);
    return 0;
}

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    upnp_memory_init();
    const std::string folder = argv[1];
    add(folder + "/thumb", "small", zeros(20));
    add(folder + "/thumb", "cropped", std::string("\1\0\50\0\0\36\0\1", 8));
    int status = 0;
    for (int i = 2; i < argc; ++i) status |= add_clip(folder, argv[i]);
    return status;
}
