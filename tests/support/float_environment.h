// A thread's floating-point environment, for tests.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace tests
{

/// The floating-point registers of a thread.
struct FloatEnvironment
{
    std::uint64_t control; ///< MXCSR or fcsr without the flags, or FPCR
    std::uint64_t flags;   ///< exception flags of MXCSR or fcsr, or FPSR

    friend bool operator==(const FloatEnvironment&, const FloatEnvironment&) = default;
};

/// A rounding mode and a mode of flushing subnormal numbers to zero.
struct EnvironmentSetting
{
    const char* rounding;
    const char* flushing;
    std::uint64_t control;
};

#if defined __SSE2__

inline constexpr std::uint64_t kAllFlags = 0x3f;
inline constexpr std::uint64_t kDefaultControl = 0x1f80;
inline constexpr std::uint64_t kTrapMasks = 0x1f80; ///< cleared bits enable traps

inline FloatEnvironment currentEnvironment()
{
    const std::uint64_t both = __builtin_ia32_stmxcsr();
    return {both & ~kAllFlags, both & kAllFlags};
}

inline void setEnvironment(const FloatEnvironment& environment)
{
    __builtin_ia32_ldmxcsr(static_cast<unsigned int>(environment.control | environment.flags));
}

inline std::vector<EnvironmentSetting> allSettings()
{
    std::vector<EnvironmentSetting> settings;
    for (const auto& [flushing, flushBits] :
         {std::pair{"none", 0u}, std::pair{"FTZ", 0x8000u}, std::pair{"DAZ", 0x40u}, std::pair{"FTZ and DAZ", 0x8040u}})
        for (const auto& [rounding, roundingBits] : {std::pair{"to nearest", 0u}, std::pair{"down", 0x2000u},
                                                     std::pair{"up", 0x4000u}, std::pair{"to zero", 0x6000u}})
            settings.push_back({rounding, flushing, kDefaultControl | flushBits | roundingBits});
    return settings;
}

#elif defined __aarch64__

inline constexpr std::uint64_t kAllFlags = 0x9f;
inline constexpr std::uint64_t kDefaultControl = 0;

inline FloatEnvironment currentEnvironment()
{
    FloatEnvironment environment{};
    asm volatile("mrs %0, fpcr" : "=r"(environment.control));
    asm volatile("mrs %0, fpsr" : "=r"(environment.flags));
    return environment;
}

inline void setEnvironment(const FloatEnvironment& environment)
{
    asm volatile("msr fpcr, %0" : : "r"(environment.control) : "memory");
    asm volatile("msr fpsr, %0" : : "r"(environment.flags) : "memory");
}

inline std::vector<EnvironmentSetting> allSettings()
{
    std::vector<EnvironmentSetting> settings;
    for (const auto& [flushing, flushBits] : {std::pair{"none", 0u}, std::pair{"FZ", 0x1000000u}})
        for (const auto& [rounding, roundingBits] : {std::pair{"to nearest", 0u}, std::pair{"up", 0x400000u},
                                                     std::pair{"down", 0x800000u}, std::pair{"to zero", 0xc00000u}})
            settings.push_back({rounding, flushing, kDefaultControl | flushBits | roundingBits});
    return settings;
}

#elif defined __riscv

inline constexpr std::uint64_t kAllFlags = 0x1f;
inline constexpr std::uint64_t kDefaultControl = 0;

inline FloatEnvironment currentEnvironment()
{
    std::uint64_t both = 0;
    asm volatile("frcsr %0" : "=r"(both));
    return {both & ~kAllFlags, both & kAllFlags};
}

inline void setEnvironment(const FloatEnvironment& environment)
{
    asm volatile("fscsr %0" : : "r"(environment.control | environment.flags) : "memory");
}

inline std::vector<EnvironmentSetting> allSettings()
{
    return {{"to nearest", "none", 0x00}, {"to zero", "none", 0x20}, {"down", "none", 0x40}, {"up", "none", 0x60}};
}

#endif

/// Sets an environment for a scope. Arithmetic in the scope must not be inlined.
class CallersEnvironment
{
public:
    explicit CallersEnvironment(const FloatEnvironment& environment) { setEnvironment(environment); }
    ~CallersEnvironment() { setEnvironment(before); }

    CallersEnvironment(const CallersEnvironment&) = delete;
    CallersEnvironment& operator=(const CallersEnvironment&) = delete;

private:
    FloatEnvironment before = currentEnvironment();
};

} // namespace tests
