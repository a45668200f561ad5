// The engine: its parameters, its record and its operations.
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// @file
/// The engine: its parameters, its record and its operations.

/// The parameters of ZRKTarn::Initialize.
struct Tarn_Parameters
{
    std::uint32_t spare;         ///< not read
    std::int32_t outputChannels; ///< 3 to 7: below 6 selects the k5 matrices, 6 or more the k6 matrices
    std::int32_t bitsPerSample;  ///< width of the host's samples, bits
    std::uint32_t sampleRate;    ///< 32000, 44100, 48000, 64000, 88200, 96000 or 192000 Hz
    std::int32_t mode;           ///< 1: fast steering; 2: the fast speed is as slow as mid
    std::int32_t option;         ///< not read
    float mixFraction;           ///< 0.0 to 1.0; stored, with its complement, but not used
};

/// The upmix engine: one flat record that holds all signal state of one stream.
///
/// Engine scale: samples are floats on a full-scale range of about +-2^31.
/// Calling order: Open, Initialize, then for every block SetChannelPtrs and one block operation; Close before the
/// next Open and at the end. Initialize is not a reset: it keeps histories and all members that the new configuration
/// does not set. In a copy, outputPtr points into the original until the first ProcessCine3 of the copy.
///
/// Every operation returns a status word. No operation throws, allocates, locks or logs, so all are real-time safe. Use
/// an engine on one thread at a time.
///
/// Open, Initialize and the block operations set the default floating-point environment (round to nearest, subnormal
/// numbers kept) and restore the caller's environment and exception flags.
///
/// All members are public state. An operation depends only on them, its arguments, the host buffer and the process-wide
/// constant tables (filterbank/cos_mod.h).
class alignas(64) [[gnu::visibility("default")]] ZRKTarn
{
public:
    // --- Constants -------------------------------------------------------------------------------------------------

    static const std::int16_t INTERNAL_BIT_DEPTH;      ///< width of the internal format, 32; not used
    static const std::int32_t INTERNAL_SAMPLE_CEILING; ///< top of the internal range, 0x7fffffff; not used
    static std::int32_t INTERNAL_SAMPLE_FLOOR;         ///< bottom, -2^31, set at load time; not used

    // Smoothing pairs (alpha, 1 - alpha): a state s follows x by s = (1 - alpha) * s + alpha * x.
    static const float POWER[2];  ///< (0.05, 0.95), power smoothing
    static const float SLOWER[2]; ///< (0.002, 0.998), slowest steering
    static const float SLOW[2];   ///< (0.008, 0.992)
    static const float MID[2];    ///< (0.025, 0.975)
    static const float FAST[2];   ///< (0.1, 0.9), fastest steering

    // Subbands per band group, lowest group first; each table tiles the 64 bands.
    static const std::int32_t LOOP_COUNT48[16];  ///< 32, 44.1 and 48 kHz
    static const std::int32_t LOOP_COUNT64[16];  ///< 64 kHz
    static const std::int32_t LOOP_COUNT96[16];  ///< 88.2 and 96 kHz
    static const std::int32_t LOOP_COUNT192[16]; ///< 192 kHz

    // Thresholds at 48 kHz: if the steering magnitude of a band group reaches a threshold, the group follows its
    // steering at the speed of the threshold.
    static const float THRES_BANDS[16];     ///< fast
    static const float MIDTHRES_BANDS[16];  ///< mid
    static const float SLOWTHRES_BANDS[16]; ///< slow; below it, slower

    /// Region matrices; the first digit is the region of the 3 x 3 grid, the second the set: 5 for k5, 6 for k6 (see
    /// cinema/interpolation.h).
    /// @{
    static const float MATRIX15[12], MATRIX25[12], MATRIX35[12];
    static const float MATRIX45[12], MATRIX55[12], MATRIX65[12];
    static const float MATRIX75[12], MATRIX85[12], MATRIX95[12];
    static const float MATRIX16[12], MATRIX26[12], MATRIX36[12];
    static const float MATRIX46[12], MATRIX56[12], MATRIX66[12];
    static const float MATRIX76[12], MATRIX86[12], MATRIX96[12];
    /// @}

    // --- Operations ------------------------------------------------------------------------------------------------

    /// A silent engine: the band grouping of 48 kHz, the constant smoothing pairs, broadbandPair (0.1, 0.9), a mix
    /// complement of 1, groupIndex 16 and bandIndex 64; all other members zero.
    ZRKTarn() noexcept;

    /// Fills the process-wide cosine tables. Returns 0.
    ///
    /// The first call must return before any engine of the process runs a block. Later calls write nothing and may run
    /// while other engines work.
    std::uint32_t Open() noexcept;

    /// Does nothing, because the engine owns no resources. Returns 0.
    std::uint32_t Close() noexcept;

    /// Does nothing. Returns 0.
    std::uint32_t Uninitialize() noexcept;

    /// Does nothing; use ProcessCine3InterLeave or ProcessCine3InterLeaveRemap. Returns 0.
    std::uint32_t Process(int** inputs, int** outputs, std::uint32_t count) noexcept;

    /// Configures the engine for a stream format.
    ///
    /// If the rate or the mode is invalid, the settings of the previous one stay; all other settings are applied. In
    /// mode 1 the current smoothing pairs are scaled, so repeated calls scale them repeatedly. At 32, 44.1 and 48 kHz
    /// the band grouping stays as it is.
    ///
    /// Returns 0, or the code of the last invalid parameter: 1 outputChannels, 3 sampleRate, 4 mode, 6 mixFraction.
    std::uint32_t Initialize(Tarn_Parameters parameters) noexcept;

    /// Sets the pointers to the first sample of a block in each slot. Returns 0.
    ///
    /// a  left: input, output front left         c  third output: centre, or remap column 2
    /// b  right: input, output front right       d  remap column 3 (unused on the plain path)
    std::uint32_t SetChannelPtrs(std::uint8_t * a, std::uint8_t * b, std::uint8_t * c, std::uint8_t * d) noexcept;

    /// Stores the remap matrix and lists the non-zero terms of every destination. Returns 0.
    ///
    /// coeff  [3][4]  engine output x host position, signed fixed point with 28 fraction bits (2^28 is unity)
    std::uint32_t SetRemapCoeff(int(*coeff)[4]) noexcept;

    /// Sets reservedA = 1 and reservedB = 2, which are not used. Returns 0.
    std::uint32_t SetReserved() noexcept;

    /// Converts a block of host samples and writes it to the newest 64 entries of inputHistory. Pads a short block with
    /// silence.
    ///
    /// frames    0 to 64; not checked
    /// channels  interleaved slots per frame, the stride of channelPtr[0] and [1] in samples
    /// Returns 0. Containers of other sizes than 2, 3 and 4 bytes are read as silence.
    std::uint32_t ReadInputChannels(std::uint32_t frames, std::uint32_t channels) noexcept;

    /// Upmixes one block: reads it with ReadInputChannels(frames, channels) and fills outputBlock. Returns 0.
    std::uint32_t ProcessCine3(std::uint32_t frames, std::uint32_t channels) noexcept;

    /// Scales and rounds outputBlock, clips it and writes it to the host slots channelPtr[0..2].
    ///
    /// frames    0 to 64 frames of the block to write
    /// channels  interleaved slots per frame, the stride in samples
    /// Reads the block through outputPtr, which is null before the first ProcessCine3.
    ///
    /// Returns 1. Writes nothing and returns 0 for containers of other sizes than 2, 3 and 4 bytes.
    std::uint32_t WriteOutput(std::uint32_t frames, std::uint32_t channels) noexcept;

    /// Mixes outputBlock, which must hold host samples, with the remap matrix and writes it to channelPtr[0..3].
    ///
    /// frames    0 to 64 frames of the block to write
    /// channels  interleaved slots per frame, the stride in samples
    /// Reads the block through outputPtr, which is null before the first ProcessCine3. The sum of products is shifted
    /// right by 28 bits and stored without clipping, so gains above unity can wrap. Returns 1. Writes nothing and
    /// returns 0 for containers of other sizes than 2, 3 and 4 bytes.
    std::uint32_t RemapOutput(std::uint32_t frames, std::uint32_t channels) noexcept;

    /// The plain block operation: ProcessCine3 and WriteOutput for 0 to 64 frames of channels slots. Returns 0.
    std::uint32_t ProcessCine3InterLeave(std::uint32_t frames, std::uint32_t channels) noexcept;

    /// The remap block operation for 0 to 64 frames of channels slots: ProcessCine3, conversion of these frames of
    /// outputBlock to host samples, RemapOutput. Returns 0.
    std::uint32_t ProcessCine3InterLeaveRemap(std::uint32_t frames, std::uint32_t channels) noexcept;

    // --- State -----------------------------------------------------------------------------------------------------
    // Rows run left, right (2) or front left, front right, centre (3); 16 is the band group, 64 the subband, low first.
    // Columns: type, name and shape, contents, and the stage or operation that writes it.
    // clang-format off

    // Output of the block
    std::int32_t  outputBlock[3][64]{};         ///< whole samples, engine scale         rounding, remap conversion

    // Analysis and synthesis
    float         subbandAvg[2][64]{};          ///< slow mean of past subbands          averaging
    float         dctEven[3][32]{};             ///< transform input, scratch            pair sums
    float         dctOdd[3][32]{};              ///< transform input, scratch            pair sums
    float         inputHistory[2][1024]{};      ///< oldest sample first                 input reading, history moves
    float         polyphaseSum[2][128]{};       ///< one sum per branch, scratch         windowing
    float         folded[2][64]{};              ///< folded branches, scratch            folding
    float         subband[2][64]{};             ///< the block's subbands                analysis
    float         outSubband[3][64]{};          ///< mixed subbands                      mixing
    float         overlapNow[3][64]{};          ///< sums of this block's output         synthesis, history moves
    float         overlapNext[3][64]{};         ///< sums of the next block's output     synthesis, history moves
    float         synthHistory[3][1024]{};      ///< newest block first                  synthesis, history moves

    // Steering matrices
    float         regionMatrix[9][12]{};        ///< the selected matrix set             Initialize
    float         mixCoeff[6]{};                ///< coefficients of a group             mixing
    float         groupMatrix[16][12]{};        ///< elements 0 to 5 are used            interpolation
    std::int32_t  bandCount[16]{};              ///< subbands per group                  constructor, Initialize

    // Thresholds: base and working
    float         thresBands[16]{};             ///< fast                                Initialize
    float         midThresBands[16]{};          ///< mid                                 Initialize
    float         slowThresBands[16]{};         ///< slow                                Initialize
    float         thres[16]{};                  ///< fast, this block                    block start, spread
    float         midThres[16]{};               ///< mid, this block                     block start, spread
    float         slowThres[16]{};              ///< slow, this block                    block start, spread
    float         broadbandPair[2]{};           ///< smoothing pair (0.1, 0.9)           constructor

    // Loop counters over groups and bands
    std::int32_t  groupIndex = 0;               ///< 16 after a block                    dominant bands, mixing
    std::int32_t  bandIndex = 0;                ///< bands of bandCount, after a block   dominant bands, mixing

    // Sample conversion
    float         inputScale = 0.0f;            ///< host integer to engine scale        Initialize
    float         outputScale = 0.0f;           ///< engine scale to host integer        Initialize
    std::int32_t  sampleCeiling = 0;            ///< largest host sample                 Initialize
    std::int32_t  sampleFloor = 0;              ///< smallest host sample                Initialize

    // Measures of the groups, engine scale. (*) peakBand of a group without bands is the band after it, 0 to 64.
    float         powL[16]{};                   ///< smoothed peakL                      power smoothing, spread
    float         powR[16]{};                   ///< smoothed peakR                      power smoothing, spread
    float         powSum[16]{};                 ///< smoothed peakSum                    power smoothing, spread
    float         powDiff[16]{};                ///< smoothed peakDiff                   power smoothing, spread
    float         peakL[16]{};                  ///< |L| of the dominant band            peaks, tonal test, hold, spread
    float         peakR[16]{};                  ///< |R| of the dominant band            peaks, tonal test, hold, spread
    float         peakSum[16]{};                ///< |L + R| / sqrt 2 of it              peaks, tonal test, hold, spread
    float         peakDiff[16]{};               ///< |L - R| / sqrt 2 of it              peaks, tonal test, hold, spread
    float         prevPeakL[16]{};              ///< peakL of the block before           block start
    float         prevPeakR[16]{};              ///< peakR of the block before           block start
    float         prevPeakSum[16]{};            ///< peakSum of the block before         block start
    float         prevPeakDiff[16]{};           ///< peakDiff of the block before        block start
    float         peakTotal[16]{};              ///< |L| + |R|, scratch                  dominant bands
    std::int32_t  peakBand[16]{};               ///< dominant band, 0 to 63 (*)          dominant bands

    // Smoothing pairs, scaled for the sample rate
    float         power[2]{};                   ///< power smoothing                     constructor
    float         mid[2]{};                     ///< steering, mid speed                 constructor, Initialize
    float         slower[2]{};                  ///< steering, slowest speed             constructor, Initialize
    float         slow[2]{};                    ///< steering, slow speed                constructor, Initialize
    float         fast[2]{};                    ///< steering, fast speed                constructor, Initialize

    // Steering of the groups, -1 (right, back) to 1 (left, front); after a block all speeds hold the chosen position
    float         steerLR[16]{};                ///< left/right of this block            steering
    float         steerFB[16]{};                ///< front/back of this block            steering
    float         lrSlower[16]{};               ///< steerLR at slower speed, then chosen speed selection
    float         fbSlower[16]{};               ///< steerFB at slower speed, then chosen speed selection
    float         lrSlow[16]{};                 ///< steerLR at slow speed, then chosen  speed selection
    float         fbSlow[16]{};                 ///< steerFB at slow speed, then chosen  speed selection
    float         lrMid[16]{};                  ///< steerLR at mid speed, then chosen   speed selection
    float         fbMid[16]{};                  ///< steerFB at mid speed, then chosen   speed selection
    float         lrFast[16]{};                 ///< steerLR at fast speed, then chosen  speed selection
    float         fbFast[16]{};                 ///< steerFB at fast speed, then chosen  speed selection

    // Broadband steering at four speeds
    float         globalLRSlower = 0.0f;        ///< globalLR at slower speed            broadband steering
    float         globalFBSlower = 0.0f;        ///< globalFB at slower speed            broadband steering
    float         globalLRSlow = 0.0f;          ///< globalLR at slow speed              broadband steering
    float         globalFBSlow = 0.0f;          ///< globalFB at slow speed              broadband steering
    float         globalLRMid = 0.0f;           ///< globalLR at mid speed               broadband steering
    float         globalFBMid = 0.0f;           ///< globalFB at mid speed               broadband steering
    float         globalLRFast = 0.0f;          ///< globalLR at fast speed              broadband steering
    float         globalFBFast = 0.0f;          ///< globalFB at fast speed              broadband steering

    // Broadband levels, engine scale, and steering
    float         avgLevelL = 0.0f;             ///< smoothed levelL                     broadband levels
    float         avgLevelR = 0.0f;             ///< smoothed levelR                     broadband levels
    float         avgLevelSum = 0.0f;           ///< smoothed levelSum                   broadband levels
    float         avgLevelDiff = 0.0f;          ///< smoothed levelDiff                  broadband levels
    float         levelL = 0.0f;                ///< mean |l| of the block               broadband levels
    float         levelR = 0.0f;                ///< mean |r| of the block               broadband levels
    float         levelSum = 0.0f;              ///< mean |l + r| / sqrt 2               broadband levels
    float         levelDiff = 0.0f;             ///< mean |l - r| / sqrt 2               broadband levels
    float         globalLR = 0.0f;              ///< left/right of the broadband levels  broadband steering
    float         globalFB = 0.0f;              ///< front/back of the broadband levels  broadband steering
    float         meanLRFast = 0.0f;            ///< mean of the groups' new lrFast      speed selection

    // Configuration
    float         mixFraction = 0.0f;           ///< as given                            Initialize
    float         mixFractionComplement = 0.0f; ///< 1 at construction                   constructor, Initialize
    std::int32_t  rateCode = 0;                 ///< kHz, or 0                           Initialize
    std::int32_t  holdMidSmoothing = 0;         ///< 1 in mode 2                         Initialize
    std::int32_t  modeOneFlag = 0;              ///< 1 in mode 1                         Initialize
    std::int32_t  outputChannels = 0;           ///< 3: no rear steering                 Initialize
    std::int32_t  bitsPerSample = 0;            ///< host sample width                   Initialize

    // Speed flags and broadband trackers
    std::int32_t  usedFast = 0;                 ///< last group followed fast speed      speed selection
    std::int32_t  usedMid = 0;                  ///< last group followed mid speed       speed selection
    std::int32_t  usedSlow = 0;                 ///< last group followed slow speed      speed selection
    std::int32_t  dominantGroup = 0;            ///< group of the largest peak           group peaks
    float         spectrumL = 0.0f;             ///< smoothed sum of |L|                 spectrum
    float         spectrumR = 0.0f;             ///< smoothed sum of |R|                 spectrum
    float         restL = 0.0f;                 ///< spectrumL - peakRegionL             spectrum
    float         restR = 0.0f;                 ///< spectrumR - peakRegionR             spectrum
    float         peakRegionL = 0.0f;           ///< smoothed |L| of strongest 3 bands   spectrum
    float         peakRegionR = 0.0f;           ///< smoothed |R| of strongest 3 bands   spectrum
    float         stationaryTolerance = 0.0f;   ///< relative tolerance of the hold      hold
    std::int32_t  tonalBlock = 0;               ///< 1 for a tonal block                 tonal test

    // Pointers to the engine's own rows and to the host's buffer
    std::int32_t* outputPtr[3]{};               ///< the rows of outputBlock             block start
    std::uint8_t* channelPtr[4]{};              ///< host slots of the block             SetChannelPtrs

    // Remap matrix and its terms per host position
    std::int32_t  remapCoeff[3][4]{};           ///< 28 fraction bits                    SetRemapCoeff
    std::uint32_t remapTermCount[4]{};          ///< non-zero gains                      SetRemapCoeff
    std::int32_t  remapTermGain[4][3]{};        ///< their values                        SetRemapCoeff
    std::uint32_t remapTermSource[4][3]{};      ///< their output channels               SetRemapCoeff

    std::int32_t  reservedA = 0;                ///< 0 or 1                              SetReserved
    std::int32_t  reservedB = 0;                ///< 0 or 2                              SetReserved
    // clang-format on
};

/// The name of the instruction set in use: "sse2", "avx2" or "avx512" on x86-64, "neon" on aarch64, "generic"
/// elsewhere. Chosen for the processor when the library is loaded; all give the same bits.
[[gnu::visibility("default")]] const char* zrk_tarn_instruction_set() noexcept;
