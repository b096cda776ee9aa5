"""The places in the module's code from which it calls a gated import, and which of them no play comes to.

A play finds only the places that it reaches. Here the others are found in the machine code itself, so that the account
is complete: each place is played, or is listed with the reason why the camera's life does not come to it. Methods of
the platform's objects are called through the objects' tables and cannot be found in this way.
"""

import collections
import pathlib
import re
import struct
import subprocess

from fault_places import IMAGE_BASE, stacks_of

OBJDUMP = "x86_64-w64-mingw32-objdump"
NM = "x86_64-w64-mingw32-nm"
ALLOCATION = "operator new"  # not an import, but every allocation of the module's code goes through it
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent

Reason = collections.namedtuple("Reason", "call function text")


class CodePlace:
    """One call instruction; `offset` is where the call returns to, as the plays record it. A jump at a function's end
    calls as well, but returns to that function's caller: whether a play comes to it cannot be told."""

    def __init__(self, offset, call, jump=False):
        self.offset, self.call, self.jump = offset, call, jump
        self.stack = []  # (function, file and line) of everything inlined here, innermost first

    def own(self):
        """Whether the module's code makes the call, and not the runtime that is linked into it."""
        return any(own_file(place) for _, place in self.stack)

    def is_copy_of(self, others):
        """Whether the compiler made it, like one of the others, of one and the same call in the source: as another way
        out of the same function, or as the function as such, of which the other is inlined somewhere."""
        return any(self.call == other.call and self.stack == other.stack[: len(self.stack)] for other in others)

    def function(self):
        """The innermost function that is no holder of handles or the like: those are called from everywhere."""
        telling = [name for name, place in self.stack if own_file(place) and "platform/" not in own_file(place)]
        return re.sub(r"^ravlo::", "", (telling or [name for name, _ in self.stack])[0])

    def __str__(self):
        files = [own_file(place) for _, place in self.stack if own_file(place)]
        telling = [file for file in files if not file.startswith("platform/")]
        return f"{self.call} in {self.function()} ({(telling or files)[0]})"


def own_file(place):
    """The file and line below src/, or nothing for a file that is not the module's."""
    match = re.search(r"(?:^|/)src/(.*?)(:\d+|:\?)?(?: \(.*)?$", place)
    return match.group(1) + (match.group(2) or "") if match and (ROOT / "src" / match.group(1)).is_file() else ""


def read_import_table(image):
    """Where each imported function's address lies when the module is loaded: {address: name}."""
    def number(form, offset):
        return struct.unpack_from(form, image, offset)[0]

    header = number("<I", 0x3C)
    count, optional = number("<H", header + 6), number("<H", header + 20)
    sections = [struct.unpack_from("<IIII", image, header + 24 + optional + 40 * index + 8) for index in range(count)]

    def in_file(address):
        for size, start, raw_size, raw in sections:
            if start <= address < start + max(size, raw_size):
                return address - start + raw
        raise ValueError(f"no section holds {address:#x}")

    table = {}
    library = in_file(number("<I", header + 24 + 112 + 8))
    while number("<I", library + 12):
        names, addresses, index = number("<I", library), number("<I", library + 16), 0
        while name := number("<Q", in_file(names) + 8 * index):
            text = in_file(name) + 2
            table[IMAGE_BASE + addresses + 8 * index] = image[text : image.index(b"\0", text)].decode()
            index += 1
        library += 20
    return table


def read_allocations(debug_file):
    """Where operator new begins, in all its forms: {address: name}."""
    rows = subprocess.run([NM, "-C", str(debug_file)], capture_output=True, text=True, check=True).stdout.splitlines()
    symbols = (row.split(" ", 2) for row in rows)
    return {int(at, 16): ALLOCATION for at, kind, name in symbols if kind in "tT" and name.startswith(ALLOCATION)}


def find_calls(module, debug_file):
    """Every call of an import in the module's code, direct, through a jump or through a register."""
    table = read_import_table(module.read_bytes())
    text = subprocess.run(
        [OBJDUMP, "-d", "--no-show-raw-insn", str(module)], capture_output=True, text=True, check=True
    ).stdout
    code = [(int(where, 16), what) for where, what in re.findall(r"^ *([0-9a-f]+):\t(.*?) *$", text, re.M)]
    targets = dict(read_allocations(debug_file))  # what a direct call leads to
    jumps = {}
    for where, what in code:
        jump = re.match(r"(?:rex\.W )?jmp +\*.*# (?:0x)?([0-9a-f]+)", what)
        if jump and int(jump[1], 16) in table:
            jumps[where] = table[int(jump[1], 16)]
    targets.update(jumps)
    places, registers, called = [], {}, set()
    for (_, what), (returns, _) in zip(code, code[1:]):
        through_table = re.match(r"(call|mov) .*# (?:0x)?([0-9a-f]+)", what)
        name = table.get(int(through_table[2], 16)) if through_table else None
        loaded = re.match(r"(?:mov|lea) .*,(%r\w+)(?: |$)", what)
        if name and through_table[1] == "call":
            places.append(CodePlace(returns - IMAGE_BASE, name))
        elif loaded:
            registers[loaded[1]] = name
        elif direct := re.match(r"call +(?:0x)?([0-9a-f]+)", what):
            called.add(int(direct[1], 16))
            if int(direct[1], 16) in targets:
                places.append(CodePlace(returns - IMAGE_BASE, targets[int(direct[1], 16)]))
        elif (by_register := re.match(r"call +\*(%r\w+)$", what)) and registers.get(by_register[1]):
            places.append(CodePlace(returns - IMAGE_BASE, registers[by_register[1]]))
    # A jump that is called is no more than the way to the import; the call counts.
    places += [CodePlace(where + 1 - IMAGE_BASE, name, True) for where, name in jumps.items() if where not in called]
    for where, what in code:
        jump = re.match(r"jmp +(?:0x)?([0-9a-f]+)", what)
        if jump and int(jump[1], 16) in targets:
            places.append(CodePlace(where + 1 - IMAGE_BASE, targets[int(jump[1], 16)], True))
    return places


def read_reasons(path):
    rows = (line for line in path.read_text(encoding="utf-8").splitlines() if line.strip() and line[0] != "#")
    return [Reason(*(part.strip() for part in row.split(" | ", 2))) for row in rows]


def reason_for(place, reasons):
    for reason in reasons:
        if re.fullmatch(reason.call, place.call) and any(re.search(reason.function, name) for name, _ in place.stack):
            return reason
    return None


def take_account(module, debug_file, sites, gated):
    """(all places, those that a play comes to, copies of those, the other ones of the module's own code)."""
    places = [place for place in find_calls(module, debug_file) if place.call in gated or place.call == ALLOCATION]
    stacks = stacks_of([place.offset for place in places], debug_file)
    for place in places:
        place.stack = [(re.sub(r"\(.*", "", name), re.sub(r" \(.*", "", at)) for name, at in stacks[place.offset]]
    seen = {frame for site in sites for frame in site.frames}
    reached = [place for place in places if place.offset in seen and not place.jump]
    own = [place for place in places if place not in reached and place.own()]
    copies = [place for place in own if place.is_copy_of(reached)]
    return places, reached, copies, [place for place in own if place not in copies]


def print_unreached(module, debug_file, sites, gated, path):
    """Prints why no play comes to the rest of the places. Returns what is wrong with the account, in words."""
    places, reached, copies, rest = take_account(module, debug_file, sites, gated)
    runtime = len(places) - len(reached) - len(copies) - len(rest)
    reasons = read_reasons(path)
    listed = {reason: collections.Counter() for reason in reasons}
    problems = []
    for place in rest:
        if reason := reason_for(place, reasons):
            listed[reason][str(place)] += 1
        else:
            problems.append(f"no play comes to {place}, and {path.name} has no reason for it")
    print(f"\nof {len(places)} places in the code that call a gated import or {ALLOCATION}, the camera's life comes to "
          f"{len(reached)}; {len(copies)} are copies\nthat the compiler made of those, {runtime} are in the C or C++ "
          f"runtime, and to {len(rest)} it does not come without a fault, because")
    for reason, names in listed.items():
        if names:
            print(f"  {reason.text}:")
            for name, count in names.items():
                print(f"      {name}" + (f", {count} times" if count > 1 else ""))
    for reason in (reason for reason, names in listed.items() if not names):
        print(f"  no place needs the reason any more: {reason.call} | {reason.function}")
    # The search itself is held against the plays: it must know every place that they come to.
    found, jumped = {place.offset for place in reached}, {place.call for place in places if place.jump}
    for site in sites:
        if site.call in gated - jumped and site.frames and site.frames[0] not in found:
            problems.append(f"{site}: the search in the module's code does not find this place")
    return problems
