#!/usr/bin/python3
"""Changes the sources in one place at a time and runs the tests, which must notice it.

    mutate.py FOLDER [COUNT [SEED]]

FOLDER is a folder of sources or one source. A change is another operator, a constant larger by 1, the other truth value,
or a call left out. COUNT changes (default 100) are chosen at random by the SEED (default 1), in folders of more than 40
sources in 40 of them. Each is built in a copy of the tree in build/mutate, and the tests of the folder run until one
fails or takes much longer than without a change. Prints what became of each change. Those that the compiler refuses are
not counted. Those of equivalent.txt, which cannot change what the program does, are not tried. The exit code is 1 if
fewer than 95 % of the others were noticed.
"""
# SPDX-License-Identifier: MIT

from collections import Counter
from dataclasses import dataclass
import fcntl
import json
import os
from pathlib import Path
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

from mutants import find_mutants

ROOT = Path(__file__).resolve().parents[2]
TREE = ROOT / "build/mutate"
EQUIVALENT = Path(__file__).with_name("equivalent.txt")
MIN_SHARE = 0.95
JOBS = os.cpu_count() or 1
# Of a test: a mutant may allocate without end.
ADDRESS_SPACE = 8 << 30
# A test that takes longer has noticed the change. The seconds allow for other work on the machine.
LIMIT_FACTOR, LIMIT_SECONDS = 5, 10

STAGES = [f"tarn_{name}_stage_tests" for name in ("sse2", "avx2", "avx512")]
ENGINE = [*STAGES, "tarn_tests", "tarn_block_tests", "tarn_stream_tests"]
STREAM = ["tarn_stream_tests", "tarn_room_tests", "tarn_c_interface_test", "tarn_block_tests", "tarn_tests"]
COMMAND = ["tarn_cli_tests"]
PORTS = ["tarn", "tarn_port_sessions"]
# Folders, each with the targets of its tests, and the tests: a pattern of the command of a test.
GROUPS = {
    **dict.fromkeys(("engine", "cinema", "filterbank", "io", "lanes", "dispatch", "host"), (ENGINE, "|".join(ENGINE))),
    **dict.fromkeys(("stream", "room", "c_api"), (STREAM, "|".join(STREAM))),
    "cli": (COMMAND, "|".join(COMMAND)),
    "picture": (["tarn_picture_tests"], "tarn_picture_tests"),
    "plugins/lv2": ([*PORTS, "tarn_lv2_host_tests"], "tarn_lv2_host_tests|lv2_test.py|tarn_port_sessions.*lv2"),
    "plugins/ladspa": (
        [*PORTS, "tarn_ladspa_realtime_tests"],
        "ladspa_calls_test.py|tarn_ladspa_realtime_tests|tarn_port_sessions.*ladspa",
    ),
    "plugins/common": ([*PORTS, "tarn_lv2_host_tests"], "tarn_lv2_host_tests|lv2_test.py|ladspa_calls_test.py"),
    "plugins/alsa": (["tarn", "tarn_alsa"], "alsa_calls_test.py"),
    "plugins/gstreamer": (["tarn", "gsttarn", "gstreamer_element_test"], "gstreamer_element_test.py"),
}


@dataclass
class Test:
    """A test as CTest runs it, and its duration and result without a change."""

    name: str
    command: list
    folder: str
    environment: dict
    seconds: float = 0.0
    passes: bool = True

    def limit(self):
        """The longest duration."""
        return LIMIT_SECONDS + LIMIT_FACTOR * self.seconds


class Process:
    """A command without input and output, in a session of its own, so that its children end with it."""

    def __init__(self, command, **options):
        self.start = time.monotonic()
        self.process = subprocess.Popen(
            command,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            start_new_session=True,
            **options,
        )

    def seconds(self):
        """Seconds since the start."""
        return time.monotonic() - self.start

    def end(self):
        """Ends what still runs of it."""
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()


def configure(folder):
    """Configures the copy for the tests of a folder. Returns the build's folder."""
    options = ["-DTARN_TEST_WITH_TOOLS=OFF", "-DTARN_TEST_ONCE=OFF"]
    options += ["-DTARN_BUILD_FILM=OFF", "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"]
    preset = "plugins" if folder.startswith("plugins") else "release"
    subprocess.run(
        ["cmake", "--no-warn-unused-cli", "--preset", preset, *options], cwd=TREE, check=True, stdout=subprocess.DEVNULL
    )
    return TREE / "build" / preset


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


def is_built(build, targets):
    """Whether targets can be built."""
    make = Process(["cmake", "--build", str(build), "-j", str(JOBS), "--target", *targets])
    try:
        return make.process.wait() == 0
    finally:
        make.end()


def tests_of(build, pattern):
    """The tests of a build whose command matches."""
    listing = ["ctest", "--test-dir", str(build), "--show-only=json-v1"]
    for test in json.loads(subprocess.run(listing, check=True, capture_output=True).stdout)["tests"]:
        if re.search(pattern, " ".join(test.get("command", []))):
            properties = {entry["name"]: entry["value"] for entry in test["properties"]}
            environment = dict(line.split("=", 1) for line in properties.get("ENVIRONMENT", []))
            yield Test(test["name"], test["command"], properties["WORKING_DIRECTORY"], environment)


def started(test, temporary):
    """The process of a test, whose temporary files are in a folder."""
    return Process(
        test.command,
        cwd=test.folder,
        env=os.environ | test.environment | {"TMPDIR": str(temporary)},
        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (ADDRESS_SPACE, ADDRESS_SPACE)),
    )


def first_failure(tests, measure=False):
    """Runs tests, one per processor at a time, until one fails or takes too long. Returns that one. Or measures all
    of them."""
    temporary = TREE / "build/temporary"
    temporary.mkdir(exist_ok=True)
    waiting = list(reversed(tests))
    running = {}  # by name
    try:
        while waiting or running:
            while waiting and len(running) < JOBS:
                test = waiting.pop()
                running[test.name] = (test, started(test, temporary))
            time.sleep(0.005)
            for test, run in list(running.values()):
                code = run.process.poll()
                if not measure and (code or (code is None and run.seconds() > test.limit())):
                    return test
                if code is not None:
                    run.end()  # a test leaves no children
                    del running[test.name]
                    if measure:
                        test.seconds, test.passes = run.seconds(), code == 0
        return None
    finally:
        for _, run in running.values():
            run.end()
        shutil.rmtree(temporary, ignore_errors=True)  # what was killed may still end


def shown(mutant):
    """A mutant as a line: the file, the source line before and after."""
    source = (ROOT / mutant.file).read_bytes()

    def line_of(content):
        begin = content.rfind(b"\n", 0, mutant.offset) + 1
        return content[begin : content.find(b"\n", mutant.offset)].decode().strip()

    return f"{mutant.file}: {line_of(source)} -> {line_of(mutant.applied_to(source))}"


def equivalents():
    """The lines of equivalent.txt, each without its reason, which is the line below it."""
    lines = EQUIVALENT.read_text().splitlines()
    return {line for line in lines if line and not line.startswith(("#", " "))}


def outcome_of(mutant, build, targets, tests):
    """What became of a mutant. The test that notices it moves to the front: it may well notice the next one."""
    path = TREE / mutant.file
    source = path.read_bytes()
    try:
        path.write_bytes(mutant.applied_to(source))
        if not is_built(build, targets):
            return "refused", ""
        failed = first_failure(tests)
        if not failed:
            return "unnoticed", f" (line {mutant.line})"
        tests.remove(failed)
        tests.insert(0, failed)
        return "noticed", f" ({failed.name.split()[0]})"
    finally:
        path.write_bytes(source)


def main(folder, count="100", seed="1"):
    """Runs the command."""
    folder = folder.rstrip("/")
    groups = [group for name, group in GROUPS.items() if f"{folder}/".startswith(f"{name}/")]
    if not groups or not (ROOT / folder).exists():
        sys.exit(f"mutate: '{folder}': no tests for it; there are {', '.join(GROUPS)}")
    for number in (count, seed):
        if not re.fullmatch("[1-9][0-9]*", number):
            sys.exit(f"mutate: '{number}': give a number, 1 or more")
    targets, pattern = groups[0]
    TREE.mkdir(parents=True, exist_ok=True)
    try:
        fcntl.flock(os.open(TREE, os.O_RDONLY), fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        sys.exit("mutate: another run is under way")

    copy_tree()
    build = configure(folder)
    if not is_built(build, targets):
        sys.exit(f"mutate: the build fails without a change; cmake --build {build} tells why")
    all_tests = list(tests_of(build, pattern))
    first_failure(all_tests, measure=True)
    for test in all_tests:
        if not test.passes:
            print(f"not used, because it fails without a change: {test.name}", flush=True)
    tests = sorted((test for test in all_tests if test.passes), key=lambda test: test.seconds)

    chooser = random.Random(int(seed))
    mutants = find_mutants(TREE, build, folder, chooser)
    shuffled = list(mutants)
    chooser.shuffle(shuffled)
    chosen = sorted(shuffled[: int(count)])  # one file after the other, because a file that is restored is built again
    known = equivalents()
    counts = Counter()
    for index, mutant in enumerate(chosen, 1):
        line = shown(mutant)
        outcome, note = ("equivalent", "") if line in known else outcome_of(mutant, build, targets, tests)
        counts[outcome] += 1
        print(f"{index:4} {outcome:10} {line}{note}", flush=True)
    judged = counts["noticed"] + counts["unnoticed"]
    print(
        f"{folder}: {len(mutants)} changes, {counts.total()} chosen, {counts['refused']} refused by the compiler, "
        f"{counts['equivalent']} equivalent, {counts['noticed']} of {judged} noticed"
    )
    sys.exit(0 if counts["noticed"] >= MIN_SHARE * judged else 1)


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    if not 2 <= len(sys.argv) <= 4:
        sys.exit("usage: mutate.py FOLDER [COUNT [SEED]]")
    try:
        main(*sys.argv[1:])
    except KeyboardInterrupt:
        sys.exit("mutate: interrupted")
