#!/usr/bin/env python3
"""Plays a known signal through the LADSPA plug-in in a host: ladspa_test.py HOST PLUGIN. HOST is applyplugin (of
LADSPA's tools), ffmpeg or sox.
"""
# SPDX-License-Identifier: MIT

import os
from pathlib import Path
import re
import subprocess
import sys
import tempfile

import numpy
import soundfile

from host_test import (
    FADE,
    LATENCY,
    SUBTYPES,
    Row,
    as_floats,
    command_output,
    known_signal,
    passed,
    position_of,
    read_samples,
    without_lfe,
    write_stereo,
)
from see_what_it_does import check_meter, check_picture, command_with, write_song

FRAMES = 96000
RATES = (44100, 48000, 96000)
LABELS = (
    "tarn_upmix",
    "tarn_upmix_3",
    "tarn_upmix51",
    "tarn_upmix51_5",
    "tarn_upmix71",
    "tarn_upmix71_7",
    "tarn_dialogue",
)
FILM = (1, 1, 0, 3, 1, 0, 1, 1)  # the controls of tarn_upmix
# Other layouts than 3.0: label, layout and options of the command with the same output.
OTHERS = (
    ("tarn_upmix51", "5.1", ()),
    ("tarn_upmix71", "7.1", ()),
    ("tarn_dialogue", "2.0", ("--centre", "6")),
)
LAYOUT = "channelmap=map='0-FL|1-FR|2-FC:3.0'"


def run(*command, **options):
    return subprocess.run(
        [str(part) for part in command], check=True, text=True, stdin=subprocess.DEVNULL, capture_output=True, **options
    )


def signal_and_expected(directory, rate, bits):
    """A file of a width, and the output of the command for its samples at 32 bits, the width of floats in a stream."""
    source = directory / f"{rate}-{bits}.wav"
    samples = known_signal(FRAMES, bits)
    write_stereo(source, samples, rate, bits)
    wide = directory / "wide.wav"
    write_stereo(wide, samples, rate, 32)
    return source, command_output(wide, directory, bits=32)


def begin_of(result, expected, what):
    """The frame at which the expected samples begin. All of them have to be equal."""
    begin = position_of(result[:6000], expected[:4000])
    result = result[begin : begin + len(expected)]
    assert result.shape == expected.shape, (what, result.shape, expected.shape)
    differing = numpy.count_nonzero(result != expected)
    assert differing == 0, f"{what}: {differing} samples differ"
    return begin


def applyplugin(directory):
    """The tools list the descriptors and play 16-bit files at every rate. They round down when they write."""
    listed = run("analyseplugin", "-l", "tarn.so").stdout
    assert tuple(line.split()[0] for line in listed.splitlines()) == LABELS, listed
    shown = run("analyseplugin", "tarn.so", "tarn_upmix51").stdout
    for line in (
        '"Upmix" input, control, toggled, default 1',
        '"Mode (1 fast, 2 calm)" input, control, 0.9 to 2.1, default 1, integer',
        '"Preset (0 the controls below, 1 film, 2 music, 3 voice, 4 plain)" input, control, -0.1 to 4.1, default 0,',
        '"Make-up gain (dB)" input, control, -42 to 18, default 3',
        '"Limiter" input, control, toggled, default 1',
        '"Centre (dB)" input, control, -60 to 12, default 0',
        '"Width of the centre" input, control, 0 to 1, default 1',
        '"Bass in the fronts" input, control, toggled, default 1',
        '"Surrounds (dB, -48 off)" input, control, -48 to 12, default -3',
        "Environment: Normal or Hard Real-Time",
    ):
        assert line in shown, shown
    shown = run("analyseplugin", "tarn.so", "tarn_dialogue").stdout
    for line in (
        '"Make-up gain (dB)" input, control, -60 to 18, default 0',
        '"Centre (dB)" input, control, -12 to 12, ',
    ):
        assert line in shown, shown
    reported = int(re.search(r'"latency" output, control, 0 to \d+, default (\d+), integer', shown)[1])
    assert reported == LATENCY, reported

    compared = 0
    result = directory / "result.wav"
    for rate in RATES:
        source, expected = signal_and_expected(directory, rate, 16)
        run("applyplugin", "-s0.1", source, result, "tarn.so", "tarn_upmix", *FILM)
        expected = numpy.floor(as_floats(expected).astype(numpy.float64) * 2**15).astype(numpy.int32) << 16
        measured = begin_of(read_samples(result)[0], expected, f"{rate} Hz")
        assert measured == LATENCY, (rate, measured)
        compared += expected.size
    refused = subprocess.run(
        ["applyplugin", directory / "refused.wav", result, "tarn.so", "tarn_upmix", *map(str, FILM)],
        capture_output=True,
        text=True,
        check=False,
    )
    assert refused.returncode != 0, "an unsupported rate"
    return Row("LADSPA: applyplugin", compared, 0, 16, f"{reported} in the file, unused", measured)


def filtered(source, filters, option="-af", channels=3):
    """The output of FFmpeg for a file, without warnings: [frames, channels] floats."""
    result = source.with_suffix(".f32")
    said = run("ffmpeg", "-v", "error", "-y", "-i", source, option, filters, "-f", "f32le", result).stderr
    assert not said, said
    return numpy.fromfile(result, "<f4").reshape(-1, channels)


def check_change(samples, before, after, what):
    """Expects one change from before to after, within a fade."""
    first = int(numpy.argmin((samples == before).all(axis=1)))
    last = len(samples) - int(numpy.argmin((samples == after).all(axis=1)[::-1]))
    assert 0 < first < last <= first + FADE, (what, first, last)


def check_commands(source, directory):
    """Commands of FFmpeg while playing: bypass, a preset, and a gain of NaN, which is the default."""
    upmixed = as_floats(command_output(source, directory, bits=32))
    plain = as_floats(read_samples(source)[0])
    plain = numpy.column_stack([plain, 0 * plain[:, 0]])
    quiet = as_floats(command_output(source, directory, bits=32, options=["--gain", "-6"]))
    for command, controls, before, after in (
        ("c0 0", "c0=1", upmixed, plain),
        ("c2 4", "c2=0", upmixed, as_floats(command_output(source, directory, bits=32, preset="plain"))),
        ("c3 -6", "c3=3", upmixed, quiet),
        ("c3 nan", "c3=-6", quiet, upmixed),
    ):
        samples = filtered(source, f"asendcmd=c='0.5 ladspa {command}',ladspa=f=tarn:p=tarn_upmix:c={controls}")
        rest = len(samples) - LATENCY
        check_change(samples[LATENCY:], before[:rest], after[:rest], command)


def check_others(source, directory):
    """The other layouts, with defaults. Returns the number of samples."""
    compared = 0
    for label, layout, options in OTHERS:
        expected = as_floats(without_lfe(command_output(source, directory, layout, 32, options)))
        samples = filtered(source, f"apad=pad_len={LATENCY},ladspa=f=tarn:p={label}", channels=expected.shape[1])
        assert begin_of(samples, expected, label) == LATENCY
        compared += expected.size
    # As in docs/hosts/ladspa.md: 5.1 with a silent LFE channel.
    named = directory / "surround.wav"
    filters = "ladspa=f=tarn:p=tarn_upmix51,pan=5.1|FL=c0|FR=c1|FC=c2|BL=c3|BR=c4"
    run("ffmpeg", "-v", "error", "-i", source, "-af", filters, "-c:a", "pcm_f32le", named)
    probed = run("ffprobe", "-v", "error", "-show_entries", "stream=channel_layout,channels", named).stdout
    assert "channels=6\nchannel_layout=5.1\n" in probed, probed
    expected = as_floats(command_output(source, directory, "5.1", 32))
    named = soundfile.read(named, dtype="float32")[0]
    assert (named[LATENCY:] == expected[:-LATENCY]).all(), "5.1"
    return compared + named.size


def check_ten_minutes(directory):
    """Ten minutes in calls of 37, 6 and 4801 frames, without a lost or shifted sample."""
    samples = numpy.tile(known_signal(60 * 48000 + 7, 24, seed=3), (10, 1))
    source = directory / "long.wav"
    write_stereo(source, samples, 48000, 24)
    expected = command_output(source, directory, bits=32)
    graph = (
        f"[0]apad=pad_len={LATENCY},asplit[a][b];[a]atrim=end_sample=500001,asetnsamples=37:p=0[small];"
        "[b]atrim=start_sample=500001,asetpts=N/SR/TB,asetnsamples=4801:p=0[large];"
        "[small][large]concat=v=0:a=1,ladspa=f=tarn:p=tarn_upmix"
    )
    result = filtered(source, graph, "-filter_complex")
    assert len(result) == LATENCY + len(expected), (len(result), len(expected))
    assert begin_of(result, as_floats(expected), "ten minutes") == LATENCY
    return expected.size


def check_page(directory):
    """The commands of docs/hosts/ladspa.md with tarn meter and tarn picture."""
    samples = known_signal(48013, 16)
    write_song(samples, directory)
    check_meter(command_with("ladspa", "tarn meter"), samples, directory)
    check_picture("ladspa", directory)


def ffmpeg(directory):
    """All rates; a layout with channel names; changes while playing; and the plug-in with three inputs, with which
    the host compensates the latency.
    """
    compared = 0
    for rate in RATES:
        source, expected = signal_and_expected(directory, rate, 24)
        expected = as_floats(expected)
        samples = filtered(source, f"apad=pad_len={LATENCY},ladspa=f=tarn:p=tarn_upmix")
        measured = begin_of(samples, expected, f"{rate} Hz")
        assert measured == LATENCY and len(samples) == LATENCY + FRAMES, (rate, measured, len(samples))
        samples = filtered(source, "pan=3.0|FL=FL|FR=FR|FC=0*FL,ladspa=f=tarn:p=tarn_upmix_3:latency=1")
        reported = measured - begin_of(samples, expected, f"{rate} Hz, latency taken out")
        assert reported == LATENCY and len(samples) == FRAMES, (rate, reported, len(samples))
        compared += 2 * expected.size

    named = directory / "named.wav"
    filters = f"ladspa=f=tarn:p=tarn_upmix,{LAYOUT}"
    run("ffmpeg", "-v", "error", "-i", source, "-af", filters, "-c:a", "pcm_f32le", named)
    probed = run("ffprobe", "-v", "error", "-show_entries", "stream=channel_layout,channels", named).stdout
    assert "channels=3\nchannel_layout=3.0\n" in probed, probed
    named = soundfile.read(named, dtype="float32")[0]
    assert (named[LATENCY:] == expected[:-LATENCY]).all(), "with names"
    check_commands(source, directory)
    compared += check_others(source, directory)
    compared += check_ten_minutes(directory)
    check_page(directory)
    return Row("LADSPA: FFmpeg ladspa", compared, 0, 24, f"{reported}, with 3 inputs", measured)


def sox_output(expected):
    """The expected output of SoX: it converts the floats to 32-bit integers and rounds those to the 24 bits of the
    file.
    """
    floats = (as_floats(expected).astype(numpy.float64) * 2.0**31).astype(numpy.int64)
    return (numpy.minimum((floats + 128) >> 8, 2**23 - 1) << 8).astype(numpy.int32)


def sox(directory):
    """With and without SoX's compensation of the latency, in calls of different sizes."""
    compared = 0
    result = directory / "result.wav"
    for rate in RATES:
        source, expected = signal_and_expected(directory, rate, 24)
        expected = sox_output(expected)
        begins = []
        for size, effects in (
            (1000, ("pad", "0", f"{LATENCY}s", "ladspa", "tarn", "tarn_upmix_3")),
            (8192, ("ladspa", "-l", "tarn", "tarn_upmix_3", *FILM)),  # compensates the reported latency
        ):
            run("sox", "--buffer", size, "-D", source, "-b", 24, result, "remix", 1, 2, 0, *effects)
            samples = read_samples(result)[0]
            begins.append(begin_of(samples, expected, (rate, effects)))
            assert len(samples) == begins[-1] + FRAMES, (rate, effects, len(samples))
            compared += expected.size
        run("sox", "-D", source, "-b", 24, result, "remix", 1, 2, 0, 0, 0, "ladspa", "-l", "tarn", "tarn_upmix51_5")
        surround = without_lfe(command_output(source, directory, "5.1", 32))
        assert begin_of(read_samples(result)[0], sox_output(surround), f"5.1 at {rate} Hz") == 0
        compared += surround.size
        measured, reported = begins[0], begins[0] - begins[1]
        assert (measured, reported) == (LATENCY, LATENCY), (rate, measured, reported)
    return Row("LADSPA: SoX ladspa", compared, 0, 24, str(reported), measured)


def main():
    host, plugin = sys.argv[1:]
    os.environ["LADSPA_PATH"] = str(Path(plugin).parent)
    with tempfile.TemporaryDirectory() as name:
        directory = Path(name)
        soundfile.write(directory / "refused.wav", known_signal(1000, 16), 22050, subtype=SUBTYPES[16])
        passed({"applyplugin": applyplugin, "ffmpeg": ffmpeg, "sox": sox}[host](directory))


main()
