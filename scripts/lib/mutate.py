#!/usr/bin/env python3
"""Puts small faults into src/, one at a time, and counts how many of them the tests notice. See scripts/mutate.sh."""

import argparse
import os
import random
import shutil
import subprocess
import sys
import threading
import time
from pathlib import Path

from mutate_build import Flavour
from mutate_operators import WEIGHTS, mutations_of
from mutate_report import Results, print_report, read_equivalents
from mutate_sources import Source
from mutate_tests import PROGRAM_SECONDS, TEST_SECONDS, ProgramOrder, WinePrefix, run_program

ROOT = Path(__file__).resolve().parents[2]
BASE = ROOT / "build" / "mutate"
TREE = BASE / "tree"
EQUIVALENTS = ROOT / "scripts/lib/mutations/equivalent.txt"
DLL = "bin/rvmediasource.dll"
NATIVE_TESTS = "bin/ravlo_unit_tests"


def say(text):
    print(text, file=sys.stderr, flush=True)


class Plan:
    """Which mutations are tried: for each file a number that grows with its lines of logic, drawn by the seed."""

    def __init__(self, options):
        self.texts, self._queues, self._slots = {}, {}, []
        self._lock = threading.Lock()
        for path in sorted(TREE.glob("src/**/*")):
            relative = str(path.relative_to(TREE))
            if path.suffix not in (".h", ".cpp") or (options.only and options.only not in relative):
                continue
            text = path.read_text(encoding="utf-8")
            candidates = list(mutations_of(Source(relative, text)))
            if candidates:
                self.texts[relative] = text
                self._queues[relative] = self._draw(candidates, random.Random(f"{options.seed} {relative}"))
        weights = {path: len({m.line for m in queue}) for path, queue in self._queues.items()}
        whole = sum(weights.values())
        for path, weight in weights.items():
            self._slots += [path] * max(1, round(options.count * weight / whole))
        random.Random(options.seed).shuffle(self._slots)
        self.count = len(self._slots)

    @staticmethod
    def _draw(candidates, chance):
        """An order of all candidates: an operator by its weight, then one of its mutations, unused lines first."""
        groups, used, order = {}, set(), []
        for mutation in candidates:
            groups.setdefault(mutation.operator, []).append(mutation)
        for group in groups.values():
            chance.shuffle(group)
        while groups:
            operator = chance.choices(list(groups), [WEIGHTS[o] for o in groups])[0]
            group = groups[operator]
            fresh = next((m for m in group if m.line not in used), group[0])
            group.remove(fresh)
            if not group:
                del groups[operator]
            used.add(fresh.line)
            order.append(fresh)
        return order

    def next_slot(self):
        with self._lock:
            return self._slots.pop() if self._slots else None

    def next_mutation(self, path):
        with self._lock:
            return self._queues[path].pop(0) if self._queues[path] else None


class Worker:
    """Judges mutations one after the other, in folders and a Wine prefix of its own."""

    def __init__(self, number, windows, host, order):
        self.folder = BASE / f"worker-{number}"
        shutil.rmtree(self.folder, ignore_errors=True)
        (self.folder / "bin").mkdir(parents=True)
        self.windows, self.host, self.order = windows, host, order
        standin = windows.build / "standin"
        self.prefix = WinePrefix(
            str(ROOT), f"mutate-{number}", str(standin / "mfsensorgroup.dll"), str(standin / "append_log.so")
        )
        for name in ("rvfeeder.exe", "rvhost.exe", "half_frame.exe"):
            os.link(windows.build / "bin" / name, self.folder / "bin" / name)

    def start(self):
        self.prefix.open()
        self.prefix.save_once()

    def judge(self, mutation, text, programs_of):
        """(verdict, killer). Verdict 'passed' when none of the chosen programs saw it."""
        overlay = self.folder / "overlay"
        shutil.rmtree(overlay, ignore_errors=True)
        file = overlay / mutation.path
        file.parent.mkdir(parents=True)
        file.write_text(mutation.apply(text), encoding="utf-8")

        changed, state = self._compile(self.windows, mutation.path, overlay)
        if state:
            return state, ""
        native, state = self._compile(self.host, mutation.path, overlay)
        if state == "broken":
            return "broken", ""
        if native and not state:
            killer = self._try_natively(native, mutation.path)
            if killer:
                return "caught", killer
        if not self.windows.link(DLL, changed, self.folder / DLL):
            return "broken", ""
        for program in programs_of(mutation.path):
            killer = self._try_under_wine(program, changed, mutation.path)
            if killer:
                self.order.remember(mutation.path, program)
                return "caught", killer
        return "passed", ""

    def _compile(self, flavour, path, overlay):
        """The objects that differ by the mutation; and 'broken' or 'equal' when there is nothing to run."""
        changed = {}
        for name in flavour.objects_reading(path):
            out = self.folder / flavour.build.name / name
            if not flavour.compile(name, overlay, out):
                return {}, "broken"
            if out.read_bytes() != flavour.original(name, BASE / "pristine" / flavour.build.name).read_bytes():
                changed[name] = out
        return changed, "" if changed else "equal"

    def _with_test_objects(self, flavour, target, changed, path):
        """The changed objects, and those of the test program that hold inline code of a mutated header."""
        objects = dict(changed)
        for name in flavour.test_objects_reading(target, path):
            out = self.folder / flavour.build.name / name
            if flavour.compile(name, self.folder / "overlay", out):
                objects[name] = out
        return objects

    def _try_natively(self, changed, path):
        program = self.folder / NATIVE_TESTS
        changed = self._with_test_objects(self.host, NATIVE_TESTS, changed, path)
        if not self.host.link(NATIVE_TESTS, changed, program):
            return ""
        return self._confirm("unit tests", [str(program)], [str(self.host.build / NATIVE_TESTS)], None)

    def _try_under_wine(self, program, changed, path):
        target = f"bin/{program}.exe"
        changed = self._with_test_objects(self.windows, target, changed, path)
        file = self.folder / target
        if not self.windows.takes(target, changed):
            file.unlink(missing_ok=True)
            os.link(self.windows.build / target, file)
        elif not self.windows.link(target, changed, file):
            say(f"  {program} does not link with {', '.join(changed)}")
            return ""
        loader = self.prefix.loader
        killer = self._confirm(
            program, [loader, str(file)], [loader, str(self.windows.build / target)], self.prefix.environment
        )
        file.unlink()
        return killer

    def _confirm(self, name, command, original, environment):
        log = self.folder / "output.log"
        first = run_program(command, log, PROGRAM_SECONDS, environment)
        for is_last_try in (False, True):
            if environment:
                self.prefix.forget_logs()
            if first.passed or run_program(command, log, TEST_SECONDS, environment, first.test).passed:
                return ""
            if environment:
                self.prefix.forget_logs()
            if run_program(original, log, TEST_SECONDS, environment, first.test).passed:
                return f"{name} {first.test} {first.how}"
            if not is_last_try and environment:
                self.prefix.reset()  # a program that crashed may have left something behind
        say(f"  {name} {first.test} fails without the mutation too, and does not count")
        return ""


def copy_tree():
    """A copy of the files under version control and the new ones, so that the checkout itself is never touched."""
    listing = subprocess.run(
        ["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=ROOT, check=True, capture_output=True, text=True
    ).stdout
    wanted = {name for name in listing.split("\0") if name and (ROOT / name).is_file()}
    for name in wanted:
        source, copy = ROOT / name, TREE / name
        if not copy.exists() or copy.read_bytes() != source.read_bytes():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, copy)
    for path in [p for p in TREE.rglob("*") if p.is_file() and p.relative_to(TREE).parts[0] != "build"]:
        if str(path.relative_to(TREE)) not in wanted:
            path.unlink()


def build(preset, targets, *settings):
    shutil.rmtree(BASE / "pristine" / preset, ignore_errors=True)
    (TREE / "build" / preset / "platform_headers.h.gch").unlink(missing_ok=True)
    log = BASE / f"build-{preset}.log"
    with open(log, "wb") as out:
        for command in (
            ["cmake", "--preset", preset, *settings],
            ["cmake", "--build", "--preset", preset, "--", "-k", "0", *targets],
        ):
            code = subprocess.run(command, cwd=TREE, stdin=subprocess.DEVNULL, stdout=out, stderr=out, check=False)
    if code.returncode != 0:
        say(f"not everything builds without a mutation, see {log}; programs that are missing are left out")


def worker_loop(worker, plan, results, chosen, options, retried):
    worker.start()
    try:
        while (path := plan.next_slot()) is not None:
            while (mutation := plan.next_mutation(path)) is not None:
                verdict = results.verdict(mutation)
                if not verdict or (verdict in retried):
                    started = time.monotonic()
                    verdict, killer = worker.judge(mutation, plan.texts[path], worker.order.matching)
                    results.add(mutation, verdict, killer, time.monotonic() - started)
                    say(f"{verdict:<8} {mutation.place} {mutation.operator}: {mutation.detail}  {killer}")
                if verdict not in ("broken", "equal"):
                    chosen.append(mutation)
                    break
    finally:
        worker.prefix.close()


def survivors_loop(worker, waiting, plan, results):
    """The programs that match no pattern have the last word."""
    worker.start()
    try:
        while waiting:
            mutation = waiting.pop(0)
            started = time.monotonic()
            verdict, killer = worker.judge(mutation, plan.texts[mutation.path], worker.order.others)
            verdict = "survived" if verdict == "passed" else verdict
            results.add(mutation, verdict, killer, time.monotonic() - started)
            say(f"{verdict:<8} {mutation.place} {mutation.operator}: {mutation.detail}  {killer}")
    finally:
        worker.prefix.close()


def already_judged(plan, results):
    while (path := plan.next_slot()) is not None:
        while (mutation := plan.next_mutation(path)) is not None:
            if results.verdict(mutation) not in ("", "broken", "equal"):
                yield mutation
                break


def in_parallel(function, workers, *arguments):
    threads = [threading.Thread(target=function, args=(w, *arguments)) for w in workers]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def main():
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--count", type=int, default=145)
    parser.add_argument("--seed", type=int, default=20)
    parser.add_argument("--only", default="")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--goal", type=float, default=90)
    parser.add_argument("--resume", action="store_true")
    parser.add_argument("--retry", action="store_true")
    parser.add_argument("--report", action="store_true")
    parser.add_argument("--keep-copy", action="store_true")
    options = parser.parse_args()

    say(f"seed {options.seed}")
    results = Results(BASE / "results.tsv", options.resume or options.retry or options.report)
    equivalents = read_equivalents(EQUIVALENTS)
    if not options.report and not options.keep_copy:
        TREE.mkdir(parents=True, exist_ok=True)
        copy_tree()
        build("windows", ["all"], "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG")
        build("host", ["ravlo_unit_tests"])
    plan = Plan(options)
    if options.report:
        chosen = list(already_judged(plan, results))
        return 0 if print_report(chosen, results, equivalents, plan.texts, options.goal) else 1

    windows = Flavour(TREE, "windows", "x86_64-w64-mingw32-nm")
    host = Flavour(TREE, "host", "nm")
    names = [p.stem for folder in ("windows", "tools") for p in sorted(TREE.glob(f"tests/{folder}/*_test.cpp"))]
    programs = [f"ravlo_{n}" for n in names if (windows.build / f"bin/ravlo_{n}.exe").exists()]
    order = ProgramOrder(ROOT / "scripts/lib/mutations/programs.txt", programs)
    say(f"{plan.count} mutations of {len(plan.texts)} files, {len(programs)} test programs")

    chosen = []
    workers = [Worker(n, windows, host, order) for n in range(1, options.jobs + 1)]
    in_parallel(worker_loop, workers, plan, results, chosen, options, ("survived", "passed") if options.retry else ())
    equivalents = read_equivalents(EQUIVALENTS)  # somebody may have explained one meanwhile
    waiting = [m for m in chosen if results.verdict(m) == "passed" and m.identity not in equivalents]
    if waiting:
        say(f"{len(waiting)} passed the programs that match them; now the others")
        in_parallel(survivors_loop, workers, waiting, plan, results)
    return 0 if print_report(chosen, results, equivalents, plan.texts, options.goal) else 1


if __name__ == "__main__":
    sys.exit(main())
