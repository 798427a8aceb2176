// SPDX-License-Identifier: BSD-2-Clause
// Where a movie's bytes come from: a file today, anything that can be asked for a range tomorrow.
#pragma once

#include <stdint.h>

#include <optional>
#include <span>

class ByteSource {
 public:
    virtual ~ByteSource() = default;
    // Bytes in the source; the same at every call.
    virtual uint64_t size() const = 0;
    // Fills `into` with the bytes from `offset` on. Returns how many are there: fewer at the end of
    // the source, and none after it or where reading fails.
    virtual size_t read(uint64_t offset, std::span<uint8_t> into) = 0;
};

// A regular file, read with pread: the descriptor's position stays.
class FileSource final : public ByteSource {
 public:
    // Nothing when the path cannot be opened or is no regular file.
    static std::optional<FileSource> open(const char* path);
    // Takes the descriptor over and closes it at the end.
    static std::optional<FileSource> adopt(int descriptor);
    FileSource(FileSource&& other) noexcept;
    FileSource& operator=(FileSource&&) = delete;
    ~FileSource() override;

    uint64_t size() const override { return size_; }
    size_t read(uint64_t offset, std::span<uint8_t> into) override;

 private:
    FileSource(int descriptor, uint64_t size) : descriptor_(descriptor), size_(size) {}
    int descriptor_;  // -1 once moved from
    uint64_t size_;
};
