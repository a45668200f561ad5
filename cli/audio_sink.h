// The interface of all audio outputs.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn
{

/// Receives interleaved PCM, slot by slot.
class AudioSink
{
public:
    virtual ~AudioSink() = default;

    /// Writes frames of left-justified 32-bit samples. Bits below the width of the output are zero.
    virtual void write(const std::int32_t* samples, std::size_t frames) = 0;

    /// Completes the output. Without this call, no output is left.
    virtual void finish() = 0;

    /// Notes about metadata of the source that the output cannot hold, one sentence each.
    virtual std::vector<std::string> notes() const { return {}; }
};

} // namespace tarn
