"""Measures that compare outputs with known signals.

Signals are [frames] or [frames, channels]; outputs are in the order FL FR C. Levels and errors are in dB, shares are
fractions of one. Undefined values, such as the level of silence, are None.
"""
# SPDX-License-Identifier: MIT

import numpy as np
import scipy.signal

STFT_FRAMES = 4096
STFT_HOP = 1024
COARSE_STFT_HOP = 2048  # for long signals
FOLD_GAIN = np.sqrt(0.5)
CENTRE = 2


def ratio_db(part, whole):
    """A ratio of powers in dB; None if either is zero."""
    return float(10 * np.log10(part / whole)) if part > 0 and whole > 0 else None


def power(signal):
    """Mean power per channel."""
    return np.mean(np.square(signal), axis=0)


def delay_frames(source, output):
    """Delay of output relative to source in frames: the largest magnitude of their cross-correlation."""
    correlation = scipy.signal.correlate(output, source, "full", "fft")
    return int(np.argmax(np.abs(correlation))) - (len(source) - 1)


def block_frames(stream, stereo, limit=8192):
    """Block size in frames: the smallest power of two such that a shift of the input only shifts the output.

    A system that collects blocks gives other samples for other shifts. None if no shift up to the limit fits.
    stream maps [frames, 2] to [frames, 3].
    """
    late = np.vstack([np.zeros((limit, 2)), stereo])
    first = stream(late)
    shift = 1
    while shift <= limit:
        moved = stream(np.vstack([np.zeros((shift, 2)), late]))
        if np.array_equal(moved[shift:], first):
            return shift
        shift *= 2
    return None


def shares(outputs):
    """Share of each output in the total power."""
    powers = power(outputs)
    return powers / powers.sum()


def level_db(stereo, outputs):
    """Power of all outputs relative to that of the input, in dB."""
    return ratio_db(power(outputs).sum(), power(stereo).sum())


def fold_down(outputs):
    """Stereo fold-down: L' = FL + 0.707 C, R' = FR + 0.707 C (the root of one half)."""
    return outputs[:, :2] + FOLD_GAIN * outputs[:, [CENTRE]]


def fold_down_error_db(stereo, outputs, best_gain=False):
    """Power of fold-down minus input relative to the input, in dB; best_gain first matches the level."""
    folded = fold_down(outputs)
    gain = np.vdot(folded, stereo) / np.vdot(folded, folded) if best_gain else 1.0
    return ratio_db(np.sum((gain * folded - stereo) ** 2), np.sum(stereo**2))


def spectra(signals, frames, hop):
    """Hann-windowed STFT of [frames, channels]: complex [bins, channels, windows], whole windows only."""
    window = scipy.signal.windows.hann(frames, sym=False)
    pieces = np.lib.stride_tricks.sliding_window_view(signals, frames, axis=0)[::hop]
    return np.ascontiguousarray(np.fft.rfft(pieces * window).transpose(2, 1, 0))


def explain(stems, outputs, hop=STFT_HOP, groups=None):
    """Separates each output into fixed filters of the stems and a residual.

    A least-squares fit over all windows gives one complex gain per stem, output and bin. This models every
    time-invariant filter that is shorter than the window.

    In      stems [frames, stems], outputs [frames, outputs], groups: lists of stems that count as one source,
            such as the channels of a recording; every stem by default
    Out     contributions [groups, outputs], residual [outputs], total [outputs]: the energy that each group
            contributes, of the part that no fixed filter explains, and of the output, at the same scale
    """
    x, y = spectra(stems, STFT_FRAMES, hop), spectra(outputs, STFT_FRAMES, hop)
    # Normalises the energy of each stem per bin, so that quiet and loud stems are equally well conditioned.
    norms = np.sqrt(np.sum(np.abs(x) ** 2, axis=2, keepdims=True))
    x = np.divide(x, norms, out=np.zeros_like(x), where=norms > 0)
    adjoint = x.conj().transpose(0, 2, 1)
    gains = (y @ adjoint) @ np.linalg.pinv(x @ adjoint, rcond=1e-10, hermitian=True)

    # All bins except the first and the last also represent their mirror image.
    weights = np.full(len(x), 2.0)
    weights[[0, -1]] = 1.0

    def energy(values):
        return np.tensordot(weights, np.sum(np.abs(values) ** 2, axis=2), axes=(0, 0))

    groups = [[stem] for stem in range(x.shape[1])] if groups is None else groups
    contributions = np.array([energy(gains[:, :, group] @ x[:, group]) for group in groups])
    return contributions, energy(y - gains @ x), energy(y)


def si_sdr_db(target, estimate):
    """Scale-invariant signal-to-distortion ratio in dB (Le Roux and others, SDR - half-baked or well done?, 2019)."""
    scaled = target * (np.vdot(target, estimate) / np.vdot(target, target))
    return ratio_db(np.sum(scaled**2), np.sum((estimate - scaled) ** 2))
