import contextlib
import functools
import io
import json
import pathlib
import tempfile
import unittest
from unittest import mock

import context  # noqa: F401 - finds the package
from ravlo_bench import __main__ as program
from ravlo_bench import document, rows
from ravlo_bench.judge import judge
from ravlo_bench.measurements import Measurement
from ravlo_bench.results import write_results
from ravlo_bench.runner import Outcome, Result
from ravlo_bench.table import (
    floors,
    markdown_table,
    plain_table,
    remarks,
    row_list,
    sentences,
    summary,
    undocumented_misses,
    value_text,
)


def result(name, size, unit, product, floor=(), where="Wine", **context_values):
    measurement = Measurement(name, size, where, unit, list(floor), list(product), context_values)
    row = rows.row_named(name)
    return Result(row, size, where, measurement, judge(row, measurement))


@functools.lru_cache(maxsize=None)
def one_of_each():
    return [
        result("publish", "720p", "us", [102.0] * 200, [100.0] * 200),
        result("publish", "1080p", "us", [500.0] * 100 + [650.0] * 100, [500.0] * 200),
        result("request_own", "720p", "us", [8.25] * 9),
        result("receive", "720p", "us", [2000.0] * 9, [1980.0] * 9),
        result("wake_up", "720p", "us", [850.0] * 500, [700.0] * 500),
        result("delivery_lateness", "720p", "us", [1450.0] * 9, [1300.0] * 9),
        result("end_to_end_torn", "1080p", "samples", [2]),
        result("idle_core", "", "%", [0.04]),
        result("first_sample", "720p", "ms", [40.0] * 200, period_ms=33.5),
        result("dll_size", "", "bytes", [281619]),
        result("memory", "1080p", "bytes", [15.0e6], [12.4e6]),
    ]


PLAIN = """\
 #  what                           size   where    floor  product  ratio or figure          bar        met
--  -----------------------------  -----  -----  -------  -------  -----------------------  ---------  ----
 1  publish into the frame pool    720p   Wine    100 us   102 us  1.020                    <= 1.03    yes
                                   1080p  Wine    500 us   575 us  1.150 [1.000, 1.300]     <= 1.03    NO ~
 4  RequestSample, own time, p50   720p   Wine         -  8.25 us  8.25 us                  <= 15 us   yes
 5  pipe receive, frame rate       720p   Wine   1980 us  2000 us  0.990                    >= 0.97    yes
 7  wake-up lateness, p99          720p   Wine    700 us   850 us  150 us                   <= 200 us  yes
 7  delivery lateness, p50         720p   Wine   1300 us  1450 us  150 us                  -          -
 8  60 s: torn samples             1080p  Wine         -        2  2                        <= 0       NO"""


class PlainTableTest(unittest.TestCase):
    def test_lines_of_every_kind(self):
        lines = plain_table(one_of_each()).splitlines()
        squeezed = [" ".join(line.split()) for line in lines]
        self.assertEqual(squeezed[: PLAIN.count("\n") + 1][2:], [" ".join(l.split()) for l in PLAIN.splitlines()[2:]])
        self.assertEqual(squeezed[9:], [
            "11 idle camera, share of a core Wine - 0.040 % 0.040 % < 0.100 % yes",
            "13 activate to first sample, p95 720p Wine - 40 ms 40 ms <= 58.5 ms yes",
            "14 the stripped DLL Wine - 275.0 KiB 275.0 KiB <= 400 KiB yes",
            "15 private bytes of one camera 1080p Wine 12.4 MB 15 MB 2.60 MB <= 4 MB yes",
        ])  # fmt: skip

    def test_columns_begin_at_the_same_places(self):
        lines = plain_table(one_of_each()).splitlines()
        place = lines[0].index("bar")
        self.assertEqual({line[place - 2 : place] for line in lines[2:]}, {"  "})
        self.assertEqual({line[place] for line in lines[2:]}, {"<", ">", "-"})

    def test_fits_into_120_columns_with_the_longest_titles(self):
        results = [
            Result(row, "1080p", "native", None, one_of_each()[1].judgement) for row in rows.ROWS
        ]
        self.assertLessEqual(max(map(len, plain_table(results).splitlines())), 120)

    def test_runs_are_told_when_there_was_more_than_one(self):
        again = one_of_each()[1]
        again = Result(again.row, again.size, again.where, again.measurement, again.judgement, 3)
        self.assertIn(
            "With the values of 3 runs, since one was unstable: publish into the frame pool 1080p (Wine).",
            sentences([one_of_each()[0], again]),
        )
        self.assertEqual([line for line in sentences(one_of_each()) if "runs" in line], [])

    def test_gap_without_a_bound_has_none(self):
        few = [result("wake_up", "720p", "us", [850.0] * 100, [700.0] * 100)]
        self.assertIn("150 us [-, -]", plain_table(few))

    def test_floors_are_told_once_for_each_row(self):
        self.assertEqual(floors(one_of_each()[:4]), "Floors: publish into the frame pool - one memcpy, as cold; pipe "
                         "receive, frame rate - bare reads, one memcpy.")  # fmt: skip
        self.assertEqual(floors([one_of_each()[2]]), "")

    def test_missing_bound_is_shown_as_missing(self):
        few = [result("publish", "720p", "us", [1.0] * 3, [1.0] * 3)]
        self.assertIn("1.000 [-, -]", plain_table(few))

    def test_no_results_are_a_table_without_lines(self):
        self.assertEqual(len(plain_table([]).splitlines()), 2)

    def test_values_have_three_or_four_digits(self):
        for value, text in ((0.0421, "0.042 us"), (8.254, "8.25 us"), (66.58, "66.6 us"), (749.96, "750.0 us"),
                            (1788.3, "1788 us"), (12, "12 us"), (None, "-"), (float("inf"), "-")):  # fmt: skip
            self.assertEqual(value_text(value, "us"), text)
        self.assertEqual(value_text(3.0, ""), "3")


class RemarksTest(unittest.TestCase):
    def test_context_is_told_beside_the_figures(self):
        load = result("dll_load", "", "us", [10.0] * 9, [9.0] * 9, bare_us=7.0)
        self.assertEqual(remarks([load]), ["warm load and unload: an empty DLL without the C and C++ runtime: 7 us"])
        self.assertEqual(summary([load]).splitlines()[1:], ["", "1 of 1 bars are met."])

    def test_row_without_context_or_measurement_says_nothing(self):
        load = result("dll_load", "", "us", [10.0] * 9, [9.0] * 9)
        self.assertEqual(remarks([load, Result(load.row, "", "Wine", None, load.judgement)]), [])


class SummaryTest(unittest.TestCase):
    def test_counts_bars_and_names_those_not_met(self):
        self.assertEqual(
            summary(one_of_each()).splitlines(),
            [
                "8 of 10 bars are met. Not met: publish into the frame pool 1080p (Wine); 60 s: torn samples 1080p.",
                "~ unstable: the interval is wider than 0.2, so the figure says little.",
            ],
        )

    def test_all_met_needs_no_more_words(self):
        self.assertEqual(summary(one_of_each()[:1]), "1 of 1 bars are met.")

    def test_long_lists_are_broken_into_lines(self):
        many = [one_of_each()[1]] * 30
        self.assertLessEqual(max(map(len, summary(many).splitlines())), 120)

    def test_known_limit_is_told_and_no_longer_held_against_the_row(self):
        results = one_of_each()
        missed = [(miss.row.name, miss.size) for miss in undocumented_misses(results)]
        self.assertEqual(missed, [("publish", "1080p"), ("end_to_end_torn", "1080p")])
        with mock.patch.dict(rows.LIMITS, {("publish", "1080p"): rows.Limit(1.3, "the bus is slow")}):
            missed = [(miss.row.name, miss.size) for miss in undocumented_misses(results)]
            self.assertEqual(missed, [("end_to_end_torn", "1080p")])
            self.assertIn("publish into the frame pool 1080p (Wine): the bus is slow.", summary(results))
            self.assertIn("no, limit ~", plain_table(results))
        with mock.patch.dict(rows.LIMITS, {("publish", "1080p"): rows.Limit(1.29, "the bus is slow")}):
            missed = [(miss.row.name, miss.size) for miss in undocumented_misses(results)]
            self.assertEqual(missed, [("publish", "1080p"), ("end_to_end_torn", "1080p")])
            self.assertNotIn("the bus is slow", summary(results))
            self.assertNotIn("limit", plain_table(results))

    def test_reason_of_several_sizes_is_told_once(self):
        slow = [result("request_own", size, "us", [20.0] * 9) for size in ("720p", "1080p")]
        lines = sentences(slow)
        self.assertEqual(len(lines), 2)
        self.assertIn("Not met: RequestSample, own time, p50 720p, 1080p.", lines[0])
        self.assertTrue(lines[1].startswith("RequestSample, own time, p50 720p, 1080p: where the thread has not slept"))

    def test_rows_without_a_bar_do_not_count(self):
        shown = result("receive_stoppable", "720p", "us", [9.0] * 9, [8.0] * 9)
        self.assertEqual(summary([shown]), "0 of 0 bars are met.")
        self.assertIn("0.889", plain_table([shown]))


class DocumentTest(unittest.TestCase):
    ABOUT = {
        "date": "2030-01-02T03:04:05+00:00", "commit": "abc", "options": {"quick": False},
        "machine": {"processor": "P 1", "cores": "2", "memory": "4 GiB", "kernel": "K", "wine": "W", "compiler": "C",
                    "distribution": "D", "native_compiler": "N"},
        "load": [0.5, 0.25, 0.125],
    }  # fmt: skip
    TEXT = "# Figures\n\n<!-- table -->\nold\n<!-- end -->\n\nMore.\n"

    def test_table_takes_the_place_of_the_old_one(self):
        text = document.with_table(self.TEXT, one_of_each()[:2], self.ABOUT)
        self.assertEqual(text.splitlines(), [
            "# Figures", "", "<!-- table -->", "",
            "- 2030-01-02, version abc", "- P 1, 2 cores, 4 GiB of memory", "- D, K, W", "- C", "- natively N",
            "- load before the run (1, 5, 15 minutes): 0.50, 0.25, 0.12", "",
            "| # | what | size | where | floor | product | ratio or figure | bar | met |",
            "| --: | --- | --- | --- | --: | --: | --- | --- | --- |",
            "| 1 | publish into the frame pool<br>beside: one memcpy, as cold | 720p | Wine | 100 us | 102 us | 1.020 "
            "| <= 1.03 | yes |",
            "|  |  | 1080p | Wine | 500 us | 575 us | 1.150 [1.000, 1.300] | <= 1.03 | NO ~ |",
            "", "1 of 2 bars are met. Not met: publish into the frame pool 1080p (Wine).", "",
            "~ unstable: the interval is wider than 0.2, so the figure says little.", "", "<!-- end -->", "", "More.",
        ])  # fmt: skip

    def test_writing_it_twice_changes_nothing(self):
        once = document.with_table(self.TEXT, one_of_each(), self.ABOUT)
        self.assertEqual(document.with_table(once, one_of_each(), self.ABOUT), once)

    def test_document_without_a_place_is_refused(self):
        for text in ("# Figures\n", "<!-- table -->\n", "<!-- end --> <!-- table -->"):
            with self.subTest(text=text), self.assertRaises(ValueError):
                document.with_table(text, [], self.ABOUT)

    def test_program_writes_the_document_or_says_why_not(self):
        with tempfile.TemporaryDirectory() as folder:
            page, results = pathlib.Path(folder) / "page.md", pathlib.Path(folder) / "results.json"
            page.write_text(self.TEXT)
            write_results(results, Outcome(one_of_each()), self.ABOUT)
            (pathlib.Path(folder) / "page").mkdir()
            (pathlib.Path(folder) / "page" / "cameras.png").write_bytes(b"")
            self.assertEqual(document.main([str(results), str(page)]), 0)
            self.assertEqual(
                [line for line in page.read_text().splitlines() if line.startswith("!")],
                ["![Cost per camera against the number of cameras](page/cameras.png)"],
            )
            self.assertIn(markdown_table(one_of_each()), page.read_text())
            said = io.StringIO()
            with contextlib.redirect_stderr(said):
                write_results(results, Outcome(one_of_each()), {})
                self.assertEqual(document.main([str(results), str(page)]), 1)
                self.assertEqual(document.main([folder + "/none.json", str(page)]), 1)
            self.assertIn("does not say its 'machine'", said.getvalue())
            self.assertIn("No such file", said.getvalue())

    def test_results_that_would_leave_gaps_are_refused(self):
        with tempfile.TemporaryDirectory() as folder:
            page, path = pathlib.Path(folder) / "page.md", pathlib.Path(folder) / "results.json"
            for outcome, options, sentence in (
                (Outcome(one_of_each(), ["interrupted"]), {}, "the results are not complete: interrupted"),
                (Outcome(one_of_each()), {"only": "publish", "size": "720p"}, "the results are for publish 720p alone"),
                (Outcome(), {}, "there are no results"),
            ):
                page.write_text(self.TEXT)
                write_results(path, outcome, {**self.ABOUT, "options": {"quick": False, **options}})
                said = io.StringIO()
                with self.subTest(sentence=sentence), contextlib.redirect_stderr(said):
                    self.assertEqual(document.main([str(path), str(page)]), 1)
                    self.assertIn(f"document: {sentence}", said.getvalue())
                    self.assertEqual(page.read_text(), self.TEXT)

    def test_machine_without_the_later_lines_is_shown_too(self):
        later = ("distribution", "native_compiler")
        machine = {key: value for key, value in self.ABOUT["machine"].items() if key not in later}
        about = {key: value for key, value in self.ABOUT.items() if key != "load"}
        text = document.with_table(self.TEXT, one_of_each()[:1], {**about, "machine": machine})
        self.assertIn("- K, W\n- C\n\n", text)

    def test_page_of_the_project_has_the_place(self):
        page = pathlib.Path(document.__file__).resolve().parents[2] / "docs" / "performance.md"
        text = document.with_table(page.read_text(encoding="utf-8"), one_of_each(), self.ABOUT)
        self.assertIn(markdown_table(one_of_each()), text)


class ProgramTest(unittest.TestCase):
    """The whole program, with results that need no run."""

    def run_program(self, outcome, *arguments):
        printed, said = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(printed), contextlib.redirect_stderr(said):
            with mock.patch.object(program, "measure", return_value=outcome):
                code = program.main(["--loader", "no-such-loader", *arguments])
        return code, printed.getvalue(), said.getvalue()

    def test_all_met_ends_with_0(self):
        code, printed, _ = self.run_program(Outcome(one_of_each()[:1]))
        self.assertEqual(code, 0)
        self.assertNotIn("worth little", printed)
        self.assertIn("1 of 1 bars are met.", printed)

    def test_missed_bar_ends_with_1_but_not_in_a_quick_run(self):
        self.assertEqual(self.run_program(Outcome(one_of_each()))[0], 1)
        code, printed, _ = self.run_program(Outcome(one_of_each()), "--quick")
        self.assertEqual((code, printed.count("worth little")), (0, 2))

    def test_missing_row_ends_with_1_and_a_sentence_even_in_a_quick_run(self):
        code, printed, said = self.run_program(
            Outcome(one_of_each()[:1], ["bench_pipe has not measured receive 720p (Wine)"]), "--quick"
        )
        self.assertEqual(code, 1)
        self.assertIn("publish into the frame pool", printed)
        self.assertIn("bench: bench_pipe has not measured receive 720p (Wine)\n", said)

    def test_wrong_arguments_end_with_2(self):
        for arguments in (["--only", "nothing"], ["--size", "480p"], ["--fast"],
                          ["--only", "transport", "--size", "720p"]):  # fmt: skip
            with self.subTest(arguments=arguments), self.assertRaises(SystemExit) as ending:
                self.run_program(Outcome(), *arguments)
            self.assertEqual(ending.exception.code, 2)

    def test_results_that_cannot_be_written_end_with_1_after_the_table(self):
        with tempfile.TemporaryDirectory() as folder:
            code, printed, said = self.run_program(Outcome(one_of_each()[:1]), "--json", folder)
        self.assertEqual(code, 1)
        self.assertIn("1 of 1 bars are met.", printed)
        self.assertIn(f"bench: the raw values cannot be written to {folder}: Is a directory\n", said)

    def test_interruption_ends_with_130_and_keeps_what_there_is(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "results.json"
            outcome = Outcome(one_of_each()[:1], ["interrupted"], True)
            code, printed, said = self.run_program(outcome, "--json", str(path))
            self.assertEqual(json.loads(path.read_text())["failures"], ["interrupted"])
        self.assertEqual(code, 130)
        self.assertIn("publish into the frame pool", printed)
        self.assertIn("bench: interrupted\n", said)

    def test_list_has_every_row_and_measures_nothing(self):
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed), mock.patch.object(program, "measure") as measuring:
            self.assertEqual(program.main(["--list"]), 0)
        measuring.assert_not_called()
        self.assertEqual(printed.getvalue(), row_list() + "\n")
        self.assertEqual([line.split()[0] for line in row_list().splitlines()[1:]], [row.name for row in rows.ROWS])
        self.assertIn("<= 25 ms beyond period_ms", row_list())

    def test_results_are_written_where_asked(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "results.json"
            self.run_program(Outcome(one_of_each()[:1]), "--quick", "--json", str(path))
            content = json.loads(path.read_text())
        self.assertEqual(content["options"], {"quick": True, "only": "", "size": ""})
        self.assertEqual(content["machine"]["wine"], "unknown")
        self.assertEqual(len(content["load"]), 3)
        self.assertEqual(content["rows"][0]["measurement"]["product"], [102.0] * 200)
        self.assertEqual(content["rows"][0]["judgement"]["met"], True)


if __name__ == "__main__":
    unittest.main()
