/* Upmixes a test signal through the C interface and prints a checksum of the output. */
/* SPDX-License-Identifier: MIT */

#include <zrk_tarn/tarn.h>

#include <inttypes.h>
#include <stdio.h>

enum
{
    FRAMES = 4800
};

int main(void)
{
    static int16_t input[2 * FRAMES];
    static int16_t output[3 * FRAMES];
    for (int i = 0; i < 2 * FRAMES; ++i) input[i] = (int16_t)(i * 7919 % 20000 - 10000);

    tarn_configuration configuration;
    tarn_defaults(&configuration, sizeof configuration);
    configuration.format = TARN_S16;
    tarn_stream* stream = NULL;
    if (tarn_create(&configuration, &stream) != TARN_OK) return 1;
    if (tarn_process(stream, input, output, FRAMES) != TARN_OK) return 1;
    tarn_destroy(stream);

    uint32_t checksum = 0;
    for (int i = 0; i < 3 * FRAMES; ++i) checksum = checksum * 31 + (uint16_t)output[i];
    printf("%08" PRIx32 "\n", checksum);
    return 0;
}
