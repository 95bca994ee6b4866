"""Decides which of the devices that come and go are restored: no process, clock or thread.

A visit begins when a device is seen and ends when it has been away for a while: a device also
leaves the list when it restarts, and when a restore has succeeded and it boots. Within a visit a
device is restored once, and again only as a retry.
"""

from __future__ import annotations

import enum
import uuid
from dataclasses import dataclass, field, replace
from typing import Any, Callable, Collection, Iterable, Mapping


@dataclass(frozen=True)
class Rules:
    """What the operator of a bench has decided; the times are in seconds."""

    restore: bool = True  # false: nothing is ordered
    at_once: int = 0  # how many jobs may be under way; 0: any number
    retries: int = 0  # how often a job may be repeated
    away: float = 30  # how long a device is away before it counts as unplugged
    rest: float = 600  # how long after a success a device is not restored again


class Phase(enum.Enum):
    """How far a visit is; the value is for the file of visits."""

    WAITING = "waiting"  # for its turn
    ORDERING = "ordering"  # its job may be in the journal
    ORDERED = "ordered"  # its job is in the journal
    DONE = "done"  # nothing more is ordered


@dataclass(frozen=True)
class Visit:
    """The stay of a device at the bench."""

    ecid: str
    id: str  # also the id of its first job
    phase: Phase = Phase.WAITING
    job: str = ""  # the latest one that was ordered
    repeats: str = ""  # the job that the next order repeats
    retries: int = 0  # how many were ordered
    note: str = ""  # why nothing is ordered, for people


@dataclass(frozen=True)
class Ended:
    """How a job has ended."""

    may_retry: bool = False  # it failed before the device was changed


@dataclass(frozen=True)
class Bench:
    """What is known at a moment."""

    attached: Collection[str] | None  # the devices in the list; None: there is no list
    active: Mapping[str, str] = field(default_factory=dict)  # queued and running jobs by device
    ended: Mapping[str, Ended] = field(default_factory=dict)  # jobs that have ended, by id
    since_success: Mapping[str, float] = field(default_factory=dict)  # seconds, by device


@dataclass(frozen=True)
class Arrived:
    """A visit has begun."""

    visit: Visit


@dataclass(frozen=True)
class Departed:
    """A visit has ended."""

    visit: Visit


@dataclass(frozen=True)
class Order:
    """A job has to be in the journal; the same order may come again after a restart."""

    id: str
    ecid: str
    repeats: str = ""


Action = Arrived | Departed | Order


def _new_id() -> str:
    return str(uuid.uuid4())


def _next_job(visit: Visit) -> Visit:
    if not visit.repeats:
        return replace(visit, phase=Phase.ORDERING, job=visit.id)
    retries = visit.retries + 1
    return replace(visit, phase=Phase.ORDERING, job=f"{visit.id}-{retries}", retries=retries)


class Visits:
    """The visits of a bench. They outlive the program: what `dump` returns is to be stored after
    each step, before its actions are carried out, and to be given to the next program. Then an
    order is never lost, and comes twice only with the same id."""

    def __init__(self, rules: Rules, stored: Iterable[Visit] = (),
                 new_id: Callable[[], str] = _new_id) -> None:
        self._rules = rules
        self._visits = {visit.ecid: visit for visit in stored}
        self._away_since: dict[str, float] = {}
        self._new_id = new_id

    @property
    def current(self) -> Mapping[str, Visit]:
        """The visits by device, in the order of their arrival."""
        return self._visits

    def step(self, now: float, bench: Bench) -> list[Action]:
        """Returns what follows from what is known now. The times never decrease."""
        for visit in list(self._visits.values()):
            self._visits[visit.ecid] = self._follow(visit, bench)
        if bench.attached is None:
            return []
        actions = [*self._departures(now, bench, bench.attached),
                   *self._arrivals(bench, bench.attached)]
        return actions + (self._orders(bench, bench.attached) if self._rules.restore else [])

    def _follow(self, visit: Visit, bench: Bench) -> Visit:
        if visit.phase is Phase.WAITING:
            return self._unless_restored(visit, bench)
        if visit.phase is Phase.DONE:
            return visit
        end = bench.ended.get(visit.job)
        if end:
            again = end.may_retry and visit.retries < self._rules.retries
            return replace(visit, phase=Phase.WAITING if again else Phase.DONE, repeats=visit.job)
        if bench.active.get(visit.ecid) == visit.job:
            return replace(visit, phase=Phase.ORDERED)
        if visit.phase is Phase.ORDERED:
            return replace(visit, phase=Phase.DONE, note="its job is no longer in the journal")
        return self._unless_restored(visit, bench)

    def _unless_restored(self, visit: Visit, bench: Bench) -> Visit:
        if visit.ecid in bench.active:
            return replace(visit, phase=Phase.DONE, note="somebody else restores it")
        if bench.since_success.get(visit.ecid, self._rules.rest) < self._rules.rest:
            return replace(visit, phase=Phase.DONE, note="has just been restored")
        return visit

    def _departures(self, now: float, bench: Bench, attached: Collection[str]) -> list[Action]:
        departed: list[Action] = []
        for ecid, visit in list(self._visits.items()):
            if ecid in attached or ecid in bench.active:
                self._away_since.pop(ecid, None)
            elif now - self._away_since.setdefault(ecid, now) >= self._rules.away:
                del self._visits[ecid], self._away_since[ecid]
                departed.append(Departed(visit))
        return departed

    def _arrivals(self, bench: Bench, attached: Collection[str]) -> list[Action]:
        arrived: list[Action] = []
        for ecid in sorted(set(attached) - set(self._visits)):
            visit = self._unless_restored(Visit(ecid, self._new_id()), bench)
            self._visits[ecid] = visit
            arrived.append(Arrived(visit))
        return arrived

    def _orders(self, bench: Bench, attached: Collection[str]) -> list[Action]:
        orders: list[Action] = []
        free = (self._rules.at_once or len(self._visits) + len(bench.active)) - len(bench.active)
        for ecid, visit in self._visits.items():
            if len(orders) >= free:
                break
            if ecid not in attached or ecid in bench.active:
                continue
            if visit.phase is Phase.WAITING:
                visit = self._visits[ecid] = _next_job(visit)
            if visit.phase is Phase.ORDERING:
                orders.append(Order(visit.job, ecid, visit.repeats))
        return orders

    def dump(self) -> list[dict[str, Any]]:
        """Returns the visits as values for JSON."""
        return [{**vars(visit), "phase": visit.phase.value} for visit in self._visits.values()]


def load(values: Iterable[Mapping[str, Any]]) -> list[Visit]:
    """Returns the visits that `dump` returned. Raises TypeError, ValueError or KeyError."""
    return [Visit(**dict(value, phase=Phase(value["phase"]))) for value in values]
