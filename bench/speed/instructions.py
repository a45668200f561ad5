#!/usr/bin/env python3
"""Counts instructions per block, in total and per stage, for every instruction set.

    bench/speed/instructions.py           the engine
    bench/speed/instructions.py --room    the output stage of the preset film in 5.1; not with AVX-512
    bench/speed/instructions.py --command "--preset plain"    all of tarn upmix with these options, WAV to WAV

Needs valgrind and the build of preset bench; for a command that of preset tarn. The result is the difference of two runs
of different length, which excludes initialization. valgrind knows no AVX-512: there the engine runs one instruction at a
time, which takes minutes.
"""
# SPDX-License-Identifier: MIT

import argparse
import array
import bisect
from pathlib import Path
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import wave

BUILD = Path(__file__).resolve().parents[2] / "build"
DEFAULT_PROGRAM = BUILD / "bench/bench/speed/tarn_speed"
COMMAND = BUILD / "tarn/cli/tarn"
COMMAND_BLOCKS = (7500, 15000)  # 10 s and 20 s
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


def functions_of(program):
    """The functions of a program in order of address: addresses, ends and names."""
    command = ["nm", "--demangle", "--defined-only", "--numeric-sort", "--print-size", str(program)]
    lines = subprocess.run(command, check=True, capture_output=True, text=True).stdout.splitlines()
    fields = [line.split(maxsplit=3) for line in lines]
    code = [f for f in fields if len(f) == 4 and f[2] in "tTwWu"]
    starts = [int(f[0], 16) for f in code]
    return starts, [start + int(f[1], 16) for start, f in zip(starts, code)], [f[3] for f in code]


def read_steps(addresses, starts, ends, names):
    """The same as read_profile, from the addresses of executed instructions and the functions of the program."""
    calls, own = {}, {}
    stack = []  # of functions, each with the instructions that were executed when it was called
    last = -1

    def leave(now):
        callee, since = stack.pop()
        if stack:
            callees = calls.setdefault(stack[-1][0], {})
            callees[callee] = callees.get(callee, 0) + now - since

    for now, address in enumerate(addresses):
        index = bisect.bisect_right(starts, address) - 1
        if index < 0 or address >= ends[index]:
            index = len(names)  # another library
        function = names[index] if index < len(names) else "__outside"
        if index != last:
            callers = [name for name, _ in stack]
            if function not in callers or (index < len(names) and address == starts[index]):
                stack.append((function, now))
            else:
                while stack[-1][0] != function:
                    leave(now)
        last = index
        own[function] = own.get(function, 0) + 1
    while stack:
        leave(len(addresses))
    return calls, own


def run_steps(program, instruction_set, blocks):
    """The addresses of all instructions of some blocks, in the order of execution."""
    command = [str(program), "--step", instruction_set, str(blocks)]
    return array.array("Q", subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout)


def short(function):
    """A function's name without namespaces and arguments, but with its class."""
    return re.sub(
        r"^(void |bool |unsigned int )?(([a-z]\w*|\(anonymous namespace\))::)*",
        "",
        re.sub(r"\((?!anonymous).*", "", function),
    )


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


def per_stepped_block(program, instruction_set, blocks):
    """Instructions of the stages of the engine per block, without valgrind."""
    calls, own = read_steps(run_steps(program, instruction_set, blocks), *functions_of(program))
    counts = count_engine(calls, own, instruction_set)
    return {name: count / blocks for name, count in counts.items()}


def objects_of(lines):
    """The programs and libraries of functions, {function: name of the file}."""
    names, objects = {}, {}
    current = None
    for line in lines:
        match = re.match(r"(ob|fn|cob|cfn)=\((\d+)\)(?: (.*))?$", line)
        if not match:
            continue
        kind, number, name = match.groups()
        key = kind.removeprefix("c"), number
        if name:
            names[key] = name
        if kind == "ob":
            current = Path(names[key]).name
        elif kind == "fn":
            objects[names[key]] = current
    return objects


def count_command(lines):
    """Instructions of the parts of tarn upmix, {name: instructions}."""
    calls, own = read_profile(lines)
    objects = objects_of(lines)

    def inclusive(prefix):
        """Of the functions whose names begin so, as callees of others."""
        return sum(cost for of in calls.values() for callee, cost in of.items() if callee.startswith(prefix))

    counts = {"engine": inclusive("zrk_tarn::BlockUpmixer::process("), "adapter": 0, "command": 0}
    for function, instructions in own.items():
        name = objects[function]
        if name == COMMAND.name:
            name = "adapter" if "zrk_tarn::" in function.split("(")[0] else "command"
        counts[name] = counts.get(name, 0) + instructions
    counts["adapter"] -= counts["engine"]
    counts["total"] = sum(own.values())
    return counts


def print_command(arguments, few, many):
    """Prints the instructions per block of tarn upmix for the demo scene, 16 bits at 48 kHz."""
    with tempfile.TemporaryDirectory() as name:
        scene = Path(name) / "scene.wav"
        subprocess.run([str(COMMAND), "demo", str(scene)], check=True, stdout=subprocess.DEVNULL)
        stereo = scene.with_stem("scene-stereo").read_bytes()
        frames = stereo[stereo.index(b"data") + 8 :]  # Python's module wave cannot read this header
        counts = []
        for blocks in (few, many):
            path, profiled = Path(name) / "input.wav", Path(name) / "callgrind.out"
            size = blocks * 64 * 2 * 2
            with wave.open(str(path), "wb") as output:
                output.setnchannels(2)
                output.setsampwidth(2)
                output.setframerate(48000)
                output.writeframes((frames * (size // len(frames) + 1))[:size])
            command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={profiled}", str(COMMAND), "upmix"]
            command += [*arguments, "--quiet", "--force", str(path), str(Path(name) / "output.wav")]
            result = subprocess.run(command, capture_output=True, text=True)
            if result.returncode != 0:
                sys.exit(result.stderr)
            counts.append(count_command(profiled.read_text().splitlines()))
    print(f"{'instructions per block':<34}{'tarn upmix ' + shlex.join(arguments):>30}")
    for part, instructions in counts[1].items():
        slope = (instructions - counts[0].get(part, 0)) / (many - few)
        if round(slope) != 0 or part == "total":
            print(f"{part:<34}{slope:30.0f}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", type=Path, default=DEFAULT_PROGRAM, help="tarn_speed (%(default)s)")
    parser.add_argument("--room", action="store_true", help="count the output stage, not the engine")
    parser.add_argument("--command", metavar="OPTIONS", help="count tarn upmix with these options, not the engine")
    parser.add_argument("--blocks", type=int, nargs=2, metavar="N", help="lengths of the two runs")
    parser.add_argument(
        "--step", type=int, default=128, metavar="N", help="blocks to run by single instructions (%(default)s)"
    )
    options = parser.parse_args()
    few, many = options.blocks or ((400, 1400) if options.command is None else COMMAND_BLOCKS)
    if not 0 < few < many:
        sys.exit("instructions: --blocks: give two lengths, the shorter first")
    if shutil.which("valgrind") is None:
        sys.exit("instructions: valgrind is not installed")
    if options.command is not None:
        if not COMMAND.is_file():
            sys.exit(f"instructions: {COMMAND}: no such program; first ./run tarn --help")
        print_command(shlex.split(options.command), few, many)
        return
    if not options.program.is_file():
        sys.exit(
            f"instructions: {options.program}: no such program; first\n"
            "cmake --preset bench && cmake --build --preset bench"
        )

    listed = subprocess.run([str(options.program), "--sets"], check=True, capture_output=True, text=True)
    columns = {}
    for instruction_set in listed.stdout.split():
        column = per_block(options.program, options.room, instruction_set, few, many)
        if column is None and options.room:
            print(f"instructions: valgrind cannot run {instruction_set}", file=sys.stderr)
            continue
        columns[instruction_set] = column or per_stepped_block(options.program, instruction_set, options.step)

    print(f"{'instructions per block':<34}" + "".join(f"{name:>12}" for name in columns))
    for name in next(iter(columns.values())):
        print(f"{name:<34}" + "".join(f"{column.get(name, 0):12.0f}" for column in columns.values()))


if __name__ == "__main__":
    main()
