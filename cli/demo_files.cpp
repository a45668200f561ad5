#include "cli/demo_files.h"

#include "cli/failure.h"
#include "cli/interrupt.h"

#include <filesystem>

namespace tarn
{

namespace
{

constexpr std::uint32_t kSampleBytes = 2;

constexpr Layout kStereo{.name = "stereo",
                         .slotNames = "FL FR",
                         .slots = 2,
                         .mask = 0x3,
                         .remapped = false,
                         .outputs = {},
                         .channelMap = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT}};

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
      stereoFile(openFileSink(stereoPath, force, std::nullopt, {.layout = kStereo, .format = format}))
{
    std::error_code missing;
    if (std::filesystem::equivalent(upmixedPath, stereoPath, missing))
        throw Failure(EX_USAGE,
                      stereoPath + ": is the same file as " + upmixedPath + "; remove it, or choose another name");
}

void DemoFiles::finish(const std::vector<std::int16_t>& stereo)
{
    std::vector<std::uint8_t> bytes(stereo.size() * kSampleBytes);
    for (std::size_t i = 0; i < stereo.size(); ++i) storePcm(&bytes[i * kSampleBytes], stereo[i], kSampleBytes);
    stereoFile->write(bytes.data(), stereo.size() / kStereo.slots);
    throwIfInterrupted();
    stereoFile->finish();
    try {
        upmixedFile->finish();
    } catch (const Failure&) {
        // A file that was replaced cannot be brought back: its successor stays.
        std::error_code ignored;
        if (!replace) std::filesystem::remove(stereoPath, ignored);
        throw;
    }
}

} // namespace tarn
