"""The short programs on the Python package, with the real tool."""

import csv
import subprocess
import unittest

from bench import PYTHON, ROOT, Bench
from harness import BIN, COMPLETE, RUNNER, TIME_LIMIT, ToolTest, device, report, side_by_side

load_tests = side_by_side

EXAMPLES = ROOT / "examples" / "python"
A, B = "A" * 16, "B" * 16
COMMAND = [*RUNNER, str(BIN / "qnrescue.exe")]
STEPS = [report(5, 9), {**COMPLETE, "After": 0.5}]
FAILED = report(28, 18, "Failed")
FAILED["Status"]["Error"] = {"$type": "error", "Domain": "AM", "Code": 28,
                             "Description": "Timeout waiting for NAND"}
SCENARIO = {"Devices": [
    device(A, RestoreReports=STEPS, SerialNumber="F4GSM1QN0D8X", LocationID=0x14200000),
    device(B, RestoreReports=[report(5, 9), {**FAILED, "After": 0.5}])]}


class Examples(ToolTest):
    def run_example(self, name, *words, status=0):
        """Runs the program on a new bench; returns its lines."""
        bench = Bench(self.new_folder(), SCENARIO)
        self.addCleanup(bench.close)
        run = subprocess.run([PYTHON, EXAMPLES / name, *words], env=bench.environment,
                             stdin=subprocess.DEVNULL, capture_output=True, timeout=TIME_LIMIT)
        self.assertEqual((status, b""), (run.returncode, run.stderr), run.stdout)
        return run.stdout.decode().splitlines()

    def test_list(self):
        self.assertEqual([f"{A} F4GSM1QN0D8X 14200000", f"{B} - 00000000"],
                         self.run_example("list_devices.py", *COMMAND))

    def test_orders(self):
        lines = self.run_example("order_restores.py", "x.ipsw", A, B, "--", *COMMAND, status=1)
        self.assertIn(f"{A} succeeded 100 % Successful", lines)
        self.assertIn(f"{B} failed 18 % Timeout waiting for NAND", lines)

    def test_side_by_side(self):
        lines = self.run_example("restore_side_by_side.py", "x.ipsw", A, B, "--", *COMMAND,
                                 status=1)
        self.assertEqual([f"{A} 9 % Sending ramdisk to device", f"{A} 100 % Successful",
                          f"{A} succeeded "], [line for line in lines if line.startswith(A)])
        self.assertEqual(f"{B} failed Timeout waiting for NAND",
                         [line for line in lines if line.startswith(B)][-1])

    def test_table(self):
        table = self.new_folder() / "results.csv"
        for result in ("succeeded", "failed"):
            subprocess.run([PYTHON, EXAMPLES / "add_to_table.py", table], check=True, env={
                "QNRESCUE_ECID": A, "QNRESCUE_SLOT": "left, 1", "QNRESCUE_RESULT": result})
        rows = list(csv.reader(table.read_text(encoding="utf-8").splitlines()))
        self.assertEqual([["left, 1", A, "", result, "", ""] for result in ("succeeded", "failed")],
                         [row[1:] for row in rows])


if __name__ == "__main__":
    unittest.main()
