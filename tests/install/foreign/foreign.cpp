// Upmixes a test signal with UpmixStream and with zrk_tarn_processor_t, and prints a checksum if both outputs agree.
// SPDX-License-Identifier: MIT

#include <zrk_tarn/cos_mod.h>
#include <zrk_tarn/stream_types.h>
#include <zrk_tarn/tarn.h>
#include <zrk_tarn/upmix_stream.h>
#include <zrk_tarn/zrk_tarn.h>
#include <zrk_tarn/zrk_tarn_processor.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace
{

constexpr std::size_t kFrames = 4800;
constexpr std::size_t kBlock = zrk_tarn::UpmixStream::latencyFrames() - zrk_tarn_processor_t::kDelayFrames;

std::int16_t ramp(std::size_t i)
{
    return static_cast<std::int16_t>(static_cast<int>(i * 7919 % 20000) - 10000);
}

std::vector<std::int16_t> streamed()
{
    std::vector<std::int16_t> input(2 * kFrames);
    for (std::size_t i = 0; i < input.size(); ++i) input[i] = ramp(i);
    std::vector<std::int16_t> output(3 * kFrames);
    zrk_tarn::StreamConfiguration configuration;
    configuration.format = zrk_tarn::SampleFormat::S16;
    zrk_tarn::UpmixStream stream(configuration);
    stream.process(input.data(), output.data(), kFrames);
    return output;
}

std::vector<std::int16_t> hosted()
{
    std::vector<std::int16_t> buffer(3 * kFrames);
    for (std::size_t frame = 0; frame < kFrames; ++frame)
        for (std::size_t side = 0; side < 2; ++side) buffer[3 * frame + side] = ramp(2 * frame + side);
    audio_channel_assignment_t slots{
        {audio_channel_assignment_t::kLeft, audio_channel_assignment_t::kRight, audio_channel_assignment_t::kCentre}};
    zrk_tarn_processor_t host;
    host.process(buffer.data(), kFrames, 3, 48000, 16, &slots);
    return buffer;
}

} // namespace

int main()
{
    cosModTablesInit();
    if (ZRKTarn().Close() != 0) return 1;
    const std::vector<std::int16_t> stream = streamed();
    const std::vector<std::int16_t> host = hosted();
    if (!std::equal(stream.begin() + 3 * kBlock, stream.end(), host.begin())) return 1;

    std::uint32_t checksum = 0;
    for (const std::int16_t sample : stream) checksum = checksum * 31 + static_cast<std::uint16_t>(sample);
    std::printf("%08x\n", checksum);
    return checksum == 0;
}
