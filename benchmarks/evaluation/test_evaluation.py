"""The evaluation of benchmarks, on small results written by hand."""

import pathlib
import sys
import unittest
import xml.etree.ElementTree

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import document  # noqa: E402
import plots  # noqa: E402
import report  # noqa: E402
import targets  # noqa: E402
from measurements import Measurements  # noqa: E402


def run(name, nanoseconds, **more):
    return {"name": name, "run_type": "iteration", "cpu_time": nanoseconds,
            "real_time": 1000 * nanoseconds, "time_unit": "ns", "iterations": 1, **more}


def measured(*runs):
    measurements = Measurements()
    measurements.add({"benchmarks": list(runs)})
    return measurements


def target(row="a/b", beside="floor", limit=2.0):
    return targets.Target(row, beside, limit, "work", "other work")


def verdict(limit, *runs, beside="floor"):
    return targets.judge([target(beside=beside, limit=limit)], measured(*runs))[0]


class MeasurementsTest(unittest.TestCase):
    def test_ratio_is_that_of_the_medians(self):
        measurements = measured(run("a/b/tessel", 10), run("a/b/tessel", 30),
                                run("a/b/tessel", 900), run("a/b/floor", 15))

        self.assertEqual(measurements.ratio("a/b", "floor"), 2)

    def test_aggregates_are_left_out(self):
        measurements = measured(run("a/b/tessel", 10),
                                run("a/b/tessel_mean", 99, run_type="aggregate"))

        self.assertEqual(measurements.names(), ["a/b/tessel"])

    def test_appendages_of_the_name_are_cut_off(self):
        measurements = measured(run("a/b/tessel/iterations:50/manual_time", 1),
                                run("a/b/floor/min_time:0.1/real_time", 1))

        self.assertEqual(measurements.names(), ["a/b/floor", "a/b/tessel"])

    def test_processor_time_counts_unless_the_row_has_another_clock(self):
        measurements = measured(run("a/cpu", 3), run("a/manual/manual_time", 3),
                                run("a/real/real_time", 3))

        self.assertEqual([measurements.time(name) for name in measurements.names()],
                         [3, 3000, 3000])

    def test_units_become_nanoseconds(self):
        measurements = measured(run("a", 2, time_unit="us"), run("b", 2, time_unit="ms"),
                                run("c", 2, time_unit="s"))

        self.assertEqual([measurements.time(name) for name in "abc"], [2e3, 2e6, 2e9])

    def test_missing_side_has_no_ratio(self):
        self.assertIsNone(measured(run("a/b/tessel", 10)).ratio("a/b", "floor"))
        self.assertIsNone(measured(run("a/b/floor", 10)).ratio("a/b", "floor"))

    def test_failed_row_is_an_error_once_and_has_no_time(self):
        failed = run("a/b/tessel", 0, error_occurred=True, error_message="no memory")

        measurements = measured(failed, failed)

        self.assertEqual(measurements.errors, ["a/b/tessel: no memory"])
        self.assertIsNone(measurements.time("a/b/tessel"))

    def test_worst_counter_of_all_repetitions(self):
        measurements = measured(run("a/b/tessel", 1, attempts=2.0),
                                run("a/b/tessel", 1, attempts=3.0))

        self.assertEqual(measurements.worst_counter("a/b/tessel", "attempts"), 3)
        self.assertIsNone(measurements.worst_counter("a/b/tessel", "iterations"))

    def test_spread_is_half_the_distance_of_the_quartiles(self):
        measurements = measured(*(run("a", time) for time in (80, 90, 100, 110, 120)))

        self.assertAlmostEqual(measurements.spread("a"), 0.15)
        self.assertIsNone(measured(run("a", 1), run("a", 2)).spread("a"))

    def test_sides_stop_at_the_next_piece(self):
        measurements = measured(run("a/b/tessel", 1), run("a/b/floor", 1), run("a/b/c/tessel", 1))

        self.assertEqual(measurements.sides("a/b"), ["floor", "tessel"])


class TargetsTest(unittest.TestCase):
    def test_ratio_at_the_limit_holds(self):
        result = verdict(2, run("a/b/tessel", 20), run("a/b/floor", 10))

        self.assertEqual((result.state, result.figure), (targets.State.HELD, 2))

    def test_ratio_above_the_limit(self):
        result = verdict(2, run("a/b/tessel", 20.1), run("a/b/floor", 10))

        self.assertIs(result.state, targets.State.ABOVE)

    def test_row_that_did_not_run_is_missing(self):
        self.assertIs(verdict(2, run("a/b/tessel", 1)).state, targets.State.MISSING)

    def test_counter_of_zero_holds_at_zero(self):
        result = verdict(0, run("a/b/tessel", 1, writes=0), beside="counter:writes")

        self.assertIs(result.state, targets.State.HELD)

    def test_counter_above_its_limit(self):
        result = verdict(0, run("a/b/tessel", 1, writes=1), beside="counter:writes")

        self.assertIs(result.state, targets.State.ABOVE)

    def test_missing_row_fails_a_full_run_only(self):
        missing = verdict(2)
        above = verdict(2, run("a/b/tessel", 30), run("a/b/floor", 10))

        self.assertEqual(targets.failures([missing, above], is_full=False), [above])
        self.assertEqual(targets.failures([missing, above], is_full=True), [missing, above])

    def test_file_of_targets_is_sound(self):
        rows = targets.load(pathlib.Path(__file__).parent.parent / "targets.csv")

        self.assertEqual(len(rows), len({(row.row, row.beside) for row in rows}))
        for row in rows:
            self.assertRegex(row.beside, r"^(floor(-[a-z]+)?|peer-[a-z0-9-]+|counter:\w+)$")
            self.assertTrue(row.work and row.compared_with)


class PlotsTest(unittest.TestCase):
    leaves = plots.PLOTS[0]

    def test_points_stand_by_size(self):
        measurements = measured(run("growth/leaves/parse/1000", 5),
                                run("growth/leaves/parse/200", 3))

        points = plots.points_of(self.leaves, self.leaves.series[0], measurements)

        self.assertEqual(points, [(200, 3), (1000, 5)])

    def test_slopes(self):
        sizes = (10, 100, 1000, 10000)

        self.assertAlmostEqual(plots.slope_of([(size, 7 * size) for size in sizes]), 1)
        self.assertAlmostEqual(plots.slope_of([(size, 7) for size in sizes]), 0)
        self.assertAlmostEqual(plots.slope_of([(size, size ** 2) for size in sizes]), 2)
        self.assertIsNone(plots.slope_of([(10, 1)]))

    def test_slope_is_that_of_the_bigger_sizes(self):
        self.assertAlmostEqual(plots.slope_of([(1, 100), (10, 100), (100, 1000), (1000, 10000)]), 1)

    def test_expected_line_goes_through_the_last_point(self):
        line = plots.expected_line([(10, 5), (1000, 400)], 1)

        self.assertEqual(line, [(10, 4), (1000, 400)])

    def test_axis_ends_at_whole_decades(self):
        axis = plots.Axis([20, 3000], 0, 300)

        self.assertEqual(axis.decades(), [10, 100, 1000, 10000])
        self.assertAlmostEqual(axis(100), 100)

    def test_single_size_has_an_axis(self):
        self.assertEqual(plots.Axis([10], 0, 1).decades(), [10, 100])

    def test_labels_keep_their_distance_and_order(self):
        self.assertEqual(plots.spread_apart([50, 10, 12], 18), [50, 10, 28])

    def test_picture_is_well_formed_and_holds_every_series(self):
        measurements = measured(*(run(f"growth/leaves/{series.operation}/{size}", size)
                                  for series in self.leaves.series for size in (100, 1000)))

        picture = xml.etree.ElementTree.fromstring(plots.draw(self.leaves, measurements))

        labels = [element.text for element in picture.iter() if element.tag.endswith("text")]
        for series in self.leaves.series:
            self.assertIn(series.label, labels)

    def test_nothing_measured_gives_no_picture(self):
        self.assertIsNone(plots.draw(self.leaves, measured()))


class DocumentTest(unittest.TestCase):
    def test_numbers_have_three_digits(self):
        self.assertEqual([document.number(value) for value in
                          (0, 0.0594, 0.7, 2.5, 93.21, 1234.5, None)],
                         ["0", "0.059", "0.70", "2.50", "93.2", "1,234", "–"])

    def test_times_have_a_fitting_unit(self):
        self.assertEqual([document.time(value) for value in (0.67, 62.1, 1050, 2.5e6, 3e9, None)],
                         ["0.67 ns", "62.1 ns", "1.05 µs", "2.50 ms", "3 s", "–"])

    def test_columns_are_aligned(self):
        self.assertEqual(document.table(["A", "B"], [["long", "x"]]),
                         "| A    | B |\n| ---- | - |\n| long | x |")

    def test_page_is_the_same_for_the_same_results(self):
        measurements = measured(run("a/b/tessel", 30), run("a/b/floor", 10))
        verdicts = targets.judge([target()], measurements)

        pages = [document.compose([("Processor", "x")], "quick", verdicts, measurements, ["A note."])
                 for _ in range(2)]

        self.assertEqual(*pages)
        self.assertIn("| **above** |", pages[0])
        self.assertIn("## Where the time goes\n\nA note.", pages[0])

    def test_line_of_a_counter_has_no_time_beside_it(self):
        measurements = measured(run("a/b/tessel", 30, writes=4))
        result = targets.judge([target(beside="counter:writes")], measurements)[0]

        self.assertEqual(document.verdict_line(result, measurements),
                         ["`a/b`", "work", "other work", "30 ns", "", "4", "2", "**above**"])

    def test_rows_without_a_comparison_are_left_out(self):
        measurements = measured(run("a/b/tessel", 1), run("c/d/tessel", 1), run("c/d/peer-x", 1))

        self.assertEqual(document.rows_of(measurements), ["c/d"])


class NotesTest(unittest.TestCase):
    def test_links_lead_to_the_same_places_from_the_page_above(self):
        moved = report.with_links_from_above(
            "[a](../../tests/a.cpp), [b](b.md#c), [c](../c.md), [d](#d), [e](https://e.org/x)",
            "notes",
        )
        self.assertEqual(
            moved,
            "[a](../tests/a.cpp), [b](notes/b.md#c), [c](c.md), [d](#d), [e](https://e.org/x)",
        )

    def test_headings_stand_below_the_section_of_the_page(self):
        self.assertEqual(
            report.below_a_section("# A\n\na # b\n\n## C\n\n```\n# no heading\n```\n\n# D"),
            "### A\n\na # b\n\n#### C\n\n```\n# no heading\n```\n\n### D",
        )


if __name__ == "__main__":
    unittest.main()
