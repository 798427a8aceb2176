// SPDX-License-Identifier: BSD-2-Clause
#include "explain/html_report.h"

#include <inttypes.h>
#include <stdint.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "explain/names.h"
#include "wording/printable.h"

static std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

// RFC 4648 4.
static std::string base64(std::string_view bytes) {
    static constexpr char kDigits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(bytes.size() - i, 3);
        uint32_t group = 0;
        for (size_t k = 0; k < count; ++k) {
            group |= uint32_t{static_cast<uint8_t>(bytes[i + k])} << (16 - 8 * k);
        }
        for (size_t k = 0; k < 4; ++k)
            out += k <= count ? kDigits[group >> (18 - 6 * k) & 63] : '=';
    }
    return out;
}

void print_page_head(FILE* out) {
    fputs(R"(<!DOCTYPE html>
<html lang="en"><meta charset="utf-8"><meta name="viewport" content="width=device-width">
<title>Key frames</title>
<style>
body { font: 14px sans-serif; margin: 1em; background: #fff; color: #222 }
section { display: flex; flex-wrap: wrap; gap: 12px; align-items: flex-end }
figure { margin: 0; padding: 5px; border: 3px solid #ddd; border-radius: 4px; opacity: .55 }
.collected { border-color: #79a; opacity: 1 }
.picked { border-color: #d40; background: #fed; opacity: 1 }
img { display: block; max-width: 100% }
p.none { width: 200px; padding: 2em 1em; margin: 0; background: #eee }
h2, code { overflow-wrap: anywhere }
</style>
<h1>Key frames to choose from</h1>
<p>Of the key frames with a blue frame one is picked by its bytes: <b>the one in orange</b>. The last
three arguments are how many key frames are looked at, from which per cent of the clip on, and the
percentile of their bytes. A pale one comes in when more of them are asked for, or from another
point on.
)",
          out);
}

static void print_candidate(const Examination& found, const Candidate& candidate, FILE* out) {
    const KeyFrameRow& row = candidate.row;
    fprintf(out, "<figure%s>",
            row.is_picked   ? " class=\"picked\""
            : row.is_wanted ? " class=\"collected\""
                            : "");
    if (candidate.jpeg.empty()) {
        fprintf(out, "<p class=\"none\">%s</p>", escaped(candidate.missing).c_str());
    } else {
        fprintf(out, "<img alt=\"\" src=\"data:image/jpeg;base64,%s\">",
                base64(candidate.jpeg).c_str());
    }
    fputs("<figcaption>", out);
    if (row.time_ms >= 0) {
        const uint64_t time = static_cast<uint64_t>(row.time_ms);
        fprintf(out, "<b>%s</b>", time_text(time).c_str());
        if (found.duration_ms > 0 && time <= found.duration_ms) {
            fprintf(out, " (%" PRIu64 " %%)", time * 100 / found.duration_ms);
        }
        fputs("<br>", out);
    }
    fprintf(out, "%" PRIu32 " bytes", row.bytes);
    if (candidate.first_percentile >= 0) {
        fprintf(out, "<br>%spercentile %d to %d", row.is_picked ? "picked, " : "",
                candidate.first_percentile, candidate.last_percentile);
    }
    fputs("</figcaption></figure>\n", out);
}

static void print_advice(const Verdict& verdict, FILE* out) {
    fprintf(out, "<p>There will be no thumbnail. %s", escaped(verdict.sentence).c_str());
    if (!verdict.advice.empty()) fprintf(out, "<pre>%s</pre>", escaped(verdict.advice).c_str());
    fputc('\n', out);
}

void print_page_part(const Examination& found, const std::vector<Candidate>& candidates,
                     FILE* out) {
    const Arguments& args = found.args;
    fprintf(out, "<h2>%s</h2>\n", escaped(printable(args.input_path)).c_str());
    fprintf(out,
            "<p><code>keystill IN OUT.jpg %" PRId32 " %" PRId32 " %" PRId32 " %" PRId32 " %" PRId32
            " %" PRId32 "</code>\n",
            args.width, args.height, args.quality, args.key_frame_count, args.clip_offset_percent,
            args.size_percentile);
    if (found.verdict.is_failure) print_advice(found.verdict, out);
    if (candidates.size() < found.key_frame_count) {
        fprintf(out, "<p>%zu of %" PRIu32 " key frames.\n", candidates.size(),
                found.key_frame_count);
    }
    fputs("<section>\n", out);
    for (const Candidate& candidate : candidates) print_candidate(found, candidate, out);
    fputs("</section>\n", out);
}

void print_page_end(FILE* out) { fputs("</html>\n", out); }
