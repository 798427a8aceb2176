// SPDX-License-Identifier: BSD-2-Clause
#include "explain/report.h"

#include <inttypes.h>
#include <string.h>

#include <algorithm>

#include "avcdec/avc_stream_facts.h"
#include "explain/message_keeper.h"
#include "explain/run_verdict.h"
#include "host/message_log.h"
#include "mp4/video_state.h"
#include "mp4/work_limit.h"
#include "runtime/accounted_memory.h"
#include "tool/movie_index.h"
#include "wording/printable.h"

constexpr int kMostRows = 200;  // of the key frame table, unless all are asked for

static const char kNowhere[] = "/dev/null";

static const char kHelp[] =
    "usage: keystill-explain [--all] filenameIn [jpgFilenameOut thumbWidth thumbHeight\n"
    "           jpegQuality #keyFramesRequested clipOfstPercent sizePercentile]\n"
    "       keystill-explain --version | --help\n"
    "\n"
    "Says what keystill with the same arguments would make of the file, and why. Arguments that\n"
    "are left out are 320 240 85 5 10 70. Nothing is written. --all lists every key frame.\n"
    "Exit status: 0 there would be a thumbnail, 1 there would be none, 2 wrong usage.\n";

struct Report {
    Arguments args;
    bool lists_all;
    FILE* out;
    BoxFacts boxes;
    AvcStreamFacts avc;
    ThumbnailRun run;  // a real one, but for the file
    WantedFrames frames;
    bool spoils_a_video;   // something that looks like a video stands where the output goes
    int64_t chosen_index;  // of the chosen key frame in the table, or -1
    Verdict verdict;
};

static void print_text(FILE* out, const char* text) { fputs(printable(text).c_str(), out); }

static uint64_t milliseconds_of(uint64_t time, uint32_t time_scale) {
    return time / time_scale * 1000 + time % time_scale * 1000 / time_scale;
}

static void print_time(FILE* out, uint64_t ms) {
    fprintf(out, "%4" PRIu64 ":%02u:%02u.%03u", ms / 3600000,
            static_cast<unsigned>(ms / 60000 % 60), static_cast<unsigned>(ms / 1000 % 60),
            static_cast<unsigned>(ms % 1000));
}

// Walks the file with the log started, and prints what the container reader said.
static int walk_and_listen(Report* report, BufferedFile* file, ParseContext* context) {
    MessageKeeper keeper;
    FILE* const log = keeper.open_stream();
    if (log && upnp_log_start(nullptr) == 0) {
        g_log.file = log;  // upnp_log_stop closes it
        g_log.min_level = kLogTrace;
        g_log.section_mask = kLogScan | kLogSystem;
        const int result = movie_index_walk(file, report->args.input_path, context);
        upnp_log_stop();
        fputs("\nContainer reader\n", report->out);
        keeper.print(report->out);
        return result;
    }
    if (log) fclose(log);
    return movie_index_walk(file, report->args.input_path, context);
}

static AvcStreamFacts look_at_avc(const VideoState& state) {
    if (state.codec_kind != kCodecAvc) return {};
    return avc_look_at_sets(state.sequence_sets.bytes.get(), state.sequence_sets.length);
}

static const char* avc_profile_name(uint32_t profile_idc) {
    switch (profile_idc) {
        case 44:
            return "CAVLC 4:4:4 Intra";
        case 66:
            return "Baseline";
        case 77:
            return "Main";
        case 88:
            return "Extended";
        case 100:
            return "High";
        case 110:
            return "High 10";
        case 122:
            return "High 4:2:2";
        case 244:
            return "High 4:4:4 Predictive";
        default:
            return "unknown";
    }
}

static void print_avc(const AvcStreamFacts& avc, FILE* out) {
    if (!avc.has_sequence_set) return;
    static const char* const kChroma[] = {"monochrome", "4:2:0", "4:2:2", "4:4:4"};
    fprintf(out, ", %s profile (%u), level %.1f, %" PRIu32 "-bit %s, %s",
            avc_profile_name(avc.profile_idc), unsigned{avc.profile_idc}, avc.level_idc / 10.0,
            avc.bit_depth_luma, kChroma[std::min<unsigned>(avc.chroma_format_idc, 3)],
            avc.is_interlaced ? "interlaced" : "progressive");
}

static uint64_t duration_of_movie_ms(const VideoState& state) {
    if (state.fragments.has_table || state.media_time_scale == 0) {
        return static_cast<uint64_t>(state.duration_s) * 1000;
    }
    return milliseconds_of(state.media_duration, state.media_time_scale);
}

static void print_video(const Report& report, const ParseContext& context) {
    static const char* const kNames[] = {"", "MPEG-4 Part 2", "H.263", "H.264"};
    FILE* const out = report.out;
    const VideoState& state = *context.video;
    const bool is_known = state.codec_kind >= kCodecMpeg4 && state.codec_kind <= kCodecAvc;
    fprintf(out, "\nVideo\n  codec       %s",
            is_known ? kNames[state.codec_kind] : "none to decode");
    const std::string format = printable(report.boxes.video.format);
    if (!format.empty()) fprintf(out, " (%s)", format.c_str());
    print_avc(report.avc, out);
    const uint32_t width = report.avc.has_sequence_set ? report.avc.width : context.info.width;
    const uint32_t height = report.avc.has_sequence_set ? report.avc.height : context.info.height;
    fprintf(
        out, "\n  size        %" PRIu32 "x%" PRIu32 "%s\n  duration ", width, height,
        report.boxes.video.is_rotated ? ", which players turn; the thumbnail is not turned" : "");
    print_time(out, duration_of_movie_ms(state));
    fprintf(out, "\n  key frames  %" PRIu32 "%s\n", state.sync_sample_count,
            state.fragments.has_table ? ", in fragments" : "");
}

// Times of samples in rising order.
struct TimeCursor {
    uint32_t entry;
    uint64_t sample;  // 0-based, at which the entry starts
    uint64_t time;    // of that sample
};

// Returns false for a sample that has no time, or that lies before the one asked for last.
static bool find_time(BufferedFile* file, FileTable* table, uint32_t sample, TimeCursor* cursor,
                      uint64_t* time) {
    const uint32_t entries = file_table_stored_entries(table);
    if (sample < cursor->sample) return false;
    for (; cursor->entry < entries; ++cursor->entry) {
        const uint32_t count = file_table_word(file, table, uint64_t{cursor->entry} * 2);
        const uint32_t delta = file_table_word(file, table, uint64_t{cursor->entry} * 2 + 1);
        if (sample - cursor->sample < count) {
            *time = cursor->time + (sample - cursor->sample) * delta;
            return true;
        }
        cursor->sample += count;
        cursor->time += uint64_t{count} * delta;
    }
    return false;
}

static bool time_of_key_frame(BufferedFile* file, VideoState* state, uint32_t index,
                              TimeCursor* cursor, uint64_t* ms) {
    uint64_t time = 0;
    if (state->media_time_scale == 0) return false;
    if (state->fragments.has_table) {
        time = random_access_entry(file, &state->fragments.table, index).time;
    } else {
        const uint32_t number = file_table_word(file, &state->sync_samples, index);
        FileTable* const times = &state->time_to_sample;
        if (number == 0 || !find_time(file, times, number - 1, cursor, &time)) return false;
    }
    *ms = milliseconds_of(time, state->media_time_scale);
    return true;
}

struct KeyFrameTable {
    BufferedFile* file;
    VideoState* video;
    TimeCursor times;
    uint32_t first;   // to be collected
    int32_t to_fill;  // key frames that the arguments ask for
    int32_t filled;
    int rows;
    bool skips;  // rows were left out in front of the next one
};

static bool is_worth_a_row(const Report& report, const KeyFrameTable& table, uint32_t index,
                           bool is_collected) {
    if (report.lists_all) return true;
    if (table.rows >= kMostRows) return index == report.chosen_index;
    return is_collected || index < 2 || index + 1 == table.first ||
           index + 1 == movie_index_end(table.video);
}

static void print_row(const Report& report, KeyFrameTable* table, uint32_t index, uint32_t size,
                      const char* mark) {
    if (table->skips) fputs("    ...\n", report.out);
    table->skips = false;
    ++table->rows;
    uint64_t ms;
    fprintf(report.out, "  %8" PRIu32 "  ", index);
    if (time_of_key_frame(table->file, table->video, index, &table->times, &ms)) {
        print_time(report.out, ms);
    } else {
        fputs("            ?", report.out);
    }
    fprintf(report.out, "  %10" PRIu32 "%s\n", size, mark);
}

// Returns 1 when the collection would end in failure there.
static int list_key_frame(Report* report, KeyFrameTable* table, uint32_t index) {
    const bool is_wanted = index >= table->first && table->filled < table->to_fill;
    if (!is_wanted && !is_worth_a_row(*report, *table, index, false)) {
        table->skips = true;
        return 0;
    }
    SamplePlace place;
    if (movie_index_locate(table->file, table->video, index, &place) != 0) {
        return 1;
    }
    const char* mark = "";
    if (is_wanted) report->frames.largest = std::max(report->frames.largest, place.size);
    if (is_wanted && place.size == 0) mark = "  empty";
    if (is_wanted && place.size != 0) {
        const bool is_chosen = table->filled++ == report->run.chosen;
        mark = is_chosen ? "  collected, picked" : "  collected";
        if (is_chosen) {
            report->chosen_index = index;
            report->frames.chosen_end = int64_t{place.offset} + place.size;
            report->frames.chosen_size = place.size;
        }
    }
    if (is_worth_a_row(*report, *table, index, is_wanted)) {
        print_row(*report, table, index, place.size, mark);
    } else {
        table->skips = true;
    }
    return 0;
}

static void list_key_frames(Report* report, BufferedFile* file, VideoState* state,
                            bool is_collected) {
    KeyFrameTable table = {};
    table.file = file;
    table.video = state;
    table.first =
        movie_index_first(file, state, is_collected ? report->args.clip_offset_percent : 0);
    table.to_fill = is_collected ? report->args.key_frame_count : 0;
    if (report->run.collected > 0) table.to_fill = report->run.collected;
    report->frames.is_in_fragments = state->fragments.has_table;
    report->frames.has_base_data_offset = report->boxes.has_base_data_offset;
    mp4_grant_look_ups();
    fprintf(report->out, "\nKey frames\n  %8s  %13s  %10s\n", "index", "time", "bytes");
    for (uint32_t i = 0; i < movie_index_end(state); ++i) {
        if (list_key_frame(report, &table, i) != 0) break;
    }
    if (table.skips) fputs("    ...\n", report->out);
}

// Runs what keystill runs, and throws the picture away.
static ThumbnailRun run_to_nowhere(Arguments args) {
    args.output_path = kNowhere;
    return make_thumbnail(args);
}

// Whether the boxes can tell more about it.
static bool has_poor_container(Refusal refusal) {
    return refusal == Refusal::kNoKeyFrameTable || refusal == Refusal::kNoSampleTables ||
           refusal == Refusal::kNoConfiguration || refusal == Refusal::kOtherCodec ||
           refusal == Refusal::kNoKeyFrame;
}

// Reports on a file that can be read.
static void report_on_file(Report* report, BufferedFile* file) {
    Verdict* const verdict = &report->verdict;
    const int64_t file_size = file->handle->size;
    const bool has_wrong_arguments = verdict->is_failure;
    if (!has_wrong_arguments) report->run = run_to_nowhere(report->args);
    explain_boxes(file, file_size, report->out, &report->boxes);
    upnp_file_seek_b(file, 0, 0);
    ParseContext context;
    mp4_begin_walk(&context);
    if (walk_and_listen(report, file, &context) == 0) {
        report->avc = look_at_avc(*context.video);
        if (report->boxes.video.is_video) print_video(*report, context);
        if (has_poor_container(report->run.refusal)) {
            explain_container(report->boxes, context, verdict);
        }
        if (context.video->sync_sample_count != 0 && movie_index_has_tables(context.video)) {
            list_key_frames(report, file, context.video, !has_wrong_arguments);
        }
    }
    mp4_release_video_state(context.video);
    explain_run(report->run, report->frames, file_size, verdict);
}

// Scaling to an odd width shears. A width asked for that is one smaller binds, and is even.
static void print_even_size(const Report& report) {
    const Arguments& args = report.args;
    const int32_t even = report.run.params.width - 1;
    fputs("Scaling to an odd width moves every two rows by one sample", report.out);
    if (args.height != 0 && even > 0) {
        fprintf(report.out, "; ask for %" PRId32 " %" PRId32 " in place of %" PRId32 " %" PRId32,
                even, args.height, args.width, args.height);
    }
    fputs(".\n", report.out);
}

static void print_verdict(const Report& report) {
    if (!report.verdict.is_failure) {
        fprintf(report.out,
                "\nThere will be a thumbnail of %" PRId32 "x%" PRId32
                " pixels, from key frame %" PRId64 ".\n",
                report.run.params.width, report.run.params.height, report.chosen_index);
        if (report.args.width != 0 && report.run.params.width & 1) print_even_size(report);
        if (report.spoils_a_video) {
            fputs("The output is a video too, by its name: it would be replaced by the picture.\n",
                  report.out);
        }
        return;
    }
    fputs("\nThere will be no thumbnail. ", report.out);
    fprintf(report.out, "%s\n", report.verdict.sentence.c_str());
    if (!report.verdict.advice.empty()) fprintf(report.out, "%s\n", report.verdict.advice.c_str());
}

static void explain(Report* report, Surroundings surroundings) {
    const Arguments& args = report->args;
    report->chosen_index = -1;
    report->run.chosen = -1;
    explain_arguments(args, &report->verdict);
    Verdict input = {}, output = {};
    explain_input(args, &input);
    explain_output(args, &output);
    report->spoils_a_video = explain_spoils_a_video(args);
    if (surroundings == Surroundings::kSandbox) {
        sandbox_enter({args.input_path, kNowhere, SandboxOutput::kWritten});
    }
    const OpenFile file(input.is_failure ? nullptr
                                         : upnp_file_open_b(args.input_path, kWalkBuffer));
    fputs("File  ", report->out);
    print_text(report->out, args.input_path);
    if (file) {
        fprintf(report->out, ", %" PRId64 " bytes\n\n", file->handle->size);
        report_on_file(report, file.get());
    } else {
        fputc('\n', report->out);
        if (!report->verdict.is_failure) report->verdict = input;
    }
    if (!report->verdict.is_failure) report->verdict = output;
    print_verdict(*report);
}

// What the words of the command line ask for.
struct CommandLine {
    const char* arguments[9] = {"", "", "", "320", "240", "85", "5", "10", "70"};  // by default
    int given = 1;  // of the arguments, counted from the first
    bool lists_all = false;
    bool wants_help = false;
    bool wants_version = false;
};

// Options count anywhere in front of "--"; what is no option of ours is an argument, since a file
// may have any name.
static CommandLine read_command_line(int argc, const char* const* argv) {
    CommandLine line;
    bool takes_options = true;
    for (int i = 1; i < argc; ++i) {
        const auto is_option = [&](const char* name) {
            return takes_options && strcmp(argv[i], name) == 0;
        };
        if (is_option("--")) {
            takes_options = false;
        } else if (is_option("--all")) {
            line.lists_all = true;
        } else if (is_option("--help")) {
            line.wants_help = true;
        } else if (is_option("--version")) {
            line.wants_version = true;
        } else if (line.given < 9) {
            line.arguments[line.given++] = argv[i];
        }
    }
    return line;
}

int run_explain(int argc, const char* const* argv, FILE* out, Surroundings surroundings) {
    const CommandLine line = read_command_line(argc, argv);
    if (line.wants_version || line.wants_help) {
        fputs(line.wants_version ? "keystill-explain " KEYSTILL_VERSION "\n" : kHelp, out);
        return 0;
    }
    if (line.given < 2) {
        fputs(kHelp, stderr);
        return 2;
    }
    Report report = {};
    report.out = out;
    report.lists_all = line.lists_all;
    arguments_read(9, line.arguments, &report.args);
    upnp_memory_init();
    explain(&report, surroundings);
    upnp_memory_exit();
    return report.verdict.is_failure ? 1 : 0;
}
