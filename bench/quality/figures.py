"""The figures of the report: measure, scene and title of each."""
# SPDX-License-Identifier: MIT

from dataclasses import dataclass

import numpy as np

import measures
import scenes

# Length of the noise for the measurement of delay and block.
DELAY_NOISE_SECONDS = 1


@dataclass(frozen=True)
class Row:
    """One line of the table. unit is 'frames', '%' (stored as a fraction) or 'dB'; key is the name in the JSON file."""

    key: str
    title: str
    unit: str


ROWS = [
    Row("delay", "delay of the stream", "frames"),
    Row("block", "block size", "frames"),
    Row("delay_and_block", "delay in a live host: sum of both", "frames"),
    Row("centred_in_c", "solo centred source, share in C", "%"),
    Row("pan_22_5_in_c", "solo source half way (pan 22.5 deg), share in C", "%"),
    Row("pan_15_in_c", "solo source at pan 15 deg, share in C", "%"),
    Row("hard_left_in_c", "solo source hard left, share in C", "%"),
    Row("hard_right_in_c", "solo source hard right, share in C", "%"),
    Row("opposite_front_at_15", "opposite front at 15 degrees (1)", "%"),
    Row("opposite_front_pan_15", "opposite front at pan 15 deg", "%"),
    Row("opposite_front_mean", "opposite front, mean of the sweep without centre", "%"),
    Row("sweep_level_min", "level over the pan sweep, lowest", "dB"),
    Row("sweep_level_max", "level over the pan sweep, highest", "dB"),
    Row("sweep_level_span", "level over the pan sweep, difference", "dB"),
    Row("diffuse_level", "level of diffuse noise", "dB"),
    Row("diffuse_in_c", "diffuse noise, share in C", "%"),
    Row("dialogue_artefacts", "artefacts in C, dialogue (2)", "dB"),
    Row("dialogue_speech_in_c", "dialogue: speech, share in C (3)", "%"),
    Row("dialogue_sides_in_c", "dialogue: noise of the sides, share in C (3)", "%"),
    Row("recording_artefacts", "artefacts in C, recording (2)", "dB"),
    Row("recording_backing_in_c", "recording: centred stem, share in C (3)", "%"),
    Row("recording_sides_in_c", "recording: guitars of the sides, share in C (3)", "%"),
    Row("fold_down_error_diffuse", "fold-down error, diffuse noise (4)", "dB"),
    Row("fold_down_error_centred", "fold-down error, centred source (4)", "dB"),
    Row("fold_down_error_recording", "fold-down error, recording (4)", "dB"),
    Row("fold_down_shape_error_diffuse", "the same after level matching, diffuse noise", "dB"),
    Row("fold_down_shape_error_centred", "the same after level matching, centred source", "dB"),
    Row("fold_down_shape_error_recording", "the same after level matching, recording", "dB"),
]

FOOTNOTES = [
    "(1) Share of the power of all outputs. The loudspeakers are at 30 degrees, the source at 15, half way between "
    "side and centre: pan 22.5 on the constant-power law from 0 (hard left) to 90 (hard right).",
    "(2) Energy in C that no fixed filters of the known stems explain, relative to the energy of C: STFT 4096/1024, "
    "Hann window, least squares per bin.",
    "(3) Share of C in the energy that the stem contributes to all three outputs through those fixed filters.",
    "(4) FL + 0.707 C and FR + 0.707 C minus the input, relative to the input.",
]


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
    shares, levels = {}, {}
    for degrees, scene in suite.sweep.items():
        stereo, outputs = run(system, scene)
        shares[degrees] = [float(share) for share in measures.shares(outputs)]
        levels[degrees] = measures.level_db(stereo, outputs)
    left, right, centre = 0, 1, measures.CENTRE
    halfway = scenes.HALFWAY_PAN_DEGREES
    grid = scenes.PAN_SWEEP_DEGREES
    opposite = [shares[degrees][right] for degrees in grid if degrees < 45]
    opposite += [shares[degrees][left] for degrees in grid if degrees > 45]
    return {
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


def measure(system, suite):
    """All figures of one system: key -> value, None if undefined."""
    figures = {row.key: None for row in ROWS}
    figures |= timing(system, suite)
    figures |= pan_sweep(system, suite)

    stereo, outputs = run(system, suite.diffuse)
    figures["diffuse_level"] = measures.level_db(stereo, outputs)
    figures["diffuse_in_c"] = float(measures.shares(outputs)[measures.CENTRE])
    figures |= fold_down(stereo, outputs, "diffuse")
    figures |= fold_down(*run(system, suite.sweep[45.0]), "centred")

    _, outputs = run(system, suite.dialogue)
    figures |= mixture(suite.dialogue, outputs, "speech", "dialogue")
    if suite.recording:
        stereo, outputs = run(system, suite.recording)
        figures |= mixture(suite.recording, outputs, "backing", "recording")
        figures |= fold_down(stereo, outputs, "recording")
    return figures
