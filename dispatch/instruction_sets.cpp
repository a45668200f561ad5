// Chooses the instruction set that engines work with.
// SPDX-License-Identifier: MIT
#include "dispatch/instruction_sets.h"

#include "dispatch/instruction_set_list.h"

#include <algorithm>
#include <iterator>

namespace zrk_tarn
{

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
