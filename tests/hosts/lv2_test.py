#!/usr/bin/env python3
"""Plays files through the LV2 plug-ins in several programs: lv2_test.py BUNDLES, the folder of tarn.lv2.

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

from host_test import (
    ENGINE_LATENCY,
    LATENCY,
    Row,
    as_floats,
    command_output,
    known_signal,
    passed,
    position_of,
    without_lfe,
    write_stereo,
)
from see_what_it_does import check_meter, check_picture, command_with, write_song

BLOCKS = LATENCY - ENGINE_LATENCY  # frames of delay that a stream adds to the engine's
# URIs by layout of the command, and FFmpeg's names of the channels of the outputs.
URIS = {
    "2.0": "urn:tarn:dialogue",
    "3.0": "urn:tarn:upmix",
    "5.1": "urn:tarn:upmix-5.1",
    "7.1": "urn:tarn:upmix-7.1",
}
CHANNELS = {
    "2.0": "0-FL|1-FR:stereo",
    "3.0": "0-FL|1-FR|2-FC:3.0",
    "5.1": "0-FL|1-FR|2-FC|3-BL|4-BR:5.0",
    "7.1": "0-FL|1-FR|2-FC|3-BL|4-BR|5-SL|6-SR:7.0",
}
# Layout, options of the command, controls. The first one is played in every size.
CASES = (
    ("3.0", (), ()),
    ("3.0", ("--bypass",), (("enabled", 0),)),
    ("3.0", ("--mode", "calm", "--gain", "-6"), (("mode", 2), ("gain", -6))),
    ("3.0", ("--preset", "plain"), (("gain", 0), ("limiter", 0), ("bass", 0))),
    ("3.0", ("--gain", "18"), (("gain", 18),)),  # the limiter works
    ("3.0", ("--gain", "18", "--no-limiter"), (("gain", 18), ("limiter", 0))),
    ("3.0", ("--width", "0.5", "--centre", "4"), (("width", 0.5), ("centre", 4))),
    ("5.1", (), ()),
    ("5.1", ("--preset", "music", "--surrounds", "off"), (("width", 0.6), ("surrounds", -60))),
    ("5.1", ("--preset", "voice"), (("centre", 6), ("surrounds", -9))),
    ("7.1", (), ()),
    ("2.0", ("--centre", "6"), ()),
    ("2.0", ("--centre", "-9"), (("centre", -9),)),
)
RATES = (44100, 48000, 96000)
MINUTES = 10


def validate(bundles):
    """LV2's validator finds no errors."""
    files = sorted((bundles / "tarn.lv2").glob("*.ttl"))
    names = ["dialogue.ttl", "manifest.ttl", "presets.ttl", "upmix-5.1.ttl", "upmix-7.1.ttl", "upmix.ttl"]
    assert [file.name for file in files] == names
    output = subprocess.run(["lv2_validate", *files], check=True, capture_output=True, text=True)
    assert "Found 0 errors" in output.stdout, output.stdout + output.stderr
    assert "warning" not in output.stderr, output.stderr


def filter_chain(size, layout, options):
    """A filter chain of FFmpeg, with a frame size or FFmpeg's default."""
    split = [] if size is None else [f"asetnsamples=n={size}:p=0"]
    controls = ":c=" + "|".join(f"{symbol}={value}" for symbol, value in options) if options else ""
    plugin = "lv2=p=" + URIS[layout].replace(":", "\\\\:") + controls
    return ",".join([*split, plugin, f"channelmap=map={CHANNELS[layout]}"])


def ffmpeg(source, target, size=None, layout="3.0", options=()):
    """Plays with FFmpeg, and names the channels."""
    run("ffmpeg", "-v", "error", "-i", source, "-af", filter_chain(size, layout, options), "-c:a", "pcm_f32le", target)


def mpv(source, target, size=None, layout="3.0", options=()):
    """Plays with mpv and FFmpeg's filter into a file with all channels."""
    output = ("--ao=pcm", f"--ao-pcm-file={target}", "--audio-channels=" + CHANNELS[layout].split(":")[1])
    run("mpv", "--no-config", *output, f"--af=lavfi=[{filter_chain(size, layout, options)}]", source)


def lv2apply(source, target, size=None, layout="3.0", options=()):
    """Plays with lv2apply, which processes frame by frame."""
    assert size is None
    controls = [word for symbol, value in options for word in ("-c", symbol, str(value))]
    run("lv2apply", "-i", source, "-o", target, *controls, URIS[layout])


def lv2file(source, target, size, layout="3.0", options=()):
    """Plays with lv2file."""
    controls = [word for symbol, value in options for word in ("-p", f"{symbol}:{value}")]
    inputs = ("-c", "1:in_left", "-c", "2:in_right")
    run("lv2file", "-i", source, "-o", target, "-b", str(size), *inputs, *controls, URIS[layout])


def lv2proc(source, target, size, layout="3.0", options=()):
    """Plays with lv2proc."""
    controls = [word for symbol, value in options for word in ("-c", f"{symbol}:{value}")]
    run("lv2proc", "-i", source, "-o", target, "-n", str(size), *controls, URIS[layout])


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
    """Expects the upmix without alignment, some blocks later. Returns the number of samples."""
    assert given.shape == upmixed.shape and not given[:BLOCKS].any(), (given.shape, upmixed.shape)
    assert numpy.array_equal(given[BLOCKS:], as_floats(upmixed[:-BLOCKS]))
    return given.size


def play_everywhere(directory):
    """Plays in every program, rate and size, with every control. Returns the number of samples and the delays by
    program.
    """
    compared = dict.fromkeys(HOSTS, 0)
    latencies = {name: set() for name in HOSTS}
    for rate in RATES:
        signal = known_signal(rate + 13, 24, seed=rate)
        source, integers = directory / f"{rate}.wav", directory / f"{rate}-24.wav"
        soundfile.write(source, as_floats(signal), rate, subtype="FLOAT")
        write_stereo(integers, signal, rate, 24)
        for case in CASES:
            layout, options, controls = case
            aligned = as_floats(without_lfe(command_output(integers, directory, layout, 32, options)))
            upmixed = without_lfe(command_output(integers, directory, layout, 32, ("--no-align", *options)))
            for name, (play, sizes) in HOSTS.items():
                for size in sizes if case == CASES[0] else sizes[-1:]:
                    target = directory / "played.wav"
                    target.unlink(missing_ok=True)
                    play(source, target, size, layout, controls)
                    given, played_rate = floats(target)
                    assert played_rate == rate and len(given) == len(signal), (name, case, given.shape)
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
    run(os.environ["TARN"], "upmix", "--quiet", "--no-align", "--bits", "32", integers, upmixed)
    compared = 0
    with soundfile.SoundFile(target) as given, soundfile.SoundFile(upmixed) as wanted:
        assert given.frames == wanted.frames == frames
        assert not given.read(BLOCKS).any()
        while len(block := given.read(1 << 20, "float32")):
            assert numpy.array_equal(block, as_floats(wanted.read(len(block), "int32")))
            compared += block.size
    assert compared == 3 * (frames - BLOCKS)
    return compared


def check_page(directory):
    """The commands of docs/hosts/lv2.md with tarn meter and tarn picture. lv2_jalv_test.py has that with jalv."""
    samples = known_signal(48013, 16)
    write_song(samples, directory)
    check_meter(command_with("lv2", "tarn meter"), samples, directory)
    check_picture("lv2", directory)


def main():
    bundles = Path(sys.argv[1])
    validate(bundles)
    with tempfile.TemporaryDirectory() as folder:
        directory = Path(folder)
        compared, latencies = play_everywhere(directory)
        refuse(directory)
        check_page(directory)
        compared["FFmpeg"] += play_long(directory)
    for name, samples in compared.items():
        assert latencies[name] == {LATENCY}, latencies
        passed(Row(f"LV2: {name}", samples, 0, 24, "not shown", *latencies[name]))


main()
