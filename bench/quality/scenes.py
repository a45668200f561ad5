"""Test scenes: mono stems at known positions in a stereo mix.

Signals are float64, full scale = 1.0, time along the first axis. Every random signal depends only on the
seed of the caller. A mix is rounded to 24 bits once, so that all systems under test get the same samples.
"""
# SPDX-License-Identifier: MIT

from dataclasses import dataclass
from pathlib import Path
import shutil
import subprocess
import tempfile

import numpy as np
import scipy.signal
import soundfile

import recordings

RATE_HZ = 48000
HALF_POWER = np.sqrt(0.5)
PAN_SWEEP_DEGREES = [float(degrees) for degrees in range(0, 91, 5)]
# The loudspeakers are at 30 degrees, the source at 15: half way between side and centre, 22.5 on the pan law.
HALFWAY_PAN_DEGREES = 22.5

# Loud, but no output can clip. Levels are mean powers in dB relative to full scale squared.
NOISE_LEVEL_DB = -20.0  # left plus right
DIALOGUE_LEVEL_DB = -25.0  # each of the three stems
RECORDING_PEAK = 0.5
MUSIC_PEAK = 0.35  # of the loudest stem

SONG_DIRECTORY = Path("/usr/share/games/fretsonfire/data/songs/muldjord/mutilated_mime")
SONG_PACKAGE = "fretsonfire-songs-muldjord"
SONG_CREDIT = "Mutilated Mime by Muldjord (El Senator), CC BY-SA 3.0"
SONG_START_SECONDS = 60

SPEECH_TEXT = """A small lake lies high between two hills. In the morning the water is quite still, and the far shore
stands in it upside down. Nobody has built a road to it, so those who want to see it have to walk. Take bread and a
warm coat, because the wind turns in the afternoon. Which way would you go? Left of the stream the path is dry; on the
right there are shorter climbs, but three wet fields. We tried both, six times each, and always came back smiling."""


@dataclass
class Scene:
    """A stereo mix and its parts.

    rate    Hz
    stems   name -> mono signal [frames]
    gains   name -> (gain into left, gain into right); a stem on one side has one gain of zero
    settle  frames at the start that are not evaluated, because the systems under test still adapt
    """

    name: str
    rate: int
    stems: dict
    gains: dict
    settle: int

    def __post_init__(self):
        mix = sum(np.outer(self.stems[name], self.gains[name]) for name in self.stems)
        self.stereo = np.round(mix * 2**23) / 2**23
        if np.abs(self.stereo).max() >= 1.0:
            raise ValueError(f"scene {self.name} clips")


def pan_gains(degrees):
    """Gains (left, right) of the constant-power law; 0 degrees = hard left, 45 = centre, 90 = hard right."""
    if degrees in (0.0, 90.0):
        return (1.0, 0.0) if degrees == 0.0 else (0.0, 1.0)
    angle = np.radians(degrees)
    return float(np.cos(angle)), float(np.sin(angle))


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


def speech_kind(wanted):
    """'espeak-ng' or 'synthetic'; wanted is one of these or 'auto'."""
    if wanted == "auto":
        return "espeak-ng" if shutil.which("espeak-ng") else "synthetic"
    return wanted


def panned_noise(seed, degrees, seconds):
    """A source of pink noise on the pan law, with the same noise at every angle."""
    frames = round(seconds * RATE_HZ)
    noise = at_level(pink_noise(np.random.default_rng([seed, 1]), frames, RATE_HZ), NOISE_LEVEL_DB)
    return Scene(f"pan {degrees:g}", RATE_HZ, {"source": noise}, {"source": pan_gains(degrees)}, RATE_HZ)


def diffuse_noise(seed, seconds):
    """Independent pink noise left and right, equal power."""
    frames = round(seconds * RATE_HZ)
    generator = np.random.default_rng([seed, 2])
    stems = {side: at_level(pink_noise(generator, frames, RATE_HZ), NOISE_LEVEL_DB - 3) for side in ("left", "right")}
    return Scene("diffuse", RATE_HZ, stems, {"left": (1.0, 0.0), "right": (0.0, 1.0)}, RATE_HZ)


def dialogue(seed, seconds, speech):
    """Speech in the centre against independent pink noise hard left and hard right; all three have equal power."""
    frames = round(seconds * RATE_HZ)
    generator = np.random.default_rng([seed, 3])
    sides = {side: at_level(pink_noise(generator, frames, RATE_HZ), DIALOGUE_LEVEL_DB) for side in ("left", "right")}
    voice = espeak_speech(frames, RATE_HZ) if speech == "espeak-ng" else synthetic_speech(generator, frames, RATE_HZ)
    stems = {"speech": at_level(voice, DIALOGUE_LEVEL_DB), **sides}
    gains = {"speech": (HALF_POWER, HALF_POWER), "left": (1.0, 0.0), "right": (0.0, 1.0)}
    return Scene("dialogue", RATE_HZ, stems, gains, RATE_HZ)


def speech_over_music(half, index, level_db, seconds, rate=RATE_HZ):
    """Speech in the centre of a recording. level_db is the power of the speech relative to that of both channels."""
    music = recordings.music(recordings.tracks(half)[index], rate, seconds)
    level = 10 * np.log10(np.sum(np.mean(music**2, axis=0))) + level_db
    voice = at_level(recordings.speech(half, index, rate, seconds), level)
    gain = MUSIC_PEAK / np.abs(np.column_stack([voice, music])).max()
    stems = {"speech": gain * voice, "left": gain * music[:, 0], "right": gain * music[:, 1]}
    gains = {"speech": (HALF_POWER, HALF_POWER), "left": (1.0, 0.0), "right": (0.0, 1.0)}
    return Scene(f"speech over music {index}, {level_db:g} dB", rate, stems, gains, rate)


def recording(seconds):
    """Part of "Mutilated Mime" by Muldjord (El Senator), CC BY-SA 3.0, at its rate of 44.1 kHz; None if missing.

    The package has two stereo stems. The rhythm guitars, recorded twice, hard left and hard right, are not changed.
    The backing (drums, bass, voice) is mixed to mono and centred at its original level. It is nearly mono already: its
    side signal is 15 dB below its mid signal.
    """
    try:
        guitar, rate = soundfile.read(SONG_DIRECTORY / "guitar.ogg")
        backing, backing_rate = soundfile.read(SONG_DIRECTORY / "song.ogg")
    except (OSError, soundfile.LibsndfileError):
        return None
    assert rate == backing_rate
    part = slice(SONG_START_SECONDS * rate, round((SONG_START_SECONDS + seconds) * rate))
    stems = {"backing": backing[part].mean(axis=1) / HALF_POWER, "left": guitar[part, 0], "right": guitar[part, 1]}
    gains = {"backing": (HALF_POWER, HALF_POWER), "left": (1.0, 0.0), "right": (0.0, 1.0)}
    peak = max(np.abs(stems["backing"] * HALF_POWER + stems[side]).max() for side in ("left", "right"))
    stems = {name: stem * (RECORDING_PEAK / peak) for name, stem in stems.items()}
    return Scene("recording", rate, stems, gains, rate)


@dataclass
class Suite:
    """All scenes of one run. sweep holds PAN_SWEEP_DEGREES and the half-way pan, by angle; recording may be None."""

    sweep: dict
    diffuse: Scene
    dialogue: Scene
    recording: Scene
    speech: str


def build_suite(seed, quick, speech):
    """All scenes; quick makes them short enough for a test."""
    speech = speech_kind(speech)
    pans = sorted(PAN_SWEEP_DEGREES + [HALFWAY_PAN_DEGREES])
    return Suite(
        sweep={degrees: panned_noise(seed, degrees, 2 if quick else 5) for degrees in pans},
        diffuse=diffuse_noise(seed, 3 if quick else 20),
        dialogue=dialogue(seed, 5 if quick else 31, speech),
        recording=recording(5 if quick else 31),
        speech=speech,
    )
