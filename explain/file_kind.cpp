// SPDX-License-Identifier: BSD-2-Clause
#include "explain/file_kind.h"

#include <algorithm>
#include <string_view>

using std::operator""sv;

struct Signature {
    const char* kind;
    std::string_view start;
    size_t second_at = 0;
    std::string_view second = {};
};

static constexpr Signature kSignatures[] = {
    {"Matroska or WebM", "\x1a\x45\xdf\xa3"sv},
    {"FLV", "FLV\x01"sv},
    {"MXF", "\x06\x0e\x2b\x34\x02\x05\x01\x01\x0d\x01\x02"sv},  // SMPTE ST 377-1, 7.1
    {"AVI", "RIFF"sv, 8, "AVI "sv},
    {"ASF (WMV)", "\x30\x26\xb2\x75\x8e\x66\xcf\x11"sv},
    {"Ogg", "OggS"sv},
    {"an MPEG program stream", "\0\0\1\xba"sv},
    {"a raw MPEG-4 stream", "\0\0\1\xb0"sv},
    {"a raw H.264 stream", "\0\0\0\1\x67"sv},
    {"a raw H.264 stream", "\0\0\0\1\x09"sv},
    {"a JPEG picture", "\xff\xd8\xff"sv},
    {"a PNG picture", "\x89PNG\r\n"sv},
    {"GIF", "GIF8"sv},
    {"a web page", "<!DOCTYPE "sv},
    {"a web page", "<html"sv},
};

// ISO 13818-1 2.4.3.2: packets of 188 bytes that start with 0x47. Disks have a time of four bytes
// in front of each.
static bool is_transport_stream(std::span<const uint8_t> start, size_t first, size_t packet) {
    if (start.size() <= first + packet) return false;
    for (size_t at = first; at < start.size(); at += packet) {
        if (start[at] != 0x47) return false;
    }
    return true;
}

static bool has_at(std::span<const uint8_t> start, size_t at, std::string_view text) {
    return start.size() >= at + text.size() &&
           std::equal(text.begin(), text.end(), start.begin() + static_cast<ptrdiff_t>(at),
                      [](char c, uint8_t byte) { return static_cast<uint8_t>(c) == byte; });
}

const char* file_kind(std::span<const uint8_t> start) {
    for (const Signature& row : kSignatures) {
        if (has_at(start, 0, row.start) && has_at(start, row.second_at, row.second)) {
            return row.kind;
        }
    }
    const bool is_stream = is_transport_stream(start, 0, 188) || is_transport_stream(start, 4, 192);
    return is_stream ? "an MPEG transport stream" : nullptr;
}
