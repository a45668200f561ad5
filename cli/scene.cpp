// Synthesises the voice, the moving source and the wide chords of the demo scene.
// SPDX-License-Identifier: MIT
#include "cli/scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace tarn
{

namespace
{

constexpr std::uint32_t kRate = 48000;
constexpr std::size_t kPartFrames = 3 * kRate;  ///< of each of the four parts
constexpr std::size_t kPauseFrames = kRate / 5; ///< after each part
constexpr std::size_t kFadeFrames = kRate / 50; ///< at both ends of a part
constexpr std::size_t kControlFrames = 48;      ///< update interval of amplitudes: one millisecond
constexpr double kPeak = 0.5 * 32767.0;         ///< -6 dB
constexpr double kTau = 2.0 * std::numbers::pi;

/// Stereo of one part, at any level.
struct Stereo
{
    std::vector<double> left = std::vector<double>(kPartFrames);
    std::vector<double> right = std::vector<double>(kPartFrames);
};

/// Position in a part, 0 to 1.
double partPosition(std::size_t frame) noexcept
{
    return static_cast<double>(frame) / static_cast<double>(kPartFrames);
}

/// Raised-cosine fade at both ends of a part.
double fade(std::size_t frame) noexcept
{
    const std::size_t edge = std::min({frame, kPartFrames - 1 - frame, kFadeFrames});
    return 0.5 - 0.5 * std::cos(std::numbers::pi * static_cast<double>(edge) / static_cast<double>(kFadeFrames));
}

/// A formant: a resonance of the vocal tract.
struct Formant
{
    double frequencyHz;
    double bandwidthHz;
    double level;
};

using Vowel = std::array<Formant, 3>;

constexpr std::array<Vowel, 5> kVowels{{
    {{{730, 90, 1.0}, {1090, 110, 0.5}, {2440, 170, 0.15}}}, // a
    {{{530, 70, 1.0}, {1840, 100, 0.4}, {2480, 160, 0.2}}},  // e
    {{{270, 60, 1.0}, {2290, 100, 0.3}, {3010, 180, 0.2}}},  // i
    {{{570, 80, 1.0}, {840, 100, 0.6}, {2410, 170, 0.1}}},   // o
    {{{300, 60, 1.0}, {870, 100, 0.3}, {2240, 170, 0.08}}},  // u
}};

/// Gain of the vocal tract at a frequency, interpolated between two vowels.
double vocalTractGain(double frequencyHz, double vowelPosition) noexcept
{
    const auto index = std::min(static_cast<std::size_t>(vowelPosition), kVowels.size() - 2);
    const double share = vowelPosition - static_cast<double>(index);
    double gain = 0.0;
    for (std::size_t i = 0; i < kVowels[index].size(); ++i) {
        const Formant& from = kVowels[index][i];
        const Formant& to = kVowels[index + 1][i];
        const double distance = (frequencyHz - std::lerp(from.frequencyHz, to.frequencyHz, share)) /
                                std::lerp(from.bandwidthHz, to.bandwidthHz, share);
        gain += std::lerp(from.level, to.level, share) / (1.0 + distance * distance);
    }
    return gain;
}

/// A voice: the harmonics of a glottal pulse train through moving formants, in syllables.
std::vector<double> makeVoice()
{
    constexpr int kHarmonics = 32;
    constexpr double kSyllablesPerPart = 9.0;
    std::vector<double> voice(kPartFrames);
    std::vector<double> amplitude(kHarmonics);
    double phase = 0.0;
    for (std::size_t frame = 0; frame < kPartFrames; ++frame) {
        const double t = partPosition(frame);
        const double pitchHz = 118.0 + 14.0 * std::sin(kTau * 1.3 * t) + 2.0 * std::sin(kTau * 16.0 * t);
        if (frame % kControlFrames == 0)
            for (int k = 1; k <= kHarmonics; ++k)
                amplitude[static_cast<std::size_t>(k - 1)] =
                    vocalTractGain(k * pitchHz, t * static_cast<double>(kVowels.size() - 1)) / k;

        phase += kTau * pitchHz / kRate;
        double sample = 0.0;
        for (int k = 1; k <= kHarmonics; ++k)
            sample += amplitude[static_cast<std::size_t>(k - 1)] * std::sin(k * phase);
        const double syllable = 0.6 - 0.4 * std::cos(kTau * kSyllablesPerPart * t);
        voice[frame] = sample * syllable;
    }
    return voice;
}

/// The moving source: a sequence of struck, slightly inharmonic notes.
std::vector<double> makeMovingSource()
{
    constexpr std::array<double, 4> kNotesHz{392.0, 523.25, 659.26, 783.99};
    constexpr std::size_t kNoteFrames = kPartFrames / 24;
    std::vector<double> figure(kPartFrames);
    for (std::size_t frame = 0; frame < kPartFrames; ++frame) {
        const std::size_t note = frame / kNoteFrames;
        const double seconds = static_cast<double>(frame % kNoteFrames) / kRate;
        const double struck = std::min(1.0, seconds / 0.002);
        double sample = 0.0;
        for (int k = 1; k <= 8; ++k) {
            const double frequencyHz = kNotesHz[note % kNotesHz.size()] * k * (1.0 + 0.0004 * k * k);
            sample += std::sin(kTau * frequencyHz * seconds) * std::exp(-seconds * (3.0 + 3.0 * k)) / k;
        }
        figure[frame] = struck * sample;
    }
    return figure;
}

/// Pans from hard left to hard right: the two gains are cosine and sine of a quarter turn.
Stereo pan(const std::vector<double>& source)
{
    Stereo stereo;
    for (std::size_t frame = 0; frame < kPartFrames; ++frame) {
        const double angle = partPosition(frame) * std::numbers::pi / 2.0;
        stereo.left[frame] = source[frame] * std::cos(angle);
        stereo.right[frame] = source[frame] * std::sin(angle);
    }
    return stereo;
}

/// A chord for one side: every note is a cluster of tones with random frequencies and phases.
std::vector<double> makeChord(const std::array<double, 4>& notesHz, std::uint64_t seed)
{
    constexpr int kTonesPerNote = 12;
    // A linear congruential generator; its upper bits are sufficiently random.
    const auto random = [&seed] {
        seed = seed * 6364136223846793005U + 1442695040888963407U;
        return static_cast<double>(seed >> 40) * 0x1p-24;
    };

    std::vector<double> chord(kPartFrames);
    for (const double noteHz : notesHz) {
        for (int tone = 0; tone < kTonesPerNote; ++tone) {
            const double harmonic = 1.0 + tone % 3;
            const double step = kTau * noteHz * harmonic * (0.985 + 0.03 * random()) / kRate;
            double phase = kTau * random();
            for (double& sample : chord) {
                sample += std::sin(phase) / harmonic;
                phase += step;
            }
        }
    }
    return chord;
}

/// Fades a part in and out and normalises its peak.
void normalise(Stereo& part)
{
    double peak = 0.0;
    for (std::size_t frame = 0; frame < kPartFrames; ++frame) {
        const double gain = fade(frame);
        part.left[frame] *= gain;
        part.right[frame] *= gain;
        peak = std::max({peak, std::abs(part.left[frame]), std::abs(part.right[frame])});
    }
    for (std::vector<double>* const side : {&part.left, &part.right})
        for (double& sample : *side) sample *= kPeak / peak;
}

Stereo sumOf(const std::array<const Stereo*, 3>& parts)
{
    Stereo sum;
    for (const Stereo* const part : parts) {
        for (std::size_t frame = 0; frame < kPartFrames; ++frame) {
            sum.left[frame] += part->left[frame];
            sum.right[frame] += part->right[frame];
        }
    }
    return sum;
}

} // namespace

Scene makeScene()
{
    const std::vector<double> voiceSource = makeVoice();
    Stereo voice{.left = voiceSource, .right = voiceSource};
    Stereo moving = pan(makeMovingSource());
    Stereo chords{.left = makeChord({196.0, 293.66, 440.0, 698.46}, 1),
                  .right = makeChord({174.61, 261.63, 392.0, 587.33}, 2)};
    for (Stereo* const part : {&voice, &moving, &chords}) normalise(*part);
    Stereo together = sumOf({&voice, &moving, &chords});
    normalise(together);

    Scene scene{.sampleRate = kRate, .stereo = {}, .parts = {}, .wideChords = 0};
    for (const Stereo* const part : {&voice, &moving, &chords, &together}) {
        for (std::size_t frame = 0; frame < kPartFrames; ++frame) {
            scene.stereo.push_back(static_cast<std::int16_t>(std::lround(part->left[frame])));
            scene.stereo.push_back(static_cast<std::int16_t>(std::lround(part->right[frame])));
        }
        scene.stereo.resize(scene.stereo.size() + 2 * kPauseFrames);
    }

    constexpr std::size_t kPartStart = kPartFrames + kPauseFrames;
    constexpr std::size_t kThird = kPartFrames / 3;
    scene.parts = {{"centred voice", 0, kPartFrames},
                   {"moving source, left", kPartStart, kThird},
                   {"moving source, centre", kPartStart + kThird, kThird},
                   {"moving source, right", kPartStart + 2 * kThird, kThird},
                   {"wide chords", 2 * kPartStart, kPartFrames},
                   {"mix of all", 3 * kPartStart, kPartFrames}};
    scene.wideChords = 4;
    return scene;
}

} // namespace tarn
