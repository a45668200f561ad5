// Upmixes the demo scene into an analysis.
// SPDX-License-Identifier: MIT
#include "tests/picture/demo_picture.h"

#include "cli/room_options.h"
#include "cli/scene.h"

#include <algorithm>
#include <vector>

namespace tarn_picture
{

std::unique_ptr<tarn::PictureSink> analysedScene(const std::string& layout)
{
    const tarn::Scene scene = tarn::makeScene();
    const tarn::Layout& outputs = tarn::layoutNamed(layout);
    const tarn::EngineSettings settings{.remap = {}, .room = tarn::roomSettingsOf({}, outputs)};
    auto sink = std::make_unique<tarn::PictureSink>(outputs, settings, scene.sampleRate, nullptr);
    tarn::Upmixer upmixer(outputs, {.sampleRate = scene.sampleRate, .bits = 16}, settings, true, *sink);
    std::vector<std::int32_t> stereo(scene.stereo.size());
    std::transform(scene.stereo.begin(), scene.stereo.end(), stereo.begin(),
                   [](std::int16_t sample) { return sample * 0x10000; });
    upmixer.push(stereo.data(), stereo.size() / 2);
    upmixer.finish();
    sink->finishPicture();
    return sink;
}

} // namespace tarn_picture
