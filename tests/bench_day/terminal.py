"""A terminal in which the operator watches the bench."""

from __future__ import annotations

import os
import pty
import signal
import subprocess
import threading
import time

from machine_of_tests import BENCH_PROGRAM, Machine


class Terminal:
    """The command watch in a terminal."""

    def __init__(self, machine: Machine, *words: str) -> None:
        self._master, slave = pty.openpty()
        self.process = subprocess.Popen(
            ["setsid", "--ctty", "env", "--default-signal", BENCH_PROGRAM, "watch", *words],
            env=machine.environment, stdin=slave, stdout=slave, stderr=slave, cwd=machine.folder)
        os.close(slave)
        self.shown = b""
        threading.Thread(target=self._drain, args=(os.dup(self._master),), daemon=True).start()

    def _drain(self, master: int) -> None:
        try:
            while chunk := os.read(master, 65536):
                self.shown = (self.shown + chunk)[-20000:]
        except OSError:
            pass
        finally:
            os.close(master)

    def type_control_c(self) -> None:
        """Presses Control-C, which somebody can do who sees something."""
        limit = time.monotonic() + 20
        while not self.shown and time.monotonic() < limit:
            time.sleep(0.05)
        os.write(self._master, b"\x03")

    def kill(self) -> None:
        """Ends the command with no chance to do anything."""
        self.process.kill()

    def hang_up(self) -> None:
        """Does what a terminal does that closes."""
        while os.getpgid(self.process.pid) != self.process.pid:  # setsid has not run yet
            time.sleep(0.01)
        os.killpg(self.process.pid, signal.SIGHUP)

    def wait(self, seconds: float = 20.0) -> None:
        """Waits for the end of the command and closes the terminal."""
        limit = time.monotonic() + seconds
        while self.process.poll() is None and time.monotonic() < limit:
            time.sleep(0.05)
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGABRT)  # shows where it is
            self.process.wait()
            time.sleep(0.5)
            shown = self.shown[-4000:].decode("utf-8", "replace")
            raise AssertionError(f"the command does not end; it showed {shown}")
        os.close(self._master)
