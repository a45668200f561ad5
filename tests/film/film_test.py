#!/usr/bin/python3
"""Runs tarn-film on generated films and reads the results with ffmpeg and ffprobe.

    film_test.py TARN_FILM TARN [TEST...]

Each film has a white flash and a click at every second. The flashes and clicks of the output must be as far apart as those
of the input.
"""
# SPDX-License-Identifier: MIT

from concurrent.futures import ThreadPoolExecutor
import json
import os
from pathlib import Path
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import numpy

FILM, TARN = sys.argv[1:3]
SECONDS = 4
ENCODERS = {"aac": "aac", "flac": "flac", "ac3": "ac3", "opus": "libopus", "pcm": "pcm_s16le"}
VIDEO = f"color=black:s=64x48:r=25:d={SECONDS},drawbox=c=white:t=fill:enable='lt(mod(t,1),0.04)'"
CLICKS = "0.02*sin(2000*t)+if(lt(mod(t\\,1)\\,0.002)\\,0.6\\,0)|0.02*sin(1500*t)+if(lt(mod(t\\,1)\\,0.002)\\,0.6\\,0)"


def ffmpeg(*arguments):
    """Runs ffmpeg and returns its standard output."""
    command = ["ffmpeg", "-v", "error", "-y", *map(str, arguments)]
    return subprocess.run(command, check=True, stdin=subprocess.DEVNULL, capture_output=True).stdout


def probed(film, *options):
    command = ["ffprobe", "-v", "error", "-of", "json", *options, str(film)]
    return json.loads(subprocess.run(command, check=True, capture_output=True).stdout)


def streams_of(film, kind=None):
    streams = probed(film, "-show_streams")["streams"]
    return [stream for stream in streams if kind in (None, stream["codec_type"])]


def run_film(*arguments):
    return subprocess.run([FILM, *map(str, arguments)], capture_output=True, text=True, stdin=subprocess.DEVNULL)


def make_film(path, codec, rate=48000, video=(), before=(), after=()):
    """A film with flashes and clicks; before and after are options of the audio input and of the output."""
    encoder = ENCODERS[codec]
    if codec == "opus":
        rate = 48000
    ffmpeg(
        "-f",
        "lavfi",
        "-i",
        VIDEO,
        *before,
        "-f",
        "lavfi",
        "-i",
        f"aevalsrc={CLICKS}:s={rate}:d={SECONDS}",
        "-c:v",
        "libx264",
        "-preset",
        "ultrafast",
        "-bf",
        2,
        *video,
        "-c:a",
        encoder,
        "-strict",
        -2,
        *after,
        path,
    )
    return path


def flashes(film):
    """Times at which the picture becomes white."""
    frames = subprocess.run(
        ["ffprobe", "-v", "error", "-f", "lavfi", "-i", f"movie={film},signalstats", "-show_entries",
         "frame=pts_time:frame_tags=lavfi.signalstats.YAVG", "-of", "csv=p=0"],
        check=True, capture_output=True, text=True,
    ).stdout  # fmt: skip
    times = [tuple(map(float, line.split(",")[:2])) for line in frames.split() if not line.startswith("N/A")]
    before = [(0.0, 0.0)] + times
    return [time for (time, level), (_, last) in zip(times, before) if level > 128 > last]


def timeline(film, track):
    """The samples of an audio track, the channels added, at their times: rate, time of the first, samples."""
    stream = streams_of(film, "audio")[track]
    rate = int(stream["sample_rate"])
    frames = probed(film, "-select_streams", f"a:{track}", "-show_entries", "frame=pts_time,nb_samples")["frames"]
    channels = int(stream["channels"])
    raw = ffmpeg("-i", film, "-map", f"0:a:{track}", "-f", "f32le", "-c:a", "pcm_f32le", "-")
    samples = numpy.frombuffer(raw, "<f4").reshape(-1, channels).sum(axis=1)
    first = float(frames[0]["pts_time"])
    length = round((float(frames[-1]["pts_time"]) - first) * rate) + frames[-1]["nb_samples"]
    line = numpy.zeros(length)
    position = 0
    for frame in frames:
        start = round((float(frame["pts_time"]) - first) * rate)
        part = samples[position : position + frame["nb_samples"]]
        line[start : start + len(part)] = part[: length - start]
        position += frame["nb_samples"]
    return rate, first, line


def clicks(film, track):
    """Times of the clicks of an audio track."""
    rate, first, line = timeline(film, track)
    loud = numpy.flatnonzero(numpy.abs(line) > 0.25 * numpy.abs(line).max())
    starts = loud[numpy.flatnonzero(numpy.diff(loud, prepend=-rate) > rate // 2)]
    return [first + start / rate for start in starts]


def offsets(film, track):
    """Clicks against flashes, in seconds; only where both are."""
    times = numpy.array(flashes(film))
    heard = [(click, times[numpy.abs(times - click).argmin()]) for click in clicks(film, track)]
    return [click - flash for click, flash in heard if abs(click - flash) < 0.3]


def streamhash(film, *options):
    """A line with the hash of every chosen track."""
    return ffmpeg("-i", film, *options, "-c", "copy", "-f", "streamhash", "-").split()


class FilmTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory(prefix="tarn-film-test-")
        self.addCleanup(self.directory.cleanup)

    def path(self, name):
        return Path(self.directory.name) / name

    def upmixed(self, source, name="out.mkv", *options):
        target = self.path(name)
        result = run_film("--quiet", *options, source, target)
        self.assertEqual(result.returncode, 0, result.stderr)
        return target

    def assert_in_sync(self, source, target, tolerance):
        """The upmixed track is in front of the original, whose place in the input is the first one too."""
        before = offsets(source, 0)
        after = offsets(target, 0)
        self.assertGreaterEqual(len(before), SECONDS - 2)
        self.assertEqual(len(before), len(after))
        for own, expected in zip(after, before):
            self.assertAlmostEqual(own, expected, delta=tolerance, msg=f"{source.name} to {target.name}")

    def assert_refusal(self, code, text, *arguments):
        result = run_film(*arguments)
        self.assertEqual(result.returncode, code, result.stderr)
        self.assertIn(text, result.stderr)


class LipSync(FilmTest):
    def check(self, sources, outputs):
        def run(pair):
            source, (codec, container) = pair
            target = self.upmixed(source, f"{source.stem}-{source.suffix[1:]}-{codec}.{container}", "--codec", codec)
            self.assert_in_sync(source, target, 0.001)

        with ThreadPoolExecutor(os.cpu_count()) as pool:
            list(pool.map(run, [(source, output) for source in sources for output in outputs]))

    def test_every_input(self):
        sources = [
            make_film(self.path(f"{codec}.{container}"), codec)
            for container in ("mkv", "mp4", "ts")
            for codec in ENCODERS
            if (container, codec) not in {("mp4", "pcm"), ("ts", "pcm"), ("ts", "flac")}
        ]
        self.check(sources, [("flac", "mkv"), ("aac", "mp4")])

    def test_every_codec(self):
        source = make_film(self.path("film.mp4"), "aac")
        outputs = [(codec, "mkv") for codec in ("flac", "ac3", "eac3", "aac", "opus", "pcm")]
        outputs += [(codec, "mp4") for codec in ("flac", "ac3", "eac3", "aac", "opus")]
        self.check([source], outputs)

    def test_rates(self):
        sources = [make_film(self.path(f"{rate}.mkv"), "flac", rate) for rate in (44100, 96000)]
        self.check(sources, [("flac", "mkv"), ("ac3", "mp4"), ("opus", "mkv")])

    def test_late_audio(self):
        late = make_film(self.path("late.mkv"), "flac", before=("-itsoffset", "2"))
        self.check([late], [("flac", "mkv"), ("aac", "mp4"), ("opus", "mkv")])

    def test_edit_list(self):
        film = make_film(self.path("whole.mp4"), "aac", video=("-g", 10))
        ffmpeg("-ss", "0.9", "-i", film, "-c", "copy", self.path("edited.mp4"))
        self.check([self.path("edited.mp4")], [("flac", "mkv"), ("aac", "mp4")])

    def test_lost_packets(self):
        film = make_film(self.path("whole.mkv"), "aac")
        ffmpeg("-i", film, "-c", "copy", "-bsf:a", "noise=drop=between(pts*tb\\,1.2\\,2.2)", self.path("gap.mkv"))
        self.check([self.path("gap.mkv")], [("flac", "mkv"), ("aac", "mp4")])

    def test_variable_frame_rate(self):
        film = make_film(
            self.path("vfr.mkv"), "aac", video=("-vf", "select='not(between(mod(n,25),10,17))'", "-vsync", "vfr")
        )
        self.check([film], [("flac", "mkv"), ("aac", "mp4")])

    def test_no_frame_is_lost(self):
        """Where the clock of the container counts samples, not one."""
        source = make_film(self.path("film.mp4"), "flac")
        for name in ("out.mp4", "out.mkv"):
            target = self.upmixed(source, name, "--codec", "flac", "--preset", "plain")
            rate, start, samples = timeline(target, 0)
            _, expected_start, expected = timeline(source, 0)
            self.assertEqual((start, len(samples)), (expected_start, len(expected)))
            self.assertEqual(clicks(target, 0), clicks(source, 0))

    def test_last_frame_of_the_source_is_in_the_output(self):
        source = make_film(self.path("film.mkv"), "pcm")
        for codec in ("ac3", "eac3", "aac", "opus"):
            target = self.upmixed(source, f"{codec}.mkv", "--codec", codec)
            rate, start, samples = timeline(target, 0)
            self.assertGreaterEqual(start + len(samples) / rate, SECONDS - 0.001)


class Samples(FilmTest):
    def assert_equal_to_the_command(self, width, *options):
        source = make_film(self.path("film.mkv"), "flac" if width == 24 else "pcm")
        ffmpeg("-i", source, "-map", "0:a", "-c:a", f"pcm_s{width}le", self.path("track.wav"))
        subprocess.run(
            [TARN, "upmix", "--quiet", "--layout", "5.1", *options, self.path("track.wav"), self.path("up.wav")],
            check=True,
        )
        target = self.upmixed(source, "out.mkv", *options)
        raw = ("-c:a", "pcm_s32le", "-f", "s32le", "-")
        self.assertEqual(ffmpeg("-i", target, "-map", "0:a:0", *raw), ffmpeg("-i", self.path("up.wav"), *raw))

    def test_of_16_bits(self):
        self.assert_equal_to_the_command(16)

    def test_of_24_bits(self):
        self.assert_equal_to_the_command(24)

    def test_with_options(self):
        self.assert_equal_to_the_command(24, "--preset", "voice", "--surrounds", "-6", "--mode", "calm", "--gain", "1")


class Copies(FilmTest):
    def make_full_film(self):
        make_film(self.path("stereo.mkv"), "flac")
        self.path("text.srt").write_text(
            "1\n00:00:01,000 --> 00:00:02,000\nHallo\n\n2\n00:00:03,000 --> 00:00:03,500\nWelt\n"
        )
        self.path("chapters.txt").write_text(
            ";FFMETADATA1\ntitle=The film\nartist=Nobody\n"
            "[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=2000\ntitle=One\n"
            "[CHAPTER]\nTIMEBASE=1/1000\nSTART=2000\nEND=4000\ntitle=Two\n"
        )
        self.path("font.ttf").write_bytes(b"font")
        film = self.path("full.mkv")
        ffmpeg(
            "-i", self.path("stereo.mkv"), "-i", self.path("text.srt"), "-i", self.path("chapters.txt"),
            "-f", "lavfi", "-i", f"sine=440:d={SECONDS}",
            "-map", "0:v", "-map", "3:a", "-map", "0:a", "-map", "1:s", "-map_metadata", "2", "-map_chapters", "2",
            "-c:v", "copy", "-c:a:0", "flac", "-c:a:1", "copy", "-c:s", "srt",
            "-attach", self.path("font.ttf"), "-metadata:s:t", "mimetype=application/x-truetype-font",
            "-metadata:s:s:0", "language=eng", "-disposition:s:0", "forced", "-disposition:a:0", "default",
            "-metadata:s:a:0", "language=fra", "-metadata:s:a:1", "language=deu", film,
        )  # fmt: skip
        return film

    def hashes(self, film, *maps):
        chosen = [word for stream in maps for word in ("-map", stream)]
        return [line.split(b",", 1)[1] for line in streamhash(film, *chosen)]

    def test_every_other_track_is_the_same(self):
        film = self.make_full_film()
        target = self.upmixed(film)
        self.assertEqual(
            self.hashes(target, "0:v", "0:a:0", "0:a:2", "0:s"), self.hashes(film, "0:v", "0:a:0", "0:a:1", "0:s")
        )
        chapters = [
            [chapter[key] for key in ("start_time", "end_time", "tags")]
            for chapter in probed(film, "-show_chapters")["chapters"]
        ]
        self.assertEqual(
            [
                [chapter[key] for key in ("start_time", "end_time", "tags")]
                for chapter in probed(target, "-show_chapters")["chapters"]
            ],
            chapters,
        )
        tags = probed(target, "-show_format")["format"]["tags"]
        self.assertEqual((tags["title"], tags["ARTIST"]), ("The film", "Nobody"))
        streams = streams_of(target)
        self.assertEqual([s["codec_name"] for s in streams], ["h264", "flac", "flac", "flac", "subrip", "ttf"])
        self.assertEqual([s["disposition"]["default"] for s in streams_of(target, "audio")], [0, 1, 0])
        self.assertEqual([s["tags"].get("language") for s in streams[1:5]], ["fra", "deu", "deu", "eng"])
        self.assertEqual(streams[4]["disposition"]["forced"], 1)
        self.assertEqual(streams[5]["tags"]["filename"], "font.ttf")
        self.assertEqual(streams[2]["channel_layout"], "5.1")

    def test_mp4_has_timed_text_and_names_what_it_cannot_hold(self):
        film = self.make_full_film()
        result = run_film(film, self.path("out.mp4"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn(
            "out.mp4: attachment track 4 (ttf) is left out, because this kind of file cannot hold it", result.stderr
        )
        text = ffmpeg("-i", self.path("out.mp4"), "-map", "0:s", "-f", "srt", "-").decode()
        self.assertIn("00:00:01,000 --> 00:00:02,000\nHallo", text)
        self.assertIn("00:00:03,000 --> 00:00:03,500\nWelt", text)

    def test_replace_leaves_the_stereo_track_out(self):
        target = self.upmixed(make_film(self.path("film.mkv"), "flac"), "out.mkv", "--replace")
        self.assertEqual([s["channels"] for s in streams_of(target, "audio")], [6])


class Tracks(FilmTest):
    def test_codecs_have_the_layouts_that_players_expect(self):
        source = make_film(self.path("film.mkv"), "flac")
        layouts = {"flac": "5.1", "ac3": "5.1(side)", "eac3": "5.1(side)", "aac": "5.1", "opus": "5.1"}
        rates = {"ac3": 448000, "eac3": 640000}
        for codec, layout in layouts.items():
            stream = streams_of(self.upmixed(source, f"{codec}.mkv", "--codec", codec), "audio")[0]
            self.assertEqual((stream["codec_name"], stream["channel_layout"]), (codec, layout))
            if codec in rates:
                self.assertEqual(int(stream["bit_rate"]), rates[codec])

    def test_layout_and_bit_rate_can_be_chosen(self):
        source = make_film(self.path("film.mkv"), "flac")
        target = self.upmixed(source, "out.mkv", "--layout", "3.0", "--codec", "ac3", "--bitrate", "256")
        stream = streams_of(target, "audio")[0]
        self.assertEqual((stream["channels"], int(stream["bit_rate"])), (3, 256000))

    def test_stream_and_language_choose_the_track(self):
        make_film(self.path("one.mkv"), "flac")
        film = self.path("two.mkv")
        ffmpeg(
            "-i",
            self.path("one.mkv"),
            "-map",
            "0:v",
            "-map",
            "0:a",
            "-map",
            "0:a",
            "-c",
            "copy",
            "-metadata:s:a:0",
            "language=eng",
            "-metadata:s:a:1",
            "language=deu",
            film,
        )
        for options in (("--language", "deu"), ("--stream", "2")):
            target = self.upmixed(film, "out.mkv", "--force", *options)
            languages = [(s["channels"], s["tags"]["language"]) for s in streams_of(target, "audio")]
            self.assertEqual(languages, [(2, "eng"), (6, "deu"), (2, "deu")])
        self.assert_refusal(
            65,
            "has no stereo track in the language jpn; its audio tracks: 1 (flac, 2 channels, eng)",
            "--language",
            "jpn",
            film,
            self.path("none.mkv"),
        )
        self.assert_refusal(64, "has no audio track of this number", "--stream", "0", film, self.path("none.mkv"))

    def test_a_surround_film_is_refused(self):
        make_film(self.path("stereo.mkv"), "flac")
        film = self.upmixed(self.path("stereo.mkv"), "surround.mkv")
        self.assert_refusal(
            65, "its default audio track has 6 channels already; add --force-track", film, self.path("no.mkv")
        )
        self.assertFalse(self.path("no.mkv").exists())
        self.upmixed(film, "forced.mkv", "--force-track")

    def test_a_mono_film_is_refused(self):
        make_film(self.path("mono.mkv"), "flac", after=("-ac", 1))
        self.assert_refusal(
            65,
            "has no stereo track; its audio tracks: 1 (flac, 1 channels)",
            self.path("mono.mkv"),
            self.path("no.mkv"),
        )

    def test_audio_files(self):
        make_film(self.path("film.mkv"), "flac")
        for name, encoder in (("song.m4a", "alac"), ("song.wv", "wavpack"), ("song.wma", "wmav2")):
            ffmpeg("-i", self.path("film.mkv"), "-vn", "-c:a", encoder, self.path(name))
            stream = streams_of(self.upmixed(self.path(name), name + ".mka", "--replace"), "audio")[0]
            self.assertEqual((stream["codec_name"], stream["channels"]), ("flac", 6), name)


class Batch(FilmTest):
    def test_films_of_a_folder(self):
        for name in ("one.mp4", "two.mkv"):
            make_film(self.path(name), "aac")
        self.path("three.mkv").write_text("not a film")
        films = [self.path(name) for name in ("one.mp4", "three.mkv", "two.mkv")]
        folder = self.path("upmixed")
        result = run_film("--codec", "ac3", "--output-dir", folder, "-j", "2", *films)
        self.assertEqual(result.returncode, 65)
        self.assertIn("three.mkv: is not a film", result.stderr)
        self.assertIn("3 of 3 films done, 1 failed", result.stderr)
        self.assertEqual(sorted(p.name for p in folder.iterdir()), ["one.mp4-5.1.mkv", "two.mkv-5.1.mkv"])
        before = (folder / "one.mp4-5.1.mkv").stat().st_mtime_ns
        again = run_film("--quiet", "--json", "--skip-existing", "--output-dir", folder, films[0], films[2])
        self.assertEqual(again.returncode, 0, again.stderr)
        self.assertEqual([report["skipped"] for report in json.loads(again.stdout)], [True, True])
        self.assertEqual((folder / "one.mp4-5.1.mkv").stat().st_mtime_ns, before)

    def test_wrong_names_are_refused(self):
        self.assert_refusal(64, "name one INPUT and one OUTPUT", self.path("one.mkv"))
        self.assert_refusal(64, "is a folder; add --recursive to upmix the films in it", "--output-dir", self.path("out"), self.path("."))
        self.assert_refusal(64, "--resume: needs --output-dir", "--resume", self.path("a.mkv"), self.path("b.mkv"))
        self.assertFalse(self.path("out").exists())


class Manual(unittest.TestCase):
    def test_describes_every_option(self):
        page = (Path(__file__).parents[2] / "film/tarn-film.1.scd").read_text()
        options = re.findall(r"^  (?:-[a-z],)?(--[a-z-]+)", run_film("--help").stdout, re.MULTILINE)
        self.assertGreater(len(options), 15)
        for option in options:
            self.assertIn(f"*{option}*", page)


class Trouble(FilmTest):
    def test_wrong_inputs_and_outputs_are_refused(self):
        film = make_film(self.path("film.mkv"), "flac")
        self.path("text.mkv").write_text("not a film")
        out = self.path("out.mkv")
        self.assert_refusal(66, "missing.mkv: No such file or directory", self.path("missing.mkv"), out)
        self.assert_refusal(65, "text.mkv: is not a film or a recording that can be read", self.path("text.mkv"), out)
        self.assert_refusal(64, "no container has this extension", film, self.path("out.xyz"))
        self.assert_refusal(64, "cannot hold pcm", "--codec", "pcm", film, self.path("out.mp4"))
        self.assert_refusal(
            64,
            "--bitrate 5000: ac3 with 6 channels at 48000 Hz has no such rate",
            "--codec",
            "ac3",
            "--bitrate",
            "5000",
            film,
            out,
        )
        self.assertEqual(sorted(p.name for p in self.path(".").iterdir()), ["film.mkv", "text.mkv"])

    def test_an_existing_output_stays(self):
        film = make_film(self.path("film.mkv"), "flac")
        self.path("out.mkv").write_text("mine")
        self.assert_refusal(64, "out.mkv", film, self.path("out.mkv"))
        self.assertEqual(self.path("out.mkv").read_text(), "mine")
        self.assert_refusal(64, "film.mkv", "--force", film, film)

    def test_messages_of_a_closed_stream_do_not_reach_the_output(self):
        film = make_film(self.path("film.mkv"), "flac", 96000)  # with a note about the rate
        whole = self.upmixed(film, "whole.mkv", "--codec", "ac3")
        out = self.path("out.mkv")
        command = ["sh", "-c", 'exec "$0" --codec ac3 "$1" "$2" >&- 2>&-', FILM, film, out]
        self.assertEqual(subprocess.run(command, check=False).returncode, 0)
        self.assertEqual(streamhash(out), streamhash(whole))

    def test_a_report_that_cannot_be_printed_is_a_failure(self):
        film = make_film(self.path("film.mkv"), "flac")
        command = ["sh", "-c", 'exec "$0" --quiet --json "$1" "$2" >/dev/full', FILM, film, self.path("out.mkv")]
        self.assertEqual(subprocess.run(command, check=False, capture_output=True).returncode, 74)

    def test_an_interrupted_run_leaves_nothing(self):
        ffmpeg("-f", "lavfi", "-i", "anoisesrc=d=3600:c=pink", "-ac", 2, "-c:a", "flac", self.path("long.mka"))
        process = subprocess.Popen([FILM, "--quiet", self.path("long.mka"), self.path("out.mka")])
        time.sleep(1)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(), -signal.SIGINT)
        self.assertEqual([p.name for p in self.path(".").iterdir()], ["long.mka"])

    def test_a_cut_film_is_upmixed_as_far_as_it_goes(self):
        film = make_film(self.path("film.mkv"), "flac")
        whole = film.read_bytes()
        cut = self.path("cut.mkv")
        cut.write_bytes(whole[: len(whole) * 6 // 10])
        target = self.upmixed(cut)
        self.assertEqual(len(timeline(target, 0)[2]), len(timeline(target, 1)[2]))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
