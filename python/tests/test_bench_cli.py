"""The commands of qnrescue-bench, but for watch: against a bench on a table top."""

import json
import os
import pathlib
import pty
import secrets
import select
import shlex
import signal
import subprocess
import sys
import time

import pytest
from tabletop import BOOTING, DONE, FAILED, STEP, Tabletop

from qnrescue.bench import cli
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.slots import Slots, read_slots, write_slots
from qnrescue.desk import Desk
from qnrescue.jobs import JobOrder, JobState

A, B, C = "A" * 16, "B" * 16, "C" * 16
PACKAGE = pathlib.Path(cli.__file__).parents[2]
TIME_LIMIT = 60


@pytest.fixture
def table(tmp_path, monkeypatch):
    tabletop = Tabletop(tmp_path / "Größe 漢字")
    monkeypatch.setenv("PYTHONPATH", str(PACKAGE))
    monkeypatch.setenv("QNRESCUE_TOOL", "\n".join(tabletop.command))
    monkeypatch.setenv("QNRESCUE_BENCH_FOLDER", str(tabletop.bench))
    monkeypatch.setenv("COLUMNS", "200")
    yield tabletop
    tabletop.close()


@pytest.fixture
def bench(table, capfd):
    """Gives what runs a command; returns its lines."""
    def run(*words, status=ExitStatus.DONE, errors=""):
        found = cli.main([str(word) for word in words])
        out, err = capfd.readouterr()
        assert (found, err) == (status, f"qnrescue-bench: {errors}\n" if errors else "")
        return out.splitlines()

    return run


def start(*words, **how):
    """Starts the command as a process."""
    return subprocess.Popen([sys.executable, "-m", "qnrescue.bench.cli", *map(str, words)],
                            **{"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **how})


def jobs_of(table):
    with Desk(table.bench) as desk:
        return desk.journal.jobs()


def end_of_jobs(table):
    limit = time.monotonic() + TIME_LIMIT
    while not all(job.state.is_end for job in jobs_of(table)):
        assert time.monotonic() < limit
        time.sleep(0.05)
    return jobs_of(table)


class TestDevices:
    def test_list(self, table, bench):
        assert [line.split() for line in bench("list")] == [
            ["slot", "ECID", "serial", "number", "chip", "board", "product", "name"]]
        table.plug_in(B, location=0x14200000, serial="F4G")
        table.plug_in(A)
        assert [line.split() for line in bench("list")[1:]] == [
            [A, "8110", "0C", "1281"], ["14200000", B, "F4G", "8110", "0C", "1281"]]

    def test_list_with_slots_as_json(self, table, bench):
        table.bench.mkdir()
        write_slots(table.bench / "slots.toml", Slots({0x14200000: "left 1"}))
        table.plug_in(B, location=0x14200000, serial="F4G")
        (line,) = bench("list", "--json")
        assert json.loads(line) == {
            "ecid": B, "slot": "left 1", "location_id": 0x14200000, "serial_number": "F4G",
            "product_id": 0x1281, "board_id": 12, "chip_id": 0x8110, "product_type": 0,
            "fusing_info": 3, "product_string": None}

    def test_info(self, table, bench):
        table.plug_in(A, location=0x14200000, serial="F4G")
        lines = dict(line.split(maxsplit=1) for line in bench("info", A.lower())
                     if line.count(" ") and " id " not in line)
        assert (lines["ecid"], lines["slot"]) == (A, "14200000")
        bench("info", B, status=ExitStatus.FAILED,
              errors=f"Failed to find device with ecid {B} after 3 seconds")

    def test_tool_that_fails(self, table, bench):
        (table.folder / "broken").touch()
        bench("list", status=ExitStatus.FAILED, errors="no library")

    def test_tool_that_cannot_be_started(self, table, bench):
        bench("list", "--tool", "nowhere", status=ExitStatus.BENCH,
              errors="cannot start 'nowhere': No such file or directory; name the program with"
                     " --tool or QNRESCUE_TOOL")


class TestRestore:
    def test_named_devices(self, table, bench):
        table.plug_in(A, reports=[STEP, 0.5, BOOTING, 0.5, DONE])
        table.plug_in(B, reports=[STEP, 0.5, FAILED])
        table.plug_in(C)
        lines = bench("restore", table.bundle, A, B.lower(), A, status=ExitStatus.FAILED)
        assert sorted(table.restores()) == [A, B]
        assert [line for line in lines if line.startswith(A)][-1] == f"{A}       succeeded"
        assert f"{A}  20 % Booting" in lines
        assert lines.count(f"{B}       failed: Timeout waiting for NAND") == 1
        assert not [line for line in lines if "refused" in line]  # a device is named twice

    def test_all(self, table, bench):
        bench("restore", table.bundle, "--all", status=ExitStatus.NOTHING,
              errors="no device is attached; connect one in DFU or Recovery mode, or raise"
                     " --detect-timeout")
        table.plug_in(A)
        table.plug_in(B)
        bench("restore", table.bundle, "--all")
        assert sorted(table.restores()) == [A, B]

    @pytest.mark.parametrize("words, fault", [
        ([], "name the devices, or give --all"), (["--erase"], "name the devices, or give --all"),
        ([A, "--all"], "either name devices, or give --all"), (["12"], "not an ECID"),
        ([A, "--plist", "--erase"], "with --plist, the file says whether to erase"),
        ([A, "--plist", "--restore-timeout", "9"], "--restore-timeout has no effect")])
    def test_what_is_restored_must_be_said(self, table, capfd, words, fault):
        table.plug_in(A)
        with pytest.raises(SystemExit) as raised:
            cli.main(["restore", str(table.bundle), *words])
        assert raised.value.code == ExitStatus.USAGE
        assert fault in capfd.readouterr().err
        assert not table.restores()

    def test_bundle_that_is_not_there(self, table, capfd):
        with pytest.raises(SystemExit):
            cli.main(["restore", "no.ipsw", A])
        assert "there is no 'no.ipsw'" in capfd.readouterr().err

    def test_named_devices_are_erased(self, table, bench):
        table.plug_in(A)
        table.plug_in(B)
        bench("restore", table.bundle, A, "--erase")
        assert table.restores() == [f"{A}!"]

    def test_erasing_all_needs_a_confirmation(self, table, bench, monkeypatch):
        table.plug_in(A)
        monkeypatch.setattr(sys, "stdin", open(os.devnull))
        bench("restore", table.bundle, "--all", "--erase", status=ExitStatus.UNCONFIRMED,
              errors=f"This erases all that are attached: {A}. Give --yes, or confirm on a"
                     " terminal")
        assert not table.restores()
        bench("restore", table.bundle, "--all", "--erase", "--yes")
        assert table.restores() == [f"{A}!"]
        sys.stdin.close()

    def test_file_of_options(self, table, bench, monkeypatch):
        table.plug_in(A)
        bench("restore", "--plist", table.bundle, A)
        table.plug_in(A)
        monkeypatch.setattr(sys, "stdin", None)
        bench("restore", "--plist", table.bundle, "--all", status=ExitStatus.UNCONFIRMED,
              errors=f"This may erase all that are attached: {A}. Give --yes, or confirm on a"
                     " terminal")
        bench("restore", "--plist", table.bundle, "--all", "--yes")
        assert table.restores() == [f"{A}*", f"{A}*"]

    @pytest.mark.parametrize("typed, status, restores", [
        (b"erase\n", ExitStatus.DONE, [f"{A}!"]), (b"yes\n", ExitStatus.UNCONFIRMED, []),
        (b"\n", ExitStatus.UNCONFIRMED, []), (b"\x04", ExitStatus.UNCONFIRMED, [])])
    def test_typed_confirmation(self, table, typed, status, restores):
        table.plug_in(A)
        ours, theirs = pty.openpty()
        process = start("restore", table.bundle, "--all", "--erase", stdin=theirs)
        os.close(theirs)
        assert process.stderr.readline().decode() == (
            f"qnrescue-bench: This erases all that are attached: {A}. Type erase to go on:\n")
        os.write(ours, typed)
        process.communicate(timeout=TIME_LIMIT)
        os.close(ours)
        assert process.returncode == status
        assert table.restores() == restores

    def test_busy_device_is_refused(self, table, bench):
        table.plug_in(A, reports=[STEP, 600])
        (line,) = bench("restore", table.bundle, A, "--detach", "--json")
        first = json.loads(line)
        assert (first["device"], first["state"]) == (A, "queued")
        lines = bench("restore", table.bundle, A, status=ExitStatus.FAILED)
        assert lines == [f"{A}       refused: the device has a job already: {first['id']}"]
        bench("cancel", first["id"][:8])
        assert table.restores() in ([], [A])  # it may not have started yet

    def test_json(self, table, bench):
        table.plug_in(A, reports=[STEP, 0.3, DONE])
        values = [json.loads(line) for line in bench("restore", table.bundle, A, "--json")]
        assert values[0]["state"] in ("queued", "running")
        last = values[-1]
        assert (last["state"], last["progress"], last["exit_status"]) == ("succeeded", 100, 0)
        assert b"Successful" in pathlib.Path(last["documents"]).read_bytes()
        assert last["order"]["bundle"] == str(table.bundle)


class TestViewers:
    """Whatever ends a viewer ends no restore."""

    def start_restore(self, table, *words, **how):
        table.plug_in(A, reports=[STEP, 2, DONE])
        return start("restore", table.bundle, A, *words, **how)

    def assert_restored(self, table):
        (job,) = end_of_jobs(table)
        assert (job.state, table.restores()) == (JobState.SUCCEEDED, [A])

    def test_control_c(self, table):
        process = self.start_restore(table)
        while b"Sending ramdisk" not in process.stdout.readline():
            pass
        process.send_signal(signal.SIGINT)
        assert process.communicate(timeout=TIME_LIMIT) == (
            b"", b"qnrescue-bench: jobs go on: qnrescue-bench follow shows them, and cancel ends"
                 b" one\n")
        assert process.returncode == ExitStatus.STOPPED
        self.assert_restored(table)

    def test_killed(self, table):
        process = self.start_restore(table)
        process.stdout.readline()
        process.kill()
        process.communicate(timeout=TIME_LIMIT)
        self.assert_restored(table)

    @pytest.mark.parametrize("words", [[], ["--json"]])
    def test_full_disk(self, table, words):
        with open("/dev/full", "wb") as full:
            process = self.start_restore(table, *words, stdout=full)
            _, errors = process.communicate(timeout=TIME_LIMIT)
        assert process.returncode == ExitStatus.OUTPUT
        assert errors.decode() == ("qnrescue-bench: the output cannot be written: No space left on"
                                   " device; jobs go on, see qnrescue-bench follow\n")
        self.assert_restored(table)

    def test_reader_that_leaves(self, table):
        process = self.start_restore(table)
        assert process.stdout.readline().decode().startswith(A)
        process.stdout.close()
        assert process.wait(TIME_LIMIT) == ExitStatus.OUTPUT
        assert b"the output cannot be written: Broken pipe" in process.stderr.read()
        process.stderr.close()
        self.assert_restored(table)

    @pytest.mark.parametrize("fate", ["closed", "read"])
    def test_terminal(self, table, fate):
        ours, theirs = pty.openpty()
        process = self.start_restore(table, stdin=theirs, stdout=theirs, start_new_session=True,
                                     env={**os.environ, "TERM": "xterm"})
        os.close(theirs)
        shown = ""
        while "RUNNING" not in shown:
            shown += os.read(ours, 65536).decode()
        if fate == "closed":
            os.close(ours)
            process.communicate(timeout=TIME_LIMIT)
        else:
            while select.select([ours], [], [], TIME_LIMIT)[0]:
                try:
                    shown += os.read(ours, 65536).decode()
                except OSError:  # nobody is left on the other side
                    break
            os.close(ours)
            assert process.communicate(timeout=TIME_LIMIT) == (None, b"")
            assert process.returncode == ExitStatus.DONE
            assert "Sending ramdisk to device" in shown
            assert "SUCCEEDED" in shown
        self.assert_restored(table)


class TestClosedStreams:
    """A stream may be closed before the start: Python then has None in its place."""

    def run(self, closed, *words):
        command = shlex.join([sys.executable, "-m", "qnrescue.bench.cli", *map(str, words)])
        run = subprocess.run(["sh", "-c", f"{command} {closed}"], capture_output=True, text=True,
                             timeout=TIME_LIMIT)
        return run.returncode, run.stdout, run.stderr

    def test_output(self, table):
        status, _, errors = self.run(">&-", "list")
        assert (status, errors) == (
            ExitStatus.OUTPUT, "qnrescue-bench: the output cannot be written: I/O operation on"
                               " closed file; jobs go on, see qnrescue-bench follow\n")

    def test_errors(self, table):
        assert self.run("2>&-", "follow", "x") == (ExitStatus.NOTHING, "", "")

    def test_input(self, table):
        assert self.run("<&-", "json") == (
            ExitStatus.NOTHING, "", "qnrescue-bench: standard input is closed\n")
        table.plug_in(A)
        assert self.run("<&-", "restore", table.bundle, "--all", "--erase")[0] == (
            ExitStatus.UNCONFIRMED)
        assert not table.restores()


class TestJobs:
    def test_follow(self, table, bench):
        bench("follow", status=ExitStatus.NOTHING, errors="no job is queued or running")
        bench("follow", "x", status=ExitStatus.NOTHING, errors="there is no job 'x'")
        table.plug_in(A, reports=[STEP, 1, DONE])
        bench("restore", table.bundle, A, "--detach")
        assert bench("follow")[-1] == f"{A}       succeeded"
        (job,) = jobs_of(table)
        assert bench("follow", job.id) == [f"{A}       succeeded"]
        assert bench("follow", job.id[:6], "--plain") == [f"{A}       succeeded"]

    def test_beginnings_of_ids(self, table, bench):
        with Desk(table.bench) as desk:
            for job_id in ("ab-1", "ab-2", "ab"):
                desk.journal.submit(JobOrder(A, "x"), "test", job_id)
        bench("cancel", "a", status=ExitStatus.NOTHING, errors="several jobs begin with 'a'")
        assert "ab-2" in bench("cancel", "ab-2", status=ExitStatus.FAILED)[1]
        assert bench("cancel", "ab", status=ExitStatus.FAILED)[1].startswith("ab ")

    def test_cancel(self, table, bench):
        table.plug_in(A, reports=[STEP, 600])
        bench("restore", table.bundle, A, "--detach")
        (job,) = jobs_of(table)
        line = bench("cancel", job.id)[1].split()
        assert line[:3] == [job.id, A, "cancelled"]
        assert bench("cancel", job.id) == bench("cancel", job.id)
        bench("cancel", "x", status=ExitStatus.NOTHING, errors="there is no job 'x'")

    def test_cancel_of_what_has_ended(self, table, bench):
        table.plug_in(A)
        bench("restore", table.bundle, A)
        (job,) = jobs_of(table)
        assert "succeeded" in bench("cancel", job.id, status=ExitStatus.FAILED)[1]

    def test_jobs_and_history(self, table, bench):
        table.plug_in(A, reports=[STEP, FAILED])
        table.plug_in(B, reports=[STEP, 600])
        bench("restore", table.bundle, A, status=ExitStatus.FAILED)
        bench("restore", table.bundle, B, "--detach")
        (line,) = bench("jobs", "--json")
        assert json.loads(line)["device"] == B
        assert bench("jobs")[1].split()[1] == B
        (line,) = bench("history", "--json")
        assert (json.loads(line)["device"], json.loads(line)["state"]) == (A, "failed")
        assert "Timeout waiting for NAND" in bench("history", A.lower())[1]
        assert len(bench("history", B)) == 1
        bench("cancel", json.loads(bench("jobs", "--json")[0])["id"])
        assert [json.loads(line)["device"] for line in bench("history", "--json")] == [B, A]
        assert len(bench("history", "--json", "--limit", "1")) == 1
        assert len(bench("history", "--json", "--limit", "0")) == 2


class TestSlots:
    def test_show(self, table, bench):
        table.bench.mkdir()
        write_slots(table.bench / "slots.toml", Slots({0x14300000: "2", 0x14200000: "1"}))
        table.plug_in(A, location=0x14200000, serial="F4G")
        table.plug_in(B, location=0x14500000)
        assert [line.split() for line in bench("slots")[1:]] == [
            ["2", "14300000"], ["1", "14200000", A, "F4G"], ["14500000", B]]
        assert json.loads(bench("slots", "--json")[2]) == {
            "slot": None, "location": "14500000", "device": B, "serial_number": None}

    def test_learn(self, table):
        table.plug_in(A, location=0x14100000)
        process = start("slots", "--learn", "left", "right", "--json")
        for name, location in (("left", 0x14300000), ("right", 0x14200000)):
            assert process.stderr.readline().decode() == (
                f"qnrescue-bench: plug a device into the slot {name!r}\n")
            time.sleep(1)  # at first it looks which devices are there
            table.plug_in(B, location=location)
            assert json.loads(process.stdout.readline()) == {"slot": name,
                                                             "location": f"{location:08X}"}
            time.sleep(0.5)  # that it stays is no arrival
            table.unplug(B)
            time.sleep(0.5)
        assert process.communicate(timeout=TIME_LIMIT) == (b"", b"")
        assert process.returncode == 0
        assert read_slots(table.bench / "slots.toml") == Slots({0x14300000: "left",
                                                                0x14200000: "right"})

    def test_remove(self, table, bench):
        table.bench.mkdir()
        path = table.bench / "slots.toml"
        write_slots(path, Slots({1: "a", 2: "b"}))
        bench("slots", "--remove", "a")
        assert read_slots(path) == Slots({2: "b"})
        bench("slots", "--remove", "a", status=ExitStatus.BENCH, errors="no slot has the name 'a'")

    def test_file_that_is_wrong(self, table, bench):
        table.bench.mkdir()
        path = table.bench / "slots.toml"
        path.write_text("slots = 1")
        bench("list", status=ExitStatus.BENCH,
              errors=f"{path}: only [[slot]] entries are known")


class TestBenchFolder:
    def test_folder_that_cannot_be_made(self, table, bench):
        table.bench.touch()
        found = bench("jobs", status=ExitStatus.BENCH,
                      errors=f"the folder of the bench cannot be used: [Errno 17] File exists:"
                             f" '{table.bench}'")
        assert not found

    def test_journal_of_another_version(self, table, bench):
        with Desk(table.bench) as desk:
            path = desk.journal.path
            desk.journal._database.rows("PRAGMA user_version = 99")
        bench("jobs", status=ExitStatus.BENCH, errors=f"the journal cannot be used: {path} has"
                                                      " version 99; this program knows 1")

        bench("supervise", status=ExitStatus.BENCH,
              errors=f"the journal cannot be used: {path} has version 99; this program knows 1")

    def test_journal_that_breaks_while_a_job_runs(self, table, bench, capfd):
        table.plug_in(A, reports=[STEP, 600])
        bench("restore", table.bundle, A, "--detach")
        while json.loads(bench("jobs", "--json")[0])["step"] != STEP["QN_OperationName"]:
            pass
        broken = table.bench / "journal-1.sqlite"
        broken.write_bytes(secrets.token_bytes(20000))  # what SQLite has beside it stays
        limit = time.monotonic() + TIME_LIMIT
        lines = []
        while not lines:  # damage is found at once, or when a command reads the jobs
            assert time.monotonic() < limit
            status = cli.main(["jobs", "--json"])
            out, err = capfd.readouterr()
            assert (status, "the journal is damaged: " in err) in (
                (ExitStatus.DONE, False), (ExitStatus.BENCH, True))
            lines = out.splitlines()
        bench("cancel", json.loads(lines[0])["id"])
        assert table.restores() == [A]
        assert broken.exists()

    @pytest.mark.parametrize("words", [["supervise"], ["watch", "--restore", __file__]])
    def test_file_that_cannot_be_opened(self, table, bench, words):
        table.bench.mkdir()
        lock = table.bench / ("watch.lock" if "watch" in words else "supervisor.lock")
        lock.symlink_to("nowhere")
        bench(*words, status=ExitStatus.BENCH,
              errors=f"[Errno 2] No such file or directory: '{lock}'")

    def test_supervisor_that_cannot_work(self, table, bench, monkeypatch):
        monkeypatch.setattr(sys, "executable", "/bin/false")
        table.plug_in(A)
        bench("restore", table.bundle, A, status=ExitStatus.BENCH,
              errors="the supervisor ends at once, with status 1;"
                     f" see {table.bench / 'supervisor.log'}")

    def test_help_has_the_exit_statuses(self, table, capfd):
        with pytest.raises(SystemExit):
            cli.main(["--help"])
        text = capfd.readouterr().out
        for each in ExitStatus:
            assert f"{each.value:3}  {each.meaning}" in text
