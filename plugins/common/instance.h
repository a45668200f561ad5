// An instance of a plug-in for LV2 or LADSPA.
// SPDX-License-Identifier: MIT
#pragma once

#include "plugins/common/controls.h"

#include <array>
#include <cstdint>

namespace tarn_plugins
{

/// What an instance needs to know about its plug-in.
struct Plugin
{
    const Layout& layout;
    PortList ports;
    float silentSurroundDb; ///< surround channels with this level or less are silent
};

/// A stream, and the memory that the host connected to each port.
class Instance
{
public:
    /// Throws as UpmixStream does.
    Instance(const Plugin& instancePlugin, std::uint32_t rateHz);

    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    /// The latency in frames.
    static constexpr std::uint32_t kLatencyFrames = zrk_tarn::UpmixStream::latencyFrames({.limiter = true});

    /// Connects a port of the plug-in to memory, or disconnects it with null.
    void connect(unsigned long port, float* location) noexcept;

    /// Clears the signal.
    void activate() noexcept;

    /// Applies the controls, upmixes, and writes the latency. Controls that are NaN or not connected have their
    /// defaults.
    void run(std::size_t frames) noexcept;

    /// Writes the reduction of the limiter and the meters of each band group.
    void showMeters() noexcept;

private:
    /// A level in decibels. Computes the logarithm after a change only.
    class DecibelLevel
    {
    public:
        float of(float newLevel) noexcept;

    private:
        float level = 1.0f;
        float decibels = 0.0f;
    };

    /// The bits of the values of all controls.
    using Controls = std::array<std::uint32_t, kLatency - std::size_t{kEnabled}>;

    // Not inlined, so that they stay in the scope of the default floating-point environment.
    [[gnu::noinline]] void applyControls() noexcept;
    [[gnu::noinline]] void readMeters() noexcept;
    float control(Port port) const noexcept;
    zrk_tarn::RoomSettings settings() const noexcept;

    const Plugin& plugin;
    zrk_tarn::UpmixStream stream;
    float* memory[kPorts] = {}; ///< null, and in meters for a meter, if it is not connected
    Controls applied{};         ///< to the stream

    std::size_t framesOfBlock = 0; ///< frames since the last block of the stream
    std::size_t metersEnd;         ///< port after the last meter of the layout
    bool hasNewMeters = true;      ///< whether the meters have changed since readMeters
    float meters[kUnused] = {};    ///< values of the ports from kReduction on
    DecibelLevel reduction;
    DecibelLevel groupLevel[zrk_tarn::kBandGroups];
    DecibelLevel groupSurround[zrk_tarn::kBandGroups];
};

} // namespace tarn_plugins
