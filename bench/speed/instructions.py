#!/usr/bin/env python3
"""Counts instructions per block, in total and per stage, for every instruction set that valgrind can run.

    bench/speed/instructions.py

Needs valgrind and the build of preset bench. The result is the difference of two runs of different length, which
excludes initialization.
"""
# SPDX-License-Identifier: MIT

import argparse
from pathlib import Path
import re
import shutil
import subprocess
import sys
import tempfile

DEFAULT_PROGRAM = Path(__file__).resolve().parents[2] / "build/bench/bench/speed/tarn_speed"
BLOCK_OPERATION = "ZRKTarn::ProcessCine3InterLeave(unsigned int, unsigned int)"


def read_profile(lines):
    """Inclusive instructions of callees, {caller: {callee: instructions}}, and the own instructions of functions."""
    names, calls, own = {}, {}, {}
    function = callee = None
    call_follows = False
    for line in lines:
        match = re.match(r"(c?)fn=\((\d+)\)(?: (.*))?$", line)
        if match:
            called, number, name = match.groups()
            if name:
                names[number] = name
            if called:
                callee = names[number]
            else:
                function = names[number]
        elif line.startswith("calls="):
            call_follows = True
        elif re.match(r"[+*\d-]", line):
            instructions = int(line.split()[1])
            if call_follows:
                callees = calls.setdefault(function, {})
                callees[callee] = callees.get(callee, 0) + instructions
            else:
                own[function] = own.get(function, 0) + instructions
            call_follows = False
    return calls, own


def short(function):
    """A function's name without namespaces and arguments."""
    return re.sub(r"^(void |unsigned int )?(\w+::)*", "", re.sub(r"\((?!anonymous).*", "", function))


def count(program, instruction_set, blocks):
    """Instructions of blocks, {name: instructions}, or None where valgrind lacks the instruction set."""
    with tempfile.TemporaryDirectory() as directory:
        profile = Path(directory) / "callgrind.out"
        command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={profile}"]
        command += [str(program), "--blocks", instruction_set, str(blocks)]
        run = subprocess.run(command, capture_output=True, text=True)
        if "cannot run" in run.stderr:
            return None
        run.check_returncode()
        calls, own = read_profile(profile.read_text().splitlines())

    flow = f"zrk_tarn::{instruction_set}::processCine3(ZRKTarn&)"
    counts = {}
    total = own[BLOCK_OPERATION] + sum(calls[BLOCK_OPERATION].values())
    for stage, instructions in calls[flow].items():
        counts[short(stage)] = instructions
    for stage, instructions in calls[BLOCK_OPERATION].items():
        if stage != flow and not stage.endswith("chosenOperations()"):
            counts[short(stage)] = instructions
    counts["calls and the rest"] = total - sum(counts.values())
    counts["total"] = total
    return counts


def per_block(program, instruction_set, few, many):
    """Instructions per block, {name: instructions}, or None where valgrind lacks the instruction set."""
    of_few, of_many = (count(program, instruction_set, blocks) for blocks in (few, many))
    if of_few is None or of_many is None:
        return None
    return {name: (of_many[name] - of_few.get(name, 0)) / (many - few) for name in of_many}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", type=Path, default=DEFAULT_PROGRAM, help="tarn_speed (%(default)s)")
    parser.add_argument("--blocks", type=int, nargs=2, default=(400, 1400), metavar="N", help="lengths of the two runs")
    options = parser.parse_args()
    few, many = options.blocks
    if not 0 < few < many:
        sys.exit("instructions: --blocks: give two lengths, the shorter first")
    if shutil.which("valgrind") is None:
        sys.exit("instructions: valgrind is not installed")
    if not options.program.is_file():
        sys.exit(
            f"instructions: {options.program}: no such program; first\n"
            "cmake --preset bench && cmake --build --preset bench"
        )

    listed = subprocess.run([str(options.program), "--sets"], check=True, capture_output=True, text=True)
    columns = {}
    for instruction_set in listed.stdout.split():
        column = per_block(options.program, instruction_set, few, many)
        if column is None:
            print(f"instructions: valgrind cannot run {instruction_set}", file=sys.stderr)
        else:
            columns[instruction_set] = column
    if not columns:
        sys.exit("instructions: nothing counted")

    print(f"{'instructions per block':<34}" + "".join(f"{name:>12}" for name in columns))
    for name in next(iter(columns.values())):
        print(f"{name:<34}" + "".join(f"{column.get(name, 0):12.0f}" for column in columns.values()))


if __name__ == "__main__":
    main()
