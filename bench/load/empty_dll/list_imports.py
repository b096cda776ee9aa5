#!/usr/bin/env python3
"""Writes C++ that imports what another DLL imports. usage: list_imports.py DLL SOURCE

The linker takes a function into the import table when its entry there is read, which the written code would do and
nobody asks it to."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "tests" / "binary"))
sys.dont_write_bytecode = True
from pe_file import PeFile  # noqa: E402 - found through the line above


def source_for(imports):
    """`imports`: library name -> function names."""
    names = sorted(name for functions in imports.values() for name in functions)
    by_number = [name for name in names if name.startswith("#")]
    if by_number:
        raise ValueError(f"imports by number have no name to ask for: {', '.join(by_number)}")
    lines = ["// Generated from another DLL's import table.", 'extern "C" {']
    lines += [f"extern void* const volatile __imp_{name};" for name in names]
    lines += ["", "/// Reads each entry of the import table; for the linker, which would leave out what nobody reads.",
              "__declspec(dllexport) void* ReadImports() {", "    void* last = nullptr;"]  # fmt: skip
    lines += [f"    last = __imp_{name};" for name in names]
    return "\n".join(lines + ["    return last;", "}", "}", ""])


def main():
    dll, source = map(pathlib.Path, sys.argv[1:])
    source.write_text(source_for(PeFile(dll.read_bytes()).imports()), encoding="ascii")


if __name__ == "__main__":
    main()
