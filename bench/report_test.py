#!/usr/bin/env python3
"""Checks tools/bench-report's reading of benchmark JSON and its judging of the
targets, on made-up results (no benchmark is run)."""

import importlib.machinery
import importlib.util
import json
import os
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
_loader = importlib.machinery.SourceFileLoader(
    "bench_report", os.path.join(HERE, "..", "tools", "bench-report"))
_spec = importlib.util.spec_from_loader("bench_report", _loader)
report = importlib.util.module_from_spec(_spec)
_loader.exec_module(report)


def bench(name, time, unit="us", **extra):
    entry = {"name": name, "run_name": name, "run_type": "iteration", "real_time": time,
             "cpu_time": time, "time_unit": unit}
    entry.update(extra)
    return entry


def median(name, time, unit="us", **extra):
    return bench(name, time, unit, run_type="aggregate", aggregate_name="median", **extra)


class ReadingTest(unittest.TestCase):
    def load(self, benchmarks):
        with tempfile.TemporaryDirectory() as directory:
            with open(os.path.join(directory, "parse.json"), "w") as handle:
                json.dump({"context": {}, "benchmarks": benchmarks}, handle)
            results, _ = report.load_results(directory, ["parse", "export"])
        return results

    def test_medians_win_over_single_runs_and_other_aggregates(self):
        name = "parse_memory/config/1MB/treekeeper/real_time"
        results = self.load([
            bench(name, 9.0),
            median(name, 2.0, "ms"),
            bench(name, 8.0, run_type="aggregate", aggregate_name="mean"),
            bench(name, 7.0),  # a repetition after the median: still the median
        ])
        self.assertEqual(results[("parse_memory", "config/1MB", "treekeeper")]["time_ns"], 2e6)

    def test_names_split_into_operation_document_library(self):
        self.assertEqual(report.split_name("peak_memory/text/10MB/libxml2/iterations:1/real_time"),
                         ("peak_memory", "text/10MB", "libxml2"))
        self.assertEqual(report.split_name("loop_by_name/wide/n10k/treekeeper/manual_time"),
                         ("loop_by_name", "wide/n10k", "treekeeper"))
        self.assertIsNone(report.split_name("stray/name"))

    def test_errors_counters_and_a_missing_or_broken_file(self):
        results = self.load([
            bench("path_read/config/path3/treekeeper", 1.0, error_occurred=True,
                  error_message="GetElementValue returned -102"),
            bench("peak_memory/text/10MB/libxml2/iterations:1", 1.0, peak_delta_bytes=4096.0),
        ])
        self.assertEqual(results[("path_read", "config/path3", "treekeeper")]["error"],
                         "GetElementValue returned -102")
        self.assertEqual(results[("peak_memory", "text/10MB", "libxml2")]["counters"],
                         {"peak_delta_bytes": 4096.0})
        with tempfile.TemporaryDirectory() as directory:
            with open(os.path.join(directory, "parse.json"), "w") as handle:
                handle.write('{"benchmarks": [')  # a program that died while writing
            self.assertEqual(report.load_results(directory, ["parse"])[0], {})


def entry(time_ns=None, error=None, label="", **counters):
    return {"aggregate": "median", "time_ns": time_ns, "mbps": None, "label": label,
            "error": error, "counters": counters}


class JudgingTest(unittest.TestCase):
    def statuses(self, results):
        rows, misses = report.evaluate(results)
        return {(name.split(" ")[0], doc, status) for name, doc, _, status in rows}, misses

    def test_ratio_targets_at_and_past_their_limits(self):
        cases = [
            # op, peer, TreeKeeper, peer figure, expected status
            ("parse_memory", "libxml2", 110.0, 100.0, "met"),
            ("parse_memory", "libxml2", 111.0, 100.0, "MISSED"),
            ("export_memory", "libxml2", 100.0, 100.0, "met"),
            ("path_read", "pugixml", 200.0, 100.0, "met"),
            ("path_write", "pugixml", 201.0, 100.0, "MISSED"),
        ]
        for op, peer, tk, other, expected in cases:
            with self.subTest(op=op, tk=tk):
                results = {(op, "config/1MB", "treekeeper"): entry(tk),
                           (op, "config/1MB", peer): entry(other)}
                rows, misses = report.evaluate(results)
                judged = [r for r in rows if not r[3].startswith("info")]
                self.assertEqual([r[3] for r in judged], [expected])
                self.assertEqual(misses, expected == "MISSED")

    def test_memory_compares_peak_growth_not_time(self):
        results = {("peak_memory", "text/10MB", "treekeeper"): entry(1.0, peak_delta_bytes=116.0),
                   ("peak_memory", "text/10MB", "libxml2"): entry(1000.0, peak_delta_bytes=100.0)}
        rows, misses = report.evaluate(results)
        self.assertEqual((rows[0][2], rows[0][3], misses), ("1.16×", "MISSED", 1))

    def test_xslt_is_compared_with_libxslt_plus_the_import(self):
        doc = "config/1MB"
        results = {("xslt_identity", doc, "treekeeper"): entry(120.0),
                   ("xslt_identity", doc, "libxslt"): entry(80.0),
                   ("xslt_identity", doc, "libxml2_import_result"): entry(30.0)}
        rows, _ = report.evaluate(results)
        self.assertEqual((rows[0][2], rows[0][3]), ("1.09×", "met"))
        del results[("xslt_identity", doc, "libxml2_import_result")]
        self.assertEqual(report.evaluate(results)[0][0][3], "not judged")

    def test_sax_share_is_information_only(self):
        results = {("parse_memory", "text/1MB", "treekeeper"): entry(100.0),
                   ("parse_memory", "text/1MB", "libxml2"): entry(100.0),
                   ("parse_memory", "text/1MB", "libxml2_sax"): entry(50.0)}
        rows, misses = report.evaluate(results)
        self.assertIn(("tokenizer", "text/1MB", "info: below aim"), self.statuses(results)[0])
        self.assertEqual(misses, 0)

    def test_loops_compare_their_own_two_sizes(self):
        def loops(small, large, label=""):
            return {("loop_by_name", "wide/n10k", "treekeeper"): entry(small),
                    ("loop_by_name", "wide/n100k", "treekeeper"): entry(large, label=label)}
        self.assertEqual(report.evaluate(loops(10.0, 120.0))[0][0][3], "met")
        rows, misses = report.evaluate(loops(10.0, 1000.0, "cut short after 10 s"))
        self.assertEqual((rows[0][3], misses), ("MISSED", 1))
        self.assertIn("lower bound", rows[0][2])
        only_small = {("loop_by_name", "wide/n10k", "treekeeper"): entry(10.0)}
        self.assertEqual(report.evaluate(only_small)[0][0][3], "not judged")

    def test_a_failing_treekeeper_operation_is_a_miss(self):
        results = {("path_read", "config/path3", "treekeeper"): entry(error="returned -1"),
                   ("path_read", "config/path3", "pugixml"): entry(5.0)}
        rows, misses = report.evaluate(results)
        self.assertEqual((rows[0][3], misses), ("MISSED", 1))
        self.assertIn("error", report.table(results))


class RenderingTest(unittest.TestCase):
    def test_table_cells_and_the_whole_report(self):
        results = {
            ("parse_memory", "config/1MB", "treekeeper"): dict(entry(2e6), mbps=500.0),
            ("parse_memory", "config/1MB", "libxml2"): entry(1e6),
            ("loop_by_name", "wide/n100k", "treekeeper"): entry(3e9, label="cut short after 10 s"),
            ("path_read", "config/path3", "treekeeper"): entry(error="returned -102"),
            ("path_read", "config/path3", "pugixml"): entry(150.0),
        }
        rows = report.table(results).splitlines()
        parse = next(r for r in rows if r.startswith("| parse_memory"))
        self.assertIn("2 ms, 500 MB/s", parse)
        self.assertIn("**2.00×** (1 ms)", parse)
        self.assertIn("cut short", next(r for r in rows if r.startswith("| loop_by_name")))
        path = next(r for r in rows if r.startswith("| path_read"))
        self.assertIn("error: returned -102", path)
        self.assertIn("(150 ns)", path)
        # Only peers that have a figure get a column; every row has them all.
        self.assertNotIn("tinyxml2", rows[0])
        self.assertEqual(len({r.count("|") for r in rows}), 1)

        with tempfile.TemporaryDirectory() as directory:
            text, misses = report.report(results, "short", directory, {})
        self.assertEqual(misses, 2)
        for heading in ("## Machine", "## Targets", "## All figures", "2 target checks missed"):
            self.assertIn(heading, text)


if __name__ == "__main__":
    unittest.main()
