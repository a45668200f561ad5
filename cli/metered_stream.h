// An upmix whose meters can be read and whose settings can be changed while it runs.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/layout.h"
#include "cli/loudness.h"
#include "cli/meter_values.h"
#include "cli/upmixer.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace tarn
{

/// Upmixes stereo and measures the outputs. One thread pushes; another one, or the same, reads values and changes
/// settings, without waiting for the first.
class MeteredStream
{
public:
    /// next  gets the upmix; can be null
    MeteredStream(const Layout& outputLayout, StreamFormat format, const EngineSettings& settings, AudioSink* next);

    /// Upmixes frames of interleaved left-justified stereo.
    ///
    /// clippedBefore  samples that the source has clipped until now
    void push(const std::int32_t* stereo, std::size_t frames, std::uint64_t clippedBefore);

    /// Upmixes the frames that remain after the last push.
    void finish() { upmixer.finish(); }

    /// The meters, without the name and the length of the input and held peaks.
    MeterValues values() const;

    void toggleUpmix() noexcept;
    void toggleMode() noexcept;
    void changeGain(double stepDb) noexcept;
    void changeCentre(double stepDb) noexcept;
    void restartLoudness() noexcept;

private:
    /// Measures the loudness of the upmix on the thread that pushes.
    class Loudness final : public AudioSink
    {
    public:
        Loudness(MeteredStream& owner, AudioSink* next);
        void write(const std::int32_t* samples, std::size_t frames) override;
        void finish() override {}

    private:
        MeteredStream& stream;
        AudioSink* sink;
        LoudnessMeter meter;
        std::uint64_t untilUpdate = 0; ///< frames until the loudness is computed again
    };

    const Layout& layout;
    const std::uint32_t rate;
    std::atomic<double> momentary;
    std::atomic<double> integrated;
    std::atomic<std::uint64_t> position = 0;     ///< frames
    std::atomic<std::uint64_t> clippedInput = 0; ///< samples
    std::atomic<bool> isRestartWanted = false;

    // Of the thread that changes settings.
    bool isOn = true;
    zrk_tarn::SteeringMode mode;
    double gainDb;
    double centreDb;

    Loudness loudness;
    Upmixer upmixer;
};

} // namespace tarn
