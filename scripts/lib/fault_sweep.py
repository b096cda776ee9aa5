#!/usr/bin/env python3
"""Runs the plays of the single-fault sweep. scripts/sweep.sh is the way to call it.

Every play is the whole life of the camera with one call failing. Several processes play at the same time; one that
crashes, hangs or ends with something wrong is recorded against its site, and a new one goes on.
"""

import argparse
import collections
import pathlib
import re
import subprocess
import sys
import threading
import time

from fault_judge import LIE, LIES, LIES_WHEN_QUICK, Judge, Play, normalised, print_left_out, print_table
from fault_places import Rules, Site, name_sites
from fault_static import print_unreached

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PLAYS_A_PROCESS = 40
START_SECONDS, PLAY_SECONDS = 60, 20  # bounds, far above what is usual: the program has a watchdog of its own
MAX_ATTEMPTS = 3


class Sweep:
    def __init__(self, options):
        self.options = options
        self.work = pathlib.Path(options.work)
        self.work.mkdir(parents=True, exist_ok=True)
        self.program = pathlib.Path(options.program)
        self.debug_file = self.program.parent / "rvmediasource.dll.debug"
        self.rules = Rules(ROOT / "tests/faults/exceptions.txt")
        self.sites = []
        self.imports = []
        self.usual_lines = set()
        self.judge = Judge(self.rules, self.usual_lines)
        self.problems = []  # of the sweep as a whole
        self.started = time.monotonic()

    def run(self, arguments, timeout, log):
        """The program's exit code, or None when the time was up."""
        with open(log, "wb") as out:
            process = subprocess.Popen(
                [self.options.loader, str(self.program), *arguments],
                cwd=self.program.parent, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT,
            )
            try:
                return process.wait(timeout)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
                return None

    # ---- without a fault ----

    def record(self):
        known = set()
        for mode in ((), ("fresh",)):
            lines = self.play_without_fault(mode)
            for line in lines:
                word, _, rest = line.partition(" ")
                if word == "SITE":
                    site = Site(rest.split())
                    if site.key not in known:
                        known.add(site.key)
                        site.fresh = bool(mode)
                        self.sites.append(site)
                elif word == "IMPORT" and mode:
                    self.imports.append(rest.split(" ", 2))
                elif word == "LOG":
                    self.usual_lines.add(normalised(rest))
            self.look_for_problems(lines)
        self.sites.sort(key=lambda site: (site.role, site.call, site.frames, site.key))
        for number, site in enumerate(self.sites, 1):
            site.number = number
        name_sites(self.sites, self.debug_file)
        for site in self.sites:
            if site.failures and site.role == "other":
                self.problems.append(f"{site}: made by a thread of the module that the play does not know")
            if not site.failures and any(name.startswith("ravlo::") for name in site.functions[:1]):
                self.problems.append(f"{site}: left out as a call of the runtime's, but the module's code makes it")

    def play_without_fault(self, mode):
        report, log = self.work / "record.txt", self.work / "record.log"
        report.unlink(missing_ok=True)
        code = self.run(["record", f"Z:{report}", *mode], 120, log)
        lines = read_lines(report)
        if code != 0 or not any(line.startswith("SITE ") for line in lines):
            print("\n".join(lines[-30:]), log.read_text(encoding="utf-8", errors="replace"), sep="\n", file=sys.stderr)
            sys.exit(f"the play without a fault did not succeed (exit code {code}); see {report}")
        return lines

    def look_for_problems(self, lines):
        for line in lines:
            word, _, rest = line.partition(" ")
            if word in ("UNKNOWN", "WRONG", "RESULT", "CRASH", "HANG"):
                self.problems.append(f"without a fault: {line}")
            elif word == "SHOWN" and "=0" in rest:
                self.problems.append(f"the play without a fault did not show everything: {rest}")
            elif word == "HELD" and not rest.startswith("local=0 closes=0 running=0 "):
                self.problems.append(f"the play without a fault kept something: {rest}")
            elif word == "REMAINS":
                self.look_at_remains(rest)

    def look_at_remains(self, text):
        """What stays after the unload, of the module and of an empty one with the same runtime."""
        remains = {name: int(value) for name, value in (pair.split("=") for pair in text.split())}
        for what in ("handles", "blocks"):
            if remains[what] > remains[f"control-{what}"]:
                self.problems.append(f"after the unload the module leaves more {what} than the runtime alone: {text}")

    # ---- with one ----

    def plan(self):
        """(plays that must run, plays that run while there is time)."""
        sites = [
            site
            for site in sorted(self.sites, key=lambda site: site.fresh)
            if site.failures and site.role != "other" and not self.rules.find(site, "left-out")
            and (not self.options.site or site.number in self.options.site)
            and (not self.options.call or self.options.call.lower() in site.call.lower())
        ]
        first = [Play(site, 1, False, 0) for site in sites]
        sticky = [Play(site, 1, True, 0) for site in sites]
        if self.options.quick:
            return first, sticky
        rest = []
        for site in sites:
            rest += [Play(site, 1, often, failure) for failure in range(1, site.failures) for often in (False, True)]
            rest += [Play(site, occurrence, False, 0) for occurrence in range(2, site.hits + 1)]
        return sorted(first + sticky + rest, key=lambda play: play.site.fresh), []

    def plan_lies(self):
        if self.options.site or self.options.call:
            return []
        plays = []
        for call, function, sticky, words in LIES[: LIES_WHEN_QUICK if self.options.quick else None]:
            sites = [site for site in self.sites if site.call == call and site.role == "client" and any(
                re.search(function, name) for name in site.functions)]
            if not sites:
                self.problems.append(f"no place calls {call} in {function}, so the sweep cannot show that it notices")
            plays += [Play(site, 1, sticky, LIE, words) for site in sites[:1]]
        return plays

    def execute(self, plays, until=None):
        queue, lock = collections.deque(plays), threading.Lock()
        threads = [
            threading.Thread(target=self.work_off, args=(index, queue, lock, until))
            for index in range(self.options.jobs)
        ]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    def work_off(self, index, queue, lock, until):
        while True:
            with lock:
                over = until is not None and time.monotonic() > until
                size = PLAYS_A_PROCESS if until is None else PLAYS_A_PROCESS // 4
                chunk = []
                # What has to be played again stands in front, and is when the time is up as well.
                while (queue and len(chunk) < size and (queue[0].attempts or not over)
                       and queue[0].site.fresh == (chunk or queue)[0].site.fresh):
                    chunk.append(queue.popleft())
            if not chunk:
                return
            again = self.play(index, chunk)
            with lock:
                queue.extendleft(reversed(again))

    def play(self, index, chunk):
        """Plays the chunk in one process. Returns what has to be played again."""
        jobs, report = self.work / f"jobs-{index}.txt", self.work / f"report-{index}.txt"
        for number, play in enumerate(chunk, 1):
            play.number, play.lines, play.ended, play.trouble = number, [], False, ""
        jobs.write_text("".join(
            f"{play.number} {play.site.key} {play.occurrence} {int(play.sticky)} {play.failure}\n" for play in chunk))
        report.unlink(missing_ok=True)
        mode = ["fresh"] if chunk[0].site.fresh else []
        code = self.run(["play", f"Z:{report}", f"Z:{jobs}", *mode], START_SECONDS + PLAY_SECONDS * len(chunk),
                        self.work / f"output-{index}.log")
        preface = self.read_plays(report, chunk, code)
        again = []
        for play in chunk:
            begun = play.ended or play.trouble
            play.attempts += 1 if begun else 0
            if not begun:
                again.append(play)
            elif (not play.trouble and play.delivered()[0] == 0 and play.attempts < MAX_ATTEMPTS
                  and play.occurrence == 1):
                again.append(play)
            else:
                self.judge.judge(play)
                if play.was_late():
                    # Counts as it is unless another try is made, and shows that only the machine was too busy.
                    play.repeated = True
                    again.append(play)
        if len(again) == len(chunk) and not any(play.ended for play in chunk):
            # Nothing began at all. Once may be chance.
            chunk[0].attempts += 1
            if chunk[0].attempts >= MAX_ATTEMPTS:
                chunk[0].trouble = f"the process did not begin, exit code {code}: " + " ".join(preface)
                self.judge.judge(chunk[0])
                again.remove(chunk[0])
        return again

    def read_plays(self, report, chunk, code):
        """Hands each play its lines. Returns those that belong to none."""
        current, preface = None, []
        for line in read_lines(report):
            word, _, rest = line.partition(" ")
            if word == "BEGIN":
                current = chunk[int(rest) - 1]
            elif word == "END":
                current.ended = True
                current = None
            elif current is not None:
                current.lines.append(line)
            else:
                preface.append(line)
                if word == "REMAINS":
                    self.look_at_remains(rest)
        if current is not None:
            stacks = [line for line in current.lines if re.match(r"CRASH|HANG|STACK|THREAD", line)]
            current.trouble = "\n      ".join(stacks) or f"the process ended with code {code}"
        return preface

    # ---- all of it ----

    def sweep(self):
        must, may = self.plan()
        lies = self.plan_lies()
        self.execute(must)
        self.execute(lies)
        if may:
            self.execute(may, self.started + self.options.budget)
        sites, injected, survived = print_table(must + may)
        print_left_out(self.imports, self.sites, self.rules)
        self.problems += print_unreached(
            self.program.parent / "rvmediasource.dll", self.debug_file, self.sites,
            {name for _, name, reason in self.imports if reason == "-"}, ROOT / "tests/faults/unreached.txt")
        failed = [play for play in must + may + lies if play.reasons]
        for play in failed:
            print(f"\nFAILED {play}")
            told = ["everything that the play wrote:", *play.lines] if self.options.verbose else []
            for line in play.reasons + told:
                print(f"   {line}")
        for problem in self.problems:
            print(f"\nFAILED {problem}")
        if not (self.options.quick or self.options.site or self.options.call):
            for rule in self.rules.unused():
                print(f"\nno play came to the exception: {rule.call} | {rule.function} | {rule.role}")
        if self.options.verbose:
            slow = sorted((int(took), str(play)) for play in must + may + lies for took in play.values("TOOK"))
            print("\nslowest plays (ms):", *(f"{took:>7}  {name}" for took, name in slow[-20:]), sep="\n  ")
        noticed = sum(1 for play in lies if play.judged and not play.reasons)
        repeated = sum(1 for play in must + may + lies if play.repeated)
        print(f"\n{repeated} plays repeated because something was not shown in time")
        print(f"{sites} sites, {injected} failures injected, {survived} survived; "
              f"{noticed} of {len(lies)} lies noticed; {time.monotonic() - self.started:.0f} s")
        return 0 if must and not failed and not self.problems and all(play.judged for play in must + lies) else 1


def read_lines(path):
    return path.read_text(encoding="utf-8", errors="replace").splitlines() if path.exists() else []


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--loader", required=True)
    parser.add_argument("--work", required=True)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--budget", type=float, default=50)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--site", type=int, action="append")
    parser.add_argument("--call")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--verbose", action="store_true")
    sweep = Sweep(parser.parse_args())
    sweep.record()
    if sweep.options.list:
        for site in sweep.sites:
            print(f"{site.number:>4} {site.role:<7} {site.call:<44} {site.hits:>4} x  {site.place}")
        return 0
    return sweep.sweep()


if __name__ == "__main__":
    sys.exit(main())
