/* Upmixes the default input device to three output channels with PortAudio until Enter is pressed. */
/* SPDX-License-Identifier: MIT */
#include <portaudio.h>
#include <stdio.h>
#include <zrk_tarn/tarn.h>

static int callback(const void* input, void* output, unsigned long frames, const PaStreamCallbackTimeInfo* time,
                    PaStreamCallbackFlags flags, void* stream)
{
    (void)time, (void)flags;
    return tarn_process(stream, input, output, frames) == TARN_OK ? paContinue : paAbort;
}

int main(void)
{
    tarn_configuration configuration; /* floats at 48 kHz */
    tarn_stream* upmix;
    PaStream* audio;
    tarn_defaults(&configuration, sizeof configuration);
    if (tarn_create(&configuration, &upmix) != TARN_OK) return 1;

    PaError error = Pa_Initialize();
    if (error == paNoError)
        error = Pa_OpenDefaultStream(&audio, 2, 3, paFloat32, 48000, paFramesPerBufferUnspecified, callback, upmix);
    if (error == paNoError) error = Pa_StartStream(audio);
    if (error == paNoError) getchar();
    if (error != paNoError) puts(Pa_GetErrorText(error));
    Pa_Terminate();
    tarn_destroy(upmix);
    return error != paNoError;
}
