// Upmixes the default input device to three output channels with PortAudio until Enter is pressed.
// SPDX-License-Identifier: MIT
#include <portaudio.h>
#include <zrk_tarn/upmix_stream.h>

#include <cstdio>

namespace
{

int callback(const void* input, void* output, unsigned long frames, const PaStreamCallbackTimeInfo*,
             PaStreamCallbackFlags, void* upmix)
{
    static_cast<zrk_tarn::UpmixStream*>(upmix)->process(input, output, frames);
    return paContinue;
}

} // namespace

int main()
{
    zrk_tarn::UpmixStream upmix({.sampleRateHz = 48000});
    PaStream* audio = nullptr;
    PaError error = Pa_Initialize();
    if (error == paNoError)
        error = Pa_OpenDefaultStream(&audio, 2, 3, paFloat32, 48000, paFramesPerBufferUnspecified, callback, &upmix);
    if (error == paNoError) error = Pa_StartStream(audio);
    if (error == paNoError) std::getchar();
    if (error != paNoError) std::puts(Pa_GetErrorText(error));
    Pa_Terminate();
    return error != paNoError;
}
