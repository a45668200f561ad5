#!/usr/bin/python3
"""Runs tarn on sparse files of many gigabytes with damaged headers.

    sparse_fuzzer.py TARN SEEDS FOLDER RUNS [FIRST]

Takes the seeds that make_file_seeds.py wrote to SEEDS, damages their headers at random, and appends up to 20 GB of zeros,
which take no room on the disk. The number of a run, which begins at FIRST, is the seed of everything random in it. A finding
is a command that neither ends in two seconds nor within one more after SIGTERM, that takes too much memory, or that ends in
another way. The bytes before the zeros stay in FOLDER/findings.
"""
# SPDX-License-Identifier: MIT

from collections import Counter
import os
from pathlib import Path
import random
import resource
import shutil
import signal
import subprocess
import sys

TARN, SEEDS, FOLDER = (Path(name).resolve() for name in sys.argv[1:4])
SECONDS = 2
SECONDS_AFTER_SIGTERM = 1
MAX_MEMORY_BYTES = 1 << 30
EXIT_CODES = {0, 1, 65, 74}  # read, read with a loss, not audio, the output is full
LENGTHS = (1 << 24, 3_000_000_000, 5_000_000_000, 20_000_000_000)
NAMES = (b"LIST", b"smpl", b"cue ", b"bext", b"fact", b"PEAK", b"ds64", b"exif", b"COMM", b"MARK", b"pakt", b"info", b"strg",
         b"kuki", b"data", b"SSND", b"COMT", b"INST", b"JUNK", b"id3 ", b"acid", b"cart", b"basc", b"FVER", b"uuid", b"levl",
         b"chan", b"free", b"ANNO", b"desc")  # fmt: skip
SIZES = (
    0,
    1,
    7,
    8,
    24,
    255,
    65535,
    2**31 - 1,
    2**31,
    0xF0000000,
    2**32 - 16,
    2**32 - 8,
    2**32 - 1,
    2**33,
    2**62,
    2**63,
    2**64 - 8,
)
W64_NAME_END = bytes.fromhex("f3acd3118cd100c04f8edb8a")


def size_bytes(chance, mark):
    """A size in the form of a container, and the rest of a chunk's name there."""
    width = 8 if mark in (b"riff", b"caff") else 4
    order = "big" if mark in (b"FORM", b"caff", b"RIFX", b".snd") else "little"
    size = chance.choice(SIZES) % 256**width
    return size.to_bytes(width, order), W64_NAME_END if mark == b"riff" else b""


def overwrite(chance, file):
    file[chance.randrange(min(len(file), 400))] = chance.randrange(256)


def overwrite_number(chance, file):
    size, _ = size_bytes(chance, bytes(file[:4]))
    place = chance.randrange(4, min(len(file), chance.choice((60, 120, 400)))) & ~1
    file[place : place + len(size)] = size


def overwrite_size(chance, file):
    size, rest = size_bytes(chance, bytes(file[:4]))
    found = file.find(chance.choice(NAMES))
    if found > 0:
        place = found + 4 + len(rest)
        file[place : place + len(size)] = size


def insert_chunk(chance, file):
    size, rest = size_bytes(chance, bytes(file[:4]))
    audio = max(file.find(b"data"), file.find(b"SSND"))
    place = chance.choice((audio if audio > 0 else len(file), len(file)))
    file[place:place] = (chance.choice(NAMES) + rest + size) * chance.choice((1, 1, 1, 100, 5000))


def sparse_file(chance, seeds):
    file = bytearray(chance.choice(seeds).read_bytes()[4:])  # without the options
    for _ in range(chance.choice((0, 1, 1, 2, 3))):
        chance.choice((overwrite, overwrite_number, overwrite_size, insert_chunk))(chance, file)
    return file, chance.choice(LENGTHS)


def limit():
    resource.setrlimit(resource.RLIMIT_AS, (MAX_MEMORY_BYTES, MAX_MEMORY_BYTES))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def outcome_of(arguments):
    """Runs tarn. Returns its exit code, or how it ended, and what is wrong; none if all is right."""
    with subprocess.Popen([TARN, *arguments], cwd=FOLDER, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, preexec_fn=limit) as process:  # fmt: skip
        try:
            text = process.communicate(timeout=SECONDS)[1].decode(errors="replace")
        except subprocess.TimeoutExpired:
            process.terminate()
            try:
                process.communicate(timeout=SECONDS_AFTER_SIGTERM)
            except subprocess.TimeoutExpired:
                process.kill()
                process.communicate()
                return "deaf", f"it does not end {SECONDS_AFTER_SIGTERM} s after SIGTERM"
            ended = process.returncode == -signal.SIGTERM
            return "stopped", None if ended else f"exit code {process.returncode} after SIGTERM"
        if process.returncode not in EXIT_CODES:
            return process.returncode, f"exit code {process.returncode}: {text}"
        return process.returncode, None


def main():
    runs = int(sys.argv[4])
    first = int(sys.argv[5]) if len(sys.argv) > 5 else 0
    shutil.rmtree(FOLDER, ignore_errors=True)
    (FOLDER / "findings").mkdir(parents=True)
    seeds = sorted(SEEDS.glob("*-to-wav"))
    codes, findings = Counter(), 0
    for number in range(first, first + runs):
        file, length = sparse_file(random.Random(number), seeds)
        (FOLDER / "in").write_bytes(file)
        os.truncate(FOLDER / "in", max(length, len(file)))
        for arguments in (["info", "in"], ["upmix", "--quiet", "in", "-"]):
            code, problem = outcome_of(arguments)
            codes[code] += 1
            if problem is not None:
                findings += 1
                (FOLDER / "findings" / str(number)).write_bytes(file)
                print(
                    f"fuzz: sparse: run {number}, {length} bytes: tarn {' '.join(arguments)}: {problem}",
                    file=sys.stderr,
                )
    (FOLDER / "in").unlink()
    ends = ", ".join(f"{code} {count} times" for code, count in sorted(codes.items(), key=str))
    print(f"fuzz: sparse: {runs} sparse files: {ends}; {findings} findings")
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
