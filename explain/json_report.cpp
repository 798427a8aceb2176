// SPDX-License-Identifier: BSD-2-Clause
#include "explain/json_report.h"

#include <inttypes.h>

#include <string>
#include <string_view>

#include "explain/names.h"
#include "wording/printable.h"

// RFC 8259 7: of printable text, quotes and backslashes are all that has to be escaped.
static std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + '"';
}

static const char* boolean(bool value) { return value ? "true" : "false"; }

static const char* container_of(const Examination& found) {
    if (found.kind && !found.boxes.has_movie) return found.kind;
    if (!found.boxes.has_known_box) return "";
    if (found.brand == "qt  " || found.brand.empty()) return "QuickTime";
    return found.brand.starts_with("3g") ? "3GPP" : "MP4";
}

static void print_container(const Examination& found, FILE* out) {
    const std::string name = container_of(found);
    if (name.empty()) return fputs("\"container\":null,", out), void();
    fprintf(out, "\"container\":{\"name\":%s,\"brand\":%s,\"fragmented\":%s},",
            quoted(name).c_str(), quoted(found.brand).c_str(), boolean(found.boxes.has_fragments));
}

static void print_codec(const Examination& found, FILE* out) {
    const AvcStreamFacts& avc = found.avc;
    fprintf(out, "\"codec\":{\"name\":%s,\"format\":%s",
            *found.codec ? quoted(found.codec).c_str() : "null", quoted(found.format).c_str());
    if (avc.has_sequence_set) {
        fprintf(out,
                ",\"profile\":\"%s\",\"level\":%.1f,\"bit_depth\":%" PRIu32
                ",\"chroma\":\"%s\",\"interlaced\":%s",
                avc_profile_name(avc.profile_idc), avc.level_idc / 10.0, avc.bit_depth_luma,
                avc_chroma_name(avc.chroma_format_idc), boolean(avc.is_interlaced));
    }
    fputs("},", out);
}

static void print_video(const Examination& found, FILE* out) {
    if (!found.has_video) {
        fputs(
            "\"codec\":null,\"width\":null,\"height\":null,\"rotation\":null,\"mirrored\":null,"
            "\"pixel_aspect\":null,\"duration_ms\":null,\"key_frame_count\":null,",
            out);
        return;
    }
    const Shown& shown = found.shown;
    print_codec(found, out);
    fprintf(out,
            "\"width\":%" PRIu32 ",\"height\":%" PRIu32
            ",\"rotation\":%d,\"mirrored\":%s,"
            "\"pixel_aspect\":[%" PRIu32 ",%" PRIu32
            "],\"duration_ms\":%s,\"key_frame_count\":%" PRIu32 ",",
            found.width, found.height, shown.rotation, boolean(shown.is_mirrored),
            shown.pixel_width, shown.pixel_height,
            found.duration_ms == 0 ? "null" : std::to_string(found.duration_ms).c_str(),
            found.key_frame_count);
}

static void print_key_frames(const Examination& found, FILE* out) {
    const char* comma = "";
    fputs("\"key_frames\":[", out);
    for (const KeyFrameRow& row : found.rows) {
        const std::string time = row.time_ms < 0 ? "null" : std::to_string(row.time_ms);
        fprintf(out,
                "%s{\"index\":%" PRIu32 ",\"time_ms\":%s,\"bytes\":%" PRIu32
                ",\"collected\":%s,\"picked\":%s}",
                comma, row.index, time.c_str(), row.bytes, boolean(row.is_wanted && row.bytes != 0),
                boolean(row.is_picked));
        comma = ",";
    }
    fputs("],", out);
}

static void print_advice(std::string_view advice, FILE* out) {
    fputs("\"advice\":[", out);
    while (!advice.empty()) {
        const size_t end = advice.find('\n');
        fputs(quoted(advice.substr(0, end)).c_str(), out);
        advice = end == std::string_view::npos ? "" : advice.substr(end + 1);
        if (!advice.empty()) fputc(',', out);
    }
    fputc(']', out);
}

static void print_verdict(const Examination& found, FILE* out) {
    const Verdict& verdict = found.verdict;
    if (verdict.is_failure) {
        fprintf(out, "\"thumbnail\":null,\"reason\":{\"code\":\"%s\",\"sentence\":%s,",
                verdict.code, quoted(verdict.sentence).c_str());
        print_advice(verdict.advice, out);
        fputs("}}\n", out);
        return;
    }
    fprintf(out,
            "\"thumbnail\":{\"width\":%" PRId32 ",\"height\":%" PRId32 ",\"key_frame\":%" PRId64
            "},\"reason\":null}\n",
            found.run.params.width, found.run.params.height, found.chosen_index);
}

void print_json(const Examination& found, FILE* out) {
    fprintf(out, "{\"file\":%s,", quoted(printable(found.args.input_path)).c_str());
    const std::string size = found.file_size < 0 ? "null" : std::to_string(found.file_size);
    fprintf(out, "\"bytes\":%s,", size.c_str());
    print_container(found, out);
    print_video(found, out);
    print_key_frames(found, out);
    print_verdict(found, out);
}

static void print_reason(const Wording& wording, FILE* out) {
    fprintf(out, "%s: %s\n", wording.code, wording.sentence.c_str());
}

void print_reasons(FILE* out) {
    for (int i = 1; i <= static_cast<int>(kLastReason); ++i) {
        print_reason(wording_of(static_cast<Reason>(i)), out);
    }
    // No memory is among the others.
    for (int i = 2; i <= static_cast<int>(kAvcLastRefusal); ++i) {
        print_reason(wording_of(static_cast<AvcRefusal>(i)), out);
    }
    for (int i = 2; i <= static_cast<int>(kM4vLastRefusal); ++i) {
        print_reason(wording_of(static_cast<M4vRefusal>(i)), out);
    }
}
