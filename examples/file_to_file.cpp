// Upmixes a stereo file with libsndfile, aligned with the input and of the same length: file_to_file IN OUT.wav
// SPDX-License-Identifier: MIT
#include <sndfile.hh>
#include <zrk_tarn/upmix_stream.h>

#include <algorithm>
#include <cstdio>
#include <vector>

int main(int argc, char** argv)
{
    SndfileHandle in(argc == 3 ? argv[1] : "");
    zrk_tarn::StreamConfiguration configuration{.sampleRateHz = static_cast<std::uint32_t>(in.samplerate()),
                                                .format = zrk_tarn::SampleFormat::S32};
    if (in.channels() != 2 || zrk_tarn::UpmixStream::problemOf(configuration) != nullptr)
        return std::puts("usage: file_to_file STEREO OUT.wav, at a rate that zrk_tarn::UpmixStream supports"), 1;

    SndfileHandle out(argv[2], SFM_WRITE, SF_FORMAT_WAVEX | SF_FORMAT_PCM_32, 3, in.samplerate());
    if (out.rawHandle() == nullptr) return std::puts(out.strError()), 1;
    int map[] = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER};
    out.command(SFC_SET_CHANNEL_MAP_INFO, map, sizeof map);

    zrk_tarn::UpmixStream stream(configuration);
    std::vector<int> stereo(512 * 2), upmixed(512 * 3);
    sf_count_t toSkip = zrk_tarn::UpmixStream::latencyFrames(); // output frames before the first one of the input
    const auto write = [&](sf_count_t frames) {
        const sf_count_t skipped = std::min(frames, toSkip);
        out.writef(upmixed.data() + 3 * skipped, frames - skipped);
        toSkip -= skipped;
    };
    while (const sf_count_t frames = in.readf(stereo.data(), 512)) {
        stream.process(stereo.data(), upmixed.data(), static_cast<std::size_t>(frames));
        write(frames);
    }
    while (const std::size_t frames = stream.drain(upmixed.data(), 512)) write(static_cast<sf_count_t>(frames));
}
