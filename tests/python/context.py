"""What all tests share: the package's place and the golden bytes."""

import pathlib
import sys

_ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(_ROOT / "python"))
sys.dont_write_bytecode = True


def golden(name):
    """The entries of this name in the golden file, as lists of numbers."""
    lines = (_ROOT / "tests" / "golden" / "wire_bytes.inc").read_text(encoding="ascii").splitlines()
    begin = name + "("
    return [[int(number, 0) for number in line[len(begin) : -1].split(",")] for line in lines if line.startswith(begin)]
