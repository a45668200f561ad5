/* Upmixes a stereo file with libsndfile, aligned with the input and of the same length: file_to_file IN OUT.wav */
/* SPDX-License-Identifier: MIT */
#include <sndfile.h>
#include <stdio.h>
#include <zrk_tarn/tarn.h>

int main(int argc, char** argv)
{
    SF_INFO info = {0};
    SNDFILE* const in = argc == 3 ? sf_open(argv[1], SFM_READ, &info) : NULL;
    tarn_configuration configuration;
    tarn_stream* stream;
    tarn_defaults(&configuration, sizeof configuration);
    configuration.sample_rate = (uint32_t)info.samplerate;
    configuration.format = TARN_S32;
    if (info.channels != 2 || tarn_create(&configuration, &stream) != TARN_OK) {
        const char* const problem = tarn_problem(&configuration);
        printf("usage: file_to_file STEREO OUT.wav; %s\n", in == NULL ? sf_strerror(NULL)
                                                           : problem  ? problem
                                                                      : "the input is not stereo");
        sf_close(in);
        return 1;
    }

    SF_INFO outInfo = {.samplerate = info.samplerate, .channels = 3, .format = SF_FORMAT_WAVEX | SF_FORMAT_PCM_32};
    SNDFILE* const out = sf_open(argv[2], SFM_WRITE, &outInfo);
    if (out == NULL) {
        printf("%s: %s\n", argv[2], sf_strerror(NULL));
        tarn_destroy(stream);
        sf_close(in);
        return 1;
    }
    int map[3] = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_CENTER};
    sf_command(out, SFC_SET_CHANNEL_MAP_INFO, map, sizeof map);

    int stereo[512 * 2], upmixed[512 * 3];
    sf_count_t toSkip = tarn_latency_frames(); /* output frames before the first one of the input */
    for (sf_count_t frames;;) {
        if ((frames = sf_readf_int(in, stereo, 512)) > 0)
            tarn_process(stream, stereo, upmixed, (size_t)frames);
        else if ((frames = (sf_count_t)tarn_drain(stream, upmixed, 512)) == 0)
            break;
        const sf_count_t skipped = frames < toSkip ? frames : toSkip;
        sf_writef_int(out, upmixed + 3 * skipped, frames - skipped);
        toSkip -= skipped;
    }
    tarn_destroy(stream);
    sf_close(in);
    return sf_close(out);
}
