#!/usr/bin/env python3
"""Plays known signals through GStreamer pipelines with the element tarnupmix: gstreamer_test.py PLUGIN BUILD_FOLDER."""
# SPDX-License-Identifier: MIT

import os
from pathlib import Path
import re
import shlex
import subprocess
import sys
import tempfile

import numpy
import soundfile

from host_test import LATENCY, Row, as_floats, command_output, known_signal, passed, read_samples, write_stereo
from see_what_it_does import check_meter, check_picture, command_with, output_of, write_song

FORMATS = {16: "S16LE", 24: "S24LE", 32: "S32LE"}
CHANNELS = {"2.0": 2, "3.0": 3, "5.1": 6, "7.1": 8}
FRAMES = 100003


def launch(*pipeline):
    """Runs a pipeline to its end."""
    subprocess.run(["gst-launch-1.0", "--quiet", *" ".join(map(str, pipeline)).split()], check=True, timeout=120)


def same(found, expected):
    """Expects equal samples and returns their number."""
    assert found.shape == expected.shape, f"{found.shape} frames and slots instead of {expected.shape}"
    assert numpy.array_equal(found, expected), "samples differ"
    return found.size


def raw_samples(path, channels, bits=16):
    """Reads a raw file as [frames, channels], left-aligned in 32 bits."""
    data = numpy.fromfile(path, numpy.uint8).reshape(-1, bits // 8)
    samples = numpy.zeros((len(data), 4), numpy.uint8)
    samples[:, 4 - bits // 8 :] = data
    return samples.view("<i4").reshape(-1, channels)


def test_inspection():
    """gst-inspect-1.0 shows the element without warnings."""
    run = subprocess.run(["gst-inspect-1.0", "tarnupmix"], check=True, capture_output=True, text=True)
    assert run.stderr == "", run.stderr
    for text in ("Filter/Converter/Audio", "none (0)", "MIT/X11", "The Tarn authors", "SINK template", "SRC template"):
        assert text in run.stdout, f"gst-inspect-1.0 does not say {text!r}"


def test_installation(folder, build):
    """The plug-in loads from any prefix, with the library of the same prefix."""
    for component in ("runtime", "gstreamer"):
        subprocess.run(
            ["cmake", "--install", build, "--prefix", folder / "prefix", "--component", component],
            check=True,
            stdout=subprocess.DEVNULL,
        )
    (plugin,) = (folder / "prefix").rglob("libgsttarn.so")
    assert plugin.parent.name == "gstreamer-1.0"
    paths = {"GST_PLUGIN_PATH": str(plugin.parent), "GST_REGISTRY": f"{folder}/installed.bin"}
    run = subprocess.run(
        ["gst-inspect-1.0", "tarnupmix"], check=True, capture_output=True, text=True, env=os.environ | paths
    )
    assert str(plugin) in run.stdout, run.stdout
    linked = subprocess.run(["ldd", plugin], check=True, capture_output=True, text=True).stdout
    assert f"{folder}/prefix" in linked, linked


def test_files(folder):
    """All widths at four rates in 3.0, and two widths in 5.1 through FLAC."""
    compared = 0
    for bits in FORMATS:
        for rate in (32000, 44100, 48000, 96000):
            source = folder / f"{bits}-{rate}.wav"
            write_stereo(source, known_signal(FRAMES, bits), rate, bits)
            target = folder / "element.wav"
            launch(
                f"filesrc location={source}",
                "! wavparse !",
                f"audio/x-raw,format={FORMATS[bits]}",
                f"! tarnupmix ! wavenc ! filesink location={target}",
            )
            compared += same(read_samples(target)[0], command_output(source, folder))
    for bits in (16, 24):
        source = folder / f"{bits}-48000.wav"
        target = folder / "element.flac"
        launch(
            f"filesrc location={source}",
            "! wavparse ! tarnupmix ! audio/x-raw,channels=6",
            f"! flacenc ! filesink location={target}",
        )
        assert soundfile.info(target).subtype == f"PCM_{bits}"
        compared += same(read_samples(target)[0], command_output(source, folder, "5.1"))
    return compared


def test_buffer_sizes(folder):
    """Odd buffer sizes, and one of a single frame."""
    source, target = folder / "16-48000.wav", folder / "element.raw"
    expected = command_output(source, folder)
    compared = 0
    stereo = folder / "stereo.raw"
    (read_samples(source)[0] >> 16).astype("<i2").tofile(stereo)
    for size in (4, 148, 400, 4001, 70000):
        launch(
            "filesrc blocksize=",
            size,
            f" location={stereo}",
            "! rawaudioparse sample-rate=48000 num-channels=2",
            f"pcm-format=s16le ! tarnupmix ! filesink location={target}",
        )
        compared += same(raw_samples(target, 3), expected)
    return compared


def test_settings(folder):
    """Properties equal the options of the command."""
    source, target = folder / "24-48000.wav", folder / "element.raw"
    compared = 0
    for layout, properties, options in (
        ("3.0", "mode=calm", ["--mode", "calm"]),
        ("3.0", "bypass=true", ["--bypass"]),
        ("7.1", "", []),
        ("7.1", "preset=plain", ["--preset", "plain"]),
        ("5.1", "preset=music", ["--preset", "music"]),
        ("5.1", "preset=voice centre-gain=9 width=0.25", ["--preset", "voice", "--centre", "9", "--width", "0.25"]),
        ("5.1", "surround-gain=3 bass=steered", ["--surrounds", "3", "--bass", "steered"]),
        ("5.1", "surround-gain=-60", ["--surrounds", "off"]),
        ("5.1", "make-up-gain=12", ["--gain", "12"]),
        ("3.0", "make-up-gain=12 limiter=false", ["--gain", "12", "--no-limiter"]),
        ("2.0", "", []),
        ("2.0", "preset=music", ["--preset", "music"]),
        ("2.0", "preset=voice", ["--preset", "voice"]),
        ("2.0", "centre-gain=-12 make-up-gain=6", ["--centre", "-12", "--gain", "6"]),
    ):
        channels = CHANNELS[layout]
        launch(
            f"filesrc location={source} ! wavparse ! tarnupmix {properties}",
            f"! audio/x-raw,channels={channels} ! filesink location={target}",
        )
        compared += same(raw_samples(target, channels, 24), command_output(source, folder, layout, options=options))
    return compared


def test_floats(folder):
    """Floats equal 32-bit integers rounded to floats. The command reads integers, because it gives float files headroom."""
    source, integers, target = folder / "float.wav", folder / "integers.wav", folder / "element.wav"
    stereo = known_signal(FRAMES, 24)
    soundfile.write(source, stereo / 2**31, 48000, subtype="FLOAT")
    write_stereo(integers, stereo, 48000, 32)
    launch(
        f"filesrc location={source}",
        "! wavparse ! audio/x-raw,format=F32LE ! tarnupmix",
        f"! wavenc ! filesink location={target}",
    )
    assert soundfile.info(target).subtype == "FLOAT"
    found = soundfile.read(target, dtype="float32")[0]
    return same(found, as_floats(command_output(integers, folder)))


def test_rates_change(folder):
    """44.1, 48 and 96 kHz in sequence through one element."""
    sources = [folder / f"16-{rate}.wav" for rate in (44100, 48000, 96000, 44100)]
    target = folder / "element.raw"
    inputs = [f"filesrc location={source} ! wavparse ! queue ! joined." for source in sources]
    launch(f"concat name=joined ! tarnupmix ! filesink location={target}", *inputs)
    return same(raw_samples(target, 3), numpy.concatenate([command_output(source, folder) for source in sources]))


def play(source, target, *options):
    """Plays a film and writes its audio into a raw file."""
    subprocess.run(
        [
            "gst-launch-1.0",
            "--quiet",
            "playbin",
            f"uri={source.as_uri()}",
            *options,
            "video-sink=fakesink",
            f"audio-sink=capsfilter ! filesink location={target}",
        ],
        check=True,
        timeout=120,
    )


def test_films_with_pictures(folder):
    """Films with video: stereo keeps its length, six channels their bytes."""
    for channels, mask in ((2, "0x3"), (6, "0x3f")):
        film, plain, filtered = folder / f"film{channels}.mkv", folder / "plain.raw", folder / "filtered.raw"
        launch(
            "matroskamux name=film !",
            f"filesink location={film}",
            "videotestsrc num-buffers=50 !",
            "video/x-raw,width=64,height=48,framerate=25/1 ! theoraenc ! film.",
            "audiotestsrc num-buffers=94 wave=pink-noise !",
            f"audio/x-raw,rate=48000,channels={channels},channel-mask=(bitmask){mask} ! vorbisenc ! queue ! film.",
        )
        play(film, plain)
        play(film, filtered, "audio-filter=tarnupmix")
        assert plain.stat().st_size >= 90 * 1024 * channels * 4
        if channels == 6:
            assert filtered.read_bytes() == plain.read_bytes()
        else:
            assert filtered.stat().st_size * 2 == plain.stat().st_size * 3


def test_films(folder):
    """playbin with the element as its filter: stereo is upmixed, other audio passes unchanged."""
    stereo = known_signal(FRAMES, 16)
    compared = 0
    for name, samples, rate in (
        ("stereo", stereo, 48000),
        ("surround", numpy.hstack([stereo, stereo[::-1], stereo[:, ::-1]]), 48000),
        ("mono", stereo[:, :1], 48000),
        ("slow", stereo, 22050),
        ("big-endian", stereo, 48000),  # playbin converts it
    ):
        source = folder / f"{name}.{'au' if name == 'big-endian' else 'wav'}"
        target = folder / "element.raw"
        write_stereo(source, samples, rate, 16)
        play(source, target, "audio-filter=tarnupmix")
        expected = command_output(source, folder) if name in ("stereo", "big-endian") else samples
        compared += same(raw_samples(target, expected.shape[1]), expected)
    return compared


def test_page(folder):
    """The first examples of docs/hosts/gstreamer.md, with a file for the loudspeakers. Other channels than stereo pass or
    are converted by playbin.
    """
    page = (Path(__file__).parents[2] / "docs/hosts/gstreamer.md").read_text()
    surround, voices = re.findall(r"^gst-launch-1.0 playbin uri=\S+ '?(audio-filter=.*)$", page, re.MULTILINE)
    stereo = known_signal(FRAMES, 16)
    six = numpy.hstack([stereo, stereo[::-1], stereo[:, ::-1]])
    eight = numpy.hstack([six, stereo])
    target = folder / "element.raw"
    compared = 0
    for example, name, samples, layout, preset in (
        (surround, "stereo", stereo, "5.1", None),
        (surround, "six", six, None, None),
        (surround, "eight", eight, None, None),
        (voices, "stereo", stereo, "2.0", "voice"),
    ):
        source = folder / f"page-{name}.wav"
        write_stereo(source, samples, 48000, 16)
        (option,) = shlex.split(example)
        play(source, target, option)
        expected = samples if layout is None else command_output(source, folder, layout, preset=preset)
        compared += same(raw_samples(target, expected.shape[1]), expected)
    for example, channels, samples in ((surround, 6, stereo[:, :1]), (voices, 2, stereo[:, :1]), (voices, 2, six)):
        source = folder / "page-converted.wav"
        write_stereo(source, samples, 48000, 16)
        (option,) = shlex.split(example)
        play(source, target, option)
        assert len(raw_samples(target, channels)) == FRAMES, (example, samples.shape)
    return compared


def test_seeing(folder):
    """The commands of docs/hosts/gstreamer.md that show what the element does, without a sound card. The messages have
    the group edges of docs/streams.md.
    """
    samples = known_signal(48013, 16)
    write_song(samples, folder)
    meter = command_with("gstreamer", "tarn meter")
    assert "autoaudiosink" in meter
    check_meter(meter.replace("autoaudiosink", "fakesink sync=true"), samples, folder)
    check_picture("gstreamer", folder)

    messages = command_with("gstreamer", "post-messages").replace("/home/me", str(folder))
    shown = output_of(messages.replace("playbin", "playbin audio-sink=fakesink"), folder).splitlines()
    lists = [re.fullmatch(r" (\S+)=\(double\)< (.*) >", line).groups() for line in shown]
    assert [name for name, _ in lists] == ["rms", "group-level", "group-place", "group-centre"], shown
    values = {name: [float(value) for value in text.split(",")] for name, text in lists}
    assert len(values["rms"]) == 6 and min(values["rms"][:3]) > -60, values
    assert len(values["group-level"]) == 16 and min(values["group-level"][:8]) > -60, values
    assert all(-1 <= place <= 1 for place in values["group-place"]), values
    assert all(0 <= centre <= 1 for centre in values["group-centre"]), values

    edges = command_with("gstreamer", "post-messages").split(" | ")[0].replace("/home/me", str(folder))
    text = output_of(edges.replace("playbin", "playbin audio-sink=fakesink"), folder)
    streams = (Path(__file__).parents[2] / "docs/streams.md").read_text()
    page = re.search(r"At 48 kHz, the upper edges are (.*?) Hz", streams)[1].replace(" and", ",")
    assert f"group-upper-hz=(double)< {page} >" in text, page


def test_ten_minutes(folder):
    """Ten minutes of audio."""
    source, target, expected = (folder / f"long-{name}.wav" for name in ("in", "element", "command"))
    part = known_signal(20 * 44100, 16)
    with soundfile.SoundFile(source, "w", 44100, 2, "PCM_16") as file:
        for _ in range(30):
            file.write(part)
    launch(f"filesrc location={source}", f"! wavparse ! tarnupmix ! wavenc ! filesink location={target}")
    subprocess.run([os.environ["TARN"], "upmix", "--quiet", source, expected], check=True)
    compared = 0
    with soundfile.SoundFile(target) as left, soundfile.SoundFile(expected) as right:
        assert left.frames == right.frames == 600 * 44100
        for first, second in zip(left.blocks(1 << 18, dtype="int32"), right.blocks(1 << 18, dtype="int32")):
            compared += same(first, second)
    return compared


class Pipeline:
    """A pipeline with an appsink named out and an element named upmix."""

    def __init__(self, gst, description):
        self.gst = gst
        self.bin = gst.parse_launch(description)
        self.out = self.bin.get_by_name("out")
        self.upmix = self.bin.get_by_name("upmix")

    def to(self, state):
        """Changes the state and waits for it."""
        self.bin.set_state(state)
        result = self.bin.get_state(20 * self.gst.SECOND)[0]
        assert result in (self.gst.StateChangeReturn.SUCCESS, self.gst.StateChangeReturn.NO_PREROLL), result

    def rest(self):
        """The remaining frames, and the time of the first one."""
        buffers, begin = [], None
        while (sample := self.out.emit("try-pull-sample", 20 * self.gst.SECOND)) is not None:
            buffer = sample.get_buffer()
            begin = buffer.pts if begin is None else begin
            buffers.append(buffer.extract_dup(0, buffer.get_size()))
        assert self.out.get_property("eos"), "the pipeline stopped before its end"
        samples = numpy.frombuffer(b"".join(buffers), "<i2").astype(numpy.int32).reshape(-1, 3) << 16
        return samples, begin


def of_file(source, waiting=0):
    """The description of a pipeline for a WAV file. The appsink holds up to waiting buffers, or all if 0."""
    return (
        f"filesrc location={source} ! wavparse ! tarnupmix name=upmix ! "
        f"appsink name=out sync=false max-buffers={waiting}"
    )


def test_seeking(gst, folder):
    """The output after a seek equals that of the rest of the file, at its time."""
    source = folder / "16-48000.wav"
    stereo = read_samples(source)[0]
    pipeline = Pipeline(gst, of_file(source, waiting=4))
    pipeline.to(gst.State.PLAYING)
    for _ in range(3):
        pipeline.out.emit("pull-sample")
    compared = 0
    for frame in (48000, 480, 96000):
        flags = gst.SeekFlags.FLUSH | gst.SeekFlags.ACCURATE
        assert pipeline.bin.seek_simple(gst.Format.TIME, flags, frame * gst.SECOND // 48000)
        found, begin = pipeline.rest()
        tail = folder / "tail.wav"
        write_stereo(tail, stereo[frame:], 48000, 16)
        assert begin == frame * gst.SECOND // 48000
        compared += same(found, command_output(tail, folder))
    pipeline.to(gst.State.NULL)
    return compared


def test_segment_seek(gst, folder):
    """A segment ends with its tail, before the next segment without a flush."""
    source = folder / "16-48000.wav"
    stereo = read_samples(source)[0]
    pipeline = Pipeline(gst, of_file(source))
    pipeline.to(gst.State.PAUSED)
    second = gst.SECOND

    def play(begin, end, flags):
        assert pipeline.bin.seek(
            1.0, gst.Format.TIME, flags, gst.SeekType.SET, begin * second, gst.SeekType.SET, end * second
        )

    play(0, 1, gst.SeekFlags.FLUSH | gst.SeekFlags.ACCURATE | gst.SeekFlags.SEGMENT)
    pipeline.to(gst.State.PLAYING)
    bus = pipeline.bin.get_bus()
    assert bus.timed_pop_filtered(20 * second, gst.MessageType.SEGMENT_DONE), "the segment did not end"
    play(1, 2, gst.SeekFlags.ACCURATE)
    found, _ = pipeline.rest()
    pipeline.to(gst.State.NULL)
    parts = []
    for k in (0, 1):
        part = folder / "part.wav"
        write_stereo(part, stereo[k * 48000 : (k + 1) * 48000], 48000, 16)
        parts.append(command_output(part, folder))
    return same(found, numpy.concatenate(parts))


def test_latency(gst):
    """A live pipeline has 1088 frames more latency. Returns the reported and the measured latency."""

    def reported_latency(element):
        pipeline = Pipeline(
            gst,
            "audiotestsrc is-live=true ! audio/x-raw,rate=48000,channels=2,format=S16LE ! "
            f"{element} name=upmix ! fakesink sync=true",
        )
        pipeline.to(gst.State.PLAYING)
        query = gst.Query.new_latency()
        assert pipeline.bin.query(query)
        live, minimum, _ = query.parse_latency()
        assert live
        pipeline.to(gst.State.NULL)
        return minimum

    own = round((reported_latency("tarnupmix") - reported_latency("identity")) * 48000 / gst.SECOND)
    assert own == LATENCY, own

    # Frames of input minus frames of output, after each output buffer.
    pipeline = Pipeline(
        gst,
        "audiotestsrc num-buffers=100 samplesperbuffer=64 ! audio/x-raw,rate=48000,channels=2,"
        "format=S16LE ! tarnupmix name=upmix ! fakesink",
    )
    passed_by = {"sink": 0, "src": 0}
    behind = set()

    def count(pad, info):
        name = pad.get_name()
        passed_by[name] += info.get_buffer().get_size() // (4 if name == "sink" else 6)
        if name == "src":
            behind.add(passed_by["sink"] - passed_by["src"])
        return gst.PadProbeReturn.OK

    for name in passed_by:
        pipeline.upmix.get_static_pad(name).add_probe(gst.PadProbeType.BUFFER, count)
    pipeline.to(gst.State.PLAYING)
    assert pipeline.bin.get_bus().timed_pop_filtered(20 * gst.SECOND, gst.MessageType.EOS)
    pipeline.to(gst.State.NULL)
    assert behind == {LATENCY, 0}, behind  # while it runs, and after the tail
    return own, max(behind)


def test_messages(gst, folder):
    """Ten meter messages per second on the pipeline's bus."""
    source = folder / "16-48000.wav"
    pipeline = Pipeline(
        gst, f"filesrc location={source} ! wavparse ! tarnupmix name=upmix post-messages=true ! " "fakesink name=out"
    )
    pipeline.to(gst.State.PLAYING)
    bus = pipeline.bin.get_bus()
    count = 0
    while message := bus.timed_pop_filtered(20 * gst.SECOND, gst.MessageType.ELEMENT | gst.MessageType.EOS):
        if message.type == gst.MessageType.EOS:
            break
        text = message.get_structure().to_string()
        assert text.startswith("tarnupmix,") and "peak=(double)<" in text and "speed=(int)<" in text, text
        count += 1
    pipeline.to(gst.State.NULL)
    assert count == FRAMES // 4800, count


def main():
    plugin, build = map(Path, sys.argv[1:])
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        os.environ |= {"GST_PLUGIN_PATH": str(plugin.parent), "GST_REGISTRY": f"{folder}/registry.bin"}
        import gi  # reads the environment

        gi.require_version("Gst", "1.0")
        from gi.repository import Gst

        Gst.init(None)
        test_inspection()
        test_installation(folder, build)
        compared = sum(
            test(folder)
            for test in (
                test_files,
                test_buffer_sizes,
                test_settings,
                test_rates_change,
                test_films,
                test_page,
                test_ten_minutes,
            )
        )
        test_films_with_pictures(folder)
        test_seeing(folder)
        compared += test_seeking(Gst, folder) + test_segment_seek(Gst, folder)
        test_messages(Gst, folder)
        told, taken = test_latency(Gst)
        floats = test_floats(folder)
        version = Gst.version_string().split()[-1]
        passed(Row(f"GStreamer {version}, integers", compared, 0, 32, f"{told} frames", taken))
        passed(Row(f"GStreamer {version}, floats", floats, 0, 24, f"{told} frames", taken))


main()
