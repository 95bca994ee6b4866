"""What happens to a fleet, in scenes. After each of them all restores have been made once, and all
who show them are right."""

from __future__ import annotations

import time
from collections.abc import Callable, Sequence

from fleet import Fleet, wait_until
from stations_of_tests import BUNDLE, Station

# It happens to a station and a device of it, which nothing has happened to before.
Scene = Callable[[Fleet, Station, str], None]

# How much longer than a restore the network may pass nothing, in seconds. In a day with several
# rounds it is so long that broker and station give each other up.
_CUT, _LONG_CUT = 2.0, 60.0


def order_twice(fleet: Fleet, station: Station, device: str) -> None:
    """An order comes three times, and another one with its id."""
    order_id, order = fleet.new_id(), fleet.order_of(device)
    fleet.expect(station, order_id, "succeeded", answers=3, refusals=1)
    fleet.send(station, order_id, order)
    fleet.send(station, order_id, order)
    fleet.send(station, order_id, fleet.order_of(device, not_after=time.time() + 500))
    wait_until("the restore ends", lambda: fleet.has_ended(station, order_id))
    fleet.send(station, order_id, order)


def order_twice_at_the_screen(fleet: Fleet, station: Station, device: str) -> None:
    """Somebody orders at the screen, and again."""
    order_id = fleet.new_id()
    fleet.expect(station, order_id, "succeeded")
    wait_until("the screen orders", lambda: fleet.screen.restore(
        station.name, order_id, device, BUNDLE).get("accepted"))
    again = fleet.screen.restore(station.name, order_id, device, BUNDLE)
    assert again.get("accepted"), f"the same order is another one: {again}"


def too_late(fleet: Fleet, station: Station, device: str) -> None:
    """Orders come after their last moment, or have none; one was kept for a station that was
    away."""
    late, timeless, kept = fleet.new_id(), fleet.new_id(), fleet.new_id()
    for order_id in (late, timeless, kept):
        fleet.expect(station, order_id, answers=0, refusals=1)
    fleet.send(station, late, fleet.order_of(device, not_after=time.time() - 1))
    fleet.send(station, timeless, fleet.order_of(device, not_after=None))
    station.bridge.kill()
    fleet.send(station, kept, fleet.order_of(device, not_after=time.time() + 0.5))
    time.sleep(0.6)
    station.start()


def not_there(fleet: Fleet, station: Station, device: str) -> None:
    """A device is ordered that another station has, and one that none has."""
    for other in (fleet.stations[fleet.stations.index(station) - 1], station):
        order_id = fleet.new_id()
        fleet.expect(other, order_id, answers=0, refusals=1)
        fleet.send(other, order_id,
                   fleet.order_of(device if other is not station else "00000000DEADBEEF"))


def busy(fleet: Fleet, station: Station, device: str) -> None:
    """A device is ordered that is restored already."""
    fleet.begin(station, device)
    order_id = fleet.new_id()
    fleet.expect(station, order_id, "refused", answers=0, refusals=1)
    fleet.send(station, order_id, fleet.order_of(device))


def leaves(fleet: Fleet, station: Station, device: str) -> None:
    """A device is unplugged during its restore, another one before its order."""
    leaving = fleet.plug_in(station, 60, DisconnectAfter=_from_now(station, 12))
    fleet.wait_for(station, leaving)
    order_id = fleet.new_id()
    fleet.expect(station, order_id, "timed out")
    fleet.send(station, order_id, fleet.order_of(leaving, options={"restore_timeout": 12}))
    wait_until("the restore begins", lambda: fleet.state(station, order_id) == "running")
    wait_until("the restore ends", lambda: fleet.has_ended(station, order_id))
    wait_until("the device is away", lambda: fleet.device(station, leaving).get("state")
               == "away")
    wait_until("the device has left", lambda: not fleet.device(station, leaving))
    again = fleet.new_id()
    fleet.expect(station, again, answers=0, refusals=1)
    fleet.send(station, again, fleet.order_of(leaving))


def _from_now(station: Station, seconds: float) -> float:
    """Returns the time of the station's world in so many seconds."""
    return time.time() - station.machine.began() + seconds


def bridge_comes_back_at_once(fleet: Fleet, station: Station, device: str) -> None:
    """The bridge is killed, perhaps before it has answered, and comes back."""
    order_id = fleet.new_id()
    fleet.expect(station, order_id, "succeeded")
    fleet.send(station, order_id, fleet.order_of(device))
    time.sleep(fleet.chance.uniform(0.0, 3.0))
    station.bridge.kill()
    station.start()


def bridge_comes_back_after_the_end(fleet: Fleet, station: Station, device: str) -> None:
    """The bridge is killed during a restore, and comes back after its end."""
    order_id = fleet.begin(station, device)
    time.sleep(fleet.chance.uniform(0.0, 2.0))
    station.bridge.kill()
    fleet.wait_until_offline(station)
    wait_until("the restore ends", lambda: fleet.has_ended(station, order_id))
    assert fleet.state(station, order_id) == "running", "somebody else has said that it has ended"
    station.start()


def broker_comes_back(fleet: Fleet, station: Station, device: str) -> None:
    """The broker is killed during restores, and comes back with what it had kept."""
    jobs = _begin_everywhere(fleet, station, device)
    fleet.broker.kill()
    _end_of_the_broker(fleet, jobs)


def broker_has_forgotten_all(fleet: Fleet, station: Station, device: str) -> None:
    """The broker is killed during restores, and comes back without what it had kept."""
    jobs = _begin_everywhere(fleet, station, device)
    fleet.broker.kill()
    (fleet.broker.folder / "mosquitto.db").unlink()
    _end_of_the_broker(fleet, jobs)


def network_passes_nothing(fleet: Fleet, station: Station, device: str) -> None:
    """The network of a station passes nothing for longer than a restore."""
    order_id = fleet.begin(station, device)
    line = fleet.lines[station.name]
    line.stop()
    wait_until("the restore ends", lambda: fleet.has_ended(station, order_id))
    time.sleep(fleet.chance.uniform(1.0, _LONG_CUT if fleet.is_long else _CUT))
    assert fleet.state(station, order_id) == "running", "the network was not cut"
    line.go_on()


def network_is_cut(fleet: Fleet, station: Station, device: str) -> None:
    """The connections of a station and of the screen end, and what was under way is lost."""
    jobs = _begin_everywhere(fleet, station, device)
    lines = fleet.lines[station.name], fleet.screen_line
    for line in lines:
        line.stop()
        line.cut()
    fleet.wait_until_screen_is_alone()
    _wait_for_ends(fleet, jobs)
    assert fleet.state(*next(each for each in jobs if each[0] is station)) == "running", \
        "the network was not cut"
    for line in lines:
        line.go_on()


def power_is_lost(fleet: Fleet, station: Station, device: str) -> None:
    """A station stops at a random instant, and begins with what its disk had then."""
    order_id, order = fleet.new_id(), fleet.order_of(device)
    fleet.expect(station, order_id, "succeeded", "interrupted")
    fleet.send(station, order_id, order)
    time.sleep(fleet.chance.uniform(0.0, 4.0))
    station.lose_power()
    fleet.send(station, order_id, order)  # the operator has heard nothing
    station.start()


def _begin_everywhere(fleet: Fleet, station: Station, device: str) -> list[tuple[Station, str]]:
    """Begins restores at all stations, and returns their jobs."""
    devices = {each.name: device if each is station else fleet.plug_in(each)
               for each in fleet.stations}
    for each in fleet.stations:
        fleet.wait_for(each, devices[each.name])
    return list(zip(fleet.stations, fleet.begin_all(
        [(each, devices[each.name]) for each in fleet.stations]), strict=True))


def _end_of_the_broker(fleet: Fleet, jobs: Sequence[tuple[Station, str]]) -> None:
    """Starts the broker again, perhaps only after the end of the jobs."""
    assert not all(fleet.has_ended(*each) for each in jobs), "the broker was killed too late"
    fleet.wait_until_screen_is_alone()
    if fleet.chance.random() < 0.5:
        _wait_for_ends(fleet, jobs)
    fleet.broker.start()


def _wait_for_ends(fleet: Fleet, jobs: Sequence[tuple[Station, str]]) -> None:
    wait_until("the restores end", lambda: all(fleet.has_ended(*each) for each in jobs))


SCENES: Sequence[Scene] = (
    order_twice, order_twice_at_the_screen, too_late, not_there, busy, leaves,
    bridge_comes_back_at_once, bridge_comes_back_after_the_end, broker_comes_back,
    broker_has_forgotten_all, network_passes_nothing, network_is_cut, power_is_lost)
