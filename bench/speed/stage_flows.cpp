#include "bench/speed/stages.h"

namespace zrk_tarn
{

#if defined __x86_64__
namespace sse2
{
extern const speed::StageFlow<ZRKTarn> kStages;
}
namespace avx2
{
extern const speed::StageFlow<ZRKTarn> kStages;
}
namespace avx512
{
extern const speed::StageFlow<ZRKTarn> kStages;
}
#elif defined __aarch64__
namespace neon
{
extern const speed::StageFlow<ZRKTarn> kStages;
}
#else
namespace generic
{
extern const speed::StageFlow<ZRKTarn> kStages;
}
#endif

} // namespace zrk_tarn

namespace speed
{

StageFlow<ZRKTarn> stagesOf(std::string_view instructionSet)
{
#if defined __x86_64__
    if (instructionSet == "avx512") return zrk_tarn::avx512::kStages;
    if (instructionSet == "avx2") return zrk_tarn::avx2::kStages;
    if (instructionSet == "sse2") return zrk_tarn::sse2::kStages;
#elif defined __aarch64__
    if (instructionSet == "neon") return zrk_tarn::neon::kStages;
#else
    if (instructionSet == "generic") return zrk_tarn::generic::kStages;
#endif
    return {};
}

} // namespace speed
