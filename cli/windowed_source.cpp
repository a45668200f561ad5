// Drops the frames of a source that are outside a window.
// SPDX-License-Identifier: MIT
#include "cli/windowed_source.h"

#include "cli/interrupt.h"
#include "cli/text.h"

#include <algorithm>
#include <utility>

namespace tarn
{

WindowedSource::WindowedSource(std::unique_ptr<AudioSource> inner, std::uint64_t firstFrame,
                               std::optional<std::uint64_t> frames)
    : source(std::move(inner)), first(firstFrame), limit(frames ? firstFrame + *frames : UINT64_MAX)
{}

std::optional<std::uint64_t> WindowedSource::expectedFrames() const noexcept
{
    const auto whole = source->expectedFrames();
    if (!whole) return std::nullopt;
    const std::uint64_t end = std::min(*whole, limit);
    return end > first ? end - first : 0;
}

std::size_t WindowedSource::read(std::int32_t* stereo, std::size_t capacity)
{
    while (done < limit) {
        throwIfInterrupted();
        const std::uint64_t wanted = done < first ? first - done : limit - done;
        const std::size_t frames =
            source->read(stereo, static_cast<std::size_t>(std::min<std::uint64_t>(capacity, wanted)));
        ended = frames == 0;
        if (ended) return 0;
        done += frames;
        if (done > first) return frames;
        clippedBefore = source->clippedSamples();
    }
    return 0;
}

void WindowedSource::rewind()
{
    source->rewind();
    done = 0;
    clippedBefore = 0;
    ended = false;
}

Failure startAfterEnd(const std::optional<std::string>& start, const std::string& name, const WindowedSource& source)
{
    return {EX_USAGE, "--start " + start.value_or("0") + ": " + name + " ends at " +
                          shortDurationText(source.position(), source.format().sampleRate) + "; give an earlier start"};
}

} // namespace tarn
