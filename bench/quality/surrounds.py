#!/usr/bin/python3
"""Measures surround channels: Tarn beside FFmpeg's surround=5.1 and the passive difference of left and right.

    bench/quality/surrounds.py [--tarn PATH] [--write-docs]

Prints the tables of docs/quality.md: the comparison, two pairs of surround channels, all sample rates. --write-docs writes
them and the pictures into the page. Needs what quality.py needs, and three minutes of processor time.
"""
# SPDX-License-Identifier: MIT

from concurrent.futures import ProcessPoolExecutor
from dataclasses import dataclass
from functools import partial
import os

import doc_table
from doc_table import Row, Table

import numpy as np

import measures
import recordings
import scenes
from signals import at_level, on_and_off, pink_noise
import surround_plots
from surround_systems import BEHIND, FIRST_BEHIND, Ffmpeg51, PassiveDifference, RATE_HZ, RATES_HZ, Tarn

SECONDS = 15
SETTLE = RATE_HZ  # frames at the start that are not evaluated
PANS_DEGREES = (15.0, 22.5, 30.0, 40.0, 60.0)
SWEEP_DEGREES = (0.0, 5.0, 10.0, 15.0, 20.0, 22.5, 25.0, 30.0, 35.0, 40.0, 45.0)
FIELD_DB = -6.0  # of the noise beside a panned source


@dataclass(frozen=True)
class Extent:
    """How much is measured: rooms, and one of how many tracks of each half."""

    rooms: int
    every: int

    def tracks(self):
        return [(half, index) for half in (0, 1) for index in range(len(recordings.tracks(half)))[:: self.every]]


ALL = Extent(8, 1)
FEW = Extent(4, 4)


def share_behind(outputs, channels=BEHIND):
    """Share of the surround channels in the power of all outputs."""
    powers = measures.power(outputs[SETTLE:])
    return powers[channels].sum() / powers.sum()


def leak(system, stems, stereo, fronts=(2,)):
    """Power of the first stem behind relative to that in some fronts, artefacts in all outputs behind, shares."""
    outputs = system.without_chains(system.outputs(stereo))
    usable = slice(SETTLE, len(stereo) - SETTLE)
    contributions, residual, total = measures.explain(stems[usable], outputs[usable], measures.COARSE_STFT_HOP)
    source = contributions[0]
    others = contributions[1:].sum(axis=0)
    return {
        "leak": measures.ratio_db(source[BEHIND].sum(), source[list(fronts)].sum()),
        "artefacts": measures.ratio_db(residual[BEHIND].sum(), total.sum()),
        "others_behind": others[BEHIND].sum() / others.sum(),
    }


def correlations(outputs):
    """Magnitudes of the correlations behind: of each pair, and the largest between channels of different pairs."""
    found = np.abs(np.corrcoef(outputs[SETTLE:, BEHIND].T))
    results = {"first_pair": found[0, 1]}
    if len(found) > 2:
        results |= {"second_pair": found[2, 3], "between_pairs": found[:2, 2:].max()}
    return {pairs: float(value) for pairs, value in results.items()}


def reverberant_figures(system, rooms):
    """Leak of speech in its reverberation and the share of this behind, means over several rooms."""
    found = []
    for room in range(rooms):
        speech = at_level(recordings.speech(recordings.DESIGN_HALF, room, RATE_HZ, SECONDS), -25)
        sides = np.column_stack(scenes.reverberation(speech, np.random.default_rng([3, room])))
        stereo = sides + scenes.HALF_POWER * speech[:, None]
        found.append(leak(system, np.column_stack([speech, sides]), stereo))
    return {
        "reverberant_leak": float(np.mean([room["leak"] for room in found])),
        "reverberation_behind": float(np.mean([room["others_behind"] for room in found])),
    }


def panned_in_noise(system, source, noise, degrees):
    """Level of a panned source behind relative to the fronts, beside diffuse noise."""
    stereo = np.outer(source, scenes.pan_gains(degrees)) + noise
    return leak(system, np.column_stack([source, noise]), stereo, (0, 1, 2))["leak"]


def panned_alone(system, source, degrees):
    """Level of a panned source behind; None if it is silent."""
    outputs = system.outputs(np.outer(source, scenes.pan_gains(degrees)))
    return measures.ratio_db(measures.power(outputs[SETTLE:])[BEHIND].sum(), np.mean(source[SETTLE:] ** 2))


def noises():
    """Pink noise: left, right, and a source with the power of both."""
    generator = np.random.default_rng(2)
    left, right, source = (at_level(pink_noise(generator, SECONDS * RATE_HZ, RATE_HZ), -28) for _ in range(3))
    return left, right, at_level(source, -25)


def pumping(system, noise, source):
    """Change of the level behind as a centred source comes and goes."""
    switched = source * on_and_off(len(source), 2 * RATE_HZ, round(scenes.FLUTTER_RAMP_SECONDS * RATE_HZ))
    outputs = system.outputs(noise + scenes.HALF_POWER * switched[:, None])[SETTLE:, BEHIND]
    powers = [outputs[first : first + RATE_HZ // 2].var() for first in range(RATE_HZ // 4, len(outputs), RATE_HZ)]
    return abs(measures.ratio_db(np.mean(powers[0::2]), np.mean(powers[1::2])))


def generated_figures(system):
    """The figures of noise and of speech over noise."""
    left, right, source = noises()
    speech = at_level(recordings.speech(recordings.DESIGN_HALF, 0, RATE_HZ, SECONDS), -25)
    diffuse = np.column_stack([left, right])
    panned = [panned_alone(system, source, degrees) for degrees in PANS_DEGREES]
    field = system.outputs(diffuse)
    spoken = leak(system, np.column_stack([speech, diffuse]), diffuse + scenes.HALF_POWER * speech[:, None])
    return {
        "panned": max((level for level in panned if level is not None), default=None),
        "diffuse_behind": share_behind(field),
        "diffuse_first_pair": share_behind(field, slice(FIRST_BEHIND, FIRST_BEHIND + 2)),
        "diffuse_second_pair": share_behind(field, slice(FIRST_BEHIND + 2, None)),
        "diffuse_level": measures.level_db(diffuse[SETTLE:], field[SETTLE:]),
        **{f"diffuse_correlation_{pairs}": value for pairs, value in correlations(field).items()},
        "opposite_behind": share_behind(system.outputs(np.column_stack([left, -left]))),
        "speech_leak": spoken["leak"],
        "speech_artefacts": spoken["artefacts"],
        "half_left_leak": panned_in_noise(system, source, 10 ** (FIELD_DB / 20) * diffuse, scenes.HALFWAY_PAN_DEGREES),
        "pumping": pumping(system, diffuse, source),
    }


def pan_sweep(compared, pool):
    """Levels of a panned source behind over SWEEP_DEGREES, alone and in noise: label -> levels in dB or None."""
    left, right, source = noises()
    quiet = 10 ** (FIELD_DB / 20) * np.column_stack([left, right])
    found = {"degrees": SWEEP_DEGREES, "noise_db": FIELD_DB, "alone": {}, "in_noise": {}}
    for system in compared:
        found["alone"][system.label] = list(pool.map(partial(panned_alone, system, source), SWEEP_DEGREES))
        found["in_noise"][system.label] = list(pool.map(partial(panned_in_noise, system, source, quiet), SWEEP_DEGREES))
    return found


def track_figures(track, system):
    """The figures of a track, given as (half, index), with speech at its power."""
    scene = scenes.speech_over_music(*track, 0.0, SECONDS)
    found = leak(system, np.column_stack([scene.stems[name] for name in ("speech", "left", "right")]), scene.stereo)
    return found | correlations(system.outputs(scenes.music_alone(*track, SECONDS).stereo))


def measure(system, pool, extent):
    """All figures of a system."""
    generated = pool.submit(generated_figures, system)
    reverberant = pool.submit(reverberant_figures, system, extent.rooms)
    found = list(pool.map(partial(track_figures, system=system), extent.tracks()))
    leaks = [track["leak"] for track in found]
    pairs = [key for key in found[0] if key.endswith(("_pair", "_pairs"))]
    music = {
        "music_leaks": leaks,
        "music_leak_mean": float(np.mean(leaks)),
        "music_leak_worst": max(leaks),
        "music_artefacts": float(np.mean([track["artefacts"] for track in found])),
    }
    music |= {f"music_correlation_{key}": max(track[key] for track in found) for key in pairs}
    return generated.result() | reverberant.result() | music


PANNED = Row("panned", f"panned source behind (worst of {len(PANS_DEGREES)} pans)", "dB")
DIFFUSE = [
    Row("diffuse_behind", "diffuse noise, share behind", "%"),
    Row("diffuse_level", "diffuse noise, level of all outputs", "dB"),
]
DIFFUSE_CORRELATION = Row("diffuse_correlation_first_pair", "diffuse noise, correlation behind", "1", 2)
SOURCES = [
    Row("opposite_behind", "opposite phase, share behind", "%"),
    Row("speech_leak", "speech in diffuse noise: behind relative to C", "dB"),
    Row("speech_artefacts", "speech in diffuse noise: artefacts behind relative to all outputs", "dB"),
    Row("half_left_leak", f"half-left source in noise at {FIELD_DB:g} dB: behind relative to the fronts", "dB"),
    Row(
        "reverberant_leak",
        f"speech in reverberation of {scenes.REVERBERATION_SECONDS:g} s at {scenes.REVERBERATION_LEVEL_DB:g} dB: "
        "behind relative to C, mean of the rooms",
        "dB",
    ),
    Row("reverberation_behind", "reverberation, share behind", "%"),
    Row("pumping", "steady noise behind beside a centred source that comes and goes: change of level", "dB"),
    Row("music_leak_mean", "speech over music: behind relative to C, mean of the tracks", "dB"),
    Row("music_leak_worst", "speech over music: behind relative to C, worst track", "dB"),
    Row("music_artefacts", "speech over music: artefacts behind relative to all outputs, mean", "dB"),
]
MUSIC_CORRELATION = Row("music_correlation_first_pair", "music, correlation behind, worst track", "1", 2)

ROWS = [PANNED, *DIFFUSE, DIFFUSE_CORRELATION, *SOURCES, MUSIC_CORRELATION]
PAIR_ROWS = [
    PANNED,
    *DIFFUSE,
    Row("diffuse_first_pair", "diffuse noise, share of the first pair", "%"),
    Row("diffuse_second_pair", "diffuse noise, share of the second pair", "%"),
    *SOURCES,
    *(
        Row(f"{scene}_correlation_{key}", f"{title}: correlation {pairs}", "1", 2)
        for scene, title in (("diffuse", "diffuse noise"), ("music", "music, worst track"))
        for key, pairs in (
            ("first_pair", "of the first pair"),
            ("second_pair", "of the second pair"),
            ("between_pairs", "of two channels of different pairs, the largest"),
        )
    ),
]


def tables(tarn):
    """The tables and the pictures."""
    with ProcessPoolExecutor(os.cpu_count()) as pool:
        compared = [Tarn(tarn), Ffmpeg51(), PassiveDifference()]
        results = {system.label: measure(system, pool, ALL) for system in compared}
        sweep = pan_sweep(compared, pool)
        two_pairs = measure(Tarn(tarn, "7.1", "7.1"), pool, ALL)
        rates = {}
        for rate_hz in RATES_HZ:
            system = Tarn(tarn, f"{rate_hz / 1000:g} kHz", rate_hz=rate_hz)
            rates[system.label] = measure(system, pool, FEW)
    return [
        Table(ROWS, results, [partial(surround_plots.draw, sweep=sweep)]),
        Table(PAIR_ROWS, {"5.1": results["Tarn"], "7.1": two_pairs}, part="two pairs"),
        Table(ROWS, rates, part="rates"),
    ]


if __name__ == "__main__":
    doc_table.main("surrounds", __doc__, tables)
