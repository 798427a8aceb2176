// SPDX-License-Identifier: BSD-2-Clause
#include "picture/png_library.h"

#include <dlfcn.h>

#define TEXT_OF(number) #number
#define LIBRARY_NAME(release, interface) "libpng" TEXT_OF(release) ".so." TEXT_OF(interface)

// Stays loaded, since what it is needed for is the last thing that a process does.
static bool load(PngLibrary* png) {
    void* const library =
        dlopen(LIBRARY_NAME(PNG_LIBPNG_VER_DLLNUM, PNG_LIBPNG_VER_SONUM), RTLD_NOW | RTLD_LOCAL);
    if (!library) return false;
    bool is_complete = true;
    const auto find = [&]<typename Function>(const char* name, Function* function) {
        *function = reinterpret_cast<Function>(dlsym(library, name));
        is_complete = is_complete && *function;
    };
#define FIND(name) find("png_" #name, &png->name)
    FIND(create_write_struct);
    FIND(create_info_struct);
    FIND(destroy_write_struct);
    FIND(set_longjmp_fn);
    FIND(longjmp);
    FIND(init_io);
    FIND(set_compression_level);
    FIND(set_compression_strategy);
    FIND(set_filter);
    FIND(set_IHDR);
    FIND(set_text);
    FIND(write_info);
    FIND(write_row);
    FIND(write_end);
#undef FIND
    return is_complete;
}

const PngLibrary* png_library() {
    static PngLibrary png;
    static const bool is_loaded = load(&png);
    return is_loaded ? &png : nullptr;
}
