#!/usr/bin/env python3
"""Tests of what benchmarks/run makes of its times."""
import pathlib
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

import report


class Report(unittest.TestCase):
    def test_rows_join_ours_with_its_limit_and_its_peers(self):
        rows = report.rows_of({"limit/a": 2.0, "ours/a": 6.0, "peer/a/Some library": 8.0, "alone/b": 5.0, "limit/c": 1.0})
        self.assertEqual(rows, {"a": {"limit": 2.0, "ours": 6.0, "peers": {"Some library": 8.0}}, "b": {"ours": 5.0}})

    def test_a_row_is_slower_when_its_multiple_of_the_limit_grew(self):
        before = {"a": {"limit": 1.0, "ours": 2.0}, "b": {"limit": 1.0, "ours": 2.0}, "c": {"ours": 10.0}}
        # Another machine: everything takes twice as long, which is no news.
        now = {"a": {"limit": 2.0, "ours": 4.1}, "b": {"limit": 2.0, "ours": 6.0}, "c": {"ours": 12.0}}
        self.assertEqual([name for name, _, _ in report.slower_rows(before, now)], ["b", "c"])

    def test_what_only_one_run_has_is_not_compared(self):
        self.assertEqual(report.slower_rows({"a": {"ours": 1.0}}, {"b": {"ours": 9.0}}), [])
        self.assertEqual(report.slower_rows({"a": {"ours": 1.0}}, {"a": {"ours": 9.0, "limit": 1.0}}), [])

    def test_the_drawing_has_a_bar_for_ours_and_each_peer_and_a_line_for_the_limit(self):
        rows = {"a": {"limit": 2.0, "ours": 6.0, "peers": {"<other>": 1.0}}, "b": {"ours": 5.0}}
        drawn = xml.etree.ElementTree.fromstring(report.drawing(rows, {"a": "reading & writing"}))
        space = "{http://www.w3.org/2000/svg}"
        self.assertEqual([bar.get("class") for bar in drawn.iter(space + "rect")], ["ours", "peer"])
        self.assertEqual(len(list(drawn.iter(space + "line"))), 1)
        texts = ["".join(text.itertext()) for text in drawn.iter(space + "text")]
        self.assertTrue(any("reading & writing" in text for text in texts))
        self.assertIn("3 ours", texts)
        self.assertIn("0.5 <other>", texts)

    def test_the_table_shows_what_was_wanted_reached_and_missed(self):
        rows = {"b": {"ours": 5000.0}, "a": {"limit": 2.0, "ours": 6.0, "peers": {"Other": 1.0}}}
        known = {"a": (2.5, "reading / looking"), "b": (None, "loading"), "c": (1.0, "not measured")}
        self.assertEqual(report.table(rows, known, {"a": {"limit": 1.0, "ours": 4.0}}).splitlines()[2:],
                         ["| reading / looking | 2.5 | **3** | 4 | Other 0.5 |", "| loading |  | 5 µs |  |  |"])
        self.assertEqual(report.table(rows, known, None).splitlines()[2], "| reading / looking | 2.5 | **3** | Other 0.5 |")

    def test_a_page_shows_what_was_recorded_last(self):
        page = "# Speed\n<!-- recorded: begin -->\n{}<!-- recorded: end -->\nafter\n"
        self.assertEqual(report.page_with(page.format("old\n"), "new\n"), page.format("new\n"))
        for incomplete in ("# Speed\n", "# Speed\n<!-- recorded: begin -->\n"):
            self.assertRaises(ValueError, report.page_with, incomplete, "new\n")

    def test_a_drawing_of_nothing_is_a_drawing(self):
        xml.etree.ElementTree.fromstring(report.drawing({}, {}))


PROGRAM = """#!/bin/sh
case "$*" in
  *--benchmark_list_tests*) echo ours/a ;;
  *) {} ;;
esac
"""


class Run(unittest.TestCase):
    def run_over(self, programs, *arguments):
        with tempfile.TemporaryDirectory() as folder:
            built = pathlib.Path(folder) / "benchmarks"
            built.mkdir()
            for name, does in programs.items():
                (built / name).write_text(PROGRAM.format(does))
                (built / name).chmod(0o755)
            command = [sys.executable, pathlib.Path(__file__).parent / "run", "--build", folder, *arguments]
            return subprocess.run(command, capture_output=True, text=True)

    def test_a_folder_without_benchmarks_is_no_measured_run(self):
        done = self.run_over({})
        self.assertEqual((done.returncode, "no benchmarks are built in" in done.stderr), (1, True), done.stderr)

    def test_a_program_that_fails_is_told_and_nothing_measured_is_an_error(self):
        done = self.run_over({"a_benchmark": "exit 3"}, "a")
        self.assertEqual(done.returncode, 1)
        self.assertIn("a_benchmark failed with 3", done.stderr)
        self.assertIn("no row's name holds a", done.stderr)


if __name__ == "__main__":
    unittest.main()
