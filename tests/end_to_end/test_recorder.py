"""A session is recorded, the recording is played, and what comes out is the same.

QNRESCUE_RECORDER_SCENARIOS says how many made-up scenarios are tried (default: 6)."""

import os
import pathlib
import plistlib
import random
import re
import time
import unittest

from harness import (BIN, COMPLETE, ECID, TIME_LIMIT, Process, ToolTest, device, report,
                     side_by_side)

load_tests = side_by_side

SCENARIOS = pathlib.Path(__file__).resolve().parents[2] / "simulator" / "scenarios"
RECORDER = BIN.parent / "recorder_setup" / "qnrescue.exe"
BUILT_IN = None

# Seconds by which a time of the replay may differ; the machine may be busy.
TOLERANCE = 3.0
TIMES = {"After", "ConnectAfter", "DisconnectAfter"}

# Each restore has a scratch folder of its own.
SCRATCH = re.compile(r"[^\\/]*(?=[\\/]PRB)")

# What is done with each scenario of the project; `{bundle}` is that of a usable bundle.
LIST = ("--list-devices", "--detect-timeout", "1")
RESTORE = ("--restore", "{bundle}", "--restore-timeout", "20", "--ecid")
PROJECT_RUNS = {
    BUILT_IN: [LIST, (*RESTORE, "001E2D4C0A91C026"),
               ("--device-info", "--detect-timeout", "1", "--ecid", "0000000000000001")],
    "disconnecting.plist": [LIST, ("--device-info", "--ecid", "001E2D4C0A91C026")],
    "eight-devices.plist": [("--list-devices", "--detect-timeout", "3"),
                            ("--device-info", "--ecid", "00252D4C0A91C026")],
    "late-arrival.plist": [LIST, ("--list-devices", "--detect-timeout", "3"),
                           ("--device-info", "--ecid", "001E2D4C0A91C026")],
    "library-fails.plist": [LIST, (*RESTORE, "001E2D4C0A91C026"),
                            ("--list-devices", "--detect-timeout", "1", "--amr-logfile", "x.log")],
    "recovery-refused.plist": [
        LIST, *((command, "--ecid", ecid)
                for ecid in ("001E2D4C0A91C026", "001F2D4C0A91C026", "00202D4C0A91C026")
                for command in ("--exit-recovery", "--no-exit-recovery"))],
    "restore-fails.plist": [LIST, (*RESTORE, "001E2D4C0A91C026")],
    "restore-hangs.plist": [("--restore", "{bundle}", "--restore-timeout", "3", "--ecid",
                             "001E2D4C0A91C026")],
    "station.plist": [LIST, (*RESTORE, "00072D4C0A91C026"),
                      ("--restore", "{bundle}", "--restore-timeout", "5", "--ecid",
                       "00092D4C0A91C026")],
}


def named_last(scenario, arguments):
    """The scenario, in which the device that the command names arrives after all others: else the run
    may end before or after these."""
    if scenario != "recovery-refused.plist" or "--ecid" not in arguments:
        return scenario and SCENARIOS / scenario
    result = plistlib.loads((SCENARIOS / scenario).read_bytes())
    for each in result["Devices"]:
        if each["ECID"] == arguments[-1]:
            each["ConnectAfter"] = 0.5
    return result


def known_names(lines):
    """The lines, in which devices whose ECID the tool never asked for have none: a recording can
    know neither their ECIDs, nor which of them come back."""
    asked = {line.split("device=")[1][:16] for line in lines
             if line.startswith("AMRestorableDeviceGetECID")}

    def name(match):
        return match[0] if match[1] in asked else "device=unknown"

    return [re.sub(r"device=([0-9A-F]{16})", name, line) for line in lines]


def by_device(calls, device_of):
    """The calls of each device in their order. That of different devices depends on threads."""
    groups = {}
    for call in calls:
        groups.setdefault(device_of(call), []).append(call)
    return groups


def device_in_line(line):
    return (re.findall(r"device=(\S+)", line) or [None])[0]


def without_scratch(value):
    """The value, with the random name of the scratch folder removed from every text."""
    if isinstance(value, dict):
        return {key: without_scratch(each) for key, each in value.items()}
    if isinstance(value, list):
        return [without_scratch(each) for each in value]
    return SCRATCH.sub("scratch", value) if isinstance(value, str) else value


class RecorderTest(ToolTest):
    def start_recorder(self, arguments, scenario, **environment):
        """Starts a run that is recorded, in a folder of its own, in the file `recording`."""
        folder = self.new_folder()
        environment = {"MOBILEDEVICE_SIMULATOR_TRACE": str(folder / "trace"),
                       "MOBILEDEVICE_RECORDER_FILE": str(folder / "recording"), **environment}
        if isinstance(scenario, dict):
            (folder / "scenario.plist").write_bytes(plistlib.dumps(scenario))
            scenario = folder / "scenario.plist"
        if scenario is not None:
            environment["MOBILEDEVICE_SIMULATOR_SCENARIO"] = str(scenario)
        process = Process([RECORDER, *arguments], folder, environment)
        self.addCleanup(process.kill)
        return process

    def record(self, arguments, scenario, **environment):
        """Returns the run, and what was recorded."""
        process = self.start_recorder(arguments, scenario, **environment)
        run = self.finish(process)
        return run, plistlib.loads(process.content("recording"))

    def assert_same_recording(self, first, second, place="root"):
        if isinstance(first, dict):
            self.assertEqual(set(first), set(second), place)
            for key in first:
                if key in TIMES:
                    self.assertAlmostEqual(first[key], second[key], delta=TOLERANCE, msg=place)
                else:
                    self.assert_same_recording(first[key], second[key], f"{place}.{key}")
        elif isinstance(first, list):
            if place == "root.Recording.Calls":
                self.assert_same_recording(
                    by_device(first, lambda call: call.get("Device")),
                    by_device(second, lambda call: call.get("Device")), f"{place} by device")
                return
            self.assertEqual(len(first), len(second), place)
            for index, (ours, theirs) in enumerate(zip(first, second)):
                self.assert_same_recording(ours, theirs, f"{place}[{index}]")
        else:
            self.assertEqual(first, second, place)

    def assert_round_trip(self, arguments, scenario, directly=False):
        """Records a run and the replay of the recording. With `directly`, compares both with the
        run that nobody records, too."""
        keep = {"MOBILEDEVICE_RECORDER_IDENTITIES": "keep"}
        first, recording = self.record(arguments, scenario, **keep)
        again, second = self.record(arguments, recording, **keep)
        self.assertNotIn("Unplayable", recording)
        runs = [first]
        if directly:
            runs.append(self.run_tool(*arguments, scenario=scenario))
        for run in runs:
            self.assertEqual(run.stdout, again.stdout)
            self.assertEqual(run.status, again.status)
            self.assertEqual(by_device(known_names(run.calls), device_in_line),
                             by_device(known_names(again.calls), device_in_line))
            self.assertEqual(without_scratch(run.options), without_scratch(again.options))
        self.assert_same_recording(without_scratch(recording), without_scratch(second))
        return recording


class RoundTrip(RecorderTest):
    def test_every_scenario_of_the_project_is_tried(self):
        self.assertEqual({path.name for path in SCENARIOS.glob("*.plist")},
                         set(PROJECT_RUNS) - {BUILT_IN})


def add_project_runs():
    """Adds a test to RoundTrip for each run of a scenario of the project."""
    def make(scenario, arguments):
        def test(self):
            bundle = str(self.make_bundle())
            self.assert_round_trip([each.format(bundle=bundle) for each in arguments],
                                   named_last(scenario, arguments))
        return test

    for scenario, runs in PROJECT_RUNS.items():
        for number, arguments in enumerate(runs):
            name = (scenario or "built-in").split(".")[0].replace("-", "_")
            setattr(RoundTrip, f"test_{name}_{number}", make(scenario, arguments))


add_project_runs()


class MadeUpScenarios:
    """Scenarios and commands at random. Events are far from the end of the run."""

    def __init__(self, seed):
        self.draw = random.Random(seed)

    def text(self):
        return "".join(self.draw.choices("abzAZ059 -_<&>\"'é漢😀", k=self.draw.randint(0, 12)))

    def integer(self):
        return self.draw.choice([0, 1, -1, 255, 70000, 2**31 - 1, -(2**31)])

    def value(self, depth=0):
        kinds = 10 if depth < 3 else 6
        kind = self.draw.randrange(kinds)
        if kind < 6:
            return [self.text(), self.integer(), self.draw.random(), self.draw.random() < 0.5,
                    self.text().encode(), {"$type": "null"}][kind]
        several = [self.value(depth + 1) for _ in range(self.draw.randint(0, 3))]
        if kind == 6:
            return several
        if kind == 7:
            return {f"key {index}": each for index, each in enumerate(several)}
        if kind == 8:
            return {"$type": "dictionary",
                    "Entries": [{"Key": index, "Value": each}
                                for index, each in enumerate(several)]}
        return {"$type": "error", "Domain": self.text() or "d", "Code": self.integer(),
                **({"Description": self.text()} if self.draw.random() < 0.5 else {}),
                **({"FailureReason": self.text()} if self.draw.random() < 0.5 else {}),
                **({"UserInfo": {"NSUnderlyingError": self.value(depth + 1)}}
                   if self.draw.random() < 0.5 else {})}

    def reports(self):
        result = []
        for _ in range(self.draw.randint(0, 6)):
            status = self.draw.choice([
                report(self.draw.randint(0, 30), self.draw.randint(-1, 101))["Status"],
                {"Status": "Restoring", "More": self.value()},
                {"$type": "null"},
                {"$type": "dictionary", "Entries": [{"Key": 1, "Value": self.value()}]}])
            result.append({"Status": status, "After": self.draw.choice([0, 0.05]),
                           "Repeat": self.draw.choice([1, 1, 1, 3])})
        return result + [COMPLETE]

    def device(self, ecid):
        made = device(ecid, State=self.draw.choice([0, 1, 2, 2, 2, 3, 4, 9]),
                      ConnectAfter=self.draw.choice([0, 0.1, 0.2, 0.3]),
                      RestoreReports=self.reports())
        for key in ("ProductID", "BoardID", "ChipID", "FusingInfo", "LocationID"):
            if self.draw.random() < 0.5:
                made[key] = self.integer()
        for key in ("SerialNumber", "ProductString"):
            if self.draw.random() < 0.7:
                made[key] = self.text()
        for key in ("SetAutoBootError", "RebootError"):
            if self.draw.random() < 0.2:
                made[key] = 10
        if self.draw.random() < 0.2:
            made["DisconnectAfter"] = 0.4
        return made

    def run(self):
        """Returns a command and a scenario."""
        made, named = self.scenario()
        arguments = self.command(named)
        if named in arguments:  # it arrives last, and so ends the run
            made["Notifications"] = [each for each in made["Notifications"]
                                     if each.get("ECID") != named]
            for each in made["Devices"]:
                if each["ECID"] == named:
                    each["ConnectAfter"] = 0.7
        return arguments, made

    def scenario(self):
        ecids = [f"{index}00C1A2B3C4D5E6F" for index in range(self.draw.randint(1, 4))]
        made = {"Devices": [self.device(ecid) for ecid in ecids], "Notifications": []}
        for _ in range(self.draw.randint(0, 3)):
            who = {"ECID": self.draw.choice(ecids)} if self.draw.random() < 0.7 else {}
            made["Notifications"].append({"After": self.draw.choice([0.15, 0.25, 0.45]),
                                          "Type": self.draw.choice([0, 1, 7]), **who})
        if self.draw.random() < 0.15:
            made["Failures"] = self.draw.choice([
                {"RegisterForNotifications": {"Domain": "d", "Code": 5, "Description": "x"}},
                {"CreateDefaultOptions": True}])
        return made, self.draw.choice(ecids)

    def command(self, ecid):
        named = ("--ecid", ecid, "--detect-timeout", "2")
        return self.draw.choice([
            ("--list-devices", "--detect-timeout", "1"), ("--device-info", *named),
            ("--restore", "x.ipsw", "--restore-timeout", "20", *named),
            ("--exit-recovery", *named), ("--no-exit-recovery", *named)])


class MadeUp(RecorderTest):
    def test_round_trip(self):
        seen = 0
        for seed in range(int(os.environ.get("QNRESCUE_RECORDER_SCENARIOS", "6"))):
            arguments, scenario = MadeUpScenarios(seed).run()
            with self.subTest(seed=seed, arguments=arguments):
                seen += len(self.assert_round_trip(arguments, scenario)["Devices"])
        self.assertGreater(seen, 0)


class TheRecorder(RecorderTest):
    IDENTIFIED = device("000C1A2B3C4D5E6F", SerialNumber="F4GSM1QN0D8X", ChipID=0x8110,
                        ProductString="iBoot 4711 ECID:000C1A2B3C4D5E6F")

    def test_changes_nothing(self):
        scenario = {"Devices": [{**self.IDENTIFIED, "ConnectAfter": 0.4},
                                device("5", State="BootedOS")]}
        for arguments in (LIST, ("--device-info", "--ecid", "000C1A2B3C4D5E6F")):
            self.assert_round_trip(arguments, scenario, directly=True)

    def test_is_not_needed(self):
        process = self.start_recorder(LIST, {"Devices": [device()]}, MOBILEDEVICE_RECORDER_FILE="")
        self.assertEqual([[ECID]], self.finish(process, status=0).values("DeviceList"))
        self.assertIsNone(process.content("recording"))

    def test_identities(self):
        arguments = ("--device-info", "--ecid", "000C1A2B3C4D5E6F")
        scenario = {"Devices": [self.IDENTIFIED]}
        texts = []
        for _ in range(2):
            process = self.start_recorder(arguments, scenario)
            self.finish(process, status=0)
            texts.append(process.content("recording"))
            for identity in (b"C1A2B3C4D5E6F", b"F4GSM1QN0D8X", b"4711"):
                self.assertNotIn(identity, texts[-1])
        (one,), (other,) = (plistlib.loads(text)["Devices"] for text in texts)
        for key in ("ECID", "SerialNumber", "ProductString"):
            self.assertEqual(one[key], other[key])
        self.assertRegex(one["ECID"], "^000[1-9A-F][0-9A-F]{12}$")
        self.assertRegex(one["SerialNumber"], "^[A-Z][0-9][A-Z]{3}[0-9][A-Z]{2}[0-9][A-Z][0-9][A-Z]$")
        self.assertEqual(0x8110, one["ChipID"])

    def test_paths(self):
        bundle = self.make_bundle("secret name.ipsw")
        _, recording = self.record(("--restore", str(bundle), "--ecid", ECID),
                                   {"Devices": [device(RestoreReports=[COMPLETE])]})
        self.assertNotIn("secret", str(recording))
        (call,) = [each for each in recording["Recording"]["Calls"]
                   if each["Function"] == "AMRestorableDeviceRestore"]
        self.assertTrue(call["Argument"]["RestoreBundlePath"].endswith(".ipsw"))
        self.assertEqual("Update", call["Argument"]["AuthInstallRestoreBehavior"])

    def test_texts_that_xml_cannot_hold(self):
        odd = {"$type": "text", "Parts": ["a", 27, "b", 0xD800]}
        error = {"$type": "error", "Domain": "d", "Code": 4, "UserInfo": {"Odd": odd}}
        step = report(5, 9)
        step["Status"]["Error"] = error
        recording = self.assert_round_trip(("--restore", "x.ipsw", "--ecid", ECID),
                                           {"Devices": [device(RestoreReports=[step, COMPLETE])]})
        self.assertEqual(error, recording["Devices"][0]["RestoreReports"][0]["Status"]["Error"])

    def test_killed_it_leaves_the_last_file(self):
        process = self.start_recorder(
            ("--restore", "x.ipsw", "--ecid", ECID, "--restore-timeout", "60"),
            {"Devices": [device(RestoreReports=[report(5, 9), report(28, 18)])]},
            MOBILEDEVICE_RECORDER_IDENTITIES="keep")
        process.wait_for_text("stdout", "RestoreStatus")
        end = time.monotonic() + TIME_LIMIT
        while True:  # the file is whole whenever it is read
            content = process.content("recording")
            (only,) = plistlib.loads(content)["Devices"] or [{}]
            if len(only.get("RestoreReports", [])) == 2:
                break
            self.assertLess(time.monotonic(), end)
            time.sleep(0.02)
        process.kill()
        self.assertEqual(content, process.content("recording"))
        run, _ = self.record(("--restore", "x.ipsw", "--ecid", ECID, "--restore-timeout", "1"),
                             plistlib.loads(content))
        self.assertEqual(2, len(run.values("RestoreStatus")))

    def test_exports_what_the_forwarders_export(self):
        import pe
        names = [pe.Image(path.read_bytes()).exported_functions
                 for path in (BIN / "libdevforwardmin.dll",
                              RECORDER.with_name("libdevforwardmin.dll"))]
        self.assertEqual(*names)


if __name__ == "__main__":
    unittest.main()
