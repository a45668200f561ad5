"""The figures of real music and speech: each track, and the mean over the tracks."""
# SPDX-License-Identifier: MIT

from concurrent.futures import ProcessPoolExecutor
from functools import partial
import os

import numpy as np

import bass
import measures
import recordings
import rows
import scenes
import timbre
from figures import run, settled

# The tables of the engine are designed with one half of the tracks, so the other one shows whether that holds in general.
HALF_NAMES = {recordings.DESIGN_HALF: "design", recordings.CHECK_HALF: "check"}


def excerpts(limit=None):
    """The tracks as (half, index), at most limit of each half."""
    return [(half, index) for half in HALF_NAMES for index in range(len(recordings.tracks(half)))[:limit]]


def speech_figures(scene, outputs):
    """Speech over music: where the speech goes, artefacts, and C as an estimate of the speech.

    outputs is a result of `run`.
    """
    stems = settled(scene, np.column_stack([scene.stems[name] for name in ("speech", "left", "right")]))
    contributions, residual, total = measures.explain(stems, outputs, measures.COARSE_STFT_HOP, groups=[[0], [1, 2]])
    speech, music = contributions
    centre = measures.CENTRE
    return {
        "in_c": float(speech[centre] / speech.sum()),
        "artefacts_c": measures.ratio_db(residual[centre], total[centre]),
        "artefacts_all": measures.ratio_db(residual.sum(), total.sum()),
        "si_sdr": measures.si_sdr_db(stems[:, 0], outputs[:, centre]),
        "sir": measures.ratio_db(speech[centre], music[centre]),
        "sar": measures.ratio_db(total[centre] - residual[centre], residual[centre]),
    }


def timbre_figures(stereo, outputs, rate):
    """Third octaves and bass of music; None where the stereo has no signal."""
    levels = timbre.third_octave_levels(stereo, outputs, rate)
    bass_levels = bass.levels(stereo, outputs, rate)
    return {
        "third_octave_levels_db": [None if np.isnan(level) else float(level) for level in levels],
        "bass_mean": float(np.mean(bass_levels)),
        "bass_deviation": float(np.std(bass_levels)),
    }


def measure_track(excerpt, systems, seconds):
    """All figures of one track: label of the system -> figures."""
    half, index = excerpt
    about = {"track": recordings.tracks(half)[index].name, "half": HALF_NAMES[half]}
    results = {system.label: dict(about) for system in systems}
    for level in rows.SPEECH_LEVELS_DB:
        scene = scenes.speech_over_music(*excerpt, level, seconds)
        for system in systems:
            found = speech_figures(scene, run(system, scene)[1])
            results[system.label] |= {rows.speech_key(level, measure): value for measure, value in found.items()}
    scene = scenes.music_alone(*excerpt, seconds)
    for system in systems:
        results[system.label] |= timbre_figures(*run(system, scene), scene.rate)
    return results


def mean(values):
    """Mean of the values that are not None; None if there is none."""
    values = [value for value in values if value is not None]
    return float(np.mean(values)) if values else None


def summary(tracks):
    """The figures of the table from those of the tracks, which stay in 'tracks'."""
    bands = [mean(levels) for levels in zip(*(track["third_octave_levels_db"] for track in tracks))]
    worst = max((band for band in range(len(bands)) if bands[band] is not None), key=lambda band: abs(bands[band]))
    keys = [key for key in tracks[0] if key not in ("track", "half", "third_octave_levels_db")]
    return {key: mean([track[key] for track in tracks]) for key in keys} | {
        "third_octave_worst": bands[worst],
        "third_octave_worst_hz": timbre.THIRD_OCTAVES_HZ[worst] if bands[worst] else None,
        "third_octaves": {"centre_hz": timbre.THIRD_OCTAVES_HZ, "level_db": bands},
        "tracks": tracks,
    }


def measure(systems, seconds=recordings.EXCERPT_SECONDS, limit=None, progress=lambda done, total: None):
    """All figures of the systems: label -> key -> value. Every processor measures one track at a time."""
    chosen = excerpts(limit)
    tracks = []
    with ProcessPoolExecutor(os.cpu_count()) as pool:
        for result in pool.map(partial(measure_track, systems=systems, seconds=seconds), chosen):
            tracks.append(result)
            progress(len(tracks), len(chosen))
    return {system.label: summary([track[system.label] for track in tracks]) for system in systems}
