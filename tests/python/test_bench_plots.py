import contextlib
import io
import pathlib
import tempfile
import unittest
from unittest import mock

import context  # noqa: F401 - finds the package
from ravlo_bench import plots
from ravlo_bench.judge import judge
from ravlo_bench.measurements import Measurement
from ravlo_bench.results import write_results
from ravlo_bench.rows import row_named
from ravlo_bench.runner import Outcome, Result


def result(name, size, product, floor=()):
    measurement = Measurement(name, size, "Wine", "us", list(floor), list(product))
    return Result(row_named(name), size, "Wine", measurement, judge(row_named(name), measurement))


class PlotsTest(unittest.TestCase):
    """What needs no drawing; the pictures themselves want eyes."""

    def setUp(self):
        stack = contextlib.ExitStack()
        self.addCleanup(stack.close)
        self.folder = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory()))

    def run_program(self, results, pyplot):
        path = self.folder / "results.json"
        write_results(path, Outcome(results), {})
        said = io.StringIO()
        with contextlib.redirect_stderr(said), mock.patch.object(plots, "_pyplot", side_effect=[pyplot]):
            code = plots.main([str(path), str(self.folder / "pictures")])
        return code, said.getvalue()

    def test_missing_matplotlib_is_named_with_the_remedy(self):
        code, said = self.run_program([], ImportError("no matplotlib"))
        self.assertEqual(code, 1)
        self.assertEqual(said, "plots: matplotlib is missing; scripts/setup.sh --plots installs it\n")

    def test_results_without_figures_for_a_picture_give_none(self):
        lonely = [result("cameras", "1", [580.0] * 6), result("dll_load", "", [9.0] * 6, [8.0] * 6)]
        pyplot = mock.Mock()
        code, said = self.run_program(lonely, pyplot)
        self.assertEqual(code, 1)
        self.assertIn("has no figures for a picture", said)
        pyplot.subplots.assert_not_called()

    def test_values_of_another_quantity_are_refused_with_a_sentence(self):
        cameras = [result("cameras", count, [580.0] * 6, [580.0] * 6) for count in "12"]
        for camera in cameras:
            camera.measurement.unit = "bytes"
        pyplot = mock.Mock()
        pyplot.subplots.return_value = mock.Mock(), (mock.Mock(), mock.Mock())
        code, said = self.run_program(cameras, pyplot)
        self.assertEqual(code, 1)
        self.assertIn("plots: cameras: values in bytes where ms are due", said)

    def test_cameras_are_drawn_by_their_number_with_the_one_alone_beside_them(self):
        left, right, figure = mock.Mock(), mock.Mock(), mock.Mock()
        right.get_ylim.return_value = (1.0, 1.1)
        pyplot = mock.Mock()
        pyplot.subplots.return_value = figure, (left, right)
        results = [
            result("cameras", "8", [660.0] * 12, [600.0] * 12),
            result("cameras", "1", [600.0] * 6),
            result("cameras", "2", [630.0] * 12, [600.0] * 12),
        ]
        code, said = self.run_program(results, pyplot)
        self.assertEqual(code, 0)
        self.assertEqual([call.args[:2] for call in left.plot.call_args_list],
                         [([1, 2, 8], [0.6, 0.63, 0.66]), ([1, 2, 8], [0.6, 0.6, 0.6])])  # fmt: skip
        self.assertEqual([call.args[:2] for call in right.plot.call_args_list],
                         [([2, 2], [1.05, 1.05]), ([8, 8], [1.1, 1.1]), ([2, 8], [1.05, 1.1])])  # fmt: skip
        self.assertIn("cameras.png", said)
        self.assertEqual(figure.savefig.call_args.args[0].name, "cameras.png")


if __name__ == "__main__":
    unittest.main()
