#!/usr/bin/env python3
"""Counts instructions per block, in total and per stage, for every instruction set that valgrind can run.

    bench/speed/instructions.py           the engine
    bench/speed/instructions.py --room    the output stage of the preset film in 5.1

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
OUTPUT_STAGE = "zrk_tarn::OutputStage::"
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
    """A function's name without namespaces and arguments, but with its class."""
    return re.sub(r"^(void |unsigned int )?([a-z]\w*::)*", "", re.sub(r"\((?!anonymous).*", "", function))


def profile(program, mode, instruction_set, blocks):
    """The result of read_profile for a run of blocks, or None where valgrind lacks the instruction set."""
    with tempfile.TemporaryDirectory() as directory:
        path = Path(directory) / "callgrind.out"
        command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={path}"]
        command += [str(program), mode, instruction_set, str(blocks)]
        run = subprocess.run(command, capture_output=True, text=True)
        if "cannot run" in run.stderr:
            return None
        run.check_returncode()
        return read_profile(path.read_text().splitlines())


def count_stages(calls, own, whole, is_divided):
    """Instructions below the function whole, {name: instructions}. Divided functions are replaced by their callees."""
    counts = {}

    def add(function):
        for callee, instructions in calls.get(function, {}).items():
            if is_divided(callee):
                add(callee)
            elif not callee.endswith("chosenOperations()") and not callee.startswith("__"):
                counts[short(callee)] = counts.get(short(callee), 0) + instructions

    add(whole)
    total = own[whole] + sum(calls[whole].values())
    counts["calls and the rest"] = total - sum(counts.values())
    counts["total"] = total
    return counts


def count_engine(calls, own, instruction_set):
    """Instructions of the stages of the engine."""
    flow = f"zrk_tarn::{instruction_set}::processCine3(ZRKTarn&)"
    return count_stages(calls, own, BLOCK_OPERATION, lambda function: function == flow)


def count_room(calls, own):
    """Instructions of the parts of the output stage."""
    (process,) = (function for function in calls if function.startswith(f"{OUTPUT_STAGE}process("))
    return count_stages(calls, own, process, lambda function: OUTPUT_STAGE in function.split("(")[0])


def per_block(program, room, instruction_set, few, many):
    """Instructions per block, {name: instructions}, or None where valgrind lacks the instruction set."""
    mode = "--room" if room else "--blocks"
    profiles = [profile(program, mode, instruction_set, blocks) for blocks in (few, many)]
    if None in profiles:
        return None
    of_few, of_many = (count_room(*p) if room else count_engine(*p, instruction_set) for p in profiles)
    return {name: (of_many[name] - of_few.get(name, 0)) / (many - few) for name in of_many}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", type=Path, default=DEFAULT_PROGRAM, help="tarn_speed (%(default)s)")
    parser.add_argument("--room", action="store_true", help="count the output stage, not the engine")
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
        column = per_block(options.program, options.room, instruction_set, few, many)
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
