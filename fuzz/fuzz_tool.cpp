// SPDX-License-Identifier: BSD-2-Clause
// The fixed tools on one file, behind six bytes that choose the numbers: what keystill-explain
// forecasts is what keystill does, its report is text, memory is bounded, and any key frame can be
// read.
#include <string>

#include "explain/report.h"
#include "fuzz/changed_movie.h"
#include "fuzz/target.h"
#include "tests/support/program_run.h"
#include "tool/key_frames.h"
#include "tool/run_keystill.h"
#include "wording/printable.h"

// The backslashes are there already.
static bool is_text(std::string report) {
    std::erase(report, '\n');
    std::erase(report, '\\');
    return printable(report) == report;
}

static std::string report_of(const char* const* argv, int* forecast) {
    return written_by([&](FILE* out) { *forecast = run_explain(9, argv, out); });
}

static void read_key_frames(const char* path, int count, int percent) {
    KeyFrameRequest request = {};
    request.key_frame_count = count;
    request.clip_offset_percent = percent;
    request.codec_kind = kCodecNone;
    if (GetKeyFrameMpeg4(path, &request) != 0) return;
    for (int32_t i = 0; i < request.key_frame_count; ++i) {
        KeyFrame record;
        key_frame_read(&request, i, &record);
        key_frame_release(&record);
    }
}

void run_target(Choices* c) {
    static const uint32_t kValues[6] = {121, 121, 101, 30, 101, 101};
    std::string numbers[6];
    const char* argv[10] = {"keystill", nullptr, result_path()};
    for (int i = 0; i < 6; ++i) {
        const uint32_t value = c->byte() % kValues[i];
        numbers[i] = std::to_string(i < 2 ? value * 2 : i == 3 ? value + 1 : value);
        argv[3 + i] = numbers[i].c_str();
    }
    const std::string file = changed_movie(c);
    argv[1] = store_file(file);
    int forecast;
    const std::string report = report_of(argv, &forecast);
    const int status = run_keystill(9, argv);
    // The formula of README.md, for the largest picture that there is: 65535 macroblocks.
    const size_t most_memory = (4 << 20) + 8 * file.size() + 2 * (65535 * 384 + 120 * 120 * 3 / 2);
    if (forecast != status || !is_text(report) || g_memPeak > static_cast<int64_t>(most_memory)) {
        fputs(report.c_str(), stderr);
        abort();
    }
    note_result(status);
    note_result_file();
    read_key_frames(argv[1], std::stoi(numbers[3]), std::stoi(numbers[4]));
}
