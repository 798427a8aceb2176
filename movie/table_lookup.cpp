// SPDX-License-Identifier: BSD-2-Clause
#include "movie/table_lookup.h"

#include <algorithm>
#include <limits>

// Work of looking at one key frame.
constexpr uint64_t kKeyFrameCost = 16;
// And of adding up one sample's size: a chunk may claim them all.
constexpr uint64_t kSizeCost = 1;

namespace {

// A table of runs, (count, value): durations and composition offsets. Goes forwards only.
class RunCursor {
 public:
    RunCursor(ByteSource* source, WorkBudget* work, const Table& table)
        : reader_(source, work), table_(table) {
        load();
    }
    // Value of that sample; after the table's end that of its last run.
    uint32_t value_of(uint64_t sample) {
        while (sample - first_ >= count_ && advance()) {
        }
        return value_;
    }
    // Sum of the values of all samples in front of that one.
    uint64_t sum_before(uint64_t sample) {
        value_of(sample);
        return sum_ + (sample - first_) * value_;
    }
    // The first sample with at least that sum in front of it, going by whole runs and so not
    // after it; `limit` at most.
    uint64_t sample_at_sum(uint64_t sum, uint64_t limit) {
        while (first_ + count_ < limit && sum_ + uint64_t{count_} * value_ <= sum && advance()) {
        }
        const uint64_t into = sum > sum_ && value_ != 0 ? (sum - sum_ + value_ - 1) / value_ : 0;
        return std::min(first_ + into, limit);
    }

 private:
    bool advance() {
        if (next_ >= table_.count) return false;
        first_ += count_;
        sum_ += uint64_t{count_} * value_;
        load();
        return true;
    }
    void load() {
        if (next_ >= table_.count) return;
        const uint8_t* const entry = reader_.at(table_.offset + 8 * next_, 8);
        next_ = entry ? next_ + 1 : table_.count;
        count_ = entry ? load_be32(entry) : 0;
        if (entry) value_ = load_be32(entry + 4);
    }

    SourceReader reader_;
    Table table_;
    uint64_t next_ = 0;   // entry after the run
    uint64_t first_ = 0;  // sample of the run
    uint64_t sum_ = 0;    // of the values in front of it
    uint32_t count_ = 0;
    uint32_t value_ = 0;
};

// Places of samples, forwards only.
class PlaceCursor {
 public:
    PlaceCursor(ByteSource* source, WorkBudget* work, const SampleTables& tables)
        : runs_(source, work), chunks_(source, work), sizes_(source, work), tables_(tables) {
        load_run();
    }
    // Returns false when no chunk holds the sample or the tables end.
    bool locate(uint64_t sample, FoundKeyFrame* found) {
        while (sample - run_first_ >= run_samples_) {
            if (next_run_ >= tables_.chunk_runs.count) return false;
            run_first_ += run_samples_;
            load_run();
        }
        const uint64_t chunk = run_chunk_ + (sample - run_first_) / per_chunk_;
        if (chunk >= tables_.chunks.count) return false;
        const uint64_t first = sample - (sample - run_first_) % per_chunk_;
        if (chunk != chunk_ || sample < sample_) {
            chunk_ = chunk;
            sample_ = first;
            offset_ = chunk_offset(chunk);
        }
        go_to(sample);
        found->offset = offset_;
        found->size = size_of(sample);
        found->description = description_;
        return true;
    }

 private:
    uint64_t chunk_offset(uint64_t chunk) {
        const Table& table = tables_.chunks;
        const uint64_t at = table.offset + chunk * table.entry_size;
        return table.entry_size == 8 ? chunks_.u64_at(at) : chunks_.u32_at(at);
    }
    uint32_t size_of(uint64_t sample) {
        if (tables_.sample_size != 0) return tables_.sample_size;
        const uint64_t at = tables_.sizes.offset;
        switch (tables_.size_bits) {
            case 4:
                return sizes_.u8_at(at + sample / 2) >> (sample % 2 == 0 ? 4 : 0) & 15;
            case 8:
                return sizes_.u8_at(at + sample);
            case 16:
                return sizes_.u16_at(at + 2 * sample);
            default:
                return sizes_.u32_at(at + 4 * sample);
        }
    }
    // Adds up the sizes from the last place on, which is in the same chunk, while there is work.
    void go_to(uint64_t sample) {
        if (tables_.sample_size != 0) {
            offset_ += (sample - sample_) * tables_.sample_size;
            sample_ = sample;
        }
        for (; sample_ < sample && sizes_.spend(kSizeCost); ++sample_) {
            offset_ += size_of(sample_);
        }
    }
    // A run reaches to the chunk in front of the next one's (8.7.4).
    void load_run() {
        const Table& table = tables_.chunk_runs;
        per_chunk_ = 1;
        run_samples_ = 0;
        if (next_run_ >= table.count) return;
        const uint64_t at = table.offset + 12 * next_run_;
        const uint8_t* const entry = runs_.at(at, 12);
        if (!entry) {
            next_run_ = table.count;
            return;
        }
        // The first run starts with the first chunk, which some count from 0.
        const uint32_t first_chunk = std::max<uint32_t>(load_be32(entry), next_run_ == 0);
        per_chunk_ = std::max<uint32_t>(load_be32(entry + 4), 1);
        const bool is_empty = load_be32(entry + 4) == 0;
        description_ = load_be32(entry + 8);
        ++next_run_;
        uint64_t end = tables_.chunks.count + 1;
        if (next_run_ < table.count) end = runs_.u32_at(at + 12);
        run_chunk_ = first_chunk - uint64_t{1};
        if (first_chunk != 0 && end > first_chunk && !is_empty) {
            run_samples_ = (end - first_chunk) * per_chunk_;
        }
    }

    SourceReader runs_, chunks_, sizes_;
    SampleTables tables_;
    uint64_t next_run_ = 0;   // entry after the run
    uint64_t run_chunk_ = 0;  // its first one, 0-based
    uint64_t run_first_ = 0;  // its first sample
    uint64_t run_samples_ = 0;
    uint32_t per_chunk_ = 1;
    uint32_t description_ = 1;
    uint64_t chunk_ = UINT64_MAX;  // of the last place
    uint64_t sample_ = 0;
    uint64_t offset_ = 0;
};

// Sync samples by number, 0-based. Without a table all are; with an empty one none should be, but
// writers leave it empty who do not know.
class SyncCursor {
 public:
    SyncCursor(ByteSource* source, WorkBudget* work, const SampleTables& tables, uint64_t first)
        : reader_(source, work), tables_(tables), sample_(first) {}
    bool next(uint64_t* sample) {
        if (tables_.sync.count == 0) {
            *sample = sample_++;
            return *sample < tables_.sample_count;
        }
        while (entry_ < tables_.sync.count) {
            const uint8_t* const entry = reader_.at(tables_.sync.offset + 4 * entry_++, 4);
            if (!entry) return false;
            const uint64_t number = load_be32(entry);
            if (number <= last_ || number > tables_.sample_count) continue;
            last_ = number;
            *sample = number - 1;
            return true;
        }
        return false;
    }

 private:
    SourceReader reader_;
    const SampleTables& tables_;
    uint64_t sample_;
    uint64_t entry_ = 0;
    uint64_t last_ = 0;  // 1-based number
};

}  // namespace

bool visit_table_key_frames(ByteSource* source, WorkBudget* work, const SampleTables& tables,
                            int64_t media_time, KeyFrameVisitor* visitor) {
    RunCursor durations(source, work, tables.durations);
    RunCursor compositions(source, work, tables.compositions);
    PlaceCursor places(source, work, tables);
    uint64_t first = 0;
    if (tables.sync.count == 0 && tables.compositions.count == 0 && media_time > 0) {
        first = durations.sample_at_sum(static_cast<uint64_t>(media_time), tables.sample_count);
    }
    SyncCursor sync(source, work, tables, first);
    for (uint64_t sample; work->spend(kKeyFrameCost) && sync.next(&sample);) {
        // Signed with version 1, and with version 0 by many writers (8.6.1.3).
        const int32_t offset = static_cast<int32_t>(compositions.value_of(sample));
        FoundKeyFrame found = {};
        found.is_told_apart = tables.sync.count != 0 && tables.sync.count < tables.sample_count;
        found.media_time = static_cast<int64_t>(durations.sum_before(sample) +
                                                static_cast<uint64_t>(int64_t{offset}));
        if (!visitor->wants(found.media_time)) continue;
        if (!places.locate(sample, &found)) continue;
        if (found.size != 0 && !visitor->take(found)) return false;
    }
    return true;
}

uint64_t table_duration(ByteSource* source, WorkBudget* work, const SampleTables& tables) {
    return RunCursor(source, work, tables.durations).sum_before(tables.sample_count);
}
