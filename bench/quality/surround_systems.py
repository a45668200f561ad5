"""Systems under test that turn stereo into fronts, centre and surround channels.

All map [frames, 2] to [frames, 3 + channels behind], order FL FR C and then the pairs behind, float64, full scale = 1.0,
at 48 kHz, without delay. `without_chains` maps such outputs to those before fixed all-pass filters of the system.
"""
# SPDX-License-Identifier: MIT

from pathlib import Path
import sys

import numpy as np
import scipy.signal

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "tools"))

import design_chains
import scenes
import systems

RATE_HZ = scenes.RATE_HZ
RATES_HZ = design_chains.RATES_HZ
FIRST_BEHIND = 3
BEHIND = slice(FIRST_BEHIND, None)
BLOCK_FRAMES = 64


def resampled(signals, from_hz, to_hz):
    """Signals at another rate. The band limit is exact; the ends, which are not evaluated, wrap around."""
    if from_hz == to_hz:
        return signals
    return scipy.signal.resample(signals, len(signals) * to_hz // from_hz, axis=0)


def all_pass(signal, delay, gain):
    """A section of Tarn's all-pass chains: a delay of frames at a time, because they do not depend on each other."""
    w = np.zeros(len(signal) + delay)
    for first in range(0, len(signal), delay):
        block = signal[first : first + delay]
        w[first + delay : first + delay + len(block)] = block + gain * w[first : first + len(block)]
    return w[: len(signal)] - gain * w[delay:]


class Tarn:
    """`tarn upmix`, the surround channels at 0 dB. At another rate, input and outputs are resampled."""

    COLUMNS = {"5.1": [0, 1, 2, 4, 5], "7.1": [0, 1, 2, 6, 7, 4, 5]}  # the first pair of surround channels is first

    def __init__(self, command, label="Tarn", layout="5.1", rate_hz=RATE_HZ):
        self.command = command
        self.label = label
        self.layout = layout
        self.rate_hz = rate_hz

    def outputs(self, stereo):
        options = ["--preset", "plain", "--surrounds", "0", "--layout", self.layout]
        outputs = systems.upmix(self.command, resampled(stereo, RATE_HZ, self.rate_hz), self.rate_hz, options)
        return resampled(outputs[:, self.COLUMNS[self.layout]], self.rate_hz, RATE_HZ)

    def without_chains(self, outputs):
        """The outputs with the surround channels as they are before their all-pass chains and without their delay."""
        early = outputs.copy()
        behind = resampled(outputs[:, BEHIND], RATE_HZ, self.rate_hz)
        sections = list(zip(design_chains.committed()[self.rate_hz], design_chains.GAINS * 2))
        late = design_chains.look_ahead_blocks()[self.rate_hz] * BLOCK_FRAMES
        for channel in range(behind.shape[1]):
            signal = behind[::-1, channel]  # an all-pass filter in reversed time is its inverse
            for delay, gain in sections[2 * channel : 2 * channel + 2]:
                signal = all_pass(signal, delay, gain)
            behind[:, channel] = np.roll(signal[::-1], -late)
        early[:, BEHIND] = resampled(behind, self.rate_hz, RATE_HZ)
        return early


class Ffmpeg51:
    """FFmpeg's surround filter. Its delay is measured once and removed."""

    label = "FFmpeg surround=5.1"

    def __init__(self):
        self.filter = systems.FfmpegFilter(
            "surround", "surround=chl_in=stereo:chl_out=5.1,pan=5.0|c0=FL|c1=FR|c2=FC|c3=BL|c4=BR", 5
        )

    def outputs(self, stereo):
        return self.filter.aligned(stereo, RATE_HZ)

    def without_chains(self, outputs):
        return outputs


class PassiveDifference:
    """FL = L, FR = R, C = (L + R) / 2, BL = -BR = (L - R) / 2."""

    label = "passive difference"

    def outputs(self, stereo):
        left, right = stereo.T
        return np.column_stack([left, right, (left + right) / 2, (left - right) / 2, (right - left) / 2])

    def without_chains(self, outputs):
        return outputs
