"""The measurement of what polling costs runs."""

import os
import subprocess
import unittest

from bench import PYTHON, ROOT
from harness import TIME_LIMIT, ToolTest


class Measurement(ToolTest):
    def test_it_runs(self):
        run = subprocess.run(
            [PYTHON, ROOT / "benchmarks" / "bench_polling.py", "--devices", "2", "--seconds", "8"],
            env={**os.environ, "PYTHONDONTWRITEBYTECODE": "1"}, capture_output=True, text=True,
            timeout=2 * TIME_LIMIT)
        self.assertEqual((0, ""), (run.returncode, run.stderr), run.stdout)
        self.assertRegex(run.stdout, r"\Apolls in a minute: [1-9]\d*\n"
                                     r"processor time: \d+\.\d% of one processor\n"
                                     r"from plugging in to the start: median \d+\.\d s,"
                                     r" longest \d+\.\d s\n\Z")


if __name__ == "__main__":
    unittest.main()
