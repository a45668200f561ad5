#include "bench/speed/stages.h"

#include <algorithm>
#include <iterator>

namespace zrk_tarn
{

#if defined __x86_64__
namespace sse2
{
extern const std::span<const speed::Stage> kStages;
}
namespace avx2
{
extern const std::span<const speed::Stage> kStages;
}
namespace avx512
{
extern const std::span<const speed::Stage> kStages;
}
#elif defined __aarch64__
namespace neon
{
extern const std::span<const speed::Stage> kStages;
}
#else
namespace generic
{
extern const std::span<const speed::Stage> kStages;
}
#endif

} // namespace zrk_tarn

namespace speed
{

const StageFlow& stageFlowOf(std::string_view instructionSet)
{
#if defined __x86_64__
    static const StageFlow flows[] = {
        {"sse2", zrk_tarn::sse2::kStages}, {"avx2", zrk_tarn::avx2::kStages}, {"avx512", zrk_tarn::avx512::kStages}};
#elif defined __aarch64__
    static const StageFlow flows[] = {{"neon", zrk_tarn::neon::kStages}};
#else
    static const StageFlow flows[] = {{"generic", zrk_tarn::generic::kStages}};
#endif
    return *std::find_if(std::begin(flows), std::end(flows),
                         [&](const StageFlow& flow) { return flow.instructionSet == instructionSet; });
}

} // namespace speed
