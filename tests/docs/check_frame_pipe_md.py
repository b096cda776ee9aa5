#!/usr/bin/env python3
"""Checks the byte dumps and the field tables of docs/frame-pipe.md against bytes that are packed here.

usage: check_frame_pipe_md.py [DOCUMENT]

Prints one line a check; exit code 1 when one fails. The camera's own tests hold the same layouts against the module.
"""

import pathlib
import re
import struct
import sys

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs" / "frame-pipe.md"

# Name, struct code, and what is fixed in the field; None where the dump's own parameters decide.
FRAME_HEADER = [
    ("magic", "I", int.from_bytes(b"RVLO", "little")),
    ("version", "I", 2),
    ("width", "I", None),
    ("height", "I", None),
    ("bytes", "I", None),
    ("format", "I", int.from_bytes(b"NV12", "little")),
    ("seq", "Q", None),
    ("reserved", "8s", b"\0" * 8),
]
DEMAND_RECORD = [
    ("magic", "I", int.from_bytes(b"GATE", "little")),
    ("version", "I", 1),
    ("sequence", "Q", None),
    ("idle", "Q", None),
    ("requests", "Q", None),
]

# Which dumps the document must hold, in its order, with exactly these parameters.
DUMPS = [
    ("frame-header", FRAME_HEADER, {"width": 1920, "height": 1080, "seq": 1}, 40),
    ("demand-record", DEMAND_RECORD, {"sequence": 42, "idle": 12, "requests": 1260}, 32),
]


def pack(layout, values):
    """The bytes of one header or record, little-endian and without padding."""
    values = dict(values)
    if "width" in values:
        luma = values["width"] * values["height"]
        values["bytes"] = luma + luma // 2
    return struct.pack(
        "<" + "".join(code for _, code, _ in layout),
        *[values[name] if fixed is None else fixed for name, _, fixed in layout],
    )


def dumps_of(text):
    """[(kind, parameters, bytes)] of every hex block."""
    found = []
    for kind, parameters, body in re.findall(r"^```hex (\S+)([^\n]*)\n(.*?)^```$", text, re.S | re.M):
        values = {name: int(value) for name, value in re.findall(r"(\w+)=(\d+)", parameters)}
        found.append((kind, values, bytes.fromhex(body)))
    return found


def tables_of(text):
    """[[(offset, size, field, value)]] of every table of fields."""
    tables = []
    for block in re.findall(r"^\| offset \| size \| field \| value \|\n\|[-|]+\|\n((?:\|[^\n]*\n)+)", text, re.M):
        rows = [[cell.strip() for cell in line.strip("|").split("|")] for line in block.splitlines()]
        tables.append([(int(offset), int(size), field, value) for offset, size, field, value in rows])
    return tables


def check_dump(report, found, expected):
    kind, layout, values, size = expected
    if found is None:
        report(f"the dump {kind} is there", False)
        return
    report(f"the next dump is a {kind} of {values}", found[:2] == (kind, values), found[:2])
    packed = pack(layout, values)
    report(f"{kind} has {size} bytes", len(packed) == size and len(found[2]) == size, len(found[2]))
    report(f"{kind} is packed like this", found[2] == packed, f"{found[2].hex(' ')} instead of {packed.hex(' ')}")


def check_table(report, found, expected):
    kind, layout, _, size = expected
    if found is None:
        report(f"the table of the {kind} is there", False)
        return
    offset = 0
    wanted = []
    for name, code, _ in layout:
        width = struct.calcsize("<" + code)
        wanted.append((offset, width, name))
        offset += width
    report(f"the table of the {kind} lists its fields", [row[:3] for row in found] == wanted, found)
    report(f"the fields of the {kind} fill {size} bytes", offset == size, offset)
    for row, (name, code, fixed) in zip(found, layout):
        if code == "I" and fixed is not None:
            # The table's first number is the value; a constant of four letters stands in hexadecimal.
            number = re.search(r"0x[0-9A-Fa-f]+|\d+", row[3])
            report(f"{kind}.{name} has its value", number is not None and int(number.group(), 0) == fixed, row[3])


def main():
    document = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else DOCUMENT
    text = document.read_text(encoding="utf-8")
    failures = 0

    def report(what, good, seen=""):
        nonlocal failures
        failures += not good
        print(f"ok      {what}" if good else f"FAILED  {what}: {seen}")

    dumps = dumps_of(text)
    tables = tables_of(text)
    report("there are two dumps", len(dumps) == len(DUMPS), len(dumps))
    report("there are two tables of fields", len(tables) == len(DUMPS), len(tables))
    for index, expected in enumerate(DUMPS):
        check_dump(report, dumps[index] if index < len(dumps) else None, expected)
        check_table(report, tables[index] if index < len(tables) else None, expected)
    # The text's worked example of a picture's size.
    report("the picture's length is worked out", "3110400 (0x2F7600) bytes" in text and 1920 * 1080 * 3 // 2 == 0x2F7600)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
