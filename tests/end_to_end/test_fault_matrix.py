"""A sample of the fault matrix, which scripts/fault-matrix runs whole; its table; and the set-up
that makes calls fail."""

import pathlib
import unittest

import fault_matrix
from fault_table import FAILURES, INFALLIBLE
from harness import ToolTest

SAMPLE_SIZE = 110
FORWARDERS = (pathlib.Path(__file__).parents[2]
              / "platform" / "libdevforwardmin" / "libdevforwardmin.def")


class Table(unittest.TestCase):
    def test_functions_are_those_of_the_platform(self):
        lines = [line for line in FORWARDERS.read_text().splitlines() if " = " in line]
        functions = {line.split()[0] for line in lines if not line.endswith(" DATA")}
        self.assertEqual(set(), {*FAILURES, *INFALLIBLE} - functions)
        self.assertEqual(set(), set(FAILURES) & INFALLIBLE)

    def test_every_failure_occurs(self):
        called = {function for command in fault_matrix.COMMANDS for function, _ in command.calls}
        self.assertEqual(set(FAILURES), called)


class Sample(unittest.TestCase):
    maxDiff = None

    def test_runs_are_as_expected(self):
        cells = fault_matrix.sample(fault_matrix.all_cells(), SAMPLE_SIZE)
        self.assertGreater(len(cells), 2 * len(FAILURES))
        self.assertEqual([], list(fault_matrix.run_cells(cells, jobs=6).values()))


class SetUp(ToolTest):
    FAULTY = ("../faults/qnrescue.exe",)
    LIST = ("--list-devices", "--detect-timeout", "0")

    def faulty(self, *faults, **how):
        return self.start(*self.LIST, scenario={"Faults": list(faults)}, **how)

    def test_the_call_of_the_number_fails(self):
        printing = {"Function": "CFPropertyListCreateData"}
        for call, count in ((1, 0), (2, 1)):
            run = self.finish(self.faulty({**printing, "Call": call}, program=self.FAULTY))
            self.assertEqual((0, count), (run.status, len(run.documents)))

    def test_without_a_number_every_call_fails(self):
        run = self.finish(self.faulty({"Function": "CFErrorCopyDescription"}, {
            "Function": "AMRestorableDeviceRegisterForNotifications", "Result": 3},
            program=self.FAULTY))
        self.assertEqual(3, run.status)
        self.assertEqual([{"Domain": "simulator", "Code": 3}] * 2, run.values("InternalError"))

    def test_calls_are_counted(self):
        process = self.faulty(program=self.FAULTY)
        self.finish(process)
        counts = process.content("trace.calls").decode().splitlines()
        self.assertIn("AMRestorableDeviceRegisterForNotifications 1", counts)
        self.assertIn("CFPropertyListCreateData 1", counts)

    def test_faults_need_the_set_up(self):
        run = self.finish(self.faulty({"Function": "CFPropertyListCreateData"}))
        self.assertEqual([[]], run.values("DeviceList"))

    def test_a_function_that_there_is_not(self):
        run = self.faulty({"Function": "CFRelease"}, {"Function": "CFFrog"},
                          program=self.FAULTY).wait()
        self.assertEqual((70, b""), (run.status, run.stdout))
        (line,) = run.stderr_lines
        self.assertRegex(line, r"scenario\.plist: Faults\[1\]\.Function: ")


if __name__ == "__main__":
    unittest.main()
