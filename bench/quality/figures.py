"""The figures of the seeded scenes."""
# SPDX-License-Identifier: MIT

import numpy as np

import bass
import flutter
import localisation
import measures
import scenes
import transients
from rows import ROWS, flutter_key

# Length of the noise for the measurement of delay and block.
DELAY_NOISE_SECONDS = 1


def settled(scene, signal):
    """The evaluated part of a signal, after the settling time."""
    return signal[scene.settle :]


def run(system, scene):
    """Input [frames, 2] and aligned output [frames, 3] of a scene, after the settling time."""
    return settled(scene, scene.stereo), settled(scene, system.aligned(scene.stereo, scene.rate))


def timing(system, suite):
    """Delay and block size in frames, measured with a centred source."""
    rate = suite.diffuse.rate
    stereo = suite.sweep[45.0].stereo[: DELAY_NOISE_SECONDS * rate]
    delay = measures.delay_frames(stereo.sum(axis=1), system.stream(stereo, rate).sum(axis=1))
    aligned = measures.delay_frames(stereo.sum(axis=1), system.aligned(stereo, rate).sum(axis=1))
    block = measures.block_frames(lambda moved: system.stream(moved, rate), stereo)
    # A block of one frame adds no delay.
    both = None if block is None else delay + block - (block == 1)
    return {"delay": delay, "aligned_delay": aligned, "block": block, "delay_and_block": both}


def pan_sweep(system, suite):
    """Shares and levels over the pan: lists by angle in 'sweep', and the figures of the table."""
    shares, levels, gains = {}, {}, {}
    for degrees, scene in suite.sweep.items():
        stereo, outputs = run(system, scene)
        gains[degrees] = localisation.amplitude_gains(settled(scene, scene.stems["source"]), outputs)
        shares[degrees] = [float(share) for share in measures.shares(outputs)]
        levels[degrees] = measures.level_db(stereo, outputs)
    left, right, centre = 0, 1, measures.CENTRE
    halfway = scenes.HALFWAY_PAN_DEGREES
    grid = scenes.PAN_SWEEP_DEGREES
    opposite = [shares[degrees][right] for degrees in grid if degrees < 45]
    opposite += [shares[degrees][left] for degrees in grid if degrees > 45]
    located = localisation.figures([(scenes.pan_gains(degrees), gains[degrees]) for degrees in grid])
    return located | {
        "centred_in_c": shares[45.0][centre],
        "pan_22_5_in_c": shares[halfway][centre],
        "pan_15_in_c": shares[15.0][centre],
        "hard_left_in_c": shares[0.0][centre],
        "hard_right_in_c": shares[90.0][centre],
        "opposite_front_at_15": shares[halfway][right],
        "opposite_front_pan_15": shares[15.0][right],
        "opposite_front_mean": sum(opposite) / len(opposite),
        "sweep_level_min": min(levels[degrees] for degrees in grid),
        "sweep_level_max": max(levels[degrees] for degrees in grid),
        "sweep_level_span": max(levels[degrees] for degrees in grid) - min(levels[degrees] for degrees in grid),
        "sweep": {
            "pan_degrees": grid,
            "level_db": [levels[degrees] for degrees in grid],
            "share_fl": [shares[degrees][left] for degrees in grid],
            "share_fr": [shares[degrees][right] for degrees in grid],
            "share_c": [shares[degrees][centre] for degrees in grid],
        },
    }


def mixture(scene, outputs, centred, prefix):
    """Artefacts in C, and the shares of the centred stem and of the sides in C. outputs is a result of `run`."""
    names = list(scene.stems)
    stems = settled(scene, np.column_stack([scene.stems[name] for name in names]))
    contributions, residual, total = measures.explain(stems, outputs)
    sides = [index for index, name in enumerate(names) if name != centred]
    in_c = contributions[:, measures.CENTRE]
    return {
        f"{prefix}_artefacts": measures.ratio_db(residual[measures.CENTRE], total[measures.CENTRE]),
        f"{prefix}_{centred}_in_c": float(in_c[names.index(centred)] / contributions[names.index(centred)].sum()),
        f"{prefix}_sides_in_c": float(in_c[sides].sum() / contributions[sides].sum()),
    }


def fold_down(stereo, outputs, scene):
    """Error of the fold-down without and with level matching."""
    return {
        f"fold_down_error_{scene}": measures.fold_down_error_db(stereo, outputs),
        f"fold_down_shape_error_{scene}": measures.fold_down_error_db(stereo, outputs, best_gain=True),
    }


def moving_gains(system, suite):
    """What a side source that comes and goes does to C's gain and to the level."""
    found = {}
    for (period, level), scene in suite.flutter.items():
        stereo, outputs = run(system, scene)
        steady, other = (settled(scene, scene.stems[name]) for name in ("centre", "side"))
        gain, total = flutter.figures(steady, other, stereo, outputs, scene.rate)
        found |= {flutter_key(period, level, "gain"): gain, flutter_key(period, level, "level"): total}
    return found


def centred_bass(system, suite):
    """Level and movement of centred bass if all outputs add, solo and beside a side source that comes and goes."""
    found = {}
    for name, scene in (("solo", suite.sweep[45.0]), ("beside", suite.flutter[scenes.BASS_SIDE])):
        stereo, outputs = run(system, scene)
        steady, *others = (settled(scene, stem) for stem in scene.stems.values())
        other = others[0] if others else np.zeros(len(steady))
        level, moves = bass.figures(steady, other, stereo, outputs, scene.rate)
        found |= {f"bass_{name}_level": level, f"bass_{name}_movement": moves}
    return found


def events(system, scene, prefix):
    """Shares and pre-echo of the bursts or clicks after the settling time."""
    outputs = system.aligned(scene.stereo, scene.rate)
    settled_events = [(start, place) for start, place in scene.events if start >= scene.settle]
    found = transients.figures(outputs, settled_events, scene.rate)
    return {f"{prefix}_{key}": value for key, value in found.items()}


def measure(system, suite):
    """The figures of the seeded scenes for one system: key -> value; None if undefined, and for music."""
    figures = {row.key: None for row in ROWS}
    figures |= timing(system, suite)
    figures |= pan_sweep(system, suite)

    stereo, outputs = run(system, suite.diffuse)
    figures["diffuse_level"] = measures.level_db(stereo, outputs)
    figures["diffuse_in_c"] = float(measures.shares(outputs)[measures.CENTRE])
    figures |= fold_down(stereo, outputs, "diffuse")
    figures |= fold_down(*run(system, suite.sweep[45.0]), "centred")

    figures |= moving_gains(system, suite)
    figures |= centred_bass(system, suite)
    figures |= events(system, suite.bursts, "burst")
    figures |= events(system, suite.clicks, "click")

    _, outputs = run(system, suite.dialogue)
    figures |= mixture(suite.dialogue, outputs, "speech", "dialogue")
    if suite.recording:
        stereo, outputs = run(system, suite.recording)
        figures |= mixture(suite.recording, outputs, "backing", "recording")
        figures |= fold_down(stereo, outputs, "recording")
    return figures
