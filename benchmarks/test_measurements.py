"""The measurements with programs that only pretend: sound ones, and ones with a fault each."""

import io
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time
import unittest
from contextlib import redirect_stderr

import progress
import report
from report_times import ReportTimes, delays
from rows import Row, added, compare

HERE = pathlib.Path(__file__).resolve().parent
DOCUMENT = """<plist version="1.0"><dict>
<key>Type</key><string>DeviceList</string>
</dict>
</plist>
"""
LIST = f"print({DOCUMENT!r})"
REPORTS = f"print({DOCUMENT!r} * 101)"
PROGRAMS = {
    "qnrescue.exe": f"""
import sys
if "--help" in sys.argv:
    print("  --list-devices", file=sys.stderr)
elif "--list-devices" in sys.argv:
    {LIST}
else:
    {REPORTS}
""",
    "baseline_start.exe": "",
    "baseline_listing.exe": LIST,
    "baseline_reports.exe": REPORTS,
    "empty_program.exe": "",
    "bare_listing.exe": LIST,
    "writer_alone.exe": "",
    "read_file.exe": "print('0.5 1048576')",
    "libqnrescuelib.dll": "# as large as this",
}
FAULTS = (
    ("qnrescue.exe", "raise SystemExit(3)", "status 3"),
    ("qnrescue.exe", "", "writes nothing to stderr"),
    ("qnrescue.exe", "import sys; print('Usage', file=sys.stderr)", "does not name"),
    ("baseline_start.exe", "raise SystemExit(3)", "status 3"),
    ("empty_program.exe", "raise SystemExit(3)", "status 3"),
    ("baseline_listing.exe", "", "writes nothing"),
    ("bare_listing.exe", LIST.replace("DeviceList", "Other"), "writes no list of devices"),
    ("baseline_reports.exe", REPORTS.replace("Type", "Tipe"), "write different reports"),
    ("writer_alone.exe", "raise SystemExit(3)", "status 3"),
    ("read_file.exe", "print('0.5 1048575')", "1048575 bytes of 1048576"),
    ("read_file.exe", "print('0.0 1048576')", "the samples are [0.0]"),
    ("libqnrescuelib.dll", "", "is empty"),
)


def write_programs(folder, **others):
    for name, text in {**PROGRAMS, **others}.items():
        (folder / name).write_text(text)


def measure(folder, *arguments):
    return subprocess.run(
        [sys.executable, "-B", HERE / "run.py", "--smoke", f"--output={folder}", *arguments],
        check=False,
        capture_output=True,
        text=True,
    )


def measure_windows(folder):
    return measure(folder, f"--windows={folder}", f"--runner={sys.executable}")


class WholeRuns(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)

    def test_sound_programs_are_measured(self):
        write_programs(self.folder)
        ended = measure_windows(self.folder)
        self.assertEqual(ended.returncode, 0, ended.stderr)
        self.assertIn("| --help, start to exit", ended.stdout)
        self.assertIn("benchmark: row 1 of 8: --help, start to exit\n", ended.stderr)
        self.assertIn("benchmark: row 8 of 8: size of libqnrescuelib.dll\n", ended.stderr)

    def test_every_fault_is_seen(self):
        for program, text, message in FAULTS:
            with self.subTest(program=program, text=text):
                write_programs(self.folder, **{program: text})
                ended = measure_windows(self.folder)
                self.assertEqual(ended.returncode, 1, ended.stderr)
                self.assertIn(message, ended.stderr)

    def test_reports_that_are_missing_are_seen(self):
        fewer = {
            name: PROGRAMS[name].replace("* 101", "* 100")
            for name in ("qnrescue.exe", "baseline_reports.exe")
        }
        write_programs(self.folder, **fewer)
        ended = measure_windows(self.folder)
        self.assertEqual(ended.returncode, 1, ended.stderr)
        self.assertIn("does not write every report", ended.stderr)


def native_program(folder, runs, status=0):
    """A program that says it has measured this."""
    path = folder / "native"
    path.write_text(
        f"#!{sys.executable}\n"
        "import sys\n"
        "output = next(word for word in sys.argv if word.startswith('--benchmark_out='))\n"
        f"open(output.partition('=')[2], 'w').write({json.dumps({'benchmarks': runs})!r})\n"
        f"raise SystemExit({status})\n"
    )
    os.chmod(path, 0o700)
    return path


def native_runs():
    names = ["machine_speed", "list/16", "list/64"]
    names += [f"relay/{who}" for who in ("tool", "baseline", "least")]
    names += [f"{verb}/{who}" for verb in ("write", "read") for who in ("simulator", "libplist")]
    names += [f"arrival/{who}" for who in ("tool", "baseline", "bare")]
    names += [f"{what}/{size}" for what in ("notification", "look_up") for size in (10, 1000, 10**5)]
    names += [f"{what}/{how}" for what in ("call", "report") for how in ("plain", "recorded")]
    names += ["report/recorded_late"]
    counts = {"real_time": 2.0, "time_unit": "us", "median": 1e-6, "p99": 2e-6}
    return [{"name": name, "run_name": name, **counts} for name in names]


class InOneProcess(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = pathlib.Path(temporary.name)

    def measure(self, runs, status=0):
        return measure(self.folder, f"--native={native_program(self.folder, runs, status)}")

    def test_a_sound_program_is_measured(self):
        ended = self.measure(native_runs())
        self.assertEqual(ended.returncode, 0, ended.stderr)
        self.assertIn("benchmark: rows 1 to 14 of 14: ", ended.stderr)
        self.assertTrue((self.folder / "listing.svg").exists())

    def test_every_fault_is_seen(self):
        sound = native_runs()
        broken = [{**sound[0], "error_occurred": True, "error_message": "no speed"}, *sound[1:]]
        without_time = [{**run, "real_time": 0.0} for run in sound]
        without_relay = [run for run in sound if run["name"] != "relay/baseline"]
        without_size = [run for run in sound if run["name"] != "look_up/1000"]
        for runs, status, message in (
            (sound, 3, "ends with 3"),
            (broken, 0, "no speed"),
            (without_time, 0, "the samples are"),
            (without_relay, 0, "the samples are []"),
            (without_size, 0, "13 rows instead of 14"),
        ):
            with self.subTest(message=message):
                ended = self.measure(runs, status)
                self.assertEqual(ended.returncode, 1, ended.stderr)
                self.assertIn(message, ended.stderr)


class Table(unittest.TestCase):
    def test_a_limit_is_kept_or_not(self):
        for figure, met in ((1.1, True), (1.2, False)):
            row = compare("figure", "baseline", "s", [1.0], [figure], at_most=1.15)
            self.assertEqual(row.met, met)

    def test_what_may_be_added_is_kept_or_not(self):
        for figure, met in ((5.9e-6, True), (6.1e-6, False)):
            row = added("figure", "baseline", [1e-6], [figure], at_most=5e-6)
            self.assertEqual((row.met, row.limit), (met, "at most 5 µs more"))

    def test_the_page_takes_the_table_of_a_former_run(self):
        row = compare("relay", "calls", "s", [1e-6], [2e-6], at_most=1.15, beside=("less", [5e-7]))
        with tempfile.TemporaryDirectory() as folder:
            page, results = pathlib.Path(folder) / "page.md", pathlib.Path(folder) / "results.json"
            page.write_text(f"before\n{report.PAGE_BEGIN}old\n{report.PAGE_END}after\n")
            report.write_json(results, "Two processors.", [row], [])
            subprocess.run([sys.executable, "-B", HERE / "page.py", results, page], check=True)
            text = page.read_text(encoding="utf-8")
        self.assertTrue(text.startswith(f"before\n{report.PAGE_BEGIN}Two processors.\n\n| what"))
        self.assertTrue(text.endswith(f"|\n{report.PAGE_END}after\n"))
        cells = [cell.strip() for cell in text.splitlines()[-3].strip("|").split("|")]
        self.assertEqual(cells[2:5], ["1 µs", "2 µs", "2.00 (2.00 to 2.00)"])
        self.assertEqual(cells[5:], ["at most 1.15 times", "no", "4.00 × less"])

    def test_a_page_without_marks_is_refused(self):
        with tempfile.TemporaryDirectory() as folder:
            page = pathlib.Path(folder) / "page.md"
            page.write_text("before\n")
            with self.assertRaises(ValueError):
                report.update_page(page, "", [])

    def test_rows_outlive_the_file(self):
        row = compare("what", "baseline", "s", [1.0, 2.0], [1.0, 3.0], at_least=1)
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "results.json"
            report.write_json(path, "machine", [row], [])
            machine, rows = report.read_json(path)
        self.assertEqual(machine, "machine")
        self.assertEqual(report.table(rows), report.table([row]))
        self.assertIsInstance(rows[0], Row)


def document(progress):
    return f"<key>Progress</key>\n\t<integer>{progress}</integer>\n".encode()


class Delays(unittest.TestCase):
    def test_a_report_is_shown_when_it_or_a_later_one_is(self):
        reports = {"a": [(5, 10.0), (9, 11.0)], "b": [(5, 10.0)]}
        shown = {"a": [(5, 10.5), (12, 11.25), (13, 12.0)], "b": [(4, 10.5), (5, 13.0)]}
        self.assertEqual(delays(reports, shown), [0.25, 0.5, 3.0])

    def test_a_report_that_is_not_shown_is_a_fault(self):
        for shown in ([], [(4, 10.5)], [(5, 9.5)]):
            with self.subTest(shown), self.assertRaisesRegex(AssertionError, "a: 5 % was not"):
                delays({"a": [(5, 10.0)]}, {"a": shown})

    def test_a_job_without_reports_is_a_fault(self):
        with self.assertRaisesRegex(AssertionError, "b has no reports"):
            delays({"a": [(5, 10.0)], "b": []}, {"a": [(5, 10.5)], "b": []})

    def test_the_files_say_when_reports_were_written(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "documents.plist"
            times = ReportTimes({"a": path, "missing": pathlib.Path(folder) / "nothing"})
            try:
                # Space is reserved behind the reports.
                for number, text in enumerate((document(3), document(3) + document(7)), 1):
                    put(path, text + bytes(1000), number)
                    wait_until(lambda: len(times.found["a"]) == number)
                # Without it, the end of the file was cut then.
                put(path, document(3) + document(7) + document(100), 9)
                wait_until(lambda: times.places["a"][1] == 9 * 10**9)
            finally:
                times.close()
        self.assertEqual(times.found, {"a": [(3, 1.0), (7, 2.0)], "missing": []})


def put(path, content, written):
    """Writes a file that was written at this time, in one step."""
    new = path.with_suffix(".new")
    new.write_bytes(content)
    os.utime(new, ns=(0, written * 10**9))
    new.replace(path)


def wait_until(holds):
    end = time.monotonic() + 60
    while not holds():
        if time.monotonic() > end:
            raise AssertionError("it does not happen")
        time.sleep(0.02)


class Steps(unittest.TestCase):
    def test_steps_are_reported_after_a_long_silence(self):
        with redirect_stderr(io.StringIO()) as errors:
            counter = progress.Progress(3)
            counter.begin("two rows", rows=2)
            counter.step(1, 9)
            counter._spoken -= progress.SECONDS_BETWEEN_STEPS
            counter.step(2, 9)
            counter.begin("a row")
        self.assertEqual(
            errors.getvalue().splitlines(),
            [
                "benchmark: rows 1 to 2 of 3: two rows",
                "benchmark:     2 of 9",
                "benchmark: row 3 of 3: a row",
            ],
        )


if __name__ == "__main__":
    unittest.main()
