// SPDX-License-Identifier: BSD-2-Clause
#include "tool/media_types.h"

#include <strings.h>

const char* const* g_additionalMediaTypes = nullptr;

static const char kUnknown[] = "application/octet-stream";

// clang-format off
static const char* const kBuiltInTypes[] = {
    "video/mpeg", "m1v", "",
    "video/mp4", "mp4", "m4v", "ismv", "mpeg4", "",
    "video/quicktime", "mov", "qt", "",
    "video/3gpp", "3gp", "",
    "audio/3gpp", "3gp", "",
    kUnknown, "",
    ""};
// clang-format on

static const char* look_up(const char* const* table, const char* extension) {
    const char* type = nullptr;
    while (**table) {
        type = *table;
        while (**++table) {
            if (strcasecmp(*table, extension) == 0) return type;
        }
        ++table;
    }
    return type;
}

const char* media_type_of(const char* extension) {
    if (!extension) return nullptr;
    const char* const type = look_up(kBuiltInTypes, extension);
    if (g_additionalMediaTypes && strcasecmp(type, kUnknown) == 0) {
        return look_up(g_additionalMediaTypes, extension);
    }
    return type;
}
