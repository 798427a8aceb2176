// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/inflate.h"

#include <zlib.h>

bool inflate_zlib(std::span<const uint8_t> stream, std::span<uint8_t> into) {
    uLongf length = into.size();
    return uncompress(into.data(), &length, stream.data(), stream.size()) == Z_OK &&
           length == into.size();
}
