// The table of block operations of one instruction set; compiled once for each.
// SPDX-License-Identifier: MIT
#include "cinema/band_squares.h"
#include "cinema/process_cine3.h"
#include "cinema/speed_selection.h"
#include "dispatch/instruction_sets.h"
#include "io/block_io.h"
#include "io/interleave.h"
#include "io/row_level.h"
#include "room/render_surrounds.h"
#include "room/row_operations.h"
#include "room/true_peak.h"

#define TARN_NAME_OF(set) #set
#define TARN_NAME(set) TARN_NAME_OF(set)

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

extern const BlockOperations kOperations = {
    .instructionSet = TARN_NAME(TARN_INSTRUCTION_SET),
    .interleavingOf = interleavingOf,
    .readInputChannels = readInputChannels,
    .readRows = readRows,
    .processCine3 = processCine3,
    .readSpeeds = readSpeeds,
    .writeOutput = writeOutput,
    .writeRows = writeRows,
    .convertOutput = convertOutput,
    .remapOutput = remapOutput,
    .measureRow = measureRow,
    .renderSurrounds = renderSurrounds,
    .advancePeakWindow = advancePeakWindow,
    .findTruePeak = findTruePeak,
    .rows = kRowOperations,
    .addSquares = addSquares,
};

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
