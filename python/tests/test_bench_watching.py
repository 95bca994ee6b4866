"""The command watch, against a bench on a table top."""

import json
import os
import pathlib
import pty
import re
import signal
import subprocess
import sys
import time
import xml.etree.ElementTree

import pytest
from bench_of_tests import spoil
from tabletop import BOOTING, DONE, FAILED, STEP, Tabletop

from qnrescue.bench import cli, watching
from qnrescue.bench.context import Context
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.output import Output
from qnrescue.bench.polling import Poll
from qnrescue.bench.slots import Slots, write_slots
from qnrescue.bench.watching import may_retry
from qnrescue.database import JournalUnavailable
from qnrescue.desk import Desk
from qnrescue.jobs import Job, JobOrder, JobState
from qnrescue.places import JobFolder

A, B, C = "A" * 16, "B" * 16, "C" * 16
PACKAGE = pathlib.Path(cli.__file__).parents[2]
TIME_LIMIT = 60


def wait_until(condition):
    limit = time.monotonic() + TIME_LIMIT
    while not condition():
        assert time.monotonic() < limit
        time.sleep(0.05)


class Bench:
    """A bench on a table top, and the watch of its operator."""

    def __init__(self, folder):
        self.table = Tabletop(folder / "Größe 漢字")
        self.table.bench.mkdir()
        self.watches = []

    def start(self, *words, **how):
        """Starts to watch; what it prints goes to a file."""
        self.output = self.table.folder / f"output{len(self.watches)}"
        with open(self.output, "wb") as output:
            self.watches.append(subprocess.Popen(
                [sys.executable, "-m", "qnrescue.bench.cli", "watch", *map(str, words)],
                **{"stdout": output, "stderr": subprocess.PIPE, **how}))
        return self.watches[-1]

    def restore(self, *words, **how):
        """Starts a watch that restores, with short times."""
        return self.start("--restore", self.table.bundle, "--away", "1", *words, **how)

    def printed(self):
        return self.output.read_text("utf-8").splitlines()

    def values(self, event):
        values = map(json.loads, self.printed())
        return [value for value in values if value["event"] == event]

    def jobs(self):
        with Desk(self.table.bench) as desk:
            return desk.journal.jobs()[::-1]

    def wait_for_end(self, number):
        wait_until(lambda: sum(job.state.is_end for job in self.jobs()) == number)
        return self.jobs()

    def stop(self):
        self.watches[-1].send_signal(signal.SIGINT)
        _, errors = self.watches[-1].communicate(timeout=TIME_LIMIT)
        assert (self.watches[-1].returncode, errors) == (ExitStatus.STOPPED, b"")

    def close(self):
        for watch in self.watches:
            watch.kill()
            watch.communicate()
        self.table.close()


@pytest.fixture
def bench(tmp_path, monkeypatch):
    bench = Bench(tmp_path)
    monkeypatch.setenv("PYTHONPATH", str(PACKAGE))
    monkeypatch.setenv("QNRESCUE_TOOL", "\n".join(bench.table.command))
    monkeypatch.setenv("QNRESCUE_BENCH_FOLDER", str(bench.table.bench))
    yield bench
    bench.close()


def test_each_device_once_until_it_was_unplugged(bench):
    write_slots(bench.table.bench / "slots.toml", Slots({0x14200000: "left 1"}))
    bench.restore("--rest", "0")
    bench.table.plug_in(A, location=0x14200000, serial="F4G", reports=[STEP, FAILED])
    (job,) = bench.wait_for_end(1)
    assert (job.state, job.order.slot) == (JobState.FAILED, "left 1")
    bench.table.plug_in(B)
    bench.wait_for_end(2)
    time.sleep(2)
    bench.table.unplug(A)
    wait_until(lambda: f"left 1: {A}       gone" in bench.printed())
    bench.table.plug_in(A, location=0x14200000, reports=[STEP, DONE])
    bench.wait_for_end(3)
    assert bench.table.restores() == [A, B, A]
    wait_until(lambda: bench.printed()[-1] == f"left 1: {A}       succeeded")
    bench.stop()
    lines = bench.printed()
    assert lines[0] == f"left 1: {A}       arrived"
    assert f"left 1: {A}       failed: Timeout waiting for NAND" in lines


def test_device_that_has_just_been_restored(bench):
    bench.restore()
    bench.table.plug_in(A)
    bench.wait_for_end(1)
    wait_until(lambda: f"{A}       gone" in bench.printed())
    bench.table.plug_in(A)
    wait_until(lambda: f"{A}       arrived: has just been restored" in bench.printed())
    time.sleep(1)
    assert bench.table.restores() == [A]


def test_at_once(bench):
    for device in (A, B, C):
        bench.table.plug_in(device, reports=[STEP, 1.5, DONE])
    bench.restore("--at-once", "1", "--json")
    jobs = bench.wait_for_end(3)
    assert [job.state for job in jobs] == [JobState.SUCCEEDED] * 3
    for job, following in zip(jobs, jobs[1:]):
        assert following.started_at >= job.ended_at
    wait_until(lambda: [value["state"] for value in bench.values("job")
                        ].count("succeeded") == 3)
    bench.stop()
    assert [value["ecid"] for value in bench.values("arrival")] == [A, B, C]
    assert bench.values("job")[0]["state"] in ("queued", "running")


@pytest.mark.parametrize("reports, states", [
    ([[STEP, FAILED], [STEP, DONE]], ["failed", "succeeded"]),
    ([[STEP, FAILED]], ["failed", "failed", "failed"]),
    ([[STEP, BOOTING, FAILED], [STEP, DONE]], ["failed"])])
def test_retry(bench, reports, states):
    bench.table.plug_in(A, reports=reports)
    bench.restore("--retry", "2")
    jobs = bench.wait_for_end(len(states))
    time.sleep(1)
    assert len(bench.jobs()) == len(states)
    assert [job.state.value for job in jobs] == states
    assert [job.order.repeats for job in jobs] == ["", *(job.id for job in jobs)][:len(jobs)]


def test_erasing_is_confirmed(bench):
    bench.table.plug_in(A)
    process = bench.restore("--erase", stdin=subprocess.DEVNULL)
    _, errors = process.communicate(timeout=TIME_LIMIT)
    assert process.returncode == ExitStatus.UNCONFIRMED
    assert b"This erases each device that is attached, and each that arrives." in errors
    assert not bench.table.restores()
    bench.restore("--erase", "--yes")
    bench.wait_for_end(1)
    assert bench.table.restores() == [f"{A}!"]


def test_one_watch_restores(bench):
    bench.restore()
    bench.table.plug_in(A)
    bench.wait_for_end(1)
    process = bench.restore()
    _, errors = process.communicate(timeout=TIME_LIMIT)
    assert process.returncode == ExitStatus.BENCH
    assert errors == b"qnrescue-bench: another program restores the devices that arrive\n"


def test_watch_that_restores_nothing(bench):
    bench.table.plug_in(A, location=0x14200000, serial="F4G")
    bench.start()
    wait_until(lambda: bench.printed() == [f"14200000: {A}       arrived"])
    time.sleep(1)
    assert not bench.jobs()


def test_file_of_options(bench):
    bench.table.plug_in(A, reports=[STEP, DONE])
    bench.restore("--plist", "--yes", "--on-end", "echo $QNRESCUE_BUNDLE")
    (job,) = bench.wait_for_end(1)
    assert (job.order.plist, bench.table.restores()) == (str(bench.table.bundle), [f"{A}*"])
    log = bench.table.bench / "hooks.log"
    wait_until(lambda: log.exists() and log.read_text("utf-8") == f"{bench.table.bundle}\n")


@pytest.mark.parametrize("starts, ends", [
    (1, 1), (2, 1), *(pytest.param(*each, marks=pytest.mark.full)
                      for each in ((0, 0), (1, 0), (2, 2)))])
def test_killed_watch_is_taken_up(bench, starts, ends):
    """Whenever it is killed, each device is restored once."""
    for device in (A, B):
        bench.table.plug_in(device, reports=[STEP, 1, FAILED])
    process = bench.restore("--at-once", "1")
    wait_until(lambda: bench.printed() and len(bench.table.restores()) >= starts
               and sum(job.state.is_end for job in bench.jobs()) >= ends)
    process.kill()
    bench.restore("--at-once", "1")
    bench.wait_for_end(2)
    looks = bench.table.looks()
    wait_until(lambda: bench.table.looks() >= looks + 3)
    bench.stop()
    assert sorted(job.device for job in bench.jobs()) == [A, B]
    assert sorted(bench.table.restores()) == [A, B]


def test_hooks(bench):
    bench.table.plug_in(A, location=0x14200000, serial="F4G", reports=[STEP, FAILED])
    show = "env | grep ^QNRESCUE_ | sort; echo"
    bench.restore("--on-arrival", show, "--on-departure", show, "--on-end", f"{show}; exit 3")
    (job,) = bench.wait_for_end(1)
    wait_until(lambda: "the command on end failed: it ended with status 3" in bench.printed())
    bench.table.unplug(A)
    wait_until(lambda: f"14200000: {A}       gone" in bench.printed())
    bench.stop()
    text = (bench.table.bench / "hooks.log").read_text("utf-8")
    calls = [dict(line.split("=", 1) for line in part.splitlines() if line.partition("=")[0] not in
                  ("QNRESCUE_TOOL", "QNRESCUE_BENCH_FOLDER", "QNRESCUE_MACHINE_FOLDER"))
             for part in text.split("\n\n") if part]
    calls = [{name: value for name, value in call.items() if name.startswith("QNRESCUE_")}
             for call in calls]
    device = {"QNRESCUE_ECID": A, "QNRESCUE_SLOT": "14200000", "QNRESCUE_SERIAL_NUMBER": "F4G",
              "QNRESCUE_LOCATION_ID": "14200000"}
    folder = bench.table.bench / "jobs" / job.id
    assert calls == [
        {"QNRESCUE_EVENT": "arrival", **device},
        {"QNRESCUE_EVENT": "end", **device, "QNRESCUE_JOB": job.id, "QNRESCUE_RESULT": "failed",
         "QNRESCUE_REASON": "Timeout waiting for NAND", "QNRESCUE_STEP": job.step,
         "QNRESCUE_SECONDS": f"{job.seconds:.0f}", "QNRESCUE_BUNDLE": str(bench.table.bundle),
         "QNRESCUE_REPEATS": "", "QNRESCUE_DOCUMENTS": str(folder / "documents.plist"),
         "QNRESCUE_LOG": str(folder / "restore.log")},
        {"QNRESCUE_EVENT": "departure", **device}]


def test_tool_that_fails_for_a_while(bench):
    broken = bench.table.folder / "broken"
    broken.touch()
    bench.table.plug_in(A)
    bench.restore("--json")
    wait_until(lambda: bench.values("message") == [
        {"event": "message", "text": "the devices cannot be listed: no library"}])
    broken.unlink()
    bench.wait_for_end(1)
    assert bench.table.restores() == [A]


def test_tool_that_cannot_be_started(bench):
    process = bench.start("--tool", "nowhere")
    _, errors = process.communicate(timeout=TIME_LIMIT)
    assert process.returncode == ExitStatus.BENCH
    assert errors == (b"qnrescue-bench: the tool cannot be started: No such file or directory:"
                      b" 'nowhere'\n")


def test_broken_output_ends_no_restore(bench):
    with open("/dev/full", "wb") as full:
        process = bench.restore(stdout=full)
        bench.table.plug_in(A, reports=[STEP, 2, DONE])
        _, errors = process.communicate(timeout=TIME_LIMIT)
    assert process.returncode == ExitStatus.OUTPUT
    assert errors.startswith(b"qnrescue-bench: the output cannot be written: No space")
    jobs = bench.wait_for_end(len(bench.jobs()))
    assert [job.state for job in jobs] in ([], [JobState.SUCCEEDED])


def watch_context(folder):
    """Returns what a watch in this process works with."""
    bundle = folder / "update.ipsw"
    bundle.touch()
    options = cli.make_parser().parse_args(["watch", "--folder", str(folder / "bench"),
                                            "--restore", str(bundle), "--plain"])
    return Context(options, Output(plain=True))


def test_journal_that_cannot_be_used_for_a_while(tmp_path, monkeypatch, capsys):
    """What was to be done is done as soon as it can be used again, and nothing twice."""
    monkeypatch.setattr("qnrescue.desk.ensure_supervisor", lambda _: None)
    context = watch_context(tmp_path)
    with context.desk() as desk, context.output.screen(full=True) as screen:
        watch = watching._Watch(context, desk, screen)
        journal = desk.journal
        with monkeypatch.context() as broken:
            broken.setattr(journal, "set_fact", unavailable)
            watch.step(Poll(frozenset({A})))
            watch.step(None)
        assert not journal.jobs()
        with monkeypatch.context() as broken:
            broken.setattr(journal, "submit", unavailable)
            watch.step(Poll(frozenset({A})))
        assert not journal.jobs()
        watch.step(Poll(frozenset({A})))
        watch.step(Poll(frozenset({A})))
        assert [job.device for job in journal.jobs()] == [A]
    assert capsys.readouterr().out.splitlines() == [
        "the journal cannot be used now: locked", f"{A}       arrived",
        f"{A}       queued"]


def unavailable(*_, **__):
    raise JournalUnavailable("locked")


def test_journal_that_breaks(tmp_path, monkeypatch, capsys):
    """The watch goes on with the next one, and orders again, with the same id, what was lost."""
    monkeypatch.setattr("qnrescue.desk.ensure_supervisor", lambda _: None)
    context = watch_context(tmp_path)
    with context.desk() as desk, context.output.screen(full=True) as screen:
        watch = watching._Watch(context, desk, screen)
        watch.step(Poll(frozenset({A})))
        (job,) = desk.journal.jobs()
        broken = desk.journal.path
        content = spoil(broken)
        for _ in range(3):
            watch.step(Poll(frozenset({A})))
        assert desk.journal.path != broken
        assert [again.id for again in desk.journal.jobs()] == [job.id]
        assert broken.read_bytes() == content
    assert "the journal cannot be used now: " in capsys.readouterr().out


def test_supervisor_that_cannot_be_started_for_a_while(tmp_path, monkeypatch, capsys):
    context = watch_context(tmp_path)
    monkeypatch.setattr("qnrescue.desk.ensure_supervisor", no_process)
    monkeypatch.setattr("qnrescue.bench.watching.ensure_supervisor", no_process)
    with context.desk() as desk, context.output.screen(full=True) as screen:
        watch = watching._Watch(context, desk, screen)
        watch.step(Poll(frozenset({A})))
        watch.step(Poll(frozenset({A})))
        assert [job.device for job in desk.journal.jobs()] == [A]
    assert "Cannot fork" in capsys.readouterr().out


def no_process(_):
    raise OSError("Cannot fork")


def test_journal_that_was_found_broken(tmp_path, monkeypatch, capsys):
    """The watch goes on with the next one, and keeps its visits there."""
    monkeypatch.setattr("qnrescue.desk.ensure_supervisor", lambda _: None)
    monkeypatch.setattr("qnrescue.bench.watching.ensure_supervisor", lambda _: None)
    context = watch_context(tmp_path)
    with context.desk() as desk, context.output.screen(full=True) as screen:
        watch = watching._Watch(context, desk, screen)
        watch.step(Poll(frozenset({A})))
        watch.step(Poll(frozenset({A})))
        visits = desk.journal.fact("visits")
        desk.journal.replace_broken()
        desk.journal.submit(JobOrder(B, str(tmp_path / "update.ipsw")), "somebody")
        watch.step(Poll(frozenset({A})))
        watch.step(None)
        assert json.loads(desk.journal.fact("visits"))["visits"][0]["id"] == (
            json.loads(visits)["visits"][0]["id"])
        assert [job.device for job in desk.journal.jobs()] == [B]
        desk.journal.replace_broken()  # now with visits that do not change any more
        watch.step(Poll(frozenset({A})))
        assert desk.journal.fact("visits")
    assert f"{B}       queued" in capsys.readouterr().out.splitlines()


def test_terminal(bench):
    write_slots(bench.table.bench / "slots.toml", Slots({0x14200000: "1", 0x14300000: "2"}))
    bench.table.plug_in(A, location=0x14200000, serial="F4G", reports=[STEP, 1, DONE])
    ours, theirs = pty.openpty()
    process = bench.restore("--bell", stdin=theirs, stdout=theirs, start_new_session=True,
                            env={**os.environ, "TERM": "xterm", "COLUMNS": "120", "LINES": "8"})
    os.close(theirs)
    shown = ""
    while "SUCCEEDED" not in shown:
        shown += os.read(ours, 65536).decode()
    while "\a" not in shown:
        shown += os.read(ours, 65536).decode()
    assert "1 empty" in shown
    assert re.search(r"2\S* +\S*EMPTY", re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", shown))
    os.close(ours)  # the terminal is closed
    _, errors = process.communicate(timeout=TIME_LIMIT)
    assert process.returncode == ExitStatus.OUTPUT
    assert errors.startswith(b"qnrescue-bench: the output cannot be written")
    assert bench.table.restores() == [A]


def test_picture(bench):
    write_slots(bench.table.bench / "slots.toml", Slots({0x14200000: "1"}))
    path = bench.table.folder / "screen.svg"
    bench.table.plug_in(A, location=0x14200000, reports=[STEP, FAILED])
    bench.restore("--svg", path)
    wait_until(lambda: path.exists() and "Timeout" in path.read_text("utf-8"))
    root = xml.etree.ElementTree.fromstring(path.read_text("utf-8"))
    text = "".join(root.itertext()).replace("\xa0", " ")
    assert f"{A}" in text
    assert "update.ipsw   1 failed" in text
    assert "█▀▀" in text  # the letter F
    assert "http" not in path.read_text("utf-8").replace("http://www.w3.org/2000/svg", "")


def write_documents(bench, *values):
    bench.table.plug_in(A, reports=[*values])
    bench.restore()
    (job,) = bench.wait_for_end(1)
    with Desk(bench.table.bench) as desk:
        return job, desk.files(job.id)


def test_what_may_be_repeated(bench):
    job, files = write_documents(bench, STEP, FAILED)
    assert job.state is JobState.FAILED
    assert may_retry(job, files)
    files.log.touch()
    for state in JobState:
        other = Job(job.id, JobOrder(A, "x"), state, "", 1, 0.0)
        assert may_retry(other, files) == (state is JobState.FAILED)
    whole = files.documents.read_bytes()
    files.documents.write_bytes(b"<?xml rubbish</plist>\n" + whole)
    assert not may_retry(job, files)
    files.documents.unlink()
    assert not may_retry(job, files)
    files.documents.mkdir()
    assert not may_retry(job, files)


def test_a_job_whose_tool_never_began_may_be_repeated(tmp_path):
    files = JobFolder(tmp_path)
    job = Job("x", JobOrder(A, "x"), JobState.INTERRUPTED, "", 1, 0.0)
    assert may_retry(job, files)
    files.documents.touch()
    assert may_retry(job, files)
    files.log.touch()
    assert not may_retry(job, files)
