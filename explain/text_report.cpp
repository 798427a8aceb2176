// SPDX-License-Identifier: BSD-2-Clause
#include "explain/text_report.h"

#include <inttypes.h>

#include <algorithm>

#include "explain/names.h"
#include "wording/printable.h"

static void print_avc(const AvcStreamFacts& avc, FILE* out) {
    if (!avc.has_sequence_set) return;
    fprintf(out, ", %s profile (%u), level %.1f, %" PRIu32 "-bit %s, %s",
            avc_profile_name(avc.profile_idc), unsigned{avc.profile_idc}, avc.level_idc / 10.0,
            avc.bit_depth_luma, avc_chroma_name(avc.chroma_format_idc),
            avc.is_interlaced ? "interlaced" : "progressive");
}

static void print_video(const Examination& found, FILE* out) {
    fprintf(out, "\nVideo\n  codec       %s", *found.codec ? found.codec : "none to decode");
    if (!found.format.empty()) fprintf(out, " (%s)", found.format.c_str());
    print_avc(found.avc, out);
    fprintf(out, "\n  size        %" PRIu32 "x%" PRIu32 "%s\n", found.width, found.height,
            found.is_turned ? ", which players turn; the thumbnail is not turned" : "");
    const bool has_duration = found.duration_ms != 0;
    fprintf(out, "  duration %14s\n",
            has_duration ? time_text(found.duration_ms).c_str() : "not stated");
    fprintf(out, "  key frames  %" PRIu32 "%s\n", found.key_frame_count,
            found.is_in_fragments ? ", in fragments" : "");
}

static const char* mark_of(const KeyFrameRow& row) {
    if (!row.is_wanted) return "";
    if (row.bytes == 0) return "  empty";
    return row.is_picked ? "  collected, picked" : "  collected";
}

static void print_key_frames(const Examination& found, FILE* out) {
    fprintf(out, "\nKey frames\n  %8s  %13s  %10s\n", "index", "time", "bytes");
    for (const KeyFrameRow& row : found.rows) {
        if (row.follows_gap) fputs("    ...\n", out);
        const std::string time =
            row.time_ms < 0 ? "?" : time_text(static_cast<uint64_t>(row.time_ms));
        fprintf(out, "  %8" PRIu32 "  %14s  %10" PRIu32 "%s\n", row.index, time.c_str(), row.bytes,
                mark_of(row));
    }
    if (found.ends_in_gap) fputs("    ...\n", out);
}

// Scaling to an odd width shears. A width asked for that is one smaller binds, and is even.
static void print_even_size(const Examination& found, FILE* out) {
    const Arguments& args = found.args;
    const int32_t even = found.run.params.width - 1;
    fputs("Scaling to an odd width moves every two rows by one sample", out);
    if (args.height != 0 && even > 0) {
        fprintf(out, "; ask for %" PRId32 " %" PRId32 " in place of %" PRId32 " %" PRId32, even,
                args.height, args.width, args.height);
    }
    fputs(".\n", out);
}

static void print_verdict(const Examination& found, FILE* out) {
    const Verdict& verdict = found.verdict;
    if (verdict.is_failure) {
        fprintf(out, "\nThere will be no thumbnail. %s\n", verdict.sentence.c_str());
        if (!verdict.advice.empty()) fprintf(out, "%s\n", verdict.advice.c_str());
        return;
    }
    fprintf(out,
            "\nThere will be a thumbnail of %" PRId32 "x%" PRId32 " pixels, from key frame %" PRId64
            ".\n",
            found.run.params.width, found.run.params.height, found.chosen_index);
    if (found.args.width != 0 && found.run.params.width & 1) print_even_size(found, out);
    if (found.spoils_a_video) {
        fputs(
            "The output is a video too, by its name: it would be replaced by the picture. --brief"
            " takes several videos.\n",
            out);
    }
}

void print_report(const Examination& found, FILE* out) {
    fprintf(out, "File  %s", printable(found.args.input_path).c_str());
    if (found.file_size >= 0) fprintf(out, ", %" PRId64 " bytes", found.file_size);
    fputc('\n', out);
    if (!found.box_list.empty()) fprintf(out, "\n%s", found.box_list.c_str());
    if (!found.reader_messages.empty()) {
        fprintf(out, "\nContainer reader\n%s", found.reader_messages.c_str());
    }
    if (found.has_video) print_video(found, out);
    if (found.has_rows) print_key_frames(found, out);
    print_verdict(found, out);
}

void print_line(const Examination& found, FILE* out) {
    fprintf(out, "%s: ", printable(found.args.input_path).c_str());
    if (found.verdict.is_failure) {
        fprintf(out, "none (%s). %s\n", found.verdict.code, found.verdict.sentence.c_str());
        return;
    }
    const auto picked = std::find_if(found.rows.begin(), found.rows.end(),
                                     [](const KeyFrameRow& row) { return row.is_picked; });
    fprintf(out, "%" PRId32 "x%" PRId32 ", key frame %" PRId64, found.run.params.width,
            found.run.params.height, found.chosen_index);
    if (picked != found.rows.end() && picked->time_ms >= 0) {
        fprintf(out, " at %s", time_text(static_cast<uint64_t>(picked->time_ms)).c_str());
    }
    fputc('\n', out);
}
