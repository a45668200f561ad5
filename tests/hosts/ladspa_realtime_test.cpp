// The LADSPA plug-ins never allocate, lock or make a system call in a run, and need little stack.
// SPDX-License-Identifier: MIT
#include "tests/realtime/call_guard.h"
#include "tests/realtime/kernel_guard.h"
#include "tests/realtime/stack_bytes.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <ladspa.h>

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <stdexcept>

namespace tests
{

namespace
{

/// A plug-in of the file in the environment variable TARN_LADSPA; null after the last one.
const LADSPA_Descriptor* descriptor(unsigned long index)
{
    const char* const file = std::getenv("TARN_LADSPA");
    void* const library = file == nullptr ? nullptr : dlopen(file, RTLD_NOW);
    void* const function = library == nullptr ? nullptr : dlsym(library, "ladspa_descriptor");
    if (function == nullptr) throw std::runtime_error("TARN_LADSPA does not name the plug-in");
    return reinterpret_cast<LADSPA_Descriptor_Function>(function)(index);
}

/// An activated instance with every port connected.
class Host
{
public:
    explicit Host(const LADSPA_Descriptor& descriptor) : plugin(descriptor), handle(plugin.instantiate(&plugin, 48000))
    {
        if (handle == nullptr) throw std::runtime_error("no instance");
        LADSPA_Data* control = controls;
        LADSPA_Data(*row)[kMaxFrames] = rows;
        for (unsigned long port = 0; port < plugin.PortCount; ++port)
            plugin.connect_port(handle, port,
                                LADSPA_IS_PORT_CONTROL(plugin.PortDescriptors[port]) ? control++ : *row++);
        plugin.activate(handle);
    }

    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    ~Host() { plugin.cleanup(handle); }

    /// Runs with changing controls and sizes, and activations.
    void work()
    {
        for (unsigned long run = 0; run < 200; ++run) {
            for (std::size_t frame = 0; frame < kMaxFrames; ++frame)
                rows[0][frame] = rows[1][frame] = 0.4f * std::sin(0.1f * static_cast<float>(frame));
            const std::size_t changed = run % std::size(controls);
            controls[changed] = run % 7 == 0 ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(run % 3);
            plugin.run(handle, run * 17 % kMaxFrames);
            if (run % 50 == 0) plugin.activate(handle);
        }
    }

private:
    static constexpr std::size_t kMaxFrames = 1024;

    const LADSPA_Descriptor& plugin;
    LADSPA_Handle handle;
    LADSPA_Data controls[10] = {};
    LADSPA_Data rows[14][kMaxFrames] = {};
};

} // namespace

TEST(Ladspa, RunNeverAllocatesLocksOrMakesASystemCall)
{
    bool hasFilter = true;
    for (unsigned long index = 0; const LADSPA_Descriptor* const plugin = descriptor(index); ++index) {
        Host host(*plugin);
        host.work(); // warms up
        EXPECT_EQ(forbiddenCallsOf([&] { host.work(); }), ForbiddenCalls{}) << plugin->Label;
        EXPECT_NE(forbiddenCallsOf([&] { Host other(*plugin); }), ForbiddenCalls{}) << "constructors allocate";
        const auto calls = systemCallsOf([&] { host.work(); });
        hasFilter = calls.has_value();
        EXPECT_EQ(calls.value_or(0), 0u) << plugin->Label;
    }
    if (!hasFilter) GTEST_SKIP() << "the kernel has no filter of system calls";
}

TEST(Ladspa, RunNeedsLittleStack)
{
    for (unsigned long index = 0; const LADSPA_Descriptor* const plugin = descriptor(index); ++index) {
        Host host(*plugin);
        host.work(); // binds functions
        EXPECT_LE(stackBytesOf([&] { host.work(); }), kMaxStackBytes) << plugin->Label;
    }
}

} // namespace tests
