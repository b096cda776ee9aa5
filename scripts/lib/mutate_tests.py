"""Runs test programs and judges: a mutation is caught when a test fails with it, fails again, and passes without it."""

import os
import re
import shutil
import signal
import subprocess
from dataclasses import dataclass
from fnmatch import fnmatch
from pathlib import Path

_RUN = re.compile(r"\[ RUN      \] (\S+)")
_FAILED = re.compile(r"\[  FAILED  \] (\S+?),? .*\(\d+ ms\)")

PROGRAM_SECONDS = 60  # the programs' own watchdogs end a hanging test at this age
TEST_SECONDS = 30


@dataclass
class Ending:
    passed: bool
    test: str = ""
    how: str = ""


def run_program(command, log, seconds, environment=None, test=None):
    command = [*command, f"--gtest_filter={test}" if test else "--gtest_fail_fast"]
    with open(log, "wb") as out:
        process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT, start_new_session=True,
            env=environment, cwd=Path(log).parent,
        )  # fmt: skip
        try:
            code = process.wait(seconds)
        except subprocess.TimeoutExpired:
            code = None
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()
    text = Path(log).read_text(encoding="utf-8", errors="replace")
    if code == 0 and "[  PASSED  ]" in text:
        return Ending(True)
    failed = _FAILED.search(text)
    if failed:
        return Ending(False, failed.group(1), "fails")
    began = _RUN.findall(text)
    return Ending(False, began[-1] if began else "", "hangs" if code is None else f"ends with code {code}")


class WinePrefix:
    """A prefix of one worker, with a copy of its registry to go back to after a program that left a mess."""

    def __init__(self, root, name, standin, append_log):
        self._root, self._name = root, name
        self._arguments = ["--standin", standin, "--append-log", append_log]
        self.path = Path(root, "build/prefixes", name)
        self._saved = self.path / ".registry"
        self.environment = None

    def _shell(self, script, *arguments, **options):
        head = 'root=$1; shift; source "$root/scripts/lib/wine.sh"; '
        return subprocess.run(
            ["bash", "-c", head + script, "bash", self._root, *arguments],
            stdin=subprocess.DEVNULL, check=False, **options,
        )  # fmt: skip

    def open(self):
        listing = self.path.with_name(f"{self._name}.environment")
        script = 'out=$1; shift; wine_open "$@" && env -0 >"$out" && echo "$wine_loader" >"$out.loader"'
        done = self._shell(script, str(listing), self._name, *self._arguments, stdout=subprocess.DEVNULL)
        if done.returncode != 0:
            raise RuntimeError(f"the Wine prefix {self.path} cannot be made")
        entries = listing.read_bytes().decode().split("\0")
        self.environment = dict(e.split("=", 1) for e in entries if "=" in e)
        loader = Path(f"{listing}.loader")
        self.loader = loader.read_text(encoding="utf-8").strip()
        listing.unlink()
        loader.unlink()

    def close(self):
        self._shell('wine_environment "$1"; wine_close', self._name)

    def save_once(self):
        """The registry is written to its files when the server ends."""
        if self._saved.exists():
            return
        self.close()
        self._saved.mkdir(exist_ok=True)
        for file in self.path.glob("*.reg"):
            shutil.copy2(file, self._saved)
        self.open()

    def reset(self):
        self.close()
        for file in self._saved.glob("*.reg"):
            shutil.copy2(file, self.path)
        self.forget_logs()
        self.open()

    def forget_logs(self):
        drive = self.path / "drive_c"
        for path in (*drive.glob("ProgramData/Ravlo"), *drive.glob("windows/[Tt]emp/ravlo*")):
            if path.is_symlink() or path.is_file():
                path.unlink()
            else:
                shutil.rmtree(path, ignore_errors=True)


class ProgramOrder:
    """The Windows test programs in the order in which they are likely to tell."""

    def __init__(self, table, programs):
        self._programs = programs
        self._rows = []
        for line in Path(table).read_text(encoding="utf-8").split("\n"):
            if line and not line.startswith("#"):
                self._rows.append((line.split()[0], line.split()[1:]))
        self._killers = {}

    def remember(self, path, program):
        self._killers.setdefault(path, []).insert(0, program)

    def matching(self, path):
        patterns = next((p for row, p in self._rows if fnmatch(path, row)), [])
        found = [p for p in dict.fromkeys(self._killers.get(path, [])) if self._programs.count(p)]
        for pattern in patterns:
            found += [p for p in self._programs if fnmatch(p, f"ravlo_{pattern}_test") and p not in found]
        return found

    def others(self, path):
        matching = self.matching(path)
        return [p for p in self._programs if p not in matching]
