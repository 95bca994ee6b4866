"""The command screen: serves the page until Control-C."""

from __future__ import annotations

import argparse
import asyncio
import pathlib
import signal
import socket
import ssl
from collections.abc import Iterable
from typing import Any

from qnrescue.bench.context import CommandFailure, Context
from qnrescue.bench.exit_status import ExitStatus
from qnrescue.bench.slot_names import DETECT_SECONDS
from qnrescue.fleet.private_file import check_private
from qnrescue.screen.guard import SHORTEST_PASSWORD, Guard, is_loopback
from qnrescue.screen.source import Source

_HOST = "127.0.0.1"
_PORT = 8470


def add_commands(actions: argparse._SubParsersAction[Any], common: argparse.ArgumentParser,
                 looking: argparse.ArgumentParser) -> None:
    """Adds the command to the command line."""
    screen = actions.add_parser(
        "screen", parents=[common, looking], help="serve a page that shows the bench",
        description="Serves a page for browsers that shows the bench, its jobs and their time"
                    " lines, and orders and cancels restores. Control-C ends it, and no restore.")
    screen.add_argument("--listen", metavar="ADDRESS", default=_HOST,
                        help="where to listen; beyond this machine it needs --certificate and"
                             " --password-file; default: %(default)s")
    screen.add_argument("--port", type=int, default=_PORT, metavar="N",
                        help="default: %(default)s; 0: any that is free")
    screen.add_argument("--name", action="append", default=[], metavar="NAME",
                        help="a name by which browsers call this server, beside the machine's; can"
                             " be given again")
    screen.add_argument("--certificate", metavar="FILE", help="serve with TLS: the certificate, and"
                        " those that it rests on, as PEM")
    screen.add_argument("--key", metavar="FILE", help="its key; default: in the same file")
    screen.add_argument("--password-file", metavar="FILE", type=pathlib.Path,
                        help="a file with the password, which only its owner may read")
    screen.add_argument("--broker", metavar="ADDRESS", nargs="?", const="",
                        help="show the stations of a fleet instead of this bench; default: that of"
                             " the settings")
    screen.add_argument("--settings", metavar="FILE", type=pathlib.Path,
                        help="how to get to the broker; default: screen.toml in the folder of the"
                             " bench")
    screen.add_argument("--read-only", action="store_true", help="accept no orders")
    screen.add_argument("--bundles", metavar="FOLDER", type=pathlib.Path,
                        help="the folder with the bundles that can be ordered; default: bundles in"
                             " the folder of the bench")
    screen.add_argument("--allow-erase", action="store_true",
                        help="let the page order restores that erase; each has to be confirmed")
    screen.set_defaults(act=serve_screen, check=_check)


def _check(options: argparse.Namespace) -> str:
    if not is_loopback(options.listen) and not (options.certificate and options.password_file):
        return "beyond this machine, the screen needs --certificate and --password-file"
    if options.key and not options.certificate:
        return "--key needs --certificate"
    return ""


def serve_screen(context: Context) -> int:
    """Serves the page until Control-C."""
    try:
        import aiohttp  # noqa: F401
    except ImportError as fault:
        raise CommandFailure(ExitStatus.BENCH, "the screen needs aiohttp: install"
                                               " qnrescue[screen]") from fault
    try:
        asyncio.run(_serve(context))
    except OSError as fault:
        raise CommandFailure(ExitStatus.BENCH,
                             f"the page cannot be served: {fault.strerror or fault}") from fault
    return ExitStatus.DONE


async def _serve(context: Context) -> None:
    from aiohttp import web

    from qnrescue.screen.server import ScreenServer

    options = context.options
    password = _password(options.password_file)
    tls = _tls(options.certificate, options.key) if options.certificate else None
    scheme = "https" if tls else "http"
    guard = Guard(_names(options.listen, options.name), scheme=scheme,
                  password=password, read_only=options.read_only)
    source = _bench(context) if options.broker is None else _fleet(context)
    runner = web.AppRunner(ScreenServer(source, guard).app(), access_log=None)
    await runner.setup()
    try:
        site = web.TCPSite(runner, options.listen, options.port, ssl_context=tls)
        await site.start()
        host, port = runner.addresses[0][:2]
        host = f"[{host}]" if ":" in host else host
        context.output.line(f"{scheme}://{host}:{port}/")
        await _stopped()
    finally:
        await runner.cleanup()


def _bench(context: Context) -> Source:
    from qnrescue.screen.journal_source import BenchSettings, JournalSource

    options = context.options
    return JournalSource(BenchSettings(
        socket.gethostname(), context.folder,
        context.tool(options.detect_timeout or DETECT_SECONDS), context.tool_words,
        (options.bundles or context.folder.path / "bundles").absolute(), options.allow_erase))


def _fleet(context: Context) -> Source:
    from qnrescue.fleet.settings import SettingsFault
    from qnrescue.screen.broker_settings import FILE_NAME, read_access
    try:
        from qnrescue.screen.broker_source import BrokerSource
    except ModuleNotFoundError as fault:
        raise CommandFailure(ExitStatus.BENCH, f"{fault}; install qnrescue[fleet]") from fault
    path = context.options.settings or context.folder.path / FILE_NAME
    try:
        return BrokerSource(read_access(path, context.options.broker))
    except SettingsFault as fault:
        raise CommandFailure(ExitStatus.BENCH, str(fault)) from fault


async def _stopped() -> None:
    """Waits for Control-C or, where there is one, for a request to end."""
    stopped = asyncio.Event()
    try:
        for each in (signal.SIGINT, signal.SIGTERM):
            asyncio.get_running_loop().add_signal_handler(each, stopped.set)
    except NotImplementedError:  # on Windows, Control-C raises
        pass
    await stopped.wait()


def _names(host: str, named: Iterable[str]) -> set[str]:
    own = {"localhost"} if is_loopback(host) else {host, socket.gethostname(), socket.getfqdn()}
    return {*own, *named}


def _tls(certificate: str, key: str | None) -> ssl.SSLContext:
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.minimum_version = ssl.TLSVersion.TLSv1_2
    try:
        context.load_cert_chain(certificate, key)
    except (OSError, ssl.SSLError) as fault:
        raise CommandFailure(ExitStatus.BENCH,
                             f"the certificate cannot be used: {fault}") from fault
    return context


def _password(path: pathlib.Path | None) -> str:
    """Returns the password of the file; empty without a file. Raises CommandFailure."""
    if path is None:
        return ""
    try:
        check_private(path)
        password = path.read_text(encoding="utf-8").strip()
    except OSError as fault:
        raise CommandFailure(ExitStatus.BENCH,
                             f"{path} cannot be used: {fault.strerror or fault}") from fault
    except ValueError as fault:  # not UTF-8
        raise CommandFailure(ExitStatus.BENCH, f"{path} is no text: {fault}") from fault
    if len(password) < SHORTEST_PASSWORD:
        raise CommandFailure(ExitStatus.BENCH, f"the password in {path} is shorter than"
                                               f" {SHORTEST_PASSWORD} characters")
    return password
