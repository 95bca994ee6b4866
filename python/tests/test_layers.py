"""Which module imports which: the core has no process, clock or thread, nothing imports what is
above it, and every test is named after what it tests."""

from __future__ import annotations

import ast
import graphlib
from pathlib import Path

import pytest

import qnrescue

SOURCE = Path(qnrescue.__file__).parent
CORE = {"qnrescue.events", "qnrescue.documents", "qnrescue.outcome", "qnrescue.commands"}
OUTSIDE_OF_CORE = {"asyncio", "multiprocessing", "os", "pathlib", "psutil", "signal", "socket",
                   "sqlite3", "subprocess", "tempfile", "threading", "time"}
# Tests whose subject is more than a module.
OTHERS = {"hostile_circumstances", "layers", "package", "python_page", "bench_page", "fleet_access",
          "fleet_broker", "fleet_rollout", "screen_broker", "screen_in_browser"}


def name_of(path: Path) -> str:
    """Returns the name of the module."""
    return ".".join(("qnrescue", *path.relative_to(SOURCE).with_suffix("").parts)
                    ).removesuffix(".__init__")


FILES = {name_of(path): path for path in SOURCE.rglob("*.py")}


def imports(name: str) -> set[str]:
    """Returns the modules that a module imports, wherever it does so."""
    found: set[str] = set()
    for node in ast.walk(ast.parse(FILES[name].read_text("utf-8"))):
        if isinstance(node, ast.Import):
            found |= {alias.name for alias in node.names}
        elif isinstance(node, ast.ImportFrom):
            assert node.level == 0 and node.module, f"{name} has a relative import"
            members = {f"{node.module}.{alias.name}" for alias in node.names} & FILES.keys()
            found |= members or {node.module}
    return found


@pytest.mark.parametrize("name", sorted(CORE))
def test_the_core_has_no_process_clock_or_thread(name: str) -> None:
    used = imports(name)
    assert not {each.partition(".")[0] for each in used} & OUTSIDE_OF_CORE
    assert {each for each in used if each.startswith("qnrescue")} <= CORE


def test_only_what_is_above_the_bench_imports_it() -> None:
    bench = {name for name in FILES if name.startswith("qnrescue.bench")}
    fleet = {name for name in FILES if name.startswith("qnrescue.fleet")}
    screen = {name for name in FILES if name.startswith("qnrescue.screen")}
    assert len(bench) > 5 and len(fleet) > 5 and len(screen) > 5
    for name in FILES.keys() - bench - fleet - screen:
        assert not imports(name) & (bench | fleet | screen), name
    for name in bench - {"qnrescue.bench.cli"}:
        assert not imports(name) & (fleet | screen), name
    for name in fleet:
        assert not imports(name) & screen, name


def test_there_is_no_circle() -> None:
    modules = {name: imports(name) & FILES.keys() for name in FILES}
    order = list(graphlib.TopologicalSorter(modules).static_order())  # raises for a circle
    assert order.index("qnrescue.events") < order.index("qnrescue.supervisor")


def test_every_test_has_a_module() -> None:
    modules = {name.removeprefix("qnrescue.").replace(".", "_") for name in FILES}
    tests = {path.stem.removeprefix("test_") for path in Path(__file__).parent.glob("test_*.py")}
    assert tests - OTHERS <= modules
    assert OTHERS <= tests
