// The fields of a PCM's configuration.
// SPDX-License-Identifier: MIT
#pragma once

#include "layouts.h"

#include "stream/presets.h"

#include <alsa/asoundlib.h>

namespace tarn_alsa
{

/// The values of the fields. The gain of layout 2.0, which the upmix does not make softer, is 0 dB by default.
struct Settings
{
    snd_config_t* slave = nullptr;
    const Layout* layout = &kDefaultLayout;
    bool enabled = true;
    zrk_tarn::SteeringMode mode = zrk_tarn::SteeringMode::Fast;
    zrk_tarn::RoomSettings room = zrk_tarn::kPresets[0].settings;
};

/// Reads a configuration. Throws std::invalid_argument with a message that names the field and its valid values.
Settings readSettings(const snd_config_t* configuration);

} // namespace tarn_alsa
