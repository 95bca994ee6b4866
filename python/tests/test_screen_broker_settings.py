"""How the screen gets to its broker."""

from __future__ import annotations

from pathlib import Path

import pytest

from qnrescue.fleet.settings import Broker, SettingsFault
from qnrescue.screen.broker_settings import BrokerAccess, read_access


def settings(folder: Path, text: str) -> Path:
    """Returns a file with the settings."""
    path = folder / "screen.toml"
    path.touch(0o600)
    path.write_text(text)
    return path


def test_reads_the_settings(tmp_path: Path) -> None:
    path = settings(tmp_path, 'broker = "mqtts://broker.example"\nuser = "screen"\npassword = "p"\n'
                              'ca = "ca.pem"\n')
    assert read_access(path) == BrokerAccess(Broker("broker.example", 8883, True), "screen", "p",
                                             tmp_path / "ca.pem")
    assert read_access(path, "mqtt://127.0.0.1:1").broker == Broker("127.0.0.1", 1, False)


def test_a_broker_that_is_named_needs_no_file(tmp_path: Path) -> None:
    assert read_access(tmp_path / "missing", "mqtt://localhost").broker.port == 1883


@pytest.mark.parametrize("text", ["", "rubbish", 'broker = "mqtt://broker.example"', "broker = 7",
                                  'broker = "mqtts://b"\nother = "x"',
                                  'broker = "mqtts://b"\nkey = "k"'])
def test_refuses_settings_that_are_none(tmp_path: Path, text: str) -> None:
    with pytest.raises(SettingsFault):
        read_access(settings(tmp_path, text))


def test_refuses_a_key_that_others_may_read(tmp_path: Path) -> None:
    path = settings(tmp_path, 'broker = "mqtts://b"\ncertificate = "c.pem"\nkey = "k.pem"')
    key = tmp_path / "k.pem"
    key.touch(0o640)
    with pytest.raises(SettingsFault, match="others"):
        read_access(path)
    key.chmod(0o600)
    assert read_access(path).key == key


def test_refuses_settings_that_others_may_read(tmp_path: Path) -> None:
    path = settings(tmp_path, 'broker = "mqtts://b"')
    path.chmod(0o644)
    with pytest.raises(SettingsFault, match="others"):
        read_access(path)
    with pytest.raises(SettingsFault):
        read_access(tmp_path / "missing")
