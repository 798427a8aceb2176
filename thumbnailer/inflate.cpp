// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/inflate.h"

#include <dlfcn.h>
#include <zlib.h>

static decltype(&uncompress) load_uncompress() {
    void* const library = dlopen("libz.so.1", RTLD_NOW | RTLD_LOCAL);
    return library ? reinterpret_cast<decltype(&uncompress)>(dlsym(library, "uncompress"))
                   : nullptr;
}

static decltype(&uncompress) loaded_uncompress() {
    static const auto function = load_uncompress();
    return function;
}

void prepare_to_inflate() { loaded_uncompress(); }

bool inflate_zlib(std::span<const uint8_t> stream, std::span<uint8_t> into) {
    const auto function = loaded_uncompress();
    uLongf length = into.size();
    return function && function(into.data(), &length, stream.data(), stream.size()) == Z_OK &&
           length == into.size();
}
