// SPDX-License-Identifier: BSD-2-Clause
#include "picture/upright_picture.h"

#include <libyuv/convert_argb.h>
#include <libyuv/cpu_id.h>
#include <libyuv/planar_functions.h>
#include <libyuv/rotate.h>
#include <libyuv/scale.h>
#include <stdlib.h>

#include <utility>

// libyuv writes B, G, R. With U and V in each other's place, and factors made for that, it is
// R, G, B.
struct ColourConversion {
    const libyuv::YuvConstants* factors;
};

static const ColourConversion k601Limited = {&libyuv::kYvuI601Constants};
static const ColourConversion k601Full = {&libyuv::kYvuJPEGConstants};
static const ColourConversion k709Limited = {&libyuv::kYvuH709Constants};
static const ColourConversion k709Full = {&libyuv::kYvuF709Constants};
static const ColourConversion k2020Limited = {&libyuv::kYvu2020Constants};
static const ColourConversion k2020Full = {&libyuv::kYvuV2020Constants};

// ISO/IEC 23091-2 8.3. What is close to one of the three is taken for it.
static const ColourConversion* conversion_for(int matrix_coefficients, bool is_full_range) {
    switch (matrix_coefficients) {
        case 1:
        case 7:  // SMPTE 240M
            return is_full_range ? &k709Full : &k709Limited;
        case 9:
        case 10:
            return is_full_range ? &k2020Full : &k2020Limited;
        default:
            return is_full_range ? &k601Full : &k601Limited;
    }
}

static bool is_matrix_said(int matrix_coefficients) {
    return matrix_coefficients != 0 && matrix_coefficients != 2;
}

static const ColourConversion* choose_conversion(const StreamPresentation& stream,
                                                 const ShowingHints& container) {
    const int matrix = is_matrix_said(container.matrix_coefficients) ? container.matrix_coefficients
                                                                     : stream.matrix_coefficients;
    const bool is_full = container.full_range >= 0 ? container.full_range : stream.full_range;
    return conversion_for(matrix, is_full);
}

void FreeBytes::operator()(uint8_t* bytes) const { free(bytes); }

// Samples of a plane of the picture as it is coded.
struct SourcePlane {
    const uint8_t* samples;
    int pitch;
    int width;
    int height;
};

static ByteBlock allocate_plane(DisplaySize size) {
    return ByteBlock(static_cast<uint8_t*>(
        malloc(static_cast<size_t>(size.width) * static_cast<size_t>(size.height))));
}

// Scales the plane to the size, unless it has it, by averaging areas (or, where it grows or shrinks
// to no less than a half, by weighting neighbours).
static UprightStatus scale(const SourcePlane& source, DisplaySize size, PlaneView* plane,
                           ByteBlock* block) {
    if (source.width == size.width && source.height == size.height) {
        *plane = {source.samples, source.pitch};
        return UprightStatus::kDone;
    }
    ByteBlock scaled = allocate_plane(size);
    if (!scaled) return UprightStatus::kNoMemory;
    libyuv::ScalePlane(source.samples, source.pitch, source.width, source.height, scaled.get(),
                       size.width, size.width, size.height, libyuv::kFilterBox);
    *plane = {scaled.get(), size.width};
    *block = std::move(scaled);
    return UprightStatus::kDone;
}

static void reverse_rows(int32_t rows, PlaneView* plane) {
    plane->samples += (rows - 1) * plane->pitch;
    plane->pitch = -plane->pitch;
}

// Turns a plane of the given size. Reversed rows are only read in the other order.
static UprightStatus turn_plane(Turn turn, DisplaySize size, PlaneView* plane, ByteBlock* block) {
    int32_t rows = size.height;
    bool are_rows_reversed = false;
    if (turn.is_transposed || turn.reverses_columns) {
        ByteBlock turned = allocate_plane(size);
        if (!turned) return UprightStatus::kNoMemory;
        const int pitch = static_cast<int>(plane->pitch);
        if (!turn.is_transposed) {
            libyuv::MirrorPlane(plane->samples, pitch, turned.get(), size.width, size.width,
                                size.height);
            *plane = {turned.get(), size.width};
        } else {
            // A turn by 90 degrees reverses the columns as well, one by 270 the rows.
            libyuv::RotatePlane(plane->samples, pitch, turned.get(), size.height, size.width,
                                size.height,
                                turn.reverses_columns ? libyuv::kRotate90 : libyuv::kRotate270);
            *plane = {turned.get(), size.height};
            rows = size.width;
            are_rows_reversed = !turn.reverses_columns;
        }
        *block = std::move(turned);
    }
    if (turn.reverses_rows != are_rows_reversed) reverse_rows(rows, plane);
    return UprightStatus::kDone;
}

static DisplaySize turned_size(Turn turn, DisplaySize size) {
    return turn.is_transposed ? DisplaySize{size.height, size.width} : size;
}

// Width of a pixel by its height, as shown.
static double choose_aspect(const StreamPresentation& stream, const ShowingHints& container) {
    double aspect = container.pixel_aspect;
    if (aspect == 0) {
        const bool is_said = stream.pixel_width != 0 && stream.pixel_height != 0;
        aspect = is_said ? static_cast<double>(stream.pixel_width) / stream.pixel_height : 1;
    }
    return container.turn.is_transposed ? 1 / aspect : aspect;
}

void prepare_to_make_upright() { libyuv::InitCpuFlags(); }

UprightStatus make_upright(const DecodedPicture& decoded, const ShowingHints& hints,
                           const SizeLimit& limit, ChromaSize chroma, UprightPicture* upright) {
    const std::optional<VisibleArea> area = visible_area(decoded, hints.stated_size);
    if (!area) return UprightStatus::kNothingVisible;
    const Turn turn = hints.turn;
    const DisplaySize display = square_pixel_size(turned_size(turn, {area->width, area->height}),
                                                  choose_aspect(decoded.presentation, hints));
    const DisplaySize result = limited_size(display, limit);
    const DisplaySize coded = turned_size(turn, result);
    const DisplaySize half = {(coded.width + 1) / 2, (coded.height + 1) / 2};

    const int pitch = static_cast<int>(decoded.stride);
    const size_t luma_at =
        static_cast<size_t>(area->top) * decoded.stride + static_cast<size_t>(area->left);
    const size_t chroma_at = static_cast<size_t>(area->top / 2) * (decoded.stride / 2) +
                             static_cast<size_t>(area->left / 2);
    const int chroma_width = (area->width + 1) / 2;
    const int chroma_height = (area->height + 1) / 2;
    const uint8_t* const planes = decoded.planes;
    const SourcePlane sources[3] = {
        {planes + luma_at, pitch, area->width, area->height},
        {planes + decoded.u_offset + chroma_at, pitch / 2, chroma_width, chroma_height},
        {planes + decoded.v_offset + chroma_at, pitch / 2, chroma_width, chroma_height}};
    PlaneView* const views[3] = {&upright->y, &upright->u, &upright->v};
    for (int i = 0; i < 3; ++i) {
        const DisplaySize size = i == 0 || chroma == ChromaSize::kFull ? coded : half;
        UprightStatus status = scale(sources[i], size, views[i], &upright->blocks[i]);
        if (status != UprightStatus::kDone) return status;
        status = turn_plane(turn, size, views[i], &upright->blocks[i]);
        if (status != UprightStatus::kDone) return status;
    }
    upright->width = result.width;
    upright->height = result.height;
    upright->chroma = chroma;
    upright->conversion = choose_conversion(decoded.presentation, hints);
    return UprightStatus::kDone;
}

void upright_row_rgb(const UprightPicture& picture, int32_t y, uint8_t* rgb) {
    const bool is_half = picture.chroma == ChromaSize::kHalf;
    const int32_t chroma_y = is_half ? y / 2 : y;
    const auto row = [](const PlaneView& plane, int32_t at) {
        return plane.samples + at * plane.pitch;
    };
    const auto convert = is_half ? libyuv::I422ToRGB24Matrix : libyuv::I444ToRGB24Matrix;
    convert(row(picture.y, y), 0, row(picture.v, chroma_y), 0, row(picture.u, chroma_y), 0, rgb, 0,
            picture.conversion->factors, picture.width, 1);
}
