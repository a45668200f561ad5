// The plug-ins of LV2 and LADSPA behind one table of calls.
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/random.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tests
{

enum class PortKind
{
    AudioIn,
    AudioOut,
    ControlIn,
    ControlOut
};

/// A plug-in whose host connects memory to numbered ports.
struct PortPlugin
{
    std::vector<PortKind> ports;
    std::size_t latencyPort; ///< number of the output with the latency
    unsigned long maxPort;   ///< greatest number that the interface can express

    /// Creates an instance at a supported rate.
    std::function<void*(Random& random)> instantiate;
    /// Calls instantiate with a rate that the engine does not support. Returns null unless the plug-in accepts it.
    std::function<void*(Random& random)> instantiateAtBadRate;
    std::function<void(void* instance, unsigned long port, float* memory)> connect;
    std::function<void(void* instance)> activate;
    std::function<void(void* instance)> deactivate; ///< empty if the plug-in has none
    std::function<void(void* instance, unsigned long frames)> run;
    std::function<void(void* instance)> cleanup;
};

/// The plug-ins of a file, which exports lv2_descriptor or ladspa_descriptor.
std::vector<PortPlugin> portPluginsOf(const char* file);

} // namespace tests
