"""Long-term spectrum and bass of the outputs beside those of the stereo."""
# SPDX-License-Identifier: MIT

import numpy as np
import scipy.signal

from measures import ratio_db

# Nominal centres; the exact ones are powers of the tenth root of ten (IEC 61260).
THIRD_OCTAVES_HZ = [50, 63, 80, 100, 125, 160, 200, 250, 315, 400, 500, 630, 800, 1000]
THIRD_OCTAVES_HZ += [1250, 1600, 2000, 2500, 3150, 4000, 5000, 6300, 8000, 10000, 12500, 16000]
SPECTRUM_FRAMES = 16384
# Bands of the stereo that are this much weaker than its strongest one are left out.
WEAK_BAND_DB = -80.0

BASS_HZ = 120
BASS_FILTER_ORDER = 8
BASS_WINDOW_SECONDS = 0.4
# Windows of the stereo that are this much weaker than its loudest one are left out.
QUIET_WINDOW_DB = -40.0


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


def bass_levels(stereo, outputs, rate):
    """Level of the sum of all outputs below BASS_HZ relative to the sum of the stereo, in dB per window.

    The sums are coherent, as in a subwoofer.
    """
    lowpass = scipy.signal.butter(BASS_FILTER_ORDER, BASS_HZ, fs=rate, output="sos")
    frames = round(BASS_WINDOW_SECONDS * rate)
    windows = len(stereo) // frames
    sums = [scipy.signal.sosfilt(lowpass, signals.sum(axis=1))[: windows * frames] for signals in (stereo, outputs)]
    before, after = (np.square(bass).reshape(windows, frames).sum(axis=1) for bass in sums)
    loud = before > before.max() * 10 ** (QUIET_WINDOW_DB / 10)
    return np.array([ratio_db(part, whole) for part, whole in zip(after[loud], before[loud])], dtype=float)
