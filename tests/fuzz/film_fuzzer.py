#!/usr/bin/python3
"""Runs tarn-film on damaged films.

    film_fuzzer.py TARN_FILM FOLDER RUNS [FIRST]

Makes short films in FOLDER, damages them at random, and upmixes each one. The number of a run, which begins at FIRST, is the
seed of everything random in it. A finding is a crash, a report of a sanitizer, a run that takes too long or too much memory
or disk, an undocumented exit code, a file that is left behind after a failure, or an output that ffprobe cannot read or
whose upmixed track ffmpeg cannot decode. The films of findings stay in FOLDER/findings.
"""
# SPDX-License-Identifier: MIT

from collections import Counter
from concurrent.futures import ThreadPoolExecutor
import json
import os
from pathlib import Path
import random
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import threading

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "film"))
from ffmpeg import ENCODERS, ffmpeg  # noqa: E402

FILM = Path(sys.argv[1]).resolve()
FOLDER = Path(sys.argv[2]).resolve()
SECONDS = 2
MAX_SECONDS = 60
MAX_FILE_BYTES = 1 << 28
EXIT_CODES = {0, 1, 65}  # upmixed, upmixed with a loss, not a film or no sound
SANITIZER_EXIT = 99
OUTPUTS = [(codec, "mkv") for codec in ("flac", "ac3", "eac3", "aac", "opus", "pcm")]
OUTPUTS += [(codec, "mp4") for codec in ("flac", "ac3", "eac3", "aac", "opus")]
CHAPTERS = """;FFMETADATA1
title=A film
[CHAPTER]
TIMEBASE=1/1000
START=0
END=1000
title=One
[CHAPTER]
TIMEBASE=1/1000
START=1000
END=2000
title=Two
"""
SUBTITLES = "1\n00:00:00,200 --> 00:00:00,900\nOne\n\n2\n00:00:01,000 --> 00:00:01,500\nTwo\n"
ENVIRONMENT = {
    **os.environ,
    "ASAN_OPTIONS": f"exitcode={SANITIZER_EXIT}:hard_rss_limit_mb=1024:fast_unwind_on_malloc=0",
    "LSAN_OPTIONS": f"suppressions={Path(__file__).with_name('film_leaks.txt')}:print_suppressions=0",
    "UBSAN_OPTIONS": f"exitcode={SANITIZER_EXIT}:print_stacktrace=1",
}


def make_seed(path, codec, options=()):
    """A film with subtitles, chapters, a font and a cover, as far as its container holds them."""
    folder = path.parent
    extras = {".mkv": ["-map", "1:s", "-c:s", "srt"], ".mp4": ["-map", "1:s", "-c:s", "mov_text"]}
    covers = {".mkv": ["-attach", folder / "cover.png", "-metadata:s:t", "mimetype=image/png"],
              ".mp4": ["-map", "5:v", "-c:v:1", "copy", "-disposition:v:1", "attached_pic"]}  # fmt: skip
    ffmpeg(
        "-f", "lavfi", "-i", f"testsrc=s=64x48:r=25:d={SECONDS}", "-i", folder / "text.srt", "-i", folder / "chapters.txt",
        "-f", "lavfi", "-i", f"anoisesrc=d={SECONDS}:c=pink:a=0.3:seed=1",
        "-f", "lavfi", "-i", f"aevalsrc=0.5*sin(2000*t)|0.3*sin(3000*t*t):s=48000:d={SECONDS}",
        "-i", folder / "cover.png",
        "-map", "0:v", "-map", "4:a", "-map", "3:a", *extras.get(path.suffix, []), "-map_metadata", 2, "-map_chapters", 2,
        "-c:v:0", "libx264", "-preset", "ultrafast", "-bf", 2, "-g", 10, *covers.get(path.suffix, []),
        "-c:a", ENCODERS[codec], "-ac:a:1", 1, "-strict", -2, *options, path,
    )  # fmt: skip


def make_seeds(folder):
    """Returns the films and the places of their packets: lists of position and size."""
    folder.mkdir(parents=True)
    (folder / "chapters.txt").write_text(CHAPTERS)
    (folder / "text.srt").write_text(SUBTITLES)
    ffmpeg("-f", "lavfi", "-i", "testsrc=s=32x32:d=1", "-frames:v", 1, folder / "cover.png")
    lost = {
        "drops": ("-bsf:a", "noise=drop=gt(mod(n\\,9)\\,6)"),
        "noise": ("-bsf:a", "noise=amount=40"),
    }
    for container in ("mkv", "mp4", "ts"):
        for codec in ENCODERS:
            if (container, codec) in {("mp4", "pcm"), ("ts", "pcm"), ("ts", "flac")}:
                continue  # the container has no such codec
            make_seed(folder / f"{codec}.{container}", codec)
            for name, options in lost.items():
                make_seed(folder / f"{codec}-{name}.{container}", codec, options)
    make_seed(folder / "fast.mp4", "aac", ("-movflags", "+faststart"))
    make_seed(folder / "fragments.mp4", "aac", ("-movflags", "+frag_keyframe+empty_moov"))
    seeds = {}
    for film in sorted(folder.iterdir()):
        if film.suffix not in {".mkv", ".mp4", ".ts"}:
            continue
        command = ["ffprobe", "-v", "error", "-of", "json", "-show_entries", "packet=pos,size", str(film)]
        packets = json.loads(subprocess.run(command, check=True, capture_output=True).stdout)["packets"]
        seeds[film] = [(int(packet["pos"]), int(packet["size"])) for packet in packets if "pos" in packet]
    return seeds


def cut(chance, film, _):
    del film[chance.randrange(len(film)) :]


def overwrite(chance, film, _):
    for _ in range(chance.choice((1, 3, 10, 100))):
        film[chance.randrange(len(film))] = chance.randrange(256)


def overwrite_header(chance, film, _):
    for _ in range(chance.choice((1, 3, 10))):
        film[chance.randrange(min(len(film), 4096))] = chance.choice((0, 1, 0x7F, 0x80, 0xFF, chance.randrange(256)))


def overwrite_number(chance, film, _):
    place = chance.randrange(max(len(film) - 8, 1))
    number = chance.choice((0, 1, 2**31 - 1, 2**31, 2**32 - 1, 2**63 - 1, 2**63, chance.randrange(2**64)))
    width = chance.choice((2, 4, 8))
    film[place : place + width] = (number % 256**width).to_bytes(width, "big")


def remove_part(chance, film, _):
    place = chance.randrange(len(film))
    del film[place : place + chance.choice((1, 7, 188, 1880, 10000))]


def move_part(chance, film, _):
    place = chance.randrange(len(film))
    size = chance.choice((4, 188, 1880, 10000))
    part = film[place : place + size]
    del film[place : place + size]
    place = chance.randrange(len(film) + 1)
    film[place:place] = part


def repeat_part(chance, film, _):
    place = chance.randrange(len(film))
    part = film[place : place + chance.choice((4, 188, 1880, 10000))]
    place = chance.randrange(len(film) + 1)
    film[place:place] = part


def overwrite_packets(chance, film, packets):
    for _ in range(chance.choice((1, 5, 20))):
        place, size = chance.choice(packets)
        size = min(size, max(len(film) - place, 0))
        film[place : place + size] = chance.choice((bytes(size), chance.randbytes(size)))


def remove_packets(chance, film, packets):
    for place, size in sorted(chance.sample(packets, min(len(packets), chance.choice((1, 5, 40)))), reverse=True):
        del film[place : place + size]


def damage(chance, film, packets):
    """Damages the bytes of a film. Returns the names of what was done."""
    ways = (cut, overwrite, overwrite_header, overwrite_number, remove_part, move_part, repeat_part, overwrite_packets,
            remove_packets)  # fmt: skip
    chosen = [chance.choice(ways) for _ in range(chance.choice((1, 1, 2, 4)))]
    for way in chosen:
        if film:
            way(chance, film, packets)
    return [way.__name__ for way in chosen]


def limit_file_size():
    resource.setrlimit(resource.RLIMIT_FSIZE, (MAX_FILE_BYTES, MAX_FILE_BYTES))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def problem_of_output(film):
    """What ffprobe and ffmpeg find; none if the file is right."""
    command = ["ffprobe", "-v", "error", "-of", "json", "-show_streams", "-show_format", str(film)]
    probe = subprocess.run(command, capture_output=True, check=False)
    if probe.returncode != 0:
        return f"ffprobe cannot read the output: {probe.stderr.decode()}"
    tracks = [stream for stream in json.loads(probe.stdout)["streams"] if stream.get("codec_type") == "audio"]
    upmixed = [stream["index"] for stream in tracks if stream["channels"] == 6 and stream["disposition"]["default"]]
    if len(upmixed) != 1:
        return f"the output has {len(upmixed)} default tracks with six channels"
    command = ["ffmpeg", "-v", "error", "-xerror", "-i", film, "-map", f"0:{upmixed[0]}", "-f", "null", "-"]
    decoding = subprocess.run(list(map(str, command)), stdin=subprocess.DEVNULL, capture_output=True, check=False)
    if decoding.returncode != 0:
        return f"ffmpeg cannot decode the upmixed track: {decoding.stderr.decode(errors='replace')}"
    return None


def problem_of_run(command, folder, film, target):
    """Runs tarn-film. Returns its exit code and what is wrong; none if all is right."""
    try:
        run = subprocess.run(command, cwd=folder, env=ENVIRONMENT, stdin=subprocess.DEVNULL, capture_output=True,
                             timeout=MAX_SECONDS, preexec_fn=limit_file_size, check=False)  # fmt: skip
    except subprocess.TimeoutExpired:
        return "none", f"it takes more than {MAX_SECONDS} s"
    text = run.stderr.decode(errors="replace")
    if run.returncode not in EXIT_CODES:
        return run.returncode, f"exit code {run.returncode}: {text}"
    if re.search("Sanitizer|runtime error", text):
        return run.returncode, text
    if run.returncode != 0 and film.name not in text and target.name not in text:
        return run.returncode, f"the message does not name the film: {text}"
    expected = {film.name} if run.returncode == 65 else {film.name, target.name}
    found = {path.name for path in folder.iterdir()}
    if found != expected:
        return run.returncode, f"files {sorted(found)} instead of {sorted(expected)}: {text}"
    return run.returncode, problem_of_output(target) if run.returncode != 65 else None


class Fuzzer:
    def __init__(self, seeds):
        self.seeds = seeds
        self.codes = Counter()
        self.findings = 0
        self.lock = threading.Lock()

    def run(self, number):
        chance = random.Random(number)
        seed = chance.choice(list(self.seeds))
        codec, container = chance.choice(OUTPUTS)
        content = bytearray(seed.read_bytes())
        ways = damage(chance, content, self.seeds[seed])
        options = ["--codec", codec]
        options += chance.choice(([], ["--replace"], ["--preset", "plain"], ["--loudness-match"], ["--layout", "5.1"]))
        with tempfile.TemporaryDirectory(prefix="tarn-film-fuzz-") as name:
            folder = Path(name)
            film, target = folder / f"film{seed.suffix}", folder / f"upmixed.{container}"
            film.write_bytes(content)
            command = [str(FILM), "--quiet", *options, film.name, target.name]
            code, problem = problem_of_run(command, folder, film, target)
            with self.lock:
                self.codes[code] += 1
                if problem is None:
                    return
                self.findings += 1
                kept = FOLDER / "findings" / f"{number}{seed.suffix}"
                shutil.copy(film, kept)
                words = " ".join(command[2:-2])
                report = (
                    f"run {number}: {seed.name}, {', '.join(ways)}: tarn-film {words} {kept} out.{container}: {problem}"
                )
                kept.with_suffix(".txt").write_text(report + "\n")
                print(f"fuzz: film: {report[:2000]}", file=sys.stderr)


def main():
    runs = int(sys.argv[3])
    first = int(sys.argv[4]) if len(sys.argv) > 4 else 0
    shutil.rmtree(FOLDER, ignore_errors=True)
    fuzzer = Fuzzer(make_seeds(FOLDER / "seeds"))
    (FOLDER / "findings").mkdir()
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(fuzzer.run, range(first, first + runs)))
    codes = ", ".join(f"exit code {code} {count} times" for code, count in sorted(fuzzer.codes.items(), key=str))
    print(f"fuzz: film: {runs} damaged films: {codes}; {fuzzer.findings} findings")
    return 1 if fuzzer.findings else 0


if __name__ == "__main__":
    sys.exit(main())
