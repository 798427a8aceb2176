// SPDX-License-Identifier: BSD-2-Clause
#include "avcdec/block_loops.h"

#include "runtime/processor.h"

BlockLoops block_loops_best() {
    BlockLoops loops = {};
    cabac_use_any(&loops);
#if KEYSTILL_HAS_BMI2
    if (processor_has_bmi2()) cabac_use_bmi2(&loops);
#endif
    return loops;
}
