"""The lines of the table: sections, keys, titles, units, footnotes."""
# SPDX-License-Identifier: MIT

from dataclasses import dataclass

import bass
import flutter
import localisation
import measures
import scenes
import timbre
import transients

# Levels of the speech over music, in dB relative to the music.
SPEECH_LEVELS_DB = [0.0, 6.0]


@dataclass(frozen=True)
class Row:
    """One line of the table. key is the name in the JSON file; units are those of `report.cell`."""

    key: str
    title: str
    unit: str


@dataclass(frozen=True)
class Section:
    """Successive lines under a title."""

    title: str
    rows: list


def signed(value):
    """A level or angle with its sign, for titles."""
    return f"{value:+g}" if value else "0"


def flutter_key(period_seconds, side_level_db, measure):
    """Key of a flutter figure; measure is 'gain' or 'level'."""
    return f"flutter_{measure}_{period_seconds:g}_s_{side_level_db:g}_db"


def speech_key(level_db, measure):
    """Key of a figure of speech over music."""
    return f"speech_at_{level_db:g}_db_{measure}"


def _flutter_rows(measure, title):
    return [
        Row(flutter_key(period, level, measure), f"{title}, period {period:g} s, side at {signed(level)} dB", "dB")
        for period in scenes.FLUTTER_PERIODS_SECONDS
        for level in scenes.FLUTTER_SIDE_LEVELS_DB
    ]


def _event_rows(kind, title):
    return [
        Row(f"{kind}_centre_in_c", f"{title} in the centre, share in C", "%"),
        Row(f"{kind}_side_in_side", f"{title} at a side, share in this side", "%"),
        Row(f"{kind}_side_in_c", f"{title} at a side, share in C", "%"),
        Row(f"{kind}_pre_echo", f"{title}: pre-echo (8)", "dB"),
    ]


def _centred_bass_rows():
    period, level = scenes.BASS_SIDE
    places = {"solo": "solo", "beside": f"beside a side at {signed(level)} dB, period {period:g} s"}
    return [
        Row(f"bass_{name}_{measure}", f"{measure} (13), {place}", "dB")
        for name, place in places.items()
        for measure in ("level", "movement")
    ]


def _speech_rows(level_db):
    title = f"speech at {signed(level_db)} dB"
    return [
        Row(speech_key(level_db, "in_c"), f"{title}, share in C (3)", "%"),
        Row(speech_key(level_db, "artefacts_c"), f"{title}: artefacts in C (2)", "dB"),
        Row(speech_key(level_db, "artefacts_all"), f"{title}: artefacts in all outputs (2)", "dB"),
        Row(speech_key(level_db, "si_sdr"), f"{title}: C as the speech, SI-SDR (10)", "dB"),
        Row(speech_key(level_db, "sir"), f"{title}: C as the speech, SIR (10)", "dB"),
        Row(speech_key(level_db, "sar"), f"{title}: C as the speech, SAR (10)", "dB"),
    ]


SECTIONS = [
    Section(
        "Delay",
        [
            Row("delay", "delay of the stream", "frames"),
            Row("block", "block size", "frames"),
            Row("delay_and_block", "delay in a live host: sum of both", "frames"),
        ],
    ),
    Section(
        "One source",
        [
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
            Row("velocity_error_mean", "angle of the velocity vector, mean error (5)", "deg"),
            Row("velocity_error_max", "angle of the velocity vector, largest error (5)", "deg"),
            Row("energy_error_mean", "angle of the energy vector, mean error (5)", "deg"),
            Row("energy_error_max", "angle of the energy vector, largest error (5)", "deg"),
            Row("energy_length_mean", "length of the energy vector, mean (5)", "1"),
        ],
    ),
    Section(
        "Mixtures",
        [
            Row("diffuse_level", "level of diffuse noise", "dB"),
            Row("diffuse_in_c", "diffuse noise, share in C", "%"),
            Row("dialogue_artefacts", "artefacts in C, dialogue (2)", "dB"),
            Row("dialogue_speech_in_c", "dialogue: speech, share in C (3)", "%"),
            Row("dialogue_sides_in_c", "dialogue: noise of the sides, share in C (3)", "%"),
            Row("recording_artefacts", "artefacts in C, recording (2)", "dB"),
            Row("recording_backing_in_c", "recording: centred stem, share in C (3)", "%"),
            Row("recording_sides_in_c", "recording: guitars of the sides, share in C (3)", "%"),
        ],
    ),
    Section(
        "Fold-down",
        [
            Row("fold_down_error_diffuse", "fold-down error, diffuse noise (4)", "dB"),
            Row("fold_down_error_centred", "fold-down error, centred source (4)", "dB"),
            Row("fold_down_error_recording", "fold-down error, recording (4)", "dB"),
            Row("fold_down_shape_error_diffuse", "the same after level matching, diffuse noise", "dB"),
            Row("fold_down_shape_error_centred", "the same after level matching, centred source", "dB"),
            Row("fold_down_shape_error_recording", "the same after level matching, recording", "dB"),
        ],
    ),
    Section(
        "A steady source beside one that comes and goes",
        _flutter_rows("gain", "movement of C's gain (6)") + _flutter_rows("level", "movement of the level (7)"),
    ),
    Section("Bursts and clicks in changing places", _event_rows("burst", "burst") + _event_rows("click", "click")),
    Section("Speech over music (9)", [row for level in SPEECH_LEVELS_DB for row in _speech_rows(level)]),
    Section(
        "Music",
        [
            Row("third_octave_worst", "long-term spectrum, worst third octave (11)", "dB"),
            Row("third_octave_worst_hz", "long-term spectrum, centre of this third octave", "Hz"),
            Row("bass_mean", "level of the bass, mean (12)", "dB"),
            Row("bass_deviation", "level of the bass, standard deviation (12)", "dB"),
        ],
    ),
    Section("Centred bass in a subwoofer that adds all outputs", _centred_bass_rows()),
]

ROWS = [row for section in SECTIONS for row in section.rows]

LOUDSPEAKERS = [signed(degrees) for degrees in localisation.LOUDSPEAKER_DEGREES]
FOOTNOTES = [
    "-: the signal in question is exactly zero, or the figure is not defined.",
    "(1) Share of the power of all outputs. The loudspeakers are at 30 degrees, the source at 15, half way between "
    "side and centre: pan 22.5 on the constant-power law from 0 (hard left) to 90 (hard right).",
    "(2) Energy that no fixed filters of the known stems explain, relative to the energy of C or of all outputs: STFT "
    f"{measures.STFT_FRAMES}/{measures.STFT_HOP} ({measures.STFT_FRAMES}/{measures.COARSE_STFT_HOP} for speech over "
    "music), Hann window, least squares per bin.",
    "(3) Share of C in the energy that the stem contributes to all three outputs through those fixed filters.",
    "(4) FL + 0.707 C and FR + 0.707 C minus the input, relative to the input.",
    f"(5) Gerzon's vectors for loudspeakers at {', '.join(LOUDSPEAKERS)} degrees over the pan sweep; errors against "
    "the phantom image of the stereo pair (tangent law).",
    "(6) Gain of steady centred pink noise in C, beside pink noise hard left that is on in the first half of each "
    f"period: difference of the percentiles {flutter.PERCENTILES[1]} and {flutter.PERCENTILES[0]} over time, mean over "
    f"{flutter.BANDS} ERB bands. Less is steadier.",
    "(7) The same for the level of all outputs together relative to the stereo.",
    f"(8) Energy in the {1000 * transients.PRE_ECHO_SECONDS:g} ms before the event relative to that of the event, all "
    "outputs.",
    "(9) Speech in the centre of real tracks, at this level relative to the music, mean over the tracks. The channels of "
    "the music are the stems: where a system moves an instrument of the music, this counts as an artefact too.",
    "(10) SI-SDR: scale-invariant, in the time domain. SIR: speech relative to music in C, SAR: both together relative "
    "to the artefacts in C, through those fixed filters.",
    "(11) Level of all outputs together relative to the stereo, relative to its mean over the bands from "
    f"{timbre.THIRD_OCTAVES_HZ[0]} Hz to {timbre.THIRD_OCTAVES_HZ[-1] // 1000} kHz; mean over the tracks.",
    f"(12) FL + FR + C below {bass.BASS_HZ} Hz relative to L + R, in Hann windows of {1000 * bass.WINDOW_SECONDS:g} ms; "
    "mean over the tracks.",
    f"(13) Gain of centred pink noise in FL + FR + C below {bass.BASS_HZ} Hz relative to that in L + R, in windows of "
    f"{1000 * bass.GAIN_WINDOW_SECONDS:g} ms: mean over time, and difference of the percentiles {flutter.PERCENTILES[1]} "
    f"and {flutter.PERCENTILES[0]}. The side source is that of (6).",
]
