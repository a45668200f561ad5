#!/usr/bin/env python3
"""Plays a known signal through the LADSPA plug-in in a host: ladspa_test.py HOST PLUGIN, where the host is applyplugin
(of LADSPA's own tools), ffmpeg or sox.
"""

import os
from pathlib import Path
import subprocess
import sys
import tempfile

import numpy
import soundfile

from host_test import LATENCY, SUBTYPES, Row, command_output, known_signal, passed, read_samples, write_stereo

FRAMES = 96000
RATES = (44100, 48000, 96000)
LAYOUT = "channelmap=map='0-FL|1-FR|2-FC:3.0'"


def run(*command, **options):
    return subprocess.run(
        [str(part) for part in command], check=True, text=True, stdin=subprocess.DEVNULL, capture_output=True, **options
    )


def signal_and_expected(directory, rate, bits):
    """A file of a width, and what the command makes of its samples with 32 bits, as floats do."""
    source = directory / f"{rate}-{bits}.wav"
    samples = known_signal(FRAMES, bits)
    write_stereo(source, samples, rate, bits)
    wide = directory / "wide.wav"
    write_stereo(wide, samples, rate, 32)
    return source, command_output(wide, directory, bits=32)


def difference(result, expected, width):
    """The greatest, in steps of a width, of integers left-aligned in 32 bits or floats of full scale 2^31."""
    assert result.shape == expected.shape, (result.shape, expected.shape)
    return float(numpy.abs(result.astype(numpy.float64) - expected).max()) / 2 ** (32 - width)


def applyplugin(directory):
    """The tools read the descriptor, and play 16-bit files at every rate. They round down when they write."""
    listed = run("analyseplugin", "-l", "tarn.so").stdout
    assert [line.split()[0] for line in listed.splitlines()] == ["tarn_upmix", "tarn_upmix_3"], listed
    shown = run("analyseplugin", "tarn.so", "tarn_upmix").stdout
    for line in (
        '"Upmix" input, control, toggled, default 1',
        '"Mode (1 fast, 2 calm)" input, control, 0.9 to 2.1, default 1, integer',
        '"Make-up gain (dB)" input, control, -60 to 18, default 0',
        f'"latency" output, control, 0 to {LATENCY}, default {LATENCY}, integer',
        "Environment: Normal or Hard Real-Time",
    ):
        assert line in shown, shown

    compared = 0
    result = directory / "result.wav"
    for rate in RATES:
        source, expected = signal_and_expected(directory, rate, 16)
        run("applyplugin", "-s0.1", source, result, "tarn.so", "tarn_upmix", 1, 1, 0)
        samples = read_samples(result)[0][LATENCY : LATENCY + FRAMES]
        assert difference(samples, expected >> 16 << 16, 16) == 0, rate
        compared += samples.size
    refused = subprocess.run(
        ["applyplugin", directory / "refused.wav", result, "tarn.so", "tarn_upmix", "1", "1", "0"],
        capture_output=True,
        text=True,
        check=False,
    )
    assert refused.returncode != 0, "a rate that the engine has not"
    return Row("LADSPA: applyplugin", compared, 0, 16, "in the file, unused", LATENCY)


def ffmpeg(directory):
    """At every rate, with a layout that names the channels; on and off while it plays; and with the third input, where
    the host takes the reported latency out.
    """
    compared, greatest = 0, 0.0
    result = directory / "result.wav"

    def filtered(source, filters):
        run("ffmpeg", "-v", "error", "-y", "-i", source, "-af", filters, "-c:a", "pcm_f32le", result)
        return soundfile.read(result, dtype="float64", always_2d=True)[0] * 2.0**31

    for rate in RATES:
        source, expected = signal_and_expected(directory, rate, 24)
        samples = filtered(source, f"apad=pad_len={LATENCY},ladspa=f=tarn:p=tarn_upmix,{LAYOUT}")[LATENCY:]
        greatest = max(greatest, difference(samples, expected, 24))
        probed = run("ffprobe", "-v", "error", "-show_entries", "stream=channel_layout,channels", result).stdout
        assert "channels=3\nchannel_layout=3.0\n" in probed, probed
        samples = filtered(source, "pan=3.0|FL=FL|FR=FR|FC=0*FL,ladspa=f=tarn:p=tarn_upmix_3:latency=1")
        greatest = max(greatest, difference(samples, expected, 24))
        compared += 2 * samples.size

    plain = read_samples(source)[0]
    samples = filtered(source, "asendcmd=c='0.5 ladspa c0 0',ladspa=f=tarn:p=tarn_upmix")[LATENCY:]
    upmixed = (samples == expected[: len(samples)]).all(axis=1)
    passing = (samples == numpy.column_stack([plain, 0 * plain[:, 0]])[: len(samples)]).all(axis=1)
    first_change, last_change = int(numpy.argmin(upmixed)), len(passing) - int(numpy.argmin(passing[::-1]))
    assert 0 < first_change < last_change <= first_change + LATENCY, (first_change, last_change)
    return Row("LADSPA: FFmpeg ladspa", compared, greatest, 24, f"{LATENCY}, with 3 inputs", LATENCY)


def sox(directory):
    """SoX works on 32-bit integers and rounds them to the 24 bits of its floats and of the file."""
    compared, greatest = 0, 0.0
    result = directory / "result.wav"
    for rate in RATES:
        source, expected = signal_and_expected(directory, rate, 24)
        for effects, first in (
            (("pad", "0", f"{LATENCY}s", "ladspa", "tarn", "tarn_upmix_3"), LATENCY),
            (("ladspa", "-l", "tarn", "tarn_upmix_3", 1, 1, 0), 0),  # takes the reported latency out
        ):
            run("sox", "-D", source, "-b", 24, result, "remix", 1, 2, 0, *effects)
            samples = read_samples(result)[0][first:]
            greatest = max(greatest, difference(samples, expected, 24))
            compared += samples.size
    return Row("LADSPA: SoX ladspa", compared, greatest, 24, str(LATENCY), LATENCY)


def main():
    host, plugin = sys.argv[1:]
    os.environ["LADSPA_PATH"] = str(Path(plugin).parent)
    with tempfile.TemporaryDirectory() as name:
        directory = Path(name)
        soundfile.write(directory / "refused.wav", known_signal(1000, 16), 22050, subtype=SUBTYPES[16])
        row = {"applyplugin": applyplugin, "ffmpeg": ffmpeg, "sox": sox}[host](directory)
    assert row.greatest_difference <= 1, row
    passed(row)


main()
