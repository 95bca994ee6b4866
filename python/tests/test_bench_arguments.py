from __future__ import annotations

import argparse
from pathlib import Path

import pytest

from qnrescue.bench import cli
from qnrescue.bench.arguments import count, ecid, existing_path, seconds, silence, whole_seconds
from qnrescue.bench.exit_status import ExitStatus

ECID = "001E2D4C0A91C026"


@pytest.mark.parametrize("kind, text, value", [
    (count, "0", 0), (count, "12", 12), (whole_seconds, "1", 1), (seconds, "0", 0.0),
    (seconds, "2.5", 2.5), (silence, "0.5", 0.5), (ecid, ECID.lower(), ECID)])
def test_values(kind, text, value) -> None:
    assert kind(text) == value


@pytest.mark.parametrize("kind, texts, fault", [
    (count, ["-1", "1.5", "x", ""], "not a whole number, 0 or more: "),
    (whole_seconds, ["0", "-1", "1.5", "x", ""], "not a whole number, 1 or more: "),
    (seconds, ["-1", "nan", "inf", "x", ""], "not a number of seconds: "),
    (silence, ["0"], "a device always reports nothing for a while"),
    (silence, ["-1", "nan"], "not a number of seconds: "),
    (ecid, ["12", ECID + "0", ""], "not an ECID, which has 16 hexadecimal digits: "),
    (existing_path, ["nowhere", ""], "there is no ")])
def test_other_texts(kind, texts, fault) -> None:
    for text in texts:
        with pytest.raises(argparse.ArgumentTypeError, match=fault):
            kind(text)


def test_a_path_becomes_absolute(tmp_path: Path, monkeypatch) -> None:
    (tmp_path / "x").touch()
    monkeypatch.chdir(tmp_path)
    assert existing_path("x") == str(tmp_path / "x")


@pytest.mark.parametrize("words", [
    ["list", "--detect-timeout", "0"], ["history", "--limit", "-1"], ["watch", "--away", "-1"],
    ["watch", "--rest", "nan"], ["watch", "--restore", __file__, "--at-once", "-1"],
    ["watch", "--restore", __file__, "--retry", "-1"], ["watch", "--plist"],
    ["watch", "--restore", __file__, "--plist", "--erase"],
    ["restore", __file__, ECID, "--restore-timeout", "0"],
    ["restore", __file__, ECID, "--silence-timeout", "0"], ["restore", "nowhere", ECID],
    ["info", "12"], ["history", "12"]])
def test_commands_refuse_them(tmp_path: Path, words) -> None:
    with pytest.raises(SystemExit) as ended:
        cli.main([*words, "--folder", str(tmp_path / "bench")])
    assert ended.value.code == ExitStatus.USAGE
    assert not (tmp_path / "bench").exists()
