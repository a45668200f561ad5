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
import shutil
import signal
import subprocess
import sys
import time
import unittest

import numpy

from films import (
    ENCODERS,
    FILM,
    SECONDS,
    TARN,
    FilmTest,
    clicks,
    ffmpeg,
    make_film,
    offsets,
    probed,
    run_film,
    streamhash,
    streams_of,
    timeline,
)


class LipSync(FilmTest):
    def check(self, sources, outputs, code=0):
        def run(pair):
            source, (codec, container) = pair
            name = f"{source.stem}-{source.suffix[1:]}-{codec}.{container}"
            target = self.upmixed(source, name, "--codec", codec, code=code)
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

    def test_a_start_far_below_zero(self):
        """A clock of 33 bits that wraps soon after the start."""
        film = make_film(self.path("wrap.ts"), "ac3", after=("-output_ts_offset", 95435))
        start = float(probed(film, "-show_format")["format"]["start_time"])
        self.assertLess(start, -7)
        self.check([film], [("flac", "mkv"), ("ac3", "mkv"), ("aac", "mp4"), ("flac", "mp4")])
        for target in self.path(".").glob("wrap-*"):
            own = float(probed(target, "-show_format")["format"]["start_time"])
            self.assertAlmostEqual(own - start, 8, delta=0.05, msg=target.name)
            for kind in ("v", "a:1"):
                entries = ("-select_streams", kind, "-show_entries", "packet=pts_time")
                before, after = (
                    [float(packet["pts_time"]) for packet in probed(path, *options)["packets"]]
                    for path, options in ((film, entries[:1] + (kind[0],) + entries[2:]), (target, entries))
                )
                numpy.testing.assert_allclose(after, numpy.array(before) + 8, rtol=0, atol=0.001)

    def test_edit_list(self):
        film = make_film(self.path("whole.mp4"), "aac", video=("-g", 10))
        ffmpeg("-ss", "0.9", "-i", film, "-c", "copy", self.path("edited.mp4"))
        self.check([self.path("edited.mp4")], [("flac", "mkv"), ("aac", "mp4")])

    def test_lost_packets(self):
        film = make_film(self.path("whole.mkv"), "aac")
        ffmpeg("-i", film, "-c", "copy", "-bsf:a", "noise=drop=between(pts*tb\\,1.2\\,2.2)", self.path("gap.mkv"))
        self.check([self.path("gap.mkv")], [("flac", "mkv"), ("aac", "mp4")], code=1)

    def test_variable_frame_rate(self):
        film = make_film(
            self.path("vfr.mkv"), "aac", video=("-vf", "select='not(between(mod(n,25),10,17))'", "-vsync", "vfr")
        )
        self.check([film], [("flac", "mkv"), ("aac", "mp4")])

    def pictures(self, film):
        """Time and hash of every picture, in the order in which they are shown."""
        options = ("-fflags", "+genpts", "-select_streams", "v", "-show_entries", "frame=pts_time")
        frames = probed(film, *options)["frames"]
        chosen = ("-map", "0:v", "-vsync", "passthrough", "-f", "framemd5", "-")
        lines = ffmpeg("-fflags", "+genpts", "-i", film, *chosen).decode().splitlines()
        hashes = [line.split(",")[-1] for line in lines if not line.startswith("#")]
        return [float(frame["pts_time"]) for frame in frames], hashes

    def test_reordered_pictures_without_time_stamps(self):
        for name, encoder, codec in (
            ("a.avi", "mpeg4", "pcm"),
            ("a.mpg", "mpeg2video", "ac3"),
            ("a.vob", "mpeg2video", "ac3"),
        ):
            film = make_film(self.path(name), codec, video=("-c:v", encoder, "-vf", "noise=alls=9:allf=t"))
            packets = probed(film, "-select_streams", "v", "-show_entries", "packet=pts_time")["packets"]
            self.assertTrue(any("pts_time" not in packet for packet in packets), name)
            times, hashes = self.pictures(film)
            for end in ("mkv", "mp4"):
                target = self.upmixed(film, f"{name}.{end}")
                own_times, own_hashes = self.pictures(target)
                self.assertEqual(own_hashes, hashes, target.name)
                numpy.testing.assert_allclose(own_times, times, rtol=0, atol=0.001, err_msg=target.name)
            self.check([film], [("flac", "mkv"), ("ac3", "mp4")])

    def test_no_frame_is_lost(self):
        """Where the clock of the container counts samples, not one."""
        source = make_film(self.path("film.mp4"), "flac")
        for name in ("out.mp4", "out.mkv"):
            target = self.upmixed(source, name, "--codec", "flac", "--preset", "plain")
            rate, start, samples = timeline(target, 0)
            _, expected_start, expected = timeline(source, 0)
            self.assertEqual((start, len(samples)), (expected_start, len(expected)))
            self.assertEqual(clicks(target, 0), clicks(source, 0))

    def test_lossy_tracks_in_mp4_are_not_moved_by_a_frame(self):
        """The clock of MP4 counts samples, so the cross-correlation with the lossless track has its maximum at zero."""
        source = make_film(self.path("film.mp4"), "aac")
        _, start, exact = timeline(self.upmixed(source, "flac.mp4", "--codec", "flac"), 0)
        for codec in ("ac3", "eac3", "aac", "opus"):
            _, own_start, own = timeline(self.upmixed(source, f"{codec}.mp4", "--codec", codec), 0)
            length = len(own) + len(exact)
            spectra = [numpy.fft.rfft(samples, length) for samples in (own, exact)]
            correlation = numpy.fft.irfft(spectra[0] * numpy.conj(spectra[1]), length)
            self.assertEqual((own_start, int(correlation.argmax())), (start, 0), codec)

    def test_joined_recordings(self):
        for container, codec in (("ts", "aac"), ("ts", "ac3"), ("mpg", "ac3")):
            one = make_film(
                self.path(f"{codec}.{container}"),
                codec,
                video=("-c:v", "mpeg2video", "-q:v", 2) if container == "mpg" else (),
            )
            joined = self.path(f"joined-{codec}.{container}")
            joined.write_bytes(3 * one.read_bytes())
            for target in ("mkv", "mp4"):
                out = self.upmixed(joined, f"{container}-{codec}.{target}", "--codec", "ac3", "--replace")
                expected = offsets(one, 0)
                after = offsets(out, 0)
                self.assertGreaterEqual(len(after), 3 * (SECONDS - 1))
                # Gaps of up to 5 ms are not filled. At the joints of this program stream there is one.
                delta = 0.005 if container == "mpg" else 0.001
                for own in after:
                    self.assertAlmostEqual(own, expected[0], delta=delta, msg=out.name)

    def test_a_clock_that_jumps_forward(self):
        """A recording was appended to another whose clock was an hour behind."""
        for codec in ("aac", "ac3"):
            parts = [
                make_film(self.path(f"{hours}.ts"), codec, after=("-output_ts_offset", 3600 * hours))
                for hours in (0, 1, 3)
            ]
            joined = self.path(f"jumps-{codec}.ts")
            joined.write_bytes(b"".join(part.read_bytes() for part in parts))
            for target in ("mkv", "mp4"):
                out = self.upmixed(joined, f"{codec}.{target}", "--codec", "ac3", "--replace")
                self.assertLess(float(probed(out, "-show_format")["format"]["duration"]), 3 * SECONDS + 3)
                after = offsets(out, 0)
                self.assertGreaterEqual(len(after), 3 * (SECONDS - 1))
                for own in after:
                    self.assertAlmostEqual(own, offsets(parts[0], 0)[0], delta=0.001, msg=out.name)

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
            [
                TARN,
                "upmix",
                "--quiet",
                "--force",
                "--layout",
                "5.1",
                *options,
                self.path("track.wav"),
                self.path("up.wav"),
            ],
            check=True,
        )
        target = self.upmixed(source, "out.mkv", "--force", *options)
        raw = ("-c:a", "pcm_s32le", "-f", "s32le", "-")
        self.assertEqual(ffmpeg("-i", target, "-map", "0:a:0", *raw), ffmpeg("-i", self.path("up.wav"), *raw))

    def test_of_16_bits(self):
        self.assert_equal_to_the_command(16)

    def test_of_24_bits(self):
        self.assert_equal_to_the_command(24)

    def test_with_options(self):
        self.assert_equal_to_the_command(24, "--preset", "voice", "--surrounds", "-6", "--mode", "calm", "--gain", "1")

    def test_jitter_of_time_stamps_does_not_move_sound(self):
        source = make_film(self.path("film.mkv"), "flac")
        raw = ("-map", "0:a:0", "-f", "s32le", "-")
        for codec in ("flac", "aac", "vorbis"):
            encoder = "libvorbis" if codec == "vorbis" else codec
            film = self.path(f"{codec}.mkv")
            ffmpeg("-i", source, "-c:v", "copy", "-c:a", encoder, film)
            expected = ffmpeg("-i", self.upmixed(film, f"{codec}-up.mkv"), *raw)
            jitter = "setts=ts=TS+if(between(mod(N\\,20)\\,5\\,6)\\,0.01/TB\\,0)"
            moved = self.path(f"{codec}-moved.mkv")
            ffmpeg("-i", film, "-c", "copy", "-bsf:a", jitter, moved)
            self.assertNotEqual(*(probed(f, "-show_packets", "-select_streams", "a") for f in (film, moved)))
            result = run_film(moved, self.path(f"{codec}-moved-up.mkv"))
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertNotIn("damaged", result.stderr)
            self.assertEqual(ffmpeg("-i", self.path(f"{codec}-moved-up.mkv"), *raw), expected, codec)

    def test_with_matched_loudness(self):
        self.assert_equal_to_the_command(24, "--loudness-match")
        self.assert_equal_to_the_command(16, "--loudness-match", "--preset", "plain")

    def test_matched_loudness_is_reported_as_by_the_command(self):
        source = make_film(self.path("film.mkv"), "flac")
        track = self.path("track.wav")
        ffmpeg("-i", source, "-map", "0:a", "-c:a", "pcm_s24le", "-af", "volume=4dB", track)
        loud = self.path("loud.mkv")
        ffmpeg("-i", source, "-i", track, "-map", "0:v", "-map", "1:a", "-c:v", "copy", "-c:a", "flac", loud)
        options = ["--quiet", "--json", "--loudness-match", "--layout", "5.1"]
        film = json.loads(run_film(*options, loud, self.path("out.mkv")).stdout)
        command = [TARN, "upmix", *options, track, self.path("up.wav")]
        upmix = json.loads(subprocess.run(command, check=True, capture_output=True).stdout)
        self.assertGreater(upmix["limiter"]["seconds"], 0)
        self.assertEqual(film["loudness_lufs"], upmix["loudness_lufs"])
        self.assertEqual(film["gain_db"], upmix["gain_db"])

    def test_dialogue_level_is_that_behind_the_limiter(self):
        source = make_film(self.path("film.mkv"), "flac")
        report = run_film("--quiet", "--json", "--codec", "ac3", "--gain", "12", source, self.path("ac3.mkv"))
        upmix = self.upmixed(source, "flac.mkv", "--gain", "12", "--replace")
        command = ["ffmpeg", "-i", upmix, "-map", "0:a:0", "-af", "ebur128", "-f", "null", "-"]
        text = subprocess.run(command, check=True, capture_output=True, text=True).stderr
        loudness = float(re.findall(r"I: +(-[0-9.]+) LUFS", text)[-1])
        # ffmpeg prints one digit behind the point; the stored level is a whole number.
        self.assertLess(abs(json.loads(report.stdout)["dialogue_level_db"] - loudness), 0.5 + 0.1)


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

    def make_covers(self):
        film = make_film(self.path("bare.mkv"), "aac")
        covers = {"png": self.path("front.png"), "mjpeg": self.path("back.jpg")}
        for cover in covers.values():
            ffmpeg("-f", "lavfi", "-i", "testsrc2=s=64x64", "-frames:v", 1, "-update", 1, cover)
        inputs = [word for path in (film, *covers.values()) for word in ("-i", path)]
        chosen = ("-c", "copy", "-map", "1", "-map", "2")
        video = ("-map", "0", "-disposition:v:1", "attached_pic", "-disposition:v:2", "attached_pic")
        audio = ("-map", "0:a", "-disposition:v:0", "attached_pic", "-disposition:v:1", "attached_pic")
        ffmpeg(*inputs, *video, *chosen, self.path("film.mp4"))
        ffmpeg(*inputs, *audio, *chosen, self.path("song.m4a"))
        files = []
        for index, (cover, mime) in enumerate(zip(covers.values(), ("image/png", "image/jpeg"))):
            files += ["-attach", cover, f"-metadata:s:t:{index}", f"mimetype={mime}"]
        ffmpeg("-i", film, "-c", "copy", *files, self.path("film.mkv"))
        return covers

    def test_mp4_shows_titles_as_names_of_handlers(self):
        make_film(self.path("plain.mkv"), "ac3")
        ffmpeg("-i", self.path("plain.mkv"), "-c", "copy", "-metadata:s:a", "title=Director", self.path("film.mkv"))
        target = self.upmixed(self.path("film.mkv"), "out.mp4")
        names = [stream["tags"]["handler_name"] for stream in streams_of(target, "audio")]
        self.assertEqual(names, ["5.1 (Tarn)", "Director"])

    def test_covers_stay_covers(self):
        covers = self.make_covers()
        names = {"film.mkv": ["front.png", "back.jpg"]}
        for source in ("film.mkv", "film.mp4", "song.m4a"):
            for end in ("mkv", "mka", "mp4", "m4a"):
                result = run_film(self.path(source), self.path(f"{source}.{end}"))
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assertNotRegex(result.stderr, r"\((png|mjpeg)\) is left out")
                streams = streams_of(self.path(f"{source}.{end}"))
                pictures = [stream for stream in streams if stream["disposition"]["attached_pic"]]
                self.assertEqual([picture["codec_name"] for picture in pictures], list(covers), (source, end))
                for picture in pictures:
                    chosen = ("-map", f"0:{picture['index']}", "-c", "copy", "-f", "image2pipe", "-")
                    data = ffmpeg("-i", self.path(f"{source}.{end}"), *chosen)
                    self.assertEqual(data, covers[picture["codec_name"]].read_bytes(), (source, end))
                moving = [s for s in streams if s["codec_type"] == "video" and s not in pictures]
                self.assertEqual(len(moving), 0 if source == "song.m4a" or end == "mka" else 1, (source, end))
                if end in ("mkv", "mka"):
                    expected = names.get(source, ["cover.png", "cover-2.jpg"])
                    self.assertEqual([picture["tags"]["filename"] for picture in pictures], expected)

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

    def test_the_first_track_is_the_default_without_a_mark(self):
        make_film(self.path("stereo.mkv"), "ac3")
        ffmpeg("-i", self.path("stereo.mkv"), "-vn", "-c:a", "ac3", "-ac", 6, self.path("surround.mka"))
        inputs = ("-i", self.path("stereo.mkv"), "-i", self.path("surround.mka"))
        languages = ("-metadata:s:a:0", "language=deu", "-metadata:s:a:1", "language=eng")
        film = self.path("film.ts")
        ffmpeg(*inputs, "-map", "0:v", "-map", "1:a", "-map", "0:a", "-c", "copy", *languages, film)
        self.assertEqual([s["disposition"]["default"] for s in streams_of(film, "audio")], [0, 0])
        self.assert_refusal(
            65, "its default audio track has 6 channels already; add --force-track", film, self.path("no.mkv")
        )
        for options in (("--force-track",), ("--stream", 2), ("--language", "eng")):
            target = self.upmixed(film, f"out{options[0]}.mkv", *options)
            self.assertEqual([s["channels"] for s in streams_of(target, "audio")], [6, 6, 2])
        stereo_first = self.path("stereo-first.ts")
        ffmpeg(*inputs, "-map", "0:v", "-map", "0:a", "-map", "1:a", "-c", "copy", stereo_first)
        self.upmixed(stereo_first, "stereo-first.mkv")

    def test_stream_and_language_together_are_refused(self):
        self.assert_refusal(
            64,
            "--stream and --language: both choose the track; leave one of them out",
            *("--stream", 1, "--language", "deu", "--output-dir", self.path("out"), self.path("film.mkv")),
        )

    def test_tracks_that_are_not_stereo_are_named(self):
        make_film(self.path("stereo.mkv"), "ac3")
        tracks = []
        for index, channels in enumerate((2, 1, 6)):
            tracks += ["-map", "0:a", f"-ac:a:{index}", channels]
        ffmpeg("-i", self.path("stereo.mkv"), *tracks, "-c:a", "ac3", self.path("three.mka"))
        note = "three.mka: not upmixed, because only stereo is: track 1 (ac3, 1 channels), track 2 (ac3, 6 channels)"
        result = run_film(self.path("three.mka"), self.path("out.mka"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn(note, result.stderr)
        self.assertEqual([s["channels"] for s in streams_of(self.path("out.mka"))], [6, 2, 1, 6])
        quiet = run_film("--quiet", self.path("three.mka"), self.path("quiet.mka"))
        self.assertEqual((quiet.returncode, quiet.stderr), (0, ""))
        stereo = run_film(self.path("stereo.mkv"), self.path("stereo-out.mkv"))
        self.assertNotIn("only stereo", stereo.stderr)

    def test_a_mono_film_is_refused(self):
        make_film(self.path("mono.mkv"), "flac", after=("-ac", 1))
        self.assert_refusal(
            65,
            "has no stereo track; its audio tracks: 1 (flac, 1 channels)",
            self.path("mono.mkv"),
            self.path("no.mkv"),
        )

    def test_options_without_an_effect_are_refused(self):
        source = make_film(self.path("film.mkv"), "flac")
        for text, *options in (
            ("--gain: --loudness-match chooses the gain itself", "--gain", 3, "--loudness-match"),
            ("--bitrate: lossless flac has none", "--bitrate", 448),
            ("--dialnorm: opus has none", "--codec", "opus", "--dialnorm", -27),
        ):
            self.assert_refusal(64, text, *options, source, self.path("no.mkv"))

    def test_audio_files(self):
        make_film(self.path("film.mkv"), "flac")
        for name, encoder in (("song.m4a", "alac"), ("song.wv", "wavpack"), ("song.wma", "wmav2")):
            ffmpeg("-i", self.path("film.mkv"), "-vn", "-c:a", encoder, self.path(name))
            stream = streams_of(self.upmixed(self.path(name), name + ".mka", "--replace"), "audio")[0]
            self.assertEqual((stream["codec_name"], stream["channels"]), ("flac", 6), name)
            kept = self.upmixed(self.path(name), name + "-kept.mka")
            md5 = ("-f", "md5", "-")  # of samples, because WavPack has other packets in Matroska
            original = ffmpeg("-i", self.path(name), "-map", "0:a", *md5)
            self.assertEqual(ffmpeg("-i", kept, "-map", "0:a:1", *md5), original, name)

    def test_flac_files_hold_the_new_track_alone(self):
        make_film(self.path("film.mkv"), "flac")
        cover = self.path("cover.png")
        ffmpeg("-f", "lavfi", "-i", "testsrc2=s=64x64", "-frames:v", 1, cover)
        song = self.path("song.m4a")
        inputs = ("-i", self.path("film.mkv"), "-i", cover, "-map", "0:a", "-map", "1:v")
        ffmpeg(
            *inputs, "-c:a", "alac", "-c:v", "copy", "-disposition:v", "attached_pic", "-metadata", "title=Song", song
        )
        result = run_film(song, self.path("upmix.flac"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("upmix.flac: audio track 0 (alac) is left out", result.stderr)
        streams = [(s["codec_name"], s.get("channels")) for s in streams_of(self.path("upmix.flac"))]
        self.assertEqual(streams, [("flac", 6), ("png", None)])
        tags = probed(self.path("upmix.flac"), "-show_format")["format"]["tags"]
        self.assertEqual(tags["title"], "Song")
        ffmpeg("-i", song, "-map", "0:a", "-c:a", "pcm_s24le", self.path("song.wav"))
        upmix = [TARN, "upmix", "--quiet", "--layout", "5.1", self.path("song.wav"), self.path("song.flac")]
        subprocess.run(upmix, check=True)
        raw = ("-map", "0:a", "-c:a", "pcm_s32le", "-f", "s32le", "-")
        self.assertEqual(ffmpeg("-i", self.path("upmix.flac"), *raw), ffmpeg("-i", self.path("song.flac"), *raw))


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
        self.assertIn("tarn: 2 of 3 films upmixed into", result.stderr)
        self.assertEqual(sorted(p.name for p in folder.iterdir()), ["one.mp4-5.1.mkv", "two.mkv-5.1.mkv"])
        before = (folder / "one.mp4-5.1.mkv").stat().st_mtime_ns
        again = run_film("--quiet", "--json", "--skip-existing", "--output-dir", folder, films[0], films[2])
        self.assertEqual(again.returncode, 0, again.stderr)
        self.assertEqual([report["skipped"] for report in json.loads(again.stdout)], [True, True])
        self.assertEqual((folder / "one.mp4-5.1.mkv").stat().st_mtime_ns, before)

    def test_wrong_names_are_refused(self):
        self.assert_refusal(64, "name one INPUT and one OUTPUT", self.path("one.mkv"))
        self.assert_refusal(
            64,
            "is a folder; add --recursive to upmix the films in it",
            "--output-dir",
            self.path("out"),
            self.path("."),
        )
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
        self.assert_refusal(64, "-: films are not read from a pipe; name a file", "-", out)
        message = "films are not written with this extension; end the name in .mkv, .mp4, .mka, .m4a or .flac"
        for name in ("out.xyz", "out.ogg", "out.avi"):
            self.assert_refusal(64, message, film, self.path(name))
        self.assert_refusal(64, "cannot hold pcm", "--codec", "pcm", film, self.path("out.mp4"))
        self.assert_refusal(
            64,
            "--bitrate 5000: ac3 with 6 channels at 48000 Hz has no such rate; the default is 448",
            "--codec",
            "ac3",
            "--bitrate",
            "5000",
            film,
            out,
        )
        self.assertEqual(self.names(), ["film.mkv", "text.mkv"])

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
        self.assertEqual(self.names(), ["long.mka"])


class Damage(FilmTest):
    """What is missing is named, with the exit code of tarn upmix."""

    def upmix_damaged(self, code, film, *options):
        result = run_film("--quiet", "--json", *options, film, self.path("out.mkv"))
        self.assertEqual(result.returncode, code, result.stderr)
        report = json.loads(result.stdout)
        self.assertEqual(report.get("exit_code"), code)
        self.assertIn(f"{film.name}: is cut short or damaged: ", result.stderr)
        return result.stderr, report

    def test_a_whole_film_has_no_loss(self):
        for codec, container in (("aac", "mp4"), ("ac3", "ts"), ("opus", "mkv")):
            film = make_film(self.path(f"film.{container}"), codec)
            result = run_film("--json", film, self.path(f"out-{container}.mkv"))
            self.assertEqual((result.returncode, json.loads(result.stdout).get("loss")), (0, None))
            self.assertNotIn("damaged", result.stderr)

    def test_a_whole_film_that_starts_late_has_no_loss(self):
        for seconds in (3, 60):
            for codec, container in (("aac", "mp4"), ("ac3", "mov"), ("ac3", "ts"), ("flac", "mkv")):
                late = ("-output_ts_offset", seconds)
                film = make_film(self.path(f"film.{container}"), codec, after=late)
                result = run_film("--json", "--force", film, self.path(f"out-{container}.mkv"))
                self.assertEqual((result.returncode, json.loads(result.stdout).get("loss")), (0, None), result.stderr)
                self.assertNotIn("damaged", result.stderr)
                self.assert_in_sync(film, self.path(f"out-{container}.mkv"), 0.001)
        song = self.path("song.wma")
        ffmpeg("-i", self.path("film.mkv"), "-vn", "-c:a", "wmav2", "-output_ts_offset", 3, song)
        self.upmixed(song, "song.mka")

    def test_a_cut_film_that_starts_late_has_a_loss(self):
        for container in ("mkv", "mp4"):
            options = ("-output_ts_offset", 3, *(("-movflags", "+faststart") if container == "mp4" else ()))
            film = make_film(self.path(f"film.{container}"), "flac", after=options)
            cut = self.path(f"cut.{container}")
            cut.write_bytes(film.read_bytes()[: film.stat().st_size * 6 // 10])
            errors, _ = self.upmix_damaged(1, cut, "--force")
            self.assertRegex(errors, r"it declares a length of 0:07\.0\d\d and ends at 0:0[3-5]")

    def test_a_change_of_channels_is_named_as_such(self):
        for channels in (2, 6, 1):
            tone = f"sine=440:r=48000:d={64 * 1536 / 48000}"  # 64 packets
            ffmpeg("-f", "lavfi", "-i", tone, "-ac", channels, "-c:a", "ac3", self.path(f"{channels}.ac3"))
        for order, counted, lost in ((262, "6 channels", "become silence"), (216, "1 channel", "the last 4.")):
            joined = self.path(f"{order}.ac3")
            joined.write_bytes(b"".join(self.path(f"{channels}.ac3").read_bytes() for channels in str(order)))
            film = self.path(f"{order}.ts")
            ffmpeg("-i", joined, "-c", "copy", film)
            packets = probed(film, "-show_entries", "packet=pts_time")["packets"]
            time = float(packets[64]["pts_time"])
            result = run_film("--json", film, self.path(f"{order}.mka"))
            self.assertEqual(result.returncode, 1, result.stderr)
            self.assertNotRegex(result.stderr, "damage|not upmixed, because")
            change = rf"{order}\.ts: track 0 changes to {counted} at 0:0(\d\.\d+), and only stereo is upmixed; .*"
            match = re.search(change + re.escape(lost), result.stderr)
            self.assertIsNotNone(match, result.stderr)
            self.assertAlmostEqual(float(match.group(1)), time, delta=0.001)
            self.assertIn("; cut the film there, and upmix the stereo parts", result.stderr)
            seconds = json.loads(result.stdout)["loss"]["seconds"]
            self.assertAlmostEqual(seconds, 64 * 1536 / 48000 * (1 if order == 262 else 2), delta=0.001)

    def make_gap(self, start, end):
        film = make_film(self.path("whole.mkv"), "flac")
        ffmpeg(
            "-i", film, "-c", "copy", "-bsf:a", f"noise=drop=between(pts*tb\\,{start}\\,{end})", self.path("gap.mkv")
        )
        return self.path("gap.mkv")

    def test_a_second_that_is_missing_is_named(self):
        errors, report = self.upmix_damaged(1, self.make_gap(1.2, 2.4))
        lost = float(re.search(r"([0-9.]+) s of its sound are missing and become silence", errors).group(1))
        self.assertAlmostEqual(lost, 1.2, delta=0.1)
        self.assertAlmostEqual(report["loss"]["seconds"], lost, delta=0.001)
        self.assertRegex(errors, r"the damage of the sound begins at 0:01\.[12]")

    def test_less_than_a_second_is_only_named(self):
        errors, report = self.upmix_damaged(0, self.make_gap(1.2, 1.5))
        self.assertIn("are missing and become silence", errors)
        self.assertLess(report["loss"]["seconds"], 1.0)

    def test_a_batch_has_the_exit_code_too(self):
        gap = self.make_gap(1.2, 2.4)
        result = run_film("--output-dir", self.path("out"), gap, self.path("whole.mkv"))
        self.assertEqual(result.returncode, 1, result.stderr)

    def test_a_cut_film_is_upmixed_as_far_as_it_goes(self):
        film = make_film(self.path("film.mkv"), "flac")
        cut = self.path("cut.mkv")
        cut.write_bytes(film.read_bytes()[: film.stat().st_size * 6 // 10])
        errors, report = self.upmix_damaged(1, cut)
        end = re.search(r"it declares a length of 0:04\.0\d\d and ends at 0:0(\d\.\d+)", errors).group(1)
        target = self.path("out.mkv")
        length = len(timeline(target, 0)[2])
        self.assertEqual(length, len(timeline(target, 1)[2]))
        self.assertAlmostEqual(length / 48000, float(end), delta=0.2)
        self.assertAlmostEqual(report["loss"]["seconds"], 4 - float(end), delta=0.1)

    def test_a_cut_film_with_an_index_in_front(self):
        film = make_film(self.path("film.mp4"), "flac", after=("-movflags", "+faststart"))
        cut = self.path("cut.mp4")
        cut.write_bytes(film.read_bytes()[: film.stat().st_size * 6 // 10])
        errors, report = self.upmix_damaged(1, cut)
        self.assertRegex(errors, r"it declares a length of 0:04\.0\d\d and ends at ")
        self.assertGreater(len(timeline(self.path("out.mkv"), 0)[2]), 48000)

    def test_packets_that_cannot_be_decoded_become_silence(self):
        film = make_film(self.path("whole.mkv"), "flac")
        packets = probed(film, "-select_streams", "a", "-show_entries", "packet=pos,size,pts_time")["packets"]
        content = bytearray(film.read_bytes())
        hit = [packet for packet in packets if 1.2 < float(packet["pts_time"]) < 2.8]
        for packet in hit:
            end = int(packet["pos"]) + int(packet["size"])
            content[end - 500 : end - 100] = bytes(400)
        damaged = self.path("damaged.mkv")
        damaged.write_bytes(content)
        errors, _ = self.upmix_damaged(1, damaged)
        self.assertIn(" packets of track 1 are damaged; ", errors)
        self.assertEqual(len(timeline(self.path("out.mkv"), 0)[2]), SECONDS * 48000)

    def test_a_long_packet_is_missing_with_its_whole_length(self):
        song = self.path("song.tta")
        ffmpeg("-f", "lavfi", "-i", "anoisesrc=d=4:r=96000:a=0.3:seed=1", "-ac", 2, song)
        last = probed(song, "-show_entries", "packet=pos,duration")["packets"][-1]
        self.assertGreater(int(last["duration"]), 65536)
        content = bytearray(song.read_bytes())
        content[int(last["pos"]) :] = b"\xff" * (len(content) - int(last["pos"]))
        damaged = self.path("damaged.tta")
        damaged.write_bytes(content)
        errors, report = self.upmix_damaged(0, damaged)
        seconds = int(last["duration"]) / 96000
        self.assertIn(f"; the last {seconds:.3f} s of its sound are missing", errors)
        self.assertAlmostEqual(report["loss"]["seconds"], seconds, delta=0.001)

    def test_a_wrong_time_stamp_is_ignored(self):
        film = make_film(self.path("whole.mkv"), "flac", after=("-cluster_time_limit", "30000"))
        packets = probed(film, "-select_streams", "a", "-show_entries", "packet=pos,pts")["packets"]
        content = bytearray(film.read_bytes())
        for wrong in (30, 9, 0):
            packet = packets[wrong]
            # A block begins with the number of its track and its time in the cluster, of two bytes.
            time = int(packet["pts"]).to_bytes(2, "big")
            place = content.index(b"\x82" + time, int(packet["pos"]))
            self.assertLess(place - int(packet["pos"]), 12)
            content[place + 1 : place + 3] = (int(packet["pts"]) + 3000).to_bytes(2, "big")
        damaged = self.path("damaged.mkv")
        damaged.write_bytes(content)
        target = self.upmixed(damaged, "out.mkv", "--preset", "plain")
        _, start, samples = timeline(self.upmixed(film, "whole-out.mkv", "--preset", "plain"), 0)
        _, damaged_start, damaged_samples = timeline(target, 0)
        self.assertAlmostEqual(damaged_start, start, delta=0.001)
        self.assertTrue(numpy.array_equal(samples, damaged_samples))

    def test_a_wrong_time_stamp_of_a_transport_stream_moves_only_its_packet(self):
        film = make_film(self.path("whole.ts"), "ac3", video=("-bf", 0))
        whole = film.read_bytes()
        undamaged = self.upmixed(film, "whole.mkv")
        _, start, samples = timeline(undamaged, 0)
        last_click = clicks(undamaged, 0)[-1]
        for kind, start_code, lost in (("picture", b"\xe0", 0), ("sound", b"\xbd", 0.1)):
            for seconds in (20, 3600):
                place = -1
                for _ in range(8):
                    place = whole.index(b"\x00\x00\x01" + start_code, place + 1)
                a, b, c, d, e = whole[place + 9 : place + 14]
                ticks = ((a >> 1 & 7) << 30) + (b << 22) + (c >> 1 << 15) + (d << 7) + (e >> 1) + 90000 * seconds
                bits = (a & 0xF1 | ticks >> 29 & 0xE, ticks >> 22 & 0xFF, ticks >> 14 & 0xFE | 1)
                bits += (ticks >> 7 & 0xFF, ticks << 1 & 0xFE | 1)
                damaged = self.path(f"{kind}-{seconds}.ts")
                damaged.write_bytes(whole[: place + 9] + bytes(bits) + whole[place + 14 :])
                target = self.path(f"{kind}-{seconds}.mkv")
                report = json.loads(run_film("--quiet", "--json", damaged, target).stdout)
                self.assertLessEqual(report.get("loss", {"seconds": 0})["seconds"], lost, target.name)
                _, own_start, own_samples = timeline(target, 0)
                self.assertEqual((own_start, len(own_samples)), (start, len(samples)), target.name)
                self.assertEqual(clicks(target, 0)[-1], last_click, target.name)


class Headroom(FilmTest):
    """Samples beyond full scale of lossy and floating-point tracks."""

    PEAK = 10 ** (4 / 20)

    def make_loud_track(self):
        """Three seconds with a peak of +4 dBFS; silent after one of them."""
        film = self.path("loud.mkv")
        wave = f"{self.PEAK}*sin(2000*t)*lt(mod(t\\,3)\\,1)+0.1*sin(700*t)|{self.PEAK}*cos(1700*t)*lt(mod(t\\,3)\\,1)"
        ffmpeg("-f", "lavfi", "-i", f"aevalsrc={wave}:s=48000:d=3", "-c:a", "pcm_f32le", film)
        return film

    def assert_equal_to_the_command(self, film, *options):
        track = self.path("track.wav")
        ffmpeg("-i", film, "-map", "0:a", "-c:a", "pcm_f32le", track)
        expected = self.path("up.wav")
        subprocess.run(
            [TARN, "upmix", "--quiet", "--force", "--layout", "5.1", *options, track, expected],
            check=True,
            capture_output=True,
        )
        target = self.upmixed(film, "out.mkv", "--force", *options)
        raw = ("-c:a", "pcm_s32le", "-f", "s32le", "-")
        self.assertEqual(ffmpeg("-i", target, "-map", "0:a:0", *raw), ffmpeg("-i", expected, *raw), options)

    def test_a_loud_track_equals_the_command(self):
        film = self.make_loud_track()
        for options in ((), ("--preset", "plain"), ("--preset", "plain", "--limiter"), ("--no-limiter",)):
            self.assert_equal_to_the_command(film, *options)

    def test_a_lossy_track_equals_the_command(self):
        loud = self.make_loud_track()
        for codec in ("aac", "ac3", "libopus"):
            film = self.path(f"{codec}.mkv")
            ffmpeg("-i", loud, "-c:a", codec, "-b:a", "192k", film)
            for options in ((), ("--preset", "plain")):
                self.assert_equal_to_the_command(film, *options)

    def test_a_track_without_limiter_is_scaled_down_and_not_clipped(self):
        result = run_film("--preset", "plain", self.make_loud_track(), self.path("out.mkv"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertRegex(result.stderr, r"loud\.mkv: peak \+4\.\d\d dB above full scale: scaled down by 4\.\d\d dB")
        self.assertNotIn("clipped", result.stderr)

    def test_clipping_is_named(self):
        film = make_film(self.path("film.mkv"), "flac")
        result = run_film("--preset", "plain", "--gain", "12", "--json", film, self.path("out.mkv"))
        clipped = json.loads(result.stdout)["clipped_samples"]
        self.assertGreater(clipped, 0)
        self.assertIn(
            f"out.mkv: {clipped} samples were beyond full scale and are clipped; add --limiter", result.stderr
        )

    def test_a_damaged_sample_becomes_silence(self):
        film = self.make_loud_track()
        raw = numpy.frombuffer(ffmpeg("-i", film, "-f", "f32le", "-c:a", "pcm_f32le", "-"), "<f4").copy()
        raw[[2000, 2001, 4000]] = numpy.nan, numpy.inf, -numpy.inf
        self.path("raw").write_bytes(raw.tobytes())
        strange = self.path("strange.mkv")
        ffmpeg("-f", "f32le", "-ar", 48000, "-ac", 2, "-i", self.path("raw"), "-c:a", "copy", strange)
        result = run_film("--quiet", strange, self.path("out.mkv"))
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("of its sound are missing and become silence", result.stderr)


class Places(FilmTest):
    """Disks that are full and folders that cannot be written."""

    def assert_nothing_harmed(self, result, code, text):
        self.assertEqual(result.returncode, code, result.stderr)
        self.assertIn(text, result.stderr)
        self.assertEqual(self.names(), ["film.mkv", "out.mkv"])
        self.assertEqual(self.path("out.mkv").read_text(), "mine")

    def test_a_full_disk(self):
        full_disk = os.environ["TARN_FULL_DISK"]
        film = make_film(self.path("film.mkv"), "flac")
        self.path("out.mkv").write_text("mine")
        command = [FILM, "--quiet", "--force", film, self.path("out.mkv")]
        environment = {**os.environ, "LD_PRELOAD": full_disk}
        result = subprocess.run(command, capture_output=True, text=True, env=environment, check=False)
        self.assert_nothing_harmed(
            result,
            74,
            "out.mkv: writing failed: No space left on device; the existing file is unchanged; free some space",
        )

    def test_a_limit_of_the_file_size(self):
        film = make_film(self.path("film.mkv"), "flac")
        self.path("out.mkv").write_text("mine")
        command = ["sh", "-c", 'ulimit -f 100 && exec "$0" --quiet --force "$@"', FILM, film, self.path("out.mkv")]
        result = subprocess.run(command, capture_output=True, text=True, check=False)
        self.assert_nothing_harmed(
            result, 74, "out.mkv: writing failed: File too large; the existing file is unchanged; raise"
        )

    def test_a_read_only_folder(self):
        film = make_film(self.path("film.mkv"), "flac")
        folder = self.path("locked")
        folder.mkdir()
        folder.chmod(0o555)
        self.path(".").chmod(0o755)
        nobody = 65534 if os.geteuid() == 0 else None  # no folder is read-only for root
        program = Path(shutil.copy(FILM, self.path("tarn-film")))  # the build can be in a folder of root's
        result = subprocess.run(
            [program, film, folder / "out.mkv"], capture_output=True, text=True, user=nobody, check=False
        )
        self.assertEqual(result.returncode, 73, result.stderr)
        self.assertIn(f"cannot create a file in {folder}: Permission denied; choose a directory that", result.stderr)
        self.assertEqual(list(folder.iterdir()), [])


class Players(FilmTest):
    """The result plays."""

    CODECS = (("flac", "mkv"), ("ac3", "mkv"), ("eac3", "mkv"), ("aac", "mp4"), ("opus", "mkv"))

    def films(self):
        source = make_film(self.path("film.mkv"), "aac")
        return [self.upmixed(source, f"{codec}.{end}", "--codec", codec) for codec, end in self.CODECS]

    def test_in_mpv(self):
        for film in self.films():
            command = ["mpv", "--no-config", "--vo=null", "--ao=null", "--untimed", "--audio-channels=5.1", film]
            played = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False)
            self.assertEqual(played.returncode, 0, played.stdout)
            self.assertRegex(played.stdout, r"AO: \[null\] 48000Hz 5\.1", film.name)
            self.assertNotRegex(played.stdout + played.stderr, "(?i)error|failed")

    def test_in_gstreamer(self):
        for film in self.films():
            wave = self.path("played.wav")
            sinks = ["video-sink=fakesink", f"audio-sink=wavenc ! filesink location={wave}"]
            command = ["gst-launch-1.0", "playbin", f"uri={film.as_uri()}", *sinks]
            played = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False)
            self.assertEqual(played.returncode, 0, played.stderr)
            self.assertNotIn("ERROR", played.stderr)
            stream = streams_of(wave)[0]
            self.assertEqual(stream["channels"], 6, film.name)
            self.assertGreaterEqual(float(stream["duration"]), SECONDS, film.name)

    def test_ffprobe_names_the_channels(self):
        for film in self.films():
            first, second = streams_of(film, "audio")
            layout = "5.1(side)" if first["codec_name"] in ("ac3", "eac3") else "5.1"
            self.assertEqual((first["channels"], first["channel_layout"]), (6, layout))
            self.assertEqual([track["disposition"]["default"] for track in (first, second)], [1, 0])
            self.assertEqual(second["channels"], 2)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
