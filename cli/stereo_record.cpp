// Lists the variants of the stereo analysis that this processor can run.
// SPDX-License-Identifier: MIT
#include "cli/stereo_record.h"

#include "dispatch/instruction_set_list.h"
#include "engine/zrk_tarn.h"

#include <algorithm>
#include <string_view>

namespace tarn
{

#define TARN_DECLARE(set, condition)                                                                                   \
    namespace set                                                                                                      \
    {                                                                                                                  \
    extern const MeasureStereo kMeasureStereo;                                                                         \
    }
TARN_FOR_EACH_INSTRUCTION_SET(TARN_DECLARE)

std::span<const MeasureStereoVariant> usableVariants() noexcept
{
#define TARN_VARIANT(set, condition) {#set, set::kMeasureStereo},
    static const MeasureStereoVariant all[] = {TARN_FOR_EACH_INSTRUCTION_SET(TARN_VARIANT)};
    const std::span<const MeasureStereoVariant> sets(all);
    // The library selected the fastest instruction set of this processor.
    const auto fastest = std::find_if(sets.begin(), sets.end(), [](const MeasureStereoVariant& set) {
        return std::string_view(set.instructionSet) == zrk_tarn_instruction_set();
    });
    return sets.first(static_cast<std::size_t>(fastest - sets.begin()) + 1);
}

} // namespace tarn
