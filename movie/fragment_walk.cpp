// SPDX-License-Identifier: BSD-2-Clause
#include "movie/fragment_walk.h"

#include <algorithm>
#include <limits>

constexpr size_t kMaxPlaces = 4096;
constexpr uint64_t kSampleCost = 8;
// Fragments in front of the wanted one that are walked before it counts as far away.
constexpr uint32_t kPatience = 64;
// How much of the source is searched for a fragment.
constexpr uint64_t kSearchLength = 8 << 20;

// 8.8.7, flags of "tfhd".
constexpr uint32_t kHasBase = 0x1;
constexpr uint32_t kHasDescription = 0x2;
constexpr uint32_t kHasDuration = 0x8;
constexpr uint32_t kHasSize = 0x10;
constexpr uint32_t kHasFlags = 0x20;
constexpr uint32_t kBaseIsFragment = 0x20000;

// 8.8.8, flags of "trun".
constexpr uint32_t kRunHasOffset = 0x1;
constexpr uint32_t kRunHasFirstFlags = 0x4;
constexpr uint32_t kRunHasDurations = 0x100;
constexpr uint32_t kRunHasSizes = 0x200;
constexpr uint32_t kRunHasFlags = 0x400;
constexpr uint32_t kRunHasCompositions = 0x800;

// 8.8.3.1: a sync sample, and not said to depend on others.
static bool is_sync(uint32_t sample_flags) {
    return (sample_flags & 0x10000) == 0 && (sample_flags >> 24 & 3) != 1;
}

static bool is_said_independent(uint32_t sample_flags) { return (sample_flags >> 24 & 3) == 2; }

constexpr int64_t kEver = std::numeric_limits<int64_t>::max();

// Times in hostile files wrap.
static int64_t wrapped_sum(int64_t a, uint64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + b);
}

struct FragmentWalk::TrackFragment {
    FragmentDefaults defaults;
    uint32_t flags;      // of "tfhd"
    uint64_t base;       // of data offsets
    uint64_t next_data;  // where a run without an offset starts
    int64_t time;
};

FragmentWalk::FragmentWalk(ByteSource* source, WorkBudget* work, const MovieHeaders& headers,
                           FragmentPlace begin)
    : reader_(source, work),
      index_reader_(source, work),
      finder_(source, work, headers.video.id),
      headers_(headers),
      begin_(begin),
      next_time_(begin.time),
      end_time_(begin.time) {}

bool FragmentWalk::visit(int64_t media_time, KeyFrameVisitor* visitor) {
    Outcome outcome = visit_boxes(start_for(media_time), media_time, kPatience, visitor);
    if (outcome == Outcome::kFar) {
        approach(media_time);
        outcome = visit_boxes(start_for(media_time), media_time, UINT32_MAX, visitor);
    }
    return outcome != Outcome::kEnough;
}

int64_t FragmentWalk::begin_time() {
    if (!begin_time_) visit_boxes(begin_, kEver, 1, nullptr);
    return begin_time_.value_or(begin_.time);
}

int64_t FragmentWalk::end_time() {
    if (visit_boxes(start_for(kEver), kEver, kPatience, nullptr) == Outcome::kFar) {
        const FragmentPlace start = last_place() ? *last_place() : start_for(kEver);
        visit_boxes(start, kEver, UINT32_MAX, nullptr);
    }
    return end_time_;
}

// From a box of the top level on. Headers are read in one go with those that follow until the next
// media data, as far as the last fragment's size tells. Gives up after `patience` fragments that
// end in front of media_time.
FragmentWalk::Outcome FragmentWalk::visit_boxes(FragmentPlace start, int64_t media_time,
                                                uint32_t patience, KeyFrameVisitor* visitor) {
    next_time_ = start.time;
    uint64_t headers_begin = start.offset;
    BoxWalk walk(&reader_, start.offset, reader_.source_size());
    for (Box box; walk.next(&box);) {
        if (box.type == fourcc("moof")) {
            reader_.expect(box.end - headers_begin + 128);
            if (!visit_fragment(box, visitor)) return Outcome::kEnough;
            if (next_time_ <= media_time && --patience == 0) return Outcome::kFar;
        } else if (box.type == fourcc("sidx")) {
            const uint64_t next = behind_index(box, media_time);
            walk.skip_to(next);
            if (next == box.end) continue;
            headers_begin = next;
            if (--patience == 0) return Outcome::kFar;
        } else if (box.type == fourcc("mdat")) {
            headers_begin = box.end;
        }
    }
    return Outcome::kEnd;
}

FragmentPlace FragmentWalk::start_for(int64_t media_time) {
    FragmentPlace start = begin_;
    for (const FragmentPlace& place : places_) {
        if (place.time <= media_time && place.offset > start.offset) start = place;
    }
    if (media_time > start.time) look_up_random_access(media_time, &start);
    return start;
}

void FragmentWalk::note_place(FragmentPlace place) {
    const auto next = std::lower_bound(
        places_.begin(), places_.end(), place.offset,
        [](const FragmentPlace& known, uint64_t offset) { return known.offset < offset; });
    if (next != places_.end() && next->offset == place.offset) return;
    if (next != places_.begin()) {
        const int64_t previous = std::prev(next)->time;
        if (place.time <= previous || place.time < wrapped_sum(previous, least_distance_)) return;
    }
    places_.insert(next, place);
    if (places_.size() < kMaxPlaces) return;
    size_t kept = 0;
    for (size_t i = 0; i < places_.size(); i += 2) places_[kept++] = places_[i];
    places_.resize(kept);
    least_distance_ =
        (places_.back().time / 2 - places_.front().time / 2) / int64_t{kMaxPlaces / 4};
}

const std::optional<FragmentPlace>& FragmentWalk::last_place() {
    if (!has_looked_for_last_) {
        const uint64_t size = reader_.source_size();
        const uint64_t first = std::max(begin_.offset, size - std::min(size, kSearchLength));
        last_place_ = finder_.last_in(first, size);
        has_looked_for_last_ = true;
    }
    return last_place_;
}

// Notes a place shortly in front of media_time if one can be found from how the time is spread over
// the source.
void FragmentWalk::approach(int64_t media_time) {
    if (!last_place()) return;
    FragmentPlace low = start_for(media_time), high = *last_place();
    const int64_t near = int64_t{30} * headers_.video.time_scale;
    for (int tries = 0; tries < 8; ++tries) {
        const double left = static_cast<double>(media_time) - static_cast<double>(low.time);
        const double range = static_cast<double>(high.time) - static_cast<double>(low.time);
        if (left < static_cast<double>(near) || range <= left || high.offset <= low.offset) return;
        // Rather in front of it: the walk goes forwards.
        const double share = left / range * 63 / 64;
        const uint64_t guess =
            low.offset +
            static_cast<uint64_t>(share * static_cast<double>(high.offset - low.offset));
        const std::optional<FragmentPlace> found =
            finder_.first_in(guess, std::min(guess + kSearchLength, high.offset));
        if (!found || found->time < low.time || found->time > high.time) return;
        (found->time <= media_time ? low : high) = *found;
        note_place(*found);
    }
}

// What indexes point to has to look like what they promise.
bool FragmentWalk::is_fragment_at(uint64_t offset) {
    const uint8_t* const header = reader_.at(offset, 8);
    return header && load_be32(header + 4) == fourcc("moof");
}

// 8.8.9 to 8.8.11: moves the start to the last entry of the track that is not after media_time.
void FragmentWalk::look_up_random_access(int64_t media_time, FragmentPlace* start) {
    const uint64_t size = reader_.source_size();
    if (size < 16 || index_reader_.u32_at(size - 12) != fourcc("mfro")) return;
    const uint32_t length = index_reader_.u32_at(size - 4);
    Box mfra, tfra;
    if (length > size || !BoxWalk(&index_reader_, size - length, size).next(&mfra)) return;
    if (mfra.type != fourcc("mfra")) return;
    BoxWalk walk(&index_reader_, mfra);
    while (walk.find(fourcc("tfra"), &tfra)) {
        if (index_reader_.u32_at(tfra.content + 4) != headers_.video.id) continue;
        const bool is_wide = index_reader_.u8_at(tfra.content) == 1;
        const uint32_t lengths = index_reader_.u32_at(tfra.content + 8);
        const uint32_t numbers = (lengths >> 4 & 3) + (lengths >> 2 & 3) + (lengths & 3) + 3;
        const Table table = table_of(&index_reader_, tfra, (is_wide ? 16 : 8) + numbers, 12);
        FragmentPlace found = *start;
        for (uint64_t i = 0; i < table.count; ++i) {
            const uint64_t at = table.offset + i * table.entry_size;
            const uint8_t* const entry = index_reader_.at(at, table.entry_size);
            if (!entry) break;
            const FragmentPlace stated = {
                static_cast<int64_t>(is_wide ? load_be64(entry) : load_be32(entry)),
                is_wide ? load_be64(entry + 8) : load_be32(entry + 4)};
            if (stated.time > media_time) break;
            if (stated.offset > found.offset && stated.time >= found.time) found = stated;
        }
        if (is_fragment_at(found.offset)) *start = found;
    }
}

// 8.16.3: after the index, or after those of its segments that end in front of media_time.
uint64_t FragmentWalk::behind_index(const Box& sidx, int64_t media_time) {
    const bool is_wide = reader_.u8_at(sidx.content) == 1;
    const uint32_t time_scale = std::max<uint32_t>(reader_.u32_at(sidx.content + 8), 1);
    const uint64_t fields = sidx.content + 12;
    uint64_t time = is_wide ? reader_.u64_at(fields) : reader_.u32_at(fields);
    uint64_t segment =
        sidx.end + (is_wide ? reader_.u64_at(fields + 8) : reader_.u32_at(fields + 4));
    const uint64_t count_place = fields + (is_wide ? 18 : 10);
    const uint32_t count = reader_.u16_at(count_place);
    const auto media_time_of = [&](uint64_t at) {
        return rescale(static_cast<int64_t>(std::min(at, static_cast<uint64_t>(kEver))), time_scale,
                       headers_.video.time_scale);
    };
    uint32_t skipped = 0;
    for (; skipped < count; ++skipped) {
        const uint64_t entry = count_place + 2 + uint64_t{12} * skipped;
        if (entry + 12 > sidx.end) break;
        const uint64_t next = segment + (reader_.u32_at(entry) & 0x7fffffff);
        const uint64_t next_time = time + reader_.u32_at(entry + 4);
        if (next < sidx.end || next > reader_.source_size()) break;
        if (media_time_of(next_time) > media_time) break;
        segment = next;
        time = next_time;
    }
    if (skipped == 0) return sidx.end;
    // The end of the source is as good as what may stand between fragments.
    const uint8_t* const header = reader_.at(segment, 8);
    const bool is_plausible =
        header ? is_fragment_level_type(load_be32(header + 4)) : segment == reader_.source_size();
    if (!is_plausible) return sidx.end;
    next_time_ = media_time_of(time);
    end_time_ = std::max(end_time_, next_time_);
    return segment;
}

bool FragmentWalk::visit_fragment(const Box& moof, KeyFrameVisitor* visitor) {
    BoxWalk walk(&reader_, moof);
    bool is_noted = false;
    for (Box traf; walk.find(fourcc("traf"), &traf);) {
        if (track_of_fragment(&reader_, traf) != headers_.video.id) continue;
        TrackFragment fragment;
        if (!read_track_header(moof, traf, &fragment)) continue;
        if ((fragment.flags & (kHasBase | kBaseIsFragment)) == 0) {
            fragment.base = fragment.next_data = implicit_base(moof, traf);
        }
        fragment.time = decode_time_of_fragment(&reader_, traf).value_or(next_time_);
        if (!begin_time_) begin_time_ = fragment.time;
        if (!is_noted) note_place({fragment.time, moof.begin});
        is_noted = true;
        const bool goes_on = visit_track(traf, &fragment, visitor);
        next_time_ = fragment.time;
        end_time_ = std::max(end_time_, next_time_);
        if (!goes_on) return false;
    }
    return true;
}

// Returns false for a track fragment without a header, and when the work is used up.
bool FragmentWalk::read_track_header(const Box& moof, const Box& traf, TrackFragment* fragment) {
    Box tfhd;
    if (!find_child(&reader_, traf, fourcc("tfhd"), &tfhd)) return false;
    fragment->flags = reader_.u32_at(tfhd.content) & 0xffffff;
    fragment->time = next_time_;
    fragment->base = moof.begin;
    FragmentDefaults* const defaults = &fragment->defaults;
    *defaults = {};
    const uint32_t track_id = reader_.u32_at(tfhd.content + 4);
    if (!reader_.spend(headers_.defaults.size())) return false;
    for (const FragmentDefaults& stated : headers_.defaults) {
        if (stated.track_id == track_id) *defaults = stated;
    }
    defaults->track_id = track_id;
    uint64_t field = tfhd.content + 8;
    if (fragment->flags & kHasBase) {
        fragment->base = reader_.u64_at(field);
        field += 8;
    }
    const struct {
        uint32_t flag;
        uint32_t* value;
    } kOptional[] = {{kHasDescription, &defaults->description},
                     {kHasDuration, &defaults->duration},
                     {kHasSize, &defaults->size},
                     {kHasFlags, &defaults->flags}};
    for (const auto& optional : kOptional) {
        if ((fragment->flags & optional.flag) == 0) continue;
        *optional.value = reader_.u32_at(field);
        field += 4;
    }
    fragment->next_data = fragment->base;
    return true;
}

// 8.8.7.1: without any base the data goes on where that of the track fragment in front ends.
uint64_t FragmentWalk::implicit_base(const Box& moof, const Box& traf) {
    uint64_t base = moof.begin;
    BoxWalk walk(&reader_, moof);
    for (Box earlier; walk.find(fourcc("traf"), &earlier) && earlier.begin < traf.begin;) {
        TrackFragment fragment;
        if (!read_track_header(moof, earlier, &fragment)) continue;
        if ((fragment.flags & (kHasBase | kBaseIsFragment)) == 0) {
            fragment.base = fragment.next_data = base;
        }
        visit_track(earlier, &fragment, nullptr);
        base = fragment.next_data;
    }
    return base;
}

bool FragmentWalk::visit_track(const Box& traf, TrackFragment* fragment, KeyFrameVisitor* visitor) {
    BoxWalk walk(&reader_, traf);
    bool goes_on = true;
    for (Box trun; goes_on && walk.find(fourcc("trun"), &trun);) {
        goes_on = visit_run(trun, fragment, visitor);
    }
    return goes_on;
}

bool FragmentWalk::visit_run(const Box& trun, TrackFragment* fragment, KeyFrameVisitor* visitor) {
    const FragmentDefaults& defaults = fragment->defaults;
    const uint32_t flags = reader_.u32_at(trun.content);
    uint64_t count = reader_.u32_at(trun.content + 4);
    uint64_t field = trun.content + 8;
    if (flags & kRunHasOffset) {
        const int64_t offset = static_cast<int32_t>(reader_.u32_at(field));
        fragment->next_data = fragment->base + static_cast<uint64_t>(offset);
        field += 4;
    }
    const bool has_first_flags = (flags & kRunHasFirstFlags) != 0;
    const uint32_t first_flags = has_first_flags ? reader_.u32_at(field) : defaults.flags;
    if (has_first_flags) field += 4;
    if (field > trun.end) return true;
    const uint32_t entry_size =
        4 * static_cast<uint32_t>(__builtin_popcount(
                flags & (kRunHasDurations | kRunHasSizes | kRunHasFlags | kRunHasCompositions)));
    if (entry_size != 0) count = std::min(count, (trun.end - field) / entry_size);
    for (uint64_t i = 0; i < count; ++i) {
        const bool is_wanted = visitor && (shows_all_ || is_sync(defaults.flags));
        if (entry_size == 0 && i == 1 && !is_wanted) {
            // All further samples are alike, and none is of interest.
            fragment->time = wrapped_sum(fragment->time, (count - 1) * defaults.duration);
            fragment->next_data += (count - 1) * defaults.size;
            return true;
        }
        const uint8_t* entry = reader_.at(field + i * entry_size, entry_size);
        if (!entry || !reader_.spend(kSampleCost)) return true;
        const auto value = [&](uint32_t flag, uint32_t otherwise) {
            if ((flags & flag) == 0) return otherwise;
            entry += 4;
            return load_be32(entry - 4);
        };
        const uint32_t duration = value(kRunHasDurations, defaults.duration);
        const uint32_t size = value(kRunHasSizes, defaults.size);
        const uint32_t stated = value(kRunHasFlags, defaults.flags);
        const uint32_t sample_flags = i == 0 && has_first_flags ? first_flags : stated;
        // Signed with version 1, and with version 0 by many writers.
        const int64_t composition = static_cast<int32_t>(value(kRunHasCompositions, 0));
        if (visitor && size != 0 && (shows_all_ || is_sync(sample_flags))) {
            const int64_t shown = wrapped_sum(fragment->time, static_cast<uint64_t>(composition));
            if (visitor->wants(shown) &&
                !visitor->take({shown, fragment->next_data, size, defaults.description,
                                !shows_all_ && is_said_independent(sample_flags)})) {
                return false;
            }
        }
        fragment->time = wrapped_sum(fragment->time, duration);
        fragment->next_data += size;
    }
    return true;
}
