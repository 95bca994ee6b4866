"""The page of the screen in a browser."""

from __future__ import annotations

import os
import time
from collections.abc import Iterator
from dataclasses import replace
from pathlib import Path
from typing import Any

import pytest

from browser_of_tests import BackgroundScreen, Page, new_browser
from qnrescue.jobs import JobState
from qnrescue.screen.board import Device, Station
from qnrescue.screen.source import Answer, Papers
from qnrescue.steps_file import Step
from screen_of_tests import ECID, HOSTILE, MadeUp, job

pytestmark = pytest.mark.full

# Where the pictures go that the documentation shows; empty: nowhere.
PICTURES = os.environ.get("QNRESCUE_PICTURES", "")
RUNNING = f"000A35D83C6080{0x30:02X}"


@pytest.fixture(scope="module")
def driver() -> Iterator[object]:
    """Gives a browser."""
    driver = new_browser()
    yield driver
    driver.quit()  # type: ignore[attr-defined]


@pytest.fixture
def page(driver: object) -> Iterator[Page]:
    """Gives the page of the browser, and checks that it has not complained."""
    page = Page(driver)
    page.set_media()
    yield page
    page.run("localStorage.clear()")
    assert page.complaints() == []
    page.open("about:blank")


@pytest.fixture
def source() -> MadeUp:
    """Gives two stations, one of them offline, with jobs in every state."""
    source = MadeUp(
        Station("north", slots=tuple(f"left {number}" for number in range(1, 11)),
                bundles=("iPhone_17.4.ipsw", "iPad_17.4.ipsw"), may_erase=True),
        Station("south", online=False, heard=time.time() - 300, slots=("1", "2")))
    states = [state for state in JobState]
    source.devices = [Device(ECID, "left 10", "F17XK1", "iPhone")]
    for number, state in enumerate(states):
        device = f"000A35D83C6080{0x30 + number:02X}"
        slot = f"left {number + 1}"
        if number != 3:
            source.devices.append(Device(device, slot, f"C39-{number}"))
        reason = "Timeout waiting for NAND" if state is JobState.FAILED else ""
        step = "" if state is JobState.QUEUED else "Sending ramdisk to device"
        source.jobs.append(job(f"job-{number}", state, device=device, slot=slot, reason=reason,
                               step=step, progress=100 if number == 2 else 10 * number))
    source.kept = Papers(
        (Step("Booting", 0.0), Step("Sending ramdisk to device", 12.0), Step("Flashing", 40.0)),
        ({"Type": "RestoreStatus", "Value": {"Status": "Restoring", "Progress": 9}},))
    now = time.time()
    source.jobs = [replace(each, ordered_at=now - 95, started_at=each.started_at and now - 90,
                           ended_at=each.ended_at and now, seconds=each.seconds and 90.0)
                   for each in source.jobs]
    return source


@pytest.fixture
def screen(source: MadeUp) -> Iterator[BackgroundScreen]:
    """Gives a screen of these stations."""
    screen = BackgroundScreen(source)
    yield screen
    screen.stop()


def open_wall(page: Page, screen: BackgroundScreen, query: str = "") -> None:
    """Opens the wall and waits for its tiles."""
    page.open(screen.address + query)
    page.until("document.querySelectorAll('.tile .state:not(:empty)').length > 0")


def take_picture(page: Page, name: str) -> None:
    """Keeps a picture of what the browser shows."""
    if PICTURES:
        page.driver.save_screenshot(str(Path(PICTURES) / f"{name}.png"))


def test_every_state_has_its_word(page: Page, screen: BackgroundScreen, source: MadeUp) -> None:
    open_wall(page, screen)
    shown = "\n".join(page.tiles())
    assert all(state.value in shown for state in JobState)
    assert "attached" in shown and "Timeout waiting for NAND" in shown
    assert "C39-2" in shown
    take_picture(page, "screen")


def test_a_new_report_is_shown(page: Page, screen: BackgroundScreen) -> None:
    open_wall(page, screen)
    for progress in (55, 56):
        screen.change(lambda board: board.set_job("north", job(
            "job-1", device=RUNNING.replace("30", "31"), slot="left 2", step="Flashing",
            progress=progress)))
        page.until("document.body.innerText.includes(arguments[0])", f"running {progress}%")
        bar, done = page.run(
            "return [...document.querySelectorAll('.tile')[1].querySelectorAll('.bar, .done')]"
            ".map((each) => each.getBoundingClientRect().width)")
        assert abs(done / bar - progress / 100) < 0.02


def test_an_offline_station_has_the_time_of_its_last_word(
        page: Page, screen: BackgroundScreen) -> None:
    open_wall(page, screen)
    assert "offline; last word:" in page.text("section.offline .status")
    screen.change(lambda board: board.set_station(Station("south", slots=("1", "2"))))
    page.until("!document.querySelector('section.offline')")


def test_finds_by_ecid_serial_number_and_state(page: Page, screen: BackgroundScreen) -> None:
    open_wall(page, screen)
    page.press("/", ECID.lower())
    (tile,) = page.tiles()
    assert "F17XK1" in tile
    page.press("\ue00c")  # Escape
    assert len(page.tiles()) == 12
    page.press("c39-4")
    assert len(page.tiles()) == 1
    page.press("\ue00c")
    page.run("const filter = document.getElementById('filter'); filter.value = 'trouble';"
             " filter.dispatchEvent(new Event('change'));")
    assert len(page.tiles()) == 6
    assert "6 of 12 shown" in page.text("#summary")


def test_text_of_a_device_is_never_html(page: Page, source: MadeUp) -> None:
    source.devices = [Device(ECID, HOSTILE, HOSTILE, HOSTILE)]
    source.stations = (Station(HOSTILE, slots=(HOSTILE,), bundles=(HOSTILE,), note=HOSTILE),)
    source.jobs = [replace(job(state=JobState.FAILED, slot=HOSTILE, reason=HOSTILE,
                               asked_by=HOSTILE), ended_at=time.time())]
    source.kept = Papers((Step(HOSTILE, 0.0),), ({"Type": HOSTILE, "Value": HOSTILE},))
    screen = BackgroundScreen(source)
    try:
        open_wall(page, screen)
        assert HOSTILE in page.text(".tile")
        page.run("document.querySelector('.tile').click()")
        page.until("document.querySelectorAll('.steps li').length && document.body.innerText"
                   ".includes(arguments[0])", HOSTILE)
        assert HOSTILE in page.text("summary")
        assert page.run("return document.querySelectorAll('main img').length") == 0
        assert page.run("return document.title") == "QNRescue"
    finally:
        screen.stop()


def test_the_policy_lets_nothing_be_html(page: Page, screen: BackgroundScreen) -> None:
    open_wall(page, screen)
    with pytest.raises(Exception, match="TrustedHTML"):
        page.run("document.getElementById('wall').innerHTML = '<b>text</b>'")
    page.complaints()


def test_a_job_has_its_time_line_and_documents(page: Page, screen: BackgroundScreen) -> None:
    page.open(screen.address + "#/job/north/job-3")
    page.until("document.querySelectorAll('.steps li').length === 3")
    names = page.run("return [...document.querySelectorAll('.steps .name')]"
                     ".map((each) => each.innerText)")
    assert names == ["Booting", "Sending ramdisk to device", "Flashing"]
    widths = page.run("return [...document.querySelectorAll('.steps .length')]"
                      ".map((each) => each.getBoundingClientRect().width)")
    assert widths[1] > 2 * widths[0] > 0, "28 seconds after 12"
    assert "RestoreStatus" in page.text("summary")
    assert "Timeout waiting for NAND" in page.text("dl")
    assert not page.run("return document.querySelector('#details button').checkVisibility()")


def test_a_running_job_is_cancelled_after_a_question(
        page: Page, screen: BackgroundScreen, source: MadeUp) -> None:
    page.open(screen.address + "#/job/north/job-1")
    page.until("document.querySelector('#details button')?.checkVisibility()")
    take_picture(page, "screen-job")
    page.run("document.querySelector('#details button').focus()")
    page.press("\ue007")  # Enter
    page.until("document.getElementById('question').open")
    page.press("\ue00c")
    page.until("!document.getElementById('question').open")
    assert source.cancelled == []
    page.press("\ue007")
    page.until("document.getElementById('question').open")
    page.press("\ue004", "\ue007")  # Tab to "Yes", Enter
    page.until("document.querySelector('#details .state').innerText === 'cancelled'")
    assert source.cancelled == ["job-1"]


def test_orders_a_restore_with_the_keyboard_alone(
        page: Page, screen: BackgroundScreen, source: MadeUp) -> None:
    open_wall(page, screen)
    page.press("/", ECID)
    page.until("document.querySelectorAll('.tiles li:not([hidden])').length === 1")
    for _ in range(10):
        page.press("\ue004")  # Tab
        if page.run("return document.activeElement.classList.contains('tile')"):
            break
    page.press("\ue007")
    page.until("document.querySelector('form select')?.options.length === 2")
    assert page.run("return document.activeElement.localName") == "h2"
    page.press("\ue004")
    page.press("iPad")
    page.press("\ue004", " ")
    page.until("document.querySelector('#details form').innerText.includes('Type erase')")
    assert page.run("return document.querySelector('#details form button').disabled")
    take_picture(page, "screen-order")
    page.press("\ue004", "erase", "\ue004", "\ue007")
    page.until("location.hash.startsWith('#/job/north/')")
    (order,) = source.orders
    assert (order.device, order.bundle, order.erase) == (ECID, "iPad_17.4.ipsw", True)
    page.until("document.querySelector('#details .state')?.innerText === 'queued'")


def test_says_why_an_order_is_refused(
        page: Page, screen: BackgroundScreen, source: MadeUp) -> None:
    source.answer = Answer(False, "the device has a job already: job-7")
    page.open(f"{screen.address}#/device/north/{ECID}")
    page.until("document.querySelector('form select')?.options.length === 2")
    page.run("document.querySelector('#details form button').click()")
    page.until("document.body.innerText.includes('Not ordered: the device has a job already')")
    page.complaints()  # of the status 409


def test_what_was_refused_is_ordered_again_as_another_job(
        page: Page, screen: BackgroundScreen, source: MadeUp) -> None:
    page.open(f"{screen.address}#/device/north/{ECID}")
    page.until("document.querySelector('form select')?.options.length === 2")
    for answer in (Answer(False, "no answer", is_known=False), Answer(False, "a reason"),
                   Answer(True)):
        source.answer = answer
        page.run("document.querySelector('#details form button').click()")
        page.until("location.hash.startsWith('#/job/') || document.querySelector("
                   "'#details [role=alert]').innerText.endsWith(arguments[0])",
                   f": {answer.reason}")
    first, again, last = (order.id for order in source.orders)
    assert first == again != last
    page.complaints()  # of the status 409


def test_the_bundle_stays_chosen(page: Page, screen: BackgroundScreen) -> None:
    page.open(f"{screen.address}#/device/north/{ECID}")
    page.until("document.querySelector('form select')?.options.length === 2")
    page.run("document.querySelector('form select').value = 'iPhone_17.4.ipsw'")
    for bundles, chosen in ((("Apple_TV.ipsw", "iPad_17.4.ipsw", "iPhone_17.4.ipsw"),
                             "iPhone_17.4.ipsw"), (("iPad_17.4.ipsw",), ""), ((), ""),
                            (("iPad_17.4.ipsw", "iPhone_17.4.ipsw"), "")):
        screen.change(lambda board: board.set_station(Station("north", bundles=bundles)))
        page.until(f"document.querySelector('form select').options.length === {len(bundles)}")
        assert page.run("return document.querySelector('form select').value") == chosen
        page.until("document.querySelector('form button').disabled ===" + str(not chosen).lower())


def test_says_why_a_job_is_not_cancelled(
        page: Page, screen: BackgroundScreen, source: MadeUp) -> None:
    source.answer = Answer(False, "the station is asleep")
    page.open(screen.address + "#/job/north/job-1")
    page.until("document.querySelector('#details button')?.checkVisibility()")
    page.run("document.querySelector('#details button').click()")
    page.run("document.querySelector('#question .risky').click()")
    page.until("document.body.innerText.includes('Not cancelled: the station is asleep')")
    source.kept = replace(source.kept, note="It was read again.")
    page.until("document.querySelector('#details').innerText.includes('It was read again.')")
    assert "Not cancelled: the station is asleep" in page.text("#details")
    page.complaints()  # of the status 409


def test_the_way_back_leads_to_the_tile(page: Page, screen: BackgroundScreen) -> None:
    open_wall(page, screen)
    page.run("document.querySelectorAll('a.tile')[2].focus()")
    page.press("\ue007")
    page.until("document.querySelector('#details h2')?.checkVisibility()")
    page.run("history.back()")
    page.until("document.getElementById('wall').checkVisibility()")
    assert page.run("return document.activeElement === document.querySelectorAll('a.tile')[2]")


def test_the_link_to_the_content_stays_on_the_page(page: Page, screen: BackgroundScreen) -> None:
    page.open(screen.address + "#/job/north/job-1")
    page.until("document.querySelector('#details .state')?.innerText.startsWith('running')")
    page.run("document.querySelector('.skip').focus()")
    page.press("\ue007")
    page.until("document.activeElement.id === 'content'")
    assert page.run("return document.querySelector('#details h2').checkVisibility()")


def test_arrow_keys_move_between_the_tiles(page: Page, screen: BackgroundScreen) -> None:
    open_wall(page, screen)
    page.run("document.querySelector('a.tile').focus()")
    focused = "return document.activeElement.querySelector('.slot')?.innerText"
    page.press("\ue014")  # right
    assert page.run(focused) == "left 2"
    page.press("\ue012")  # left
    assert page.run(focused) == "left 1"
    page.press("\ue015")  # down
    columns = page.run("return getComputedStyle(document.querySelector('.tiles'))"
                       ".gridTemplateColumns.split(' ').length")
    assert page.run(focused) == f"left {1 + columns}"
    page.press("\ue013")  # up
    assert page.run(focused) == "left 1"


def test_says_that_it_has_lost_its_server_and_recovers(
        page: Page, source: MadeUp) -> None:
    screen = BackgroundScreen(source)
    open_wall(page, screen)
    screen.stop()
    page.until("document.getElementById('lost').innerText.startsWith('No contact')")
    assert page.run("return document.body.classList.contains('lost')")
    take_picture(page, "screen-lost")
    source.jobs = [replace(each, state=JobState.SUCCEEDED, ended_at=time.time())
                   for each in source.jobs[:2]]
    screen.start()
    try:
        page.until("document.getElementById('lost').hidden")
        page.until("!document.body.innerText.includes('running')")
        page.run("location.hash = arguments[0]", f"#/device/north/{ECID}")
        page.until("document.querySelector('form select')?.options.length === 2")
        page.run("document.querySelector('#details form button').click()")
        page.until("location.hash.startsWith('#/job/north/')")
    finally:
        screen.stop()
    page.complaints()  # of the connections that failed


def test_notices_a_server_that_says_nothing(
        page: Page, screen: BackgroundScreen, monkeypatch: pytest.MonkeyPatch) -> None:
    open_wall(page, screen)
    page.driver.execute_cdp_cmd("Network.enable", {})
    monkeypatch.setattr("qnrescue.screen.server._BEAT_SECONDS", 3600.0)
    page.until("document.getElementById('lost').innerText.startsWith('No contact')")


def test_what_has_gone_while_the_server_was_lost_is_not_shown(
        page: Page, source: MadeUp) -> None:
    source.stations, source.jobs = (Station("north"), Station("south")), []
    screen = BackgroundScreen(source)
    open_wall(page, screen)
    screen.stop()
    source.stations, source.devices = source.stations[:1], []
    screen.start()
    try:
        page.until("document.getElementById('lost').hidden")
        page.until("document.querySelectorAll('.tile').length === 0")
        assert page.run("return document.querySelectorAll('section').length") == 1
    finally:
        screen.stop()
    page.complaints()  # of the connections that failed


def test_read_only_has_no_buttons(page: Page, source: MadeUp) -> None:
    screen = BackgroundScreen(source, read_only=True)
    try:
        page.open(screen.address + "#/job/north/job-1")
        page.until("document.querySelector('#details .state')?.innerText.startsWith('running')")
        visible = "[...document.querySelectorAll('#details button, #details form')]" \
                  ".filter((each) => each.checkVisibility()).length"
        assert page.run(f"return {visible}") == 0
        page.open(f"{screen.address}#/device/north/{ECID}")
        page.until("document.querySelector('#details .state')?.innerText.includes('attached')")
        assert page.run(f"return {visible}") == 0
    finally:
        screen.stop()


def test_the_form_for_a_wall_has_no_links_and_fits(page: Page, screen: BackgroundScreen) -> None:
    open_wall(page, screen, "?wall")
    page.until("document.documentElement.style.fontSize")
    assert page.run("return document.querySelectorAll('main a').length") == 0
    assert not page.run("return document.getElementById('tools').checkVisibility()")
    assert page.run("return document.documentElement.scrollHeight <= innerHeight")
    # Ordinary eyes read letters of five minutes of arc: from three metres, these are 4.4 mm, or 16
    # pixels of a screen with 24 inches and 1920 columns. A capital is 0.7 of its font; half as
    # much again is for comfort.
    size = page.run("return parseFloat(getComputedStyle(document.querySelector('.tile .state'))"
                    ".fontSize)")
    assert 0.7 * size >= 1.5 * 16
    take_picture(page, "screen-wall")


# Scripts that the browser runs before those of the page.
HURRY = "const usual = setInterval; window.setInterval = (act, pause) => usual(act, pause / 20);"
FRAMES = """
    window.frame_length = 16;
    const usual = requestAnimationFrame;
    let now = 0;
    window.requestAnimationFrame = (act) => usual(() => act(now += window.frame_length));"""
WRONG_CLOCK = "const usual = Date.now; Date.now = () => usual() + 3600e3;"


@pytest.fixture
def prepared(driver: Any, request: pytest.FixtureRequest) -> Iterator[None]:
    """Runs a script before those of the page."""
    added = driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument",
                                   {"source": request.param})
    yield
    driver.execute_cdp_cmd("Page.removeScriptToEvaluateOnNewDocument", added)


@pytest.mark.parametrize("prepared", ["", WRONG_CLOCK], ids=["clock", "wrong clock"], indirect=True)
def test_shows_for_how_long_a_restore_has_run(page: Page, source: MadeUp, prepared: None) -> None:
    source.devices = []
    source.jobs = [replace(job(), started_at=time.time() - 3725),
                   replace(job("job-2", JobState.FAILED, slot="left 2", device=RUNNING),
                           seconds=65.0, ended_at=time.time())]
    screen = BackgroundScreen(source)
    try:
        open_wall(page, screen)
        page.until("document.querySelector('.time').innerText.startsWith('1:02:')")
        before = page.text(".time")
        page.until("document.querySelector('.time').innerText > arguments[0]", before)
        assert page.run("return document.querySelectorAll('.time')[1].innerText") == "1:05"
    finally:
        screen.stop()


def test_says_what_is_wrong_with_the_stations(page: Page, screen: BackgroundScreen) -> None:
    open_wall(page, screen)
    assert not page.run("return document.getElementById('notice').checkVisibility()")
    screen.change(lambda board: setattr(board, "notice", "no connection to the broker"))
    page.until("document.getElementById('notice').innerText === 'no connection to the broker'")
    screen.change(lambda board: setattr(board, "notice", ""))
    page.until("!document.getElementById('notice').checkVisibility()")
    screen.change(lambda board: board.set_station(Station("south", note="the disk is full")))
    page.until("document.querySelectorAll('.status')[1].innerText === 'the disk is full'")


def test_sums_up_what_there_is(page: Page, screen: BackgroundScreen) -> None:
    open_wall(page, screen)
    page.until("document.getElementById('summary').innerText.includes('station offline')")
    assert page.text("#summary") == (
        "1 queued, 1 running, 1 succeeded, 1 failed, 1 timed out, 1 hung, 1 cancelled,"
        " 1 interrupted, 1 refused, 1 attached, 2 empty, 1 station offline")
    assert "Timeout waiting for NAND, gone" in "".join(page.tiles()), "it is not attached"


def test_nothing_can_be_ordered_from_a_station_that_is_offline(
        page: Page, screen: BackgroundScreen) -> None:
    page.open(f"{screen.address}#/device/north/{ECID}")
    page.until("document.querySelector('#details form')?.checkVisibility()")
    north = screen.source.stations[0]
    screen.change(lambda board: board.set_station(north.seen(False, 1.0)))
    page.until("!document.querySelector('#details form').checkVisibility()")
    screen.change(lambda board: board.set_station(north))
    page.until("document.querySelector('#details form').checkVisibility()")
    screen.change(lambda board: board.remove_device("north", ECID))
    page.until("!document.querySelector('#details form').checkVisibility()")


def test_a_page_of_a_newer_server_is_read_again(
        page: Page, source: MadeUp, monkeypatch: pytest.MonkeyPatch) -> None:
    screen = BackgroundScreen(source)
    open_wall(page, screen)
    page.run("window.is_old = true")
    screen.stop()
    screen.start()
    page.until("document.getElementById('lost').hidden")
    assert page.run("return window.is_old")
    screen.stop()
    monkeypatch.setattr("qnrescue.screen.server._digest_of_page", lambda: "another")
    screen.start()
    try:
        page.until("!window.is_old")
    finally:
        screen.stop()
    page.complaints()  # of the connections that failed


def test_the_latest_documents_are_shown_as_they_come(
        page: Page, screen: BackgroundScreen, source: MadeUp) -> None:
    documents = [{"Type": "RestoreStatus", "Value": {"Progress": number}} for number in range(6)]
    for first, last in ((0, 2), (1, 4), (3, 6)):
        source.kept = Papers(documents=documents[first:last], left_out=first)
        if not first:
            page.open(screen.address + "#/job/north/job-1")
        page.until("document.querySelector('.documents')?.innerText.includes(arguments[0])",
                   f"{last - 1} %")
        assert page.run("return [...document.querySelectorAll('.documents summary')]"
                        ".map((each) => each.innerText)") == [
            f"RestoreStatus {number} %" for number in range(first, last)]
        if not first:
            page.run("document.querySelectorAll('details')[1].open = true")
        elif first == 1:
            assert page.run("return document.querySelector('details').open"), "as it was left"
    assert "The last 3 of 6." in page.text("#details")


@pytest.mark.parametrize("prepared", [HURRY], ids=["hurry"], indirect=True)
def test_a_wall_on_which_not_everything_fits_turns_its_pages(
        page: Page, source: MadeUp, prepared: None) -> None:
    slots = tuple(str(number) for number in range(30))
    source.stations = tuple(Station(f"station {number}", slots=slots) for number in range(3))
    source.devices, source.jobs = [], []
    screen = BackgroundScreen(source)
    try:
        open_wall(page, screen, "?wall")
        page.run("""
            window.seen = new Set();
            (function look() {
              for (const each of document.querySelectorAll(".tiles li")) {
                const {top, bottom} = each.getBoundingClientRect();
                if (top >= document.querySelector("header").getBoundingClientRect().bottom
                    && bottom <= innerHeight) {
                  window.seen.add(each);
                }
              }
              requestAnimationFrame(look);
            })();""")
        page.until("window.seen.size === 90 && scrollY > 0")
        page.until("scrollY === 0")
        size = page.run("return parseFloat(getComputedStyle(document.querySelector("
                        "'.tile .state')).fontSize)")
        assert 0.7 * size >= 1.5 * 16, "it can be read from three metres"
    finally:
        screen.stop()


@pytest.mark.parametrize("count", [2, 3])
def test_the_form_for_a_wall_is_as_large_as_fits(page: Page, source: MadeUp, count: int) -> None:
    source.stations = tuple(Station(f"station {number}", slots=("1",)) for number in range(count))
    source.devices, source.jobs = [], []
    screen = BackgroundScreen(source)
    try:
        open_wall(page, screen, "?wall")
        size = page.until("parseInt(document.documentElement.style.fontSize)")
        page.run("document.body.classList.add('measured')")
        for wanted in (size, size + 1):
            page.run("document.documentElement.style.fontSize = arguments[0]", f"{wanted}px")
            assert page.run("return document.documentElement.scrollHeight <= innerHeight") == (
                wanted == size)
    finally:
        screen.stop()


def test_long_texts_do_not_make_a_wall_longer(page: Page, screen: BackgroundScreen) -> None:
    open_wall(page, screen, "?wall")
    page.until("document.documentElement.style.fontSize")
    screen.change(lambda board: board.set_station(Station(
        "south", online=False, heard=1.0, slots=("1", "2"), note="What is wrong. " * 50)))
    page.until("document.body.innerText.includes('What is wrong.')")
    assert page.run("return document.documentElement.scrollHeight <= innerHeight")


def test_keeps_the_latest_ends_for_those_who_listen(page: Page, screen: BackgroundScreen) -> None:
    open_wall(page, screen)
    for number in range(12):
        for state in (JobState.RUNNING, JobState.FAILED, JobState.RUNNING, JobState.CANCELLED):
            new = job("job-1", state, device=RUNNING.replace("30", "31"), slot="left 2",
                      step=f"{number}")
            screen.change(lambda board: board.set_job("north", replace(
                new, ended_at=new.ended_at and time.time())))
            page.until("document.querySelectorAll('.tile .state')[1].innerText"
                       ".startsWith(arguments[0])", state.value)
    said = page.run("return [...document.querySelectorAll('#said span')]"
                    ".map((each) => each.textContent)")
    assert len(said) == 20
    assert "cancelled" in said[-1] and "failed" in said[-2]


@pytest.mark.parametrize("prepared", [FRAMES], ids=["frames"], indirect=True)
def test_draws_fewer_tiles_at_once_where_frames_take_long(
        page: Page, source: MadeUp, prepared: None) -> None:
    slots = tuple(str(number) for number in range(300))
    source.stations, source.devices, source.jobs = (Station("north", slots=slots),), [], []
    screen = BackgroundScreen(source)
    counts = []
    try:
        open_wall(page, screen)
        page.until("document.getElementById('summary').innerText === '300 empty'")
        page.run("""
            window.counts = [];
            new MutationObserver((list) => window.counts.push(new Set(
              list.map(({target}) => target.closest("li"))).size))
              .observe(document.getElementById("wall"), {subtree: true, childList: true});""")
        for length in (16, 80):
            page.run("window.frame_length = arguments[0]; window.counts.length = 0", length)
            screen.change(lambda board: [board.set_device("north", Device(
                f"{number:016X}", str(number), f"{length}")) for number in range(300)])
            page.until("document.querySelector('.tiles li:last-child .device').textContent"
                       ".endsWith(arguments[0])", f"  {length}")
            counts.append(page.run("return window.counts"))
    finally:
        screen.stop()
    assert counts == [[20] * 15, [20, 10, 5] + [4] * 66 + [1]]


@pytest.mark.parametrize("scheme", ["light", "dark"])
@pytest.mark.parametrize("place", ["#/", "#/job/north/job-1", "#/job/north/job-3",
                                   f"#/device/north/{ECID}", "?wall"])
def test_axe_finds_nothing(page: Page, screen: BackgroundScreen, place: str, scheme: str) -> None:
    page.set_media(prefers_color_scheme=scheme)
    page.open(screen.address + place)
    page.until("document.querySelectorAll('.tile .state:not(:empty)').length > 0")
    page.until("location.hash.length < 3 || location.search || "
               "document.querySelector('#details .steps li, #details option')")
    assert page.run("return document.documentElement.dataset.theme") == scheme
    if scheme == "dark":
        take_picture(page, "screen-dark" if place == "#/" else "unused")
    assert page.findings() == []


def test_the_button_changes_the_colours_for_good(page: Page, screen: BackgroundScreen) -> None:
    page.set_media(prefers_color_scheme="light")
    open_wall(page, screen)
    colour = "getComputedStyle(document.body).backgroundColor"
    before = page.run(f"return {colour}")
    page.run("document.getElementById('theme').click()")
    assert page.run(f"return {colour}") != before
    open_wall(page, screen)
    assert page.run("return document.documentElement.dataset.theme") == "dark"
