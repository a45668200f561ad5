// Windows and transforms samples with kissfft.
// SPDX-License-Identifier: MIT
#include "picture/power_spectra.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>

namespace tarn
{

namespace
{

/// Points of a window of about 85 ms at 48 kHz.
std::size_t pointsAt(std::uint32_t sampleRate) noexcept
{
    constexpr std::uint32_t kMaxRate = 64000; // of the shortest window
    std::size_t points = 4096;
    for (std::uint32_t rate = kMaxRate; rate < sampleRate; rate *= 2) points *= 2;
    return points;
}

} // namespace

PowerSpectra::PowerSpectra(std::size_t channels, std::uint32_t sampleRate)
    : size(pointsAt(sampleRate)),
      transformer(kiss_fftr_alloc(static_cast<int>(size), 0, nullptr, nullptr)),
      window(size),
      windowed(size),
      spectrum(size / 2 + 1),
      waiting(channels, std::vector<float>(size / 2)),
      powers(channels, std::vector<float>(size / 2 + 1))
{
    if (transformer == nullptr) throw std::bad_alloc();
    // The mean of the window is 1/2, and half of a sine wave's amplitude is at its positive frequency.
    const double scale = 4.0 / static_cast<double>(size);
    for (std::size_t i = 0; i < size; ++i) {
        const double angle = 2.0 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(size);
        window[i] = static_cast<float>(scale * (0.5 - 0.5 * std::cos(angle)));
    }
}

void PowerSpectra::appendMirrored()
{
    mirrorBegin();
    for (std::vector<float>& samples : waiting) {
        const std::size_t end = samples.size();
        samples.resize(end + 2 * size);
        for (std::size_t i = 0; i < std::min(end, 2 * size); ++i) samples[end + i] = samples[end - 1 - i];
    }
}

/// Sets the samples before the first frame, as far as there are samples behind it.
void PowerSpectra::mirrorBegin()
{
    if (hasBegin) return;
    hasBegin = true;
    const std::size_t first = size / 2;
    for (std::vector<float>& samples : waiting)
        for (std::size_t i = 0; i < std::min(first, samples.size() - first); ++i)
            samples[first - 1 - i] = samples[first + i];
}

bool PowerSpectra::hasWindowAround(std::uint64_t frame) const noexcept
{
    return frame - firstWaiting + size <= waiting.front().size();
}

void PowerSpectra::transform(std::uint64_t frame)
{
    mirrorBegin();
    const auto first = static_cast<std::size_t>(frame - firstWaiting);
    for (std::size_t channel = 0; channel < waiting.size(); ++channel) {
        const float* const samples = waiting[channel].data() + first;
        for (std::size_t i = 0; i < size; ++i) windowed[i] = window[i] * samples[i];
        kiss_fftr(transformer.get(), windowed.data(), spectrum.data());
        float* const power = powers[channel].data();
        for (std::size_t i = 0; i < spectrum.size(); ++i)
            power[i] = spectrum[i].r * spectrum[i].r + spectrum[i].i * spectrum[i].i;
    }
}

void PowerSpectra::forgetBefore(std::uint64_t frame)
{
    const auto count = static_cast<std::ptrdiff_t>(frame - firstWaiting);
    if (count > 0) mirrorBegin();
    for (std::vector<float>& samples : waiting) samples.erase(samples.begin(), samples.begin() + count);
    firstWaiting = frame;
}

} // namespace tarn
