#include <zrk_tarn/upmix_stream.h>

#include <vector>

int main()
{
    zrk_tarn::UpmixStream stream({.sampleRateHz = 48000, .format = zrk_tarn::SampleFormat::F32});
    std::vector<float> stereo(2 * 4800), upmix(3 * 4800); // 0.1 s: left, right -> front left, front right, centre
    for (std::size_t i = 0; i < stereo.size(); ++i) stereo[i] = i / 2 % 100 < 50 ? 0.25f : -0.25f;

    stream.process(stereo.data(), upmix.data(), 4800); // any number of frames per call, on the audio thread
    return upmix.back() == 0.0f;
}
