"""The machine that the measurements ran on, in a sentence."""

import os
import pathlib
import platform
import shutil
import subprocess


def field(path, key, separator):
    """What a file of lines KEY SEPARATOR VALUE says of the key; nothing where it says nothing."""
    if not pathlib.Path(path).exists():
        return None
    for line in pathlib.Path(path).read_text().splitlines():
        name, found, value = line.partition(separator)
        if found and name.strip() == key:
            return value.strip().strip('"')
    return None


def memory():
    size = field("/proc/meminfo", "MemTotal", ":")
    return f", {int(size.split()[0]) / 1024 / 1024:.0f} GiB of memory" if size else ""


def wine():
    if not shutil.which("wine"):
        return ""
    version = subprocess.run(["wine", "--version"], capture_output=True, text=True, check=False)
    return f", {version.stdout.strip()}"


def load():
    return f"; load average at the beginning {os.getloadavg()[0]:.2f}" if os.name == "posix" else ""


def description():
    processor = field("/proc/cpuinfo", "model name", ":") or platform.processor()
    system = field("/etc/os-release", "PRETTY_NAME", "=") or platform.platform()
    return f"{os.cpu_count()} × {processor}{memory()}, {system}{wine()}{load()}."
