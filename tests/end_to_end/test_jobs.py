"""Restores as jobs, with the real tool: what the double of the package's own tests cannot show."""

import subprocess
import sys
import unittest

from bench import PYTHON, ROOT, Bench, wait_until
from harness import COMPLETE, TIME_LIMIT, ToolTest, device, report, side_by_side

sys.path.append(str(ROOT / "python" / "tests"))
from small_disk import fill, mount, unmount  # noqa: E402

load_tests = side_by_side

ECID = "00008020001A2B3D"
BUNDLE = "Bündel.ipsw"

# Orders a restore, and is killed as its supervisor before it has written down the process.
KILLED = """
import os, shlex, signal, sys
from qnrescue.desk import Desk
from qnrescue.jobs import JobOrder
from qnrescue.journal import Journal
from qnrescue.places import bench_folder
from qnrescue.supervisor import supervise
folder = bench_folder()
with Journal(folder.path) as journal:
    tool = tuple(os.environ["QNRESCUE_TOOL"].split("\\n"))
    journal.submit(JobOrder(sys.argv[1], "/x.ipsw", tool=tool), "test", "job")
Journal.record_process = lambda *_: os.kill(os.getpid(), signal.SIGKILL)
supervise(folder, None)
"""


class Jobs(ToolTest):
    def new_bench(self, *reports, **how):
        scenario = {"Devices": [device(ECID, RestoreReports=[*reports, COMPLETE])]}
        # Where the disk is full, the simulator ends the tool: it cannot keep the devices' state.
        bench = Bench(how.get("folder") or self.new_folder(), scenario,
                      world=self.new_folder() / "world.plist")
        (bench.folder / BUNDLE).touch()
        bench.environment["MOBILEDEVICE_SIMULATOR_TRACE"] = str(bench.folder / "trace")
        self.addCleanup(bench.close)
        return bench

    def end_supervisor(self, bench):
        bench._supervisor.kill()
        bench._supervisor.wait(TIME_LIMIT)

    def reach_first_step(self, bench):
        """Waits until the only job has reported its first step; returns its folder."""
        jobs = bench.folder / "bench" / "jobs"
        (documents,) = wait_until(lambda: [
            path for path in jobs.glob("*/documents.plist") if b"ramdisk" in path.read_bytes()])
        return documents.parent

    def test_a_tool_that_nobody_has_written_down_is_found(self):
        bench = self.new_bench(report(5, 9), {**report(13, 40), "After": 4})
        self.end_supervisor(bench)
        self.assertEqual(-9, subprocess.run([PYTHON, "-c", KILLED, ECID], env=bench.environment,
                                            timeout=TIME_LIMIT).returncode)
        self.assertEqual(0, bench.run("follow", "job")[0])
        (job,) = bench.jobs()
        self.assertEqual(("succeeded", None, 100),
                         (job["state"], job["exit_status"], job["progress"]))
        trace = (bench.folder / "trace").read_text()
        self.assertEqual(1, trace.count("AMRestorableDeviceRestore "))

    def test_a_cancelled_device_can_be_restored_again(self):
        bench = self.new_bench(report(5, 9), {**report(13, 40), "After": 3})
        following = bench.start("restore", bench.folder / BUNDLE, ECID)
        job = self.reach_first_step(bench).name
        self.assertEqual(0, bench.run("cancel", job)[0])
        self.assertNotEqual(0, following.wait(TIME_LIMIT))
        self.assertEqual(["cancelled"], [job["state"] for job in bench.jobs()])
        wait_until(lambda: ECID in bench.run("list")[1])
        self.assertEqual(0, bench.run("restore", bench.folder / BUNDLE, ECID)[0])

    def test_names_beyond_ascii(self):
        folder = self.new_folder() / "Prüfstand 試験"
        folder.mkdir()
        bench = self.new_bench(report(5, 9), folder=folder)
        self.assertEqual(0, bench.run("restore", folder / BUNDLE, ECID)[0])
        (job,) = bench.jobs()
        log = folder / "bench" / "jobs" / job["id"] / "restore.log"
        self.assertIn(BUNDLE, log.read_text(encoding="utf-8").splitlines()[0])

    def test_a_disk_that_is_full_while_the_tool_runs(self):
        disk = self.new_small_disk()
        bench = self.new_bench(report(5, 9), {**report(13, 40), "After": 3, "Repeat": 1},
                               {**report(14, 41), "After": 0, "Repeat": 500}, folder=disk)
        bench.environment["MOBILEDEVICE_SIMULATOR_TRACE"] = ""
        following = bench.start("restore", bench.folder / BUNDLE, ECID)
        documents = self.reach_first_step(bench) / "documents.plist"
        filler = fill(disk)
        self.assertNotIn(b"Successful", documents.read_bytes())
        wait_until(lambda: b"Successful" in documents.read_bytes())
        filler.unlink()
        self.assertEqual(0, following.wait(TIME_LIMIT))
        (job,) = bench.jobs()
        self.assertEqual(("succeeded", 0), (job["state"], job["exit_status"]))
        self.assertEqual(503, documents.read_bytes().count(b"</plist>"))

    def new_small_disk(self):
        disk = self.new_folder() / "disk"
        if fault := mount(disk):
            self.skipTest(fault)
        self.addCleanup(unmount, disk)
        return disk


if __name__ == "__main__":
    unittest.main()
