"""Test scenes: mono stems at known positions in a stereo mix.

Signals are float64, full scale = 1.0, time along the first axis. Every random signal depends only on the
seed of the caller. A mix is rounded to 24 bits once, so that all systems under test get the same samples.
"""
# SPDX-License-Identifier: MIT

from dataclasses import dataclass

import numpy as np
import scipy.signal
import soundfile

import recordings
import voices
from signals import at_level, decaying_noise, on_and_off, pink_noise

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

SONG_PACKAGE = "fretsonfire-songs-muldjord"
SONG_DIRECTORY = recordings.FOLDER / SONG_PACKAGE / "usr/share/games/fretsonfire/data/songs/muldjord/mutilated_mime"
SONG_CREDIT = "Mutilated Mime by Muldjord (El Senator), CC BY-SA 3.0"
SONG_START_SECONDS = 60

# A steady centred source beside a source on the left that comes and goes.
FLUTTER_LEVEL_DB = -25.0  # the centred source
FLUTTER_RAMP_SECONDS = 0.005
FLUTTER_PERIODS_SECONDS = [0.25, 1.0, 2.0]
FLUTTER_SIDE_LEVELS_DB = [-6.0, 0.0, 6.0]  # of the left source while it is on, relative to the centred one
BASS_SIDE = (2.0, 0.0)  # period and level of the left source beside centred bass

REVERBERATION_SECONDS = 0.4  # until the level has fallen by 60 dB
REVERBERATION_LEVEL_DB = -6.0  # of both sides together, relative to the dry speech
REVERBERATION_DELAY_SECONDS = 0.1  # more than the window of the measurement, so that it counts as another stem

# Bursts and clicks in changing places.
PLACES = ("left", "right", "centre")  # in the order of the outputs FL FR C
BURST_SECONDS = 0.1
BURST_TIME_CONSTANT_SECONDS = 0.015
BURST_LEVEL = 0.1  # of the noise at the start
BURST_INTERVAL_SECONDS = 0.2
BURSTS = 90
CLICK_LEVEL = 0.5
CLICK_INTERVAL_SECONDS = 1.0


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
    voice = voices.speech(speech, generator, frames, RATE_HZ)
    stems = {"speech": at_level(voice, DIALOGUE_LEVEL_DB), **sides}
    gains = {"speech": (HALF_POWER, HALF_POWER), "left": (1.0, 0.0), "right": (0.0, 1.0)}
    return Scene("dialogue", RATE_HZ, stems, gains, RATE_HZ)


def flutter(seed, seconds, period_seconds, side_level_db, rate=RATE_HZ):
    """Steady centred pink noise beside pink noise hard left, which is on in the first half of each period."""
    frames, ramp = round(seconds * rate), round(FLUTTER_RAMP_SECONDS * rate)
    generator = np.random.default_rng([seed, 4])
    centre = at_level(pink_noise(generator, frames, rate), FLUTTER_LEVEL_DB)
    side = at_level(pink_noise(generator, frames, rate), FLUTTER_LEVEL_DB + side_level_db)
    stems = {"centre": centre, "side": side * on_and_off(frames, round(period_seconds * rate), ramp)}
    gains = {"centre": (HALF_POWER, HALF_POWER), "side": (1.0, 0.0)}
    return Scene(f"flutter {period_seconds:g} s, {side_level_db:g} dB", rate, stems, gains, 2 * rate)


@dataclass
class EventScene(Scene):
    """A scene of short events. events: (frame of the start, index in PLACES), those before `settle` too."""

    events: list


def _events(name, generator, shapes, interval_seconds, rate):
    """Places the shapes one after the other, never twice in the same place."""
    interval = round(interval_seconds * rate)
    stems = {place: np.zeros((len(shapes) + 1) * interval) for place in PLACES}
    gains = {"left": (1.0, 0.0), "right": (0.0, 1.0), "centre": (HALF_POWER, HALF_POWER)}
    events, place = [], 0
    for index, shape in enumerate(shapes):
        place = (place + int(generator.integers(1, len(PLACES)))) % len(PLACES)
        start = (index + 1) * interval
        stems[PLACES[place]][start : start + len(shape)] = shape
        events.append((start, place))
    return EventScene(name, rate, stems, gains, rate, events)


def bursts(seed, count, rate=RATE_HZ):
    """Decaying noise bursts in changing places, with digital silence between them."""
    generator = np.random.default_rng([seed, 5])
    frames, time_constant = round(BURST_SECONDS * rate), BURST_TIME_CONSTANT_SECONDS * rate
    shapes = [BURST_LEVEL * decaying_noise(generator, frames, time_constant) for _ in range(count)]
    return _events("bursts", generator, shapes, BURST_INTERVAL_SECONDS, rate)


def clicks(seed, count):
    """Single samples in changing places, with digital silence between them."""
    shapes = [np.array([CLICK_LEVEL])] * count
    return _events("clicks", np.random.default_rng([seed, 6]), shapes, CLICK_INTERVAL_SECONDS, RATE_HZ)


def speech_over_music(half, index, level_db, seconds, rate=RATE_HZ):
    """Speech in the centre of a recording. level_db is the power of the speech relative to that of both channels."""
    music = recordings.music(recordings.tracks(half)[index], rate, seconds)
    level = 10 * np.log10(np.sum(np.mean(music**2, axis=0))) + level_db
    voice = at_level(recordings.speech(half, index, rate, seconds), level)
    gain = MUSIC_PEAK / np.abs(np.column_stack([voice, music])).max()
    stems = {"speech": gain * voice, "left": gain * music[:, 0], "right": gain * music[:, 1]}
    gains = {"speech": (HALF_POWER, HALF_POWER), "left": (1.0, 0.0), "right": (0.0, 1.0)}
    return Scene(f"speech over music {index}, {level_db:g} dB", rate, stems, gains, rate)


def music_alone(half, index, seconds, rate=RATE_HZ):
    """A recording without speech."""
    channels = recordings.music(recordings.tracks(half)[index], rate, seconds)
    channels *= MUSIC_PEAK / np.abs(channels).max()
    stems = {"left": channels[:, 0], "right": channels[:, 1]}
    return Scene(f"music {index}", rate, stems, {"left": (1.0, 0.0), "right": (0.0, 1.0)}, rate)


def reverberation(dry, generator):
    """Independent reverberation left and right."""
    time = np.arange(round(REVERBERATION_SECONDS * RATE_HZ)) / RATE_HZ
    envelope = 10 ** (-3 * time / REVERBERATION_SECONDS)
    delay = np.zeros(round(REVERBERATION_DELAY_SECONDS * RATE_HZ))
    responses = [np.concatenate([delay, envelope * generator.standard_normal(len(time))]) for _ in range(2)]
    sides = [scipy.signal.fftconvolve(dry, response)[: len(dry)] for response in responses]
    level = 10 * np.log10(np.mean(dry**2)) + REVERBERATION_LEVEL_DB - 3
    return [at_level(side, level) for side in sides]


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
    """The seeded scenes and the recording with known stems.

    sweep       PAN_SWEEP_DEGREES and the half-way pan, by angle
    flutter     by (period in seconds, level of the side in dB)
    recording   None if it is not downloaded
    """

    sweep: dict
    diffuse: Scene
    dialogue: Scene
    flutter: dict
    bursts: EventScene
    clicks: EventScene
    recording: Scene
    speech: str


def build_suite(seed, quick, speech):
    """All scenes; quick makes them short enough for a test."""
    speech = voices.kind(speech)
    pans = sorted(PAN_SWEEP_DEGREES + [HALFWAY_PAN_DEGREES])
    gated = [(period, level) for period in FLUTTER_PERIODS_SECONDS for level in FLUTTER_SIDE_LEVELS_DB]
    return Suite(
        sweep={degrees: panned_noise(seed, degrees, 2 if quick else 5) for degrees in pans},
        diffuse=diffuse_noise(seed, 3 if quick else 20),
        dialogue=dialogue(seed, 5 if quick else 31, speech),
        flutter={key: flutter(seed, 5 if quick else 16, *key) for key in gated},
        bursts=bursts(seed, 20 if quick else BURSTS),
        clicks=clicks(seed, 8 if quick else 20),
        recording=recording(5 if quick else 31),
        speech=speech,
    )
