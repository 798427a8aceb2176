// SPDX-License-Identifier: BSD-2-Clause
#include "explain/names.h"

#include <inttypes.h>
#include <stdio.h>

#include <algorithm>

const char* avc_profile_name(uint32_t profile_idc) {
    static constexpr struct {
        uint32_t profile_idc;
        const char* name;
    } kProfiles[] = {
        {44, "CAVLC 4:4:4 Intra"},
        {66, "Baseline"},
        {77, "Main"},
        {88, "Extended"},
        {100, "High"},
        {110, "High 10"},
        {122, "High 4:2:2"},
        {244, "High 4:4:4 Predictive"},
    };
    for (const auto& row : kProfiles) {
        if (row.profile_idc == profile_idc) return row.name;
    }
    return "unknown";
}

const char* avc_chroma_name(uint32_t chroma_format_idc) {
    static constexpr const char* kChroma[] = {"monochrome", "4:2:0", "4:2:2", "4:4:4"};
    return kChroma[std::min<uint32_t>(chroma_format_idc, 3)];
}

std::string time_text(uint64_t ms) {
    char text[40];
    snprintf(text, sizeof text, "%" PRIu64 ":%02u:%02u.%03u", ms / 3600000,
             static_cast<unsigned>(ms / 60000 % 60), static_cast<unsigned>(ms / 1000 % 60),
             static_cast<unsigned>(ms % 1000));
    return text;
}
