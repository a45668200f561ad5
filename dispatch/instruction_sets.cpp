// Chooses the instruction set that engines work with.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"

#include "dispatch/instruction_set_list.h"
#include "lanes/subnormal_speed.h"

#include <algorithm>
#include <iterator>

#if defined __x86_64__
#include <cpuid.h>
#endif

namespace zrk_tarn
{

constinit bool subnormalsAreSlow = true;

#define TARN_DECLARE(set, condition)                                                                                   \
    namespace set                                                                                                      \
    {                                                                                                                  \
    extern const BlockOperations kOperations;                                                                          \
    }
TARN_FOR_EACH_INSTRUCTION_SET(TARN_DECLARE)

namespace
{

#define TARN_ADDRESS(set, condition) &set::kOperations,
#define TARN_CONDITION(set, condition) condition,

constexpr const BlockOperations* kAll[] = {TARN_FOR_EACH_INSTRUCTION_SET(TARN_ADDRESS)};

/// Sets before the first one that the processor lacks.
std::size_t usableCount() noexcept
{
#if defined __x86_64__
    __builtin_cpu_init(); // the constructor below may run before the runtime's own call
#endif
    const bool usable[] = {TARN_FOR_EACH_INSTRUCTION_SET(TARN_CONDITION)};
    return static_cast<std::size_t>(std::find(std::begin(usable), std::end(usable), false) - std::begin(usable));
}

/// The slowest set until the choice at load time, because other libraries may use engines before it.
constinit const BlockOperations* operations = kAll[0];

/// Whether the processor takes much longer for subnormal numbers. Those of AMD do not since family 0x19: there, the
/// arithmetic that avoids them costs more than they do (`tarn_speed --summary`). Others count as slow.
bool isSlowWithSubnormals() noexcept
{
#if defined __x86_64__
    constexpr unsigned int kAmd[] = {0x68747541, 0x69746e65, 0x444d4163}; // "AuthenticAMD" in ebx, edx, ecx
    unsigned int eax = 0;
    unsigned int ebx = 0;
    unsigned int ecx = 0;
    unsigned int edx = 0;
    if (__get_cpuid(0, &eax, &ebx, &ecx, &edx) == 0 || ebx != kAmd[0] || edx != kAmd[1] || ecx != kAmd[2]) return true;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0) return true;
    const unsigned int family = (eax >> 8 & 0xf) + (eax >> 20 & 0xff);
    return family < 0x19;
#else
    return true;
#endif
}

[[gnu::constructor]] void chooseAtLoad() noexcept
{
    operations = usableOperations().back();
    subnormalsAreSlow = isSlowWithSubnormals();
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
