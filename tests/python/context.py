"""What all tests share: the packages' places and the golden bytes."""

import pathlib
import sys

_ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(_ROOT / "python"), str(_ROOT / "bench")]
sys.dont_write_bytecode = True


def golden(name):
    """The entries of this name in the golden file, as lists of numbers."""
    lines = (_ROOT / "tests" / "golden" / "wire_bytes.inc").read_text(encoding="ascii").splitlines()
    begin = name + "("
    return [[int(number, 0) for number in line[len(begin) : -1].split(",")] for line in lines if line.startswith(begin)]
