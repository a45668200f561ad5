"""Bass in a subwoofer that adds all outputs, beside that of the stereo."""
# SPDX-License-Identifier: MIT

import numpy as np
import scipy.signal

from flutter import decibels, fitted_gain, movement
from measures import ratio_db

BASS_HZ = 120
FILTER_ORDER = 8
FILTER_SETTLING_SECONDS = 0.5  # is not evaluated
WINDOW_SECONDS = 0.4
# Windows of the stereo that are this much weaker than its loudest one are left out.
QUIET_WINDOW_DB = -40.0
GAIN_WINDOW_SECONDS = 0.1


def lowpass(signal, rate, limit_hz=BASS_HZ):
    """The part of a mono signal below a limit."""
    return scipy.signal.sosfilt(scipy.signal.butter(FILTER_ORDER, limit_hz, fs=rate, output="sos"), signal)


def window_sums(signal, seconds, rate):
    """Sums over successive whole windows."""
    frames = round(seconds * rate)
    windows = len(signal) // frames
    return signal[: windows * frames].reshape(windows, frames).sum(axis=1)


def window_powers(signal, rate):
    """Power in overlapping Hann windows. At the edge of a rectangular one, a delay of a few ms would change it."""
    frames = round(WINDOW_SECONDS * rate)
    windows = np.lib.stride_tricks.sliding_window_view(signal**2, frames)[:: frames // 2]
    return windows @ scipy.signal.windows.hann(frames)


def levels(stereo, outputs, rate, limit_hz=BASS_HZ):
    """Level of the bass of all outputs together relative to that of the stereo, in dB per window."""
    settled = round(FILTER_SETTLING_SECONDS * rate)
    before, after = (
        window_powers(lowpass(signals.sum(axis=1), rate, limit_hz)[settled:], rate) for signals in (stereo, outputs)
    )
    loud = before > before.max() * 10 ** (QUIET_WINDOW_DB / 10)
    return np.array([ratio_db(part, whole) for part, whole in zip(after[loud], before[loud])], dtype=float)


def source_levels(steady, other, stereo, outputs, rate):
    """Level of a source in the bass of all outputs together relative to that of the stereo, in dB per window.

    The gain of the source is fitted by least squares beside another source, which can be silent.
    """
    sources = [lowpass(signal, rate) for signal in (steady, other)]

    def gain(signals):
        return fitted_gain(
            *sources,
            lowpass(signals.sum(axis=1), rate),
            lambda product: window_sums(product, GAIN_WINDOW_SECONDS, rate)
        )

    return decibels((gain(outputs) / gain(stereo)) ** 2)


def figures(steady, other, stereo, outputs, rate):
    """Mean level of a source in the bass, and its movement, in dB."""
    found = source_levels(steady, other, stereo, outputs, rate)
    return float(np.mean(found)), movement(found)
