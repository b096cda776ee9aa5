import math
import unittest

import context  # noqa: F401 - finds the package
from ravlo_bench.judge import Judgement, judge, known_limit
from ravlo_bench.measurements import MalformedOutput, Measurement
from ravlo_bench.rows import BOTH, FRAME_SIZES, LIMITS, NATIVE, NO_SIZE, ROWS, Kind, Row, row_named


def row(kind, bar=None, unit="us", sizes=NO_SIZE, **more):
    return Row(1, "thing", "a thing", "less", unit, kind, bar, sizes, **more)


def measured(product, floor=(), unit="us", size="", **context_values):
    return Measurement("thing", size, "Wine", unit, list(floor), list(product), context_values)


class RatioTest(unittest.TestCase):
    def test_figure_is_the_median_of_the_pairs_ratios(self):
        judgement = judge(row(Kind.RATIO, 1.5), measured([11, 24, 36, 40, 55, 600], [10, 20, 30, 40, 50, 60]))
        self.assertAlmostEqual(judgement.figure, 1.15)
        self.assertAlmostEqual(judgement.low, 1.0)
        self.assertAlmostEqual(judgement.high, 10.0)
        self.assertEqual((judgement.floor, judgement.product), (35, 38))

    def test_bar_is_met_exactly_at_the_intervals_upper_end(self):
        pairs = measured([5.0] * 10, [4.0] * 10)
        self.assertTrue(judge(row(Kind.RATIO, 1.25), pairs).met)
        self.assertFalse(judge(row(Kind.RATIO, 1.2499), pairs).met)

    def test_good_median_does_not_meet_the_bar_with_a_bad_upper_end(self):
        judgement = judge(row(Kind.RATIO, 1.1), measured([1.0] * 7 + [1.2] * 3, [1.0] * 10))
        self.assertEqual((judgement.figure, judgement.high, judgement.met), (1.0, 1.2, False))

    def test_wide_interval_is_unstable_and_one_of_a_fifth_is_not(self):
        self.assertTrue(judge(row(Kind.RATIO, 2), measured([4.0] * 5 + [5.25] * 5, [4.0] * 10)).unstable)
        self.assertFalse(judge(row(Kind.RATIO, 2), measured([4.0] * 5 + [4.75] * 5, [4.0] * 10)).unstable)

    def test_too_few_pairs_are_unstable_and_meet_nothing(self):
        judgement = judge(row(Kind.RATIO, 100), measured([1.0] * 5, [1.0] * 5))
        self.assertEqual((judgement.low, judgement.high), (-math.inf, math.inf))
        self.assertTrue(judgement.unstable)
        self.assertFalse(judgement.met)

    def test_size_without_a_bar_is_shown(self):
        judgement = judge(row(Kind.RATIO, 1.0, sizes=("1080p",)), measured([2.0] * 6, [1.0] * 6, size="720p"))
        self.assertEqual((judgement.figure, judgement.bar, judgement.met), (2.0, None, None))

    def test_size_without_a_bar_may_lack_a_floor(self):
        judgement = judge(row(Kind.RATIO, 1.0, sizes=("2",)), measured([2.0] * 6, size="1"))
        self.assertEqual((judgement.figure, judgement.floor, judgement.met), (2.0, None, None))

    def test_costs_of_batches_are_shown_for_one_piece_of_work(self):
        judgement = judge(row(Kind.RATIO, 2, per="lines"), measured([30.0] * 6, [20.0] * 6, lines=10))
        self.assertEqual((judgement.figure, judgement.floor, judgement.product), (1.5, 2.0, 3.0))
        with self.assertRaisesRegex(MalformedOutput, "no lines beside the values"):
            judge(row(Kind.RATIO, 2, per="lines"), measured([30.0] * 6, [20.0] * 6))

    def test_values_that_are_no_pairs_are_refused(self):
        for product, floor in (([1.0, 2.0], [1.0]), ([1.0], []), ([1.0], [0.0]), ([-1.0], [1.0])):
            with self.subTest(product=product, floor=floor), self.assertRaises(MalformedOutput):
                judge(row(Kind.RATIO, 1), measured(product, floor))


class SetupsTest(unittest.TestCase):
    SETS_UP = row(Kind.RATIO, 1.5, setup=20)

    def test_pairs_of_few_setups_bound_nothing(self):
        judgement = judge(self.SETS_UP, measured([1.0] * 100, [1.0] * 100))
        self.assertEqual((judgement.figure, judgement.low, judgement.high), (1.0, -math.inf, math.inf))
        self.assertEqual((judgement.met, judgement.unstable), (False, True))

    def test_figure_and_interval_are_those_of_the_setups_medians(self):
        setups = [[1.0] * 11 + [9.0] * 9, [1.1] * 20, [1.2] * 20, [1.3] * 20, [1.4] * 20, [1.5] * 11 + [0.1] * 9]
        judgement = judge(self.SETS_UP, measured(sum(setups, []), [1.0] * 120))
        self.assertAlmostEqual(judgement.figure, 1.25)
        self.assertEqual((judgement.low, judgement.high, judgement.met), (1.0, 1.5, True))

    def test_incomplete_last_setup_is_left_out_unless_it_is_the_only_one(self):
        self.assertEqual(judge(self.SETS_UP, measured([1.0] * 120 + [7.0] * 19, [1.0] * 139)).high, 1.0)
        self.assertEqual(judge(self.SETS_UP, measured([7.0] * 19, [1.0] * 19)).figure, 7.0)

    def test_rates_have_setups_too(self):
        rates = judge(row(Kind.RATE, 1.5, setup=20), measured([1.0] * 100, [2.0] * 100))
        self.assertEqual((rates.figure, rates.low, rates.met), (2.0, -math.inf, False))

    def test_native_repetitions_are_setups_of_their_own(self):
        native = Measurement("thing", "", NATIVE, "us", [1.0] * 6, [1.0] * 6)
        self.assertEqual(judge(row(Kind.RATIO, 1.5, where=BOTH, setup=20), native).high, 1.0)

    def test_setups_are_those_of_the_programs(self):
        self.assertEqual({r.name: r.setup for r in ROWS if r.setup != 1}, {
            "publish": 20, "consume": 20, "pattern": 20, "formatter": 20,
            "cameras": 2,
        })  # fmt: skip


class RateTest(unittest.TestCase):
    def test_rate_is_the_floors_cost_by_the_products(self):
        judgement = judge(row(Kind.RATE, 1.5), measured([2.0] * 8, [3.0] * 8))
        self.assertEqual((judgement.figure, judgement.met), (1.5, True))

    def test_row_without_a_bar_has_its_ratio(self):
        for kind, figure in ((Kind.RATE, 1.5), (Kind.RATIO, 1 / 1.5)):
            judgement = judge(row(kind), measured([2.0] * 8, [3.0] * 8))
            self.assertAlmostEqual(judgement.figure, figure)
            self.assertEqual((judgement.floor, judgement.bar, judgement.met), (3.0, None, None))

    def test_lower_end_decides(self):
        judgement = judge(row(Kind.RATE, 0.97), measured([1.0] * 7 + [1.25] * 3, [1.0] * 10))
        self.assertEqual((judgement.figure, judgement.low, judgement.met), (1.0, 0.8, False))


class PercentileTest(unittest.TestCase):
    def test_median_at_the_bar_meets_it(self):
        self.assertTrue(judge(row(Kind.PERCENTILE, 15), measured([15.0] * 20)).met)
        self.assertFalse(judge(row(Kind.PERCENTILE, 15), measured([15.0] * 5 + [15.5] * 15)).met)

    def test_upper_end_decides(self):
        judgement = judge(row(Kind.PERCENTILE, 15), measured([10.0] * 6 + [16.0] * 4))
        self.assertEqual((judgement.figure, judgement.high, judgement.met), (10.0, 16.0, False))

    def test_bar_counts_from_what_the_context_says(self):
        first = row(Kind.PERCENTILE, 25, "ms", share=0.95, beyond="period_ms")
        judgement = judge(first, measured([58.0] * 200, unit="ms", period_ms=33.0))
        self.assertEqual((judgement.bar, judgement.met), (58.0, True))
        self.assertFalse(judge(first, measured([58.1] * 200, unit="ms", period_ms=33.0)).met)

    def test_missing_context_is_refused(self):
        with self.assertRaisesRegex(MalformedOutput, "no period_ms"):
            judge(row(Kind.PERCENTILE, 25, "ms", beyond="period_ms"), measured([1.0], unit="ms"))

    def test_values_are_taken_over_into_the_rows_unit(self):
        self.assertEqual(judge(row(Kind.PERCENTILE, 15), measured([0.25] * 9, unit="ms")).figure, 250.0)

    def test_values_of_another_quantity_are_refused(self):
        with self.assertRaisesRegex(MalformedOutput, "values in bytes where us are due"):
            judge(row(Kind.PERCENTILE, 15), measured([1.0], unit="bytes"))


class GapTest(unittest.TestCase):
    def test_gap_at_the_bar_meets_it(self):
        waits = measured([350.0] * 500, [150.0] * 500)
        judgement = judge(row(Kind.GAP, 200, share=0.99), waits)
        self.assertEqual((judgement.figure, judgement.low, judgement.high, judgement.met), (200.0, 200.0, 200.0, True))
        self.assertFalse(judge(row(Kind.GAP, 199.9, share=0.99), waits).met)

    def test_samples_may_differ_in_size(self):
        judgement = judge(row(Kind.GAP, 200), measured([3.0] * 7, [1.0] * 9))
        self.assertEqual((judgement.figure, judgement.floor, judgement.product), (2.0, 1.0, 3.0))

    def test_missing_floor_is_refused(self):
        with self.assertRaisesRegex(MalformedOutput, "no floor"):
            judge(row(Kind.GAP, 200), measured([1.0]))


class FigureTest(unittest.TestCase):
    def test_largest_value_counts(self):
        self.assertFalse(judge(row(Kind.FIGURE, 0, ""), measured([0, 0, 1], unit="")).met)
        self.assertTrue(judge(row(Kind.FIGURE, 0, ""), measured([0, 0, 0], unit="")).met)

    def test_bar_itself_meets_only_what_is_not_strict(self):
        self.assertTrue(judge(row(Kind.FIGURE, 13, "1/s"), measured([13.0], unit="1/s")).met)
        self.assertFalse(judge(row(Kind.FIGURE, 0.1, "%", strict=True), measured([0.1], unit="%")).met)
        self.assertTrue(judge(row(Kind.FIGURE, 0.1, "%", strict=True), measured([0.09], unit="%")).met)

    def test_dll_may_have_exactly_409600_bytes(self):
        size = row_named("dll_size")
        self.assertTrue(judge(size, measured([409600], unit="bytes")).met)
        self.assertFalse(judge(size, measured([409601], unit="bytes")).met)


class DifferenceTest(unittest.TestCase):
    def test_camera_may_hold_exactly_4000000_bytes_more(self):
        memory = row_named("memory")
        self.assertTrue(judge(memory, measured([16_000_000], [12_000_000], "bytes", "1080p")).met)
        self.assertFalse(judge(memory, measured([16_000_001], [12_000_000], "bytes", "1080p")).met)

    def test_least_favourable_values_decide(self):
        judgement = judge(row(Kind.DIFFERENCE, 4, ""), measured([10, 11, 12], [7, 8, 9], ""))
        self.assertEqual((judgement.figure, judgement.high, judgement.met), (3, 5, False))


class ShownTest(unittest.TestCase):
    def test_has_figures_and_nothing_to_meet(self):
        judgement = judge(row(Kind.SHOWN), measured([3.0] * 9, [1.0] * 9))
        self.assertEqual((judgement.floor, judgement.product, judgement.bar, judgement.met), (1.0, 3.0, None, None))


class LateWaitsTest(unittest.TestCase):
    """Waits that were over before they began have no value, and are the latest of all."""

    def wake_up(self, lost):
        return measured([150.0] * 990, [100.0] * 990, product_without_wait=lost, floor_without_wait=0.0)

    def test_few_of_them_leave_the_percentile_where_it_is(self):
        judgement = judge(row(Kind.GAP, 200, share=0.99), self.wake_up(9.0))
        self.assertEqual((judgement.figure, judgement.high, judgement.met), (50.0, 50.0, True))

    def test_where_the_percentile_may_be_one_of_them_nothing_is_met(self):
        judgement = judge(row(Kind.GAP, 200, share=0.99), self.wake_up(11.0))
        self.assertEqual((judgement.high, judgement.met), (math.inf, False))


class RowsTest(unittest.TestCase):
    def test_bars_are_those_that_were_set(self):
        bars = {r.name: (r.number, r.kind, r.bar) for r in ROWS if r.bar is not None}
        self.assertEqual(bars, {
            "publish": (1, Kind.RATIO, 1.03), "consume": (2, Kind.RATIO, 1.05), "pattern": (3, Kind.RATIO, 1.15),
            "request_own": (4, Kind.PERCENTILE, 15), "receive": (5, Kind.RATE, 0.97),
            "transport": (6, Kind.RATIO, 1.10), "wake_up": (7, Kind.GAP, 200),
            "end_to_end_pattern": (8, Kind.FIGURE, 0), "end_to_end_torn": (8, Kind.FIGURE, 0),
            "end_to_end_grid": (8, Kind.FIGURE, 0), "end_to_end_clamps": (8, Kind.FIGURE, 0),
            "frame_cost": (9, Kind.RATIO, 1.15), "trace_line": (10, Kind.RATIO, 1.05),
            "formatter": (10, Kind.RATE, 1.5), "idle_wakeups": (11, Kind.FIGURE, 13),
            "idle_core": (11, Kind.FIGURE, 0.1), "idle_allocations": (11, Kind.FIGURE, 0),
            "cameras": (12, Kind.RATIO, 1.10), "first_sample": (13, Kind.PERCENTILE, 25),
            "dll_size": (14, Kind.FIGURE, 400), "dll_load": (14, Kind.RATIO, 1.3), "memory": (15, Kind.DIFFERENCE, 4),
        })  # fmt: skip

    def test_percentiles_are_those_that_were_set(self):
        self.assertEqual({r.name: r.share for r in ROWS if r.share != 0.5}, {"wake_up": 0.99, "first_sample": 0.95})

    def test_kernels_have_every_size_in_both_places(self):
        for name in ("publish", "consume", "pattern"):
            self.assertEqual((row_named(name).sizes, row_named(name).where), (FRAME_SIZES, ("native", "Wine")))

    def test_unknown_name_is_an_error(self):
        with self.assertRaises(KeyError):
            row_named("nothing")


class LimitTest(unittest.TestCase):
    def judged(self, name, low, high, met=False):
        return Judgement((low + high) / 2, low, high, None, 1.0, row_named(name).bar, met)

    def explained(self, name, size, *judged, **more):
        return known_limit(row_named(name), size, self.judged(name, *judged, **more)) is not None

    def test_every_limit_is_of_a_bar_and_beyond_it(self):
        for (name, size), limit in LIMITS.items():
            with self.subTest(name=name, size=size):
                limited = row_named(name)
                self.assertIn(size, limited.sizes)
                self.assertIsNotNone(limited.bar)
                self.assertEqual(limit.worst < limited.bar, limited.kind is Kind.RATE)
                self.assertNotEqual(limit.worst, limited.bar)

    def test_limits_are_those_that_were_shown(self):
        self.assertEqual({key: limit.worst for key, limit in LIMITS.items()}, {
            ("request_own", "720p"): 60, ("request_own", "1080p"): 60, ("request_own", "2160p"): 60,
            ("consume", "2160p"): 1.25,
            ("receive", "720p"): 0.90, ("receive", "1080p"): 0.9, ("receive", "2160p"): 0.9, ("wake_up", "2160p"): math.inf,
        })  # fmt: skip

    def test_unfavourable_end_may_be_at_the_limit_and_no_worse(self):
        self.assertTrue(self.explained("request_own", "1080p", 20.0, 60.0))
        self.assertFalse(self.explained("request_own", "1080p", 20.0, 60.1))
        self.assertTrue(self.explained("receive", "720p", 0.90, 1.2))
        self.assertFalse(self.explained("receive", "720p", 0.899, 1.2))

    def test_unbounded_interval_is_not_explained(self):
        self.assertFalse(self.explained("receive", "720p", -math.inf, math.inf))
        self.assertFalse(self.explained("request_own", "720p", -math.inf, math.inf))

    def test_bar_that_is_met_or_has_no_limit_needs_none(self):
        self.assertFalse(self.explained("receive", "720p", 0.98, 1.0, met=True))
        self.assertFalse(self.explained("wake_up", "720p", 201.0, 250.0))
        self.assertFalse(self.explained("dll_size", "", 500.0, 500.0))


if __name__ == "__main__":
    unittest.main()
