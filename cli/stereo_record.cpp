#include "cli/stereo_record.h"

#include "engine/zrk_tarn.h"

#include <algorithm>
#include <string_view>

namespace tarn
{

// One for each instruction set that the build makes.
#if defined __x86_64__
namespace sse2
{
extern const MeasureStereo kMeasureStereo;
}
namespace avx2
{
extern const MeasureStereo kMeasureStereo;
}
namespace avx512
{
extern const MeasureStereo kMeasureStereo;
}
#elif defined __aarch64__
namespace neon
{
extern const MeasureStereo kMeasureStereo;
}
#else
namespace generic
{
extern const MeasureStereo kMeasureStereo;
}
#endif

std::span<const StereoMeasuring> usableMeasuring() noexcept
{
#if defined __x86_64__
    static const StereoMeasuring all[] = {
        {"sse2", sse2::kMeasureStereo}, {"avx2", avx2::kMeasureStereo}, {"avx512", avx512::kMeasureStereo}};
#elif defined __aarch64__
    static const StereoMeasuring all[] = {{"neon", neon::kMeasureStereo}};
#else
    static const StereoMeasuring all[] = {{"generic", generic::kMeasureStereo}};
#endif
    const std::span<const StereoMeasuring> sets(all);
    // The library has found out which one is the fastest that the processor has.
    const auto fastest = std::find_if(sets.begin(), sets.end(), [](const StereoMeasuring& set) {
        return std::string_view(set.instructionSet) == zrk_tarn_instruction_set();
    });
    return sets.first(static_cast<std::size_t>(fastest - sets.begin()) + 1);
}

} // namespace tarn
