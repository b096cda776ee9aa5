"""What the figures were taken on, and of what."""

from __future__ import annotations

import os
import pathlib
import platform
import subprocess
from typing import Dict, Sequence

_COMPILER = "x86_64-w64-mingw32-g++-posix"
_NATIVE_COMPILER = "c++"


def describe_machine(loader: str) -> Dict[str, str]:
    """Processor, cores, memory, kernel, distribution, Wine and compilers, each as a short text."""
    return {
        "processor": _processor(),
        "cores": str(os.cpu_count()),
        "memory": _memory(),
        "kernel": f"{platform.system()} {platform.release()}",
        "distribution": _distribution(),
        "wine": _first_line([loader, "--version"]),
        "compiler": _first_line([_COMPILER, "--version"]),
        "native_compiler": _first_line([_NATIVE_COMPILER, "--version"]),
    }


def describe_commit(root: pathlib.Path) -> str:
    """The state of the sources, with "-dirty" where they differ from what is committed."""
    return _first_line(["git", "-C", str(root), "describe", "--always", "--dirty"])


def _processor() -> str:
    return _value("/proc/cpuinfo", "model name") or platform.processor() or "unknown"


def _memory() -> str:
    kilobytes = _value("/proc/meminfo", "MemTotal").split()
    return f"{int(kilobytes[0]) / 2**20:.1f} GiB" if kilobytes else "unknown"


def _distribution() -> str:
    return _value("/etc/os-release", "PRETTY_NAME", "=").strip('"') or "unknown"


def _value(path: str, key: str, separator: str = ":") -> str:
    try:
        lines = pathlib.Path(path).read_text(encoding="utf-8", errors="replace").splitlines()
    except OSError:
        return ""
    for line in lines:
        name, separated, value = line.partition(separator)
        if separated and name.strip() == key:
            return value.strip()
    return ""


def _first_line(command: Sequence[str]) -> str:
    try:
        said = subprocess.run(
            command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=30, check=True
        ).stdout.decode("utf-8", "replace")
    except (OSError, subprocess.SubprocessError):
        return "unknown"
    return said.strip().splitlines()[0] if said.strip() else "unknown"
