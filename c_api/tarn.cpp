// The C interface: each function calls zrk_tarn::UpmixStream.
// SPDX-License-Identifier: MIT
#include "c_api/tarn.h"

#include "stream/upmix_stream.h"

#include <algorithm>
#include <cstring>
#include <new>

struct tarn_stream
{
    /// The configuration must be valid.
    explicit tarn_stream(const zrk_tarn::StreamConfiguration& configuration)
        : stream(zrk_tarn::UpmixStream::Checked{configuration}),
          latency(zrk_tarn::UpmixStream::latencyFrames(configuration)),
          isFloat(configuration.format == zrk_tarn::SampleFormat::F32),
          isRemapped(configuration.remap.has_value())
    {}

    zrk_tarn::UpmixStream stream;
    std::uint32_t latency; ///< frames
    bool isFloat;
    bool isRemapped;
};

namespace
{

using zrk_tarn::BassMode;
using zrk_tarn::OutputSlot;
using zrk_tarn::SampleFormat;
using zrk_tarn::SteeringMode;
using zrk_tarn::StreamConfiguration;
using zrk_tarn::UpmixStream;

/// Bytes of a configuration in the first version, and more than in any version.
constexpr std::uint32_t kFirstConfigurationBytes = 156;
constexpr std::uint32_t kMaxConfigurationBytes = 4096;
static_assert(sizeof(tarn_configuration) >= kFirstConfigurationBytes);
/// Bytes of the meters in the first version.
constexpr std::size_t kFirstMetersBytes = 304;
static_assert(sizeof(tarn_meters) >= kFirstMetersBytes);

static_assert(TARN_MAX_SLOTS == zrk_tarn::kMaxSlots);
static_assert(TARN_BAND_GROUPS == zrk_tarn::kBandGroups);
static_assert(TARN_F32 == static_cast<int>(SampleFormat::F32));
static_assert(TARN_DIALOGUE == static_cast<int>(OutputSlot::Source::Dialogue));
static_assert(TARN_LFE == static_cast<int>(OutputSlot::Source::Lfe));
static_assert(TARN_BASS_FRONTS == static_cast<int>(BassMode::Fronts));
static_assert(TARN_CALM == static_cast<int>(SteeringMode::Calm));
static_assert(TARN_TYPICAL_MAKE_UP_GAIN == zrk_tarn::kTypicalMakeUpGain);
static_assert(TARN_MAX_CHANNEL_GAIN == zrk_tarn::kMaxChannelGain);
static_assert(TARN_TYPICAL_SURROUND_GAIN == zrk_tarn::kTypicalSurroundGain);

/// The enumerator of a number. Numbers above 255 become 255, which is not an enumerator either.
template <typename Enum>
Enum enumOf(std::uint32_t value)
{
    return static_cast<Enum>(std::min(value, 255u));
}

zrk_tarn::RemapGains gainsOf(const std::int32_t (*gains)[4])
{
    zrk_tarn::RemapGains remap{};
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 4; ++column)
            remap.gain[row][column] = static_cast<std::uint32_t>(gains[row][column]);
    return remap;
}

/// Reads a configuration whose size is valid. Members that an older program does not have are 0.
StreamConfiguration configurationOf(const tarn_configuration& given)
{
    tarn_configuration from{};
    std::memcpy(&from, &given, std::min<std::size_t>(given.size, sizeof from));
    StreamConfiguration configuration{
        .sampleRateHz = from.sample_rate,
        .format = enumOf<SampleFormat>(from.format),
        .inputSlots = from.input_slots,
        .leftSlot = from.left_slot,
        .rightSlot = from.right_slot,
        .outputSlots = from.output_slots,
        .mode = enumOf<SteeringMode>(from.mode),
    };
    for (std::size_t slot = 0; slot < TARN_MAX_SLOTS; ++slot)
        configuration.outputs[slot] = {.source = enumOf<OutputSlot::Source>(from.outputs[slot].source),
                                       .index = static_cast<std::uint8_t>(std::min(from.outputs[slot].index, 255u))};
    if (from.remap != 0) configuration.remap = gainsOf(from.gains);
    configuration.limiter = from.limiter != 0;
    configuration.bass = enumOf<BassMode>(from.bass);
    return configuration;
}

/// The meters of a stream in a structure of this version.
tarn_meters metersOf(const tarn_stream& stream)
{
    const zrk_tarn::StreamMeters from = stream.stream.meters();
    tarn_meters meters{};
    std::copy(std::begin(from.peak), std::end(from.peak), meters.peak);
    std::copy(std::begin(from.rms), std::end(from.rms), meters.rms);
    std::copy(std::begin(from.leftRight), std::end(from.leftRight), meters.left_right);
    std::copy(std::begin(from.frontBack), std::end(from.frontBack), meters.front_back);
    for (std::size_t g = 0; g < TARN_BAND_GROUPS; ++g) meters.speed[g] = static_cast<std::uint32_t>(from.speed[g]);
    meters.blocks = from.blocks;
    meters.saturated = from.saturated;
    meters.invalid = from.invalid;
    meters.limiter_gain = from.limiterGain;
    meters.smallest_limiter_gain = from.smallestLimiterGain;
    meters.limited_blocks = from.limitedBlocks;
    std::copy(std::begin(from.groupLevel), std::end(from.groupLevel), meters.group_level);
    std::copy(std::begin(from.groupPlace), std::end(from.groupPlace), meters.group_place);
    std::copy(std::begin(from.groupCentre), std::end(from.groupCentre), meters.group_centre);
    std::copy(std::begin(from.groupUpperHz), std::end(from.groupUpperHz), meters.group_upper_hz);
    std::copy(std::begin(from.groupSurround), std::end(from.groupSurround), meters.group_surround);
    return meters;
}

/// Returns what is wrong with the size of a configuration; null if a program of any version has filled it.
///
/// A program that is newer than the library may have members that the library does not know. They have to be 0.
const char* sizeProblemOf(const tarn_configuration& configuration)
{
    if (configuration.size < kFirstConfigurationBytes)
        return "the size is too small for a configuration: fill it with tarn_defaults";
    if (configuration.size > kMaxConfigurationBytes)
        return "the size is too large for a configuration: fill it with tarn_defaults";
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&configuration);
    if (configuration.size > sizeof configuration &&
        std::any_of(bytes + sizeof configuration, bytes + configuration.size, [](unsigned char b) { return b != 0; }))
        return "a member is set that this version of the library does not have: use a newer library";
    return nullptr;
}

} // namespace

const char* tarn_version(void)
{
    return TARN_VERSION;
}

const char* tarn_status_text(int status)
{
    switch (status) {
    case TARN_OK:
        return "no error";
    case TARN_BAD_CONFIGURATION:
        return "the configuration is invalid; tarn_problem says what is wrong with it";
    case TARN_NO_MEMORY:
        return "out of memory";
    case TARN_BAD_ARGUMENT:
        return "an argument is null, a size is too small, or planar buffers were given to a stream whose format is not "
               "float";
    case TARN_NO_REMAP:
        return "the stream was created without a remap matrix";
    }
    return "unknown status";
}

void tarn_defaults(tarn_configuration* configuration, size_t size)
{
    if (configuration == nullptr) return;
    const StreamConfiguration defaults;
    tarn_configuration filled{};
    filled.size = static_cast<std::uint32_t>(std::min<std::size_t>(size, UINT32_MAX));
    filled.sample_rate = defaults.sampleRateHz;
    filled.format = TARN_F32;
    filled.input_slots = defaults.inputSlots;
    filled.left_slot = defaults.leftSlot;
    filled.right_slot = defaults.rightSlot;
    filled.output_slots = defaults.outputSlots;
    for (std::size_t slot = 0; slot < TARN_MAX_SLOTS; ++slot)
        filled.outputs[slot] = {static_cast<std::uint32_t>(defaults.outputs[slot].source),
                                defaults.outputs[slot].index};
    filled.mode = TARN_FAST;
    // A program has the first members, or added ones that this version does not know.
    std::memset(configuration, 0, size);
    std::memcpy(configuration, &filled, std::min(size, sizeof filled));
}

const char* tarn_problem(const tarn_configuration* configuration)
{
    if (configuration == nullptr) return "there is no configuration";
    if (const char* const problem = sizeProblemOf(*configuration)) return problem;
    return UpmixStream::problemOf(configurationOf(*configuration));
}

tarn_status tarn_create(const tarn_configuration* configuration, tarn_stream** stream)
{
    if (stream == nullptr) return TARN_BAD_ARGUMENT;
    *stream = nullptr;
    if (configuration == nullptr) return TARN_BAD_ARGUMENT;
    if (tarn_problem(configuration) != nullptr) return TARN_BAD_CONFIGURATION;
    try {
        *stream = new tarn_stream(configurationOf(*configuration));
    } catch (...) {
        return TARN_NO_MEMORY;
    }
    return TARN_OK;
}

void tarn_destroy(tarn_stream* stream)
{
    delete stream;
}

uint32_t tarn_latency_frames(void)
{
    return UpmixStream::latencyFrames();
}

uint32_t tarn_stream_latency_frames(const tarn_stream* stream)
{
    return stream == nullptr ? 0 : stream->latency;
}

tarn_status tarn_process(tarn_stream* stream, const void* input, void* output, size_t frames)
{
    if (stream == nullptr || (output == nullptr && frames > 0)) return TARN_BAD_ARGUMENT;
    stream->stream.process(input, output, frames);
    return TARN_OK;
}

tarn_status tarn_process_planar(tarn_stream* stream, const float* const* input, float* const* output, size_t frames)
{
    if (stream == nullptr || input == nullptr || output == nullptr || !stream->isFloat) return TARN_BAD_ARGUMENT;
    stream->stream.processPlanar(input, output, frames);
    return TARN_OK;
}

size_t tarn_drain(tarn_stream* stream, void* output, size_t frames)
{
    if (stream == nullptr || output == nullptr) return 0;
    return stream->stream.drain(output, frames);
}

void tarn_reset(tarn_stream* stream)
{
    if (stream != nullptr) stream->stream.reset();
}

tarn_status tarn_set_remap(tarn_stream* stream, const int32_t (*gains)[4])
{
    if (stream == nullptr || gains == nullptr) return TARN_BAD_ARGUMENT;
    if (!stream->isRemapped) return TARN_NO_REMAP;
    stream->stream.setRemap(gainsOf(gains));
    return TARN_OK;
}

void tarn_set_bypass(tarn_stream* stream, int bypassed)
{
    if (stream != nullptr) stream->stream.setBypass(bypassed != 0);
}

int tarn_bypassed(const tarn_stream* stream)
{
    return stream != nullptr && stream->stream.bypassed() ? 1 : 0;
}

void tarn_set_make_up_gain(tarn_stream* stream, float gain)
{
    if (stream != nullptr) stream->stream.setMakeUpGain(gain);
}

void tarn_set_centre_gain(tarn_stream* stream, float gain)
{
    if (stream != nullptr) stream->stream.setCentreGain(gain);
}

void tarn_set_centre_width(tarn_stream* stream, float width)
{
    if (stream != nullptr) stream->stream.setCentreWidth(width);
}

void tarn_set_surround_gain(tarn_stream* stream, float gain)
{
    if (stream != nullptr) stream->stream.setSurroundGain(gain);
}

void tarn_set_lfe_gain(tarn_stream* stream, float gain)
{
    if (stream != nullptr) stream->stream.setLfeGain(gain);
}

void tarn_set_bass(tarn_stream* stream, int bass)
{
    if (stream != nullptr) stream->stream.setBass(bass == TARN_BASS_FRONTS ? BassMode::Fronts : BassMode::Steered);
}

void tarn_set_limiting(tarn_stream* stream, int limiting)
{
    if (stream != nullptr) stream->stream.setLimiting(limiting != 0);
}

void tarn_set_mode(tarn_stream* stream, int mode)
{
    if (stream != nullptr) stream->stream.setMode(mode == TARN_FAST ? SteeringMode::Fast : SteeringMode::Calm);
}

tarn_status tarn_read_meters(const tarn_stream* stream, tarn_meters* meters, size_t size)
{
    if (meters == nullptr || size < kFirstMetersBytes) return TARN_BAD_ARGUMENT;
    // A program has the first members, or added ones that this version does not know.
    std::memset(meters, 0, size);
    if (stream == nullptr) return TARN_BAD_ARGUMENT;
    tarn_meters filled = metersOf(*stream);
    filled.size = static_cast<std::uint32_t>(std::min(size, sizeof filled));
    std::memcpy(meters, &filled, filled.size);
    return TARN_OK;
}
