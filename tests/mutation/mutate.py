#!/usr/bin/python3
"""Changes the sources in one place at a time and runs the tests, which must fail.

    mutate.py FOLDER [--count N] [--seed N]

FOLDER is a folder of sources. A change is another operator, a constant one larger, the other truth value, or a call left
out. N changes are chosen at random. Each is built in a copy of the tree, and the tests of the folder run until one fails.
Prints the changes that no test noticed and a line of counts. Changes that do not compile are not counted. Those of
equivalent.txt, which cannot change what the program does, are counted on their own. The exit code is 1 if fewer than 95 %
of the others were noticed.
"""
# SPDX-License-Identifier: MIT

import argparse
from collections import Counter
import os
from pathlib import Path
import random
import shutil
import signal
import subprocess
import sys

from mutants import find_mutants

ROOT = Path(__file__).resolve().parents[2]
WORK = ROOT / "build/mutate"
TREE = WORK / "tree"
BUILD = WORK / "build"
EQUIVALENT = Path(__file__).with_name("equivalent.txt")
MIN_SHARE = 0.95
TEST_SECONDS = 900
JOBS = str(os.cpu_count())

ENGINE = ("engine", "cinema", "filterbank", "io", "lanes", "dispatch", "host")
STREAM = ("stream", "room", "c_api")
COMMAND = ("cli", "picture")
SETS = ("sse2", "avx2", "avx512")
STAGE_TESTS = tuple(f"tarn_{name}_stage_tests" for name in SETS)


def program(name, *options):
    """The command of a test program, which stops at the first failure."""
    return [str(BUILD / "tests" / name), "--gtest_fail_fast", "--gtest_brief", *options]


def ctest(pattern, *options):
    """The command of the tests whose names match; the last ones that failed run first."""
    return ["ctest", "--test-dir", str(BUILD), "--stop-on-failure", "-j", JOBS, "--timeout", "120", "-R", pattern, *options]


def tests_of(folder):
    """What to build for the tests of a folder, and the commands that run them, the quickest first."""
    top = folder.split("/")[0]
    every_set = [program("tarn_block_tests", f"--instruction-set={name}") for name in SETS]
    if top in ENGINE:
        targets = [*STAGE_TESTS, "tarn_block_tests", "tarn_tests", "tarn_stream_tests", "tarn_realtime_tests"]
        stages = [program(f"tarn_{name}_stage_tests") for name in SETS]
        last = [program("tarn_stream_tests"), program("tarn_realtime_tests")]
        return targets, [*stages, program("tarn_tests"), *every_set, *last]
    if top in STREAM:
        targets = ["tarn_stream_tests", "tarn_room_tests", "tarn_c_interface_test", "tarn_tests", "tarn_realtime_tests"]
        return targets, [program(target) for target in targets]
    if top in COMMAND:
        return ["all"], [ctest("^(Command|Picture|Facts|Corpus)")]
    if top == "plugins":
        return ["all"], [ctest(r"^Hosts\.(lv2|ladspa|gstreamer|alsa)")]
    sys.exit(f"mutate: no tests for {folder}; there are {', '.join((*ENGINE, *STREAM, *COMMAND, 'plugins'))}")


def succeeds(command, seconds=None):
    """Whether a command succeeds in time. Its children end with it."""
    with subprocess.Popen(
        command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True
    ) as process:
        try:
            return process.wait(seconds) == 0
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            return False


def update(path, content):
    """Writes a file if its content differs, so that only what changed is built again."""
    if not path.exists() or path.read_bytes() != content:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)


def copy_tree():
    """Copies all files that git does not ignore."""
    listing = ["git", "-C", str(ROOT), "ls-files", "-co", "--exclude-standard", "-z"]
    names = subprocess.run(listing, check=True, capture_output=True, text=True).stdout.split("\0")
    for name in filter(None, names):
        if (ROOT / name).is_file():
            update(TREE / name, (ROOT / name).read_bytes())
            shutil.copymode(ROOT / name, TREE / name)


def configure(with_plugins):
    """Configures the build of the copy: optimised, without warnings as errors."""
    options = ["-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", "-DCMAKE_CXX_COMPILER=g++"]
    options.append(f"-DTARN_BUILD_PLUGINS={'ON' if with_plugins else 'OFF'}")
    subprocess.run(
        ["cmake", "-G", "Ninja", "-S", str(TREE), "-B", str(BUILD), *options], check=True, stdout=subprocess.DEVNULL
    )


def build(targets):
    """Whether the copy can be built."""
    return succeeds(["cmake", "--build", str(BUILD), "-j", JOBS, "--target", *targets])


def shown(mutant):
    """A mutant as a line: the place, the source line before and after."""
    source = (ROOT / mutant.file).read_bytes()
    changed = mutant.applied_to(source)

    def line_of(content):
        begin = content.rfind(b"\n", 0, mutant.offset) + 1
        return content[begin : content.find(b"\n", mutant.offset)].decode().strip()

    return f"{mutant.file}: {line_of(source)} -> {line_of(changed)}"


def equivalents():
    """The lines of equivalent.txt, each without its reason, which is the line below it."""
    lines = EQUIVALENT.read_text().splitlines()
    return {line for line in lines if line and not line.startswith(("#", " "))}


def outcome_of(mutant, targets, tests):
    """What became of a mutant: not compiled, noticed or unnoticed."""
    path = TREE / mutant.file
    source = path.read_bytes()
    try:
        path.write_bytes(mutant.applied_to(source))
        if not build(targets):
            return "not compiled"
        return "unnoticed" if all(succeeds(test, TEST_SECONDS) for test in tests) else "noticed"
    finally:
        path.write_bytes(source)


def main():
    """Runs the command."""
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("folder")
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    folder = options.folder.rstrip("/")
    targets, tests = tests_of(folder)

    copy_tree()
    configure(folder.startswith("plugins"))
    if not build(targets) or not all(succeeds(test, TEST_SECONDS) for test in tests):
        sys.exit("mutate: the tests fail without a change")
    mutants = find_mutants(TREE, BUILD, folder)
    chosen = random.Random(options.seed).sample(mutants, min(options.count, len(mutants)))
    known = equivalents()
    counts = Counter()
    for mutant in chosen:
        line = shown(mutant)
        outcome = "equivalent" if line in known else outcome_of(mutant, targets, tests)
        counts[outcome] += 1
        if outcome == "unnoticed":
            print(line, flush=True)
    judged = counts["noticed"] + counts["unnoticed"]
    share = counts["noticed"] / judged if judged else 1.0
    print(
        f"{folder}: {len(mutants)} changes, {len(chosen)} chosen, {counts['not compiled']} not compiled, "
        f"{counts['equivalent']} equivalent, {counts['noticed']} of {judged} noticed ({100 * share:.1f} %)"
    )
    sys.exit(0 if share >= MIN_SHARE else 1)


if __name__ == "__main__":
    main()
