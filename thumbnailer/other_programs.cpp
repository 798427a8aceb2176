// SPDX-License-Identifier: BSD-2-Clause
#include "thumbnailer/other_programs.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "thumbnailer/child_process.h"
#include "thumbnailer/picture_check.h"

constexpr int kSeconds = 30;
constexpr size_t kMaxChatter = 16u << 20;  // on its standard output and error
constexpr off_t kMaxPictureBytes = 256 << 20;
constexpr int kNotInstalled = 127;

using Words = std::vector<std::string>;

// A folder of its own for the picture, which goes with it.
class PictureFolder {
 public:
    explicit PictureFolder(PictureFormat format) {
        const char* const parent = getenv("TMPDIR");
        path_ = std::string(parent && *parent ? parent : "/tmp") + "/keystill.XXXXXX";
        if (!mkdtemp(path_.data())) path_.clear();
        picture_ = path_ + (format == PictureFormat::kPng ? "/picture.png" : "/picture.jpg");
    }
    ~PictureFolder() {
        if (!is_made()) return;
        unlink(picture_.c_str());
        rmdir(path_.c_str());
    }
    PictureFolder(const PictureFolder&) = delete;
    PictureFolder& operator=(const PictureFolder&) = delete;
    bool is_made() const { return !path_.empty(); }
    const std::string& picture() const { return picture_; }

 private:
    std::string path_;
    std::string picture_;
};

static std::string absolute(const std::string& path) {
    const std::unique_ptr<char, void (*)(void*)> whole(realpath(path.c_str(), nullptr), free);
    return whole ? whole.get() : path;
}

// The longest side, as thumbnailers take it; 0 is the video's own.
static int longest_side(const SizeLimit& size) {
    const int shorter = std::min(size.width, size.height);
    return shorter > 0 ? shorter : std::max(size.width, size.height);
}

static std::string start_text(const StartTime& start) {
    if (start.time_us < 0) return std::to_string(start.percent) + '%';
    const long long seconds = start.time_us / 1000000;
    char text[40];
    snprintf(text, sizeof text, "%02lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60,
             seconds % 60);
    return text;
}

// A side of the picture as the converter's expression.
static std::string side_text(int limit, const char* own, const SizeLimit& size) {
    if (limit == 0) return own;
    const std::string text = std::to_string(limit);
    const bool is_exact = size.ignores_shape || size.may_enlarge;
    return is_exact ? text : std::string("'min(") + own + ',' + text + ")'";
}

// The converter that many have who have no thumbnailer. It knows no per cent: then it looks for a
// frame that stands for others.
static Words converter_command(const Options& options) {
    Words words = {"ffmpeg", "-v", "quiet", "-nostdin", "-y", "-protocol_whitelist", "file"};
    std::string filters = "scale=iw*sar:ih,setsar=1";
    if (options.start.time_us >= 0) words.insert(words.end(), {"-ss", start_text(options.start)});
    if (options.start.time_us < 0 && options.start.percent > 0) filters = "thumbnail," + filters;
    const SizeLimit& size = options.size;
    if (longest_side(size) > 0) {
        filters += ",scale=" + side_text(size.width, "iw", size) + ':' +
                   side_text(size.height, "ih", size);
        if (!size.ignores_shape) filters += ":force_original_aspect_ratio=decrease";
    }
    words.insert(words.end(),
                 {"-i", "file:%i", "-vf", filters, "-frames:v", "1", "-update", "1", "%o"});
    return words;
}

static std::vector<Words> known_programs(const Options& options) {
    const bool is_png = options.format == PictureFormat::kPng;
    const std::string quality = std::to_string(options.quality / 10);
    Words general = {"ffmpegthumbnailer",
                     "-i",
                     "%i",
                     "-o",
                     "%o",
                     "-s",
                     "%s",
                     "-q",
                     quality,
                     "-t",
                     start_text(options.start),
                     "-c",
                     is_png ? "png" : "jpeg"};
    if (options.size.ignores_shape) general.push_back("-a");
    std::vector<Words> programs = {general};
    if (is_png && longest_side(options.size) > 0) {
        programs.push_back({"totem-video-thumbnailer", "-s", "%s", "%i", "%o"});
    }
    // Thumbnailers know squares, of which only one in the box that is asked for would fit.
    const bool is_square = options.size.width == options.size.height;
    programs.insert(is_square ? programs.end() : programs.begin(), converter_command(options));
    return programs;
}

static Words split_at_blanks(const std::string& command) {
    Words words(1);
    for (const char c : command) {
        if (c != ' ') words.back() += c;
        if (c == ' ' && !words.back().empty()) words.emplace_back();
    }
    if (words.back().empty()) words.pop_back();
    return words;
}

static void fill_in(const Options& options, const std::string& picture, Words* words) {
    for (std::string& word : *words) {
        for (size_t at = 0; (at = word.find('%', at)) != word.npos; ++at) {
            std::string value;
            switch (at + 1 < word.size() ? word[at + 1] : '\0') {
                case 'i':
                    value = absolute(options.input);
                    break;
                case 'o':
                    value = picture;
                    break;
                case 's':
                    value = std::to_string(longest_side(options.size));
                    break;
                case '%':
                    value = "%";
                    break;
                default:
                    continue;
            }
            word.replace(at, 2, value);
            at += value.size() - 1;
        }
    }
}

// The body of the child. What the program says goes nowhere.
static int become(const Words& words, int output) {
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (nothing < 0) return kNotInstalled;
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execvp(arguments[0], arguments.data());
    return kNotInstalled;
}

static bool read_picture(const std::string& path, PictureFormat format,
                         std::vector<uint8_t>* picture) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) return false;
    struct stat status;
    bool is_read = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
                   status.st_size <= kMaxPictureBytes;
    if (is_read) {
        picture->resize(static_cast<size_t>(status.st_size));
        size_t done = 0;
        while (done < picture->size()) {
            const ssize_t count = read(descriptor, picture->data() + done, picture->size() - done);
            if (count <= 0) break;
            done += static_cast<size_t>(count);
        }
        is_read = done == picture->size() && is_whole_picture(*picture, format);
    }
    close(descriptor);
    return is_read;
}

Outcome draw_by_other_program(const Options& options, const Outcome& refusal,
                              std::vector<uint8_t>* picture) {
    const PictureFolder folder(options.format);
    if (!folder.is_made()) {
        return {Verdict::kNoPicture, refusal.sentence + " There is no room for another's picture."};
    }
    std::vector<Words> programs = {split_at_blanks(options.fallback)};
    if (options.fallback == "auto") programs = known_programs(options);
    std::string sentence = refusal.sentence + " No other thumbnailer is installed.";
    for (Words& words : programs) {
        if (words.empty()) continue;
        fill_in(options, folder.picture(), &words);
        const ChildResult child =
            run_child([&](int output) { return become(words, output); }, {kSeconds, kMaxChatter});
        if (child.end == ChildEnd::kInterrupted) return {Verdict::kNoPicture, "Interrupted."};
        if (child.end == ChildEnd::kExited && child.exit_status == kNotInstalled) continue;
        if (read_picture(folder.picture(), options.format, picture)) return {};
        sentence = refusal.sentence + " " + words[0] + " makes no picture of it either.";
    }
    return {Verdict::kNoPicture, sentence};
}
