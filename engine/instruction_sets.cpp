#include "engine/instruction_sets.h"

namespace zrk_tarn
{

#if defined __x86_64__
namespace sse2
{
extern const BlockOperations kOperations;
}
namespace avx2
{
extern const BlockOperations kOperations;
}
namespace avx512
{
extern const BlockOperations kOperations;
}
#elif defined __aarch64__
namespace neon
{
extern const BlockOperations kOperations;
}
#else
namespace generic
{
extern const BlockOperations kOperations;
}
#endif

namespace
{

#if defined __x86_64__

constexpr const BlockOperations* kAll[] = {&sse2::kOperations, &avx2::kOperations, &avx512::kOperations};

std::size_t usableCount() noexcept
{
    __builtin_cpu_init(); // before main nobody else has done so
    if (!__builtin_cpu_supports("avx2")) return 1;
    const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
                        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw");
    return avx512 ? 3 : 2;
}

#else

#if defined __aarch64__
constexpr const BlockOperations* kAll[] = {&neon::kOperations};
#else
constexpr const BlockOperations* kAll[] = {&generic::kOperations};
#endif

std::size_t usableCount() noexcept
{
    return 1;
}

#endif

/// Until the choice at load time, and for engines that others build even before it, what every processor can run.
constinit const BlockOperations* operations = kAll[0];

[[gnu::constructor]] void chooseAtLoad() noexcept
{
    operations = usableOperations().back();
}

} // namespace

std::span<const BlockOperations* const> allOperations() noexcept
{
    return kAll;
}

std::span<const BlockOperations* const> usableOperations() noexcept
{
    return allOperations().first(usableCount());
}

const BlockOperations& chosenOperations() noexcept
{
    return *operations;
}

void chooseOperations(const BlockOperations& chosen) noexcept
{
    operations = &chosen;
}

} // namespace zrk_tarn

const char* zrk_tarn_instruction_set() noexcept
{
    return zrk_tarn::chosenOperations().instructionSet;
}
