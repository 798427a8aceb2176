// SPDX-License-Identifier: BSD-2-Clause
#include "wording/fill_in.h"

std::string fill_in(std::string_view text, std::initializer_list<std::string> values) {
    std::string out(text);
    size_t from = 0;
    for (const std::string& value : values) {
        const size_t place = out.find("{}", from);
        if (place == std::string::npos) break;
        out.replace(place, 2, value);
        from = place + value.size();
    }
    return out;
}
