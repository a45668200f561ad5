#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

/// Where interleaved PCM goes, slot by slot.
class AudioSink
{
public:
    virtual ~AudioSink() = default;

    /// Writes frames of right-justified little-endian samples in containers of the stream's width.
    virtual void write(const std::uint8_t* slots, std::size_t frames) = 0;

    /// Completes the output; without it, none is left.
    virtual void finish() = 0;

    /// What of the source's tags the output does not hold, a sentence each.
    virtual std::vector<std::string> notes() const { return {}; }
};

} // namespace tarn
