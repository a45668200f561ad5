// Encodes the upmixed track.
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/audio_sink.h"
#include "cli/layout.h"
#include "cli/stream_format.h"
#include "film/av.h"
#include "film/encoding.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tarn
{

/// Encodes frames of a layout into packets.
class TrackEncoder final : public AudioSink
{
public:
    using Consumer = std::function<void(AVPacket&)>;

    /// film            name of the output, for messages
    /// bitRate         kb/s; none: that of the codec, in proportion to the channels
    /// dialogueLevel   -31 to -1 dB, for codecs that store it
    /// globalHeader    the container stores the codec's header
    /// consumer        receives packets in the time base 1 / rate
    TrackEncoder(const std::string& film, const Encoding& encoding, const Layout& layout, StreamFormat format,
                 std::optional<std::int64_t> bitRate, int dialogueLevel, bool globalHeader, Consumer consumer);

    const AVCodecContext& codec() const noexcept { return *encoder; }

    /// Sets the time of the first frame, in frames.
    void startAt(std::int64_t frame) noexcept { nextFrame = frame; }

    void write(const std::int32_t* samples, std::size_t frames) override;

    /// Encodes the rest, with as much silence behind it as the codec delays.
    void finish() override;

private:
    void encode(const std::int32_t* samples, int frames);
    void send(const AVFrame* frame);

    std::string name;
    Consumer consume;
    AVChannelLayout channels{};
    Codec encoder;
    Resampler converter;               ///< to the codec's sample format
    std::vector<std::int32_t> waiting; ///< samples for the next packet
    Packet packet = newPacket();
    std::size_t slots;
    int packetFrames = 0;
    std::int64_t nextFrame = 0;
};

} // namespace tarn
