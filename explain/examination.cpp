// SPDX-License-Identifier: BSD-2-Clause
#include "explain/examination.h"

#include <inttypes.h>
#include <string.h>

#include <algorithm>
#include <numeric>
#include <optional>

#include "explain/file_kind.h"
#include "explain/message_keeper.h"
#include "explain/text_stream.h"
#include "host/message_log.h"
#include "movie/movie.h"
#include "mp4/video_state.h"
#include "mp4/work_limit.h"
#include "tool/movie_index.h"
#include "wording/advice.h"
#include "wording/printable.h"

constexpr int kMostRows = 200;          // of the key frame table, unless all are asked for
constexpr size_t kMostOfAll = 1000000;  // if they are

static uint64_t milliseconds_of(uint64_t time, uint32_t time_scale) {
    return time / time_scale * 1000 + time % time_scale * 1000 / time_scale;
}

// Walks the file with the log started, and keeps what the container reader said.
static int walk_and_listen(const char* path, BufferedFile* file, ParseContext* context,
                           std::string* messages) {
    MessageKeeper keeper;
    FILE* const log = keeper.open_stream();
    if (log && upnp_log_start(nullptr) == 0) {
        g_log.file = log;  // upnp_log_stop closes it
        g_log.enabled = 1;
        g_log.min_level = kLogTrace;
        g_log.section_mask = kLogScan | kLogSystem;
        const int result = movie_index_walk(file, path, context);
        upnp_log_stop();
        TextStream text;
        keeper.print(text.file());
        *messages = text.take();
        return result;
    }
    if (log) fclose(log);
    return movie_index_walk(file, path, context);
}

static AvcStreamFacts look_at_avc(const VideoState& state) {
    if (state.codec_kind != kCodecAvc) return {};
    return avc_look_at_sets(state.sequence_sets.bytes.get(), state.sequence_sets.length);
}

static uint64_t duration_of_movie_ms(const VideoState& state) {
    if (state.media_duration == UINT32_MAX) return 0;  // ISO 14496-12 8.4.2: not known
    if (state.fragments.has_table || state.media_time_scale == 0) {
        return static_cast<uint64_t>(state.duration_s) * 1000;
    }
    return milliseconds_of(state.media_duration, state.media_time_scale);
}

static void describe_video(const ParseContext& context, Examination* found) {
    static const char* const kNames[] = {"", "MPEG-4 Part 2", "H.263", "H.264"};
    const VideoState& state = *context.video;
    const bool is_known = state.codec_kind >= kCodecMpeg4 && state.codec_kind <= kCodecAvc;
    found->has_video = found->boxes.video.is_video;
    found->codec = is_known ? kNames[state.codec_kind] : "";
    found->format = printable(found->boxes.video.format);
    found->avc = look_at_avc(state);
    found->width = found->avc.has_sequence_set ? found->avc.width : context.info.width;
    found->height = found->avc.has_sequence_set ? found->avc.height : context.info.height;
    found->is_turned = found->boxes.video.is_rotated;
    found->duration_ms = duration_of_movie_ms(state);
    found->picture_count = state.sample_sizes.count;
    found->key_frame_count = state.sync_sample_count;
    found->is_in_fragments = state.fragments.has_table;
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
    Rows wanted_rows;
    TimeCursor times;
    uint32_t first;   // to be collected
    int32_t to_fill;  // key frames that the arguments ask for
    int32_t filled;
    bool skips;  // rows were left out in front of the next one
};

static bool is_worth_a_row(const Examination& found, const KeyFrameTable& table, uint32_t index,
                           bool is_collected) {
    if (table.wanted_rows == Rows::kAll) return found.rows.size() < kMostOfAll;
    if (found.rows.size() >= kMostRows) return index == found.chosen_index;
    return is_collected || index < 2 || index + 1 == table.first ||
           index + 1 == movie_index_end(table.video);
}

// Returns 1 when the collection would end in failure there.
static int list_key_frame(Examination* found, KeyFrameTable* table, uint32_t index) {
    const bool is_wanted = index >= table->first && table->filled < table->to_fill;
    if (!is_wanted && !is_worth_a_row(*found, *table, index, false)) {
        table->skips = true;
        return 0;
    }
    SamplePlace place;
    if (movie_index_locate(table->file, table->video, index, &place) != 0) {
        return 1;
    }
    bool is_picked = false;
    if (is_wanted) found->frames.largest = std::max(found->frames.largest, place.size);
    if (is_wanted && place.size != 0) {
        is_picked = table->filled++ == found->run.chosen;
        if (is_picked) {
            found->chosen_index = index;
            found->frames.chosen_end = int64_t{place.offset} + place.size;
            found->frames.chosen_size = place.size;
        }
    }
    if (!is_worth_a_row(*found, *table, index, is_wanted)) {
        table->skips = true;
        return 0;
    }
    uint64_t ms;
    const bool has_time = time_of_key_frame(table->file, table->video, index, &table->times, &ms);
    found->rows.push_back({index, has_time ? static_cast<int64_t>(ms) : -1, place.size, is_wanted,
                           is_picked, table->skips});
    table->skips = false;
    return 0;
}

static void list_key_frames(Examination* found, BufferedFile* file, VideoState* state, Rows rows,
                            bool is_collected) {
    KeyFrameTable table = {};
    table.file = file;
    table.video = state;
    table.wanted_rows = rows;
    table.first =
        movie_index_first(file, state, is_collected ? found->args.clip_offset_percent : 0);
    table.to_fill = is_collected ? found->args.key_frame_count : 0;
    if (found->run.collected > 0) table.to_fill = found->run.collected;
    found->frames.is_in_fragments = state->fragments.has_table;
    found->frames.has_base_data_offset = found->boxes.has_base_data_offset;
    found->frames.is_last_track = found->boxes.last_track_id == found->boxes.video.id;
    mp4_grant_look_ups();
    for (uint32_t i = 0; i < movie_index_end(state); ++i) {
        if (list_key_frame(found, &table, i) != 0) break;
    }
    found->has_rows = true;
    found->ends_in_gap = table.skips;
}

// Runs what keystill runs, and throws the picture away.
static ThumbnailRun run_to_nowhere(Arguments args, const char* nowhere) {
    args.output_path = nowhere;
    return make_thumbnail(args);
}

// Whether the boxes can tell more about it.
static bool has_poor_container(Refusal refusal) {
    return refusal == Refusal::kNoKeyFrameTable || refusal == Refusal::kNoSampleTables ||
           refusal == Refusal::kNoConfiguration || refusal == Refusal::kOtherCodec ||
           refusal == Refusal::kNoKeyFrame;
}

static void look_at_start(BufferedFile* file, Examination* found) {
    uint8_t bytes[kFileKindBytes] = {};
    const int32_t length = upnp_file_read_b(file, bytes, sizeof bytes);
    found->kind = file_kind({bytes, static_cast<size_t>(std::max(length, 0))});
    if (memcmp(bytes + 4, "ftyp", 4) == 0) {
        found->brand = printable({reinterpret_cast<const char*>(bytes) + 8, 4});
    }
    upnp_file_seek_b(file, 0, 0);
}

// What the reader makes of it that knows none of keystill's rules.
static void look_at_movie(const char* path, Examination* found) {
    Shown* const shown = &found->shown;
    std::optional<FileSource> source = FileSource::open(path);
    if (!source) return;
    Movie movie(&*source);
    if (movie.refusal() != MovieRefusal::kNone) return;
    static constexpr int kTurns[] = {0, 0, 0, 180, 180, 90, 90, 270, 270};
    const size_t orientation = static_cast<size_t>(movie.orientation());
    shown->rotation = kTurns[orientation];
    shown->is_mirrored =
        orientation == 2 || orientation == 4 || orientation == 5 || orientation == 7;
    for (const VideoDescription& description : movie.descriptions()) {
        if (description.refusal != MovieRefusal::kNone) continue;
        // The track header, which a walk takes it from, has the size as it is shown.
        if (!found->avc.has_sequence_set && description.width != 0) {
            found->width = description.width;
            found->height = description.height;
        }
        const uint32_t divisor = std::gcd(description.pixel_width, description.pixel_height);
        if (description.pixel_width == 0 || description.pixel_height == 0) break;
        shown->pixel_width = description.pixel_width / divisor;
        shown->pixel_height = description.pixel_height / divisor;
        break;
    }
    shown->is_readable = !movie.key_frames_from(0, 1).empty();
}

// Reports on a file that can be read.
static void examine_file(BufferedFile* file, Rows rows, const char* nowhere, Examination* found) {
    Verdict* const verdict = &found->verdict;
    const char* const path = found->args.input_path;
    const bool has_wrong_arguments = verdict->is_failure;
    if (!has_wrong_arguments) found->run = run_to_nowhere(found->args, nowhere);
    TextStream list;
    explain_boxes(file, found->file_size, list.file(), &found->boxes);
    const bool is_movie = found->boxes.has_known_box && !(found->kind && !found->boxes.has_movie);
    if (is_movie) found->box_list = list.take();
    if (!is_movie && found->kind) {
        verdict_fail(verdict, Reason::kOtherKindOfFile, {found->kind});
    }
    upnp_file_seek_b(file, 0, 0);
    ParseContext context;
    mp4_begin_walk(&context);
    // What was given up once would be again.
    const bool is_given_up = found->run.refusal == Refusal::kBoxesGivenUp;
    if (!is_given_up && walk_and_listen(path, file, &context, &found->reader_messages) == 0) {
        describe_video(context, found);
        if (has_poor_container(found->run.refusal)) {
            explain_container(found->boxes, context, verdict);
        }
        if (found->key_frame_count != 0 && movie_index_has_tables(context.video)) {
            list_key_frames(found, file, context.video, rows, !has_wrong_arguments);
        }
    }
    mp4_release_video_state(context.video);
    if (!is_movie) found->reader_messages.clear();
    if (found->run.refusal == Refusal::kNoBoxes && found->boxes.has_known_box) {
        verdict_fail(verdict, Reason::kBoxesBroken);
    }
    explain_run(found->run, found->frames, found->file_size, verdict);
    look_at_movie(path, found);
}

// The reasons that lie in how keystill reads a file, not in what is coded in it, start with a copy.
// Of a single picture a copy has no key frame table, and there is no other part of it to start at.
static void complete_advice(Examination* found) {
    std::string* const advice = &found->verdict.advice;
    if (found->key_frame_count == 1 && *advice == kLookElsewhere) *advice = kDecodeAnyway;
    if (found->picture_count == 1) {
        if (advice->starts_with("A minute of it: ")) *advice = kEncodeAgain;
        advice->resize(std::min(advice->size(), advice->find("\nAll of it: ")));
    }
    const uint64_t begin =
        found->duration_ms / 1000 * static_cast<uint64_t>(found->args.clip_offset_percent) / 100;
    const std::string time = begin > 0 ? "-ss " + std::to_string(begin) + " " : "";
    for (size_t at; (at = advice->find(kAdviceTime)) != std::string::npos;) {
        advice->replace(at, strlen(kAdviceTime), time);
    }
    if (found->shown.is_readable && advice->starts_with("A minute of it: ")) {
        *advice = "One picture: keystill-thumbnailer -i IN -o OUT.jpg\n" + *advice;
    }
}

// A file of another kind under the name that suits it.
static bool is_of_other_kind(const Arguments& args, Examination* found) {
    if (found->verdict.code != std::string_view("input-name")) return false;
    const OpenFile file(upnp_file_open_b(args.input_path, kWalkBuffer));
    if (file) look_at_start(file.get(), found);
    return found->kind != nullptr;
}

Examination examine(const Arguments& args, Rows rows, Surroundings surroundings,
                    const char* nowhere) {
    Examination found;
    found.args = args;
    found.run.chosen = -1;
    explain_arguments(args, &found.verdict);
    Verdict input = {}, output = {};
    explain_input(args, &input);
    explain_output(args, &output);
    found.spoils_a_video = explain_spoils_a_video(args);
    if (surroundings == Surroundings::kSandbox) {
        sandbox_enter({args.input_path, nowhere, SandboxOutput::kWritten});
    }
    const OpenFile file(input.is_failure ? nullptr
                                         : upnp_file_open_b(args.input_path, kWalkBuffer));
    if (file) {
        found.file_size = file->handle->size;
        look_at_start(file.get(), &found);
        examine_file(file.get(), rows, nowhere, &found);
    } else if (!found.verdict.is_failure) {
        found.verdict = input;
        if (is_of_other_kind(args, &found)) {
            found.verdict = {};
            verdict_fail(&found.verdict, Reason::kOtherKindOfFile, {found.kind});
        }
    }
    if (!found.verdict.is_failure) found.verdict = output;
    complete_advice(&found);
    return found;
}
