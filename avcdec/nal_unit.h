// SPDX-License-Identifier: BSD-2-Clause
// Opens one NAL unit: removes emulation prevention and reads the header byte (H.264 7.3.1).
#pragma once

#include <stdint.h>

#include "avcdec/bit_reader.h"

enum NalUnitType : uint8_t {
    kNalSlice = 1,
    kNalIdrSlice = 5,
    kNalSps = 7,
    kNalPps = 8,
    kNalAccessUnitDelimiter = 9,
    kNalEndOfSequence = 10,
    kNalEndOfStream = 11,
    kNalBadStartCode = 13,  // what nal_read_header returns for a start code that is not there
    kNalPrefix = 14,        // also returned for a NAL unit of length 0
};

struct NalHeader {
    uint8_t type;     // a NalUnitType, or another number up to 31
    uint8_t ref_idc;  // 0 to 3
};

// Removes the emulation prevention bytes of the NAL unit that the reader was primed on, in place,
// and reads its header. Returns nal_unit_type and stores nal_ref_idc (0 to 3). With start_code, an
// Annex B start code is expected in front of the header and skipped.
//
// Kept on purpose: emulation-while-priming
// The first bytes count as primed before the removal (three at an odd address, four at an even
// one): an emulation prevention byte among them is read as data.
uint8_t nal_read_header(AvcBitReader* r, uint32_t length, uint8_t* nal_ref_idc, bool start_code);
