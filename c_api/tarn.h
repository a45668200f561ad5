/* Tarn for C: stereo in, front left, front right, centre and surround channels out. */
/* SPDX-License-Identifier: MIT */
#ifndef ZRK_TARN_TARN_H
#define ZRK_TARN_TARN_H

/**
 * @file
 * Tarn for C, and for every language that can call C: stereo in, front left, front right, centre and surround channels
 * out, in buffers of any size.
 *
 * Create a stream for a configuration, then process buffers with it. The output is delayed by
 * tarn_stream_latency_frames(stream).
 * Only tarn_create allocates memory.
 *
 * Threads: call tarn_process, tarn_process_planar, tarn_drain, tarn_reset and tarn_set_remap on one thread at a time
 * per stream. Call the other functions that set a value, tarn_bypassed and tarn_read_meters on any thread at any time.
 * None of these functions allocates, locks or makes a system call. In an optimised build, each needs at most 12 KiB of
 * stack. Any number of streams can be created and used on any number of threads at the same time.
 *
 * Results are identical to the bit on every machine. They do not depend on the floating-point mode of the calling
 * thread, which is restored. No function sets errno or throws. If a stream is null, functions that return a status
 * return TARN_BAD_ARGUMENT, and the others return 0 or do nothing.
 */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Marks the functions that the library exports. */
#if defined __GNUC__
#define TARN_API __attribute__((visibility("default")))
#else
#define TARN_API
#endif

/** Maximum number of slots per frame. */
#define TARN_MAX_SLOTS 8
/** Number of frequency groups that are steered independently. */
#define TARN_BAND_GROUPS 16

/** Typical make-up gain (+3 dB): makes the upmix in 3.0 about as loud as the stereo. Without the limiter, loud
 * recordings clip with it. */
#define TARN_TYPICAL_MAKE_UP_GAIN 1.41253754f
/** Maximum gain of the centre and of the surround channels (+12 dB). */
#define TARN_MAX_CHANNEL_GAIN 3.98107171f
/** Typical gain of the surround channels (-3 dB). */
#define TARN_TYPICAL_SURROUND_GAIN 0.707945784f

/** Result of a call. */
typedef enum tarn_status
{
    TARN_OK = 0,                /**< success */
    TARN_BAD_CONFIGURATION = 1, /**< tarn_problem says what is wrong */
    TARN_NO_MEMORY = 2,         /**< out of memory; no stream was created */
    TARN_BAD_ARGUMENT = 3,      /**< a null pointer, a size that is too small, or planar buffers without TARN_F32 */
    TARN_NO_REMAP = 4           /**< a matrix for a stream that was created without one */
} tarn_status;

/** Memory layout of a sample. Integers are signed and little-endian, floats native. */
typedef enum tarn_format
{
    TARN_S16 = 0,       /**< 16 bits in 2 bytes */
    TARN_S24 = 1,       /**< 24 bits in 3 bytes */
    TARN_S24_IN_32 = 2, /**< 24 bits in the low 3 of 4 bytes; the fourth is ignored on input, sign on output */
    TARN_S32 = 3,       /**< 32 bits in 4 bytes */
    TARN_F32 = 4        /**< single precision, full scale +-1; larger samples saturate, NaN becomes silence */
} tarn_format;

/** Where the samples of an output slot come from. */
typedef enum tarn_source
{
    TARN_FROM_ENGINE = 0, /**< an engine output: 0 front left, 1 front right, 2 centre; with a matrix: a column of it */
    TARN_FROM_INPUT = 1,  /**< an input slot, delayed by the latency */
    TARN_SILENCE = 2,     /**< zeros */
    /** A surround channel: 0 left and 1 right, at the sides in layouts that have sides, else behind the listener; 2
     * left and 3 right, behind the listener in layouts that have sides. If 2 or 3 is in use, all four are 3 dB softer.
     * Not with a remap matrix. */
    TARN_SURROUND = 3,
    /** Left (0) or right (1) of the input with the centre at another level, for two loudspeakers or headphones. If the
     * gain of the centre is 1, integers are exact. Not with a remap matrix. */
    TARN_DIALOGUE = 4,
    /** The LFE channel: the bass of left plus right below 120 Hz, delayed by the latency. Receivers play it 10 dB
     * louder than the other channels; it is then as loud as the bass of the fronts with TARN_BASS_FRONTS. Only index 0.
     * Not with a remap matrix. */
    TARN_LFE = 5
} tarn_source;

/** How fast the engine follows strong steering. */
typedef enum tarn_mode
{
    TARN_FAST = 0, /**< at the fast smoothing speed */
    TARN_CALM = 1  /**< at the medium smoothing speed */
} tarn_mode;

/** Where the bass plays. */
typedef enum tarn_bass
{
    TARN_BASS_STEERED = 0, /**< where the engine steers it */
    TARN_BASS_FRONTS = 1   /**< below 120 Hz, the fronts play 0.7071 x the stereo, and the centre nothing; the surround
                              channels begin at 160 Hz; not with a remap matrix */
} tarn_bass;

/** An output slot. */
typedef struct tarn_slot
{
    uint32_t source; /**< tarn_source */
    uint32_t index;  /**< number of the engine output, input slot, surround channel or side */
} tarn_slot;

/** Configuration of a stream. Fill it with tarn_defaults, then change members. Values that a member does not allow are
 * refused. Later versions of the library only add members at the end; 0 in an added member keeps the behaviour of the
 * version before. A program can be compiled for an earlier version than that of the library, and for a later one if the
 * members that the library does not have are 0. */
typedef struct tarn_configuration
{
    uint32_t size;                     /**< bytes of the structure, set by tarn_defaults; do not change it */
    uint32_t sample_rate;              /**< Hz: 32000, 44100, 48000, 64000, 88200, 96000 or 192000 */
    uint32_t format;                   /**< tarn_format, of input and output */
    uint32_t input_slots;              /**< 1 to TARN_MAX_SLOTS */
    uint32_t left_slot;                /**< input slot of the left channel */
    uint32_t right_slot;               /**< input slot of the right channel */
    uint32_t output_slots;             /**< 1 to TARN_MAX_SLOTS */
    tarn_slot outputs[TARN_MAX_SLOTS]; /**< the first output_slots entries are used */
    uint32_t remap;                    /**< not 0: mixes the three engine outputs into four with gains */
    /** The remap matrix: front left, front right and centre (rows) x output (columns), fixed point with 28 fraction
     * bits: 1 << 28 is 1. If the sum of absolute gains in a column exceeds 1, the output can wrap. */
    int32_t gains[3][4];
    uint32_t mode;    /**< tarn_mode; tarn_set_mode changes it later */
    uint32_t limiter; /**< not 0: a true-peak limiter instead of clipping; costs 64 frames of latency */
    uint32_t bass;    /**< tarn_bass */
} tarn_configuration;

/** Meter values for a display. Levels are linear, full scale 1. Later versions of the library only add members at the
 * end. */
typedef struct tarn_meters
{
    uint32_t size;                      /**< bytes that tarn_read_meters has filled; members beyond them are 0 */
    float peak[TARN_MAX_SLOTS];         /**< per output slot; decays by 20 dB in 1.7 s */
    float rms[TARN_MAX_SLOTS];          /**< per output slot, over about 300 ms */
    float left_right[TARN_BAND_GROUPS]; /**< per band group, lowest first: -1 right to 1 left */
    float front_back[TARN_BAND_GROUPS]; /**< per band group: -1 back to 1 front */
    uint32_t speed[TARN_BAND_GROUPS];   /**< smoothing speed per band group: 0 slower, 1 slow, 2 mid, 3 fast */
    uint64_t blocks;                    /**< processed blocks of 64 frames */
    uint64_t saturated;                 /**< samples beyond full scale: floats of the input, or outputs after gain */
    uint64_t invalid;                   /**< NaN samples of the input, read as silence */
    float limiter_gain;                 /**< smallest gain of the limiter in the last block; 1: it does nothing */
    float smallest_limiter_gain;        /**< smallest gain of the limiter in all blocks */
    uint64_t limited_blocks;            /**< blocks in which the gain of the limiter was below 1 */
    /** Per band group: root of the sum of the mean squares in the three outputs of the engine, over about 300 ms,
     * before gains, width, bass mode, limiter, matrix and bypass. All members for groups are updated every 8 blocks. */
    float group_level[TARN_BAND_GROUPS];
    /** Per band group: share of front left in these squares, minus that of front right, -1 to 1. Near 0 the sound is in
     * the centre or wide; group_centre says which. */
    float group_place[TARN_BAND_GROUPS];
    float group_centre[TARN_BAND_GROUPS];   /**< per band group: share of the centre in these squares, 0 to 1 */
    float group_upper_hz[TARN_BAND_GROUPS]; /**< upper edge; the lower edge is that of the group before, or 0 */
    /** Per band group: root of the sum of the mean squares in all surround channels, two or four, over about 300 ms,
     * before their gain, bass mode, limiter and bypass. 0 without surround slots. */
    float group_surround[TARN_BAND_GROUPS];
} tarn_meters;

/** A stream. */
typedef struct tarn_stream tarn_stream;

/** Returns the version of the library, for example "1.2.3". */
TARN_API const char* tarn_version(void);

/** Returns an English text for a status, also for an unknown one. */
TARN_API const char* tarn_status_text(int status);

/**
 * Sets a configuration to stereo floats at 48 kHz, upmixed to front left, front right and centre.
 *
 * @param configuration  is written; null is ignored
 * @param size           sizeof(tarn_configuration); the program can be compiled for another version of the library
 */
TARN_API void tarn_defaults(tarn_configuration* configuration, size_t size);

/** Returns an English text that says what is wrong with a configuration and which values are valid; null if the
 * configuration is valid. */
TARN_API const char* tarn_problem(const tarn_configuration* configuration);

/**
 * Creates a stream.
 *
 * @param configuration  is copied
 * @param stream         receives the stream, or null after an error
 * @return TARN_OK, TARN_BAD_ARGUMENT, TARN_BAD_CONFIGURATION or TARN_NO_MEMORY
 */
TARN_API tarn_status tarn_create(const tarn_configuration* configuration, tarn_stream** stream);

/** Frees a stream. Null is allowed. */
TARN_API void tarn_destroy(tarn_stream* stream);

/** Returns the delay from input to output in frames, without the limiter. It is 1024 at every rate. */
TARN_API uint32_t tarn_latency_frames(void);

/** Returns the delay of a stream in frames: 1024, or 1088 with the limiter; 0 for null. */
TARN_API uint32_t tarn_stream_latency_frames(const tarn_stream* stream);

/**
 * Processes interleaved frames.
 *
 * @param stream  from tarn_create
 * @param input   frames x input slots; null is silence
 * @param output  frames x output slots; can be the memory of input if both have the same number of slots
 * @param frames  any number
 * @return TARN_OK or TARN_BAD_ARGUMENT
 */
TARN_API tarn_status tarn_process(tarn_stream* stream, const void* input, void* output, size_t frames);

/**
 * Processes one buffer of floats per slot.
 *
 * @param stream  from tarn_create
 * @param input   [input slots], buffers of frames samples; a null buffer is silence
 * @param output  [output slots], buffers of frames samples; a null buffer is not written; can be the buffers of input
 *                in any order
 * @param frames  any number
 * @return TARN_OK, or TARN_BAD_ARGUMENT if the stream is not TARN_F32
 */
TARN_API tarn_status tarn_process_planar(tarn_stream* stream, const float* const* input, float* const* output,
                                         size_t frames);

/**
 * Writes the last frames of a stream, as many as its latency, interleaved, after its last input.
 *
 * If you drop as many frames at the start of the output, the rest then has the length of the input. Planar hosts
 * instead call tarn_process_planar for as many frames with null input buffers.
 *
 * @return number of frames written: at most frames, and at most the latency in total since the last input
 */
TARN_API size_t tarn_drain(tarn_stream* stream, void* output, size_t frames);

/** Clears the signal of a stream. Keeps all settings and the matrix. */
TARN_API void tarn_reset(tarn_stream* stream);

/**
 * Changes the remap matrix from the next block of 64 frames on.
 *
 * @param stream  from tarn_create
 * @param gains   [3][4] as in the configuration
 * @return TARN_OK, TARN_BAD_ARGUMENT, or TARN_NO_REMAP
 */
TARN_API tarn_status tarn_set_remap(tarn_stream* stream, const int32_t (*gains)[4]);

/** Switches bypass on (not 0) or off. In bypass, front left, front right and TARN_DIALOGUE slots are the plain input
 * with the same latency, and the other engine outputs, surround channels and the LFE channel are silent. Crossfades
 * within 1024 frames; switches at once before the first frame. */
TARN_API void tarn_set_bypass(tarn_stream* stream, int bypassed);

/** Returns 1 if bypass is requested, else 0. */
TARN_API int tarn_bypassed(const tarn_stream* stream);

/** Sets the gain of all outputs but TARN_FROM_INPUT slots, a factor from 0 to 8. Fades to it within 1024 frames;
 * changes at once before the first frame. With 1, the default, samples are exact. Clamps other values to the range; NaN
 * sets 1. */
TARN_API void tarn_set_make_up_gain(tarn_stream* stream, float gain);

/** Sets the gain of the centre, a factor from 0 to TARN_MAX_CHANNEL_GAIN, 1 by default: louder or softer voices.
 * Applies to the engine's centre and to TARN_DIALOGUE slots, not with a remap matrix. Fades and clamps as the make-up
 * gain. */
TARN_API void tarn_set_centre_gain(tarn_stream* stream, float gain);

/** Sets how much of the centre stays in its loudspeaker, from 1, all and the default, to 0, nothing. The rest goes to
 * front left and front right, at the same power in all. No effect on TARN_DIALOGUE slots and with a remap matrix. Fades
 * and clamps as the make-up gain. */
TARN_API void tarn_set_centre_width(tarn_stream* stream, float width);

/** Sets the gain of the surround channels, a factor from 0 to TARN_MAX_CHANNEL_GAIN. Fades and clamps as the make-up
 * gain; NaN sets the default, TARN_TYPICAL_SURROUND_GAIN. */
TARN_API void tarn_set_surround_gain(tarn_stream* stream, float gain);

/** Sets the gain of the LFE channel, a factor from 0 to TARN_MAX_CHANNEL_GAIN, 1 by default. Fades and clamps as the
 * make-up gain. */
TARN_API void tarn_set_lfe_gain(tarn_stream* stream, float gain);

/** Changes where the bass plays. Has no effect on TARN_DIALOGUE slots and with a remap matrix. Crossfades within 1024
 * frames; changes at once before the first frame. Reads an unknown value as TARN_BASS_STEERED. */
TARN_API void tarn_set_bass(tarn_stream* stream, int bass);

/** Switches the limiter of the configuration off (0) or on, from the next block on. Switched off, its gain returns to 1
 * with its usual time constant, and outputs beyond full scale clip. The latency stays the same. Has no effect if the
 * configuration has no limiter. */
TARN_API void tarn_set_limiting(tarn_stream* stream, int limiting);

/** Changes the steering mode from the next block on. Reads an unknown mode as TARN_CALM. */
TARN_API void tarn_set_mode(tarn_stream* stream, int mode);

/**
 * Reads the meters after the last block. Values read together can be from two neighbouring blocks.
 *
 * @param stream  from tarn_create; null writes zeros
 * @param meters  size bytes are written
 * @param size    sizeof(tarn_meters); the program can be compiled for another version of the library
 * @return TARN_OK, or TARN_BAD_ARGUMENT. If the size is too small for the members of the first version, nothing is
 *         written.
 */
TARN_API tarn_status tarn_read_meters(const tarn_stream* stream, tarn_meters* meters, size_t size);

#ifdef __cplusplus
}
#endif

#endif
