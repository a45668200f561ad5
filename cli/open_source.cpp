// Chooses between a file, a raw stream and a conversion of its rate.
// SPDX-License-Identifier: MIT
#include "cli/open_source.h"

#include "cli/file_source.h"
#include "cli/raw_pcm.h"
#include "cli/resampled_source.h"

#include <utility>

namespace tarn
{

std::unique_ptr<AudioSource> openSource(const UpmixOptions& options, const std::optional<StreamFormat>& raw)
{
    std::unique_ptr<AudioSource> source;
    if (isStream(options.input) && raw) {
        source = std::make_unique<RawSource>(*raw);
    } else {
        source = std::make_unique<FileSource>(options.input);
    }
    const std::uint32_t rate = options.rate.value_or(engineRateFor(source->format().sampleRate));
    if (rate == source->format().sampleRate) return source;
    return std::make_unique<ResampledSource>(std::move(source), rate);
}

} // namespace tarn
