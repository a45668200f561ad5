"""Movement of gains over time: what a source that comes and goes does to a steady one.

The bands have equal width on the ERB-rate scale (B. R. Glasberg and B. C. J. Moore, Derivation of auditory filter shapes
from notched-noise data, Hearing Research 47, 1990).
"""
# SPDX-License-Identifier: MIT

import numpy as np

from measures import CENTRE, spectra

BANDS = 20
LOWEST_HZ, HIGHEST_HZ = 100, 16000
STFT_FRAMES = 2048  # at 48 kHz; the hop is a quarter
WINDOWS_PER_FIT = 4
PERCENTILES = (5, 95)
# Lower gains count as this one.
SILENT_DB = -100.0
# The side counts as absent if it is this much weaker than the centre, as a ratio of energies.
ABSENT = 1e-6


def erb_rate(hz):
    """Number of equivalent rectangular bandwidths below a frequency."""
    return 21.4 * np.log10(1 + 0.00437 * hz)


def band_edges_hz():
    """The limits of the bands."""
    rates = np.linspace(erb_rate(LOWEST_HZ), erb_rate(HIGHEST_HZ), BANDS + 1)
    return (10 ** (rates / 21.4) - 1) / 0.00437


def stft_frames(rate):
    """Frames of the STFT with about the resolution of 48 kHz."""
    return STFT_FRAMES * max(1, round(rate / 48000))


def band_bins(rate):
    """The STFT bins of every band."""
    frequencies = np.fft.rfftfreq(stft_frames(rate), 1 / rate)
    edges = band_edges_hz()
    return [np.flatnonzero((frequencies >= low) & (frequencies < high)) for low, high in zip(edges, edges[1:])]


def window_sums(products):
    """Sums over the bins of a band and over successive windows: [bins, windows] -> [positions]."""
    return np.convolve(products.sum(axis=0), np.ones(WINDOWS_PER_FIT), "valid")


def fitted_gain(steady, other, output, sums=window_sums):
    """Gain of the steady source in the output, by least squares over both sources.

    All are spectra of one band, or signals; sums adds their products over each stretch of time.
    """
    ss, oo = sums(np.abs(steady) ** 2), sums(np.abs(other) ** 2)
    so = sums(steady.conj() * other)
    sy, oy = sums(steady.conj() * output), sums(other.conj() * output)
    both = oo > ABSENT * ss
    determinant = np.where(both, ss * oo - np.abs(so) ** 2, 1.0)
    return np.where(both, (oo * sy - so * oy) / determinant, sy / ss)


def movement(levels_db):
    """Difference of a high and a low percentile over time."""
    low, high = np.percentile(levels_db, PERCENTILES)
    return float(high - low)


def decibels(power):
    """A power in dB, at least SILENT_DB."""
    return 10 * np.log10(np.maximum(power, 10 ** (SILENT_DB / 10)))


def figures(steady, other, stereo, outputs, rate):
    """Movement of C's gain for the steady source, and of the level of all outputs relative to the stereo; mean over
    bands. The first is None if C is silent.
    """
    frames = stft_frames(rate)
    signals = (np.column_stack([steady, other]), stereo, outputs)
    sources, before, after = (spectra(signal, frames, frames // 4) for signal in signals)
    gains, levels = [], []
    for bins in band_bins(rate):
        gain = fitted_gain(sources[bins, 0], sources[bins, 1], after[bins, CENTRE])
        gains.append(movement(decibels(np.abs(gain) ** 2)))
        power = [window_sums(np.sum(np.abs(spectrum[bins]) ** 2, axis=1)) for spectrum in (before, after)]
        levels.append(movement(decibels(power[1] / power[0])))
    return float(np.mean(gains)) if np.any(outputs[:, CENTRE]) else None, float(np.mean(levels))
