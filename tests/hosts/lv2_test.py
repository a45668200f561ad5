#!/usr/bin/env python3
"""Plays files through the LV2 plug-in in several programs: lv2_test.py BUNDLES, the folder of tarn.lv2.

The programs and their output files have floats. A stream processes floats as 32-bit integers, so every sample has to
equal the command's output at 32 bits.
"""
# SPDX-License-Identifier: MIT

import os
from pathlib import Path
import subprocess
import sys
import tempfile

import numpy
import soundfile

from host_test import LATENCY, Row, as_floats, command_output, known_signal, passed, position_of, write_stereo

URI = "urn:tarn:upmix"
BLOCK = 64  # frames of delay that a stream adds to the engine's
RATES = (44100, 48000, 96000)
MINUTES = 10


def validate(bundles):
    """LV2's validator finds no errors."""
    files = sorted((bundles / "tarn.lv2").glob("*.ttl"))
    assert [file.name for file in files] == ["manifest.ttl", "tarn.ttl"]
    output = subprocess.run(["lv2_validate", *files], check=True, capture_output=True, text=True)
    assert "Found 0 errors" in output.stdout, output.stdout + output.stderr
    assert "warning" not in output.stderr, output.stderr


def filter_chain(size, options):
    """A filter chain of FFmpeg, with a frame size or FFmpeg's default."""
    split = [] if size is None else [f"asetnsamples=n={size}:p=0"]
    controls = ":c=" + "|".join(f"{symbol}={value}" for symbol, value in options) if options else ""
    return ",".join([*split, "lv2=p=" + URI.replace(":", "\\\\:") + controls, "channelmap=map=0-FL|1-FR|2-FC:3.0"])


def ffmpeg(source, target, size=None, options=()):
    """Plays with FFmpeg, and names the channels."""
    run("ffmpeg", "-v", "error", "-i", source, "-af", filter_chain(size, options), "-c:a", "pcm_f32le", target)


def mpv(source, target, size=None, options=()):
    """Plays with mpv and FFmpeg's filter into a file with three channels."""
    output = ("--ao=pcm", f"--ao-pcm-file={target}", "--audio-channels=3.0")
    run("mpv", "--no-config", *output, f"--af=lavfi=[{filter_chain(size, options)}]", source)


def lv2apply(source, target, size=None, options=()):
    """Plays with lv2apply, which processes frame by frame."""
    assert size is None
    controls = [word for symbol, value in options for word in ("-c", symbol, str(value))]
    run("lv2apply", "-i", source, "-o", target, *controls, URI)


def lv2file(source, target, size, options=()):
    """Plays with lv2file."""
    controls = [word for symbol, value in options for word in ("-p", f"{symbol}:{value}")]
    run("lv2file", "-i", source, "-o", target, "-b", str(size), "-c", "1:in_left", "-c", "2:in_right", *controls, URI)


def lv2proc(source, target, size, options=()):
    """Plays with lv2proc."""
    controls = [word for symbol, value in options for word in ("-c", f"{symbol}:{value}")]
    run("lv2proc", "-i", source, "-o", target, "-n", str(size), *controls, URI)


HOSTS = {
    "FFmpeg": (ffmpeg, (None, 1, 37, 100, 8191)),
    "lv2apply": (lv2apply, (None,)),
    "lv2file": (lv2file, (1, 37, 100, 8191)),
    "lv2proc": (lv2proc, (1, 37, 100, 8191)),
    "mpv": (mpv, (None, 100)),
}


def run(*command):
    """Runs a program, which has to succeed."""
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    assert done.returncode == 0, f"{command[0]}: {done.returncode}: {done.stdout}{done.stderr}"


def floats(path):
    """Reads [frames, channels] of a float file, and the rate."""
    assert soundfile.info(path).subtype == "FLOAT"
    return soundfile.read(path, dtype="float32", always_2d=True)


def compare(given, upmixed):
    """Expects the upmix without alignment, one block later. Returns the number of samples."""
    assert len(given) == len(upmixed) and not given[:BLOCK].any()
    assert numpy.array_equal(given[BLOCK:], as_floats(upmixed[:-BLOCK]))
    return given.size


def play_everywhere(directory):
    """Plays in every program, rate and size, with bypass, mode and gain. Returns the number of samples and the delays
    by program.
    """
    compared = dict.fromkeys(HOSTS, 0)
    latencies = {name: set() for name in HOSTS}
    for rate in RATES:
        signal = known_signal(rate + 13, 24, seed=rate)
        source, integers = directory / f"{rate}.wav", directory / f"{rate}-24.wav"
        soundfile.write(source, as_floats(signal), rate, subtype="FLOAT")
        write_stereo(integers, signal, rate, 24)
        for options, controls in (
            ((), ()),
            (("--bypass",), (("enabled", 0),)),
            (("--mode", "calm", "--gain", "-6"), (("mode", 2), ("gain", -6))),
        ):
            aligned = as_floats(command_output(integers, directory, bits=32, options=options))
            upmixed = command_output(integers, directory, bits=32, options=("--no-align", *options))
            for name, (play, sizes) in HOSTS.items():
                for size in sizes if not controls else sizes[-1:]:
                    target = directory / "played.wav"
                    target.unlink(missing_ok=True)
                    play(source, target, size, controls)
                    given, played_rate = floats(target)
                    assert played_rate == rate and given.shape == (len(signal), 3), (name, given.shape)
                    compared[name] += compare(given, upmixed)
                    latencies[name].add(position_of(given, aligned))
    return compared, latencies


def refuse(directory):
    """Unsupported rates are refused with a message in the host's log."""
    source = directory / "22050.wav"
    soundfile.write(source, numpy.zeros((1000, 2), numpy.float32), 22050, subtype="FLOAT")
    for name in ("FFmpeg", "lv2proc"):
        try:
            HOSTS[name][0](source, directory / "refused.wav", 512)
        except AssertionError as problem:
            assert "Tarn upmix: not at 22050 Hz: the sample rate has to be 32000, 44100" in str(problem), problem
        else:
            raise AssertionError(f"{name} played at 22050 Hz")


def play_long(directory):
    """Ten minutes of audio through FFmpeg. Returns the number of samples."""
    rate = 48000
    part = known_signal(600011, 24)
    source, integers, target = directory / "long.wav", directory / "long-24.wav", directory / "long-played.wav"
    upmixed = directory / "long-upmixed.wav"
    with soundfile.SoundFile(source, "w", rate, 2, "FLOAT") as floating, soundfile.SoundFile(
        integers, "w", rate, 2, "PCM_24"
    ) as integer:
        while integer.frames < MINUTES * 60 * rate:
            integer.write(part)
            floating.write(as_floats(part))
        frames = integer.frames
    ffmpeg(source, target, 997)
    run(os.environ["TARN"], "upmix", "--quiet", "--preset", "plain", "--no-align", "--bits", "32", integers, upmixed)
    compared = 0
    with soundfile.SoundFile(target) as given, soundfile.SoundFile(upmixed) as wanted:
        assert given.frames == wanted.frames == frames
        assert not given.read(BLOCK).any()
        while len(block := given.read(1 << 20, "float32")):
            assert numpy.array_equal(block, as_floats(wanted.read(len(block), "int32")))
            compared += block.size
    assert compared == 3 * (frames - BLOCK)
    return compared


def main():
    bundles = Path(sys.argv[1])
    validate(bundles)
    with tempfile.TemporaryDirectory() as folder:
        directory = Path(folder)
        compared, latencies = play_everywhere(directory)
        refuse(directory)
        compared["FFmpeg"] += play_long(directory)
    for name, samples in compared.items():
        assert latencies[name] == {LATENCY}, latencies
        passed(Row(f"LV2: {name}", samples, 0, 24, "not shown", *latencies[name]))


main()
