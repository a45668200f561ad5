#pragma once

#include <cstdint>
#if defined TARN_GENERIC
#include <cfenv>
#endif

namespace zrk_tarn
{

/// The default floating-point environment for as long as the object lives: round to nearest, subnormal numbers kept,
/// no traps. Then the caller's again, and its exception flags as they were.
///
/// Hosts flush subnormals to zero on their audio threads, or round otherwise; results would change with it. Compilers
/// take arithmetic for independent of the environment and may move it across a change, so the object belongs into a
/// function that does no arithmetic itself but calls, without inlining, what does.
///
/// One register is read and written on x86-64, two on 64-bit Arm. Real-time safe.
class DefaultFloatEnvironment
{
public:
#if defined __SSE2__ && !defined TARN_GENERIC
    DefaultFloatEnvironment() noexcept : control_(__builtin_ia32_stmxcsr())
    {
        constexpr unsigned int kAllMasked = 0x1f80; // and no flag raised
        __builtin_ia32_ldmxcsr(kAllMasked);
    }

    ~DefaultFloatEnvironment()
    {
        __builtin_ia32_ldmxcsr(control_);
    }
#elif defined __aarch64__ && !defined TARN_GENERIC
    DefaultFloatEnvironment() noexcept
    {
        asm volatile("mrs %0, fpcr" : "=r"(control_));
        asm volatile("mrs %0, fpsr" : "=r"(flags_));
        asm volatile("msr fpcr, %0" : : "r"(std::uint64_t{0}) : "memory");
    }

    ~DefaultFloatEnvironment()
    {
        asm volatile("msr fpcr, %0" : : "r"(control_) : "memory");
        asm volatile("msr fpsr, %0" : : "r"(flags_) : "memory");
    }
#else
    DefaultFloatEnvironment() noexcept
    {
        std::fegetenv(&environment_);
        std::fesetenv(FE_DFL_ENV);
    }

    ~DefaultFloatEnvironment()
    {
        std::fesetenv(&environment_);
    }
#endif

    DefaultFloatEnvironment(const DefaultFloatEnvironment&) = delete;
    DefaultFloatEnvironment& operator=(const DefaultFloatEnvironment&) = delete;

private:
#if defined __SSE2__ && !defined TARN_GENERIC
    unsigned int control_; ///< control bits and flags
#elif defined __aarch64__ && !defined TARN_GENERIC
    std::uint64_t control_;
    std::uint64_t flags_;
#else
    std::fenv_t environment_;
#endif
};

} // namespace zrk_tarn
