// SPDX-License-Identifier: BSD-2-Clause
#include "m4vdec/h263_headers.h"

namespace {

constexpr unsigned kExtendedType = 7;  // source format: PLUSPTYPE follows
constexpr unsigned kCustomFormat = 6;
constexpr unsigned kCifPixels = 2;  // 12:11, in all standard formats
constexpr unsigned kExtendedPar = 15;

// OPPTYPE, 18 bits, first bit at 17.
constexpr unsigned kOptCustomClock = 1u << 14;
constexpr unsigned kOptUnrestrictedVectors = 1u << 13;
constexpr unsigned kOptArithmeticCoding = 1u << 12;
constexpr unsigned kOptAdvancedIntra = 1u << 10;
constexpr unsigned kOptDeblocking = 1u << 9;
constexpr unsigned kOptSlices = 1u << 8;
constexpr unsigned kOptReferenceSelection = 1u << 7;
constexpr unsigned kOptIndependentSegments = 1u << 6;
constexpr unsigned kOptModifiedQuant = 1u << 4;

}  // namespace

bool h263_is_picture_start(const uint8_t* data, size_t length) {
    return length >= 4 && data[0] == 0 && data[1] == 0 && (data[2] & 0xfc) == 0x80;
}

static int set_standard_format(unsigned format, H263Picture* picture) {
    static const uint16_t kSizes[6][2] = {{0, 0},     {128, 96},  {176, 144},
                                          {352, 288}, {704, 576}, {1408, 1152}};
    if (format < 1 || format > 5) return 1;
    picture->width = kSizes[format][0];
    picture->height = kSizes[format][1];
    m4v_set_pixel_shape(kCifPixels, 0, 0, &picture->presentation);
    return 0;
}

// CPFMT, 23 bits, and EPAR.
static int parse_custom_format(BitReader* bits, H263Picture* picture) {
    const unsigned aspect = bits_read(bits, 4);
    picture->width = static_cast<uint16_t>((bits_read(bits, 9) + 1) * 4);
    if (!bits_read_1(bits)) return 1;
    const unsigned height = bits_read(bits, 9) * 4;
    picture->height = static_cast<uint16_t>(height);
    const unsigned par = aspect == kExtendedPar ? bits_read(bits, 16) : 0;
    m4v_set_pixel_shape(aspect, par >> 8, par & 0xff, &picture->presentation);
    return height == 0 || height > 1152;
}

// RPSMF, TRPI, TRP and BCI of Annex N. In an I-picture they tell only how to answer.
static int parse_reference_selection(BitReader* bits) {
    bits_read(bits, 3);
    if (bits_read_1(bits)) bits_read(bits, 10);
    if (bits_read_1(bits)) return 1;  // BCI: a back-channel message
    return !bits_read_1(bits);        // or "01", none
}

// MPPTYPE, 9 bits: the picture's type, resampling, reduced resolution, and at last "001".
static M4vRefusal check_mandatory_type(unsigned type) {
    if (type >> 6 != 0) return M4vRefusal::kNotIntra;
    if (type & 1u << 5) return M4vRefusal::kResampling;
    if (type & 1u << 4) return M4vRefusal::kReducedResolution;
    return type & 1 ? M4vRefusal::kNone : M4vRefusal::kDamagedHeader;
}

// From UFEP to in front of PQUANT.
static M4vRefusal parse_plus_type(BitReader* bits, H263Picture* picture) {
    const unsigned ufep = bits_read(bits, 3);
    if (ufep == 0) return M4vRefusal::kNotIntra;  // an I-picture tells all its modes
    if (ufep != 1) return M4vRefusal::kDamagedHeader;
    const unsigned format = bits_read(bits, 3);
    const unsigned options = bits_read(bits, 15);
    const M4vRefusal refusal = check_mandatory_type(bits_read(bits, 9));
    if (refusal != M4vRefusal::kNone) return refusal;
    if (options & kOptArithmeticCoding) return M4vRefusal::kArithmeticCoding;
    picture->has_advanced_intra = options & kOptAdvancedIntra;
    picture->has_deblocking = options & kOptDeblocking;
    picture->has_slices = options & kOptSlices;
    picture->has_independent_segments = options & kOptIndependentSegments;
    picture->has_modified_quant = options & kOptModifiedQuant;

    picture->is_multipoint = bits_read_1(bits);
    if (picture->is_multipoint) bits_read(bits, 2);  // PSBI
    if (format == kCustomFormat ? parse_custom_format(bits, picture)
                                : set_standard_format(format, picture)) {
        return M4vRefusal::kDamagedHeader;
    }
    if (options & kOptCustomClock) bits_read(bits, 8 + 2);                             // CPCFC, ETR
    if ((options & kOptUnrestrictedVectors) && !bits_read_1(bits)) bits_read_1(bits);  // UUI
    if (picture->has_slices) {
        picture->has_rectangular_slices = bits_read_1(bits);
        bits_read_1(bits);  // arbitrary order: taken as it comes
    }
    if ((options & kOptReferenceSelection) && parse_reference_selection(bits)) {
        return M4vRefusal::kBackChannel;
    }
    return M4vRefusal::kNone;
}

// What follows the format in PTYPE of 13 bits, up to PQUANT.
static M4vRefusal check_modes(unsigned modes) {
    constexpr unsigned kInter = 0x10, kArithmeticCoding = 4, kPbFrame = 1;
    if (modes & (kInter | kPbFrame)) return M4vRefusal::kNotIntra;
    return modes & kArithmeticCoding ? M4vRefusal::kArithmeticCoding : M4vRefusal::kNone;
}

// K.2.5: the length of a macroblock address goes by the standard formats that could hold it.
static unsigned address_bits(uint32_t total_mbs) {
    static const struct {
        uint16_t last;
        uint8_t bits;
    } kFormats[] = {{47, 6}, {98, 7}, {395, 9}, {1583, 11}, {6335, 13}};
    for (const auto& format : kFormats) {
        if (total_mbs - 1 <= format.last) return format.bits;
    }
    return 14;
}

static unsigned slice_width_bits(uint32_t width_mbs) {
    return width_mbs <= 8 ? 3 : width_mbs <= 11 ? 4 : width_mbs <= 22 ? 5 : width_mbs <= 44 ? 6 : 7;
}

// K.2: the slice header, in which the first slice of a picture lacks the start code and SQUANT.
static int parse_slice(BitReader* bits, const H263Picture& picture, bool is_first,
                       H263Segment* slice) {
    if (!bits_read_1(bits)) return 1;               // SEPB1
    if (picture.is_multipoint) bits_read(bits, 4);  // SSBI
    const uint32_t total = picture.width_mbs() * picture.height_mbs();
    const unsigned length = address_bits(total);
    slice->first_mb = bits_read(bits, length);
    const bool has_sepb2 = picture.has_variant_slices ? !is_first && total >= kVariantMacroblocks
                                                      : length > (picture.is_multipoint ? 9u : 11u);
    if (has_sepb2 && !bits_read_1(bits)) return 1;
    slice->quant = is_first ? picture.quant : static_cast<uint8_t>(bits_read(bits, 5));
    slice->is_rectangular = picture.has_rectangular_slices;
    if (slice->is_rectangular) {
        slice->width_mbs = bits_read(bits, slice_width_bits(picture.width_mbs())) + 1;
        if (slice->first_mb % picture.width_mbs() + slice->width_mbs > picture.width_mbs()) {
            return 1;
        }
    }
    if (!bits_read_1(bits)) return 1;   // SEPB3
    if (!is_first) bits_read(bits, 2);  // GFID
    return slice->quant == 0 || slice->first_mb >= total;
}

static M4vRefusal parse_picture_fields(BitReader* bits, H263Picture* picture) {
    if (bits_read(bits, 22) != 0x20) return M4vRefusal::kDamagedHeader;  // PSC
    bits_read(bits, 8);                                                  // TR
    if (bits_read(bits, 2) != 2) return M4vRefusal::kDamagedHeader;      // fixed bits of PTYPE
    bits_read(bits, 3);  // split screen, document camera, freeze release
    const unsigned format = bits_read(bits, 3);
    const bool is_extended = format == kExtendedType;
    if (!is_extended && set_standard_format(format, picture)) return M4vRefusal::kDamagedHeader;
    const M4vRefusal refusal =
        is_extended ? parse_plus_type(bits, picture) : check_modes(bits_read(bits, 5));
    if (refusal != M4vRefusal::kNone) return refusal;
    picture->quant = static_cast<uint8_t>(bits_read(bits, 5));
    if (!is_extended) {
        picture->is_multipoint = bits_read_1(bits);
        if (picture->is_multipoint) bits_read(bits, 2);
    }
    if (picture->quant == 0) return M4vRefusal::kDamagedHeader;
    while (bits_read_1(bits)) bits_read(bits, 8);  // PEI, PSUPP; zeros follow the data
    return M4vRefusal::kNone;
}

M4vRefusal h263_parse_picture(BitReader* bits, H263Picture* picture) {
    *picture = {};
    const M4vRefusal refusal = parse_picture_fields(bits, picture);
    return bits_overrun(bits) ? M4vRefusal::kDamagedHeader : refusal;
}

int h263_parse_first_segment(BitReader* bits, const H263Picture& picture, H263Segment* segment) {
    *segment = {0, 0, false, picture.quant};
    return picture.has_slices && (parse_slice(bits, picture, true, segment) || bits_overrun(bits));
}

bool h263_is_at_start_code(BitReader* bits) {
    bits_refill(bits);
    // Zeros up to the byte boundary, then 16 zeros.
    return bits_cached(bits, 16 + bits_to_alignment(bits)) == 0;
}

int h263_parse_segment(BitReader* bits, const H263Picture& picture, H263Segment* segment) {
    bits_align(bits);
    if (bits_read(bits, 17) != 1) return 1;
    if (picture.has_slices) return parse_slice(bits, picture, false, segment) || bits_overrun(bits);
    const unsigned number = bits_read(bits, 5);
    if (picture.is_multipoint) bits_read(bits, 2);  // GSBI
    bits_read(bits, 2);                             // GFID
    segment->quant = static_cast<uint8_t>(bits_read(bits, 5));
    segment->is_rectangular = false;
    const uint32_t row = number * picture.gob_rows();
    segment->first_mb = row * picture.width_mbs();
    return number == 0 || row >= picture.height_mbs() || segment->quant == 0 || bits_overrun(bits);
}
