/* Tests the C interface from C99: the header and every function. Prints failed checks. */
/* SPDX-License-Identifier: MIT */

#include <zrk_tarn/tarn.h>

#include <float.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

static int failures = 0;

#define CHECK(condition)                                                                                               \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition);                                            \
            ++failures;                                                                                                \
        }                                                                                                              \
    } while (0)

enum
{
    FRAMES = 4800
};

static float stereo[FRAMES][2];
static float output[FRAMES][3];

/* A tone on the left only, in steps of 2^-20, which 32-bit integers represent exactly. */
static void fill_stereo(void)
{
    for (int i = 0; i < FRAMES; ++i) {
        stereo[i][0] = (float)(rint(0x1p19 * sin(0.1 * i)) * 0x1p-20);
        stereo[i][1] = 0.0f;
    }
}

/* Loading the library does not change the floating-point mode of the process. */
static void test_float_mode(void)
{
    volatile float smallest_normal = FLT_MIN;
    volatile float half = smallest_normal * 0.5f;
    CHECK(half != 0.0f);
    CHECK(half * 2.0f == smallest_normal);
}

static void test_default_stream(void)
{
    tarn_configuration configuration;
    tarn_stream* stream = NULL;
    tarn_meters meters;
    static float again[FRAMES][3];

    tarn_defaults(&configuration, sizeof configuration);
    CHECK(configuration.sample_rate == 48000);
    CHECK(configuration.format == TARN_F32);
    CHECK(configuration.output_slots == 3);
    CHECK(tarn_problem(&configuration) == NULL);
    CHECK(tarn_create(&configuration, &stream) == TARN_OK);
    CHECK(stream != NULL);
    CHECK(tarn_latency_frames() == 1024);

    CHECK(tarn_process(stream, stereo, output, FRAMES) == TARN_OK);
    CHECK(output[0][0] == 0.0f);
    CHECK(output[FRAMES - 1][0] != 0.0f);
    CHECK(tarn_read_meters(stream, &meters, sizeof meters) == TARN_OK);
    CHECK(meters.size == sizeof meters);
    CHECK(meters.blocks == FRAMES / 64);
    CHECK(meters.peak[0] > meters.peak[1]);
    CHECK(meters.saturated == 0 && meters.invalid == 0);
    CHECK(tarn_drain(stream, again, FRAMES) == 1024);
    CHECK(tarn_drain(stream, again, FRAMES) == 0);

    tarn_reset(stream);
    CHECK(tarn_process(stream, stereo, again, 100) == TARN_OK);
    CHECK(tarn_process(stream, stereo[100], again[100], FRAMES - 100) == TARN_OK);
    CHECK(memcmp(output, again, sizeof output) == 0);

    CHECK(!tarn_bypassed(stream));
    tarn_set_bypass(stream, 1);
    CHECK(tarn_bypassed(stream) == 1);
    tarn_set_make_up_gain(stream, 1.4f);
    tarn_set_mode(stream, TARN_CALM);
    CHECK(tarn_process(stream, stereo, output, FRAMES) == TARN_OK);
    CHECK(tarn_process(stream, stereo, output, FRAMES) == TARN_OK);
    for (int i = 1024; i < FRAMES; ++i) CHECK(output[i][0] == stereo[i - 1024][0]);
    tarn_destroy(stream);
}

static void test_planar(void)
{
    static float left[FRAMES], right[FRAMES], centre[FRAMES];
    const float* const input[] = {left, right};
    float* const rows[] = {left, right, centre};
    tarn_configuration configuration;
    tarn_stream* interleaved = NULL;
    tarn_stream* planar = NULL;

    tarn_defaults(&configuration, sizeof configuration);
    CHECK(tarn_create(&configuration, &interleaved) == TARN_OK);
    CHECK(tarn_create(&configuration, &planar) == TARN_OK);
    for (int i = 0; i < FRAMES; ++i) {
        left[i] = stereo[i][0];
        right[i] = stereo[i][1];
    }
    CHECK(tarn_process(interleaved, stereo, output, FRAMES) == TARN_OK);
    CHECK(tarn_process_planar(planar, input, rows, FRAMES) == TARN_OK);
    for (int i = 0; i < FRAMES; ++i)
        CHECK(left[i] == output[i][0] && right[i] == output[i][1] && centre[i] == output[i][2]);
    tarn_destroy(interleaved);
    tarn_destroy(planar);
}

static void test_remap(void)
{
    static int16_t in[FRAMES][2], plain[FRAMES][3], remapped[FRAMES][4];
    /* A permutation of the outputs: their samples are those without a matrix. */
    const int32_t moved[3][4] = {{0, 1 << 28, 0, 0}, {1 << 28, 0, 0, 0}, {0, 0, 0, 1 << 28}};
    const int32_t none[3][4] = {{0}};
    tarn_configuration configuration;
    tarn_stream* stream = NULL;
    tarn_stream* reference = NULL;
    int largest = 0;

    for (int i = 0; i < FRAMES; ++i) {
        in[i][0] = (int16_t)(10000.0 * sin(0.1 * i));
        in[i][1] = (int16_t)(8000.0 * sin(0.05 * i));
    }
    tarn_defaults(&configuration, sizeof configuration);
    configuration.format = TARN_S16;
    CHECK(tarn_create(&configuration, &reference) == TARN_OK);
    CHECK(tarn_set_remap(reference, moved) == TARN_NO_REMAP);
    configuration.output_slots = 4;
    for (uint32_t slot = 0; slot < 4; ++slot) {
        configuration.outputs[slot].source = TARN_FROM_ENGINE;
        configuration.outputs[slot].index = slot;
    }
    CHECK(tarn_problem(&configuration) != NULL);
    configuration.remap = 1;
    memcpy(configuration.gains, moved, sizeof moved);
    CHECK(tarn_create(&configuration, &stream) == TARN_OK);
    CHECK(tarn_process(reference, in, plain, FRAMES) == TARN_OK);
    CHECK(tarn_process(stream, in, remapped, FRAMES) == TARN_OK);
    for (int i = 0; i < FRAMES; ++i) {
        CHECK(remapped[i][1] == plain[i][0] && remapped[i][0] == plain[i][1] && remapped[i][3] == plain[i][2]);
        CHECK(remapped[i][2] == 0);
    }
    CHECK(tarn_set_remap(stream, none) == TARN_OK);
    CHECK(tarn_process(stream, in, remapped, FRAMES) == TARN_OK);
    for (int i = 64; i < FRAMES; ++i)
        for (int slot = 0; slot < 4; ++slot)
            if (remapped[i][slot] > largest) largest = remapped[i][slot];
    CHECK(largest == 0);
    tarn_destroy(stream);
    tarn_destroy(reference);
}

/* Every meter is copied to its own member. */
static void test_meters(void)
{
    tarn_configuration configuration;
    tarn_stream* stream = NULL;
    tarn_meters meters;

    tarn_defaults(&configuration, sizeof configuration);
    configuration.outputs[0].source = TARN_FROM_INPUT;
    CHECK(tarn_create(&configuration, &stream) == TARN_OK);
    stereo[0][0] = NAN;
    stereo[1][0] = 2.0f;
    stereo[2][0] = -2.0f;
    CHECK(tarn_process(stream, stereo, output, FRAMES) == TARN_OK);
    fill_stereo();
    CHECK(tarn_process(stream, stereo, output, FRAMES) == TARN_OK);
    CHECK(tarn_read_meters(stream, &meters, sizeof meters) == TARN_OK);
    CHECK(meters.invalid == 1);
    CHECK(meters.saturated == 2);
    CHECK(meters.peak[0] > 0.45f && meters.peak[0] < 1.0f);
    CHECK(meters.rms[0] > 0.1f && meters.rms[0] < 0.36f);
    CHECK(meters.left_right[4] > 0.8f);
    CHECK(meters.front_back[4] < 0.5f);
    CHECK(meters.speed[4] == 3);
    CHECK(meters.group_level[2] > 0.05f && meters.group_level[2] < 0.5f);
    CHECK(meters.group_place[2] > 0.9f && meters.group_place[2] <= 1.0f);
    CHECK(meters.group_centre[2] > 0.0f && meters.group_centre[2] < 0.1f);
    CHECK(meters.group_upper_hz[0] == 375.0f && meters.group_upper_hz[15] == 24000.0f);
    for (int g = 0; g < TARN_BAND_GROUPS; ++g) CHECK(meters.group_surround[g] == 0.0f);

    /* Gain 0 is silence. */
    tarn_set_make_up_gain(stream, 0.0f);
    CHECK(tarn_process(stream, stereo, output, FRAMES) == TARN_OK);
    CHECK(tarn_process(stream, stereo, output, FRAMES) == TARN_OK);
    for (int i = 0; i < FRAMES; ++i) CHECK(output[i][1] == 0.0f && output[i][2] == 0.0f);
    tarn_destroy(stream);
}

/* Two loudspeakers, surround channels and the gains. */
static void test_room(void)
{
    static float in[FRAMES][2], five[FRAMES][5], without[FRAMES][5];
    tarn_configuration configuration;
    tarn_stream* stream = NULL;
    tarn_meters meters;
    float loudest = 0.0f;

    for (int i = 0; i < FRAMES; ++i) {
        /* Multiples of 1/32768, which the integers of the stream hold exactly. */
        in[i][0] = (float)(floor(9000.0 * sin(0.1 * i) + 6000.0 * sin(0.9 * i)) / 32768.0);
        in[i][1] = (float)(floor(9000.0 * sin(0.1 * i) - 6000.0 * sin(0.9 * i + 1.0)) / 32768.0);
    }
    tarn_defaults(&configuration, sizeof configuration);
    configuration.output_slots = 5;
    for (uint32_t side = 0; side < 2; ++side) {
        configuration.outputs[side].source = TARN_DIALOGUE;
        configuration.outputs[3 + side].source = TARN_SURROUND;
        configuration.outputs[3 + side].index = side;
    }
    CHECK(tarn_create(&configuration, &stream) == TARN_OK);
    CHECK(tarn_process(stream, in, five, FRAMES) == TARN_OK);
    for (int i = 1024; i < FRAMES; ++i) CHECK(five[i][0] == in[i - 1024][0] && five[i][1] == in[i - 1024][1]);
    for (int i = 0; i < FRAMES; ++i) loudest = fmaxf(loudest, fabsf(five[i][3]));
    CHECK(loudest > 0.0f);
    CHECK(tarn_read_meters(stream, &meters, sizeof meters) == TARN_OK);
    /* 688 Hz is on both sides, 6.9 kHz with different phases. */
    CHECK(meters.group_surround[1] < 0.01f);
    CHECK(meters.group_surround[9] > 0.05f && meters.group_surround[9] < 0.5f);

    /* Without a centre, the sides lose it, and the centre has only what goes to the fronts. */
    tarn_reset(stream);
    tarn_set_centre_gain(stream, 0.0f);
    tarn_set_centre_width(stream, 0.5f);
    tarn_set_surround_gain(stream, 0.0f);
    CHECK(tarn_process(stream, in, without, FRAMES) == TARN_OK);
    for (int i = 0; i < FRAMES; ++i) CHECK(without[i][2] == 0.0f && without[i][3] == 0.0f && without[i][4] == 0.0f);
    CHECK(memcmp(five, without, sizeof five) != 0);
    tarn_destroy(stream);

    configuration.limiter = 1;
    CHECK(tarn_create(&configuration, &stream) == TARN_OK);
    CHECK(tarn_stream_latency_frames(stream) == 1088);
    tarn_set_make_up_gain(stream, 8.0f);
    CHECK(tarn_process(stream, in, five, FRAMES) == TARN_OK);
    CHECK(tarn_read_meters(stream, &meters, sizeof meters) == TARN_OK);
    CHECK(meters.saturated == 0 && meters.limited_blocks > 0);
    CHECK(meters.smallest_limiter_gain < 1.0f && meters.limiter_gain <= 1.0f);
    tarn_destroy(stream);
    CHECK(tarn_stream_latency_frames(NULL) == 0);

    tarn_set_centre_gain(NULL, 1.0f);
    tarn_set_centre_width(NULL, 1.0f);
    tarn_set_surround_gain(NULL, 1.0f);
    tarn_set_lfe_gain(NULL, 1.0f);
    tarn_set_bass(NULL, TARN_BASS_FRONTS);
    tarn_set_limiting(NULL, 0);
}

static void test_refusals(void)
{
    tarn_configuration configuration;
    tarn_stream* stream = (tarn_stream*)&configuration;
    const float* const rows[2] = {0};
    float* const out[3] = {0};

    tarn_defaults(&configuration, sizeof configuration);
    configuration.sample_rate = 22050;
    CHECK(strstr(tarn_problem(&configuration), "48000") != NULL);
    CHECK(tarn_create(&configuration, &stream) == TARN_BAD_CONFIGURATION);
    CHECK(stream == NULL);
    CHECK(tarn_create(NULL, &stream) == TARN_BAD_ARGUMENT);
    CHECK(tarn_create(&configuration, NULL) == TARN_BAD_ARGUMENT);
    CHECK(tarn_problem(NULL) != NULL);
    CHECK(tarn_process(NULL, stereo, output, 1) == TARN_BAD_ARGUMENT);

    tarn_defaults(&configuration, sizeof configuration);
    configuration.format = TARN_S32;
    CHECK(tarn_create(&configuration, &stream) == TARN_OK);
    CHECK(tarn_process(stream, stereo, NULL, 1) == TARN_BAD_ARGUMENT);
    CHECK(tarn_process(stream, stereo, NULL, 0) == TARN_OK);
    CHECK(tarn_process_planar(stream, rows, out, 1) == TARN_BAD_ARGUMENT);
    tarn_destroy(stream);

    configuration.format = TARN_F32;
    configuration.remap = 1;
    CHECK(tarn_create(&configuration, &stream) == TARN_OK);
    CHECK(tarn_process_planar(stream, NULL, out, 1) == TARN_BAD_ARGUMENT);
    CHECK(tarn_process_planar(stream, rows, NULL, 1) == TARN_BAD_ARGUMENT);
    CHECK(tarn_process_planar(stream, rows, out, 1) == TARN_OK);
    CHECK(tarn_drain(stream, NULL, 1) == 0);
    CHECK(tarn_drain(stream, output, 1) == 1);
    CHECK(tarn_set_remap(stream, NULL) == TARN_BAD_ARGUMENT);
    tarn_destroy(stream);

    tarn_destroy(NULL);
    tarn_reset(NULL);
    CHECK(tarn_drain(NULL, output, 1) == 0);
    CHECK(tarn_bypassed(NULL) == 0);
    for (int status = TARN_OK; status <= TARN_NO_REMAP; ++status)
        CHECK(strcmp(tarn_status_text(status), tarn_status_text(100)) != 0);
    CHECK(strchr(tarn_version(), '.') != NULL);
}

/* Numbers beyond the enumerators are refused, also those that a byte would wrap to an enumerator. */
static void test_numbers_beyond_a_byte(void)
{
    const uint32_t numbers[] = {255, 256, 257, 1000, 65536, 0x80000000u, UINT32_MAX};
    for (size_t i = 0; i < sizeof numbers / sizeof *numbers; ++i) {
        tarn_configuration configuration;
        uint32_t* const members[] = {&configuration.format,
                                     &configuration.mode,
                                     &configuration.bass,
                                     &configuration.outputs[0].source,
                                     &configuration.outputs[0].index,
                                     &configuration.outputs[2].index};
        for (size_t m = 0; m < sizeof members / sizeof *members; ++m) {
            tarn_stream* stream = NULL;
            tarn_defaults(&configuration, sizeof configuration);
            *members[m] = numbers[i];
            CHECK(tarn_problem(&configuration) != NULL);
            CHECK(tarn_create(&configuration, &stream) == TARN_BAD_CONFIGURATION);
        }
    }
}

/* A configuration of a program that is newer than the library has more members. */
static void test_sizes(void)
{
    struct
    {
        tarn_configuration known;
        uint32_t added;
        uint32_t behind;
    } newer = {.added = 1, .behind = 1};
    const size_t newer_size = sizeof newer - sizeof newer.behind;
    tarn_stream* stream = NULL;

    tarn_defaults(&newer.known, newer_size);
    CHECK(newer.known.size == newer_size);
    CHECK(newer.known.sample_rate == 48000);
    CHECK(newer.added == 0);
    CHECK(newer.behind == 1);
    CHECK(tarn_create(&newer.known, &stream) == TARN_OK);
    tarn_destroy(stream);
    newer.added = 1;
    CHECK(strstr(tarn_problem(&newer.known), "newer library") != NULL);
    CHECK(tarn_create(&newer.known, &stream) == TARN_BAD_CONFIGURATION);
    newer.added = 0;

    static union {
        tarn_configuration known;
        unsigned char bytes[4096];
    } largest;
    tarn_defaults(&largest.known, sizeof largest);
    CHECK(tarn_problem(&largest.known) == NULL);
    const size_t unknown[] = {sizeof largest.known, sizeof largest.known + 1, sizeof largest - 1};
    for (size_t i = 0; i < sizeof unknown / sizeof *unknown; ++i) {
        largest.bytes[unknown[i]] = 128;
        CHECK(strstr(tarn_problem(&largest.known), "newer library") != NULL);
        largest.bytes[unknown[i]] = 0;
    }

    const uint32_t wrong[] = {0, 1, sizeof newer.known - 4, sizeof newer.known - 1, 4097, UINT32_MAX};
    for (size_t i = 0; i < sizeof wrong / sizeof *wrong; ++i) {
        newer.known.size = wrong[i];
        CHECK(strstr(tarn_problem(&newer.known), "tarn_defaults") != NULL);
        CHECK(tarn_create(&newer.known, &stream) == TARN_BAD_CONFIGURATION);
    }

    memset(&newer, 1, sizeof newer);
    tarn_defaults(&newer.known, sizeof newer.known - 1);
    CHECK(newer.known.size == sizeof newer.known - 1);
    CHECK(newer.known.sample_rate == 48000);
    CHECK(tarn_create(&newer.known, &stream) == TARN_BAD_CONFIGURATION);
    CHECK(((unsigned char*)&newer)[sizeof newer.known - 1] == 1);
    tarn_defaults(NULL, sizeof newer.known);
}

static int all_bytes_are(const void* memory, size_t size, unsigned char value)
{
    const unsigned char* const bytes = memory;
    for (size_t i = 0; i < size; ++i)
        if (bytes[i] != value) return 0;
    return 1;
}

/* Bytes of the meters before the members for groups, which only later versions of the library have. */
enum
{
    FIRST_METERS_SIZE = 304
};

/* The meters of a program that is newer than the library have more members, those of an older one fewer. */
static void test_sizes_of_meters(void)
{
    struct
    {
        tarn_meters known;
        uint64_t added;
        uint64_t behind;
    } newer;
    const size_t newer_size = (size_t)((char*)&newer.behind - (char*)&newer);
    tarn_configuration configuration;
    tarn_stream* stream = NULL;
    tarn_meters exact;

    tarn_defaults(&configuration, sizeof configuration);
    CHECK(tarn_create(&configuration, &stream) == TARN_OK);
    CHECK(tarn_process(stream, stereo, output, FRAMES) == TARN_OK);
    CHECK(tarn_read_meters(stream, &exact, sizeof exact) == TARN_OK);

    memset(&newer, 1, sizeof newer);
    CHECK(tarn_read_meters(stream, &newer.known, newer_size) == TARN_OK);
    CHECK(memcmp(&newer.known, &exact, sizeof exact) == 0);
    CHECK(newer.known.size == sizeof exact);
    CHECK(newer.added == 0);
    CHECK(all_bytes_are(&newer.behind, sizeof newer.behind, 1));

    memset(&newer, 1, sizeof newer);
    CHECK(tarn_read_meters(NULL, &newer.known, newer_size) == TARN_BAD_ARGUMENT);
    CHECK(all_bytes_are(&newer, newer_size, 0));
    CHECK(all_bytes_are(&newer.behind, sizeof newer.behind, 1));

    memset(&newer, 1, sizeof newer);
    CHECK((size_t)((char*)exact.group_level - (char*)&exact) == FIRST_METERS_SIZE);
    for (size_t size = FIRST_METERS_SIZE; size < sizeof exact; size += sizeof(float)) {
        memset(&newer, 1, sizeof newer);
        CHECK(tarn_read_meters(stream, &newer.known, size) == TARN_OK);
        CHECK(newer.known.size == size);
        CHECK(memcmp((char*)&newer + sizeof(uint32_t), (char*)&exact + sizeof(uint32_t), size - sizeof(uint32_t)) == 0);
        CHECK(all_bytes_are((char*)&newer + size, sizeof newer - size, 1));
    }

    memset(&newer, 1, sizeof newer);
    const size_t too_small[] = {0, 1, sizeof exact.size, FIRST_METERS_SIZE - 8, FIRST_METERS_SIZE - 1};
    for (size_t i = 0; i < sizeof too_small / sizeof *too_small; ++i)
        CHECK(tarn_read_meters(stream, &newer.known, too_small[i]) == TARN_BAD_ARGUMENT);
    CHECK(all_bytes_are(&newer, sizeof newer, 1));
    CHECK(tarn_read_meters(stream, NULL, sizeof exact) == TARN_BAD_ARGUMENT);
    tarn_destroy(stream);
}

int main(void)
{
    test_float_mode();
    fill_stereo();
    test_default_stream();
    test_planar();
    test_remap();
    test_room();
    test_meters();
    test_refusals();
    test_numbers_beyond_a_byte();
    test_sizes();
    test_sizes_of_meters();
    return failures == 0 ? 0 : 1;
}
