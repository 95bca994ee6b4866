"""The configuration of Mosquitto in docs/fleet.md: what it lets pass, and what it refuses."""

from __future__ import annotations

import contextlib
import subprocess
from collections.abc import Callable, Iterator
from dataclasses import dataclass, replace
from pathlib import Path

import pytest

from bench_of_tests import TestBench, wait_until
from fleet_of_tests import DEVICE, message
from mosquitto_of_tests import Client, Mosquitto, Service, file_of_page
from page_of_tests import Screen
from qnrescue.fleet.connection import Connection, Disconnected
from qnrescue.fleet.settings import Broker, Settings

pytestmark = pytest.mark.full

# The client leaves the socket of a handshake that fails to the garbage collector.
LEFT_OPEN = pytest.mark.filterwarnings("ignore::pytest.PytestUnraisableExceptionWarning")

STATION, OTHER = "bench-07", "bench-08"


def openssl(folder: Path, *words: str) -> None:
    """Runs openssl in the folder."""
    subprocess.run(["openssl", *words], cwd=folder, check=True, capture_output=True)


def make_authority(folder: Path, name: str) -> None:
    """Makes a certificate that signs others."""
    openssl(folder, "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
            "-nodes", "-subj", f"/CN={name}", "-keyout", f"{name}.key", "-out", f"{name}.pem",
            "-days", "2")


def make_certificate(folder: Path, name: str, authority: str, subject: str, names: str) -> None:
    """Makes a certificate with this common name and these other names."""
    openssl(folder, "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
            "-subj", f"/CN={subject}", "-keyout", f"{name}.key", "-out", f"{name}.csr")
    (folder / "names").write_text(f"subjectAltName={names}\n")
    openssl(folder, "x509", "-req", "-in", f"{name}.csr", "-CA", f"{authority}.pem", "-CAkey",
            f"{authority}.key", "-CAcreateserial", "-out", f"{name}.pem", "-days", "2",
            "-extfile", "names")


@dataclass
class Fleet:
    """A broker with the configuration of the page."""

    broker: Mosquitto
    folder: Path

    def client(self, user: str, password: str = "", **how: object) -> Client:
        """Connects a client. Its password is like the name of the user."""
        return Client(self.broker.port, user, password or f"{user}!",
                      ca=self.folder / "ca.pem", **how)  # type: ignore[arg-type]

    def settings(self) -> Settings:
        """Returns the settings of the station."""
        return Settings(STATION, Broker("127.0.0.1", self.broker.port, True), self.folder, STATION,
                        f"{STATION}!", self.folder / "ca.pem")


@pytest.fixture(scope="module")
def certificates(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Gives a folder with certificates and users."""
    folder = tmp_path_factory.mktemp("certificates")
    for authority in ("ca", "other-ca"):
        make_authority(folder, authority)
    make_certificate(folder, "broker", "ca", "broker", "IP:127.0.0.1")
    make_certificate(folder, "elsewhere", "ca", "elsewhere", "DNS:elsewhere.example")
    make_certificate(folder, "station", "ca", STATION, f"DNS:{STATION}")
    make_certificate(folder, "stranger", "other-ca", STATION, f"DNS:{STATION}")
    (folder / "passwords").touch(0o600)
    for user in (STATION, OTHER, "screen", "witness"):
        subprocess.run(["mosquitto_passwd", "-b", folder / "passwords", user, f"{user}!"],
                       check=True, capture_output=True)
    # The witness sees what passes: of a refusal the broker says nothing.
    (folder / "access").write_text(file_of_page("access") + "\nuser witness\ntopic read #\n")
    (folder / "access").chmod(0o600)
    return folder


def configured(folder: Path, certificates: Path,
               change: Callable[[str], str] = lambda text: text) -> Fleet:
    """Starts a broker with the configuration of the page."""
    text = change(file_of_page("mosquitto.conf"))
    text = text.replace("listener 8883", "listener PORT 127.0.0.1")
    text = text.replace("/etc/mosquitto/fleet", str(certificates))
    text = text.replace("/var/lib/mosquitto/", f"{folder}/broker/")
    return Fleet(Mosquitto(folder / "broker", *text.splitlines()), certificates)


@pytest.fixture
def fleet(tmp_path: Path, certificates: Path) -> Iterator[Fleet]:
    """Gives a fleet."""
    fleet = configured(tmp_path, certificates)
    yield fleet
    fleet.broker.kill()


def test_a_station_and_an_operator(fleet: Fleet, bench: TestBench) -> None:
    service = Service(bench, fleet.broker.port, scheme="mqtts", settings=(
        f'user = "{STATION}"\npassword = "{STATION}!"\nca = "{fleet.folder}/ca.pem"\n'))
    screen = fleet.client("screen")
    wait_until(lambda: screen.latest(f"devices/{DEVICE}"))
    service.bundle("complete")
    screen.order("order-1", message())
    wait_until(lambda: screen.state("order-1") == "succeeded")
    assert screen.latest("answers/order-1")["answer"] == "accepted"
    assert service.starts() == [DEVICE]
    service.kill()
    wait_until(lambda: screen.latest("availability") == "offline")
    screen.close()


def test_a_station_and_a_screen(fleet: Fleet, bench: TestBench) -> None:
    service = Service(bench, fleet.broker.port, scheme="mqtts", settings=(
        f'user = "{STATION}"\npassword = "{STATION}!"\nca = "{fleet.folder}/ca.pem"\n'))
    service.bundle("complete")
    settings = bench.path / "screen.toml"
    settings.touch(0o600)
    settings.write_text(f'broker = "mqtts://127.0.0.1:{fleet.broker.port}"\nuser = "screen"\n'
                        f'password = "screen!"\nca = "{fleet.folder}/ca.pem"\n')
    with contextlib.closing(Screen(bench.path / "screen", "--broker", "--settings",
                                   str(settings))) as screen:
        wait_until(screen.is_complete)
        assert screen.restore()[1]["accepted"]
        wait_until(lambda: screen.tile()["look"] == "succeeded")
        assert service.starts() == [DEVICE]
    service.kill()


def test_who_joins_is_sent_all_that_is_kept(fleet: Fleet) -> None:
    station, topics = fleet.client(STATION), {f"qnrescue/{STATION}/jobs/{each}"
                                              for each in range(3000)}
    station.publish_all(topics, "x" * 762, True)
    screen = fleet.client("screen")
    wait_until(lambda: {topic for topic, _ in list(screen.got)} == topics)
    for client in (station, screen):
        client.close()


OWN = [f"qnrescue/{STATION}/{topic}" for topic in (
    "availability", "station", f"devices/{DEVICE}", "jobs/a", "answers/a")]
OF_ANOTHER = [topic.replace(STATION, OTHER) for topic in OWN]
ORDERS = [f"qnrescue/{STATION}/orders/a", f"qnrescue/{OTHER}/orders/a"]
BESIDE = ["qnrescue/x", f"qnrescue/{STATION}", f"qnrescue/{STATION}/jobs/a/b",
          f"qnrescue/{STATION}/x", "x", "$SYS/x"]


@pytest.mark.parametrize("user, allowed, refused", [
    (STATION, OWN, OF_ANOTHER + ORDERS + BESIDE),
    (OTHER, OF_ANOTHER, OWN + ORDERS + BESIDE),
    ("screen", ORDERS, OWN + OF_ANOTHER + BESIDE),
])
def test_who_may_write_what(fleet: Fleet, user: str, allowed: list[str],
                            refused: list[str]) -> None:
    witness = fleet.client("witness", filters=["#"])
    writer = fleet.client(user, filters=())
    for topic in (*refused, *allowed):
        writer.publish(topic, f"by {user}", retain=True)
    wait_until(lambda: allowed[-1] in {topic for topic, _ in witness.got})
    assert {topic for topic, payload in witness.got if payload == f"by {user}".encode()} == set(
        allowed)
    writer.close()
    witness.close()


@pytest.mark.parametrize("user, allowed", [
    (STATION, {f"qnrescue/{STATION}/devices/{DEVICE}", f"qnrescue/{STATION}/jobs/a",
               f"qnrescue/{STATION}/orders/a"}),
    (OTHER, {f"qnrescue/{OTHER}/devices/{DEVICE}", f"qnrescue/{OTHER}/jobs/a",
             f"qnrescue/{OTHER}/orders/a"}),
    ("screen", {*OWN, *OF_ANOTHER, *ORDERS}),
])
def test_who_may_read_what(fleet: Fleet, user: str, allowed: set[str]) -> None:
    reader = fleet.client(user, filters=["#", "qnrescue/#", f"qnrescue/{OTHER}/#"])
    for name, topics in ((STATION, OWN), (OTHER, OF_ANOTHER), ("screen", ORDERS)):
        writer = reader if name == user else fleet.client(name, filters=())
        for topic in topics:
            writer.publish(topic, "x")
        if writer is not reader:
            writer.close()
    wait_until(lambda: allowed <= {topic for topic, _ in reader.got})
    assert {topic for topic, _ in reader.got} == allowed
    reader.close()


@pytest.mark.parametrize("user, password", [
    ("", ""), (STATION, "wrong"), ("nobody", "nobody!"), (f"{STATION}/+", "x"), ("#", "x")])
def test_who_may_not_connect(fleet: Fleet, user: str, password: str) -> None:
    client = fleet.client(user, password)
    assert client.reason in (4, 5, 134, 135)  # not authorised
    client.close()


def test_without_encryption_there_is_no_connection(fleet: Fleet) -> None:
    client = Client(fleet.broker.port, STATION, f"{STATION}!")
    assert client.reason is None and client.ended
    client.close()


def test_a_last_will_for_another_station(fleet: Fleet) -> None:
    witness = fleet.client("witness", filters=["#"])
    topic = f"qnrescue/{OTHER}/availability"
    client = fleet.client(STATION, filters=(), will=topic)
    client.cut()
    honest = fleet.client(OTHER, filters=(), will=f"qnrescue/{OTHER}/station")
    honest.cut()
    wait_until(lambda: witness.got)
    assert [topic for topic, _ in witness.got] == [f"qnrescue/{OTHER}/station"]
    witness.close()


def test_nobody_takes_over_the_session_of_a_station(fleet: Fleet) -> None:
    connection = Connection(fleet.settings(), lambda topic, payload, kept: None)
    for name in (STATION, f"qnrescue-{STATION}"):  # which is what the station asks for
        intruder = fleet.client(OTHER, name=name)
        assert intruder.reason == 0
        for _ in range(5):
            connection.step(0.1)
        intruder.close()
    connection.close("qnrescue/bench-07/availability")


def connect(settings: Settings) -> None:
    """Connects as the station does, and ends the connection."""
    Connection(settings, lambda topic, payload, kept: None).close(
        "qnrescue/bench-07/availability")


@LEFT_OPEN
def test_the_station_verifies_the_broker(fleet: Fleet, tmp_path: Path,
                                         certificates: Path) -> None:
    settings = fleet.settings()
    connect(settings)
    for other in (replace(settings, ca=certificates / "other-ca.pem"), replace(settings, ca=None)):
        with pytest.raises(Disconnected, match="certificate verify failed"):
            connect(other)
    with pytest.raises(Disconnected, match="not authori"):
        connect(replace(settings, password="wrong"))
    elsewhere = configured(tmp_path / "elsewhere", certificates,
                           lambda text: text.replace("broker.", "elsewhere."))
    with pytest.raises(Disconnected, match="certificate verify failed.*127.0.0.1"):
        connect(replace(elsewhere.settings()))
    elsewhere.broker.kill()


@LEFT_OPEN
def test_certificates_of_stations(tmp_path: Path, certificates: Path) -> None:
    lines = "require_certificate true\nuse_identity_as_username true"
    fleet = configured(tmp_path, certificates, lambda text: text.replace(
        "password_file /etc/mosquitto/fleet/passwords", lines))
    settings = replace(fleet.settings(), user="", password="")
    connect(replace(settings, certificate=certificates / "station.pem",
                    key=certificates / "station.key"))
    log = (fleet.broker.folder / "mosquitto.log").read_text()
    assert f"as {STATION} " in log and f"u'{STATION}'" in log
    with pytest.raises(Disconnected):
        connect(settings)
    with pytest.raises(Disconnected):
        connect(replace(settings, certificate=certificates / "stranger.pem",
                        key=certificates / "stranger.key"))
    fleet.broker.kill()
