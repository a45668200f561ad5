#!/usr/bin/env python3
"""Computes how few cycles the instructions of a block can take on current cores, per function.

    bench/speed/bounds.py avx512

Runs blocks one instruction at a time (tarn_speed --step), takes each instruction's kind from the disassembly, and divides
the number of each kind by what a core starts per cycle. The largest quotient is the bound of a function: what these
instructions take if nothing ever waits for a result. A division counts as one product, so it is a lower bound. Beside the
cycles stands the kind that determines them.
"""
# SPDX-License-Identifier: MIT

import argparse
from collections import Counter
import bisect
import re
import subprocess
import sys

from instructions import DEFAULT_PROGRAM, functions_of, run_steps

# Instructions of each kind that a core starts per cycle; with vectors of 512 bits, with shorter ones or of single values,
# and in general registers. "vector" is all arithmetic on vector registers: additions, products, moves within vectors and
# the rest. Sources: Intel's Optimization Reference Manual; AMD's Software Optimization Guides for family 19h (Zen 4) and
# 1Ah (Zen 5); A. Fog, "Instruction tables", 2025.
CORES = {
    "Golden Cove": {
        "512": {"addition": 2, "product": 2, "move": 1, "vector": 2, "load": 2, "store": 1},
        "256": {"addition": 2, "product": 2, "move": 2, "vector": 3, "load": 3, "store": 2},
        "general": {"load": 3, "store": 2, "all": 6},
    },
    "Zen 4": {
        "512": {"addition": 1, "product": 1, "move": 1, "vector": 2, "load": 1, "store": 0.5},
        "256": {"addition": 2, "product": 2, "move": 2, "vector": 4, "load": 2, "store": 1},
        "general": {"load": 3, "store": 2, "all": 6},
    },
    "Zen 5": {
        "512": {"addition": 2, "product": 2, "move": 2, "vector": 4, "load": 2, "store": 1},
        "256": {"addition": 2, "product": 2, "move": 2, "vector": 4, "load": 2, "store": 2},
        "general": {"load": 4, "store": 2, "all": 8},
    },
}
HEADS = {
    "all": "all",
    "vectors": "vector",
    "additions": "addition",
    "products": "product",
    "moves": "move",
    "loads": "load",
    "stores": "store",
}

ADDITION = re.compile(r"v?(add|sub|min|max|cmp|comi|ucomi|cvt|rndscale|round)\w*[ps][sd]|v?cvt")
PRODUCT = re.compile(r"v?(mul|div|sqrt)[ps][sd]")
MOVE = re.compile(
    r"v?(perm|punpck|unpck|shuf|pshuf|insert|extract|pinsr|pextr|align|palign|valign|pslldq|psrldq|pack|pmovzx|pmovsx"
    r"|broadcast|pbroadcast|movlhps|movhlps|compress|expand)"
)
STORE_ONLY = re.compile(r"v?mov|set|v?pextr|v?extract|v?compress")
COPY = re.compile(r"v?mov(u|a|dq|s|q|d|l|h|nt)")


def kinds_of(mnemonic, operands):
    """What an instruction asks of the core: (width, kinds)."""
    width = "512" if "%zmm" in operands else "256" if re.search(r"%[xy]mm|%k\d", operands) else "general"
    kinds = ["all"]
    memory = "(" in operands and not mnemonic.startswith(("lea", "nop", "data16", "cs", "prefetch"))
    stores = memory and operands.endswith(")") and not re.match(r"v?(u?comi|cmp|test)|call|jmp", mnemonic)
    copies = width != "general" and COPY.match(mnemonic)
    if memory and not (stores and STORE_ONLY.match(mnemonic)):
        kinds.append("load")
    if stores:
        kinds.append("store")
    if mnemonic in ("push", "call"):
        kinds.append("store")
    if mnemonic in ("pop", "ret"):
        kinds.append("load")
    if width != "general" and not (memory and (copies or "broadcast" in mnemonic)) and not (copies and not memory):
        kinds.append("vector")
        for kind, pattern in (("addition", ADDITION), ("product", PRODUCT), ("move", MOVE)):
            if pattern.match(mnemonic):
                kinds.append(kind)
                break
    return width, kinds


def instructions_of(program):
    """{address: (width, kinds)} of all instructions of a program."""
    command = ["objdump", "--disassemble", "--no-show-raw-insn", str(program)]
    listing = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    result = {}
    for address, mnemonic, operands in re.findall(r"^ +([0-9a-f]+):\t(\S+) *([^#<\n]*)", listing, re.MULTILINE):
        result[int(address, 16)] = kinds_of(mnemonic, operands.strip())
    return result


def bound_of(counts, core):
    """The cycles of counted instructions, and the head of the kind that determines them."""
    cycles = Counter()
    for (width, kind), count in counts.items():
        rate = core["general"]["all"] if kind == "all" else core[width][kind]
        cycles[kind] += count / rate
    kind, most = cycles.most_common(1)[0]
    return most, next(head for head, name in HEADS.items() if name == kind)


def short(function):
    """A function's name without its result, namespaces and arguments."""
    name = function.replace("(anonymous namespace)::", "").split("(")[0]
    return re.sub(r"^\w+ |(\w+::)+", "", name).split("<")[0]


def count_kinds(program, instruction_set, blocks):
    """Instructions per block of every function of an instruction set: {function: {(width, kind): count}}."""
    starts, _, names = functions_of(program)
    kinds = instructions_of(program)
    counts = {}
    for address, executed in Counter(run_steps(program, instruction_set, blocks)).items():
        name = names[bisect.bisect_right(starts, address) - 1] if address in kinds else ""
        if f"zrk_tarn::{instruction_set}::" not in name:
            continue
        width, of_instruction = kinds[address]
        function = counts.setdefault(short(name), Counter())
        for kind in of_instruction:
            function[(width, kind)] += executed / blocks
    return counts


def summarise(counts, rows):
    """Keeps the functions with most instructions and adds up the others."""
    ordered = sorted(counts, key=lambda name: -sum(n for (_, kind), n in counts[name].items() if kind == "all"))
    summary = {name: counts[name] for name in ordered[:rows]}
    for name in ordered[rows:]:
        summary.setdefault("others", Counter()).update(counts[name])
    return summary


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("set", metavar="SET", help="instruction set; tarn_speed --sets lists them")
    parser.add_argument("--blocks", type=int, default=128, metavar="N", help="blocks to run (%(default)s)")
    parser.add_argument("--rows", type=int, default=16, metavar="N", help="functions to print (%(default)s)")
    options = parser.parse_args()
    if options.blocks < 1 or options.rows < 1:
        sys.exit("bounds: --blocks and --rows: give a number, 1 or more")
    try:
        counts = summarise(count_kinds(DEFAULT_PROGRAM, options.set, options.blocks), options.rows)
    except subprocess.CalledProcessError as error:
        sys.exit(error.returncode)  # tarn_speed has said why
    print(f"{options.set:<28}" + "".join(f"{head:>10}" for head in HEADS) + "".join(f"  {core:<15}" for core in CORES))
    totals = Counter()
    sums = Counter()
    for name, function in counts.items():
        per_kind = Counter()
        for (_, kind), count in function.items():
            per_kind[kind] += count
        totals.update(per_kind)
        row = f"{name:<28}" + "".join(f"{per_kind[kind]:10.0f}" for kind in HEADS.values())
        for core, rates in CORES.items():
            cycles, kind = bound_of(function, rates)
            sums[core] += cycles
            row += f"  {cycles:5.0f} {kind:<9}"
        print(row.rstrip())
    print(f"{'total':<28}" + "".join(f"{totals[kind]:10.0f}" for kind in HEADS.values()), end="")
    print("".join(f"  {sums[core]:5.0f} {'':<9}" for core in CORES).rstrip())


if __name__ == "__main__":
    main()
