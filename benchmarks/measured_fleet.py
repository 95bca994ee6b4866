"""A fleet on this machine: stations with simulated devices, one Mosquitto, and the screen."""

import collections
import contextlib
import json
import pathlib
import random
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "python" / "tests"))

from machine_of_tests import end_processes, work_folder  # noqa: E402, F401
from mosquitto_of_tests import PROGRAM as BROKER  # noqa: E402, F401
from mosquitto_of_tests import Client, Mosquitto  # noqa: E402
from screens_of_tests import ScreenProcess, Viewer, faults_of_screen  # noqa: E402
from stations_of_tests import (  # noqa: E402
    BUNDLE,
    Station,
    faults_of_broker,
    faults_of_traces,
    good_reports,
    kept_by,
)

# How many stations start at the same time: all at once, they would only wait for each other.
AT_ONCE = 3
# How long anything may take, in seconds.
LIMIT = 240
# What the broker counts, and says once a second.
SENT = "$SYS/broker/publish/messages/sent"


def wait_until(what, holds):
    end = time.monotonic() + LIMIT
    while not holds():
        if time.monotonic() > end:
            raise AssertionError(f"not within {LIMIT} s: {what}")
        time.sleep(0.2)


class Broker:
    """Mosquitto, and what it says and counts."""

    def __init__(self, folder):
        self.mosquitto = Mosquitto(
            folder,
            "listener PORT 127.0.0.1",
            "allow_anonymous true",
            "max_queued_messages 0",
            "sys_interval 1",
        )
        self.port = self.mosquitto.port
        self.listen()

    def listen(self):
        """Listens to everything, as a second screen would."""
        self.client = Client(self.port, filters=("qnrescue/#", SENT))

    def messages(self):
        """The messages of the stations until now: topics and payloads."""
        return [each for each in list(self.client.got) if not each[0].startswith("$")]

    def counts(self):
        """What has gone through the broker, by what is counted."""
        got = self.messages()
        return {
            "messages to the broker": len(got),
            "bytes to the broker": sum(len(topic) + len(payload) for topic, payload in got),
            "messages from the broker": int(dict(list(self.client.got)).get(SENT, 0)),
        }

    def online(self):
        return sum(
            topic.endswith("/availability") and payload == b"online"
            for topic, payload in dict(self.messages()).items()
        )

    def devices(self):
        return sum(
            "/devices/" in topic and bool(payload)
            for topic, payload in dict(self.messages()).items()
        )

    def answers(self):
        """The answers, by station and order."""
        return {
            tuple(topic.split("/")[1::2]): json.loads(payload)["answer"]
            for topic, payload in dict(self.messages()).items()
            if "/answers/" in topic
        }

    def kill(self):
        self.mosquitto.kill()

    def restart(self):
        """Kills the broker, which has forgotten everything when it is back."""
        self.client.close()
        self.mosquitto.kill()
        self.mosquitto.start()
        self.listen()


class Fleet:
    """Stations with devices, each with an order that restores it."""

    def __init__(self, folder, options):
        with contextlib.ExitStack() as opened:  # what is to be closed, also if the rest fails
            self.broker = Broker(folder / "broker")
            opened.callback(self.broker.kill)
            self.screen = ScreenProcess(folder / "screen", self.broker.port)
            opened.callback(self.screen.close)
            self.plug_in(folder, options)
            self.viewer = Viewer(self.screen, self.note)
            opened.callback(self.end_stations)
            self.opened = opened.pop_all()

    def plug_in(self, folder, options):
        chance = random.Random(options.seed)
        self.stations = []
        self.supervisors = []
        self.orders = {}  # by id: the station and the device
        self.shown = collections.defaultdict(list)  # by job: progress, and when it was sent
        self.states = {}  # by job, as the screen sends them
        for number in range(1, options.stations + 1):
            station = Station(
                folder / f"bench-{number:03}", options.tool, self.broker.port, options.devices
            )
            for slot in range(1, options.devices + 1):
                ecid = f"{number:08X}{slot:08X}"
                pauses = [chance.uniform(1, 5) for _ in range(options.reports)]
                station.plug_in({"ECID": ecid, "RestoreReports": good_reports(pauses)})
                self.orders[f"order-{number}-{slot}"] = station, ecid
            self.stations.append(station)

    def note(self, tile, at):
        if tile["job"]:
            self.states[tile["job"]] = tile["look"]
            if tile["progress"] is not None:
                self.shown[tile["job"]].append((tile["progress"], at))

    def start(self):
        for number, station in enumerate(self.stations, 1):
            station.start()
            self.supervisors.append(station.supervise())
            wait_until("stations are online", lambda: self.broker.online() > number - AT_ONCE)
        wait_until("all devices are known", lambda: self.broker.devices() == len(self.orders))

    def processes(self):
        return {
            "broker": [self.broker.mosquitto.process.pid],
            "bridges": [station.bridge.process.pid for station in self.stations],
            "supervisors": [each.pid for each in self.supervisors],
            "screen": [self.screen.process.pid],
        }

    def documents(self):
        """The file with the documents of each job."""
        return {
            order: station.machine.bench / "jobs" / order / "documents.plist"
            for order, (station, _) in self.orders.items()
        }

    def order(self):
        for order, (station, ecid) in self.orders.items():
            value = {"action": "restore", "device": ecid, "bundle": BUNDLE}
            value["not_after"] = time.time() + 600
            self.broker.client.order(order, value, station.name)

    def has_restored(self):
        """Whether the screen shows the end of all restores."""
        return all(
            self.states.get(order) not in (None, "queued", "running") for order in self.orders
        )

    def faults(self):
        """What differs from one restore for each order that succeeds."""
        answers = self.broker.answers()
        faults = [
            f"{order} was not accepted"
            for order, (station, _) in self.orders.items()
            if answers.get((station.name, order)) != "accepted"
        ]
        for station in self.stations:
            own = {order: ecid for order, (at, ecid) in self.orders.items() if at is station}
            found = {job.id: job.device for job in station.jobs() if job.state == "succeeded"}
            restores = sorted(station.machine.restores())
            if found != own or restores != sorted(own.items()):
                faults.append(f"{station.name}: {found} succeeded, {restores} were made")
            faults += faults_of_traces(station)
        return faults + self.faults_of_others()

    def faults_of_others(self):
        """Where the broker and the screen differ from the journals."""
        kept = kept_by(self.broker.port)
        return [
            *(fault for each in self.stations for fault in faults_of_broker(each, kept)),
            *faults_of_screen(self.stations, self.screen, self.viewer),
        ]

    def end_stations(self):
        end_processes(*(station.machine for station in self.stations))

    def close(self):
        self.opened.close()
