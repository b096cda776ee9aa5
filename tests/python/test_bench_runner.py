import contextlib
import json
import os
import pathlib
import signal
import stat
import tempfile
import time
import unittest
from unittest import mock

import context  # noqa: F401 - finds the package
from ravlo_bench import runner as runner_module
from ravlo_bench.measurements import MalformedOutput, Measurement, parse_google_benchmark, parse_line, pooled
from ravlo_bench.programs import PROGRAMS, Program, ProgramFailed, Runner
from ravlo_bench.results import read_results, write_results
from ravlo_bench.rows import ROWS, WINE
from ravlo_bench.runner import Outcome, anything_wanted, measure

STEADY, WIDE, WIDER = 1.0, 1.5, 2.0
LOAD = Program("bench_load", WINE, ("dll_size", "dll_load"), 10)


def size_of(value=1024.0):
    return Measurement("dll_size", "", WINE, "bytes", [], [value])


def load(spread=STEADY, half=5):
    """Pairs whose interval reaches from 1 to `spread`."""
    return Measurement("dll_load", "", WINE, "us", [100.0] * 2 * half, [100.0] * half + [100.0 * spread] * half)


class FakeRunner:
    """Each run gives the next of these lists; an exception in one is raised at that point."""

    def __init__(self, *runs):
        self.runs = list(runs)
        self.asked = []

    def run(self, program, row="", size="", seen=lambda _: None):
        self.asked.append((program.name, row, size))
        for item in self.runs.pop(0):
            if isinstance(item, BaseException):
                raise item
            seen(item)


def measure_load(runner, **options):
    return measure(runner, programs=[LOAD], progress=lambda _: None, **options)


class MeasureTest(unittest.TestCase):
    def test_stable_rows_are_measured_once_and_listed_in_the_tables_order(self):
        runner = FakeRunner([load(), size_of()])
        outcome = measure_load(runner)
        self.assertEqual([result.row.name for result in outcome.results], ["dll_size", "dll_load"])
        self.assertEqual(outcome.failures, [])
        self.assertEqual(runner.asked, [("bench_load", "", "")])

    def test_unstable_row_is_measured_again_alone_until_it_is_stable(self):
        runner = FakeRunner([size_of(), load(WIDE)], [load(STEADY, 10)])
        (result,) = [result for result in measure_load(runner).results if result.row.name == "dll_load"]
        self.assertEqual(runner.asked[1:], [("bench_load", "dll_load", "")])
        self.assertEqual((result.judgement.high, result.judgement.unstable, result.runs), (1.0, False, 2))
        self.assertEqual(len(result.measurement.product), 30)

    def test_repeat_without_the_row_changes_nothing_but_is_told(self):
        runner = FakeRunner([size_of(), load(WIDE)], [ProgramFailed("bench_load ended with 5")], [])
        outcome = measure_load(runner)
        self.assertEqual((outcome.results[1].judgement.high, outcome.results[1].runs), (1.5, 1))
        self.assertEqual(outcome.failures, ["bench_load ended with 5"])

    def test_two_repeats_are_enough_and_the_pairs_of_all_runs_count(self):
        runner = FakeRunner([size_of(), load(WIDER)], [load(WIDE)], [load(WIDER)])
        (result,) = [result for result in measure_load(runner).results if result.row.name == "dll_load"]
        self.assertEqual(len(runner.asked), 3)
        self.assertEqual((result.judgement.high, result.judgement.unstable, result.runs), (2.0, True, 3))
        self.assertEqual(sorted(result.measurement.product), [100.0] * 15 + [150.0] * 5 + [200.0] * 10)
        self.assertEqual(result.measurement.floor, [100.0] * 30)

    def test_numbers_of_cameras_are_measured_again_in_one_run(self):
        def cameras(*spreads):
            return [
                Measurement("cameras", count, WINE, "us", [100.0] * 20, [100.0] * 10 + [100.0 * spread] * 10)
                for count, spread in zip("248", spreads)
            ]

        # 5 of 10 setups are wide, then 5 of 30: members 10 and 21 bound their median.
        steady = [pooled(one, one, 2) for one in cameras(STEADY, STEADY, STEADY)]
        runner = FakeRunner(cameras(STEADY, WIDE, 1.1), steady)
        program = Program("bench_cameras", WINE, ("cameras",), 10)
        outcome = measure(runner, programs=[program], progress=lambda _: None)
        self.assertEqual(runner.asked[1:], [("bench_cameras", "cameras", "")])
        self.assertEqual(
            [(result.judgement.high, result.runs) for result in outcome.results], [(1.0, 1), (1.0, 2), (1.1, 1)]
        )

    def test_nothing_is_repeated_when_figures_do_not_count(self):
        runner = FakeRunner([size_of(), load(WIDE)])
        outcome = measure_load(runner, repeat=False)
        self.assertTrue(outcome.results[1].judgement.unstable)
        self.assertEqual(len(runner.asked), 1)

    def test_missing_row_is_a_failure_with_its_name(self):
        outcome = measure_load(FakeRunner([size_of()]))
        self.assertEqual(outcome.failures, ["bench_load has not measured dll_load (Wine)"])

    def test_what_came_before_a_crash_is_kept(self):
        outcome = measure_load(FakeRunner([size_of(), ProgramFailed("bench_load ended with 5")]))
        self.assertEqual([result.row.name for result in outcome.results], ["dll_size"])
        self.assertEqual(
            outcome.failures, ["bench_load ended with 5", "bench_load has not measured dll_load (Wine)"]
        )

    def test_values_that_cannot_be_judged_are_no_figure(self):
        broken = Measurement("dll_load", "", WINE, "us", [1.0], [1.0, 2.0])
        outcome = measure_load(FakeRunner([size_of(), broken]))
        self.assertIn("bench_load printed dll_load: 1 floors and 2 products are no pairs", outcome.failures)
        self.assertIn("bench_load has not measured dll_load (Wine)", outcome.failures)

    def test_row_of_another_program_is_a_failure(self):
        stranger = Measurement("publish", "720p", WINE, "us", [1.0], [1.0])
        outcome = measure_load(FakeRunner([size_of(), load(), stranger]))
        self.assertEqual(outcome.failures, ["bench_load printed the unknown row publish"])

    def test_one_row_alone_asks_only_its_program(self):
        runner = FakeRunner([load()])
        outcome = measure(runner, only="dll_load", progress=lambda _: None)
        self.assertEqual(runner.asked, [("bench_load", "dll_load", "")])
        self.assertEqual((len(outcome.results), outcome.failures), (1, []))

    def test_one_size_alone_wants_no_other(self):
        request = Program("bench_request", WINE, ("request_own",), 10)
        own = Measurement("request_own", "1080p", WINE, "us", [], [9.0] * 9)
        outcome = measure(
            FakeRunner([own]), size="1080p", only="request_own", programs=[request], progress=lambda _: None
        )
        self.assertEqual((len(outcome.results), outcome.failures), (1, []))

    def test_what_comes_beside_the_asked_row_is_dropped_and_not_repeated(self):
        def pipe(name, size, half):
            return Measurement(name, size, WINE, "us", [100.0] * 10, [100.0] * 5 + [half] * 5)

        program = Program("bench_pipe", WINE, ("receive", "receive_stoppable"), 10)
        runner = FakeRunner(
            [pipe("receive", "720p", 100.0), pipe("receive_stoppable", "720p", 200.0), pipe("receive", "1080p", 200.0)]
        )
        outcome = measure(runner, only="receive", size="720p", programs=[program], progress=lambda _: None)
        self.assertEqual(runner.asked, [("bench_pipe", "receive", "720p")])
        self.assertEqual([(result.row.name, result.size) for result in outcome.results], [("receive", "720p")])
        self.assertEqual(outcome.failures, [])

    def test_size_that_is_no_frame_size_comes_with_any(self):
        cameras = [Measurement("cameras", count, WINE, "us", [1.0] * 12, [1.0] * 12) for count in "248"]
        program = Program("bench_cameras", WINE, ("cameras",), 10)
        outcome = measure(FakeRunner(cameras), size="720p", programs=[program], progress=lambda _: None)
        self.assertEqual((len(outcome.results), outcome.failures), (3, []))

    def test_nothing_is_judged_while_a_program_measures(self):
        class Watching(FakeRunner):
            def run(self, *arguments, **options):
                super().run(*arguments, **options)
                self.judged = judging.called

        with mock.patch.object(runner_module, "judge", side_effect=runner_module.judge) as judging:
            runner = Watching([size_of(), load()])
            self.assertEqual(len(measure_load(runner).results), 2)
        self.assertFalse(runner.judged)

    def test_interruption_leaves_what_was_measured_until_then(self):
        outcome = measure_load(FakeRunner([size_of(), KeyboardInterrupt()]))
        self.assertEqual([result.row.name for result in outcome.results], ["dll_size"])
        self.assertEqual((outcome.failures, outcome.interrupted), (["interrupted"], True))

    def test_interruption_of_a_repeat_leaves_the_first_run(self):
        outcome = measure_load(FakeRunner([size_of(), load(WIDE)], [load(), KeyboardInterrupt()]))
        self.assertEqual([(result.row.name, result.runs) for result in outcome.results],
                         [("dll_size", 1), ("dll_load", 1)])  # fmt: skip
        self.assertTrue(outcome.interrupted)

    def test_rows_are_known_to_be_measured_at_some_sizes_only(self):
        self.assertTrue(anything_wanted("", "720p"))
        self.assertTrue(anything_wanted("dll_load", "720p"))
        self.assertTrue(anything_wanted("wake_up_p50", "720p"))
        self.assertFalse(anything_wanted("transport", "720p"))

    def test_asking_for_what_is_not_measured_is_a_failure(self):
        outcome = measure(FakeRunner(), only="trace_line", size="720p", programs=[], progress=lambda _: None)
        self.assertEqual(outcome.failures, ["nothing is measured for trace_line 720p"])

    def test_second_percentile_comes_from_the_same_values(self):
        request = Program("bench_request", WINE, ("wake_up",), 10)
        waits = [
            Measurement("wake_up", size, WINE, "us", [100.0] * 99 + [900.0], [150.0] * 99 + [990.0])
            for size in ("720p", "1080p", "2160p")
        ]
        outcome = measure(FakeRunner(waits), programs=[request], progress=lambda _: None)
        self.assertEqual(outcome.failures, [])
        results = outcome.results[3:]
        self.assertEqual(
            [(result.row.name, result.size, result.judgement.figure, result.judgement.met) for result in results],
            [("wake_up_p50", size, 50.0, None) for size in ("720p", "1080p", "2160p")],
        )

    def test_every_row_has_a_program_in_each_of_its_places(self):
        measured = {(name, program.where) for program in PROGRAMS for name in program.rows}
        wanted = {(row.name, where) for row in ROWS if not row.source for where in row.where}
        self.assertEqual(measured, wanted)


class ParsingTest(unittest.TestCase):
    LINE = '{"row": "publish", "size": "720p", "unit": "us", "floor": [1, 2.5], "product": [2, 3], "context": {"n": 4}}'

    def test_line_of_a_program(self):
        measurement = parse_line(self.LINE, WINE)
        self.assertEqual(
            measurement, Measurement("publish", "720p", "Wine", "us", [1.0, 2.5], [2.0, 3.0], {"n": 4.0})
        )

    def test_anything_else_is_refused(self):
        for line in (
            "connected",
            "{}",
            "[1]",
            "null",
            self.LINE[:-1],
            self.LINE.replace("[2, 3]", "[]"),
            self.LINE.replace("[2, 3]", "7"),
            self.LINE.replace("[2, 3]", '["2"]'),
            self.LINE.replace("[2, 3]", "[NaN]"),
            self.LINE.replace("[2, 3]", "[true]"),
            self.LINE.replace("[2, 3]", "[1e999]"),
            self.LINE.replace("[2, 3]", f"[1{'0' * 400}]"),
            self.LINE.replace('"us"', '"furlongs"'),
            self.LINE.replace('"publish"', "1"),
        ):
            with self.subTest(line=line), self.assertRaises(MalformedOutput):
                parse_line(line, WINE)

    def test_repetitions_of_google_benchmark_are_pairs(self):
        def entry(name, **more):
            return {"name": name, "run_type": "iteration", "floor_us": 2.0, "product_us": 3.0, **more}

        text = json.dumps({"context": {}, "benchmarks": [
            entry("publish/1080p/manual_time"), entry("publish/1080p/manual_time", product_us=4.0),
            entry("publish/1080p/manual_time_mean", run_type="aggregate"), entry("formatter/manual_time"),
        ]})  # fmt: skip
        self.assertEqual(parse_google_benchmark(text), [
            Measurement("publish", "1080p", "native", "us", [2.0, 2.0], [3.0, 4.0]),
            Measurement("formatter", "", "native", "us", [2.0], [3.0]),
        ])  # fmt: skip

    def test_other_output_in_its_place_is_refused(self):
        for text in ("", "[]", '{"benchmarks": [{"name": "publish/720p"}]}', '{"benchmarks": [1]}'):
            with self.subTest(text=text), self.assertRaises(MalformedOutput):
                parse_google_benchmark(text)


class PooledTest(unittest.TestCase):
    def run_of(self, *product):
        return Measurement("cameras", "2", WINE, "us", [1.0] * len(product), list(product), {"fps": product[0]})

    def test_setups_stay_whole(self):
        both = pooled(self.run_of(1, 2, 3), self.run_of(4, 5, 6, 7, 8), 2)
        self.assertEqual((both.product, both.floor, both.context), ([1, 2, 4, 5, 6, 7], [1.0] * 6, {"fps": 1}))

    def test_run_of_an_incomplete_setup_alone_counts_only_beside_its_like(self):
        self.assertEqual(pooled(self.run_of(1), self.run_of(4, 5), 2).product, [4, 5])
        self.assertEqual(pooled(self.run_of(1), self.run_of(4), 2).product, [1, 4])


class RealRunnerTest(unittest.TestCase):
    """Programs are shell scripts here; the "loader" runs them."""

    def setUp(self):
        self.stack = contextlib.ExitStack()
        self.addCleanup(self.stack.close)
        self.root = pathlib.Path(self.stack.enter_context(tempfile.TemporaryDirectory()))

    def program(self, script, patience=20):
        path = self.root / "build/windows/bin/bench_load.exe"
        path.parent.mkdir(parents=True)
        path.write_text(script)
        path.chmod(path.stat().st_mode | stat.S_IXUSR)
        return Program("bench_load", WINE, ("dll_size", "dll_load"), patience)

    def runner(self, quick=False):
        return Runner(self.root, "sh", self.root / "logs", quick)

    def test_measurements_of_a_program_come_through(self):
        program = self.program(
            """printf '%s\\r\\n' '{"row":"dll_size","size":"","unit":"bytes","floor":[],"product":[7]}'"""
        )
        self.assertEqual(self.runner().run(program), [Measurement("dll_size", "", WINE, "bytes", [], [7.0])])

    def test_last_line_without_an_end_counts(self):
        program = self.program(
            """printf '%s' '{"row":"dll_size","size":"","unit":"bytes","floor":[],"product":[7]}'"""
        )
        self.assertEqual([measurement.product for measurement in self.runner().run(program)], [[7.0]])

    def test_last_line_that_was_cut_off_is_malformed(self):
        program = self.program("""printf '%s' '{"row":"dll_size","si'""")
        with self.assertRaisesRegex(ProgramFailed, "printed no measurement: ..row.:.dll_size.,.si"):
            self.runner().run(program)

    def test_failing_program_is_quoted(self):
        program = self.program("echo 'bench: no pipe' >&2; exit 3")
        with self.assertRaisesRegex(ProgramFailed, "^bench_load ended with 3: bench: no pipe$"):
            self.runner().run(program)

    def test_strange_output_fails_the_run_after_what_was_good(self):
        program = self.program(
            """echo hello; echo '{"row":"dll_size","size":"","unit":"bytes","floor":[],"product":[7]}'"""
        )
        seen = []
        with self.assertRaisesRegex(ProgramFailed, "bench_load printed no measurement: hello"):
            self.runner().run(program, seen=seen.append)
        self.assertEqual([measurement.product for measurement in seen], [[7.0]])

    def test_program_that_does_not_end_is_given_up(self):
        program = self.program(
            """echo '{"row":"dll_size","size":"","unit":"bytes","floor":[],"product":[7]}'; sleep 600 & wait""",
            patience=1,
        )
        seen = []
        begin = time.monotonic()
        with self.assertRaisesRegex(ProgramFailed, "did not end within 1 s"):
            self.runner().run(program, seen=seen.append)
        self.assertEqual(len(seen), 1)
        self.assertLess(time.monotonic() - begin, 60)

    def test_child_that_keeps_the_output_open_does_not_hold_the_run(self):
        program = self.program("sleep 30 & echo $! >%s/child; exit 0" % self.root)
        begin = time.monotonic()
        self.assertEqual(self.runner().run(program), [])
        self.assertLess(time.monotonic() - begin, 20)
        self.addCleanup(_end, int((self.root / "child").read_text()))

    def test_command_lines(self):
        runner = Runner(pathlib.Path("/r"), "wine64", pathlib.Path("/l"), quick=True)
        self.assertEqual(
            runner.command(LOAD, "dll_load", ""),
            ["wine64", "/r/build/windows/bin/bench_load.exe", "--only", "dll_load", "--quick"],
        )
        kernels = next(program for program in PROGRAMS if program.where == "native")
        for asked, names in (
            (("publish", "720p"), "publish/720p"),
            (("publish", ""), "publish"),
            (("formatter", "720p"), "formatter"),
            (("", "720p"), "publish/720p|consume/720p|pattern/720p|formatter"),
        ):
            self.assertEqual(runner.command(kernels, *asked)[-1], f"--benchmark_filter=^({names})(/|$)")
        cameras = Program("bench_cameras", WINE, ("cameras",), 10)
        self.assertNotIn("--size", runner.command(cameras, "cameras", "4"))


class ResultsFileTest(unittest.TestCase):
    def test_what_was_written_is_read_again(self):
        outcome = measure_load(FakeRunner([size_of(), load(STEADY)]))
        outcome.results[0].judgement.__dict__["high"] = float("inf")
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "new" / "results.json"
            write_results(path, outcome, {"date": "2000-01-01", "machine": {"processor": "P"}})
            results, about = read_results(path)
        self.assertEqual(results, outcome.results)
        self.assertEqual(about, {"date": "2000-01-01", "machine": {"processor": "P"}, "failures": []})

    def test_earlier_file_stays_when_the_new_one_cannot_be_written(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "results.json"
            path.write_text("earlier")
            with mock.patch.object(pathlib.Path, "replace", side_effect=OSError("full")):
                with self.assertRaises(OSError):
                    write_results(path, Outcome(), {})
            self.assertEqual([(file.name, file.read_text()) for file in pathlib.Path(folder).iterdir()],
                             [("results.json", "earlier")])  # fmt: skip

    def test_other_files_are_refused(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "results.json"
            for text in ("{}", '{"rows": [1]}', '{"rows": [{"row": "publish"}]}', "nothing"):
                path.write_text(text)
                with self.subTest(text=text), self.assertRaises(ValueError):
                    read_results(path)

    def test_empty_outcome_is_a_file_too(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "results.json"
            write_results(path, Outcome([], ["nothing was measured"]), {})
            self.assertEqual(read_results(path), ([], {"failures": ["nothing was measured"]}))


def _end(pid):
    with contextlib.suppress(ProcessLookupError):
        os.kill(pid, signal.SIGKILL)


if __name__ == "__main__":
    unittest.main()
