"""Basic test signals: levels and noise. Signals are float64 with full scale = 1.0, time along the first axis."""
# SPDX-License-Identifier: MIT

import numpy as np
import scipy.fft


def at_level(signal, level_db):
    """Scales the signal to the mean power level_db, in dB relative to full scale squared."""
    return signal * np.sqrt(10 ** (level_db / 10) / np.mean(signal**2))


def pink_noise(generator, frames, rate):
    """Pink noise between 20 Hz and 20 kHz, mean power 1."""
    size = scipy.fft.next_fast_len(frames, real=True)
    spectrum = np.fft.rfft(generator.standard_normal(size))
    frequencies = np.fft.rfftfreq(size, 1 / rate)
    band = (frequencies >= 20) & (frequencies <= 20000)
    spectrum[~band] = 0
    spectrum[band] /= np.sqrt(frequencies[band])
    return at_level(np.fft.irfft(spectrum, size)[:frames], 0.0)


def on_and_off(frames, period, ramp):
    """Envelope that is 1 in the first half of each period and 0 in the second, with linear ramps; all in frames."""
    on = np.arange(frames) % period < period / 2
    return np.convolve(on, np.ones(ramp) / ramp, "same")


def decaying_noise(generator, frames, time_constant):
    """White noise whose amplitude falls to 1/e in time_constant frames."""
    return generator.standard_normal(frames) * np.exp(-np.arange(frames) / time_constant)
