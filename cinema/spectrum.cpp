#include "cinema/spectrum.h"

#include <cmath>

namespace zrk_tarn
{

namespace
{

constexpr float kKept = 0.9f;
constexpr float kAdded = 0.1f;

/// Adds a tenth of a band's magnitude: in double with the widened single-precision 0.1, then rounded to single.
void addTenthOf(float value, float& total) noexcept
{
    const double tenth = static_cast<double>(kAdded) * static_cast<double>(std::fabs(value));
    total = static_cast<float>(static_cast<double>(total) + tenth);
}

} // namespace

void trackSpectrum(const float (&subband)[64], float& spectrum, float& peakRegion, float& rest) noexcept
{
    spectrum *= kKept;
    peakRegion *= kKept;

    float largest = 0.0f;
    int strongest = 0;
    for (int b = 0; b < 64; ++b) {
        addTenthOf(subband[b], spectrum);
        if (std::fabs(subband[b]) > largest) {
            largest = std::fabs(subband[b]);
            strongest = b;
        }
    }

    addTenthOf(subband[strongest], peakRegion);
    if (strongest < 63) addTenthOf(subband[strongest + 1], peakRegion);
    if (strongest > 0) addTenthOf(subband[strongest - 1], peakRegion);
    rest = spectrum - peakRegion;
}

} // namespace zrk_tarn
