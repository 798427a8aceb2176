// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/picture_check.h"

#include <algorithm>
#include <string_view>

using namespace std::string_view_literals;

static bool is_enclosed(std::string_view text, std::string_view front, std::string_view back) {
    return text.size() > front.size() + back.size() && text.starts_with(front) &&
           text.ends_with(back);
}

bool is_whole_picture(std::span<const uint8_t> bytes, PictureFormat format) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    // The last chunk of a PNG file is always the same, its checksum included.
    if (format == PictureFormat::kPng) {
        return is_enclosed(text, "\x89PNG\r\n\x1a\n"sv, "\0\0\0\0IEND\xae\x42\x60\x82"sv);
    }
    return is_enclosed(text, "\xff\xd8\xff"sv, "\xff\xd9"sv);
}
