// SPDX-License-Identifier: BSD-2-Clause
// What the four-character codes of sample entries stand for.
#pragma once

#include <string_view>

struct CodecName {
    const char* format;  // four characters
    const char* name;
    const char* advice;  // what to do to have it decoded
};

// "" for the name of a code that is not known.
const CodecName& codec_name(std::string_view format);
