from __future__ import annotations

import os
from pathlib import Path

import pytest

from qnrescue.fleet.private_file import check_private, sddl_is_open
from qnrescue.fleet.settings import Broker, Settings, SettingsFault, parse_broker, read_settings

LEAST = 'station = "bench-07"\nbundles = "bundles"\nbroker = "mqtts://broker.example"\n'


def write(folder: Path, text: str, mode: int = 0o600) -> Path:
    path = folder / "fleet.toml"
    path.write_text(text, "utf-8")
    path.chmod(mode)
    return path


def test_the_least(tmp_path: Path) -> None:
    assert read_settings(write(tmp_path, LEAST)) == Settings(
        "bench-07", Broker("broker.example", 8883, True), tmp_path / "bundles")


def test_everything(tmp_path: Path) -> None:
    key = tmp_path / "station.key"
    key.touch(0o600)
    settings = read_settings(write(tmp_path, LEAST + """
user = "bench-07"
password = "secret"
ca = "ca.pem"
certificate = "/etc/station.pem"
key = "station.key"
allow_erase = true
job_days = 3
longest_validity_hours = 2
"""), broker="mqtts://other.example:1")
    assert settings == Settings(
        "bench-07", Broker("other.example", 1, True), tmp_path / "bundles", "bench-07", "secret",
        tmp_path / "ca.pem", Path("/etc/station.pem"), key, True, 3, 7200.0)


@pytest.mark.parametrize("text, why", [
    ("", "station is missing"),
    ('station = "a"', "broker is missing"),
    (LEAST + "allow_ersae = true", "allow_ersae is not known"),
    (LEAST + "allow_erase = 1", "allow_erase is not of the type bool"),
    (LEAST + "job_days = true", "job_days is not of the type int"),
    (LEAST + "job_days = 0", "out of range"),
    (LEAST + "longest_validity_hours = 169", "out of range"),
    (LEAST + "longest_validity_hours = 0", "out of range"),
    (LEAST + 'key = "a"', "belong together"),
    (LEAST + 'certificate = "a"', "belong together"),
    (LEAST.replace("bench-07", "a/b"), "not a name of a station"),
    (LEAST.replace("bench-07", "+"), "not a name of a station"),
    (LEAST.replace("bench-07", "a.b"), "not a name of a station"),
    (LEAST.replace("bench-07", "a" * 65), "not a name of a station"),
    (LEAST.replace("mqtts:", "mqtt:"), "not encrypted"),
    ("station =", "Invalid value"),
])
def test_what_is_refused(tmp_path: Path, text: str, why: str) -> None:
    with pytest.raises(SettingsFault, match=why) as caught:
        read_settings(write(tmp_path, text))
    assert str(tmp_path / "fleet.toml") in str(caught.value)


def test_a_file_that_is_missing(tmp_path: Path) -> None:
    with pytest.raises(SettingsFault, match="No such file"):
        read_settings(tmp_path / "fleet.toml")


@pytest.mark.parametrize("mode", [0o640, 0o604, 0o620, 0o601, 0o666])
def test_settings_that_others_may_use(tmp_path: Path, mode: int) -> None:
    with pytest.raises(SettingsFault, match="others may use this file"):
        read_settings(write(tmp_path, LEAST, mode))


def test_a_key_that_others_may_use(tmp_path: Path) -> None:
    (tmp_path / "a.key").touch(0o644)
    (tmp_path / "a.key").chmod(0o644)
    with pytest.raises(SettingsFault, match="a.key: others may use this file"):
        read_settings(write(tmp_path, LEAST + 'certificate = "a.pem"\nkey = "a.key"'))


def test_settings_of_another_user(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    path = write(tmp_path, LEAST)
    owner = path.stat().st_uid
    if owner == 0:
        os.chown(path, 12345, -1)
    else:
        monkeypatch.setattr(os, "getuid", lambda: owner + 1)
    with pytest.raises(PermissionError):
        check_private(path)


@pytest.mark.parametrize("sddl, is_open", [
    ("D:PAI(A;;FA;;;SY)(A;;FA;;;BA)", False),
    ("D:AI(A;ID;FA;;;SY)(A;ID;FA;;;BA)(A;ID;FA;;;S-1-5-21-1-2-3-1001)", False),
    ("D:AI(A;ID;FA;;;SY)(A;ID;0x1200a9;;;BU)", True),
    ("D:(A;;FR;;;WD)", True),
    ("D:(A;;0x1301bf;;;AU)", True),
    ("D:(A;;FR;;;S-1-5-32-545)", True),
    ("D:(D;;FR;;;BU)(A;;FA;;;BA)", False),
    ("D:NO_ACCESS_CONTROL", True),
    ("", True),
    ("D:P", False),
])
def test_access_lists_of_windows(sddl: str, is_open: bool) -> None:
    assert sddl_is_open(sddl) is is_open


@pytest.mark.parametrize("address, broker", [
    ("mqtts://broker.example", Broker("broker.example", 8883, True)),
    ("mqtts://[2001:db8::1]:1/", Broker("2001:db8::1", 1, True)),
    ("mqtt://127.0.0.1", Broker("127.0.0.1", 1883, False)),
    ("mqtt://localhost:9", Broker("localhost", 9, False)),
    ("mqtt://[::1]:9", Broker("::1", 9, False)),
])
def test_addresses(address: str, broker: Broker) -> None:
    assert parse_broker(address) == broker


@pytest.mark.parametrize("address", [
    "", "broker.example", "https://broker.example", "mqtts://", "mqtts://a:b@broker.example",
    "mqtts://:b@broker.example",
    "mqtts://broker.example/topic", "mqtts://broker.example?verify=no", "mqtt://192.168.1.2",
    "mqtt://127.0.0.1.example.com", "mqtts://broker.example:99999", "mqtts://broker.example:x"])
def test_what_is_no_address(address: str) -> None:
    with pytest.raises(ValueError):
        parse_broker(address)
