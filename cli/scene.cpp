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
constexpr std::size_t kTurnFrames = 3 * kRate;  ///< each of the four turns
constexpr std::size_t kPauseFrames = kRate / 5; ///< after each of them
constexpr std::size_t kFadeFrames = kRate / 50; ///< at both ends of a turn
constexpr std::size_t kControlFrames = 48;      ///< one millisecond: how often amplitudes are set anew
constexpr double kPeak = 0.5 * 32767.0;         ///< -6 dB
constexpr double kTau = 2.0 * std::numbers::pi;

/// A stretch of stereo at any level.
struct Stereo
{
    std::vector<double> left = std::vector<double>(kTurnFrames);
    std::vector<double> right = std::vector<double>(kTurnFrames);
};

/// Position in a turn, 0 to 1.
double turnPosition(std::size_t frame) noexcept
{
    return static_cast<double>(frame) / static_cast<double>(kTurnFrames);
}

/// Raised cosine at both ends of a turn.
double fade(std::size_t frame) noexcept
{
    const std::size_t edge = std::min({frame, kTurnFrames - 1 - frame, kFadeFrames});
    return 0.5 - 0.5 * std::cos(std::numbers::pi * static_cast<double>(edge) / static_cast<double>(kFadeFrames));
}

/// A formant: a resonance of the mouth.
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

/// Gain of the mouth at a frequency, on its way from one vowel to the next.
double mouthGain(double frequencyHz, double vowelPosition) noexcept
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
    constexpr double kSyllablesPerTurn = 9.0;
    std::vector<double> voice(kTurnFrames);
    std::vector<double> amplitude(kHarmonics);
    double phase = 0.0;
    for (std::size_t frame = 0; frame < kTurnFrames; ++frame) {
        const double t = turnPosition(frame);
        const double pitchHz = 118.0 + 14.0 * std::sin(kTau * 1.3 * t) + 2.0 * std::sin(kTau * 16.0 * t);
        if (frame % kControlFrames == 0)
            for (int k = 1; k <= kHarmonics; ++k)
                amplitude[static_cast<std::size_t>(k - 1)] =
                    mouthGain(k * pitchHz, t * static_cast<double>(kVowels.size() - 1)) / k;

        phase += kTau * pitchHz / kRate;
        double sample = 0.0;
        for (int k = 1; k <= kHarmonics; ++k)
            sample += amplitude[static_cast<std::size_t>(k - 1)] * std::sin(k * phase);
        const double syllable = 0.6 - 0.4 * std::cos(kTau * kSyllablesPerTurn * t);
        voice[frame] = sample * syllable;
    }
    return voice;
}

/// A source to travel: a running figure of struck, slightly inharmonic notes.
std::vector<double> makeTraveller()
{
    constexpr std::array<double, 4> kNotesHz{392.0, 523.25, 659.26, 783.99};
    constexpr std::size_t kNoteFrames = kTurnFrames / 24;
    std::vector<double> figure(kTurnFrames);
    for (std::size_t frame = 0; frame < kTurnFrames; ++frame) {
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
Stereo travel(const std::vector<double>& source)
{
    Stereo stereo;
    for (std::size_t frame = 0; frame < kTurnFrames; ++frame) {
        const double angle = turnPosition(frame) * std::numbers::pi / 2.0;
        stereo.left[frame] = source[frame] * std::cos(angle);
        stereo.right[frame] = source[frame] * std::sin(angle);
    }
    return stereo;
}

/// One side of the bed: every note of a chord is a cluster of tones with frequencies and phases by chance.
std::vector<double> makeChord(const std::array<double, 4>& notesHz, std::uint64_t seed)
{
    constexpr int kTonesPerNote = 12;
    // A linear congruential generator, the upper bits of which are even enough for this.
    const auto chance = [&seed] {
        seed = seed * 6364136223846793005U + 1442695040888963407U;
        return static_cast<double>(seed >> 40) * 0x1p-24;
    };

    std::vector<double> chord(kTurnFrames);
    for (const double noteHz : notesHz) {
        for (int tone = 0; tone < kTonesPerNote; ++tone) {
            const double harmonic = 1.0 + tone % 3;
            const double step = kTau * noteHz * harmonic * (0.985 + 0.03 * chance()) / kRate;
            double phase = kTau * chance();
            for (double& sample : chord) {
                sample += std::sin(phase) / harmonic;
                phase += step;
            }
        }
    }
    return chord;
}

/// Fades a turn in and out and brings it to the scene's peak.
void normalise(Stereo& turn)
{
    double peak = 0.0;
    for (std::size_t frame = 0; frame < kTurnFrames; ++frame) {
        const double gain = fade(frame);
        turn.left[frame] *= gain;
        turn.right[frame] *= gain;
        peak = std::max({peak, std::abs(turn.left[frame]), std::abs(turn.right[frame])});
    }
    for (std::vector<double>* const side : {&turn.left, &turn.right})
        for (double& sample : *side) sample *= kPeak / peak;
}

Stereo sumOf(const std::array<const Stereo*, 3>& turns)
{
    Stereo sum;
    for (const Stereo* const turn : turns) {
        for (std::size_t frame = 0; frame < kTurnFrames; ++frame) {
            sum.left[frame] += turn->left[frame];
            sum.right[frame] += turn->right[frame];
        }
    }
    return sum;
}

} // namespace

Scene makeScene()
{
    const std::vector<double> voiceSource = makeVoice();
    Stereo voice{.left = voiceSource, .right = voiceSource};
    Stereo traveller = travel(makeTraveller());
    Stereo bed{.left = makeChord({196.0, 293.66, 440.0, 698.46}, 1),
               .right = makeChord({174.61, 261.63, 392.0, 587.33}, 2)};
    for (Stereo* const turn : {&voice, &traveller, &bed}) normalise(*turn);
    Stereo together = sumOf({&voice, &traveller, &bed});
    normalise(together);

    Scene scene{.sampleRate = kRate, .stereo = {}, .parts = {}, .bed = 0};
    for (const Stereo* const turn : {&voice, &traveller, &bed, &together}) {
        for (std::size_t frame = 0; frame < kTurnFrames; ++frame) {
            scene.stereo.push_back(static_cast<std::int16_t>(std::lround(turn->left[frame])));
            scene.stereo.push_back(static_cast<std::int16_t>(std::lround(turn->right[frame])));
        }
        scene.stereo.resize(scene.stereo.size() + 2 * kPauseFrames);
    }

    constexpr std::size_t kTurn = kTurnFrames + kPauseFrames;
    constexpr std::size_t kThird = kTurnFrames / 3;
    scene.parts = {{"voice in the middle", 0, kTurnFrames},
                   {"traveller, left third", kTurn, kThird},
                   {"traveller, middle third", kTurn + kThird, kThird},
                   {"traveller, right third", kTurn + 2 * kThird, kThird},
                   {"wide bed", 2 * kTurn, kTurnFrames},
                   {"all together", 3 * kTurn, kTurnFrames}};
    scene.bed = 4;
    return scene;
}

} // namespace tarn
