"""The examples for the roll-out: the playbook, the settings that it writes, and the units."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

from qnrescue.bench.cli import make_parser
from qnrescue.fleet.settings import Broker, Settings, read_settings

pytestmark = pytest.mark.full

EXAMPLES = Path(__file__).parents[2] / "examples" / "fleet"
SYNTAX = ["ansible-playbook", "--syntax-check", "--inventory", "inventory.yml", "site.yml"]
LINT = ["ansible-lint", "--offline", "--strict", "--profile", "production", "site.yml"]


def run(folder: Path, *words: str) -> subprocess.CompletedProcess[str]:
    """Runs a program that writes only below the folder."""
    environment = {**os.environ, "ANSIBLE_LOCAL_TEMP": str(folder / ".tmp"), "LC_ALL": "C.UTF-8",
                   "HOME": str(folder / ".home")}
    environment.pop("VIRTUAL_ENV", None)
    return subprocess.run(words, cwd=folder, env=environment, text=True, timeout=500,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


@pytest.fixture
def examples(tmp_path: Path) -> Path:
    """Gives a copy of the folder."""
    return Path(shutil.copytree(EXAMPLES, tmp_path / "fleet"))


@pytest.mark.parametrize("words", [SYNTAX, LINT], ids=["syntax", "lint"])
def test_the_playbook(examples: Path, words: list[str]) -> None:
    done = run(examples, *words)
    assert done.returncode == 0, done.stdout
    playbook = examples / "site.yml"
    playbook.write_text(playbook.read_text().replace("win_file:", "win_fil:"))
    assert run(examples, *words).returncode != 0


@pytest.mark.parametrize("allow_erase", [None, True])
def test_the_settings_of_the_playbook(examples: Path, allow_erase: bool | None) -> None:
    variables = {"inventory_hostname_short": "bench-07", "qnrescue_password": 'a"\\\u00e4',
                 "qnrescue_broker": "mqtts://broker.example:8883"}
    if allow_erase is not None:
        variables["qnrescue_allow_erase"] = "true"
    words = [f"--extra-vars={name}='{value}'" if "\\" not in value else
             '--extra-vars={"qnrescue_password": "a\\"\\\\\u00e4"}'
             for name, value in variables.items()]
    target = examples / "fleet.toml"
    done = run(examples, "ansible", "localhost", "--connection=local", "--module-name=template",
               f"--args=src=fleet.toml.j2 dest={target} mode=0600", *words)
    assert done.returncode == 0, done.stdout
    assert read_settings(target) == Settings(
        "bench-07", Broker("broker.example", 8883, True), examples / "bundles", "bench-07",
        'a"\\\u00e4', examples / "ca.pem", allow_erase=bool(allow_erase))


@pytest.mark.parametrize("name, action", [("qnrescue-fleet", "serve"),
                                          ("qnrescue-supervisor", "supervise")])
def test_the_units(examples: Path, name: str, action: str) -> None:
    for unit in examples.glob("*.service"):
        text = unit.read_text()
        (start,) = re.findall("^ExecStart=(.*)$", text, re.MULTILINE)
        if unit.stem == name:
            assert make_parser().parse_args(start.split()[1:]).action == action
        unit.write_text(text.replace(start.split()[0], "/bin/true"))
    unit = examples / f"{name}.service"
    done = run(examples, "systemd-analyze", "verify", str(unit))
    assert (done.returncode, done.stdout) == (0, "")
    unit.write_text(unit.read_text().replace("KillMode", "KilMode"))
    assert "KilMode" in run(examples, "systemd-analyze", "verify", str(unit)).stdout
