// Sets the default floating-point environment for a scope.
// SPDX-License-Identifier: MIT
#pragma once

#include "lanes/exact_floats.h"

#include <cstdint>
#if defined TARN_GENERIC
#include <cfenv>
#endif

namespace zrk_tarn
{

/// Sets the default floating-point environment (round to nearest, subnormal numbers kept, no traps) and restores the
/// caller's environment and exception flags in the destructor.
///
/// Hosts may flush subnormals to zero on audio threads or use another rounding mode, which would change results.
/// Compilers may move arithmetic across a change of the environment. Use the object only in a function that does no
/// arithmetic itself and calls the arithmetic in functions that are not inlined.
///
/// Reads and writes one register on x86-64, two on 64-bit Arm. Real-time safe.
class DefaultFloatEnvironment
{
public:
#if defined __SSE2__ && !defined TARN_GENERIC
    DefaultFloatEnvironment() noexcept : control(__builtin_ia32_stmxcsr())
    {
        constexpr unsigned int kAllMasked = 0x1f80; // no exception flag set
        __builtin_ia32_ldmxcsr(kAllMasked);
    }

    ~DefaultFloatEnvironment()
    {
        __builtin_ia32_ldmxcsr(control);
    }
#elif defined __aarch64__ && !defined TARN_GENERIC
    DefaultFloatEnvironment() noexcept
    {
        asm volatile("mrs %0, fpcr" : "=r"(control));
        asm volatile("mrs %0, fpsr" : "=r"(flags));
        asm volatile("msr fpcr, %0" : : "r"(std::uint64_t{0}) : "memory");
    }

    ~DefaultFloatEnvironment()
    {
        asm volatile("msr fpcr, %0" : : "r"(control) : "memory");
        asm volatile("msr fpsr, %0" : : "r"(flags) : "memory");
    }
#else
    DefaultFloatEnvironment() noexcept
    {
        std::fegetenv(&environment);
        std::fesetenv(FE_DFL_ENV);
    }

    ~DefaultFloatEnvironment()
    {
        std::fesetenv(&environment);
    }
#endif

    DefaultFloatEnvironment(const DefaultFloatEnvironment&) = delete;
    DefaultFloatEnvironment& operator=(const DefaultFloatEnvironment&) = delete;

private:
#if defined __SSE2__ && !defined TARN_GENERIC
    unsigned int control; ///< control bits and flags
#elif defined __aarch64__ && !defined TARN_GENERIC
    std::uint64_t control;
    std::uint64_t flags;
#else
    std::fenv_t environment;
#endif
};

} // namespace zrk_tarn
