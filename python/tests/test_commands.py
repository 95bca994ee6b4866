from __future__ import annotations

import pytest

from plists import ECID
from qnrescue import commands


def test_listing() -> None:
    assert commands.list_devices() == ["--list-devices"]
    assert commands.list_devices(detect_timeout=0) == ["--list-devices", "--detect-timeout", "0"]


@pytest.mark.parametrize("command, switch", [(commands.device_info, "--device-info"),
                                             (commands.exit_recovery, "--exit-recovery"),
                                             (commands.no_exit_recovery, "--no-exit-recovery")])
def test_commands_for_a_device(command, switch) -> None:
    assert command(ECID.lower()) == [switch, "--ecid", ECID]
    assert command(ECID, detect_timeout=9) == [switch, "--ecid", ECID, "--detect-timeout", "9"]


def test_restore() -> None:
    assert commands.restore(ECID, "a b.ipsw") == ["--restore", "a b.ipsw", "--ecid", ECID]
    assert commands.restore(ECID, "b", erase=True, enter_restore_mode=True, restore_timeout=60,
                            detect_timeout=5, log_file="x.log") == [
        "--restore", "b", "--ecid", ECID, "--detect-timeout", "5", "--erase",
        "--enter-restore-mode", "--restore-timeout", "60", "--amr-logfile", "x.log"]


def test_restore_plist() -> None:
    assert commands.restore_plist(ECID, "o.plist") == ["--restore-plist", "o.plist", "--ecid", ECID]
    assert commands.restore_plist(ECID, "o.plist", enter_restore_mode=True, detect_timeout=5,
                                  log_file="x.log") == [
        "--restore-plist", "o.plist", "--ecid", ECID, "--detect-timeout", "5",
        "--enter-restore-mode", "--amr-logfile", "x.log"]


@pytest.mark.parametrize("text", ["", "1E2D", "0" * 15, "0" * 17, "00000000000000G0", "--help",
                                  "0x1E2D4C0A91C026", "٠" * 16])
def test_what_is_not_an_ecid(text: str) -> None:
    with pytest.raises(ValueError, match="16 hexadecimal digits"):
        commands.device_info(text)
