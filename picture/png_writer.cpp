// SPDX-License-Identifier: BSD-2-Clause
// ISO/IEC 15948, the PNG format, as far as one kind of picture needs it. The library that usually
// writes it compresses by one that takes half as long again for larger files.
#include <libdeflate.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "picture/picture_file.h"
#include "runtime/byte_order.h"

// The lowest of 12: photographs get hardly smaller with the others.
constexpr int kCompressionLevel = 1;

constexpr uint8_t kPaethFilter = 4;

constexpr ptrdiff_t kPixel = 3;  // bytes
constexpr size_t kLengthAndType = 8, kChecksum = 4;

// 5.3: a chunk in one block, with room for its length and type in front and its checksum behind.
class Chunk {
 public:
    Chunk(const char* type, size_t most)
        : bytes_(static_cast<uint8_t*>(malloc(kLengthAndType + most + kChecksum))) {
        if (bytes_) memcpy(&bytes_[4], type, 4);
    }
    // Null if there is no memory.
    uint8_t* content() { return bytes_ ? &bytes_[kLengthAndType] : nullptr; }
    bool write(size_t length, FILE* file) {
        if (length > INT32_MAX) return false;
        store_be32(&bytes_[0], static_cast<uint32_t>(length));
        store_be32(content() + length, libdeflate_crc32(0, &bytes_[4], 4 + length));
        const size_t whole = kLengthAndType + length + kChecksum;
        return fwrite(&bytes_[0], 1, whole, file) == whole;
    }

 private:
    ByteBlock bytes_;
};

// 8 bits a sample, R, G and B, nothing interlaced.
static bool write_header(const UprightPicture& picture, FILE* file) {
    static constexpr uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    static constexpr uint8_t kKind[5] = {8, 2, 0, 0, 0};
    Chunk header("IHDR", 13);
    if (!header.content()) return false;
    store_be32(header.content(), static_cast<uint32_t>(picture.width));
    store_be32(header.content() + 4, static_cast<uint32_t>(picture.height));
    memcpy(header.content() + 8, kKind, sizeof kKind);
    return fwrite(kSignature, 1, sizeof kSignature, file) == sizeof kSignature &&
           header.write(13, file);
}

static bool write_text(const PngText& text, FILE* file) {
    const size_t length = text.keyword.size() + 1 + text.text.size();
    Chunk chunk("tEXt", length);
    if (!chunk.content()) return false;
    memcpy(chunk.content(), text.keyword.c_str(), text.keyword.size() + 1);
    memcpy(chunk.content() + text.keyword.size() + 1, text.text.data(), text.text.size());
    return chunk.write(length, file);
}

// 9.4: each sample less that of its neighbours (left, above, above left) which comes nearest to
// left + above - above left. In front of both rows lies a pixel of zeros.
static void filter_by_paeth(const uint8_t* row, const uint8_t* above, size_t pitch, uint8_t* out) {
    for (size_t i = 0; i < pitch; ++i) {
        const int16_t a = row[static_cast<ptrdiff_t>(i) - kPixel];
        const int16_t b = above[i];
        const int16_t c = above[static_cast<ptrdiff_t>(i) - kPixel];
        const int16_t pa = static_cast<int16_t>(abs(b - c));
        const int16_t pb = static_cast<int16_t>(abs(a - c));
        const int16_t pc = static_cast<int16_t>(abs(a + b - 2 * c));
        const int16_t nearest_above = pb <= pc ? b : c;
        const int16_t nearest = pa <= pb && pa <= pc ? a : nearest_above;
        out[i] = static_cast<uint8_t>(row[i] - nearest);
    }
}

// All rows, each preceded by its filter. Null if there is no memory.
static ByteBlock filtered_rows(const UprightPicture& picture) {
    const size_t pitch = static_cast<size_t>(picture.width) * 3;
    const size_t height = static_cast<size_t>(picture.height);
    ByteBlock filtered(static_cast<uint8_t*>(malloc((1 + pitch) * height)));
    ByteBlock rows(static_cast<uint8_t*>(calloc(2, kPixel + pitch)));
    if (!filtered || !rows) return nullptr;
    uint8_t* row = &rows[kPixel];
    uint8_t* above = &rows[kPixel + pitch + kPixel];
    for (size_t y = 0; y < height; ++y) {
        upright_row_rgb(picture, static_cast<int32_t>(y), row);
        uint8_t* const out = &filtered[y * (1 + pitch)];
        out[0] = kPaethFilter;
        filter_by_paeth(row, above, pitch, out + 1);
        std::swap(row, above);
    }
    return filtered;
}

struct FreeCompressor {
    void operator()(libdeflate_compressor* compressor) const {
        libdeflate_free_compressor(compressor);
    }
};

static bool write_samples(const UprightPicture& picture, FILE* file) {
    const ByteBlock rows = filtered_rows(picture);
    const std::unique_ptr<libdeflate_compressor, FreeCompressor> compressor(
        libdeflate_alloc_compressor(kCompressionLevel));
    if (!rows || !compressor) return false;
    const size_t length =
        (1 + static_cast<size_t>(picture.width) * 3) * static_cast<size_t>(picture.height);
    const size_t most = libdeflate_zlib_compress_bound(compressor.get(), length);
    Chunk data("IDAT", most);
    if (!data.content()) return false;
    const size_t compressed =
        libdeflate_zlib_compress(compressor.get(), &rows[0], length, data.content(), most);
    return compressed != 0 && data.write(compressed, file);
}

bool write_png(const UprightPicture& picture, const std::vector<PngText>& texts, FILE* file) {
    if (!write_header(picture, file)) return false;
    for (const PngText& text : texts) {
        if (!write_text(text, file)) return false;
    }
    Chunk end("IEND", 0);
    return write_samples(picture, file) && end.content() && end.write(0, file) && fflush(file) == 0;
}
