"""Measures: from known signals and outputs to figures.

Signals are [frames] or [frames, channels]; outputs are in the order FL FR C. Levels and errors are in dB, shares are
fractions of one. What has no value (the level of silence) is None.
"""

import numpy as np
import scipy.signal

STFT_FRAMES = 4096
STFT_HOP = 1024
FOLD_GAIN = np.sqrt(0.5)
CENTRE = 2


def ratio_db(part, whole):
    """A ratio of powers in dB; None if either is zero."""
    return float(10 * np.log10(part / whole)) if part > 0 and whole > 0 else None


def power(signal):
    """Mean power per channel."""
    return np.mean(np.square(signal), axis=0)


def delay_frames(source, output):
    """Delay of output against source in frames: where their cross-correlation is largest in magnitude."""
    correlation = scipy.signal.correlate(output, source, "full", "fft")
    return int(np.argmax(np.abs(correlation))) - (len(source) - 1)


def block_frames(stream, stereo, limit=8192):
    """Block in frames: the smallest power of two by which the input can be moved so that the output just moves along.

    A system that gathers frames before it works on them gives other samples for every other shift. None if there is no
    such shift up to the limit. stream maps [frames, 2] to [frames, 3].
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
    """Share of each output in the power of all."""
    powers = power(outputs)
    return powers / powers.sum()


def level_db(stereo, outputs):
    """Power of all outputs re the power of the input, in dB."""
    return ratio_db(power(outputs).sum(), power(stereo).sum())


def fold_down(outputs):
    """Stereo again: L' = FL + 0.707 C, R' = FR + 0.707 C (the root of one half)."""
    return outputs[:, :2] + FOLD_GAIN * outputs[:, [CENTRE]]


def fold_down_error_db(stereo, outputs, best_gain=False):
    """Power of the difference between fold-down and input re the input, in dB; best_gain first matches their level."""
    folded = fold_down(outputs)
    gain = np.vdot(folded, stereo) / np.vdot(folded, folded) if best_gain else 1.0
    return ratio_db(np.sum((gain * folded - stereo) ** 2), np.sum(stereo**2))


def spectra(signals):
    """Hann-windowed STFT of [frames, channels]: complex [bins, channels, windows], whole windows only."""
    window = scipy.signal.windows.hann(STFT_FRAMES, sym=False)
    pieces = np.lib.stride_tricks.sliding_window_view(signals, STFT_FRAMES, axis=0)[::STFT_HOP]
    return np.ascontiguousarray(np.fft.rfft(pieces * window).transpose(2, 1, 0))


def explain(stems, outputs):
    """What fixed filters of the stems explain of each output.

    In every bin each output is fitted, over all windows, by one complex gain per stem (least squares). That is any
    filter that does not change and is shorter than the window.

    In      stems [frames, stems], outputs [frames, outputs]
    Out     contributions [stems, outputs], residual [outputs], total [outputs]: the energy that each stem brings, that
            no fixed filter explains, and of the output; one scale for all
    """
    x, y = spectra(stems), spectra(outputs)
    # Each stem at unit energy per bin, so that a quiet one is as well conditioned as a loud one.
    norms = np.sqrt(np.sum(np.abs(x) ** 2, axis=2, keepdims=True))
    x = np.divide(x, norms, out=np.zeros_like(x), where=norms > 0)
    adjoint = x.conj().transpose(0, 2, 1)
    gains = (y @ adjoint) @ np.linalg.pinv(x @ adjoint, rcond=1e-10, hermitian=True)

    # A bin stands for its mirror image too, except the first and the last.
    weights = np.full(len(x), 2.0)
    weights[[0, -1]] = 1.0

    def energy(values):
        return np.tensordot(weights, np.abs(values) ** 2, axes=(0, 0))

    return energy(gains).T, energy(y - gains @ x).sum(axis=-1), energy(y).sum(axis=-1)
