"""The command screen."""

from __future__ import annotations

import base64
import json
import os
import signal
import socket
import ssl
import subprocess
import sys
import urllib.error
import urllib.request
from pathlib import Path
from typing import Any

import pytest

from bench_of_tests import FAKE_TOOL
from qnrescue.bench.cli import main
from qnrescue.bench.exit_status import ExitStatus

PASSWORD = "correct horse battery"


@pytest.fixture
def secret(tmp_path: Path) -> Path:
    """Gives a file with a password."""
    path = tmp_path / "password"
    path.touch(0o600)
    path.write_text(PASSWORD + "\n")
    return path


@pytest.fixture(scope="module")
def certificate(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Gives a certificate of localhost, with its key."""
    folder = tmp_path_factory.mktemp("certificate")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj",
                    "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout", "key",
                    "-out", "certificate"], cwd=folder, check=True, capture_output=True)
    both = folder / "both.pem"
    both.write_text((folder / "certificate").read_text() + (folder / "key").read_text())
    return both


def start(folder: Path, *words: str) -> tuple[subprocess.Popen[str], str]:
    """Starts the command; returns it and the address of the page."""
    tool = [word for each in FAKE_TOOL for word in ("--tool", each)]
    process = subprocess.Popen(
        [Path(sys.executable).with_name("qnrescue-bench"), "screen", "--folder", folder, "--port",
         "0", *tool, *words], stdout=subprocess.PIPE, text=True)
    assert process.stdout
    return process, process.stdout.readline().strip()


def stop(process: subprocess.Popen[str]) -> int:
    """Ends the command as Control-C does; returns its exit status."""
    process.send_signal(signal.SIGINT)
    process.communicate(timeout=60)
    return process.returncode


def test_serves_the_page_until_it_is_stopped(tmp_path: Path) -> None:
    process, address = start(tmp_path)
    try:
        with urllib.request.urlopen(address) as page:
            assert b"<!doctype html>" in page.read()
        with urllib.request.urlopen(address + "events") as events:
            assert events.readline() == b"event: state\n"
            value = json.loads(events.readline().removeprefix(b"data: "))
            assert value["read_only"] is False
            assert stop(process) == ExitStatus.DONE, "a viewer does not keep it"
    finally:
        process.kill()
        process.communicate()


def state_of(address: str) -> dict[str, Any]:
    """Returns what a page is sent first."""
    with urllib.request.urlopen(address + "events") as events:
        for line in events:
            if line.startswith(b"data: ") and b'"may_erase"' in line:
                value: dict[str, Any] = json.loads(line.removeprefix(b"data: "))
                return value
    raise AssertionError("it ended")


@pytest.mark.parametrize("words", [[], ["--read-only", "--allow-erase"]])
def test_what_can_be_ordered(tmp_path: Path, words: list[str]) -> None:
    bundles = tmp_path / "others"
    bundles.mkdir()
    (bundles / "a.ipsw").touch()
    process, address = start(tmp_path, "--bundles", str(bundles), *words)
    try:
        state = state_of(address)
        while not state["stations"][0]["head"]["bundles"]:
            state = state_of(address)
        head = state["stations"][0]["head"]
        assert (head["bundles"], head["may_erase"]) == (["a.ipsw"], bool(words))
        with urllib.request.urlopen(address + "events") as events:
            events.readline()
            token = json.loads(events.readline().removeprefix(b"data: "))["token"]
        order = {"station": "x", "id": "job-1"}
        request = urllib.request.Request(
            address + "cancel", json.dumps(order).encode(),
            {"Content-Type": "application/json", "Origin": address.rstrip("/"),
             "X-QNRescue-Token": token})
        with pytest.raises(urllib.error.HTTPError) as refused:
            urllib.request.urlopen(request)
        assert refused.value.code == (403 if words else 404)
        refused.value.close()
    finally:
        stop(process)


def test_serves_beyond_this_machine_with_tls_and_a_password(
        tmp_path: Path, certificate: Path, secret: Path) -> None:
    process, address = start(tmp_path, "--listen", "0.0.0.0", "--certificate", str(certificate),
                             "--password-file", str(secret), "--name", "localhost", "--read-only")
    try:
        assert address.startswith("https://0.0.0.0:")
        address = address.replace("0.0.0.0", "localhost")
        tls = ssl.create_default_context(cafile=str(certificate))
        with pytest.raises(urllib.error.HTTPError, match="401") as refused:
            urllib.request.urlopen(address, context=tls)
        assert refused.value.headers["WWW-Authenticate"].startswith("Basic")
        refused.value.close()
        word = base64.b64encode(f"somebody:{PASSWORD}".encode()).decode()
        request = urllib.request.Request(address, headers={"Authorization": f"Basic {word}"})
        with urllib.request.urlopen(request, context=tls) as page:
            assert page.status == 200
    finally:
        stop(process)


@pytest.mark.parametrize("words", [
    ["--listen", "0.0.0.0"], ["--listen", "::"], ["--listen", "192.0.2.1"],
    ["--listen", "bench.example", "--password-file", "p"],
    ["--listen", "0.0.0.0", "--certificate", "c"], ["--key", "k"]])
def test_refuses_to_be_open(words: list[str], capsys: pytest.CaptureFixture[str]) -> None:
    with pytest.raises(SystemExit) as end:
        main(["screen", *words])
    assert end.value.code == ExitStatus.USAGE
    assert " needs --" in capsys.readouterr().err.replace("\n", " ")


def test_a_password_that_others_may_read_is_refused(
        tmp_path: Path, secret: Path, capsys: pytest.CaptureFixture[str]) -> None:
    words = ["screen", "--folder", str(tmp_path), "--password-file", str(secret),
             "--certificate", str(tmp_path / "missing")]  # so that nothing is served in any case
    if os.name == "posix":
        secret.chmod(0o640)
        assert main(words) == ExitStatus.BENCH
        assert "others may use" in capsys.readouterr().err
        secret.chmod(0o600)
    secret.write_text("short")
    assert main(words) == ExitStatus.BENCH
    assert "shorter than 12" in capsys.readouterr().err
    secret.unlink()
    assert main(words) == ExitStatus.BENCH
    assert "No such file" in capsys.readouterr().err


def test_says_why_it_cannot_serve(tmp_path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    (tmp_path / "rubbish").write_text("rubbish")
    assert main(["screen", "--folder", str(tmp_path), "--certificate",
                 str(tmp_path / "rubbish")]) == ExitStatus.BENCH
    assert "certificate" in capsys.readouterr().err
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        assert main(["screen", "--folder", str(tmp_path), "--port",
                     str(taken.getsockname()[1])]) == ExitStatus.BENCH
    assert "cannot be served" in capsys.readouterr().err
