// The LV2 plug-ins.
// SPDX-License-Identifier: MIT
#include "plugins/lv2/plugins.h"

#include <lv2/core/lv2.h>
#include <lv2/core/lv2_util.h>
#include <lv2/log/log.h>
#include <lv2/log/logger.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <exception>
#include <iterator>
#include <string_view>

namespace
{

using tarn_lv2::Instance;
using tarn_lv2::kPlugins;

/// Creates an instance. Returns null, with a message in the host's log, for a rate that the engine does not support, or
/// out of memory.
LV2_Handle instantiate(const LV2_Descriptor* descriptor, double rateHz, const char* /*bundle*/,
                       const LV2_Feature* const* features)
{
    LV2_Log_Logger log{};
    lv2_log_logger_init(&log, static_cast<LV2_URID_Map*>(lv2_features_data(features, LV2_URID__map)),
                        static_cast<LV2_Log_Log*>(lv2_features_data(features, LV2_LOG__log)));
    const auto* const plugin = std::find_if(std::begin(kPlugins), std::end(kPlugins), [&](const auto& candidate) {
        return candidate.uri == std::string_view(descriptor->URI);
    });
    // 0 is a rate that the stream refuses.
    const bool whole = rateHz >= 0.0 && rateHz <= 1e9 && rateHz == std::floor(rateHz);
    try {
        return new Instance(plugin->plugin, whole ? static_cast<std::uint32_t>(rateHz) : 0);
    } catch (const std::exception& problem) {
        lv2_log_error(&log, "%s: not at %g Hz: %s\n", plugin->name, rateHz, problem.what());
        return nullptr;
    }
}

void connectPort(LV2_Handle instance, std::uint32_t port, void* memory)
{
    static_cast<Instance*>(instance)->connect(port, static_cast<float*>(memory));
}

void activate(LV2_Handle instance)
{
    static_cast<Instance*>(instance)->activate();
}

void run(LV2_Handle instance, std::uint32_t frames)
{
    static_cast<Instance*>(instance)->run(frames);
    static_cast<Instance*>(instance)->showMeters();
}

void cleanup(LV2_Handle instance)
{
    delete static_cast<Instance*>(instance);
}

constexpr auto kDescriptors = [] {
    std::array<LV2_Descriptor, std::size(kPlugins)> descriptors{};
    for (std::size_t i = 0; i < descriptors.size(); ++i)
        descriptors[i] = {kPlugins[i].uri, instantiate, connectPort, activate, run, nullptr, cleanup, nullptr};
    return descriptors;
}();

} // namespace

/// The only exported function.
LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(std::uint32_t index)
{
    return index < kDescriptors.size() ? &kDescriptors[index] : nullptr;
}
