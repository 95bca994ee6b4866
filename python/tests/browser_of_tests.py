"""A browser without a window, and a screen in the background that it shows."""

from __future__ import annotations

import asyncio
import threading
import time
from collections.abc import Callable
from pathlib import Path
from typing import Any

from aiohttp import web

from bench_of_tests import TIME_LIMIT
from qnrescue.screen.guard import Guard
from qnrescue.screen.server import ScreenServer
from screen_of_tests import MadeUp

AXE = Path(__file__).parents[2] / "build" / "node" / "node_modules" / "axe-core" / "axe.min.js"


def new_browser() -> Any:
    """Returns a driver of Chromium. scripts/test --all installs both."""
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service

    options = webdriver.ChromeOptions()
    for word in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                 "--window-size=1920,1080", "--lang=en-GB"):
        options.add_argument(word)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class BackgroundScreen:
    """A screen that is served in a thread, and can be stopped and started again."""

    def __init__(self, source: MadeUp, **how: Any) -> None:
        """`how` is for the guard."""
        self.source = source
        self._how = how
        self._port = 0
        self.start()

    @property
    def address(self) -> str:
        """Returns the address of the page."""
        return f"http://127.0.0.1:{self._port}/"

    def start(self) -> None:
        """Serves the page."""
        started = threading.Event()
        self._thread = threading.Thread(target=lambda: asyncio.run(self._serve(started)))
        self._thread.start()
        assert started.wait(TIME_LIMIT)

    async def _serve(self, started: threading.Event) -> None:
        self._loop = asyncio.get_running_loop()
        self._stopped = asyncio.Event()
        guard = Guard([], **self._how)
        runner = web.AppRunner(ScreenServer(self.source, guard).app(), access_log=None)
        await runner.setup()
        await web.TCPSite(runner, "127.0.0.1", self._port).start()
        self._port = runner.addresses[0][1]
        started.set()
        await self._stopped.wait()
        await runner.cleanup()

    def stop(self) -> None:
        """Ends the server."""
        self._loop.call_soon_threadsafe(self._stopped.set)
        self._thread.join(TIME_LIMIT)
        assert not self._thread.is_alive()

    def change(self, act: Callable[[Any], None]) -> None:
        """Lets the source change the board."""
        done = threading.Event()

        def change() -> None:
            act(self.source.board)
            done.set()

        self._loop.call_soon_threadsafe(change)
        assert done.wait(TIME_LIMIT)


class Page:
    """The page as a user sees it."""

    def __init__(self, driver: Any) -> None:
        self.driver = driver

    def open(self, address: str) -> None:
        """Opens the address anew."""
        self.driver.get("about:blank")
        self.driver.get(address)

    def run(self, script: str, *values: object) -> Any:
        """Returns what the script returns."""
        return self.driver.execute_script(script, *values)

    def until(self, script: str, *values: object) -> Any:
        """Waits until the expression is true and returns its value."""
        limit = time.monotonic() + TIME_LIMIT
        while not (value := self.run(f"return {script}", *values)):
            assert time.monotonic() < limit, f"{script}\n{self.text('body')}"
            time.sleep(0.05)
        return value

    def text(self, selector: str) -> str:
        """Returns the text of the first element; empty if there is none."""
        return str(self.run("return document.querySelector(arguments[0])?.innerText ?? ''",
                            selector))

    def tiles(self) -> list[str]:
        """Returns the text of the tiles that are shown."""
        return list(self.run("return [...document.querySelectorAll('.tiles li:not([hidden])')]"
                             ".map((each) => each.innerText)"))

    def press(self, *keys: str) -> None:
        """Presses keys, whatever has the focus."""
        from selenium.webdriver.common.action_chains import ActionChains

        ActionChains(self.driver).send_keys(*keys).perform()

    def set_media(self, **features: str) -> None:
        """Sets what the page is told of the user's wishes, as prefers-color-scheme."""
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": name.replace("_", "-"), "value": value}
            for name, value in features.items()]})

    def findings(self) -> list[str]:
        """Returns what axe-core finds."""
        assert AXE.is_file(), "scripts/node-modules installs it"
        self.run(AXE.read_text(encoding="utf-8"))
        found = self.driver.execute_async_script(
            "axe.run(document).then(({violations}) => arguments[0](violations.map((each) =>"
            " `${each.id}: ${each.help}: ${each.nodes.map((node) => node.html).join(' ')}`)))")
        return list(found)

    def complaints(self) -> list[str]:
        """Returns what the browser has written to its console since the last time, but for
        connections to a server that was stopped."""
        return [each["message"] for each in self.driver.get_log("browser")
                if "net::ERR_" not in each["message"]]
