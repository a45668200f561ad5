// Writes the upmixed scene and its stereo; keeps both files or none.
// SPDX-License-Identifier: MIT
#include "cli/demo_files.h"

#include "cli/failure.h"
#include "cli/interrupt.h"

#include <algorithm>
#include <filesystem>

namespace tarn
{

namespace
{

/// scene.wav becomes scene-stereo.wav.
std::string stereoNameFor(const std::string& path)
{
    const std::filesystem::path upmixed(path);
    return std::filesystem::path(upmixed)
        .replace_filename(upmixed.stem().string() + "-stereo" + upmixed.extension().string())
        .string();
}

} // namespace

DemoFiles::DemoFiles(const std::string& path, bool force, const Layout& layout, StreamFormat format)
    : upmixedPath(path),
      stereoPath(stereoNameFor(path)),
      replace(force),
      upmixedFile(openFileSink(path, force, std::nullopt, {.layout = layout, .format = format})),
      stereoFile(openFileSink(stereoPath, force, std::nullopt, {.layout = kStereoLayout, .format = format}))
{
    std::error_code missing;
    if (std::filesystem::equivalent(upmixedPath, stereoPath, missing))
        throw Failure(EX_USAGE,
                      stereoPath + ": is the same file as " + upmixedPath + "; remove it, or choose another name");
}

void DemoFiles::finish(const std::vector<std::int16_t>& stereo)
{
    std::vector<std::int32_t> samples(stereo.size());
    std::transform(stereo.begin(), stereo.end(), samples.begin(), [](std::int16_t sample) { return sample * 0x10000; });
    stereoFile->write(samples.data(), samples.size() / kStereoLayout.slots);
    throwIfInterrupted();
    stereoFile->finish();
    try {
        upmixedFile->finish();
    } catch (...) {
        // A replaced file cannot be restored, so the new one stays.
        std::error_code ignored;
        if (!replace) std::filesystem::remove(stereoPath, ignored);
        throw;
    }
}

} // namespace tarn
