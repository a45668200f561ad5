#ifndef ZRK_TARN_TARN_H
#define ZRK_TARN_TARN_H

/**
 * @file
 * Tarn for C and for every language that can call C: stereo in, front left, front right and centre out, as a stream of
 * buffers of any size.
 *
 * A stream is made for a configuration and then processes buffers. Frames come out tarn_latency_frames() later than
 * they went in. Nothing is allocated after tarn_create.
 *
 * Threads: one thread at a time calls tarn_process, tarn_process_planar, tarn_drain, tarn_reset and tarn_set_remap of a
 * stream; these neither allocate nor lock nor enter the kernel. tarn_set_bypass, tarn_bypassed, tarn_set_make_up_gain,
 * tarn_set_mode and tarn_read_meters may be called from any thread at any time and are as safe. Any number of streams
 * may be made and in use on any number of threads at the same time.
 *
 * Results are the same to the last bit on every machine, whatever floating-point mode the calling thread is in; the
 * mode is put back. No function sets errno or throws. Where a function takes a stream, null is a bad argument, and
 * does nothing where there is no status to say so.
 */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Marks what the library exports. */
#if defined __GNUC__
#define TARN_API __attribute__((visibility("default")))
#else
#define TARN_API
#endif

/** Most slots of a frame. */
#define TARN_MOST_SLOTS 8
/** Band groups that are steered one by one. */
#define TARN_BAND_GROUPS 16

/** The gain that makes the upmix of most music as loud as its stereo, +3 dB; loud recordings saturate with it. */
#define TARN_TYPICAL_MAKE_UP_GAIN 1.41253754f

/** What a call came to. */
typedef enum tarn_status
{
    TARN_OK = 0,                /**< done */
    TARN_BAD_CONFIGURATION = 1, /**< tarn_problem says what is wrong with it */
    TARN_NO_MEMORY = 2,         /**< nothing was made */
    TARN_BAD_ARGUMENT = 3,      /**< a null pointer, or planar rows for a stream that is not TARN_F32 */
    TARN_NO_REMAP = 4           /**< a matrix for a stream that was made without one */
} tarn_status;

/** How a sample lies in memory. Integers are signed and little-endian, floats native. */
typedef enum tarn_format
{
    TARN_S16 = 0,       /**< 16 bits in 2 bytes */
    TARN_S24 = 1,       /**< 24 bits in 3 bytes */
    TARN_S24_IN_32 = 2, /**< 24 bits in the low 3 of 4 bytes; read without the fourth, written as the sign */
    TARN_S32 = 3,       /**< 32 bits in 4 bytes */
    TARN_F32 = 4 /**< single precision, full scale +-1; what is beyond saturates, NaN is silence, and both count */
} tarn_format;

/** What an output slot carries. */
typedef enum tarn_source
{
    TARN_FROM_ENGINE = 0, /**< an output of the engine: 0 front left, 1 front right, 2 centre; or a remap column */
    TARN_FROM_INPUT = 1,  /**< an input slot, delayed by the latency and otherwise untouched */
    TARN_SILENCE = 2      /**< nothing */
} tarn_source;

/** How strong steering is followed. */
typedef enum tarn_mode
{
    TARN_FAST = 0, /**< at the fast speed */
    TARN_CALM = 1  /**< at the mid speed instead */
} tarn_mode;

/** An output slot. */
typedef struct tarn_slot
{
    uint32_t source; /**< tarn_source */
    uint32_t index;  /**< of the engine's output or of the input slot */
} tarn_slot;

/** What a stream is made for. Fill it with tarn_defaults, then change what differs. */
typedef struct tarn_configuration
{
    uint32_t sample_rate;               /**< Hz: 32000, 44100, 48000, 64000, 88200, 96000 or 192000 */
    uint32_t format;                    /**< tarn_format, of input and output */
    uint32_t input_slots;               /**< 1 to 8 */
    uint32_t left_slot;                 /**< input slot of the left channel */
    uint32_t right_slot;                /**< input slot of the right channel */
    uint32_t output_slots;              /**< 1 to 8 */
    tarn_slot outputs[TARN_MOST_SLOTS]; /**< the first output_slots of them count */
    uint32_t remap;                     /**< not 0: the engine's outputs are the columns of gains */
    /** Front left, front right, centre x column; 28 fraction bits: 1 << 28 is unity. Sums wrap around beyond full
     * scale: what a column's gains amount to should be 1 or less. */
    int32_t gains[3][4];
    uint32_t mode;      /**< tarn_mode */
    float mix_fraction; /**< 0 to 1 */
} tarn_configuration;

/** What a display shows. Levels are linear, full scale 1. */
typedef struct tarn_meters
{
    float peak[TARN_MOST_SLOTS];        /**< per output slot; falls by 20 dB in 1.7 s */
    float rms[TARN_MOST_SLOTS];         /**< per output slot, over about 300 ms */
    float left_right[TARN_BAND_GROUPS]; /**< per band group, lowest first: -1 right to 1 left */
    float front_back[TARN_BAND_GROUPS]; /**< per band group: -1 back to 1 front */
    uint32_t speed[TARN_BAND_GROUPS];   /**< per band group: 0 slower, 1 slow, 2 mid, 3 fast */
    uint64_t blocks;                    /**< of 64 frames, processed so far */
    uint64_t saturated;                 /**< samples beyond full scale, before the engine or by gain behind it */
    uint64_t invalid;                   /**< NaN samples, taken as silence */
} tarn_meters;

/** A stream. */
typedef struct tarn_stream tarn_stream;

/** The version of the library, as "1.2.3". */
TARN_API const char* tarn_version(void);

/** What a status means, as a short English text; for an unknown one, too. */
TARN_API const char* tarn_status_text(int status);

/** Sets a configuration to stereo floats at 48 kHz, upmixed to front left, front right and centre. */
TARN_API void tarn_defaults(tarn_configuration* configuration);

/** What is wrong with a configuration and what would be right, as a short English text; null if nothing is. */
TARN_API const char* tarn_problem(const tarn_configuration* configuration);

/**
 * Makes a stream.
 *
 * @param configuration  is copied
 * @param stream         where to put it; set to null if there is none
 * @return TARN_OK, TARN_BAD_ARGUMENT, TARN_BAD_CONFIGURATION or TARN_NO_MEMORY
 */
TARN_API tarn_status tarn_create(const tarn_configuration* configuration, tarn_stream** stream);

/** Frees a stream; null does nothing. */
TARN_API void tarn_destroy(tarn_stream* stream);

/** Frames by which the output comes after the input, at every rate: 1024. */
TARN_API uint32_t tarn_latency_frames(void);

/**
 * Takes and gives interleaved frames.
 *
 * @param stream  made by tarn_create
 * @param input   frames x input slots; null is silence
 * @param output  frames x output slots; may be the input's memory where both have as many slots
 * @param frames  any number
 * @return TARN_OK or TARN_BAD_ARGUMENT
 */
TARN_API tarn_status tarn_process(tarn_stream* stream, const void* input, void* output, size_t frames);

/**
 * Takes and gives one row of floats per slot.
 *
 * @param stream  made by tarn_create
 * @param input   [input slots], each of frames samples; a null row is silence
 * @param output  [output slots], each of frames samples; a null row is not written; may be the input's rows
 * @param frames  any number
 * @return TARN_OK, or TARN_BAD_ARGUMENT if the stream is not TARN_F32
 */
TARN_API tarn_status tarn_process_planar(tarn_stream* stream, const float* const* input, float* const* output,
                                         size_t frames);

/**
 * Gives what is left of the stream after its last input, interleaved; a planar host gives null rows for
 * tarn_latency_frames() instead.
 *
 * The output, without its first tarn_latency_frames(), becomes as long as the input.
 *
 * @return frames written: as many as asked for, until tarn_latency_frames() were given since the last input
 */
TARN_API size_t tarn_drain(tarn_stream* stream, void* output, size_t frames);

/** Makes a stream as new: silent. Mode, bypass, gain and matrix stay. */
TARN_API void tarn_reset(tarn_stream* stream);

/**
 * Changes the remap matrix from the next block of 64 frames on.
 *
 * @param stream  made by tarn_create
 * @param gains   [3][4] as in the configuration
 * @return TARN_OK, TARN_BAD_ARGUMENT, or TARN_NO_REMAP
 */
TARN_API tarn_status tarn_set_remap(tarn_stream* stream, const int32_t (*gains)[4]);

/** Not 0: the plain input instead of the upmix, at the same latency. Crossfades within 1024 frames. */
TARN_API void tarn_set_bypass(tarn_stream* stream, int bypassed);

/** 1 if the stream is bypassed, else 0. */
TARN_API int tarn_bypassed(const tarn_stream* stream);

/** Multiplies the engine's outputs by 0 to 8, reached within 1024 frames, or at once before the first frame of a new
 * stream; at 1, the default, they stay exact. Gains beyond are taken as the nearest within, NaN as 1. */
TARN_API void tarn_set_make_up_gain(tarn_stream* stream, float gain);

/** Changes how strong steering is followed, from the next block on; an unknown mode is taken as TARN_CALM. */
TARN_API void tarn_set_mode(tarn_stream* stream, int mode);

/** Reads the state after the last block. */
TARN_API void tarn_read_meters(const tarn_stream* stream, tarn_meters* meters);

#ifdef __cplusplus
}
#endif

#endif
