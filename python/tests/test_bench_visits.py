"""Which devices are restored as they come and go."""

import itertools
import json

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from qnrescue.bench.visits import Bench, Ended, Order, Phase, Rules, Visits, load

A, B, C = "A" * 16, "B" * 16, "C" * 16
RULES = Rules(away=30, rest=600)


def make_visits(rules=RULES, stored=()):
    numbers = itertools.count(1)
    return Visits(rules, stored, lambda: f"v{next(numbers)}")


def kinds(actions):
    return [(type(each).__name__, each.ecid if isinstance(each, Order) else each.visit.ecid)
            for each in actions]


def test_device_is_ordered_when_it_arrives():
    visits = make_visits()
    actions = visits.step(0, Bench({B, A}))
    assert kinds(actions) == [("Arrived", A), ("Arrived", B), ("Order", A), ("Order", B)]
    assert actions[2:] == [Order("v1", A), Order("v2", B)]
    assert visits.step(1, Bench({A, B}, active={A: "v1", B: "v2"})) == []


def test_device_is_restored_once_while_it_stays():
    visits = make_visits()
    visits.step(0, Bench({A}))
    visits.step(1, Bench({A}, active={A: "v1"}))
    for now in range(2, 2000, 10):
        assert visits.step(now, Bench({A}, ended={"v1": Ended()})) == []


def test_device_that_was_unplugged_is_restored_again():
    visits = make_visits()
    visits.step(0, Bench({A}))
    ended = {"v1": Ended()}
    visits.step(1, Bench({A}, ended=ended))
    assert visits.step(2, Bench(set(), ended=ended)) == []
    assert visits.step(31, Bench(set(), ended=ended)) == []
    assert kinds(visits.step(32, Bench(set(), ended=ended))) == [("Departed", A)]
    assert visits.step(33, Bench({A}))[1:] == [Order("v2", A)]


def test_short_absence_is_no_departure():
    visits = make_visits()
    visits.step(0, Bench({A}))
    ended = {"v1": Ended()}
    for now in range(1, 300, 30):
        assert visits.step(now, Bench({A}, ended=ended)) == []
        assert visits.step(now, Bench(set(), ended=ended)) == []
        assert visits.step(now + 29, Bench(set(), ended=ended)) == []


def test_absence_during_a_restore_is_no_departure():
    visits = make_visits()
    visits.step(0, Bench({A}))
    for now in range(1, 7200, 60):
        assert visits.step(now, Bench(set(), active={A: "v1"})) == []
    assert visits.step(7200, Bench({A}, ended={"v1": Ended()})) == []


def test_device_that_has_just_been_restored_is_left_alone():
    visits = make_visits()
    (arrived,) = visits.step(0, Bench({A}, since_success={A: 599}))
    assert arrived.visit.note == "has just been restored"
    # Not even after the rest, as long as it stays.
    assert visits.step(700, Bench({A}, since_success={A: 1299})) == []
    assert kinds(visits.step(0, Bench({B}, since_success={B: 600}))) == [("Arrived", B),
                                                                         ("Order", B)]


def test_clock_that_was_set_back_after_a_success():
    assert kinds(make_visits().step(0, Bench({A}, since_success={A: -9000}))) == [("Arrived", A)]


def test_device_that_somebody_else_restores():
    visits = make_visits(Rules(retries=3))
    assert kinds(visits.step(0, Bench({A}, active={A: "other"}))) == [("Arrived", A)]
    assert visits.step(1, Bench({A}, ended={"other": Ended(may_retry=True)})) == []


def test_somebody_else_is_quicker_while_a_device_waits():
    visits = make_visits(Rules(at_once=1))
    assert kinds(visits.step(0, Bench({A}, active={C: "c"}))) == [("Arrived", A)]
    assert visits.step(1, Bench({A}, active={A: "other"})) == []
    assert visits.step(2, Bench({A})) == []
    assert kinds(visits.step(3, Bench({A, B}, active={C: "c"}))) == [("Arrived", B)]
    assert visits.step(4, Bench({A, B}, since_success={B: 0})) == []


def test_no_more_at_once_than_allowed():
    visits = make_visits(Rules(at_once=2))
    assert kinds(visits.step(0, Bench({A, B}, active={C: "c"})))[2:] == [("Order", A)]
    busy = {A: "v1", C: "c"}
    assert visits.step(1, Bench({A, B}, active=busy)) == []
    assert visits.step(2, Bench({A, B}, active={C: "c"}, ended={"v1": Ended()})) == [
        Order("v2", B)]


def test_retry_names_the_job_that_it_repeats():
    visits = make_visits(Rules(retries=2))
    visits.step(0, Bench({A}))
    ended = {"v1": Ended(may_retry=True)}
    assert visits.step(1, Bench(set(), ended=ended)) == []
    assert visits.step(2, Bench({A}, ended=ended)) == [Order("v1-1", A, "v1")]
    ended["v1-1"] = Ended(may_retry=True)
    assert visits.step(3, Bench({A}, ended=ended)) == [Order("v1-2", A, "v1-1")]
    ended["v1-2"] = Ended(may_retry=True)
    assert visits.step(4, Bench({A}, ended=ended)) == []


def test_no_retry_once_the_device_was_changed():
    visits = make_visits(Rules(retries=2))
    visits.step(0, Bench({A}))
    assert visits.step(1, Bench({A}, ended={"v1": Ended(may_retry=False)})) == []


def test_unknown_list_changes_nothing():
    visits = make_visits()
    visits.step(0, Bench({A}))
    ended = {"v1": Ended()}
    assert visits.step(100, Bench(None, ended=ended)) == []
    assert visits.step(101, Bench({A}, ended=ended)) == []
    assert list(visits.current) == [A]


def restart(visits, rules=RULES):
    return make_visits(rules, load(json.loads(json.dumps(visits.dump()))))


def test_restarted_program_orders_nothing_twice():
    visits = make_visits()
    visits.step(0, Bench({A, B}))
    visits.step(1, Bench({A, B}, active={B: "v2"}, ended={"v1": Ended()}))
    again = restart(visits)
    assert again.current == visits.current
    assert again.step(5000, Bench({A, B}, active={B: "v2"})) == []
    assert again.step(5001, Bench({A, B}, ended={"v2": Ended()})) == []


def test_order_that_did_not_reach_the_journal_comes_again_with_its_id():
    visits = make_visits()
    assert visits.step(0, Bench({A}))[1:] == [Order("v1", A)]
    assert restart(visits).step(0, Bench(set())) == []
    assert restart(visits).step(0, Bench({A})) == [Order("v1", A)]


def test_lost_journal_leads_to_no_second_restore():
    visits = make_visits()
    visits.step(0, Bench({A}))
    visits.step(1, Bench({A}, active={A: "v1"}))
    again = restart(visits)
    assert again.step(0, Bench({A})) == []
    assert again.current[A].note == "its job is no longer in the journal"


@pytest.mark.parametrize("value", [{}, {"ecid": A}, {"ecid": A, "id": "v1", "phase": "x"},
                                   {"ecid": A, "id": "v1", "phase": "done", "more": 1}])
def test_stored_visits_that_are_wrong(value):
    with pytest.raises((TypeError, ValueError, KeyError)):
        load([value])


class Model:
    """A bench with a journal, on which whatever hypothesis chooses happens."""

    def __init__(self, rules):
        self.rules, self.now, self.numbers = rules, 0.0, itertools.count()
        self.attached, self.jobs, self.successes = set(), {}, {}
        self.visits = self.make()
        self.away_since = {}  # seconds at which the list was first without it, with no job
        self.was_away = set()  # for long enough, since its latest order
        self.orders = []

    def make(self, stored=()):
        return Visits(self.rules, stored, lambda: f"v{next(self.numbers)}")

    @property
    def active(self):
        return {job["ecid"]: name for name, job in self.jobs.items() if job["end"] is None}

    def bench(self, attached):
        return Bench(attached, self.active,
                     {name: Ended(job["end"] == "early") for name, job in self.jobs.items()
                      if job["end"]},
                     {ecid: self.now - at for ecid, at in self.successes.items()})

    def step(self, seconds, attached, ends, other, crash):
        self.now += seconds
        for ecid, end in ends.items():
            if ecid in self.active:
                self.jobs[self.active[ecid]]["end"] = end
                if end == "succeeded":
                    self.successes[ecid] = self.now
        if other and other not in self.active:
            self.jobs[f"other{next(self.numbers)}"] = {"ecid": other, "end": None}
        self.note_absence(attached)
        actions = self.visits.step(self.now, self.bench(attached))
        stored = json.loads(json.dumps(self.visits.dump()))
        for action in actions:
            if isinstance(action, Order) and crash != "before":
                self.check(action, attached)
                self.jobs.setdefault(action.id, {"ecid": action.ecid, "end": None})
        if crash:
            self.visits = self.make(load(stored))
        if self.rules.at_once and any(isinstance(each, Order) for each in actions):
            assert len(self.active) <= self.rules.at_once
        return actions

    def note_absence(self, attached):
        for ecid in (A, B, C):
            if attached is None:
                continue
            if ecid in attached or ecid in self.active:
                self.away_since.pop(ecid, None)
            elif self.now - self.away_since.setdefault(ecid, self.now) >= self.rules.away:
                self.was_away.add(ecid)

    def check(self, order, attached):
        assert order.ecid in attached
        assert order.ecid not in self.active
        assert order.id not in self.jobs
        before = [each for each in self.orders if each.ecid == order.ecid]
        if order.repeats:
            assert self.jobs[order.repeats]["end"] == "early"
            assert self.jobs[order.repeats]["ecid"] == order.ecid
            assert order.repeats == before[-1].id
            assert int(order.id.rpartition("-")[2]) <= self.rules.retries
        elif before:
            assert order.ecid in self.was_away
        if not order.repeats and order.ecid in self.successes:
            assert self.now - self.successes[order.ecid] >= self.rules.rest
        self.was_away.discard(order.ecid)
        self.orders.append(order)


DEVICES = st.sampled_from([A, B, C])
STEPS = st.tuples(
    st.sampled_from([0, 1, 5, 10, 40]),
    st.none() | st.frozensets(DEVICES) | st.just(frozenset({A, B})),
    st.dictionaries(DEVICES, st.sampled_from(["succeeded", "early", "late"])),
    st.none() | st.none() | DEVICES,
    st.sampled_from(["", "", "", "before", "after"]),
)


@settings(deadline=None, max_examples=400)
@given(st.builds(Rules, at_once=st.integers(0, 3), retries=st.integers(0, 2),
                 away=st.just(10), rest=st.sampled_from([0, 20, 60])),
       st.lists(STEPS, max_size=60))
def test_whatever_happens(rules, steps):
    model = Model(rules)
    for step in steps:
        model.step(*step)
    assert len({order.id for order in model.orders}) == len(model.orders)


@settings(deadline=None)
@given(st.integers(0, 3), st.lists(STEPS, max_size=30))
def test_every_device_gets_its_turn(at_once, steps):
    """In the end each device that stays has been restored, or has just been."""
    model = Model(Rules(at_once=at_once, away=10, rest=20))
    for step in steps:
        model.step(*step)
    for _ in range(5):
        model.step(50, frozenset(), dict.fromkeys((A, B, C), "late"), None, "")
    assert not model.visits.current
    orders = len(model.orders)
    for _ in range(4):
        model.step(1, frozenset({A, B, C}), dict.fromkeys((A, B, C), "late"), None, "")
    assert sorted(each.ecid for each in model.orders[orders:]) == [A, B, C]
    assert all(visit.phase is Phase.DONE for visit in model.visits.current.values())
