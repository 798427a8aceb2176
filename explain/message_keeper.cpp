// SPDX-License-Identifier: BSD-2-Clause
#include "explain/message_keeper.h"

#include <inttypes.h>

#include <utility>

#include "host/message_log.h"
#include "wording/printable.h"

constexpr size_t kMostMessages = 25;
constexpr size_t kLongestLine = 255;  // bytes; what is longer is cut
// Lines after which the log is turned off: to count them takes longer than to walk the boxes.
constexpr uint64_t kMostLines = 100000;

FILE* MessageKeeper::open_stream() {
    return fopencookie(this, "w", {nullptr, write, nullptr, nullptr});
}

ssize_t MessageKeeper::write(void* keeper, const char* bytes, size_t length) {
    MessageKeeper* const self = static_cast<MessageKeeper*>(keeper);
    for (size_t i = 0; i < length; ++i) {
        if (bytes[i] == '\n') {
            self->end_line();
        } else if (self->line_.size() < kLongestLine) {
            self->line_ += bytes[i];
        }
    }
    return static_cast<ssize_t>(length);
}

// The text of a log line after its time and section.
static std::string message_of(std::string line) {
    line.erase(line.find_last_not_of(" \r") + 1);
    const size_t section = line.find(" - LOG_");
    const size_t text = section == std::string::npos ? section : line.find(": ", section);
    return text == std::string::npos ? line : line.substr(text + 2);
}

void MessageKeeper::end_line() {
    if (++lines_ == kMostLines) g_log.enabled = 0;
    std::string message = message_of(std::exchange(line_, {}));
    if (message.empty() || message == last_) return;
    if (kept_.size() < kMostMessages) {
        kept_.push_back(message);
    } else {
        ++left_out_;
    }
    last_ = std::move(message);
}

void MessageKeeper::print(FILE* out) const {
    for (const std::string& message : kept_) fprintf(out, "  %s\n", printable(message).c_str());
    if (lines_ >= kMostLines) {
        fputs("  ... and many more\n", out);
    } else if (left_out_ > 0) {
        fprintf(out, "  ... and %" PRIu64 " more\n", left_out_);
    }
    if (kept_.empty()) fputs("  nothing to say\n", out);
}
