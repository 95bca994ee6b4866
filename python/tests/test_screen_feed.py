"""What viewers are sent."""

from __future__ import annotations

import asyncio
import json
from typing import Any

import pytest

from qnrescue.screen.feed import Feed, difference


def view(**stations: dict[str, int]) -> dict[str, dict[str, Any]]:
    """Returns a view: of each station, the tiles with a number."""
    return {name: {"head": {"name": name}, "tiles": {
        key: {"key": key, "number": number} for key, number in tiles.items()}}
        for name, tiles in stations.items()}


def test_no_change_is_nothing() -> None:
    assert difference(view(north={"a": 1}), view(north={"a": 1})) == {}


def test_only_the_changed_tile_is_sent() -> None:
    assert difference(view(north={"a": 1, "b": 1}, south={"a": 1}),
                      view(north={"a": 1, "b": 2}, south={"a": 1})) == {
        "stations": [{"name": "north", "tiles": [{"key": "b", "number": 2}]}]}


def test_another_order_or_other_tiles_are_sent_as_keys() -> None:
    assert difference(view(north={"a": 1, "b": 1}), view(north={"b": 1, "a": 1})) == {
        "stations": [{"name": "north", "keys": ["b", "a"]}]}
    assert difference(view(north={"a": 1, "b": 1}), view(north={"a": 1})) == {
        "stations": [{"name": "north", "keys": ["a"]}]}


def test_a_station_that_has_gone_is_named() -> None:
    assert difference(view(north={}, south={}), view(north={})) == {"gone": ["south"]}


def test_a_station_without_tiles_has_no_keys() -> None:
    """A viewer may still show those that it had."""
    assert difference({}, view(north={})) == {
        "stations": [{"name": "north", "head": {"name": "north"}, "keys": []}]}


def test_a_changed_head_is_sent() -> None:
    after = view(north={"a": 1})
    after["north"]["head"] = {"name": "north", "online": False}
    assert difference(view(north={"a": 1}), after) == {
        "stations": [{"name": "north", "head": {"name": "north", "online": False}}]}


def parsed(data: bytes) -> tuple[str, Any]:
    """Returns the kind and the value of an event."""
    kind, value = data.decode().removesuffix("\n\n").split("\n")
    return kind.removeprefix("event: "), json.loads(value.removeprefix("data: "))


def test_a_viewer_is_sent_everything_and_then_changes() -> None:
    async def follow() -> None:
        feed = Feed()
        feed.publish(view(north={"a": 1}))
        viewer = feed.follow({"token": "t"})
        kind, value = parsed(await viewer.__anext__())
        assert (kind, value["token"]) == ("state", "t")
        assert value["stations"][0]["tiles"] == [{"key": "a", "number": 1}]
        feed.publish(view(north={"a": 1}))
        feed.publish(view(north={"a": 2}))
        assert parsed(await viewer.__anext__())[0] == "changes"
        feed.beat(5.0, "no broker")
        assert parsed(await viewer.__anext__()) == ("beat", {"now": 5.0, "notice": "no broker"})
        await viewer.aclose()  # type: ignore[attr-defined]
        assert feed.viewers == 0

    asyncio.run(follow())


def test_a_viewer_that_is_too_slow_is_sent_everything_anew() -> None:
    async def follow() -> None:
        feed = Feed()
        viewer = feed.follow({})
        await viewer.__anext__()
        for number in range(1000):
            feed.publish(view(north={"a": number}))
        assert parsed(await viewer.__anext__())[1]["stations"][0]["tiles"][0]["number"] == 999
        feed.publish(view(north={"a": 7}))
        assert parsed(await viewer.__anext__())[1]["stations"][0]["tiles"][0]["number"] == 7

    asyncio.run(follow())


def test_a_closed_feed_ends_its_viewers() -> None:
    async def follow() -> None:
        feed = Feed()
        viewer = feed.follow({})
        await viewer.__anext__()
        waiting = asyncio.ensure_future(viewer.__anext__())
        await asyncio.sleep(0)
        feed.close()
        with pytest.raises(StopAsyncIteration):
            await waiting

    asyncio.run(follow())
