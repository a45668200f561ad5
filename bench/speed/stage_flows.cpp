// Finds the stages of an instruction set by its name.
// SPDX-License-Identifier: MIT
#include "bench/speed/stages.h"
#include "dispatch/instruction_set_list.h"

namespace zrk_tarn
{

#define TARN_DECLARE(set, condition)                                                                                   \
    namespace set                                                                                                      \
    {                                                                                                                  \
    extern const speed::StageFlow<ZRKTarn> kStages;                                                                    \
    }
TARN_FOR_EACH_INSTRUCTION_SET(TARN_DECLARE)

} // namespace zrk_tarn

namespace speed
{

StageFlow<ZRKTarn> stagesOf(std::string_view instructionSet)
{
#define TARN_RETURN_IF_NAMED(set, condition)                                                                           \
    if (instructionSet == #set) return zrk_tarn::set::kStages;
    TARN_FOR_EACH_INSTRUCTION_SET(TARN_RETURN_IF_NAMED)
    return {};
}

} // namespace speed
