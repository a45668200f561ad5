#!/usr/bin/python3
"""Measures louder and softer voices on two loudspeakers: `tarn upmix --layout 2.0` beside other ways.

    bench/quality/dialogue.py [--tarn PATH] [--write-docs]

Prints the table of docs/quality.md; --write-docs writes it into the page. Needs what quality.py needs. It takes about two
minutes.
"""
# SPDX-License-Identifier: MIT

from concurrent.futures import ProcessPoolExecutor
from functools import partial
import os

import doc_table
from doc_table import Row, Table

import numpy as np

import dialogue_plots
import measures
import recordings
import scenes
import systems
from signals import at_level, pink_noise

RATE_HZ = scenes.RATE_HZ
SECONDS = 15
LOUDER_DB, SOFTER_DB = 6.0, -60.0
GAINS_DB = (LOUDER_DB, SOFTER_DB)
LEVEL_DB = -34.0  # of the speech and of the ambience, which has loud moments
SOUNDS_PACKAGE = "supertuxkart-data"
SOUNDS_FOLDER = "usr/share/games/supertuxkart/data/sfx"
# A mono recording gives two sides: the second one begins in its middle.
SOUNDS = {
    "rain": "rain.ogg",
    "cheers": "goal_scored.ogg",
    "restaurant": "lenautile_restaurant.ogg",
    "river": "river_loop.ogg",
}
TALKERS = 24


def factor(gain_db):
    return 10 ** (gain_db / 20)


class Tarn:
    """`tarn upmix --layout 2.0 --centre GAIN`."""

    label = "Tarn"

    def __init__(self, command):
        self.command = command

    def outputs(self, stereo, gain_db):
        options = ["--preset", "plain", "--layout", "2.0", "--centre", gain_db]
        return systems.upmix(self.command, stereo, RATE_HZ, options)


class Middle:
    """The middle of the stereo, (L + R) / 2, at another level."""

    label = "middle"

    def outputs(self, stereo, gain_db):
        return stereo + (factor(gain_db) - 1) * stereo.mean(axis=1, keepdims=True)


class Stereo:
    """The stereo itself."""

    label = "stereo"

    def outputs(self, stereo, gain_db):
        return stereo


class Dialoguenhance:
    """FFmpeg's filter, whose centre is added to both sides such that speech alone has the gain.

    For softer voices, the centre is taken without enhancement. The filter itself leaves left and right as they are.
    """

    label = "FFmpeg dialoguenhance"

    def __init__(self):
        graphs = {LOUDER_DB: "dialoguenhance", SOFTER_DB: "dialoguenhance=enhance=0"}
        self.filters = {gain_db: systems.FfmpegFilter(graph, graph) for gain_db, graph in graphs.items()}
        speech = at_level(recordings.speech(recordings.DESIGN_HALF, 0, RATE_HZ, SECONDS), LEVEL_DB)
        self.levels = {gain_db: self.speech_level(speech, gain_db) for gain_db in graphs}

    def speech_level(self, speech, gain_db):
        """Amplitude of centred speech in the centre."""
        stereo = np.column_stack([speech, speech])
        centre = self.filters[gain_db].aligned(stereo, RATE_HZ)[:, measures.CENTRE]
        return np.vdot(speech, centre) / np.vdot(speech, speech)

    def outputs(self, stereo, gain_db):
        centre = self.filters[gain_db].aligned(stereo, RATE_HZ)[:, [measures.CENTRE]]
        return stereo + (factor(gain_db) - 1) / self.levels[gain_db] * centre


class FoldedDialoguenhance(Dialoguenhance):
    """The same as ffmpeg folds it to stereo (-ac 2); only louder."""

    label = "FFmpeg dialoguenhance, -ac 2"

    def outputs(self, stereo, gain_db):
        if gain_db != LOUDER_DB:
            return None
        return measures.fold_down(self.filters[gain_db].aligned(stereo, RATE_HZ))


def figures(system, speech, rest, gain_db):
    """The figures of speech, a centred mono signal, over the rest, [frames, 2]; empty if the system has no such gain."""
    stems = np.column_stack([speech, rest])
    stereo = rest + scenes.HALF_POWER * speech[:, None]
    outputs = system.outputs(stereo, gain_db)
    if outputs is None:
        return {}
    usable = slice(RATE_HZ, len(stereo) - RATE_HZ)

    def explained(signals):
        return measures.explain(stems[usable], signals[usable], measures.COARSE_STFT_HOP, groups=[[0], [1, 2]])

    before = explained(stereo)[0].sum(axis=1)
    contributions, residual, total = explained(outputs)
    speech_gain, rest_gain = (measures.ratio_db(*pair) for pair in zip(contributions.sum(axis=1), before))
    target = np.column_stack([speech, speech]) if gain_db > 0 else rest
    return {
        "speech": speech_gain,
        "rest": rest_gain,
        "relative": speech_gain - rest_gain,
        "artefacts": measures.ratio_db(residual.sum(), total.sum()),
        "si_sdr": measures.si_sdr_db(target[usable], outputs[usable]),
    }


def sound(name):
    """A recording of ambience: [frames, 2]."""
    path = recordings.FOLDER / SOUNDS_PACKAGE / SOUNDS_FOLDER / SOUNDS[name]
    samples = recordings.read(path, RATE_HZ)
    if samples.shape[1] == 1:
        samples = np.column_stack([samples, np.roll(samples, len(samples) // 2, axis=0)])
    return np.resize(samples, (SECONDS * RATE_HZ, 2))


def crowd(generator):
    """Talkers in changing directions, with independent reverberation left and right."""
    mix = np.zeros((SECONDS * RATE_HZ, 2))
    for talker in range(TALKERS):
        voice = np.roll(
            at_level(recordings.speech(recordings.CHECK_HALF, talker % 12, RATE_HZ, SECONDS), 0),
            generator.integers(SECONDS * RATE_HZ),
        )
        mix += np.outer(voice, scenes.pan_gains(generator.uniform(1, 89)))
        mix += np.column_stack(scenes.reverberation(voice, generator))
    return mix


def ambience(name):
    """Speech and an ambience of equal power; the power of the ambience is that of both sides."""
    generator = np.random.default_rng([5, len(name)])
    speech = at_level(recordings.speech(recordings.DESIGN_HALF, 0, RATE_HZ, SECONDS), LEVEL_DB)
    if name == "noise":
        rest = np.column_stack([pink_noise(generator, len(speech), RATE_HZ) for _ in range(2)])
    elif name == "crowd":
        rest = crowd(generator)
    elif name == "reverberation":
        rest = np.column_stack(scenes.reverberation(speech, generator))
    else:
        rest = sound(name)
    return speech, at_level(rest, LEVEL_DB - 3)


def music(track):
    """Speech over a track, given as (half, index), at equal power."""
    scene = scenes.speech_over_music(*track, 0.0, SECONDS)
    return scene.stems["speech"], np.column_stack([scene.stems["left"], scene.stems["right"]])


AMBIENCES = ("noise", *SOUNDS, "crowd", "reverberation")


def scene_figures(scene, compared):
    """The figures of a scene, the name of an ambience or a track: (label, gain) -> figures."""
    speech, rest = ambience(scene) if scene in AMBIENCES else music(scene)
    return {
        (system.label, gain_db): figures(system, speech, rest, gain_db) for system in compared for gain_db in GAINS_DB
    }


def key(gain_db, scene, measure):
    return f"{scene}_{gain_db:g}_{measure}"


def summary(found, label):
    """The figures of the table for one system. found: scene -> result of scene_figures."""
    groups = {"music": [scene for scene in found if scene not in AMBIENCES], "ambience": AMBIENCES}
    groups |= {name: [name] for name in AMBIENCES}
    results = {}
    for gain_db in GAINS_DB:
        for group, members in groups.items():
            each = [found[scene][label, gain_db] for scene in members]
            for measure in each[0]:
                values = [member[measure] for member in each]
                results[key(gain_db, group, measure)] = float(np.mean(values))
                results[key(gain_db, group, f"{measure}_least")] = min(values)
    return results


def tables(tarn):
    """The table, with the figures of all systems."""
    compared = [Tarn(tarn), Dialoguenhance(), FoldedDialoguenhance(), Middle(), Stereo()]
    chosen = [*AMBIENCES, *((half, index) for half in (0, 1) for index in range(len(recordings.tracks(half))))]
    with ProcessPoolExecutor(os.cpu_count()) as pool:
        found = dict(zip(chosen, pool.map(partial(scene_figures, compared=compared), chosen)))
    results = {system.label: summary(found, system.label) for system in compared}
    return [Table(ROWS, results, (partial(dialogue_plots.draw, found=found),))]


def _rows(gain_db, title, si_sdr):
    rows = []
    for group, name in (("music", "music, mean of the tracks"), ("ambience", "ambience, mean")):
        where = f"{title}, {name}"
        rows += [
            Row(key(gain_db, group, "relative"), f"{where}: speech relative to the rest", "dB"),
            Row(key(gain_db, group, "speech"), f"{where}: level of the speech", "dB"),
            Row(key(gain_db, group, "rest"), f"{where}: level of the rest", "dB"),
            Row(key(gain_db, group, "artefacts"), f"{where}: artefacts", "dB"),
            Row(key(gain_db, group, "si_sdr"), f"{where}: SI-SDR, {si_sdr}", "dB"),
        ]
    return rows


ROWS = [
    *_rows(LOUDER_DB, f"{LOUDER_DB:+g} dB", "as the speech"),
    Row(
        key(LOUDER_DB, "music", "relative_least"),
        f"{LOUDER_DB:+g} dB, music, worst track: speech relative to the rest",
        "dB",
    ),
    *(
        Row(key(LOUDER_DB, name, "relative"), f"{LOUDER_DB:+g} dB, {name}: speech relative to the rest", "dB")
        for name in AMBIENCES
    ),
    *_rows(SOFTER_DB, f"{SOFTER_DB:+g} dB", "as the rest"),
]


if __name__ == "__main__":
    doc_table.main("dialogue", __doc__, tables)
