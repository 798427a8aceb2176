// SPDX-License-Identifier: BSD-2-Clause
#include "explain/report.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "explain/candidates.h"
#include "explain/html_report.h"
#include "explain/json_report.h"
#include "explain/text_report.h"
#include "runtime/accounted_memory.h"
#include "tool/file_query.h"
#include "wording/printable.h"

constexpr size_t kMostCandidates = 200;  // on a page, of each file

// Exit statuses. Of several files the greatest counts.
constexpr int kThumbnail = 0;
constexpr int kNoThumbnail = 1;
constexpr int kWrong = 2;  // usage, or the report cannot be written

static const char kHelp[] =
    "usage: keystill-explain [--all] filenameIn [jpgFilenameOut thumbWidth thumbHeight\n"
    "           jpegQuality #keyFramesRequested clipOfstPercent sizePercentile]\n"
    "       keystill-explain --brief | --json | --html OUT  filenameIn...\n"
    "           [thumbWidth thumbHeight jpegQuality #keyFramesRequested clipOfstPercent\n"
    "           sizePercentile]\n"
    "       keystill-explain --reasons | --version | --help\n"
    "\n"
    "Says what keystill with the same arguments would make of the file, and why. Arguments that\n"
    "are left out are 320 240 85 5 10 70. --all lists every key frame.\n"
    "--brief has a line for each file, --json an object on a line, for programs. --html writes a\n"
    "page with the key frames as pictures, to choose the last three arguments by. Nothing else is\n"
    "written. --reasons lists the codes of all reasons.\n"
    "Exit status: 0 there would be a thumbnail, of each file, 1 there would be none, 2 wrong "
    "usage.\n";

enum class Format : uint8_t { kText, kBrief, kJson, kPage };

// What the words of the command line ask for.
struct CommandLine {
    std::vector<const char*> words;  // that are no options
    Format format = Format::kText;
    const char* page_path = nullptr;
    Rows rows = Rows::kOfInterest;
    bool wants_reasons = false;
    bool wants_help = false;
    bool wants_version = false;
    bool is_wrong = false;
};

// Options count anywhere in front of "--"; what is no option of ours is an argument, since a file
// may have any name.
static CommandLine read_command_line(int argc, const char* const* argv) {
    CommandLine line;
    bool takes_options = true;
    const auto set_format = [&line](Format format) {
        line.is_wrong |= line.format != Format::kText && line.format != format;
        line.format = format;
    };
    for (int i = 1; i < argc; ++i) {
        const auto is_option = [&](const char* name) {
            return takes_options && strcmp(argv[i], name) == 0;
        };
        if (is_option("--")) {
            takes_options = false;
        } else if (is_option("--all")) {
            line.rows = Rows::kAll;
        } else if (is_option("--brief")) {
            set_format(Format::kBrief);
        } else if (is_option("--json")) {
            set_format(Format::kJson);
        } else if (is_option("--html")) {
            set_format(Format::kPage);
            if (i + 1 < argc) line.page_path = argv[++i];
            line.is_wrong |= !line.page_path;
        } else if (is_option("--reasons")) {
            line.wants_reasons = true;
        } else if (is_option("--help")) {
            line.wants_help = true;
        } else if (is_option("--version")) {
            line.wants_version = true;
        } else {
            line.words.push_back(argv[i]);
        }
    }
    return line;
}

static bool is_number(const char* word) {
    char* end = nullptr;
    strtol(word, &end, 10);
    return *word != '\0' && *end == '\0';
}

// Several files, and the numbers behind them: six, or none.
struct FileList {
    std::vector<const char*> paths;
    const char* numbers[6] = {"320", "240", "85", "5", "10", "70"};
};

static FileList read_files(std::vector<const char*> words) {
    FileList list;
    size_t numbers = 0;
    while (numbers < words.size() && is_number(words[words.size() - 1 - numbers])) ++numbers;
    if (numbers == 6) {
        std::copy(words.end() - 6, words.end(), list.numbers);
        words.resize(words.size() - 6);
    }
    list.paths = std::move(words);
    return list;
}

static Arguments arguments_of(const char* path, const FileList& list) {
    const char* argv[9] = {"", path, ""};
    std::copy(std::begin(list.numbers), std::end(list.numbers), argv + 3);
    Arguments args;
    arguments_read(9, argv, &args);
    return args;
}

static void print(const Examination& found, Format format, const PictureBuffer* buffer, FILE* out) {
    switch (format) {
        case Format::kText:
            return print_report(found, out);
        case Format::kBrief:
            return print_line(found, out);
        case Format::kJson:
            return print_json(found, out);
        case Format::kPage:
            const bool can_draw = buffer && found.has_rows && found.file_size >= 0;
            const std::vector<Candidate> none;
            return print_page_part(
                found, can_draw ? draw_candidates(found, kMostCandidates, *buffer) : none, out);
    }
}

static bool is_written(FILE* out) { return fflush(out) == 0 && !ferror(out); }

static int report_on(const Arguments& args, Format format, Rows rows, FILE* out,
                     Surroundings surroundings) {
    std::optional<PictureBuffer> buffer;
    if (format == Format::kPage) buffer.emplace();
    upnp_memory_init();
    const Examination found = buffer ? examine(args, rows, surroundings, buffer->path())
                                     : examine(args, rows, surroundings);
    print(found, format, buffer ? &*buffer : nullptr, out);
    upnp_memory_exit();
    return found.verdict.is_failure ? kNoThumbnail : kThumbnail;
}

// A sandbox is for good, so that each file has a process of its own. One that a fault ends takes
// nothing of the other files along.
static int report_apart(const Arguments& args, Format format, FILE* out) {
    fflush(out);
    const pid_t child = fork();
    if (child == 0) {
        const int result = report_on(args, format, Rows::kAll, out, Surroundings::kSandbox);
        _exit(is_written(out) ? result : kWrong);
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    if (child > 0 && WIFEXITED(status)) return WEXITSTATUS(status);
    Examination found;
    found.args = args;
    const std::string signal = child > 0 ? std::to_string(WTERMSIG(status)) : "0";
    verdict_fail(&found.verdict, Reason::kNoAnswer, {signal});
    print(found, format, nullptr, out);
    return kNoThumbnail;
}

static int report_on_all(const FileList& list, Format format, FILE* out,
                         Surroundings surroundings) {
    int status = kThumbnail;
    for (const char* const path : list.paths) {
        const Arguments args = arguments_of(path, list);
        status = std::max(status, surroundings == Surroundings::kSandbox
                                      ? report_apart(args, format, out)
                                      : report_on(args, format, Rows::kAll, out, surroundings));
    }
    return status;
}

// The page never takes the place of a video, such as when the name of the page was left out.
static int write_page(const FileList& list, const char* path, Surroundings surroundings) {
    bool is_video = arguments_is_video_name(path);
    for (const char* const input : list.paths) is_video |= file_query_is_same(input, path);
    FILE* const page = is_video ? nullptr : fopen(path, "wb");
    if (!page) {
        fprintf(stderr, "keystill-explain: %s: %s\n", printable(path).c_str(),
                is_video ? "a video is no name for a page" : strerror(errno));
        return kWrong;
    }
    print_page_head(page);
    const int status = report_on_all(list, Format::kPage, page, surroundings);
    print_page_end(page);
    const bool is_closed = fclose(page) == 0;
    if (is_closed && status != kWrong) return status;
    fprintf(stderr, "keystill-explain: %s: %s\n", printable(path).c_str(),
            is_closed ? "the page cannot be written" : strerror(errno));
    return kWrong;
}

static int run(int argc, const char* const* argv, FILE* out, Surroundings surroundings) {
    const CommandLine line = read_command_line(argc, argv);
    if (line.wants_version || line.wants_help) {
        fputs(line.wants_version ? "keystill-explain " KEYSTILL_VERSION "\n" : kHelp, out);
        return 0;
    }
    if (line.wants_reasons) {
        print_reasons(out);
        return 0;
    }
    const FileList list = read_files(line.words);
    if (line.is_wrong || list.paths.empty()) {
        fputs(kHelp, stderr);
        return kWrong;
    }
    if (line.format == Format::kPage) return write_page(list, line.page_path, surroundings);
    if (line.format != Format::kText) return report_on_all(list, line.format, out, surroundings);
    const char* words[9] = {"", "", "", "320", "240", "85", "5", "10", "70"};
    std::copy_n(line.words.begin(), std::min<size_t>(line.words.size(), 8), words + 1);
    Arguments args;
    arguments_read(9, words, &args);
    return report_on(args, Format::kText, line.rows, out, surroundings);
}

int run_explain(int argc, const char* const* argv, FILE* out, Surroundings surroundings) {
    const int status = run(argc, argv, out, surroundings);
    return is_written(out) ? status : kWrong;
}
