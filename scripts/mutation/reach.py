"""Which test runs which line: reads what ReachMap.c noted, and the places themselves out of the library's machine code."""
import collections
import os
import re
import subprocess

CALL = re.compile(r"^ +[0-9a-f]+:\tcall +[0-9a-f]+ <__sanitizer_cov_trace_pc(?:@plt)?>")
STEP = re.compile(r"^ +([0-9a-f]+):\t")
LINE = re.compile(r"^(/\S+):(\d+)(?: \(discriminator \d+\))?$")


def read_places(library, tree):
    """Place -> address where its noting call goes on, and (file, line) -> the places whose code has that line. Places are
    counted in the order of the code; only those with a line of the tree are told."""
    text = subprocess.run(["objdump", "--disassemble", "--line-numbers", "--no-show-raw-insn", library],
                          capture_output=True, text=True, check=True).stdout
    return parse_places(text.splitlines(), str(tree).rstrip("/") + "/")


def parse_places(lines, prefix):
    addresses, found = {}, collections.defaultdict(set)
    names = {}  # as the code has it -> from the root of the tree, or none
    count, here, place, returning = -1, None, None, False
    for text in lines:
        if text.endswith(":") and text.startswith("0"):  # another function
            here = place = None
            continue
        position = LINE.match(text)
        if position:
            name = names.get(position[1], "")
            if name == "":
                path = os.path.normpath(position[1])  # the compiler cache makes them relative
                name = names[position[1]] = path[len(prefix):] if path.startswith(prefix) else None
            here = (name, int(position[2])) if name else None
            continue
        step = STEP.match(text)
        if not step:
            continue
        if returning:  # the note tells where its call goes on
            addresses[place] = int(step[1], 16)
            returning = False
        if CALL.match(text):
            count += 1
            place, returning = count, True
        if here and place is not None:
            found[here].add(place)
    wanted = set().union(*found.values())
    return {place: address for place, address in addresses.items() if place in wanted}, found


def read_notes(path, addresses):
    """The places that were noted in a file, as the bits of a number; none when there is no file. addresses: by place."""
    try:
        with open(path, "rb") as file:
            notes = file.read()
    except FileNotFoundError:
        return 0
    reached = 0
    for place, address in addresses.items():
        if notes[address >> 3] >> (address & 7) & 1:
            reached |= 1 << place
    return reached
