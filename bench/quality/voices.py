"""Voices of the dialogue: espeak-ng or synthetic syllables."""
# SPDX-License-Identifier: MIT

from pathlib import Path
import shutil
import subprocess
import tempfile

import numpy as np
import scipy.signal
import soundfile

from signals import at_level

SPEECH_TEXT = """A small lake lies high between two hills. In the morning the water is quite still, and the far shore
stands in it upside down. Nobody has built a road to it, so those who want to see it have to walk. Take bread and a
warm coat, because the wind turns in the afternoon. Which way would you go? Left of the stream the path is dry; on the
right there are shorter climbs, but three wet fields. We tried both, six times each, and always came back smiling."""


def espeak_speech(frames, rate):
    """SPEECH_TEXT read by espeak-ng, repeated to the given length; mean power 1."""
    with tempfile.TemporaryDirectory() as directory:
        path = Path(directory) / "speech.wav"
        subprocess.run(["espeak-ng", "-v", "en", "-s", "150", "-w", path, SPEECH_TEXT], check=True)
        speech, speech_rate = soundfile.read(path)
    common = np.gcd(rate, speech_rate)
    speech = scipy.signal.resample_poly(speech, rate // common, speech_rate // common)
    return at_level(np.resize(speech, frames), 0.0)


def synthetic_speech(generator, frames, rate):
    """Synthetic syllables: pulses through three formants, noise between them, pauses; mean power 1."""
    vowels_hz = [(270, 2290, 3010), (530, 1840, 2480), (730, 1090, 2440), (570, 840, 2410), (300, 870, 2240)]
    hiss_filter = scipy.signal.butter(4, [3000, 9000], "bandpass", fs=rate, output="sos")
    speech = np.zeros(frames)
    position = 0
    while position < frames:
        length = int(rate * generator.uniform(0.12, 0.28))
        pitch_hz = generator.uniform(95, 145) * np.linspace(1.06, 0.92, length)
        phase = np.cumsum(pitch_hz / rate)
        pulses = np.diff(np.floor(phase), prepend=0.0) + 0.02 * generator.standard_normal(length)
        voice = np.zeros(length)
        for formant_hz, strength in zip(vowels_hz[generator.integers(len(vowels_hz))], (1.0, 0.6, 0.4)):
            radius = np.exp(-np.pi * 90 / rate)
            poles = [1, -2 * radius * np.cos(2 * np.pi * formant_hz / rate), radius**2]
            voice += strength * scipy.signal.lfilter([1 - radius], poles, pulses)
        syllable = voice * scipy.signal.windows.tukey(length, 0.4)
        hiss_length = int(rate * generator.uniform(0.04, 0.12)) if generator.random() < 0.5 else 0
        hiss = 0.03 * np.hanning(hiss_length) * generator.standard_normal(hiss_length)
        if hiss_length:
            hiss = scipy.signal.sosfilt(hiss_filter, hiss)
        pause = np.zeros(int(rate * (generator.uniform(0.25, 0.5) if generator.random() < 0.15 else 0.02)))
        piece = np.concatenate([hiss, syllable, pause])[: frames - position]
        speech[position : position + len(piece)] = piece
        position += len(piece)
    return at_level(speech, 0.0)


def kind(wanted):
    """'espeak-ng' or 'synthetic'; wanted is one of these or 'auto'."""
    if wanted == "auto":
        return "espeak-ng" if shutil.which("espeak-ng") else "synthetic"
    return wanted


def speech(voice, generator, frames, rate):
    """Speech of a voice that `kind` returns; mean power 1."""
    return espeak_speech(frames, rate) if voice == "espeak-ng" else synthetic_speech(generator, frames, rate)
