#!/usr/bin/env python3
"""Runs one GoogleTest program as one suite, prints one line about it, and the failing tests in full.

usage: run_suite.py --name NAME --log FILE --tally FILE [--timeout S] [--filter TEXT] -- COMMAND...

The program's output goes to a file, never to a pipe: a Wine process that outlives the program would keep a pipe open.
A tally line "passed failed" is appended for the caller. Exit code 0 when every test passed.
"""

import argparse
import os
import re
import signal
import subprocess
import sys
import time

RUN = re.compile(r"\[ RUN      \] (\S+)")
OK = re.compile(r"\[       OK \] (\S+?),? .*\(\d+ ms\)")
BAD = re.compile(r"\[  FAILED  \] (\S+?),? .*\(\d+ ms\)")
SKIPPED = re.compile(r"\[  SKIPPED \] (\S+) \(\d+ ms\)")

# What the low byte of a Windows exit status tells when a program does not end by itself.
WINE_ENDS = {
    3: "abort or an exception nobody caught",
    5: "access violation, if the tests did not end by themselves",
    29: "illegal instruction (a hardening check)",
    53: "a DLL that the program needs is missing",
    253: "stack overflow",
}


class Suite:
    """What the text of a GoogleTest run says."""

    def __init__(self, text):
        self.passed = []
        self.failed = {}
        self.unfinished = None
        block = []
        name = None
        for line in text.replace("\r", "").split("\n"):
            if match := RUN.search(line):
                name, block = match.group(1), []
            block.append(line)
            if match := OK.search(line):
                self.passed.append(match.group(1))
                name = None
            elif match := BAD.search(line) or SKIPPED.search(line):
                self.failed[match.group(1)] = list(block)
                name = None
        if name is not None:
            self.unfinished = name
            self.failed[name] = block


def run(command, log, timeout):
    """Exit code, or None when the time was up."""
    with open(log, "wb") as out:
        process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT, start_new_session=True
        )
        try:
            return process.wait(timeout)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--name", required=True)
    parser.add_argument("--log", required=True)
    parser.add_argument("--tally", required=True)
    parser.add_argument("--timeout", type=float, default=120)
    parser.add_argument("--filter", default="")
    parser.add_argument("--wine", action="store_true", help="the command is a Windows program")
    parser.add_argument("command", nargs=argparse.REMAINDER)
    options = parser.parse_args()
    command = [part for part in options.command if part != "--"]
    if options.filter:
        command.append(f"--gtest_filter=*{options.filter}*")

    started = time.monotonic()
    code = run(command, options.log, options.timeout)
    seconds = time.monotonic() - started
    with open(options.log, encoding="utf-8", errors="replace") as log:
        text = log.read()
    suite = Suite(text)

    ran = len(suite.passed) + len(suite.failed)
    trouble = ""
    if code is None:
        trouble = f"no end after {options.timeout:.0f} s"
    elif ran == 0 and code == 0 and options.filter:
        return 0
    elif code != 0 and (not suite.failed or suite.unfinished):
        ended = f"by signal {-code}" if code < 0 else f"with exit code {code}"
        why = f" ({WINE_ENDS[code]})" if options.wine and code in WINE_ENDS else ""
        trouble = f"the program ended {ended}{why}"
    elif ran == 0:
        trouble = "no test ran"
    if trouble and suite.unfinished:
        trouble += f" in {suite.unfinished}"

    failed = len(suite.failed) + (1 if trouble and not suite.unfinished else 0)
    print(f"{options.name:<38}{len(suite.passed):>5} passed {failed:>3} failed {seconds:>7.1f} s", flush=True)
    for name, block in suite.failed.items():
        print(f"---- {options.name}: {name}")
        print("\n".join(block[-200:]))
    if trouble:
        print(f"---- {options.name}: {trouble}; the end of {options.log}:")
        print("\n".join(text.replace("\r", "").split("\n")[-40:]))
    with open(options.tally, "a", encoding="ascii") as tally:
        tally.write(f"{len(suite.passed)} {failed}\n")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
