"""Long-term spectrum of the outputs beside that of the stereo."""
# SPDX-License-Identifier: MIT

import numpy as np
import scipy.signal

# Nominal centres; the exact ones are powers of the tenth root of ten (IEC 61260).
THIRD_OCTAVES_HZ = [50, 63, 80, 100, 125, 160, 200, 250, 315, 400, 500, 630, 800, 1000]
THIRD_OCTAVES_HZ += [1250, 1600, 2000, 2500, 3150, 4000, 5000, 6300, 8000, 10000, 12500, 16000]
SPECTRUM_FRAMES = 16384
# Bands of the stereo that are this much weaker than its strongest one are left out.
WEAK_BAND_DB = -80.0


def third_octave_powers(signals, rate):
    """Power of all channels together in every third octave."""
    frequencies, densities = scipy.signal.welch(signals, rate, nperseg=SPECTRUM_FRAMES, axis=0)
    density = densities.sum(axis=1)
    exponents = np.round(10 * np.log10(THIRD_OCTAVES_HZ))
    limits = zip(10 ** ((exponents - 0.5) / 10), 10 ** ((exponents + 0.5) / 10))
    return np.array([density[(frequencies >= low) & (frequencies < high)].sum() for low, high in limits])


def third_octave_levels(stereo, outputs, rate):
    """Level of all outputs relative to the stereo per third octave, relative to the mean over the bands, in dB.

    NaN where the stereo has no signal.
    """
    before, after = third_octave_powers(stereo, rate), third_octave_powers(outputs, rate)
    present = before > before.max() * 10 ** (WEAK_BAND_DB / 10)
    levels = np.full(len(before), np.nan)
    levels[present] = 10 * np.log10(after[present] / before[present])
    return levels - np.nanmean(levels)
