#include "tests/realtime/call_guard.h"
#include "tests/realtime/kernel_guard.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <ladspa.h>

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <stdexcept>

// What the LADSPA plug-ins call themselves, capable of hard real time: a run allocates, locks and asks the kernel for
// nothing, whatever the controls do. That the samples are the command's is shown by ladspa_calls_test.py.

namespace tests
{

namespace
{

/// A plug-in of the file that the environment names.
const LADSPA_Descriptor& descriptor(unsigned long index)
{
    const char* const file = std::getenv("TARN_LADSPA");
    void* const library = file == nullptr ? nullptr : dlopen(file, RTLD_NOW);
    void* const function = library == nullptr ? nullptr : dlsym(library, "ladspa_descriptor");
    if (function == nullptr) throw std::runtime_error("TARN_LADSPA does not name the plug-in");
    return *reinterpret_cast<LADSPA_Descriptor_Function>(function)(index);
}

/// An activated instance with every port connected.
class Host
{
public:
    explicit Host(const LADSPA_Descriptor& plugin) : plugin_(plugin), handle_(plugin.instantiate(&plugin, 48000))
    {
        if (handle_ == nullptr) throw std::runtime_error("no instance");
        LADSPA_Data* control = controls_;
        LADSPA_Data(*row)[kMostFrames] = rows_;
        for (unsigned long port = 0; port < plugin.PortCount; ++port)
            plugin.connect_port(handle_, port,
                                LADSPA_IS_PORT_CONTROL(plugin.PortDescriptors[port]) ? control++ : *row++);
        plugin.activate(handle_);
    }

    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    ~Host() { plugin_.cleanup(handle_); }

    /// Runs of every kind, each with other controls than the one before, and activation between them.
    void work()
    {
        for (unsigned long run = 0; run < 200; ++run) {
            for (std::size_t frame = 0; frame < kMostFrames; ++frame)
                rows_[0][frame] = rows_[1][frame] = 0.4f * std::sin(0.1f * static_cast<float>(frame));
            controls_[0] = run % 5 == 0 ? 0.0f : 1.0f;
            controls_[1] = run % 3 == 0 ? 2.0f : 1.0f;
            controls_[2] =
                run % 7 == 0 ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(run % 70) - 55.0f;
            plugin_.run(handle_, run * 17 % kMostFrames);
            if (run % 50 == 0) plugin_.activate(handle_);
        }
    }

private:
    static constexpr std::size_t kMostFrames = 1024;

    const LADSPA_Descriptor& plugin_;
    LADSPA_Handle handle_;
    LADSPA_Data controls_[4] = {};
    LADSPA_Data rows_[6][kMostFrames] = {};
};

} // namespace

TEST(Ladspa, RunsNeitherAllocateNorLockNorEnterTheKernel)
{
    for (const unsigned long index : {0ul, 1ul}) {
        Host host(descriptor(index));
        host.work(); // binds symbols, touches memory
        EXPECT_EQ(forbiddenCallsOf([&] { host.work(); }), ForbiddenCalls{});
        EXPECT_NE(forbiddenCallsOf([] { Host other(descriptor(0)); }), ForbiddenCalls{}) << "instances are counted";
        const auto calls = systemCallsOf([&] { host.work(); });
        if (!calls) GTEST_SKIP() << "the kernel offers no filter of system calls here";
        EXPECT_EQ(*calls, 0u);
    }
}

} // namespace tests
