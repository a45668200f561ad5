// The plug-ins of LV2 and LADSPA behind one table of calls.
// SPDX-License-Identifier: MIT
#include "port_plugin.h"

#include "plugins/lv2/plugins.h"
#include "run_sessions.h"

#include <dlfcn.h>

#include <ladspa.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/urid/urid.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <iterator>
#include <limits>

namespace tests
{

namespace
{

std::uint32_t supportedRate(Random& random)
{
    return zrk_tarn::kSampleRatesHz[random.below(static_cast<std::uint32_t>(zrk_tarn::kSampleRatesHz.size()))];
}

LV2_URID mapUri(LV2_URID_Map_Handle, const char*)
{
    return 1;
}

int ignoreArguments(LV2_Log_Handle, LV2_URID, const char*, va_list)
{
    return 0;
}

// NOLINTNEXTLINE(cert-dcl50-cpp): as LV2 declares it
int ignoreMessage(LV2_Log_Handle, LV2_URID, const char*, ...)
{
    return 0;
}

/// Instantiates with usual features, with unknown ones, with none, or without a list, and with or without a bundle.
void* instantiateLv2(const LV2_Descriptor& descriptor, double rateHz, Random& random)
{
    static LV2_URID_Map map{nullptr, mapUri};
    static LV2_Log_Log log{nullptr, ignoreMessage, ignoreArguments};
    static const LV2_Feature mapping{LV2_URID__map, &map};
    static const LV2_Feature logging{LV2_LOG__log, &log};
    static const LV2_Feature unknown{"urn:tests:unknown", nullptr};
    static const LV2_Feature* const all[] = {&unknown, &mapping, &logging, nullptr};
    static const LV2_Feature* const logOnly[] = {&logging, &unknown, nullptr};
    static const LV2_Feature* const none[] = {nullptr};
    static const LV2_Feature* const* const lists[] = {all, logOnly, all, logOnly, none, nullptr};
    // Without a log, messages of refusals would go to the standard error.
    const bool isRefused = std::ranges::find(zrk_tarn::kSampleRatesHz, rateHz) == zrk_tarn::kSampleRatesHz.end();
    const LV2_Feature* const* const features = isRefused ? all : random.oneOf(lists);
    return descriptor.instantiate(&descriptor, rateHz, random.chance(4) ? nullptr : "/nowhere/", features);
}

PortKind kindOf(tarn_lv2::Port port)
{
    using namespace tarn_lv2;
    if (port < kOutput) return PortKind::AudioIn;
    if (port < kEnabled) return PortKind::AudioOut;
    return port < kLatency ? PortKind::ControlIn : PortKind::ControlOut;
}

PortPlugin lv2Plugin(const LV2_Descriptor& descriptor, const tarn_lv2::PortList& list)
{
    require(descriptor.extension_data == nullptr, "sessions do not call extensions");
    PortPlugin plugin{};
    std::transform(list.ports, list.ports + list.count, std::back_inserter(plugin.ports), kindOf);
    plugin.latencyPort =
        static_cast<std::size_t>(std::find(list.ports, list.ports + list.count, tarn_lv2::kLatency) - list.ports);
    plugin.maxPort = UINT32_MAX;
    plugin.instantiate = [&](Random& random) { return instantiateLv2(descriptor, supportedRate(random), random); };
    plugin.instantiateAtBadRate = [&](Random& random) {
        constexpr double kInfinity = std::numeric_limits<double>::infinity();
        const double rates[] = {0.0,   -0.0,   -48000.0,   48000.5,      4294967296.0 + 48000.0,
                                1e9,   1e300,  DBL_MAX,    DBL_TRUE_MIN, std::nan(""),
                                22050, 384000, -kInfinity, kInfinity,    std::nextafter(48000.0, 0.0)};
        return instantiateLv2(descriptor, random.oneOf(rates), random);
    };
    plugin.connect = [&](void* instance, unsigned long port, float* memory) {
        descriptor.connect_port(instance, static_cast<std::uint32_t>(port), memory);
    };
    plugin.activate = descriptor.activate;
    plugin.deactivate = descriptor.deactivate;
    plugin.run = [&](void* instance, unsigned long frames) {
        descriptor.run(instance, static_cast<std::uint32_t>(frames));
    };
    plugin.cleanup = descriptor.cleanup;
    return plugin;
}

PortKind kindOf(LADSPA_PortDescriptor port)
{
    if (LADSPA_IS_PORT_AUDIO(port)) return LADSPA_IS_PORT_INPUT(port) ? PortKind::AudioIn : PortKind::AudioOut;
    return LADSPA_IS_PORT_INPUT(port) ? PortKind::ControlIn : PortKind::ControlOut;
}

PortPlugin ladspaPlugin(const LADSPA_Descriptor& descriptor)
{
    require(descriptor.run_adding == nullptr, "sessions do not call run_adding");
    PortPlugin plugin{};
    for (unsigned long port = 0; port < descriptor.PortCount; ++port)
        plugin.ports.push_back(kindOf(descriptor.PortDescriptors[port]));
    plugin.latencyPort =
        static_cast<std::size_t>(std::ranges::find(plugin.ports, PortKind::ControlOut) - plugin.ports.begin());
    plugin.maxPort = ULONG_MAX;
    plugin.instantiate = [&](Random& random) { return descriptor.instantiate(&descriptor, supportedRate(random)); };
    plugin.instantiateAtBadRate = [&](Random& random) {
        constexpr unsigned long kRates[] = {0, 1, 22050, 47999, 384000, UINT32_MAX, UINT32_MAX + 48001ul, ULONG_MAX};
        return descriptor.instantiate(&descriptor, random.oneOf(kRates));
    };
    plugin.connect = descriptor.connect_port;
    plugin.activate = descriptor.activate;
    plugin.deactivate = descriptor.deactivate;
    plugin.run = descriptor.run;
    plugin.cleanup = descriptor.cleanup;
    return plugin;
}

} // namespace

std::vector<PortPlugin> portPluginsOf(const char* file)
{
    void* const library = dlopen(file, RTLD_NOW);
    require(library != nullptr, "the plug-in cannot be loaded");
    std::vector<PortPlugin> plugins;
    if (void* const lv2 = dlsym(library, "lv2_descriptor")) {
        const auto at = reinterpret_cast<LV2_Descriptor_Function>(lv2);
        for (std::uint32_t i = 0; const LV2_Descriptor* const descriptor = at(i); ++i)
            plugins.push_back(lv2Plugin(*descriptor, tarn_lv2::kPlugins[i].plugin.ports));
        require(at(UINT32_MAX) == nullptr, "there is a plug-in with the greatest index");
    } else {
        const auto at = reinterpret_cast<LADSPA_Descriptor_Function>(dlsym(library, "ladspa_descriptor"));
        require(at != nullptr, "the file has no descriptors");
        for (unsigned long i = 0; const LADSPA_Descriptor* const descriptor = at(i); ++i)
            plugins.push_back(ladspaPlugin(*descriptor));
        require(at(ULONG_MAX) == nullptr, "there is a plug-in with the greatest index");
    }
    return plugins;
}

} // namespace tests
