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

std::span<const StereoMeasuring> usableMeasuring() noexcept
{
#define TARN_MEASURING(set, condition) {#set, set::kMeasureStereo},
    static const StereoMeasuring all[] = {TARN_FOR_EACH_INSTRUCTION_SET(TARN_MEASURING)};
    const std::span<const StereoMeasuring> sets(all);
    // The library has found out which one is the fastest that the processor has.
    const auto fastest = std::find_if(sets.begin(), sets.end(), [](const StereoMeasuring& set) {
        return std::string_view(set.instructionSet) == zrk_tarn_instruction_set();
    });
    return sets.first(static_cast<std::size_t>(fastest - sets.begin()) + 1);
}

} // namespace tarn
