#include "cinema/process_cine3.h"
#include "engine/instruction_sets.h"
#include "io/block_io.h"

// Compiled once for every instruction set: what it offers, under its name.

#define TARN_NAME_OF(set) #set
#define TARN_NAME(set) TARN_NAME_OF(set)

namespace zrk_tarn::TARN_INSTRUCTION_SET
{

extern const BlockOperations kOperations = {
    .instructionSet = TARN_NAME(TARN_INSTRUCTION_SET),
    .readInputChannels = readInputChannels,
    .processCine3 = processCine3,
    .writeOutput = writeOutput,
    .convertOutput = convertOutput,
    .remapOutput = remapOutput,
};

} // namespace zrk_tarn::TARN_INSTRUCTION_SET
